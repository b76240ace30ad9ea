// The GVSP layer over UDP against a fake camera: what the wire tests of
// tests/netns/stream cannot make a camera do (refused and failing registers,
// a failing firewall datagram, cameras of every version and capability,
// packet sizes that never arrive), the leader wait, and the expiries.
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
constexpr unsigned kScp = 0x0D00;
constexpr unsigned kScps = 0x0D04;
constexpr unsigned kScda = 0x0D18;

using Clock = std::chrono::steady_clock;
using kesta::test::FakeHALGev;

// --- Start and Stop ------------------------------------------------------------------

using StartPaths = StreamBed;

TEST_F(StartPaths, AFailingTraversalDoesNotEndTheStart) {
    hal.Fail(0x0D1C);
    GenTL::StreamStartParams params = Unicast();
    EXPECT_EQ(GC_ERR_SUCCESS, layer.Start(&hal, Device(), params));
    hal.ClearFailures();
    layer.Stop(&hal, Device(), 0, params.accessMode);

    socket->failSend = GC_ERR_IO;
    EXPECT_EQ(GC_ERR_SUCCESS, layer.Start(&hal, Device(), params));
    EXPECT_EQ(1u, socket->sent.size());
}

TEST_F(StartPaths, FailingRegistersEndTheStartWithTheirCode) {
    GenTL::StreamStartParams params = Unicast();
    hal.Fail(kGvspCaps);
    EXPECT_EQ(GC_ERR_TIMEOUT, layer.Start(&hal, Device(), params));
    EXPECT_EQ(0, socket->unicastOpens);
    hal.ClearFailures();

    hal.Fail(kScps, GC_ERR_ACCESS_DENIED);
    params.packetSize = 1234;
    EXPECT_EQ(GC_ERR_ACCESS_DENIED, layer.Start(&hal, Device(), params));
    EXPECT_EQ(0u, params.packetSize) << "cleared before the read";
    hal.ClearFailures();

    for (const unsigned address : {kScda, kScp}) {
        hal.ClearFailures();
        hal.Fail(address, GC_ERR_ACCESS_DENIED);
        const int closes = socket->closes;
        EXPECT_EQ(GC_ERR_ACCESS_DENIED, layer.Start(&hal, Device(), params)) << address;
        EXPECT_EQ(closes + 1, socket->closes) << address;
        EXPECT_FALSE(link.socketOpen);
    }
    hal.ClearFailures();

    socket->failOpen = GC_ERR_RESOURCE_EXHAUSTED;
    const int closes = socket->closes;
    EXPECT_EQ(GC_ERR_RESOURCE_EXHAUSTED, layer.Start(&hal, Device(), params));
    EXPECT_EQ(closes, socket->closes) << "a failed open is not closed";
}

TEST_F(StartPaths, StopOfASilentCameraClosesTheSocketARefusalKeepsItOpen) {
    GenTL::StreamStartParams params = Unicast();
    ASSERT_EQ(GC_ERR_SUCCESS, layer.Start(&hal, Device(), params));
    hal.Fail(kScp, GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(GC_ERR_ACCESS_DENIED, layer.Stop(&hal, Device(), 0, DEVICE_ACCESS_CONTROL));
    EXPECT_TRUE(link.socketOpen);
    hal.Fail(kScp, GC_ERR_TIMEOUT);
    EXPECT_EQ(GC_ERR_SUCCESS, layer.Stop(&hal, Device(), 0, DEVICE_ACCESS_CONTROL));
    EXPECT_FALSE(link.socketOpen);

    // A viewer only closes; a null layer is refused.
    const std::size_t writes = hal.CallsTo("WriteReg").size();
    EXPECT_EQ(GC_ERR_SUCCESS, layer.Stop(&hal, Device(), 0, DEVICE_ACCESS_READONLY));
    EXPECT_EQ(writes, hal.CallsTo("WriteReg").size());
    const int closes = socket->closes;
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, layer.Stop(nullptr, Device(), 0, DEVICE_ACCESS_CONTROL));
    EXPECT_EQ(closes, socket->closes);
}

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

TEST(ExtendedId, FactsAreReadOnceTheBitWrittenOnceAndFailuresReturned) {
    FakeHALGev hal;
    SetUpCamera(hal);
    GenTL::HALGvspUDP layer;
    bool extendedId = false;
    hal.SetReg(kGvspConfig, 0x40000000);
    ASSERT_EQ(GC_ERR_SUCCESS, layer.ConfigureExtendedId(&hal, nullptr, false, extendedId));
    ASSERT_EQ(GC_ERR_SUCCESS, layer.ConfigureExtendedId(&hal, nullptr, false, extendedId));
    EXPECT_TRUE(extendedId);
    EXPECT_TRUE(hal.Values(kGvspConfig).empty()) << "a bit already set is not written again";
    EXPECT_EQ(1u, hal.ReadsOf(kVersion));
    EXPECT_EQ(1u, hal.ReadsOf(kGvspCaps));

    for (const unsigned address : {kVersion, kGvspCaps, kGvspConfig}) {
        FakeHALGev failing;
        SetUpCamera(failing);
        failing.Fail(address);
        GenTL::HALGvspUDP fresh;
        EXPECT_EQ(GC_ERR_TIMEOUT, fresh.ConfigureExtendedId(&failing, nullptr, false, extendedId))
            << address;
    }
    FakeHALGev failing;
    SetUpCamera(failing);
    failing.Fail(kGvspConfig, GC_ERR_ACCESS_DENIED, true);
    GenTL::HALGvspUDP fresh;
    EXPECT_EQ(GC_ERR_ACCESS_DENIED,
              fresh.ConfigureExtendedId(&failing, nullptr, false, extendedId));
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

TEST_F(PacketSize, NoSizeArrivingFailsAndStopsTheChannel) {
    link.mtu = 500;
    GenTL::StreamStartParams params = Unicast(true);
    params.packetSize = 1500;
    EXPECT_EQ(GC_ERR_ERROR, layer.Start(&hal, Device(), params));
    EXPECT_EQ(7u, hal.Values(kScps).size());
    EXPECT_EQ(576u | kTest, hal.Values(kScps).back()) << "SCPS keeps the last size tried";
    EXPECT_EQ(1500u, params.packetSize) << "only a found size changes it";
    EXPECT_EQ(0u, hal.Values(kScp).back()) << "Stop cleared SCP";
    EXPECT_FALSE(link.socketOpen);
    EXPECT_EQ(2u, CachedError::Take().count);
}

TEST_F(PacketSize, FailingWritesEndTheSearchWithTheirValue) {
    hal.Fail(kScps, GC_ERR_TIMEOUT, true);
    GenTL::StreamStartParams params = Unicast(true);
    EXPECT_EQ(GC_ERR_TIMEOUT, layer.Start(&hal, Device(), params));
    EXPECT_EQ(1u, hal.Values(kScps).size());
    EXPECT_TRUE(socket->timeouts.empty());

    // The test write goes through, the final one fails.
    struct FailFinal : FakeHALGev {
        int WriteReg(void* d, unsigned address, unsigned value) const override {
            const bool final = address == kScps && (value & 0x80000000u) == 0;
            return final ? GC_ERR_IO : FakeHALGev::WriteReg(d, address, value);
        }
    } failing;
    SetUpCamera(failing);
    failing.onWrite = hal.onWrite;
    EXPECT_EQ(GC_ERR_IO, layer.Start(&failing, Device(), params));
    EXPECT_EQ(1500u, params.packetSize) << "the found size was stored before the write";
}

} // namespace
} // namespace StreamTest
