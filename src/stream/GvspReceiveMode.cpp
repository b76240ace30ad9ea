#include "stream/GvspReceiveMode.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "api/HLogger.h"
#include "api/localization.h"

namespace GenTL {

namespace {

constexpr const char* kSettingsFile = "KestaGentl.cfg";
constexpr const char* kSettingsKey = "gvsp.receiveMode";
constexpr const char* kEnvironment = "KESTA_GVSP_RECEIVE_MODE";

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

} // namespace

const char* ReceiveModeName(GvspReceiveMode mode) {
    switch (mode) {
    case GvspReceiveMode::Single:
        return "single";
    case GvspReceiveMode::Batch:
        return "batch";
    case GvspReceiveMode::Ring:
        return "ring";
    default:
        return "auto";
    }
}

bool ParseReceiveMode(const std::string& word, GvspReceiveMode& mode) {
    const std::string lower = Lower(word);
    for (const GvspReceiveMode m : {GvspReceiveMode::Auto, GvspReceiveMode::Single,
                                    GvspReceiveMode::Batch, GvspReceiveMode::Ring}) {
        if (lower == ReceiveModeName(m)) {
            mode = m;
            return true;
        }
    }
    return false;
}

GvspReceiveMode ReceiveModeFromSettings(std::istream& in) {
    GvspReceiveMode mode = GvspReceiveMode::Auto;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        std::string key;
        std::string value;
        if (!(words >> key) || Lower(key) != Lower(kSettingsKey)) {
            continue;
        }
        words >> value;
        if (!ParseReceiveMode(value, mode)) {
            HLogger::Error(loc::al("GenTL::HALGvspUDP {0}: unknown receive mode \"{1}\"",
                                   kSettingsKey, value.c_str())
                               .c_str());
        }
    }
    return mode;
}

GvspReceiveMode RequestedReceiveMode(std::string& origin) {
    GvspReceiveMode mode = GvspReceiveMode::Auto;
    if (const char* word = std::getenv(kEnvironment)) {
        if (ParseReceiveMode(word, mode)) {
            origin = kEnvironment;
            return mode;
        }
        HLogger::Error(
            loc::al("GenTL::HALGvspUDP {0}: unknown receive mode \"{1}\"", kEnvironment, word)
                .c_str());
    }
    static const GvspReceiveMode sk_fromFile = [] {
        std::ifstream in(kSettingsFile);
        return in ? ReceiveModeFromSettings(in) : GvspReceiveMode::Auto;
    }();
    origin = sk_fromFile == GvspReceiveMode::Auto ? "automatic" : kSettingsFile;
    return sk_fromFile;
}

} // namespace GenTL
