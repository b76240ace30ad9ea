// READREG, WRITEREG, READMEM and WRITEMEM as the wire carries them:
// concatenation, the statuses of refusals, and the acks' counts. The XML and
// the manifest are read by the library's device tests and by aravis.
#include "SimFixture.h"

namespace gevtest {
namespace {

using Registers = SimTest;

TEST_F(Registers, ConcatenatedReadReturnsEveryRegisterInOrder) {
    std::vector<uint8_t> p;
    for (uint32_t a : {addr::kWidth, addr::kHeight, addr::kVersion})
        putBe32(p, p.size(), a);
    const Ack ack = client->transact(0x0080, p);
    ASSERT_TRUE(ack.received);
    EXPECT_EQ(ack.status, 0);
    EXPECT_EQ(ack.code, 0x0081);
    ASSERT_EQ(ack.length, 12);
    ASSERT_EQ(ack.data.size(), 12u);
    EXPECT_EQ(be32(&ack.data[0]), 640u);
    EXPECT_EQ(be32(&ack.data[4]), 480u);
    EXPECT_EQ(be32(&ack.data[8]), 0x00020000u);
}

TEST_F(Registers, ErrorsCarryTheirStatus) {
    uint32_t v = 0;
    EXPECT_EQ(client->readReg(0x00123450, v), 0x8003);       // no such address
    EXPECT_EQ(client->readReg(addr::kWidth + 2, v), 0x8005); // misaligned
    // A partly bad concatenated read returns what came before the error.
    std::vector<uint8_t> p;
    putBe32(p, 0, addr::kWidth);
    putBe32(p, 4, 0x00123450);
    const Ack ack = client->transact(0x0080, p);
    EXPECT_EQ(ack.status, 0x8003);
    EXPECT_EQ(ack.length, 4);
    // Writes need control; then read-only registers and bad values refuse.
    EXPECT_EQ(client->writeReg(addr::kWidth, 320), 0x8006);
    ASSERT_EQ(client->claim(), 0);
    EXPECT_EQ(client->writeReg(addr::kVersion, 1), 0x8004);
    EXPECT_EQ(client->writeReg(addr::kPixelFormat, 0x12345678), 0x8002);
    std::vector<uint8_t> out;
    EXPECT_EQ(client->readMem(addr::kFirstUrl, 6, out), 0x8002);   // not a multiple of 4
    EXPECT_EQ(client->readMem(addr::kFirstUrl, 540, out), 0x8002); // above 536
}

TEST_F(Registers, ConcatenatedWritesAndWriteMemAckTheirCounts) {
    ASSERT_EQ(client->claim(), 0);
    ASSERT_EQ(client->writeReg(addr::kPixelFormat, 0x01080001), 0); // Mono8
    std::vector<uint8_t> p;
    putBe32(p, 0, addr::kWidth);
    putBe32(p, 4, 320);
    putBe32(p, 8, addr::kHeight);
    putBe32(p, 12, 200);
    Ack ack = client->transact(0x0082, p);
    EXPECT_EQ(ack.status, 0);
    EXPECT_EQ(ack.code, 0x0083);
    ASSERT_EQ(ack.data.size(), 4u);
    EXPECT_EQ(be16(&ack.data[2]), 2); // registers written
    EXPECT_EQ(client->reg(addr::kPayloadSize), 320u * 200u);
    ASSERT_EQ(client->writeReg(addr::kPixelFormat, 0x02180014), 0); // RGB8
    EXPECT_EQ(client->reg(addr::kPayloadSize), 320u * 200u * 3u);

    // WRITEMEM over Width and Height.
    p.clear();
    putBe32(p, 0, addr::kWidth);
    putBe32(p, 4, 128);
    putBe32(p, 8, 96);
    ack = client->transact(0x0086, p);
    EXPECT_EQ(ack.status, 0);
    EXPECT_EQ(ack.code, 0x0087);
    ASSERT_EQ(ack.data.size(), 4u);
    EXPECT_EQ(be16(&ack.data[2]), 8); // bytes written
    EXPECT_EQ(client->reg(addr::kPayloadSize), 128u * 96u * 3u);
}

} // namespace
} // namespace gevtest
