#pragma once
/**
 * The plain 8-byte number registers of the module register spaces: reads
 * and writes of a value of their own (selectors, stored settings), and the
 * widening of a value that an info command answers in fewer bytes.
 *
 * Every IntReg of the modules' XML is 8 bytes, little-endian. A GenApi
 * engine reads it at that length and takes all 8 bytes, so a 4-byte info
 * value (an access status) or a 2-byte key leaves no stale bytes behind:
 * the rest of the caller's 8 bytes is cleared.
 */
#include <cstdint>
#include <cstring>
#include <string>

#include "GenTL_KESTA.h"
#include "api/Error.h"

namespace GenTL {

/// Width of every number register.
constexpr unsigned long kNumberRegisterSize = 8;

/// After a successful read of fewer than 8 bytes into a buffer of at least
/// asked bytes: clears the rest of the 8 and makes *size 8. rc passes on.
inline int WidenToNumberRegister(int rc, void* buffer, unsigned long asked, unsigned long* size) {
    if (rc == GC_ERR_SUCCESS && buffer != nullptr && asked >= kNumberRegisterSize &&
        *size < kNumberRegisterSize) {
        std::memset(static_cast<unsigned char*>(buffer) + *size, 0, kNumberRegisterSize - *size);
        *size = kNumberRegisterSize;
    }
    return rc;
}

/// The first width bytes of value into buffer, zero-extended to 8 when the
/// caller gave room for them. Fails with GC_ERR_BUFFER_TOO_SMALL below width.
inline int ReadNumberRegister(std::uint64_t value, unsigned long width, void* buffer,
                              unsigned long* size) {
    if (*size < width) {
        return ReportError(GC_ERR_BUFFER_TOO_SMALL,
                           "*piSize=" + std::to_string(*size) + " < " + std::to_string(width));
    }
    const unsigned long asked = *size;
    std::memcpy(buffer, &value, width); // little-endian: the low bytes first
    *size = width;
    return WidenToNumberRegister(GC_ERR_SUCCESS, buffer, asked, size);
}

/// The value in the first width bytes of buffer (width at most 8). Fails
/// with GC_ERR_BUFFER_TOO_SMALL below width.
inline int WrittenNumberRegister(const void* buffer, unsigned long width, const unsigned long* size,
                                 std::uint64_t& value) {
    if (*size < width) {
        return ReportError(GC_ERR_BUFFER_TOO_SMALL,
                           "*piSize=" + std::to_string(*size) + " < " + std::to_string(width));
    }
    value = 0;
    std::memcpy(&value, buffer, width);
    return GC_ERR_SUCCESS;
}

} // namespace GenTL
