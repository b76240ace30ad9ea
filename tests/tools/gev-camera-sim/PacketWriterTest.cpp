// What the wire tests of tests/netns do not look at: an event's data
// clipped to one GVCP datagram, and the ramp pattern. The packet layouts
// are read there by the test client and by Aravis, and the block stamp by
// kesta-gentl's byte check of every grabbed image.
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

TEST(TestPattern, RampFollowsTheColumn) {
    const TestPattern t(TestPattern::GreyHorizontalRamp, 4, 2);
    std::vector<uint8_t> a(16);
    t.fill(1, 0, a.data(), a.size());
    EXPECT_EQ(a, (std::vector<uint8_t>{0, 0, 1, 1, 2, 2, 3, 3, 0, 0, 1, 1, 2, 2, 3, 3}));
}

} // namespace
} // namespace gevsim
