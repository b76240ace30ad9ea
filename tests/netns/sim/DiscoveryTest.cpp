// Discovery and ForceIP.
#include "SimFixture.h"

#include "../hal/NetnsSupport.h"

#include <algorithm>

namespace gevtest {
namespace {

using Discovery = SimTest;

TEST_F(Discovery, BroadcastFindsEveryCameraWithItsFacts) {
    const auto answers = discover(bed.hostIp, 0xFFFFFFFF, 400);
    ASSERT_EQ(answers.size(), bed.cameraIps.size());
    for (size_t i = 0; i < bed.cameraIps.size(); ++i) {
        auto it = std::find_if(answers.begin(), answers.end(), [&](const DiscoveryAnswer& a) {
            return a.ip() == bed.cameraIps[i];
        });
        ASSERT_NE(it, answers.end()) << bed.serials[i];
        EXPECT_EQ(it->fromIp, bed.cameraIps[i]);
        EXPECT_EQ(it->serial(), bed.serials[i]);
        EXPECT_EQ(it->mac(), kesta_netns::ParseMac(bed.cameraMacs[i]));
        EXPECT_EQ(be32(&it->payload[0x00]), 0x00020000u); // version 2.0
        EXPECT_EQ(be32(&it->payload[0x34]), 0xFFFFFF00u);
        EXPECT_EQ(be32(&it->payload[0x14]) & 0x5u, 0x5u); // persistent IP and LLA
        EXPECT_STREQ(reinterpret_cast<const char*>(&it->payload[0x48]), "Kesta Sim Works");
        EXPECT_STREQ(reinterpret_cast<const char*>(&it->payload[0x68]), "GEV-SIM-1");
    }
}

TEST_F(Discovery, ForceIpMovesOnlyTheCameraWithThatMac) {
    const uint32_t newIp = (bed.hostIp & 0xFFFFFF00) | 77;
    auto forceIp = [&](uint64_t mac) {
        GvcpClient broadcaster(0xFFFFFFFF, bed.hostIp);
        std::vector<uint8_t> p(56, 0);
        putBe16(p, 2, static_cast<uint16_t>(mac >> 32));
        putBe32(p, 4, static_cast<uint32_t>(mac));
        putBe32(p, 20, newIp);
        putBe32(p, 36, 0xFFFFFF00);
        putBe32(p, 52, 0);
        broadcaster.sendCommand(0x0004, p, 0x11, broadcaster.nextId(), 0);
        return broadcaster.receiveAck(500);
    };
    const uint64_t mac = kesta_netns::ParseMac(bed.cameraMacs[0]);
    EXPECT_FALSE(forceIp(mac ^ 0x100000).received); // no such MAC: silence

    const Ack ack = forceIp(mac);
    ASSERT_TRUE(ack.received);
    EXPECT_EQ(ack.code, 0x0005);
    EXPECT_EQ(ack.status, 0);

    GvcpClient moved(newIp, bed.hostIp);
    uint32_t ip = 0;
    ASSERT_EQ(moved.readReg(addr::kCurrentIp, ip), 0);
    EXPECT_EQ(ip, newIp);
    const auto answers = discover(bed.hostIp, newIp, 300);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].ip(), newIp);
    EXPECT_EQ(answers[0].serial(), bed.serials[0]);
}

} // namespace
} // namespace gevtest
