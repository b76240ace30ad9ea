// Block id arithmetic across the wrap of both id spaces, and the payload
// type conversion.
#include <gtest/gtest.h>

#include "GenTL_KESTA.h"
#include "stream/BlockId.h"
#include "stream/Buffer.h"
#include "stream/PayloadType.h"

namespace {

using namespace GenTL;

TEST(BlockIdTest, IncrementSkipsZeroAtTheWrap) {
    EXPECT_EQ(IncrementBlockId(1, false), 2UL);
    EXPECT_EQ(IncrementBlockId(65534, false), 65535UL);
    EXPECT_EQ(IncrementBlockId(65535, false), 1UL);
    EXPECT_EQ(IncrementBlockId(70000, false), 1UL);
    EXPECT_EQ(IncrementBlockId(65535, true), 65536UL);
    EXPECT_EQ(IncrementBlockId(0xFFFFFFFFFFFFFFFFUL, true), 1UL);
}

TEST(BlockIdTest, DiffCountsAcrossTheWrapWithoutZero) {
    EXPECT_EQ(DiffBlockId(10, 7, false), 3UL);
    EXPECT_EQ(DiffBlockId(5, 5, true), 0UL);
    EXPECT_EQ(DiffBlockId(1, 65535, false), 1UL);
    EXPECT_EQ(DiffBlockId(3, 65534, false), 4UL);
    EXPECT_EQ(DiffBlockId(1, 0xFFFFFFFFFFFFFFFFUL, true), 1UL);
    EXPECT_EQ(DiffBlockId(2, 0xFFFFFFFFFFFFFFFEUL, true), 3UL);
}

TEST(BlockIdTest, CompareTakesHalfTheSpaceBehindAsLate) {
    EXPECT_EQ(CompareBlockIds(7, 7, false), BLOCK_ID_SAME);
    EXPECT_EQ(CompareBlockIds(8, 7, false), BLOCK_ID_AHEAD);
    EXPECT_EQ(CompareBlockIds(6, 7, false), BLOCK_ID_BEHIND);
    // Just before the wrap is late, not new; just after it is new.
    EXPECT_EQ(CompareBlockIds(65535, 1, false), BLOCK_ID_BEHIND);
    EXPECT_EQ(CompareBlockIds(1, 65535, false), BLOCK_ID_AHEAD);
    // Within half the space behind the reference (across the wrap) is late;
    // farther is new.
    EXPECT_EQ(CompareBlockIds(40000, 1, false), BLOCK_ID_BEHIND);
    EXPECT_EQ(CompareBlockIds(30000, 1, false), BLOCK_ID_AHEAD);
    EXPECT_EQ(CompareBlockIds(1, 40000, false), BLOCK_ID_AHEAD);
    EXPECT_EQ(CompareBlockIds(1, 30000, false), BLOCK_ID_BEHIND);

    EXPECT_EQ(CompareBlockIds(0xFFFFFFFFFFFFFFFFUL, 1, true), BLOCK_ID_BEHIND);
    EXPECT_EQ(CompareBlockIds(1, 0xFFFFFFFFFFFFFFFFUL, true), BLOCK_ID_AHEAD);
    EXPECT_EQ(CompareBlockIds(0x8000000000000001UL, 1, true), BLOCK_ID_AHEAD);
    EXPECT_EQ(CompareBlockIds(100, 200, true), BLOCK_ID_BEHIND);
}

TEST(PayloadTypeTest, BitsPerPixelComeFromTheFormatCode) {
    EXPECT_EQ(GetBitsPerPixel(0x01080001UL), 8UL);  // Mono8
    EXPECT_EQ(GetBitsPerPixel(0x02180014UL), 24UL); // RGB8
    EXPECT_EQ(GetBitsPerPixel(0x0110000CUL), 16UL);
}

TEST(PayloadTypeTest, GvspTypesBecomeGenTLTypes) {
    struct Row {
        unsigned long gvsp;
        unsigned long pixelFormat;
        std::uint64_t payloadType;
        bool imagePresent;
        bool chunks;
    };
    // imagePresent starts false, as the completion step leaves it.
    const Row rows[] = {
        {1, 0x01080001, PAYLOAD_TYPE_IMAGE, true, false},
        {1, 0x81080B02, 1001, true, false},
        {2, 0, PAYLOAD_TYPE_RAW_DATA, true, false},
        {3, 0, PAYLOAD_TYPE_FILE, false, false},
        {4, 0, PAYLOAD_TYPE_CHUNK_DATA, true, true},
        {5, 0, PAYLOAD_TYPE_UNKNOWN, false, false},
        {6, 0, PAYLOAD_TYPE_JPEG, true, false},
        {7, 0, PAYLOAD_TYPE_JPEG2000, true, false},
        {8, 0, PAYLOAD_TYPE_H264, false, false},
        {9, 0, PAYLOAD_TYPE_MULTI_PART, true, false},
        {0x4001, 0x01080001, 0x4001, true, true},
        {0x4001, 0x82180A03, 1002, true, true},
        {0x4001, 0x81080A00, 1002, true, true},
        {0x7FFF, 0, PAYLOAD_TYPE_UNKNOWN, false, false},
        {0x8000, 0, PAYLOAD_TYPE_DEVICE_SPECIFIC, false, false},
    };
    for (const Row& row : rows) {
        Buffer buffer;
        buffer.pixelFormat = row.pixelFormat;
        EXPECT_EQ(SwitchPayloadType(row.gvsp, &buffer), 0);
        EXPECT_EQ(buffer.payloadType, row.payloadType) << "gvsp type " << row.gvsp;
        EXPECT_EQ(buffer.imagePresent, row.imagePresent) << "gvsp type " << row.gvsp;
        EXPECT_EQ(buffer.containsChunkData, row.chunks) << "gvsp type " << row.gvsp;
    }
    // File and H.264 leave imagePresent as it was.
    Buffer buffer;
    buffer.imagePresent = true;
    SwitchPayloadType(3, &buffer);
    EXPECT_TRUE(buffer.imagePresent);
    // An unknown type clears it.
    SwitchPayloadType(5, &buffer);
    EXPECT_FALSE(buffer.imagePresent);

    EXPECT_TRUE(IsImagePayloadType(1001));
    EXPECT_TRUE(IsImagePayloadType(0x4001));
    EXPECT_FALSE(IsImagePayloadType(3));
    EXPECT_TRUE(IsChunkPayloadType(4));
    EXPECT_FALSE(IsChunkPayloadType(1001));
}

} // namespace
