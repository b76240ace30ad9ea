// The buffer as a module behind a handle, its packet bitmap, its copy, and
// the comparisons of BufferUtility.
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "StreamTestSupport.h"
#include "api/GenTLHandle.h"
#include "stream/Buffer.h"
#include "stream/BufferUtility.h"

namespace {

using namespace GenTL;
using StreamTest::ErrorCacheTest;
using StreamTest::LastErrorText;

using BufferTest = ErrorCacheTest;

TEST_F(BufferTest, HasNoPort) {
    Buffer buffer;
    unsigned long size = 4;
    char data[4] = {};
    unsigned int count = 0;
    int type = 0;
    void* event = nullptr;
    S_PORT_REGISTER_STACK_ENTRY entry{};
    const int answers[] = {
        buffer.ReadPort(0, data, &size),       buffer.WritePort(0, data, &size),
        buffer.GetPortURL(data, &size),        buffer.GetPortInfo(0, &type, data, &size),
        buffer.RegisterEvent(1, &event),       buffer.UnregisterEvent(1),
        buffer.GetNumPortURLs(&count),         buffer.GetPortURLInfo(0, 0, &type, data, &size),
        buffer.ReadPortStacked(&entry, &size), buffer.WritePortStacked(&entry, &size),
    };
    for (int rc : answers) {
        EXPECT_EQ(rc, GC_ERR_NOT_IMPLEMENTED);
    }
    EXPECT_EQ(LastErrorText().find("WritePortStacked():"), 0U);
    EXPECT_NE(LastErrorText().find("GenTL::GC_ERR_NOT_IMPLEMENTED(-1003)"), std::string::npos);
}

TEST_F(BufferTest, HandleLeadsBackToTheBufferOnly) {
    Buffer buffer;
    void* handle = nullptr;
    ASSERT_EQ(AllocateHandle(&handle, static_cast<IBuffer*>(&buffer)), GC_ERR_SUCCESS);
    EXPECT_EQ(CastHandleToBufferPtr(handle), &buffer);
    EXPECT_EQ(CastHandleToBufferPtr(nullptr), nullptr);
    std::uint64_t garbage[2] = {0x1234, 0};
    EXPECT_EQ(CastHandleToBufferPtr(garbage), nullptr);
    EXPECT_EQ(ErrorCache::GetErrorCache()->Count(), 1);
    DeleteHandle(handle);
}

TEST_F(BufferTest, BitmapIgnoresIdsBeyondItsEnd) {
    Buffer buffer;
    EXPECT_FALSE(buffer.IsPacketSeen(0));
    buffer.MarkPacketSeen(3); // no bitmap: nothing happens
    buffer.AllocatePacketBitmap(2);
    ASSERT_EQ(buffer.packetBitmapSize, 2U);
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
    source.size = memory.size();
    source.sizeFilled = 4;
    source.dataSize = 4;
    source.frameId = 77;
    source.width = 2;
    source.trailerSizeY = 9;
    source.state = BS_OUTPUT;

    Buffer copy;
    copy = source;
    ASSERT_NE(copy.base, source.base);
    EXPECT_EQ(std::memcmp(copy.base, memory.data(), 4), 0);
    EXPECT_TRUE(BufferUtility::areEqual(source, copy));
    delete[] copy.base;

    source.userOwned = true;
    Buffer shared;
    shared = source;
    EXPECT_EQ(shared.base, source.base);
    EXPECT_EQ(shared.frameId, 77U);
    EXPECT_EQ(shared.state, BS_OUTPUT);
}

TEST_F(BufferTest, UtilityComparesMembersAndDataInEveryForm) {
    std::uint8_t left[4] = {1, 2, 3, 4};
    std::uint8_t right[4] = {1, 2, 3, 4};
    Buffer a;
    Buffer b;
    a.base = left;
    b.base = right;
    a.size = b.size = a.sizeFilled = b.sizeFilled = a.dataSize = b.dataSize = 4;
    void* ha = nullptr;
    void* hb = nullptr;
    AllocateHandle(&ha, static_cast<IBuffer*>(&a));
    AllocateHandle(&hb, static_cast<IBuffer*>(&b));
    EXPECT_TRUE(
        BufferUtility::areEqual(static_cast<GenTLHandle*>(ha), static_cast<GenTLHandle*>(hb)));
    right[3] = 5;
    EXPECT_TRUE(BufferUtility::areEqualMemebers(&a, &b));
    EXPECT_FALSE(BufferUtility::areEqualDataArray(static_cast<IBuffer*>(&a), &b));
    right[3] = 4;
    b.frameId = 2;
    EXPECT_FALSE(BufferUtility::areEqualMemebers(a, b));
    b.frameId = 0;
    a.dataSize = 3; // matched against the right sizeFilled
    EXPECT_FALSE(BufferUtility::areEqualDataArray(a, b));
    EXPECT_TRUE(BufferUtility::areEqualDataArray(b, a));
    EXPECT_FALSE(BufferUtility::areEqual(static_cast<const Buffer*>(nullptr), &b));
    EXPECT_FALSE(
        BufferUtility::areEqual(static_cast<GenTLHandle*>(nullptr), static_cast<GenTLHandle*>(hb)));
    DeleteHandle(ha);
    DeleteHandle(hb);

    EXPECT_EQ(BufferUtility::getStateAsStr(0), "BS_ANNOUNCE");
    EXPECT_EQ(BufferUtility::getStateAsStr(5), "BS_UNKNOWN");
    EXPECT_EQ(BufferUtility::getStateAsStr(-1), "STATUS IS IN ENUM");
}

} // namespace
