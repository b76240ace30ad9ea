// The buffer's packet bitmap, its copy, and the comparisons of
// BufferUtility.
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "StreamTestSupport.h"
#include "stream/Buffer.h"
#include "stream/BufferUtility.h"

namespace {

using namespace GenTL;

using BufferTest = kesta::test::ErrorCacheTest;

TEST_F(BufferTest, BitmapIgnoresIdsBeyondItsEnd) {
    Buffer buffer;
    EXPECT_FALSE(buffer.IsPacketSeen(0));
    buffer.MarkPacketSeen(3); // no bitmap: nothing happens
    buffer.AllocatePacketBitmap(2);
    buffer.MarkPacketSeen(0);
    buffer.MarkPacketSeen(9);
    buffer.MarkPacketSeen(16); // byte 2: beyond the end
    buffer.MarkPacketSeen(0xFFFFFFFF);
    EXPECT_EQ(buffer.packetBitmap[0], 0x80);
    EXPECT_EQ(buffer.packetBitmap[1], 0x40);
    EXPECT_TRUE(buffer.IsPacketSeen(9));
    EXPECT_FALSE(buffer.IsPacketSeen(10));
    EXPECT_FALSE(buffer.IsPacketSeen(16));
    buffer.AllocatePacketBitmap(0);
    EXPECT_EQ(buffer.packetBitmap, nullptr);
    EXPECT_FALSE(buffer.IsPacketSeen(0));
}

TEST_F(BufferTest, CopyDuplicatesOwnMemoryAndSharesUserMemory) {
    std::vector<std::uint8_t> memory = {1, 2, 3, 4};
    Buffer source;
    source.base = memory.data();
    source.size = source.sizeFilled = source.dataSize = memory.size();
    source.frameId = 77;
    source.state = BS_OUTPUT;
    source.nextPacketDone = true;

    Buffer copy;
    copy = source;
    ASSERT_NE(copy.base, source.base);
    EXPECT_TRUE(BufferUtility::areEqual(source, copy));
    copy.base[3] = 5;
    EXPECT_TRUE(BufferUtility::areEqualMemebers(&source, &copy));
    EXPECT_FALSE(BufferUtility::areEqualDataArray(source, copy));
    delete[] copy.base;

    source.userOwned = true;
    Buffer shared;
    shared = source;
    EXPECT_EQ(shared.base, source.base);
    EXPECT_EQ(shared.frameId, 77U);
    EXPECT_EQ(shared.state, BS_OUTPUT);
    EXPECT_TRUE(shared.nextPacketDone);
    EXPECT_FALSE(BufferUtility::areEqual(static_cast<const Buffer*>(nullptr), &shared));
}

} // namespace
