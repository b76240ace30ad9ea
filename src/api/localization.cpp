#include "localization.h"

#include <cstddef>
#include <stdexcept>

namespace GenTL {
namespace loc {

namespace {

std::string Text(const char* text) {
    if (text == nullptr) {
        throw std::logic_error("basic_string: construction from null is not valid");
    }
    return text;
}

} // namespace

std::string al(const char* text) {
    return Text(text);
}

std::string al(const char* text, std::initializer_list<const char*> args) {
    std::string out = Text(text);
    std::size_t index = 0;
    for (const char* arg : args) {
        const std::string key = "{" + std::to_string(index++) + "}";
        const std::string value = Text(arg);
        const bool selfReferent = value.find(key) != std::string::npos;
        std::size_t from = 0;
        for (std::size_t at = out.find(key); at != std::string::npos; at = out.find(key, from)) {
            out.replace(at, key.size(), value);
            from = selfReferent ? at + value.size() : 0;
        }
    }
    return out;
}

} // namespace loc
} // namespace GenTL
