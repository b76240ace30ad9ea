#include "LayerLogger.h"

#include <cmath>
#include <fstream>

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>

namespace GenTL {
namespace detail {

namespace {

const char* const kLogConfigFile = "kesta_log.conf";

boost::mutex g_libraryMutex;
LogLibrary g_library{&KestaLog::Init, &KestaLog::Deinit};

} // namespace

LogLibrary SetLogLibrary(LogLibrary lib) {
    boost::lock_guard<boost::mutex> lock(g_libraryMutex);
    const LogLibrary former = g_library;
    g_library = lib;
    return former;
}

LogLibrary CurrentLogLibrary() {
    boost::lock_guard<boost::mutex> lock(g_libraryMutex);
    return g_library;
}

nlohmann::json ReadLogConfig() {
    std::ifstream in(kLogConfigFile);
    if (!in.is_open()) {
        return nlohmann::json();
    }
    std::string text;
    std::string line;
    while (std::getline(in, line)) {
        text += line;
    }
    return nlohmann::json::parse(text);
}

int32_t ReadLevel(const nlohmann::json& value) {
    if (value.is_number_integer()) {
        return value.get<int32_t>();
    }
    if (value.is_number_float()) {
        const double d = value.get<double>();
        // Truncation of a value outside the 32-bit range would be undefined.
        if (!(d > -2147483649.0 && d < 2147483648.0)) {
            throw std::logic_error("log level out of range");
        }
        return static_cast<int32_t>(d);
    }
    throw std::logic_error("log level is not a number");
}

uint16_t ReadPort(const nlohmann::json& value) {
    if (value.is_number_integer()) {
        return static_cast<uint16_t>(value.get<uint64_t>());
    }
    if (value.is_number_float()) {
        const double d = value.get<double>();
        if (!(d >= 0.0 && d < 65536.0)) {
            throw std::logic_error("log port out of range");
        }
        return static_cast<uint16_t>(d);
    }
    throw std::logic_error("log port is not a number");
}

std::string TimestampNow() {
    using namespace std::chrono;
    return std::to_string(
        duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

const char* CheckedText(const char* text) {
    if (text == nullptr) {
        throw std::logic_error("basic_string: construction from null is not valid");
    }
    return text;
}

} // namespace detail
} // namespace GenTL
