// What the wire tests of tests/netns/sim do not look at: an event's data
// clipped to one GVCP datagram, and a stamp that tells blocks apart.
// The packet layouts themselves are read there by the test client and by
// Aravis.
#include "MessageChannel.h"
#include "TestPattern.h"

#include <gtest/gtest.h>

namespace gevsim {
namespace {

TEST(MessageChannel, EventDataIsClippedToTheLargestGvcpDatagram) {
    EventInfo e{0x9001, 0x4242, 0x1122334455667788ull};
    const std::vector<uint8_t> data(600, 0xAB);
    std::vector<uint8_t> p;
    MessageChannel::eventDataPacket(8, e, data.data(), data.size(), p);
    ASSERT_EQ(p.size(), 576u);
    EXPECT_EQ(p[4] << 8 | p[5], 576 - 8);
}

TEST(TestPattern, BlockStampLeadsWithTheBlockIdAndDependsOnOffset) {
    const TestPattern t(TestPattern::BlockStamp, 100, 1);
    std::vector<uint8_t> a(1000), b(1000);
    t.fill(0x0102030405060708ull, 0, a.data(), a.size());
    EXPECT_EQ(a[0], 1);
    EXPECT_EQ(a[7], 8);
    // Any slice equals the same bytes of the whole.
    t.fill(0x0102030405060708ull, 300, b.data(), 100);
    EXPECT_TRUE(std::equal(b.begin(), b.begin() + 100, a.begin() + 300));
    // Another block differs in most bytes.
    t.fill(0x0102030405060709ull, 0, b.data(), b.size());
    size_t same = 0;
    for (size_t i = 8; i < a.size(); ++i)
        same += a[i] == b[i] ? 1 : 0;
    EXPECT_LT(same, 20u);
}

TEST(TestPattern, RampFollowsTheColumn) {
    const TestPattern t(TestPattern::GreyHorizontalRamp, 4, 2);
    std::vector<uint8_t> a(16);
    t.fill(1, 0, a.data(), a.size());
    EXPECT_EQ(a, (std::vector<uint8_t>{0, 0, 1, 1, 2, 2, 3, 3, 0, 0, 1, 1, 2, 2, 3, 3}));
}

} // namespace
} // namespace gevsim
