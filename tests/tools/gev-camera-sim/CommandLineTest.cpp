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

TEST(CommandLine, CamerasTakeTheIdentityOptionsThatFollowThem) {
    SimConfig c;
    ASSERT_TRUE(parse({"--ip", "10.1.2.3", "--mac", "02:00:00:00:00:01", "--serial", "A1", "--ip",
                       "10.1.2.4", "--netmask", "255.255.0.0"},
                      c));
    ASSERT_EQ(c.cameras.size(), 2u);
    EXPECT_EQ(c.cameras[0].ip, 0x0A010203u);
    EXPECT_EQ(c.cameras[0].mac, 0x020000000001ull);
    EXPECT_EQ(c.cameras[0].serial, "A1");
    EXPECT_EQ(c.cameras[1].mac, 0x024B53010204ull); // derived from the address
    EXPECT_EQ(c.cameras[1].serial, "KS0A010204");
    EXPECT_EQ(c.cameras[1].netmask, 0xFFFF0000u);
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
          {"--ip", "10.0.0.2", "--packet-size", "100"},
          {"--ip", "10.0.0.2", "--serial", "0123456789abcdef"},
          {"--ip", "10.0.0.2", "stray"}}) {
        SimConfig fresh;
        EXPECT_FALSE(parse(bad, fresh, &error)) << bad.back();
        EXPECT_FALSE(error.empty());
    }
}

} // namespace
} // namespace gevsim
