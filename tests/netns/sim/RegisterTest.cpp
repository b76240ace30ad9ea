// READREG, WRITEREG, READMEM and WRITEMEM against the bootstrap registers,
// the camera's own features and its XML file.
#include "SimFixture.h"

#include <cstdlib>
#include <sstream>
#include <string>

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

TEST_F(Registers, ImageFeaturesDrivePayloadSize) {
    ASSERT_EQ(client->claim(), 0);
    // A concatenated write of two registers.
    std::vector<uint8_t> p;
    putBe32(p, 0, addr::kWidth);
    putBe32(p, 4, 320);
    putBe32(p, 8, addr::kHeight);
    putBe32(p, 12, 200);
    const Ack ack = client->transact(0x0082, p);
    ASSERT_TRUE(ack.received);
    EXPECT_EQ(ack.status, 0);
    EXPECT_EQ(ack.code, 0x0083);
    ASSERT_EQ(ack.data.size(), 4u);
    EXPECT_EQ(be16(&ack.data[2]), 2); // both written
    EXPECT_EQ(client->reg(addr::kPayloadSize), 320u * 200u);
    ASSERT_EQ(client->writeReg(addr::kPixelFormat, 0x02180014), 0); // RGB8
    EXPECT_EQ(client->reg(addr::kPayloadSize), 320u * 200u * 3u);
    ASSERT_EQ(client->writeReg(addr::kPixelFormat, 0x01100007), 0); // Mono16
    EXPECT_EQ(client->reg(addr::kPayloadSize), 320u * 200u * 2u);
}

TEST_F(Registers, XmlNamedByTheFirstUrlReadsWhole) {
    std::vector<uint8_t> url;
    ASSERT_EQ(client->readMem(addr::kFirstUrl, 512, url), 0);
    const std::string text(reinterpret_cast<const char*>(url.data()));
    ASSERT_EQ(text.rfind("Local:", 0), 0u) << text;
    // Local:<name>;<address hex>;<length hex>
    std::stringstream in(text.substr(6));
    std::string name, address, length;
    std::getline(in, name, ';');
    std::getline(in, address, ';');
    std::getline(in, length, ';');
    const uint32_t at = static_cast<uint32_t>(std::stoul(address, nullptr, 16));
    const size_t size = std::stoul(length, nullptr, 16);
    ASSERT_GT(size, 1000u);
    std::string xml;
    for (size_t done = 0; done < size;) {
        const size_t chunk = std::min<size_t>(536, (size - done + 3) / 4 * 4);
        std::vector<uint8_t> part;
        ASSERT_EQ(client->readMem(at + static_cast<uint32_t>(done), chunk, part), 0);
        ASSERT_EQ(part.size(), chunk);
        xml.append(reinterpret_cast<const char*>(part.data()), std::min(chunk, size - done));
        done += chunk;
    }
    EXPECT_EQ(xml.rfind("<?xml", 0), 0u);
    EXPECT_NE(xml.find("</RegisterDescription>"), std::string::npos);
    for (const char* feature :
         {"\"Width\"", "\"Height\"", "\"PixelFormat\"", "\"PayloadSize\"", "\"AcquisitionMode\"",
          "\"AcquisitionStart\"", "\"AcquisitionStop\"", "\"AcquisitionFrameRate\"",
          "\"TestPattern\"", "\"GevSCPSPacketSize\"", "\"GevSCPD\"", "\"GevSCDA\"", "\"Mono16\"",
          "\"RGB8\""})
        EXPECT_NE(xml.find(feature), std::string::npos) << feature;
    std::vector<uint8_t> second;
    ASSERT_EQ(client->readMem(addr::kSecondUrl, 64, second), 0);
    EXPECT_EQ(second[0], 'L');
}

TEST_F(Registers, ManifestPointsAtTheUrl) {
    std::vector<uint8_t> head;
    ASSERT_EQ(client->readMem(addr::kManifest, 16, head), 0);
    EXPECT_EQ(be32(&head[0]) >> 26, 1u); // one entry
    EXPECT_EQ(be32(&head[8]) >> 26, 1u); // file version 1
    EXPECT_EQ(be32(&head[12]), addr::kFirstUrl);
}

TEST_F(Registers, WriteMemAcksTheBytesWrittenAndWritesRegisters) {
    ASSERT_EQ(client->claim(), 0);
    ASSERT_EQ(client->writeReg(addr::kPixelFormat, 0x01080001), 0); // Mono8
    std::vector<uint8_t> p;
    putBe32(p, 0, addr::kWidth);
    putBe32(p, 4, 128); // Width
    putBe32(p, 8, 96);  // Height
    const Ack ack = client->transact(0x0086, p);
    ASSERT_TRUE(ack.received);
    EXPECT_EQ(ack.status, 0);
    EXPECT_EQ(ack.code, 0x0087);
    ASSERT_EQ(ack.data.size(), 4u);
    EXPECT_EQ(be16(&ack.data[2]), 8);
    EXPECT_EQ(client->reg(addr::kPayloadSize), 128u * 96u);
}

} // namespace
} // namespace gevtest
