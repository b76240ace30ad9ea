// The wire layouts the simulator writes: GVSP packets in both header forms,
// the TCP frame header, event packets, and the test pattern they carry.
#include "GvspPacketWriter.h"
#include "MessageChannel.h"
#include "TestPattern.h"

#include <gtest/gtest.h>

namespace gevsim {
namespace {

uint32_t be32(const std::vector<uint8_t>& b, size_t off) {
    return static_cast<uint32_t>(b.at(off)) << 24 | static_cast<uint32_t>(b.at(off + 1)) << 16 |
           static_cast<uint32_t>(b.at(off + 2)) << 8 | b.at(off + 3);
}
uint16_t be16(const std::vector<uint8_t>& b, size_t off) {
    return static_cast<uint16_t>(b.at(off) << 8 | b.at(off + 1));
}

BlockInfo sampleBlock() {
    BlockInfo b;
    b.blockId = 0x1234567890ull;
    b.timestamp = 0x0102030405060708ull;
    b.pixelFormat = 0x01080001;
    b.width = 100;
    b.height = 60;
    b.trailerSizeY = 59;
    b.payloadBytes = 6000;
    return b;
}

TEST(GvspPacketWriter, StandardFormCountsIpUdpAndHeaderIntoThePacketSize) {
    const GvspPacketWriter w(1000, false);
    EXPECT_EQ(w.headerSize(), 8u);
    EXPECT_EQ(w.dataPerPacket(), 1000u - 28u - 8u);
    EXPECT_EQ(w.dataPacketCount(6000), 7u); // 6 x 964 + 216
    std::vector<uint8_t> p;
    w.leader(sampleBlock(), 0, p);
    ASSERT_EQ(p.size(), 8u + 36u);
    EXPECT_EQ(be16(p, 2), 0x7890);      // block id, low 16 bits
    EXPECT_EQ(be32(p, 4), 0x01000000u); // leader, packet id 0, EI clear
    EXPECT_EQ(be16(p, 10), 1);          // image payload
    EXPECT_EQ(be32(p, 12), 0x01020304u);
    EXPECT_EQ(be32(p, 16), 0x05060708u);
    EXPECT_EQ(be32(p, 20), 0x01080001u);
    EXPECT_EQ(be32(p, 24), 100u);
    EXPECT_EQ(be32(p, 28), 60u);
    w.trailer(sampleBlock(), 0x0100, p);
    ASSERT_EQ(p.size(), 8u + 8u);
    EXPECT_EQ(be16(p, 0), 0x0100);
    EXPECT_EQ(be32(p, 4), 0x02000008u); // trailer, packet id 7 + 1
    EXPECT_EQ(be32(p, 12), 59u);
}

TEST(GvspPacketWriter, ExtendedFormCarries64BitBlockAnd32BitPacketIds) {
    const GvspPacketWriter w(1000, true);
    EXPECT_EQ(w.dataPerPacket(), 1000u - 28u - 20u);
    const uint8_t data[3] = {1, 2, 3};
    std::vector<uint8_t> p;
    w.payload(sampleBlock(), 0x01234567, data, 3, 0, p);
    ASSERT_EQ(p.size(), 23u);
    EXPECT_EQ(be32(p, 4), 0x83000000u); // EI set, payload format
    EXPECT_EQ(be32(p, 8), 0x12u);
    EXPECT_EQ(be32(p, 12), 0x34567890u);
    EXPECT_EQ(be32(p, 16), 0x01234567u);
    EXPECT_EQ(p[20], 1);
    EXPECT_EQ(p[22], 3);
}

TEST(GvspPacketWriter, TcpFrameHeaderIsSixtyBytes) {
    std::vector<uint8_t> h;
    GvspPacketWriter::tcpFrameHeader(sampleBlock(), h);
    ASSERT_EQ(h.size(), 60u);
    EXPECT_EQ(be32(h, 0), 6000u);
    EXPECT_EQ(be32(h, 12), 0x12u);
    EXPECT_EQ(be32(h, 16), 0x34567890u);
    EXPECT_EQ(be16(h, 26), 1);
    EXPECT_EQ(be32(h, 28), 0x01020304u);
    EXPECT_EQ(be32(h, 36), 0x01080001u);
    EXPECT_EQ(be32(h, 40), 100u);
    EXPECT_EQ(be32(h, 44), 60u);
}

TEST(GvspPacketWriter, TestPacketFillsTheWholeSize) {
    std::vector<uint8_t> p;
    GvspPacketWriter::testPacket(1500, p);
    EXPECT_EQ(p.size(), 1472u);
    GvspPacketWriter::testPacket(10, p); // never shorter than a header
    EXPECT_EQ(p.size(), 8u);
}

TEST(MessageChannel, EventPacketsHaveTheGvcpHeaderAndOneEvent) {
    EventInfo e{0x9001, 0x4242, 0x1122334455667788ull};
    std::vector<uint8_t> p;
    MessageChannel::eventPacket(7, e, p);
    ASSERT_EQ(p.size(), 24u);
    EXPECT_EQ(p[0], 0x42);
    EXPECT_EQ(be16(p, 2), 0x00C0);
    EXPECT_EQ(be16(p, 4), 16);
    EXPECT_EQ(be16(p, 6), 7);
    EXPECT_EQ(be16(p, 10), 0x9001);
    EXPECT_EQ(be16(p, 14), 0x4242);
    EXPECT_EQ(be32(p, 16), 0x11223344u);
    const std::vector<uint8_t> data(600, 0xAB);
    MessageChannel::eventDataPacket(8, e, data.data(), data.size(), p);
    EXPECT_EQ(p.size(), 576u); // clipped to the largest GVCP datagram
    EXPECT_EQ(be16(p, 2), 0x00C2);
    EXPECT_EQ(be16(p, 4), 576 - 8);
}

TEST(TestPattern, BlockStampLeadsWithTheBlockIdAndDependsOnOffset) {
    const TestPattern t(TestPattern::BlockStamp, 100, 1);
    std::vector<uint8_t> a(1000), b(1000);
    t.fill(0x0102030405060708ull, 0, a.data(), a.size());
    EXPECT_EQ(a[0], 1);
    EXPECT_EQ(a[7], 8);
    // Any slice equals the same bytes of the whole.
    t.fill(0x0102030405060708ull, 300, b.data(), 100);
    EXPECT_TRUE(std::equal(b.begin(), b.begin() + 100, a.begin() + 300));
    // Another block differs in most bytes.
    t.fill(0x0102030405060709ull, 0, b.data(), b.size());
    size_t same = 0;
    for (size_t i = 8; i < a.size(); ++i)
        same += a[i] == b[i] ? 1 : 0;
    EXPECT_LT(same, 20u);
}

TEST(TestPattern, RampFollowsTheColumn) {
    const TestPattern t(TestPattern::GreyHorizontalRamp, 4, 2);
    std::vector<uint8_t> a(16);
    t.fill(1, 0, a.data(), a.size());
    EXPECT_EQ(a, (std::vector<uint8_t>{0, 0, 1, 1, 2, 2, 3, 3, 0, 0, 1, 1, 2, 2, 3, 3}));
}

} // namespace
} // namespace gevsim
