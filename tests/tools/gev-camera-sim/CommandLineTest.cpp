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

TEST(CommandLine, FaultKnobsAndCapabilities) {
    SimConfig c;
    ASSERT_TRUE(parse({"--ip", "10.0.0.2", "--loss", "0.25", "--burst-loss", "3:4:2", "--ack-delay",
                       "300:5", "--ack-status", "0x8006", "--disable", "manifest,pending-ack",
                       "--pixel-format", "RGB8", "--gev-version", "1.2", "-vv"},
                      c));
    EXPECT_DOUBLE_EQ(c.faults.lossRate, 0.25);
    EXPECT_EQ(c.faults.burstFirst, 3u);
    EXPECT_EQ(c.faults.burstCount, 4u);
    EXPECT_EQ(c.faults.burstEvery, 2u);
    EXPECT_EQ(c.faults.ackDelayMs, 300u);
    EXPECT_EQ(c.faults.ackDelayWhen.every, 5u);
    EXPECT_EQ(c.faults.ackStatus, 0x8006);
    EXPECT_EQ(c.faults.ackStatusWhen.every, 1u);
    EXPECT_TRUE(c.isDisabled("manifest"));
    EXPECT_FALSE(c.isDisabled("resend"));
    EXPECT_EQ(c.pixelFormat, 0x02180014u);
    EXPECT_EQ(c.gevMajor, 1);
    EXPECT_EQ(c.gevMinor, 2);
    EXPECT_EQ(c.verbosity, 2);

    SimConfig h;
    ASSERT_TRUE(parse({"--ip", "10.0.0.2", "--pending-acks", "0:1@0x64C", "--stale-acks", "0:50",
                       "--forge-acks", "10.0.0.9:4000@0", "--short-acks", "8", "--lose-acks",
                       "0x64C", "--lie", "0x958:0"},
                      h));
    const std::vector<AckRule>& r = h.faults.ackRules;
    ASSERT_EQ(r.size(), 5u);
    EXPECT_TRUE(r[0].kind == AckRule::Kind::Pending && r[0].count == 1 && !r[0].hits(0));
    EXPECT_TRUE(r[0].hits(0x64C) && r[1].hits(0) && r[1].gapMs == 50);
    EXPECT_TRUE(r[2].fromIp == 0x0A000009u && r[2].fromPort == 4000 && r[3].bytes == 8);
    EXPECT_EQ(h.faults.lies.size(), 1u);

    SimConfig lies;
    ASSERT_TRUE(
        parse({"--ip", "10.0.0.2", "--forge-packet", "5:0x40000005:3", "--forge-packet", "8:8:15",
               "--late-packet", "10:2", "--claim-geometry", "7:0xFFFF0001:0x01080001"},
              lies));
    ASSERT_EQ(lies.faults.forgeries.size(), 2u);
    EXPECT_EQ(lies.faults.forgeries[0].id, 0x40000005u);
    EXPECT_EQ(lies.faults.forgeries[1].format, 15);
    EXPECT_EQ(lies.faults.lateBy, 2u);
    EXPECT_EQ(lies.faults.claimedHeight, 0xFFFF0001u);
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
