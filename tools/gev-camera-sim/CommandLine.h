// Parses the simulator's command line into a SimConfig.
#pragma once

#include "SimConfig.h"

#include <string>

namespace gevsim {

class CommandLine {
public:
    // Returns false with a message in error() for bad input; helpRequested()
    // tells a --help apart from an error.
    bool parse(int argc, char** argv, SimConfig& config);
    const std::string& error() const { return m_error; }
    bool helpRequested() const { return m_help; }
    static std::string usage();

    // Helpers, public for the unit tests.
    static bool parseIp(const std::string& text, uint32_t& ip);
    static bool parseMac(const std::string& text, uint64_t& mac);
    static bool parsePixelFormat(const std::string& text, uint32_t& pf);

private:
    bool fail(const std::string& message);
    std::string m_error;
    bool m_help = false;
};

} // namespace gevsim
