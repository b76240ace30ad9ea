// The time-outs that the GVSP layer works out for the grab loops.
#include <gtest/gtest.h>

#include <limits>

#include "FakeGvcpForStream.h"

namespace kesta::test {
namespace {

using GenTL::HALGvspUDP;
using GenTL::StreamStartParams;

class InterPacketExpiry : public StreamBed {
protected:
    std::uint32_t With(unsigned delayTicks, unsigned frequencyHigh, unsigned frequencyLow) {
        hal.regs[0x0D08] = delayTicks;
        hal.regs[0x093C] = frequencyHigh;
        hal.regs[0x0940] = frequencyLow;
        return HALGvspUDP::CalculateInterPacketExpiry(&hal, Device());
    }
};

TEST_F(InterPacketExpiry, IsThreePacketDelaysWithAFloorOf40) {
    EXPECT_EQ(40u, With(0, 0, 1000000000)) << "no delay";
    EXPECT_EQ(40u, With(1000, 0, 0)) << "no tick frequency";
    EXPECT_EQ(40u, With(1000000, 0, 1000000000)) << "1 ms delay: 3 ms is under the floor";
    EXPECT_EQ(40u, With(13333333, 0, 1000000000)) << "3 x 13 = 39";
    EXPECT_EQ(42u, With(14000000, 0, 1000000000)) << "3 x 14";
    EXPECT_EQ(300u, With(100000000, 0, 1000000000));
}

TEST_F(InterPacketExpiry, TakesTheHighWordOfTheFrequency) {
    // 2^32 Hz and 2^32 - 1 ticks: just under one second, truncated to 999.
    EXPECT_EQ(2997u, With(0xFFFFFFFFu, 1, 0));
    // One tick per second and the largest delay: saturates instead of
    // overflowing.
    EXPECT_EQ(std::numeric_limits<std::uint32_t>::max(), With(0xFFFFFFFFu, 0, 1));
}

TEST_F(InterPacketExpiry, CountsAFailedReadAsZero) {
    hal.regs[0x0D08] = 100000000;
    hal.readFailures[0x0D08] = GC_ERR_TIMEOUT;
    EXPECT_EQ(40u, HALGvspUDP::CalculateInterPacketExpiry(&hal, Device()));

    hal.readFailures.clear();
    hal.log.clear();
    hal.readFailures[0x0940] = GC_ERR_TIMEOUT;
    EXPECT_EQ(40u, HALGvspUDP::CalculateInterPacketExpiry(&hal, Device()))
        << "the low word alone holds 1 GHz";
    EXPECT_EQ(1u, hal.ReadsOf(0x0D08)) << "the other reads still happen";
}

struct BufferCase {
    std::uint32_t interPacketExpiry;
    std::uint64_t retryWindowFrames;
    double frameRate;
    std::uint32_t bufferExpiry;
    std::uint32_t resendRetries;
};

TEST(BufferExpiry, FollowsTheRetryWindowTheFrameRateOrTheInterPacketExpiry) {
    const BufferCase cases[] = {
        {40, 0, 0.0, 80, 2},     // two inter-packet expiries
        {40, 0, 25.0, 80, 2},    // two frames of 40 ms
        {40, 0, 7.0, 284, 7},    // 142.857 ms truncated, then doubled
        {300, 0, 25.0, 80, 1},   // the quotient 0 becomes 1
        {40, 10, 25.0, 400, 10}, // ten frames of 40 ms
        {40, 3, 2.0, 1500, 37},  // window in frames over frames per second
        {100, 1, 1000.0, 1, 1},  // shorter than one inter-packet expiry
        {1000, 0, 0.0, 2000, 2},
    };
    for (const BufferCase& c : cases) {
        StreamStartParams params;
        params.interPacketExpiry = c.interPacketExpiry;
        params.retryWindowFrames = c.retryWindowFrames;
        params.frameRate = c.frameRate;
        HALGvspUDP::CalculateBufferExpiry(params);
        EXPECT_EQ(c.bufferExpiry, params.bufferExpiry)
            << c.interPacketExpiry << " " << c.retryWindowFrames << " " << c.frameRate;
        EXPECT_EQ(c.resendRetries, params.resendRetries)
            << c.interPacketExpiry << " " << c.retryWindowFrames << " " << c.frameRate;
    }
}

TEST(BufferExpiry, SaturatesWhereTheQuotientHasNoMeaning) {
    const std::uint32_t most = std::numeric_limits<std::uint32_t>::max();
    StreamStartParams params;
    params.interPacketExpiry = 40;
    params.retryWindowFrames = 5;
    params.frameRate = 0.0; // a window without a rate: infinitely long
    HALGvspUDP::CalculateBufferExpiry(params);
    EXPECT_EQ(most, params.bufferExpiry);
    EXPECT_EQ(most / 40, params.resendRetries);

    params.frameRate = -25.0;
    HALGvspUDP::CalculateBufferExpiry(params);
    EXPECT_EQ(0u, params.bufferExpiry);
    EXPECT_EQ(1u, params.resendRetries);

    params.retryWindowFrames = 0;
    params.frameRate = 1e-9;
    HALGvspUDP::CalculateBufferExpiry(params);
    EXPECT_EQ(most, params.bufferExpiry);
}

TEST_F(InterPacketExpiry, StartAlwaysRecomputesTheExpiries) {
    hal.regs[0x0D08] = 100000000; // 100 ms at 1 GHz
    StreamStartParams params = Unicast();
    params.interPacketExpiry = 7;
    params.bufferExpiry = 7;
    params.frameRate = 25.0;
    link.mtu = 9000;
    ASSERT_EQ(GC_ERR_SUCCESS, layer.Start(&hal, Device(), params));
    EXPECT_EQ(300u, params.interPacketExpiry);
    EXPECT_EQ(80u, params.bufferExpiry);
    EXPECT_EQ(1u, params.resendRetries);
}

} // namespace
} // namespace kesta::test
