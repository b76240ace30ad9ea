// The simulator's command line: a mistake is refused with its reason (the
// identity options of several cameras are used by every test in tests/netns).
#include "CommandLine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace gevsim {
namespace {

bool parse(std::vector<std::string> args, SimConfig& config, std::string* error = nullptr) {
    args.insert(args.begin(), "gev-camera-sim");
    std::vector<char*> argv;
    for (auto& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    CommandLine c;
    const bool ok = c.parse(static_cast<int>(args.size()), argv.data(), config);
    if (error)
        *error = c.error();
    return ok;
}

TEST(CommandLine, BadInputIsRefusedWithAReason) {
    SimConfig c;
    std::string error;
    EXPECT_FALSE(parse({}, c, &error));
    EXPECT_NE(error.find("--ip"), std::string::npos);
    for (const std::vector<std::string>& bad :
         {std::vector<std::string>{"--ip", "10.0.0.300"},
          {"--mac", "02:00:00:00:00:01"},
          {"--ip", "10.0.0.2", "--loss", "1.5"},
          {"--ip", "10.0.0.2", "--disable", "warp-drive"},
          {"--ip", "10.0.0.2", "--burst-loss", "3"},
          {"--ip", "10.0.0.2", "--forge-packet", "5:5:16"},
          {"--ip", "10.0.0.2", "--late-packet", "10:0"},
          {"--ip", "10.0.0.2", "--packet-size", "100"},
          {"--ip", "10.0.0.2", "--serial", "0123456789abcdef"},
          {"--ip", "10.0.0.2", "--pending-acks", "100"},
          {"--ip", "10.0.0.2", "--forge-acks", "nowhere@0"},
          {"--ip", "10.0.0.2", "--lie", "0x958"},
          {"--ip", "10.0.0.2", "stray"}}) {
        SimConfig fresh;
        EXPECT_FALSE(parse(bad, fresh, &error)) << bad.back();
        EXPECT_FALSE(error.empty());
    }
}

} // namespace
} // namespace gevsim
