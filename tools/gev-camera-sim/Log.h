// A line logger to stderr, with a verbosity set once at start-up.
#pragma once

#include <cstdint>
#include <string>

namespace gevsim {

class Log {
public:
    static void setVerbosity(int level);
    static bool enabled(int level);
    // Level 0 always prints; 1 is what the camera does, 2 every packet.
    static void write(int level, const std::string& who, const std::string& text);
};

std::string ipToString(uint32_t hostOrderIp);

} // namespace gevsim
