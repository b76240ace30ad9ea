// The GVSP layer over UDP against a fake camera: what the wire tests of
// tests/netns/stream cannot make a camera do (cameras of every version and
// capability, a search for the packet size that walks all its steps), the
// leader wait, and the expiries. Starts and stops run there against the
// simulated camera.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <memory>
#include <thread>
#include <vector>

#include "StreamTestSupport.h"

namespace StreamTest {
namespace {

constexpr unsigned kVersion = 0x0000;
constexpr unsigned kGvspCaps = 0x092C;
constexpr unsigned kGvspConfig = 0x0960;
constexpr unsigned kScps = 0x0D04;

using Clock = std::chrono::steady_clock;
using kesta::test::FakeHALGev;

// --- Extended ids --------------------------------------------------------------------

TEST(ExtendedId, DecisionByVersionCapabilityAndRequest) {
    struct Case {
        unsigned version;
        bool capable;
        bool legacyRequested;
        bool cameraKeepsBit; // the configuration bit sticks when written
        bool extendedId;
        bool configTouched;
    };
    const Case cases[] = {
        {0x00010002, false, false, true, false, false}, // 1.2: legacy
        {0x00010002, true, false, true, true, true},    // capable 1.x still gets the bit
        {0x00020000, false, false, true, true, false},  // 2.0 without capability: says true
        {0x00020000, true, true, true, true, true},     // legacy asked, the read-back wins
        {0x00020000, true, false, false, false, true},  // the camera refuses the bit
    };
    for (const Case& c : cases) {
        FakeHALGev hal;
        hal.SetReg(kVersion, c.version);
        hal.SetReg(kGvspCaps, 0x80000000u | (c.capable ? 0x40000000u : 0));
        if (!c.cameraKeepsBit) {
            hal.Pin(kGvspConfig);
        }
        GenTL::HALGvspUDP layer;
        bool extendedId = !c.extendedId;
        ASSERT_EQ(GC_ERR_SUCCESS,
                  layer.ConfigureExtendedId(&hal, nullptr, c.legacyRequested, extendedId));
        const std::string what = std::to_string(c.version) + (c.capable ? " capable" : "") +
                                 (c.legacyRequested ? " legacy" : "");
        EXPECT_EQ(c.extendedId, extendedId) << what;
        EXPECT_EQ(c.configTouched, hal.ReadsOf(kGvspConfig) > 0) << what;
        if (c.configTouched) {
            EXPECT_EQ(std::vector<unsigned>{0x40000000u}, hal.Values(kGvspConfig)) << what;
        }
    }
}

// --- Leader wait ---------------------------------------------------------------------

TEST(LeaderWait, OneArrivalOneWaitAndTimeoutsAboveThirtyTwoBitsAreRefused) {
    GenTL::HALGvspUDP layer;
    EXPECT_EQ(GC_ERR_TIMEOUT, layer.WaitForNextLeader(0));
    layer.SetNextLeaderArrived();
    EXPECT_EQ(GC_ERR_SUCCESS, layer.WaitForNextLeader(0));
    EXPECT_EQ(GC_ERR_TIMEOUT, layer.WaitForNextLeader(0));
    layer.SetNextLeaderArrived();
    EXPECT_EQ(GC_ERR_SUCCESS, layer.ResetWaitForNextLeader());
    EXPECT_EQ(GC_ERR_TIMEOUT, layer.WaitForNextLeader(0));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, layer.WaitForNextLeader(0x100000000ul));
    layer.SetNextLeaderArrived();
    EXPECT_EQ(GC_ERR_SUCCESS, layer.WaitForNextLeader(GENTL_INFINITE));
}

TEST(LeaderWait, DestructionFreesEveryWaiter) {
    auto* layer = new GenTL::HALGvspUDP();
    std::atomic<int> freed{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i) {
        waiters.emplace_back([layer, &freed, i] {
            const unsigned long timeout = i == 0 ? GENTL_INFINITE : 60000ul;
            if (layer->WaitForNextLeader(timeout) == GC_ERR_SUCCESS) {
                ++freed;
            }
        });
    }
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (layer->LeaderWaiters() < 3 && Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ASSERT_EQ(3, layer->LeaderWaiters());
    delete layer;
    for (std::thread& t : waiters) {
        t.join();
    }
    EXPECT_EQ(3, freed.load());
}

// --- Expiries ------------------------------------------------------------------------

class Expiry : public StreamBed {
protected:
    std::uint32_t InterPacket(unsigned delayTicks, unsigned frequencyHigh, unsigned frequencyLow) {
        hal.SetReg(0x0D08, delayTicks);
        hal.SetReg(0x093C, frequencyHigh);
        hal.SetReg(0x0940, frequencyLow);
        return GenTL::HALGvspUDP::CalculateInterPacketExpiry(&hal, Device());
    }
};

TEST_F(Expiry, InterPacketIsThreePacketDelaysWithAFloorOf40) {
    EXPECT_EQ(40u, InterPacket(0, 0, 1000000000)) << "no delay";
    EXPECT_EQ(40u, InterPacket(1000, 0, 0)) << "no tick frequency";
    EXPECT_EQ(40u, InterPacket(13333333, 0, 1000000000)) << "3 x 13 = 39";
    EXPECT_EQ(42u, InterPacket(14000000, 0, 1000000000));
    // 2^32 Hz from the high word; one tick per second saturates.
    EXPECT_EQ(2997u, InterPacket(0xFFFFFFFFu, 1, 0));
    EXPECT_EQ(std::numeric_limits<std::uint32_t>::max(), InterPacket(0xFFFFFFFFu, 0, 1));

    // A failed read counts as zero; the other reads still happen.
    InterPacket(100000000, 0, 1000000000);
    hal.ClearCalls();
    hal.Fail(0x0940);
    EXPECT_EQ(40u, GenTL::HALGvspUDP::CalculateInterPacketExpiry(&hal, Device()));
    EXPECT_EQ(1u, hal.ReadsOf(0x0D08));
}

TEST(BufferExpiry, FollowsTheRetryWindowTheFrameRateOrTheInterPacketExpiry) {
    const std::uint32_t most = std::numeric_limits<std::uint32_t>::max();
    struct Case {
        std::uint32_t interPacketExpiry;
        std::uint64_t retryWindowFrames;
        double frameRate;
        std::uint32_t bufferExpiry, resendRetries;
    };
    const Case cases[] = {
        {40, 0, 0.0, 80, 2},            // two inter-packet expiries
        {40, 0, 7.0, 284, 7},           // 142.857 ms truncated, then doubled
        {300, 0, 25.0, 80, 1},          // the quotient 0 becomes 1
        {40, 3, 2.0, 1500, 37},         // window in frames over frames per second
        {40, 5, 0.0, most, most / 40},  // a window without a rate: endless
        {40, 5, -25.0, 0, 1},           // a negative rate
        {40, 0, 1e-9, most, most / 40}, // a rate next to nothing
    };
    for (const Case& c : cases) {
        GenTL::StreamStartParams params;
        params.interPacketExpiry = c.interPacketExpiry;
        params.retryWindowFrames = c.retryWindowFrames;
        params.frameRate = c.frameRate;
        GenTL::HALGvspUDP::CalculateBufferExpiry(params);
        EXPECT_EQ(c.bufferExpiry, params.bufferExpiry) << c.retryWindowFrames << " " << c.frameRate;
        EXPECT_EQ(c.resendRetries, params.resendRetries)
            << c.retryWindowFrames << " " << c.frameRate;
    }
}

// --- Packet size ---------------------------------------------------------------------

constexpr unsigned kTest = 0xC0000000; // fire a test packet, do not fragment
constexpr unsigned kDoNotFragment = 0x40000000;

using PacketSize = StreamBed;

TEST_F(PacketSize, AutomaticSearchWalksDownToTheFirstSizeThatArrives) {
    hal.SetReg(kScps, 576); // a smaller size set by hand is replaced
    GenTL::StreamStartParams params = Unicast(true);
    ASSERT_EQ(GC_ERR_SUCCESS, layer.Start(&hal, Device(), params));
    EXPECT_EQ(1500u, params.packetSize);
    EXPECT_EQ((std::vector<unsigned>{9000 | kTest, 7500 | kTest, 6000 | kTest, 4500 | kTest,
                                     3000 | kTest, 1500 | kTest, 1500 | kDoNotFragment}),
              hal.Values(kScps));
    EXPECT_EQ((std::vector<int>{100, 100, 100, 100, 100, 100}), socket->timeouts);
    EXPECT_EQ((std::vector<int>{9000, 7500, 6000, 4500, 3000, 1500}), socket->lengths)
        << "each receive has room for exactly the size tested";
    layer.Stop(&hal, Device(), params.packetSize, params.accessMode);

    // Below the smallest step the last size is taken untested.
    link.mtu = 1000;
    ASSERT_EQ(GC_ERR_SUCCESS, layer.Start(&hal, Device(), params));
    EXPECT_EQ(576u, params.packetSize);
    EXPECT_EQ(576u | kDoNotFragment, hal.Values(kScps).back());
}

TEST_F(PacketSize, ASizeThatLeavesNoRoomForDataStopsTheStart) {
    // The camera's size read as 0 (an ack without its value), or as no more
    // than the headers, for a controller and for a listener.
    for (const bool listener : {false, true}) {
        SCOPED_TRACE(listener);
        hal.SetReg(kScps, listener ? 36 : 0);
        GenTL::StreamStartParams params = Unicast(false);
        params.multicastEnable = listener;
        params.accessMode = listener ? DEVICE_ACCESS_READONLY : params.accessMode;
        EXPECT_EQ(GC_ERR_INVALID_VALUE, layer.Start(&hal, Device(), params));
        EXPECT_FALSE(link.socketOpen);
    }
}

} // namespace
} // namespace StreamTest
