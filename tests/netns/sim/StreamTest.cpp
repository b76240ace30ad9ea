// The GVSP wire as this client reads it, apart from the library: test
// packet, leader and trailer fields, packet size and delay, extended ids, and
// TCP frames. Resend, variable sizes and multicast are proven end to end by
// the library's grab tests, byte for byte.
#include "SimFixture.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace gevtest {
namespace {

using Stream = SimTest;

void expectVerifiedBlocks(const std::map<uint64_t, Block>& blocks, size_t payloadSize,
                          size_t atLeast) {
    size_t verified = 0;
    for (const auto& [id, b] : blocks) {
        if (!b.trailer)
            continue; // the first block may have begun before we listened
        ASSERT_TRUE(b.complete()) << "block " << id;
        const std::vector<uint8_t> data = b.bytes();
        ASSERT_EQ(data.size(), payloadSize) << "block " << id;
        EXPECT_EQ(patternErrors(id, data), 0u) << "block " << id;
        ++verified;
    }
    EXPECT_GE(verified, atLeast);
}

TEST_F(Stream, TestPacketHasTheRequestedSize) {
    auto receiver = openStream();
    ASSERT_EQ(client->writeReg(addr::kScps, 0xC0000000u | 1200), 0);
    std::vector<uint8_t> d;
    ASSERT_TRUE(receiver->socket().receive(d, 500));
    EXPECT_EQ(d.size(), 1200u - 28u);
    EXPECT_EQ(client->reg(addr::kScps) & 0xC000FFFFu, 0x40000000u | 1200); // fire bit clears

    // Larger than the link with do-not-fragment: the packet cannot leave.
    if (bed.mtu < 9000) {
        ASSERT_EQ(client->writeReg(addr::kScps, 0xC0000000u | 9000), 0);
        EXPECT_FALSE(receiver->socket().receive(d, 300));
        // Fragmenting allowed: it arrives in pieces and is put together.
        ASSERT_EQ(client->writeReg(addr::kScps, 0x80000000u | 9000), 0);
        ASSERT_TRUE(receiver->socket().receive(d, 500));
        EXPECT_EQ(d.size(), 9000u - 28u);
    } else {
        ASSERT_EQ(client->writeReg(addr::kScps, 0xC0000000u | 9000), 0);
        ASSERT_TRUE(receiver->socket().receive(d, 500));
        EXPECT_EQ(d.size(), 9000u - 28u);
    }
    // The camera clamps sizes to what it can do.
    ASSERT_EQ(client->writeReg(addr::kScps, 20000), 0);
    EXPECT_EQ(client->reg(addr::kScps) & 0xFFFF, 9000u);
}

TEST_F(Stream, EveryByteOfEveryBlockChecksOut) {
    auto receiver = openStream(100, 60);
    ASSERT_EQ(client->writeReg(addr::kScps, 1000), 0);
    ASSERT_EQ(client->writeReg(addr::kAcqStart, 1), 0);
    std::map<uint64_t, Block> blocks;
    const auto packets = receiver->collect(blocks, 4, 3000);
    ASSERT_EQ(client->writeReg(addr::kAcqStop, 1), 0);
    expectVerifiedBlocks(blocks, 6000, 3);
    for (const auto& p : packets) {
        EXPECT_FALSE(p.extended);
        EXPECT_EQ(p.status, 0);
        if (p.format == 3) {
            EXPECT_LE(p.data.size(), 1000u - 28u - 8u);
        }
    }
    for (const auto& [id, b] : blocks) {
        if (!b.leader)
            continue;
        EXPECT_EQ(b.payloadType, 1);
        EXPECT_EQ(b.pixelFormat, 0x01080001u);
        EXPECT_EQ(b.width, 100u);
        EXPECT_EQ(b.height, 60u);
        EXPECT_NE(b.timestamp, 0u);
        if (b.trailer) {
            EXPECT_EQ(b.trailerSizeY, 60u);
            EXPECT_EQ(b.dataPerPacket(), 1000u - 36u);
        }
    }
}

TEST_F(Stream, ExtendedIdsWhenConfigured) {
    auto receiver = openStream(64, 48);
    ASSERT_EQ(client->writeReg(addr::kGvspConfig, 0x40000000u), 0);
    EXPECT_EQ(client->reg(addr::kGvspConfig), 0x40000000u);
    ASSERT_EQ(client->writeReg(addr::kScps, 1500), 0);
    ASSERT_EQ(client->writeReg(addr::kAcqStart, 1), 0);
    std::map<uint64_t, Block> blocks;
    const auto packets = receiver->collect(blocks, 3, 3000);
    // Configuration is refused while streaming.
    EXPECT_EQ(client->writeReg(addr::kGvspConfig, 0), 0x8007);
    ASSERT_EQ(client->writeReg(addr::kAcqStop, 1), 0);
    ASSERT_FALSE(packets.empty());
    for (const auto& p : packets) {
        EXPECT_TRUE(p.extended);
    }
    expectVerifiedBlocks(blocks, 64 * 48, 2);
    for (const auto& [id, b] : blocks)
        if (b.trailer) {
            EXPECT_LE(b.dataPerPacket(), 1500u - 28u - 20u);
        }
}

TEST_F(Stream, PacketDelaySpreadsABlock) {
    auto receiver = openStream(100, 100, 1.0f);
    ASSERT_EQ(client->writeReg(addr::kScps, 1000), 0);     // 11 data packets
    ASSERT_EQ(client->writeReg(addr::kScpd, 20000000), 0); // 20 ms at 1 GHz
    ASSERT_EQ(client->writeReg(addr::kAcqMode, 1), 0);     // SingleFrame
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(client->writeReg(addr::kAcqStart, 1), 0);
    std::map<uint64_t, Block> blocks;
    receiver->collect(blocks, 1, 3000);
    const auto took = std::chrono::steady_clock::now() - start;
    ASSERT_EQ(blocks.size(), 1u);
    EXPECT_TRUE(blocks.begin()->second.complete());
    EXPECT_GE(took, std::chrono::milliseconds(200));
    // SingleFrame: nothing follows.
    std::map<uint64_t, Block> more;
    receiver->collect(more, 1, 400);
    EXPECT_TRUE(more.empty());
}

TEST_F(Stream, TcpFramesCarryHeaderAndWholePayload) {
    claimWithDefaults();
    ASSERT_EQ(client->writeReg(addr::kWidth, 80), 0);
    ASSERT_EQ(client->writeReg(addr::kHeight, 50), 0);
    ASSERT_EQ(client->writeReg(addr::kFrameRate, floatBits(50.0f)), 0);
    ASSERT_EQ(client->writeReg(addr::kScda, bed.hostIp), 0);
    ASSERT_EQ(client->writeReg(addr::kScp, 58243), 0);
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(fd, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(bed.cameraIps[0]);
    a.sin_port = htons(58243);
    ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // accepted
    ASSERT_EQ(client->writeReg(addr::kAcqStart, 1), 0);
    const size_t payload = 80 * 50;
    std::vector<uint8_t> frame(60 + payload);
    uint64_t previous = 0;
    for (int f = 0; f < 3; ++f) {
        size_t got = 0;
        while (got < frame.size()) {
            pollfd p{fd, POLLIN, 0};
            ASSERT_GT(::poll(&p, 1, 2000), 0) << "frame " << f;
            const ssize_t n = ::recv(fd, frame.data() + got, frame.size() - got, 0);
            ASSERT_GT(n, 0);
            got += static_cast<size_t>(n);
        }
        EXPECT_EQ(be32(&frame[0]), payload);
        const uint64_t id = be64(&frame[12]);
        EXPECT_EQ(be16(&frame[26]), 1);
        EXPECT_NE(be64(&frame[28]), 0u);
        EXPECT_EQ(be32(&frame[36]), 0x01080001u);
        EXPECT_EQ(be32(&frame[40]), 80u);
        EXPECT_EQ(be32(&frame[44]), 50u);
        if (previous) {
            EXPECT_EQ(id, previous + 1);
        }
        previous = id;
        EXPECT_EQ(patternErrors(id, std::vector<uint8_t>(frame.begin() + 60, frame.end())), 0u);
    }
    ASSERT_EQ(client->writeReg(addr::kAcqStop, 1), 0);
    ::close(fd);
}

} // namespace
} // namespace gevtest
