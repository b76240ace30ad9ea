// The GVSP parsing steps on hand-built packets: reserved header bits, chunk
// payloads, and packets that are truncated, of a type the loop does not
// take, or claim more than they carry or than the buffer holds. Images of
// both header forms are parsed end to end by the grab tests in tests/netns.
#include <chrono>
#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "StreamTestSupport.h"
#include "stream/Buffer.h"
#include "stream/GvspParser.h"
#include "stream/StreamInfo.h"

namespace {

using namespace GenTL;
using StreamTest::ErrorCacheTest;

using StreamTest::Packet;

ParsedGvspHeader HeaderOf(const Packet& p) {
    ParsedGvspHeader header;
    EXPECT_EQ(
        GetPktHeaderInfo(p.data(), static_cast<int>(p.size()), static_cast<int>(p.size()), header),
        GC_ERR_SUCCESS);
    return header;
}

Packet ImageLeader(bool extended, std::uint16_t type, std::uint64_t timestamp,
                   std::uint32_t pixelFormat, std::uint32_t width, std::uint32_t height) {
    Packet p(extended, GVSP_PACKET_LEADER, 9, 0);
    p.Put16(0).Put16(type).Put64(timestamp).Put32(pixelFormat).Put32(width).Put32(height);
    p.Put32(3).Put32(4).Put16(5).Put16(6); // offsets and paddings
    return p;
}

class GvspParserTest : public ErrorCacheTest {
protected:
    void SetUp() override {
        ErrorCacheTest::SetUp();
        memory.assign(64, 0);
        buffer.base = memory.data();
        buffer.size = memory.size();
        buffer.missingPackets = 10;
        buffer.AllocatePacketBitmap(2);
        info.packetSize = 28 + 8 + 16; // 16 payload bytes per normal packet
    }
    int Leader(const Packet& p) {
        return ParseGVSPLeader(info, p.data(), p.size(), &buffer, HeaderOf(p));
    }
    int Trailer(const Packet& p, bool& done) {
        return ParseGVSPTrailer(info, p.data(), p.size(), &buffer, done, HeaderOf(p));
    }
    int Payload(const Packet& p) {
        return ParseGVSPPayload(info, p.data(), p.size(), &buffer, HeaderOf(p));
    }
    Packet Data(std::uint32_t packetId, std::size_t bytes, std::uint8_t value,
                bool extended = false) {
        Packet p(extended, GVSP_PACKET_PAYLOAD, 9, packetId);
        p.Fill(bytes, value);
        return p;
    }

    std::vector<std::uint8_t> memory;
    Buffer buffer;
    StreamInfo info;
};

// --- header ------------------------------------------------------------------------

TEST_F(GvspParserTest, HeaderInExtendedFormReadsOnlyItsFields) {
    ParsedGvspHeader h;
    // The normal form is read by every other test here.
    Packet p(true, GVSP_PACKET_PAYLOAD, 0x0102030405060708ULL, 0xA0B0C0D0U, 0x8001);
    p.bytes[2] = 0xAB;  // flags: kept raw, not the id
    p.bytes[4] |= 0x70; // bits 28 to 30 are not read
    p.bytes[7] = 0x55;  // nor the low bits of the word
    h = HeaderOf(p);
    EXPECT_TRUE(h.extendedId);
    EXPECT_EQ(h.status, 0x8001);
    EXPECT_EQ(h.blockId, 0x0102030405060708ULL);
    EXPECT_EQ(h.packetId, 0xA0B0C0D0U);
    EXPECT_EQ(h.rawBlockId, 0xAB00);
    EXPECT_EQ(h.DataOffset(), 20U);
}

TEST_F(GvspParserTest, HeaderRefusesNullEmptyAndTruncatedPackets) {
    ParsedGvspHeader h;
    char raw[20] = {};
    EXPECT_EQ(GetPktHeaderInfo(nullptr, 20, 20, h), GC_ERR_INVALID_BUFFER);
    for (auto sizes : {std::make_pair(0, 20), {20, 0}, {20, 7}, {7, 20}, {20, -3}}) {
        EXPECT_EQ(GetPktHeaderInfo(raw, sizes.first, sizes.second, h), GC_ERR_INVALID_BUFFER);
    }
    raw[4] = static_cast<char>(0x80); // EI: needs 20 bytes
    EXPECT_EQ(GetPktHeaderInfo(raw, 20, 19, h), GC_ERR_INVALID_BUFFER);
    EXPECT_EQ(GetPktHeaderInfo(raw, 20, 20, h), GC_ERR_SUCCESS);
}

// --- leader -------------------------------------------------------------------------

TEST_F(GvspParserTest, ChunkLeaderReadsTheTimestampAndZeroTakesTheHostClock) {
    Packet p(false, GVSP_PACKET_LEADER, 9, 0);
    p.Put16(0).Put16(4).Put64(77);
    ASSERT_EQ(Leader(p), GC_ERR_SUCCESS);
    EXPECT_EQ(buffer.timestamp, 77U);
    EXPECT_EQ(buffer.width, 0U);
    EXPECT_EQ(info.payloadType, 4);

    const auto now = [] {
        return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                              std::chrono::system_clock::now().time_since_epoch())
                                              .count());
    };
    const std::uint64_t before = now();
    ASSERT_EQ(Leader(ImageLeader(false, 1, 0, 0x01080001, 8, 8)), GC_ERR_SUCCESS);
    EXPECT_GE(buffer.timestamp, before);
    EXPECT_LE(buffer.timestamp, now());
}

TEST_F(GvspParserTest, LeaderRefusesOtherPayloadTypesAndShortPackets) {
    for (std::uint16_t type : {2, 3, 9, 0x4002, 0x8000}) {
        Packet p = ImageLeader(false, type, 1, 0x01080001, 8, 8);
        EXPECT_EQ(Leader(p), GC_ERR_NOT_IMPLEMENTED) << type;
    }
    EXPECT_EQ(Leader(ImageLeader(true, 6, 1, 0x01080001, 8, 8)), GC_ERR_NOT_IMPLEMENTED);
    EXPECT_FALSE(buffer.leaderSeen);
    EXPECT_EQ(info.payloadType, 0);

    // Cut one byte short of each field set.
    Packet image = ImageLeader(false, 1, 1, 0x01080001, 8, 8);
    EXPECT_EQ(ParseGVSPLeader(info, image.data(), image.size() - 1, &buffer, HeaderOf(image)),
              GC_ERR_INVALID_BUFFER);
    EXPECT_EQ(ParseGVSPLeader(info, image.data(), 11, &buffer, HeaderOf(image)),
              GC_ERR_INVALID_BUFFER);
    Packet chunk(false, GVSP_PACKET_LEADER, 9, 0);
    chunk.Put16(0).Put16(4).Put32(1).Put16(0).Fill(1, 0); // 7 of 8 timestamp bytes
    EXPECT_EQ(Leader(chunk), GC_ERR_INVALID_BUFFER);
    EXPECT_FALSE(buffer.leaderSeen);
    EXPECT_EQ(buffer.width, 0U);
    EXPECT_EQ(buffer.missingPackets, 10);
}

// --- trailer ------------------------------------------------------------------------

TEST_F(GvspParserTest, ChunkTrailersCarryLengthAndLayout) {
    ASSERT_EQ(Leader(ImageLeader(true, 0x4001, 1, 0x01080001, 10, 6)), GC_ERR_SUCCESS);
    bool done = false;
    Packet withChunks(true, GVSP_PACKET_TRAILER, 9, 5);
    withChunks.Put32(0).Put32(6).Put32(1234).Put32(0xBEEF);
    ASSERT_EQ(Trailer(withChunks, done), GC_ERR_SUCCESS);
    EXPECT_EQ(buffer.trailerSizeY, 6U);
    EXPECT_EQ(buffer.deliveredChunkPayloadSize, 1234U);
    EXPECT_EQ(buffer.dataSize, 1234U);
    EXPECT_EQ(buffer.chunkLayoutId, 0xBEEFU);
    EXPECT_TRUE(buffer.containsChunkData);
    // One byte short of the layout id.
    EXPECT_EQ(ParseGVSPTrailer(info, withChunks.data(), withChunks.size() - 1, &buffer, done,
                               HeaderOf(withChunks)),
              GC_ERR_INVALID_BUFFER);

    Buffer chunkOnly;
    info.payloadType = 4;
    Packet chunk(false, GVSP_PACKET_TRAILER, 9, 5);
    chunk.Put32(0).Put32(99);
    ASSERT_EQ(ParseGVSPTrailer(info, chunk.data(), chunk.size(), &chunkOnly, done, HeaderOf(chunk)),
              GC_ERR_SUCCESS);
    EXPECT_EQ(chunkOnly.deliveredChunkPayloadSize, 99U);
    EXPECT_EQ(chunkOnly.dataSize, 99U);
    EXPECT_TRUE(chunkOnly.containsChunkData);
}

TEST_F(GvspParserTest, TrailerFollowsTheLeadersTypeAndRefusesOthers) {
    bool done = false;
    Packet p(false, GVSP_PACKET_TRAILER, 9, 5);
    p.Put32(0).Put32(1).Put32(2).Put32(3);
    for (std::uint16_t type : {0, 3, 0x8001}) {
        info.payloadType = type;
        EXPECT_EQ(Trailer(p, done), GC_ERR_NOT_IMPLEMENTED) << type;
    }
    EXPECT_FALSE(done);
    EXPECT_FALSE(buffer.trailerSeen);
    info.payloadType = 1;
    EXPECT_EQ(ParseGVSPTrailer(info, p.data(), 15, &buffer, done, HeaderOf(p)),
              GC_ERR_INVALID_BUFFER);
    EXPECT_FALSE(buffer.trailerSeen);
}

// --- payload ------------------------------------------------------------------------

TEST_F(GvspParserTest, OversizedBlockIsCutAtTheBufferEnd) {
    // The leader claims 100 bytes; the buffer holds 64.
    ASSERT_EQ(Leader(ImageLeader(false, 1, 1, 0x01080001, 10, 10)), GC_ERR_SUCCESS);
    ASSERT_EQ(Payload(Data(4, 16, 0x44)), GC_ERR_SUCCESS); // 48 to 63: fits
    EXPECT_FALSE(buffer.dataLargerThanBuffer);
    ASSERT_EQ(Payload(Data(5, 16, 0x55)), GC_ERR_SUCCESS); // 64 on: no room
    EXPECT_TRUE(buffer.dataLargerThanBuffer);
    EXPECT_EQ(buffer.receivedBytes, 16U);
    // Later data packets are counted but not copied.
    ASSERT_EQ(Payload(Data(1, 16, 0x11)), GC_ERR_SUCCESS);
    EXPECT_EQ(memory[0], 0);
    EXPECT_EQ(buffer.receivedBytes, 16U);
    EXPECT_EQ(buffer.receivedPackets, 3U);
    EXPECT_TRUE(buffer.IsPacketSeen(1));
    EXPECT_EQ(memory[63], 0x44);

    // A packet that claims more than its share is cut at the end as well.
    Buffer other;
    other.base = memory.data();
    other.size = 56;
    other.dataSize = 64;
    Packet p = Data(3, 40, 0x33); // starts at 32: 24 bytes fit
    ASSERT_EQ(ParseGVSPPayload(info, p.data(), p.size(), &other, HeaderOf(p)), GC_ERR_SUCCESS);
    EXPECT_TRUE(other.dataLargerThanBuffer);
    EXPECT_EQ(other.receivedBytes, 24U);
    EXPECT_EQ(memory[55], 0x33);
    EXPECT_EQ(memory[56], 0x44);
}

TEST_F(GvspParserTest, PayloadRefusesBadPlacesAndTypes) {
    ASSERT_EQ(Leader(ImageLeader(false, 1, 1, 0x01080001, 8, 4)), GC_ERR_SUCCESS); // 32 bytes
    // Packet id 0 lies before the buffer; id 4 starts beyond dataSize.
    EXPECT_EQ(Payload(Data(0, 16, 1)), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(Payload(Data(4, 16, 1)), GC_ERR_INVALID_PARAMETER);
    // An id whose place wraps the 32-bit offset negative.
    EXPECT_EQ(Payload(Data(0xFFFFFF, 16, 1, false)), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(Payload(Data(0xFFFFFFFF, 16, 1, true)), GC_ERR_INVALID_PARAMETER);
    EXPECT_FALSE(buffer.IsPacketSeen(0));
    EXPECT_EQ(buffer.receivedPackets, 0U);
    EXPECT_EQ(buffer.receivedBytes, 0U);

    for (std::uint16_t type : {0, 3, 0x8000}) {
        info.payloadType = type;
        EXPECT_EQ(Payload(Data(1, 16, 1)), GC_ERR_NOT_IMPLEMENTED) << type;
    }
    info.payloadType = 4;
    EXPECT_EQ(Payload(Data(1, 16, 1)), GC_ERR_SUCCESS);
    info.payloadType = 0x4001;
    EXPECT_EQ(Payload(Data(2, 16, 2)), GC_ERR_SUCCESS);
    EXPECT_EQ(buffer.receivedBytes, 32U);

    // A packet size below the headers: every place but the first is negative.
    info.packetSize = 10;
    EXPECT_EQ(Payload(Data(2, 16, 1)), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(Payload(Data(1, 16, 7)), GC_ERR_SUCCESS);
    EXPECT_EQ(memory[0], 7);
}

} // namespace
