// A camera that lies in its stream packets, and a sender that is not the
// camera: whatever arrives, a buffer flagged complete holds the camera's
// image and nothing else, in both grab loops. Each lie comes from the
// simulated camera of the test's own CTest entry; the other sender is this
// test itself.
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "GrabTestBed.h"

namespace kesta_grab {
namespace {

// 16384 bytes: with extended ids and 1500-byte packets, 11 data packets of
// 1452 bytes and a last one of 412.
constexpr uint32_t kWidthPx = 256;
constexpr uint32_t kHeightPx = 64;
constexpr uint32_t kShare = 1500 - 28 - 20;
constexpr float kFps = 50.0f;
constexpr int kImages = 6;
constexpr uint64_t kScp = 0x0D00;

class Hostile : public GrabTest {
protected:
    void SetUp() override {
        GrabTest::SetUp();
        if (!IsSkipped() && !HasFatalFailure()) {
            Open(kWidthPx, kHeightPx, kFps);
            AnnounceAndQueue(4);
        }
    }
    /// Runs `grab` between start and stop of each loop given (true: resend).
    void WithLoops(std::initializer_list<bool> loops, const std::function<void(bool)>& grab) {
        for (const bool resend : loops) {
            SCOPED_TRACE(resend ? "resend" : "no resend");
            ASSERT_TRUE(UseResend(resend)) << "the grab loop cannot be chosen in this build";
            Start();
            ASSERT_FALSE(HasFatalFailure());
            grab(resend);
            Stop();
        }
    }
};

/// Whole blocks of filler bytes in the extended form, with ids far ahead of
/// the camera's, sent to the stream's port from this host's own address.
void ForgeBlocks(uint16_t port, const std::atomic<bool>& stop) {
    const gevtest::TestBed bed = gevtest::TestBed::fromEnvironment();
    const gevtest::Socket socket(bed.hostIp);
    const auto packet = [](uint64_t block, uint32_t format, uint32_t id, size_t bytes,
                           uint8_t fill) {
        std::vector<uint8_t> p(20 + bytes, fill);
        gevtest::putBe32(p, 0, 0);
        gevtest::putBe32(p, 4, 0x80000000u | format << 24);
        gevtest::putBe32(p, 8, static_cast<uint32_t>(block >> 32));
        gevtest::putBe32(p, 12, static_cast<uint32_t>(block));
        gevtest::putBe32(p, 16, id);
        return p;
    };
    const uint32_t dataPackets = (kWidthPx * kHeightPx + kShare - 1) / kShare;
    for (uint64_t block = 1000000; !stop; ++block) {
        std::vector<uint8_t> leader = packet(block, 1, 0, 36, 0);
        gevtest::putBe32(leader, 20, 1); // payload type: image
        gevtest::putBe32(leader, 32, kMono8);
        gevtest::putBe32(leader, 36, kWidthPx);
        gevtest::putBe32(leader, 40, kHeightPx);
        socket.send(bed.hostIp, port, leader);
        for (uint32_t id = 1; id <= dataPackets; ++id) {
            const size_t bytes = std::min<size_t>(kShare, kWidthPx * kHeightPx - (id - 1) * kShare);
            socket.send(bed.hostIp, port, packet(block, 3, id, bytes, 0xEE));
        }
        std::vector<uint8_t> trailer = packet(block, 2, dataPackets + 1, 8, 0);
        gevtest::putBe32(trailer, 20, 1);
        gevtest::putBe32(trailer, 24, kHeightPx);
        socket.send(bed.hostIp, port, trailer);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

// Camera: --forge-packet 5:0x40000005:3 --forge-packet 8:8:9. The first id
// lies far beyond the block, where cut to 32 bits its place would be packet
// 5's; the second packet has a format that no block holds.
TEST_F(Hostile, ForgedPacketIdsAndFormatsNeverBecomeData) {
    WithLoops({true, false}, [this](bool resend) {
        const Tally t = Take(kImages); // a wrong byte fails here
        if (resend) {
            EXPECT_GT(t.complete, kImages / 2) << "the true packets 5 and 8 are asked for again";
        } else {
            EXPECT_EQ(t.incomplete, kImages);
        }
    });
}

// Camera: --claim-geometry 0x40004000:0xFFFF0001:0x01080001. Width x height
// x 8 bits overflows 64 bits and wraps to exactly the bytes sent.
TEST_F(Hostile, OverflowingGeometryGivesNoImage) {
    WithLoops({true, false}, [this](bool) {
        for (int i = 0; i < 8; ++i) {
            Delivered d;
            if (Next(d, 100)) {
                EXPECT_TRUE(d.incomplete);
                Requeue(d);
            }
        }
        EXPECT_GT(StreamInfo<uint64_t>(STREAM_INFO_MISSED_IMAGE_COUNT), 0u);
    });
}

// Camera: --late-packet 10:1. Packet 10 comes after 11, when the loop
// expects 12, whose place is the buffer's short last one.
TEST_F(Hostile, ReorderedPacketBeforeTheShortLastOneIsKept) {
    WithLoops({false}, [this](bool) { EXPECT_EQ(Take(kImages).complete, kImages); });
}

TEST_F(Hostile, PacketsFromAnotherSenderAreNotTaken) {
    WithLoops({true, false}, [this](bool) {
        std::atomic<bool> stop{false};
        std::thread forger(ForgeBlocks, static_cast<uint16_t>(ReadCamera(kScp)), std::cref(stop));
        EXPECT_EQ(Take(kImages).complete, kImages);
        stop = true;
        forger.join();
    });
}

} // namespace
} // namespace kesta_grab
