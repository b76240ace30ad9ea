// A camera that lies in its stream packets, and a sender that is not the
// camera: whatever arrives, a buffer flagged complete holds the camera's
// image and nothing else, in both grab loops. Each lie comes from a camera
// of netns_grab_faults (see ../CMakeLists.txt); the other sender is this
// test itself, beside the clean camera of netns_grab.
#include <atomic>
#include <chrono>
#include <thread>

#include "GrabTest.h"

namespace kesta_grab {
namespace {

// 16384 bytes: with extended ids and 1500-byte packets, 11 data packets of
// 1452 bytes and a last one of 412.
constexpr uint32_t kShare = 1500 - 28 - 20;
constexpr int kImages = 6;

/// A camera of the faults bed opened with four buffers.
class FaultyStream : public Grab {
protected:
    void Prepare(std::size_t camera) {
        UseCamera(camera);
        ASSERT_NO_FATAL_FAILURE(Open());
        ASSERT_NO_FATAL_FAILURE(AnnounceAndQueue(4));
    }
};

// Camera 2: --forge-packet 5:0x40000005:3 --forge-packet 8:8:9. The first id
// lies far beyond the block, where cut to 32 bits its place would be packet
// 5's; the second packet has a format that no block holds.
TEST_F(FaultyStream, ForgedPacketIdsAndFormatsNeverBecomeData) {
    ASSERT_NO_FATAL_FAILURE(Prepare(2));
    WithLoops({true, false}, [this](bool resend) {
        const Tally t = Take(kImages); // a wrong byte fails here
        if (resend) {
            EXPECT_GT(t.complete, kImages / 2) << "the true packets 5 and 8 are asked for again";
        } else {
            EXPECT_EQ(t.incomplete, kImages);
        }
    });
}

// Camera 3: --claim-geometry 0x40004000:0xFFFF0001:0x01080001. Width x
// height x 8 bits overflows 64 bits and wraps to exactly the bytes sent.
TEST_F(FaultyStream, OverflowingGeometryGivesNoImage) {
    ASSERT_NO_FATAL_FAILURE(Prepare(3));
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

// Camera 4: --late-packet 10:1. Packet 10 comes after 11, when the loop
// expects 12, whose place is the buffer's short last one.
TEST_F(FaultyStream, ReorderedPacketBeforeTheShortLastOneIsKept) {
    ASSERT_NO_FATAL_FAILURE(Prepare(4));
    WithLoops({false}, [this](bool) { EXPECT_EQ(Take(kImages).complete, kImages); });
}

/// Whole blocks of filler bytes in the extended form, with ids far ahead of
/// the camera's, sent to the stream's port from this host's own address.
void ForgeBlocks(uint16_t port, const std::atomic<bool>& stop) {
    const uint32_t host = kesta_netns::ParseIp(kesta_netns::Env("KESTA_NETNS_HOST_IP"));
    const kesta_netns::UdpSocket socket(host);
    const auto packet = [](uint64_t block, uint32_t format, uint32_t id, size_t bytes) {
        kesta_netns::Bytes p(20 + bytes, format == 3 ? 0xEE : 0);
        kesta_netns::PutBe32(p, 4, 0x80000000u | format << 24);
        kesta_netns::PutBe32(p, 8, static_cast<uint32_t>(block >> 32));
        kesta_netns::PutBe32(p, 12, static_cast<uint32_t>(block));
        kesta_netns::PutBe32(p, 16, id);
        return p;
    };
    const uint32_t dataPackets = (kWidthPx * kHeightPx + kShare - 1) / kShare;
    for (uint64_t block = 1000000; !stop; ++block) {
        kesta_netns::Bytes leader = packet(block, 1, 0, 36);
        kesta_netns::PutBe32(leader, 20, 1); // payload type: image
        kesta_netns::PutBe32(leader, 32, kMono8);
        kesta_netns::PutBe32(leader, 36, kWidthPx);
        kesta_netns::PutBe32(leader, 40, kHeightPx);
        socket.Send(host, port, leader);
        for (uint32_t id = 1; id <= dataPackets; ++id) {
            const size_t bytes = std::min<size_t>(kShare, kWidthPx * kHeightPx - (id - 1) * kShare);
            socket.Send(host, port, packet(block, 3, id, bytes));
        }
        kesta_netns::Bytes trailer = packet(block, 2, dataPackets + 1, 8);
        kesta_netns::PutBe32(trailer, 20, 1);
        kesta_netns::PutBe32(trailer, 24, kHeightPx);
        socket.Send(host, port, trailer);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

TEST_F(Grab, PacketsFromAnotherSenderAreNotTaken) {
    ASSERT_NO_FATAL_FAILURE(Open());
    ASSERT_NO_FATAL_FAILURE(AnnounceAndQueue(4));
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
