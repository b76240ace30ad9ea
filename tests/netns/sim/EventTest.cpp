// The message channel: event packets at the configured rate.
#include "SimFixture.h"

#include <chrono>

namespace gevtest {
namespace {

using Events = SimTest;

TEST_F(Events, ArriveAtTheConfiguredRate) {
    Socket receiver(bed.hostIp);
    ASSERT_EQ(client->claim(), 0);
    ASSERT_EQ(client->writeReg(addr::kMcda, bed.hostIp), 0);
    ASSERT_EQ(client->writeReg(addr::kMcp, receiver.port()), 0);
    ASSERT_EQ(client->writeReg(addr::kEventRate, floatBits(50.0f)), 0);
    const uint16_t sourcePort = static_cast<uint16_t>(client->reg(addr::kMcsp));
    const auto start = std::chrono::steady_clock::now();
    size_t events = 0, withData = 0;
    uint16_t lastId = 0;
    std::vector<uint8_t> d;
    uint32_t fromIp = 0;
    uint16_t fromPort = 0;
    while (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(500) &&
           receiver.receive(d, 300, &fromIp, &fromPort)) {
        ASSERT_GE(d.size(), 24u);
        EXPECT_EQ(d[0], 0x42);
        const uint16_t command = be16(&d[2]);
        ASSERT_TRUE(command == 0x00C0 || command == 0x00C2) << command;
        EXPECT_EQ(be16(&d[4]), d.size() - 8);
        EXPECT_NE(be16(&d[6]), lastId);
        lastId = be16(&d[6]);
        EXPECT_EQ(be16(&d[10]), 0x9001); // the test event
        EXPECT_NE(be64(&d[16]), 0u);     // timestamp
        EXPECT_EQ(fromIp, bed.cameraIps[0]);
        EXPECT_EQ(fromPort, sourcePort);
        withData += command == 0x00C2 ? 1 : 0;
        ++events;
    }
    EXPECT_GE(events, 15u);
    EXPECT_LE(events, 40u);
    EXPECT_GE(withData, 5u);
    ASSERT_EQ(client->writeReg(addr::kEventRate, 0), 0);
    while (receiver.receive(d, 100)) {
    }
    EXPECT_FALSE(receiver.receive(d, 200));
}

} // namespace
} // namespace gevtest
