// Random loss repeats with its seed; the counted faults are checked on the
// wire in tests/netns (sim_fault_*).
#include "FaultInjector.h"

#include <gtest/gtest.h>

namespace gevsim {
namespace {

using Kind = FaultInjector::PacketKind;

TEST(FaultInjector, RatesAreNearTheirShareAndRepeatWithTheSeed) {
    FaultConfig c;
    c.lossRate = 0.1;
    c.seed = 42;
    FaultInjector a(c), b(c);
    int lost = 0;
    for (uint32_t i = 0; i < 10000; ++i) {
        const bool drop = a.packetFate(1, Kind::Payload, i).drop;
        EXPECT_EQ(drop, b.packetFate(1, Kind::Payload, i).drop);
        lost += drop ? 1 : 0;
    }
    EXPECT_NEAR(lost, 1000, 150);
}

} // namespace
} // namespace gevsim
