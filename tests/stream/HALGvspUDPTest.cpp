// The GVSP layer over UDP against a fake camera: the four start paths, the
// firewall traversal, Stop, the extended-id decision, the leader wait, the
// expiries and the packet size negotiation.
#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <memory>
#include <thread>
#include <vector>

#include "FakeGvcpForStream.h"

namespace kesta::test {
namespace {

constexpr unsigned kVersion = 0x0000;
constexpr unsigned kGvspCaps = 0x092C;
constexpr unsigned kGvspConfig = 0x0960;
constexpr unsigned kScp = 0x0D00;
constexpr unsigned kScps = 0x0D04;
constexpr unsigned kScda = 0x0D18;
constexpr unsigned kGroup = 0xEF0A0A0A; // 239.10.10.10
constexpr unsigned kLoopback = 0x7F000001;

using Clock = std::chrono::steady_clock;

// --- Start ---------------------------------------------------------------------------

using StartPaths = StreamBed;

TEST_F(StartPaths, UnicastWritesTheSocketsAddressThenOpensTheFirewallThenTests) {
    layer.SetNextLeaderArrived();
    GenTL::StreamStartParams params = Unicast();
    ASSERT_EQ(GC_ERR_SUCCESS, layer.Start(&hal, Device(), params));

    EXPECT_EQ(std::vector<unsigned>{kLoopback}, hal.WritesTo(kScda));
    EXPECT_EQ(std::vector<unsigned>{ntohs(socket->LocalAddress().sin_port)}, hal.WritesTo(kScp));
    ASSERT_EQ(1u, socket->sent.size()) << "one firewall datagram";
    EXPECT_EQ(std::vector<char>(4, 0), socket->sent[0].data);
    EXPECT_EQ(static_cast<std::uint32_t>(hal.deviceIp), ntohl(socket->sent[0].to.sin_addr.s_addr));
    EXPECT_EQ(40000, ntohs(socket->sent[0].to.sin_port)) << "to the camera's SCSP";
    EXPECT_EQ(static_cast<std::uint32_t>(hal.deviceIp), socket->acceptedFrom)
        << "only the camera is heard";

    // Order on the wire: destination, port, SCSP read, then the test packet.
    std::vector<unsigned> order;
    for (const FakeGvcpForStream::Access& a : hal.log) {
        if (a.write || a.address == 0x0D1C) {
            order.push_back(a.address);
        }
    }
    EXPECT_EQ((std::vector<unsigned>{kScda, kScp, 0x0D1C, kScps}), order);
    EXPECT_EQ(GC_ERR_TIMEOUT, layer.WaitForNextLeader(0)) << "Start forgot the old arrival";
    EXPECT_EQ(0xC0000000u, layer.Capabilities().word);
}

TEST_F(StartPaths, AViewerWithoutMulticastOrANullArgumentIsRefusedBeforeAnythingIsOpened) {
    for (const int mode : {static_cast<int>(DEVICE_ACCESS_READONLY), 0, 5}) {
        GenTL::StreamStartParams params = Unicast();
        params.accessMode = mode;
        EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, layer.Start(&hal, Device(), params)) << mode;
    }
    GenTL::StreamStartParams params = Unicast();
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, layer.Start(nullptr, Device(), params));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, layer.Start(&hal, nullptr, params));
    EXPECT_EQ(0, socket->unicastOpens);
    EXPECT_EQ(0u, hal.Writes());
    GenTL::StreamStartParams exclusive = Unicast();
    exclusive.accessMode = DEVICE_ACCESS_EXCLUSIVE;
    EXPECT_EQ(GC_ERR_SUCCESS, layer.Start(&hal, Device(), exclusive)) << "counts as control";
}

TEST_F(StartPaths, AFailingTraversalDoesNotEndTheStart) {
    hal.readFailures[0x0D1C] = GC_ERR_TIMEOUT;
    GenTL::StreamStartParams params = Unicast();
    EXPECT_EQ(GC_ERR_SUCCESS, layer.Start(&hal, Device(), params));
    hal.readFailures.clear();
    layer.Stop(&hal, Device(), 0, params.accessMode);

    socket->failSend = GC_ERR_IO;
    EXPECT_EQ(GC_ERR_SUCCESS, layer.Start(&hal, Device(), params));
    EXPECT_EQ(1u, socket->sent.size());
}

TEST_F(StartPaths, FailingRegistersEndTheStartWithTheirCode) {
    GenTL::StreamStartParams params = Unicast();
    hal.readFailures[kGvspCaps] = GC_ERR_TIMEOUT;
    EXPECT_EQ(GC_ERR_TIMEOUT, layer.Start(&hal, Device(), params));
    EXPECT_EQ(0, socket->unicastOpens);
    hal.readFailures.clear();

    hal.readFailures[kScps] = GC_ERR_ACCESS_DENIED;
    params.packetSize = 1234;
    EXPECT_EQ(GC_ERR_ACCESS_DENIED, layer.Start(&hal, Device(), params));
    EXPECT_EQ(0u, params.packetSize) << "cleared before the read";
    hal.readFailures.clear();

    for (const unsigned address : {kScda, kScp}) {
        hal.writeFailures = {{address, GC_ERR_ACCESS_DENIED}};
        const int closes = socket->closes;
        EXPECT_EQ(GC_ERR_ACCESS_DENIED, layer.Start(&hal, Device(), params)) << address;
        EXPECT_EQ(closes + 1, socket->closes) << address;
        EXPECT_FALSE(link.socketOpen);
    }
    hal.writeFailures.clear();

    socket->failOpen = GC_ERR_RESOURCE_EXHAUSTED;
    const int closes = socket->closes;
    EXPECT_EQ(GC_ERR_RESOURCE_EXHAUSTED, layer.Start(&hal, Device(), params));
    EXPECT_EQ(closes, socket->closes) << "a failed open is not closed";
}

TEST_F(StartPaths, MulticastControllerTestsOverUnicastThenMovesToTheGroup) {
    link.mtu = 9000;
    GenTL::StreamStartParams params = Unicast(true);
    params.multicastEnable = true;
    ASSERT_EQ(GC_ERR_SUCCESS, layer.Start(&hal, Device(), params));
    EXPECT_EQ(9000u, params.packetSize);

    EXPECT_EQ((std::vector<unsigned>{kLoopback, kGroup}), hal.WritesTo(kScda));
    EXPECT_EQ(kGroup, socket->joinedGroup);
    EXPECT_EQ(1, socket->closes) << "the unicast socket closes before the group is joined";
    EXPECT_EQ(2u, socket->sent.size()) << "firewall opened for each socket";

    // The test packets go before the move to the group.
    std::size_t lastTest = 0, groupWrite = 0;
    for (std::size_t i = 0; i < hal.log.size(); ++i) {
        if (hal.log[i].write && hal.log[i].address == kScps) {
            lastTest = i;
        }
        if (hal.log[i].write && hal.log[i].address == kScda && hal.log[i].value == kGroup) {
            groupWrite = i;
        }
    }
    EXPECT_LT(lastTest, groupWrite);
}

TEST_F(StartPaths, MulticastListenerTakesThePortFromTheCameraAndWritesNothing) {
    hal.regs[kScp] = 0xABCD0000u | 51000; // only the low 16 bits are the port
    hal.regs[kScps] = 0x40000000u | 1400;
    GenTL::StreamStartParams params;
    params.multicastEnable = true;
    params.accessMode = DEVICE_ACCESS_READONLY;
    params.autoNegotiatePacketSize = true;
    ASSERT_EQ(GC_ERR_SUCCESS, layer.Start(&hal, Device(), params));
    EXPECT_EQ(0u, hal.Writes());
    EXPECT_EQ(1, socket->listenerOpens);
    EXPECT_EQ(0, socket->unicastOpens);
    EXPECT_EQ(51000, socket->listenerPort);
    EXPECT_EQ(kGroup, socket->joinedGroup);
    EXPECT_EQ(1400u, params.packetSize) << "no test: the camera's size";
    EXPECT_TRUE(socket->timeouts.empty());
    EXPECT_EQ(1u, socket->sent.size()) << "the listener opens its firewall too";
    EXPECT_EQ(static_cast<std::uint32_t>(hal.deviceIp), socket->acceptedFrom);
    EXPECT_EQ(40u, params.interPacketExpiry);

    hal.readFailures[kScp] = GC_ERR_TIMEOUT;
    EXPECT_EQ(GC_ERR_TIMEOUT, layer.Start(&hal, Device(), params));
    EXPECT_EQ(1, socket->listenerOpens);
}

// --- Stop ----------------------------------------------------------------------------

using StopChannel = StreamBed;

TEST_F(StopChannel, ASilentCameraLetsTheSocketCloseARefusalKeepsItOpen) {
    GenTL::StreamStartParams params = Unicast();
    ASSERT_EQ(GC_ERR_SUCCESS, layer.Start(&hal, Device(), params));
    hal.writeFailures[kScp] = GC_ERR_ACCESS_DENIED;
    EXPECT_EQ(GC_ERR_ACCESS_DENIED, layer.Stop(&hal, Device(), 0, DEVICE_ACCESS_CONTROL));
    EXPECT_TRUE(link.socketOpen);
    hal.writeFailures[kScp] = GC_ERR_TIMEOUT;
    EXPECT_EQ(GC_ERR_SUCCESS, layer.Stop(&hal, Device(), 0, DEVICE_ACCESS_CONTROL));
    EXPECT_FALSE(link.socketOpen);

    // A viewer only closes; a null layer is refused.
    const std::size_t writes = hal.Writes();
    EXPECT_EQ(GC_ERR_SUCCESS, layer.Stop(&hal, Device(), 0, DEVICE_ACCESS_READONLY));
    EXPECT_EQ(writes, hal.Writes());
    const int closes = socket->closes;
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, layer.Stop(nullptr, Device(), 0, DEVICE_ACCESS_CONTROL));
    EXPECT_EQ(closes, socket->closes);
}

// --- Extended ids --------------------------------------------------------------------

struct ExtendedIdCase {
    unsigned version;
    bool capable;
    bool legacyRequested;
    bool cameraKeepsBit; // the configuration bit sticks when written
    bool extendedId;
    bool configTouched;
};

TEST(ExtendedId, DecisionByVersionCapabilityAndRequest) {
    const ExtendedIdCase cases[] = {
        {0x00010002, false, false, true, false, false}, // 1.2: legacy
        {0x00010002, true, false, true, true, true},    // capable 1.x still gets the bit
        {0x00020000, false, false, true, true, false},  // 2.0 without capability: says true
        {0x00020000, true, true, true, true, true},     // legacy asked, the read-back wins
        {0x00020000, true, false, false, false, true},  // the camera refuses the bit
    };
    for (const ExtendedIdCase& c : cases) {
        FakeStreamLink link;
        FakeGvcpForStream hal(link);
        hal.regs[kVersion] = c.version;
        hal.regs[kGvspCaps] = 0x80000000u | (c.capable ? 0x40000000u : 0);
        if (!c.cameraKeepsBit) {
            hal.pinned[kGvspConfig] = true;
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
            EXPECT_EQ(std::vector<unsigned>{0x40000000u}, hal.WritesTo(kGvspConfig)) << what;
        }
    }
}

TEST(ExtendedId, FactsAreReadOnceTheBitWrittenOnceAndFailuresReturned) {
    FakeStreamLink link;
    FakeGvcpForStream hal(link);
    GenTL::HALGvspUDP layer;
    bool extendedId = false;
    hal.regs[kGvspConfig] = 0x40000000;
    ASSERT_EQ(GC_ERR_SUCCESS, layer.ConfigureExtendedId(&hal, nullptr, false, extendedId));
    ASSERT_EQ(GC_ERR_SUCCESS, layer.ConfigureExtendedId(&hal, nullptr, false, extendedId));
    EXPECT_TRUE(extendedId);
    EXPECT_TRUE(hal.WritesTo(kGvspConfig).empty()) << "a bit already set is not written again";
    EXPECT_EQ(1u, hal.ReadsOf(kVersion));
    EXPECT_EQ(1u, hal.ReadsOf(kGvspCaps));

    for (const unsigned address : {kVersion, kGvspCaps, kGvspConfig}) {
        FakeGvcpForStream failing(link);
        failing.readFailures[address] = GC_ERR_TIMEOUT;
        GenTL::HALGvspUDP fresh;
        EXPECT_EQ(GC_ERR_TIMEOUT, fresh.ConfigureExtendedId(&failing, nullptr, false, extendedId))
            << address;
    }
    FakeGvcpForStream failing(link);
    failing.writeFailures[kGvspConfig] = GC_ERR_ACCESS_DENIED;
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

TEST(LeaderWait, AnArrivalFromAnotherThreadEndsATimedWait) {
    GenTL::HALGvspUDP layer;
    const auto start = Clock::now();
    std::thread grab([&layer] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        layer.SetNextLeaderArrived();
    });
    EXPECT_EQ(GC_ERR_SUCCESS, layer.WaitForNextLeader(5000));
    grab.join();
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(2500));

    const auto before = Clock::now();
    EXPECT_EQ(GC_ERR_TIMEOUT, layer.WaitForNextLeader(60));
    EXPECT_GE(Clock::now() - before, std::chrono::milliseconds(55));
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
    const auto start = Clock::now();
    delete layer;
    for (std::thread& t : waiters) {
        t.join();
    }
    EXPECT_EQ(3, freed.load());
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
}

// --- Expiries ------------------------------------------------------------------------

class Expiry : public StreamBed {
protected:
    std::uint32_t InterPacket(unsigned delayTicks, unsigned frequencyHigh, unsigned frequencyLow) {
        hal.regs[0x0D08] = delayTicks;
        hal.regs[0x093C] = frequencyHigh;
        hal.regs[0x0940] = frequencyLow;
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
    hal.regs[0x0D08] = 100000000;
    hal.regs[0x0940] = 1000000000;
    hal.log.clear();
    hal.readFailures[0x0940] = GC_ERR_TIMEOUT;
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

TEST_F(Expiry, StartAlwaysRecomputesThem) {
    hal.regs[0x0D08] = 100000000; // 100 ms at 1 GHz
    GenTL::StreamStartParams params = Unicast();
    params.interPacketExpiry = 7;
    params.bufferExpiry = 7;
    params.frameRate = 25.0;
    ASSERT_EQ(GC_ERR_SUCCESS, layer.Start(&hal, Device(), params));
    EXPECT_EQ(300u, params.interPacketExpiry);
    EXPECT_EQ(80u, params.bufferExpiry);
    EXPECT_EQ(1u, params.resendRetries);
}

// --- Packet size ---------------------------------------------------------------------

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
    layer.Stop(&hal, Device(), params.packetSize, params.accessMode);

    // Below the smallest step the last size is taken untested.
    link.mtu = 1000;
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
    EXPECT_EQ(2u, CachedError().NumErrors());
    const std::string stack = StackText();
    EXPECT_NE(std::string::npos,
              stack.find("GenTL::HALGvspUDP::Start TestPacketSize Failed with err: -1001"))
        << stack;
    EXPECT_NE(std::string::npos, stack.find("failed to find a working packet size")) << stack;
}

TEST_F(PacketSize, FailingWritesEndTheSearchWithTheirValue) {
    hal.writeFailures[kScps] = GC_ERR_TIMEOUT;
    GenTL::StreamStartParams params = Unicast(true);
    EXPECT_EQ(GC_ERR_TIMEOUT, layer.Start(&hal, Device(), params));
    EXPECT_EQ(1u, hal.WritesTo(kScps).size());
    EXPECT_TRUE(socket->timeouts.empty());
    EXPECT_NE(std::string::npos,
              StackText().find("auto packet size test sent a test packet to device but it "
                               "failed. Sent packet size was 9000"));

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
    EXPECT_EQ(GC_ERR_IO, layer.Start(&failing, Device(), params));
    EXPECT_EQ(1500u, params.packetSize) << "the found size was stored before the write";
    EXPECT_NE(std::string::npos,
              StackText().find("failed to set the datastream register to the max packetsize of " +
                               std::to_string(1500u | kDoNotFragment)));
}

TEST_F(PacketSize, FixedModeTestsTheCamerasOwnSizeOnly) {
    hal.regs[kScps] = 0x80000000u | 1400; // bits above the size are dropped
    GenTL::StreamStartParams params = Unicast(false);
    ASSERT_EQ(GC_ERR_SUCCESS, layer.Start(&hal, Device(), params));
    EXPECT_EQ(1400u, params.packetSize);
    EXPECT_EQ(std::vector<unsigned>{1400 | kTest}, hal.WritesTo(kScps));
    EXPECT_EQ(std::vector<int>{1400}, socket->lengths);
    layer.Stop(&hal, Device(), params.packetSize, params.accessMode);

    hal.regs[kScps] = 9000; // above the link's MTU: the test packet is lost
    EXPECT_EQ(GC_ERR_TIMEOUT, layer.Start(&hal, Device(), params));
    EXPECT_FALSE(link.socketOpen);
    EXPECT_NE(std::string::npos,
              StackText().find("test packet failed. Could be because mtu is < than that of "
                               "the device"));
    hal.writeFailures[kScps] = GC_ERR_IO;
    EXPECT_EQ(GC_ERR_IO, layer.Start(&hal, Device(), params));
    EXPECT_NE(std::string::npos, StackText().find("sending a test packet to device failed"));
}

TEST_F(PacketSize, ASizeThatLeavesNoRoomForDataStopsTheStart) {
    // The camera's size read as 0 (an ack without its value), or as no more
    // than the headers, for a controller and for a listener.
    for (const bool listener : {false, true}) {
        SCOPED_TRACE(listener);
        hal.regs[kScps] = listener ? 36 : 0;
        GenTL::StreamStartParams params = Unicast(false);
        params.multicastEnable = listener;
        params.accessMode = listener ? DEVICE_ACCESS_READONLY : params.accessMode;
        EXPECT_EQ(GC_ERR_INVALID_VALUE, layer.Start(&hal, Device(), params));
        EXPECT_FALSE(link.socketOpen);
    }
}

} // namespace
} // namespace kesta::test
