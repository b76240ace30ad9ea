#include "Options.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace kesta::gentl {

bool ParseNumber(const std::string& text, std::uint64_t& value) {
    if (text.empty() || text[0] == '-' || text[0] == '+') {
        return false;
    }
    errno = 0;
    char* end = nullptr;
    const unsigned long long v = std::strtoull(text.c_str(), &end, 0);
    if (errno != 0 || end == text.c_str() || *end != '\0') {
        return false;
    }
    value = v;
    return true;
}

bool Options::Parse(const std::vector<std::string>& arguments,
                    const std::vector<std::string>& known, std::ostream& err) {
    std::size_t at = 0;
    for (; at < arguments.size(); ++at) {
        std::string name = arguments[at];
        if (name.rfind("--", 0) != 0) {
            break;
        }
        std::string value;
        const auto equals = name.find('=');
        if (equals != std::string::npos) {
            value = name.substr(equals + 1);
            name = name.substr(0, equals);
        } else if (at + 1 < arguments.size()) {
            value = arguments[++at];
        } else {
            err << name << " needs a value\n";
            return false;
        }
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            err << "unknown option " << name << "\n";
            return false;
        }
        m_values[name] = value;
    }
    m_rest.assign(arguments.begin() + static_cast<std::ptrdiff_t>(at), arguments.end());
    const auto timeout = m_values.find("--timeout");
    if (timeout != m_values.end() && (!ParseNumber(timeout->second, m_timeout) || m_timeout == 0)) {
        err << "--timeout takes a number of milliseconds above 0, not " << timeout->second << "\n";
        return false;
    }
    return true;
}

bool ParseAccess(const std::string& text, DEVICE_ACCESS_FLAGS& flags, std::ostream& err) {
    if (text == "control") {
        flags = DEVICE_ACCESS_CONTROL;
    } else if (text == "read-only" || text == "readonly") {
        flags = DEVICE_ACCESS_READONLY;
    } else if (text == "exclusive") {
        flags = DEVICE_ACCESS_EXCLUSIVE;
    } else {
        err << "--access takes control, read-only or exclusive, not " << text << "\n";
        return false;
    }
    return true;
}

std::string Options::Get(const std::string& name, const std::string& fallback) const {
    const auto it = m_values.find(name);
    return it == m_values.end() ? fallback : it->second;
}

} // namespace kesta::gentl
