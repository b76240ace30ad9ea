// The control channel: heartbeat expiry and action commands.
#include "SimFixture.h"

#include <chrono>
#include <thread>

namespace gevtest {
namespace {

class Control : public SimTest {
protected:
    std::unique_ptr<GvcpClient> rival() {
        if (!bed.host2Namespace.empty())
            return std::make_unique<GvcpClient>(bed.cameraIps[0], bed.host2Ip, bed.host2Namespace);
        return std::make_unique<GvcpClient>(bed.cameraIps[0], bed.hostIp);
    }
};

TEST_F(Control, HeartbeatExpiryDropsTheSilentApplication) {
    ASSERT_EQ(client->claim(2), 0);
    ASSERT_EQ(client->writeReg(addr::kHeartbeat, 100), 0);
    EXPECT_EQ(client->reg(addr::kHeartbeat), 500u); // clamped to the minimum
    ASSERT_EQ(client->writeReg(addr::kScp, 40000), 0);
    // Kept alive by traffic for longer than the timeout...
    for (int i = 0; i < 8; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        ASSERT_EQ(client->writeReg(addr::kHeartbeat, 500), 0);
    }
    EXPECT_EQ(client->reg(addr::kCcp), 2u);
    // ...and dropped after a silence, with the stream channel closed.
    std::this_thread::sleep_for(std::chrono::milliseconds(800));
    EXPECT_EQ(client->reg(addr::kCcp), 0u);
    EXPECT_EQ(client->reg(addr::kScp), 0u);
    EXPECT_EQ(client->writeReg(addr::kWidth, 100), 0x8006);
    auto other = rival();
    EXPECT_EQ(other->claim(2), 0);
    EXPECT_EQ(other->release(), 0);
}

TEST_F(Control, HeartbeatCanBeDisabled) {
    ASSERT_EQ(client->claim(2), 0);
    ASSERT_EQ(client->writeReg(addr::kHeartbeat, 500), 0);
    ASSERT_EQ(client->writeReg(addr::kGvcpConfig, 1), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(800));
    EXPECT_EQ(client->reg(addr::kCcp), 2u);
    ASSERT_EQ(client->writeReg(addr::kGvcpConfig, 0), 0);
}

TEST_F(Control, ActionCommandsSelectByKeys) {
    ASSERT_EQ(client->claim(2), 0);
    ASSERT_EQ(client->writeReg(addr::kActionDeviceKey, 0xCAFE), 0);
    ASSERT_EQ(client->writeReg(addr::kGroupKey, 7), 0);
    ASSERT_EQ(client->writeReg(addr::kGroupMask, 0x0F), 0);
    GvcpClient broadcaster(0xFFFFFFFF, bed.hostIp);
    auto action = [&](uint32_t deviceKey, uint32_t groupKey, uint32_t mask, uint64_t time = 0) {
        std::vector<uint8_t> p;
        putBe32(p, 0, deviceKey);
        putBe32(p, 4, groupKey);
        putBe32(p, 8, mask);
        if (time != 0) {
            putBe32(p, 12, static_cast<uint32_t>(time >> 32));
            putBe32(p, 16, static_cast<uint32_t>(time));
        }
        // The length field is left 0, as some hosts send it.
        broadcaster.sendCommand(0x0100, p, time != 0 ? 0x81 : 0x01, broadcaster.nextId(), 0);
        return broadcaster.receiveAck(300);
    };
    const Ack ok = action(0xCAFE, 7, 0x01);
    ASSERT_TRUE(ok.received);
    EXPECT_EQ(ok.code, 0x0101);
    EXPECT_EQ(ok.status, 0);
    EXPECT_FALSE(action(0xBEEF, 7, 0x01).received);
    EXPECT_FALSE(action(0xCAFE, 8, 0x01).received);
    EXPECT_FALSE(action(0xCAFE, 7, 0x10).received);
    EXPECT_EQ(client->reg(addr::kActionCount), 1u);
    // Every command is on record, the refused ones too.
    EXPECT_EQ(client->reg(addr::kActionsReceived), 4u);
    EXPECT_EQ(client->reg(addr::kLastActionGroupMask), 0x10u);

    // Scheduled: held until the camera's clock (1 GHz) reaches the time,
    // here 2 s after the last command arrived; a time past acts at once.
    const uint64_t now = uint64_t{client->reg(addr::kLastActionArrival)} << 32 |
                         client->reg(addr::kLastActionArrival + 4);
    EXPECT_TRUE(action(0xCAFE, 7, 0x01, now + 2000000000).received);
    EXPECT_TRUE(action(0xCAFE, 7, 0x01, 1).received);
    EXPECT_EQ(client->reg(addr::kLastActionLength), 28u);
    EXPECT_EQ(client->reg(addr::kLastActionTime + 4), 1u);
    EXPECT_EQ(client->reg(addr::kActionCount), 2u);
    uint32_t executed = 2;
    for (int i = 0; i < 80 && executed == 2; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        executed = client->reg(addr::kActionCount);
    }
    EXPECT_EQ(executed, 3u);
}

} // namespace
} // namespace gevtest
