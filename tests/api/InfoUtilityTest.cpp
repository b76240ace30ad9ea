// The size and type rules of the info marshalling (size queries are made by
// every test of tests/netns).

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/InfoUtility.h"

namespace {

using GenTL::Error;
using GenTL::ErrorCache;
using GenTL::InfoUtility;

class InfoUtilityTest : public ::testing::Test {
protected:
    void SetUp() override { ErrorCache::GetErrorCache()->Clear(); }
    void TearDown() override { ErrorCache::ReleaseErrorCache(); }

    static bool Recorded() { return ErrorCache::GetErrorCache()->Count() == 1; }

    const InfoUtility info;
    int type = -1;
};

TEST_F(InfoUtilityTest, StringClearsTheWholeBufferGiven) {
    char buffer[16];
    std::memset(buffer, 'x', sizeof(buffer));
    unsigned long size = 6;
    ASSERT_EQ(info.SetInfo(std::string("hello"), &type, buffer, &size, false), GC_ERR_SUCCESS);
    EXPECT_STREQ(buffer, "hello");
    EXPECT_EQ(buffer[6], 'x');

    std::memset(buffer, 'x', sizeof(buffer));
    size = sizeof(buffer);
    ASSERT_EQ(info.SetInfo(std::string("hi"), &type, buffer, &size, false), GC_ERR_SUCCESS);
    EXPECT_EQ(size, 3u);
    for (std::size_t i = 2; i < sizeof(buffer); ++i) {
        EXPECT_EQ(buffer[i], '\0') << i;
    }
}

TEST_F(InfoUtilityTest, QuietFailuresRecordNothing) {
    unsigned char buffer[1] = {};
    unsigned long size = 1;
    EXPECT_EQ(info.SetInfo(1.0, &type, buffer, &size, true), GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(info.SetInfo(std::string("ab"), &type, buffer, &size, true), GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(info.SetInfo(1, nullptr, buffer, &size, true), GC_ERR_INVALID_PARAMETER);
    unsigned int value = 0;
    EXPECT_EQ(info.GetInfo(INFO_DATATYPE_UINT64, buffer, 4, value, true), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(info.GetInfo(INFO_DATATYPE_UINT32, nullptr, 4, value, true), GC_ERR_INVALID_BUFFER);
    EXPECT_FALSE(Recorded());
}

TEST_F(InfoUtilityTest, GetInfoChecksTypeThenSize) {
    unsigned char raw[8] = {};
    const unsigned int stored = 0x01020304;
    std::memcpy(raw, &stored, sizeof(stored));

    unsigned int value = 0;
    EXPECT_EQ(info.GetInfo(INFO_DATATYPE_UINT64, raw, sizeof(raw), value, false),
              GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(info.GetInfo(INFO_DATATYPE_UINT32, raw, 3, value, false), GC_ERR_INVALID_BUFFER);
    EXPECT_EQ(info.GetInfo(INFO_DATATYPE_UINT32, nullptr, 4, value, false), GC_ERR_INVALID_BUFFER);
    ASSERT_EQ(info.GetInfo(INFO_DATATYPE_UINT32, raw, 4, value, false), GC_ERR_SUCCESS);
    EXPECT_EQ(value, stored);

    // Minimum sizes at their edges.
    long l = 0;
    EXPECT_EQ(info.GetInfo(INFO_DATATYPE_INT64, raw, 7, l, false), GC_ERR_INVALID_BUFFER);
    EXPECT_EQ(info.GetInfo(INFO_DATATYPE_INT64, raw, 8, l, false), GC_ERR_SUCCESS);
    bool b = false;
    EXPECT_EQ(info.GetInfo(INFO_DATATYPE_BOOL8, raw, 0, b, false), GC_ERR_INVALID_BUFFER);
    char* p = nullptr;
    EXPECT_EQ(info.GetInfo(INFO_DATATYPE_PTR, raw, 8, p, false), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(info.GetInfo(INFO_DATATYPE_BUFFER, raw, 8, p, false), GC_ERR_SUCCESS);
}

} // namespace
