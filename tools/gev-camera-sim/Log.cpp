#include "Log.h"

#include <arpa/inet.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>

namespace gevsim {

namespace {
std::atomic<int> g_level{0};
std::mutex g_mutex;
} // namespace

void Log::setVerbosity(int level) {
    g_level = level;
}

bool Log::enabled(int level) {
    return level <= g_level;
}

void Log::write(int level, const std::string& who, const std::string& text) {
    if (!enabled(level))
        return;
    using namespace std::chrono;
    const double t = duration<double>(system_clock::now().time_since_epoch()).count();
    std::lock_guard<std::mutex> lock(g_mutex);
    std::fprintf(stderr, "%.3f gev-camera-sim[%s] %s\n", t, who.c_str(), text.c_str());
}

std::string ipToString(uint32_t hostOrderIp) {
    in_addr a{};
    a.s_addr = htonl(hostOrderIp);
    char buf[INET_ADDRSTRLEN] = {0};
    inet_ntop(AF_INET, &a, buf, sizeof buf);
    return buf;
}

} // namespace gevsim
