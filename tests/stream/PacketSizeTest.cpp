// Packet size negotiation through Start, against a camera whose test packet
// arrives when it fits the link's MTU.
#include <gtest/gtest.h>

#include <vector>

#include "FakeGvcpForStream.h"

namespace kesta::test {
namespace {

constexpr unsigned kScps = 0x0D04;
constexpr unsigned kScp = 0x0D00;
constexpr unsigned kTest = 0xC0000000; // fire a test packet, do not fragment
constexpr unsigned kDoNotFragment = 0x40000000;

using PacketSize = StreamBed;

TEST_F(PacketSize, AutomaticSearchWalksDownToTheFirstSizeThatArrives) {
    hal.regs[kScps] = 576; // a smaller size set by hand is replaced
    link.mtu = 1500;
    GenTL::StreamStartParams params = Unicast(true);
    ASSERT_EQ(GC_ERR_SUCCESS, layer.Start(&hal, Device(), params));
    EXPECT_EQ(1500u, params.packetSize);
    EXPECT_EQ((std::vector<unsigned>{9000 | kTest, 7500 | kTest, 6000 | kTest, 4500 | kTest,
                                     3000 | kTest, 1500 | kTest, 1500 | kDoNotFragment}),
              hal.WritesTo(kScps));
    EXPECT_EQ((std::vector<int>{100, 100, 100, 100, 100, 100}), socket->timeouts);
    EXPECT_EQ((std::vector<int>{9000, 7500, 6000, 4500, 3000, 1500}), socket->lengths)
        << "each receive has room for exactly the size tested";
}

TEST_F(PacketSize, AutomaticSearchTakesTheTopSizeOrTheLastOne) {
    link.mtu = 9000;
    GenTL::StreamStartParams params = Unicast(true);
    ASSERT_EQ(GC_ERR_SUCCESS, layer.Start(&hal, Device(), params));
    EXPECT_EQ(9000u, params.packetSize);
    EXPECT_EQ((std::vector<unsigned>{9000 | kTest, 9000 | kDoNotFragment}), hal.WritesTo(kScps));
    layer.Stop(&hal, Device(), params.packetSize, params.accessMode);

    link.mtu = 1000;
    hal.log.clear();
    ASSERT_EQ(GC_ERR_SUCCESS, layer.Start(&hal, Device(), params));
    EXPECT_EQ(576u, params.packetSize);
    EXPECT_EQ(576u | kDoNotFragment, hal.WritesTo(kScps).back());
}

TEST_F(PacketSize, NoSizeArrivingFailsAndStopsTheChannel) {
    link.mtu = 500;
    hal.regs[kScps] = 1500;
    GenTL::StreamStartParams params = Unicast(true);
    EXPECT_EQ(GC_ERR_ERROR, layer.Start(&hal, Device(), params));
    EXPECT_EQ(7u, hal.WritesTo(kScps).size());
    EXPECT_EQ(576u | kTest, hal.WritesTo(kScps).back()) << "SCPS keeps the last size tried";
    EXPECT_EQ(1500u, params.packetSize) << "only a found size changes it";
    EXPECT_EQ(0u, hal.WritesTo(kScp).back()) << "Stop cleared SCP";
    EXPECT_FALSE(link.socketOpen);

    EXPECT_EQ(GC_ERR_ERROR, CachedError().Code());
    EXPECT_EQ(2u, CachedError().NumErrors());
    const std::string stack = StackText();
    EXPECT_NE(std::string::npos,
              stack.find("GenTL::HALGvspUDP::Start TestPacketSize Failed with err: -1001"))
        << stack;
    EXPECT_NE(std::string::npos, stack.find("failed to find a working packet size")) << stack;
}

TEST_F(PacketSize, AFailingTestWriteEndsTheSearchAtOnce) {
    hal.writeFailures[kScps] = GC_ERR_TIMEOUT;
    GenTL::StreamStartParams params = Unicast(true);
    EXPECT_EQ(GC_ERR_TIMEOUT, layer.Start(&hal, Device(), params));
    EXPECT_EQ(1u, hal.WritesTo(kScps).size());
    EXPECT_TRUE(socket->timeouts.empty());
    EXPECT_NE(std::string::npos,
              StackText().find("auto packet size test sent a test packet to device but it "
                               "failed. Sent packet size was 9000"));
}

TEST_F(PacketSize, AFailingFinalWriteNamesTheValueWithItsNoFragmentBit) {
    // The test write goes through, the final one fails.
    struct FailSecond : FakeGvcpForStream {
        using FakeGvcpForStream::FakeGvcpForStream;
        int WriteReg(void* d, unsigned address, unsigned value) const override {
            if (address == kScps && (value & 0x80000000u) == 0) {
                return GC_ERR_IO;
            }
            return FakeGvcpForStream::WriteReg(d, address, value);
        }
    } failing(link);
    failing.regs = hal.regs;
    GenTL::StreamStartParams params = Unicast(true);
    EXPECT_EQ(GC_ERR_IO, layer.Start(&failing, Device(), params));
    EXPECT_EQ(1500u, params.packetSize) << "the found size was stored before the write";
    EXPECT_NE(std::string::npos,
              StackText().find("failed to set the datastream register to the max packetsize of " +
                               std::to_string(1500u | kDoNotFragment)));
}

TEST_F(PacketSize, FixedModeTestsTheCamerasOwnSizeAndWritesNothingMore) {
    hal.regs[kScps] = 0x80000000u | 1400; // bits above the size are dropped
    GenTL::StreamStartParams params = Unicast(false);
    ASSERT_EQ(GC_ERR_SUCCESS, layer.Start(&hal, Device(), params));
    EXPECT_EQ(1400u, params.packetSize);
    EXPECT_EQ(std::vector<unsigned>{1400 | kTest}, hal.WritesTo(kScps));
    EXPECT_EQ(std::vector<int>{1400}, socket->lengths);
}

TEST_F(PacketSize, FixedModeFailsWhenTheTestPacketDoesNotArrive) {
    hal.regs[kScps] = 9000;
    link.mtu = 1500;
    GenTL::StreamStartParams params = Unicast(false);
    EXPECT_EQ(GC_ERR_TIMEOUT, layer.Start(&hal, Device(), params));
    EXPECT_EQ(9000u, params.packetSize);
    EXPECT_EQ(0u, hal.WritesTo(kScp).back());
    EXPECT_FALSE(link.socketOpen);
    const std::string stack = StackText();
    EXPECT_NE(std::string::npos,
              stack.find("test packet failed. Could be because mtu is < than that of the device"))
        << stack;
    EXPECT_NE(std::string::npos,
              stack.find("GenTL::HALGvspUDP::Start TestPacketSize Failed with err: -1011"))
        << stack;

    hal.writeFailures[kScps] = GC_ERR_IO;
    EXPECT_EQ(GC_ERR_IO, layer.Start(&hal, Device(), params));
    EXPECT_NE(std::string::npos, StackText().find("sending a test packet to device failed"));
}

} // namespace
} // namespace kesta::test
