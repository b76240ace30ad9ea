#pragma once
// The options of the commands that find cameras: "--name VALUE" or
// "--name=VALUE" pairs before the rest of the arguments.
#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "GenTL_KESTA.h"

namespace kesta::gentl {

class Options {
public:
    /// Takes the leading options whose names are in known; stops at the
    /// first argument that is not an option. Unknown options, missing
    /// values and bad numbers are printed to err and fail.
    bool Parse(const std::vector<std::string>& arguments, const std::vector<std::string>& known,
               std::ostream& err);

    /// The value of --name, or fallback.
    std::string Get(const std::string& name, const std::string& fallback = "") const;
    /// --timeout in milliseconds (discovery), 1000 by default.
    std::uint64_t Timeout() const { return m_timeout; }
    /// What followed the options.
    const std::vector<std::string>& Rest() const { return m_rest; }

private:
    std::map<std::string, std::string> m_values;
    std::vector<std::string> m_rest;
    std::uint64_t m_timeout = 1000;
};

/// A number in decimal or 0x hexadecimal; false for anything else.
bool ParseNumber(const std::string& text, std::uint64_t& value);

/// --access: control, read-only (or readonly) or exclusive; anything else
/// is printed to err and fails.
bool ParseAccess(const std::string& text, DEVICE_ACCESS_FLAGS& flags, std::ostream& err);

} // namespace kesta::gentl
