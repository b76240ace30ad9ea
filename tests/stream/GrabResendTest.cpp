// The resend grab loop fed packet by packet: gap requests and their
// settling, in-order delivery, duplicates, statuses, lost leaders, the
// repeats of a request, and what is left after the loop ends. Overtaken
// blocks, variable-size blocks, starvation, quiet cameras, loss without
// resend and the block-id wrap run in the grab tests of tests/netns.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include <boost/thread/mutex.hpp>

#include "StreamTestSupport.h"
#include "stream/GrabContext.h"
#include "stream/GrabThreadResend.h"
#include "stream/IHALGvspUDP.h"
#include "stream/PacketResendRequest.h"
#include "stream/StreamInfo.h"

namespace {

using GenTL::Buffer;
using Resend = kesta::test::FakeHALGev::Resend;

constexpr std::uint32_t kChunk = 100;     // payload bytes per packet
constexpr std::uint32_t kDataPackets = 5; // of a 500-byte block
constexpr std::uint32_t kTrailerId = kDataPackets + 1;
constexpr std::uint32_t kMono8 = 0x01080001;

using StreamTest::Packet;

Packet Leader(std::uint16_t block) {
    Packet p(false, 1, block, 0);
    p.Put16(0).Put16(1).Put64(0x1234).Put32(kMono8).Put32(kChunk).Put32(kDataPackets);
    return p.Put32(0).Put32(0).Put16(0).Put16(0); // offsets and paddings
}

std::uint8_t Pattern(std::uint16_t block, std::uint32_t offset) {
    return static_cast<std::uint8_t>(offset * 7 + block);
}

Packet Data(std::uint16_t block, std::uint32_t id, std::uint16_t status = 0) {
    Packet p(false, 3, block, id, status);
    for (std::uint32_t i = 0; i < kChunk; ++i) {
        p.bytes.push_back(Pattern(block, (id - 1) * kChunk + i));
    }
    return p;
}

Packet Trailer(std::uint16_t block) {
    return Packet(false, 2, block, kTrailerId).Put16(0).Put16(1).Put32(kDataPackets);
}

class GrabResend : public StreamTest::ErrorCacheTest {
protected:
    void SetUp() override {
        ErrorCacheTest::SetUp();
        info.packetSize = 28 + 8 + kChunk;
        info.packetResendEnable = true;
        info.interPacketExpiry = 40;
        info.bufferExpiry = 80;
        info.resendRetries = 2;
        for (int i = 0; i < 3; ++i) {
            void* h = nullptr;
            ASSERT_EQ(
                buffers.AllocAndAnnounceBuffer(kDataPackets * kChunk, nullptr, &h, &blockTimers),
                GC_ERR_SUCCESS);
            ASSERT_EQ(buffers.QueueBufferToInput(h), GC_ERR_SUCCESS);
        }
    }
    void TearDown() override {
        if (begun) {
            loop.End();
        }
        ErrorCacheTest::TearDown();
    }
    void Begin() {
        loop.Begin();
        begun = true;
    }
    bool Feed(const Packet& p) { return loop.HandlePacket(p.data(), static_cast<int>(p.size())); }
    void FeedBlock(std::uint16_t block) {
        Feed(Leader(block));
        for (std::uint32_t id = 1; id <= kDataPackets; ++id) {
            Feed(Data(block, id));
        }
        Feed(Trailer(block));
    }
    /// The next delivered buffer, or null.
    Buffer* Delivered(unsigned long timeoutMs = 0) {
        void* h = nullptr;
        if (buffers.WaitOnNewBuffer(&h, timeoutMs) != GC_ERR_SUCCESS) {
            GenTL::ErrorCache::GetErrorCache()->Clear();
            return nullptr;
        }
        return StreamTest::BufferOf(h);
    }
    /// Polls `condition` for up to two seconds.
    template <typename F> static bool Eventually(F condition) {
        for (int i = 0; i < 200; ++i) {
            if (condition()) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }
    static bool Exact(const Buffer* b, std::uint16_t block) {
        for (std::uint32_t i = 0; i < kDataPackets * kChunk; ++i) {
            if (b->base[i] != Pattern(block, i)) {
                return false;
            }
        }
        return true;
    }
    std::uint64_t Pending() {
        boost::lock_guard<boost::mutex> lock(pendingMutex);
        return pendingCount;
    }

    kesta::test::FakeHALGev hal;
    StreamTest::FakeGvsp gvsp;
    GenTL::StreamInfo info;
    // The timer services outlive the buffers, whose timers they serve.
    boost::asio::io_service blockTimers;
    boost::asio::io_service resendTimers;
    GenTL::BufferStateMachineGev buffers;
    std::list<GenTL::GenTLHandle*> active;
    std::uint64_t activeCount = 0;
    boost::mutex activeMutex;
    std::list<GenTL::PacketResendRequest*> pending;
    std::uint64_t pendingCount = 0;
    boost::mutex pendingMutex;
    std::atomic<bool> running{false};
    long mode = GenTL::OldestFirst;
    unsigned long underruns = 0;
    GenTL::GrabContext context{info,
                               buffers,
                               gvsp,
                               &hal,
                               nullptr,
                               active,
                               activeCount,
                               activeMutex,
                               pending,
                               pendingCount,
                               pendingMutex,
                               running,
                               mode,
                               underruns,
                               blockTimers,
                               resendTimers,
                               0,
                               0};
    GenTL::GrabThreadResend loop{context};
    bool begun = false;
};

TEST_F(GrabResend, BlockInOrderIsDeliveredCompleteWithoutRequests) {
    Begin();
    EXPECT_EQ(info.packetsPerBlock, kDataPackets + 2);
    Feed(Leader(1));
    for (std::uint32_t id = 1; id <= kDataPackets; ++id) {
        EXPECT_FALSE(Feed(Data(1, id)));
    }
    EXPECT_TRUE(Feed(Trailer(1)));
    EXPECT_EQ(Delivered(), nullptr) << "delivery waits for the completion step";
    loop.CheckAndCompleteExpiredBuffers();
    Buffer* b = Delivered();
    ASSERT_NE(b, nullptr);
    EXPECT_FALSE(b->isIncomplete);
    EXPECT_EQ(b->sizeFilled, kDataPackets * kChunk);
    EXPECT_EQ(b->deliveredImageHeight, kDataPackets);
    EXPECT_TRUE(Exact(b, 1));
    EXPECT_TRUE(hal.Resends().empty());
    EXPECT_EQ(info.nextBlockId, 2u);
    EXPECT_EQ(info.missedImageCount, 0u);
    EXPECT_EQ(gvsp.leaderSignals, 1);
}

TEST_F(GrabResend, GapOpensARequestThatTheLatePacketSettlesAndDuplicatesAreIgnored) {
    Begin();
    Feed(Leader(1));
    Feed(Data(1, 1));
    Feed(Data(1, 3));
    EXPECT_EQ(hal.Resends(), (std::vector<Resend>{{1, 2, 2}}));
    EXPECT_EQ(Pending(), 1u);
    // Duplicates and packets with a real error status change nothing.
    Buffer* open = StreamTest::BufferOf(active.front());
    const std::uint32_t bytes = open->receivedBytes;
    const std::uint32_t packets = open->receivedPackets;
    Feed(Data(1, 1));
    Feed(Data(1, 2, 0x8001));
    EXPECT_EQ(open->receivedBytes, bytes);
    EXPECT_EQ(open->receivedPackets, packets);
    Feed(Data(1, 2, 0x0100)); // resent: status 0x0100 is accepted
    EXPECT_EQ(Pending(), 0u) << "the late packet settles the request";
    Feed(Data(1, 4));
    Feed(Data(1, 5));
    EXPECT_TRUE(Feed(Trailer(1)));
    loop.CheckAndCompleteExpiredBuffers();
    Buffer* b = Delivered();
    ASSERT_NE(b, nullptr);
    EXPECT_FALSE(b->isIncomplete);
    EXPECT_TRUE(Exact(b, 1));
}

TEST_F(GrabResend, BlockWithoutLeaderReturnsToInputAndCountsAsMissed) {
    info.maxResendRequestsPerImage = 0; // no request can bring the leader
    Begin();
    for (std::uint32_t id = 1; id <= kDataPackets; ++id) {
        Feed(Data(1, id));
    }
    Feed(Trailer(1));
    EXPECT_TRUE(Eventually([this] { return buffers.GetInputBufferQueueSize() == 3; }))
        << "both timers run out and the buffer goes back";
    EXPECT_EQ(Delivered(), nullptr);
    EXPECT_EQ(buffers.GetInputBufferQueueSize(), 3u);
    EXPECT_EQ(info.missedImageCount, 1u);
    EXPECT_EQ(info.totalMissedImageCount, 1u);
    EXPECT_TRUE(hal.Resends().empty());
}

TEST_F(GrabResend, RequestRepeatsUntilItsRetriesRunOut) {
    info.resendRetries = 2;
    info.bufferExpiry = 1000; // keep the block's own timers out of the way
    Begin();
    Feed(Leader(1));
    Feed(Data(1, 1));
    Feed(Data(1, 3));
    const auto gaps = [this] {
        const auto sent = hal.Resends();
        return std::count(sent.begin(), sent.end(), Resend(1, 2, 2));
    };
    EXPECT_TRUE(Eventually([&] { return gaps() >= 3; })) << "every 25 ms";
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    EXPECT_EQ(gaps(), 3) << "the first send and two repeats, then silence";
    EXPECT_EQ(Pending(), 1u) << "the request stays open until its block ends";
}

TEST_F(GrabResend, EndReturnsUnfinishedBlocksAndLeavesNoRequest) {
    Begin();
    Feed(Leader(1));
    Feed(Data(1, 2));
    Feed(Leader(2));
    Feed(Data(2, 3));
    EXPECT_GT(Pending(), 0u);
    loop.End();
    begun = false;
    EXPECT_EQ(Pending(), 0u);
    EXPECT_TRUE(active.empty());
    EXPECT_EQ(activeCount, 0u);
    EXPECT_EQ(buffers.GetInputBufferQueueSize(), 3u);
    EXPECT_FALSE(running);
}

} // namespace
