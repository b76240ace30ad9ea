#include "LocalUrl.h"

#include <cctype>

#include "Options.h"

namespace kesta::gentl {

namespace {

std::string Lower(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

bool ParseHex(const std::string& text, std::uint64_t& value) {
    if (text.empty()) {
        return false;
    }
    for (char c : text) {
        if (!std::isxdigit(static_cast<unsigned char>(c))) {
            return false;
        }
    }
    return ParseNumber("0x" + text, value);
}

} // namespace

bool LocalFile::Zipped() const {
    return name.size() >= 4 && Lower(name.substr(name.size() - 4)) == ".zip";
}

bool ParseLocalUrl(const std::string& url, LocalFile& file) {
    const auto colon = url.find(':');
    if (colon == std::string::npos || Lower(url.substr(0, colon)) != "local") {
        return false;
    }
    std::string rest = url.substr(colon + 1);
    rest = rest.substr(0, rest.find('?'));
    const auto first = rest.find(';');
    const auto second = first == std::string::npos ? first : rest.find(';', first + 1);
    if (first == 0 || second == std::string::npos) {
        return false;
    }
    LocalFile parsed;
    parsed.name = rest.substr(0, first);
    if (!ParseHex(rest.substr(first + 1, second - first - 1), parsed.address) ||
        !ParseHex(rest.substr(second + 1), parsed.length) || parsed.length == 0) {
        return false;
    }
    file = parsed;
    return true;
}

} // namespace kesta::gentl
