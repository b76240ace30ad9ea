#include "FaultInjector.h"

#include <gtest/gtest.h>

namespace gevsim {
namespace {

using Kind = FaultInjector::PacketKind;

TEST(FaultInjector, CountedFaultsHitExactlyTheirPackets) {
    FaultConfig c;
    c.dropLeader.every = 3;
    c.dropTrailer.every = 2;
    c.burstFirst = 4;
    c.burstCount = 2;
    c.burstEvery = 2;
    FaultInjector f(c);
    EXPECT_FALSE(f.packetFate(2, Kind::Leader, 0).drop);
    EXPECT_TRUE(f.packetFate(3, Kind::Leader, 0).drop);
    EXPECT_TRUE(f.packetFate(2, Kind::Trailer, 9).drop);
    EXPECT_FALSE(f.packetFate(3, Kind::Trailer, 9).drop);
    for (uint32_t id = 1; id < 10; ++id) {
        EXPECT_EQ(f.packetFate(4, Kind::Payload, id).drop, id == 4 || id == 5) << id;
        EXPECT_FALSE(f.packetFate(3, Kind::Payload, id).drop) << id;
    }
}

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

TEST(FaultInjector, EventFaults) {
    FaultConfig c;
    c.eventOversize.every = 3;
    c.eventLossRate = 1.0;
    c.eventDuplicateRate = 1.0;
    FaultInjector f(c);
    EXPECT_TRUE(f.eventFate(3).oversize && f.eventFate(3).drop);
    EXPECT_FALSE(f.eventFate(4).oversize || f.eventFate(4).duplicate); // lost, not doubled
}

TEST(FaultInjector, AckFaultsFollowTheirCount) {
    FaultConfig c;
    c.ackDelayMs = 50;
    c.ackDelayWhen.every = 2;
    c.wrongAckId.every = 3;
    c.ackStatus = 0x8006;
    c.ackStatusWhen.every = 4;
    c.silentAfterSec = 2;
    FaultInjector f(c);
    EXPECT_EQ(f.ackDelayMs(1), 0u);
    EXPECT_EQ(f.ackDelayMs(2), 50u);
    EXPECT_TRUE(f.wrongAckId(6));
    EXPECT_FALSE(f.wrongAckId(7));
    EXPECT_EQ(f.ackStatus(8), 0x8006);
    EXPECT_EQ(f.ackStatus(9), 0);
    EXPECT_FALSE(f.silent(1.9));
    EXPECT_TRUE(f.silent(2.0));
    EXPECT_FALSE(FaultInjector(FaultConfig{}).silent(1e9));
}

} // namespace
} // namespace gevsim
