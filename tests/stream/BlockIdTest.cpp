// Block id arithmetic across the wrap of both id spaces, and the payload
// type conversion.
#include <gtest/gtest.h>

#include "GenTL_KESTA.h"
#include "stream/BlockId.h"
#include "stream/Buffer.h"
#include "stream/PayloadType.h"

namespace {

using namespace GenTL;

constexpr std::uint64_t kTop64 = 0xFFFFFFFFFFFFFFFFUL;

TEST(BlockIdTest, IncrementAndDiffSkipZeroAtTheWrap) {
    EXPECT_EQ(IncrementBlockId(65534, false), 65535UL);
    EXPECT_EQ(IncrementBlockId(65535, false), 1UL);
    EXPECT_EQ(IncrementBlockId(70000, false), 1UL);
    EXPECT_EQ(IncrementBlockId(65535, true), 65536UL);
    EXPECT_EQ(IncrementBlockId(kTop64, true), 1UL);

    EXPECT_EQ(DiffBlockId(10, 7, false), 3UL);
    EXPECT_EQ(DiffBlockId(5, 5, true), 0UL);
    EXPECT_EQ(DiffBlockId(1, 65535, false), 1UL);
    EXPECT_EQ(DiffBlockId(3, 65534, false), 4UL);
    EXPECT_EQ(DiffBlockId(2, kTop64 - 1, true), 3UL);
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
    EXPECT_EQ(CompareBlockIds(1, 30000, false), BLOCK_ID_BEHIND);

    EXPECT_EQ(CompareBlockIds(kTop64, 1, true), BLOCK_ID_BEHIND);
    EXPECT_EQ(CompareBlockIds(1, kTop64, true), BLOCK_ID_AHEAD);
    EXPECT_EQ(CompareBlockIds(0x8000000000000001UL, 1, true), BLOCK_ID_AHEAD);
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
        {1, 0x81080B02, 1001, true, false}, // a custom pixel format
        {4, 0, PAYLOAD_TYPE_CHUNK_DATA, true, true},
        {0x4001, 0x82180A03, 1002, true, true},
        {0x7FFF, 0, PAYLOAD_TYPE_UNKNOWN, false, false},
        {0x8000, 0, PAYLOAD_TYPE_DEVICE_SPECIFIC, false, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.gvsp);
        Buffer buffer;
        buffer.pixelFormat = row.pixelFormat;
        EXPECT_EQ(SwitchPayloadType(row.gvsp, &buffer), 0);
        EXPECT_EQ(buffer.payloadType, row.payloadType);
        EXPECT_EQ(buffer.imagePresent, row.imagePresent);
        EXPECT_EQ(buffer.containsChunkData, row.chunks);
    }
    // File leaves imagePresent as it was; an unknown type clears it.
    Buffer buffer;
    buffer.imagePresent = true;
    SwitchPayloadType(3, &buffer);
    EXPECT_TRUE(buffer.imagePresent);
    SwitchPayloadType(5, &buffer);
    EXPECT_FALSE(buffer.imagePresent);
}

} // namespace
