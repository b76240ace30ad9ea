#pragma once
// Answers of the *GetInfo functions: asking with the size query first, and
// turning the typed bytes into text.
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "GenTL_KESTA.h"

namespace kesta::gentl {

/// One answer: its INFO_DATATYPE and its bytes.
struct InfoValue {
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    std::vector<unsigned char> bytes;

    /// The bytes read as a number of the answer's type (0 if too short).
    std::int64_t Number() const;
    /// The answer as text, by its type.
    std::string Text() const;
};

/// A *GetInfo call with everything but the type, buffer and size bound.
using InfoQuery = std::function<GC_ERROR(INFO_DATATYPE*, void*, size_t*)>;

/// Asks for the size, then for the value. Returns the first failure.
GC_ERROR AskInfo(const InfoQuery& query, InfoValue& value);

/// a.b.c.d of an address held as a number (first byte in the high bits).
std::string FormatIp(std::int64_t ip);
/// aa:bb:cc:dd:ee:ff of a 48-bit hardware address.
std::string FormatMac(std::int64_t mac);
/// The name of a DEVICE_ACCESS_STATUS value.
std::string FormatAccessStatus(std::int64_t status);

} // namespace kesta::gentl
