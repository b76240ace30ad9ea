// Wire helpers, request ids, the status table and the override file.
#include <gtest/gtest.h>

#include <sstream>

#include "GenTL_KESTA.h"
#include "GvcpTestPeer.h"
#include "hal/BaseHandle.h"
#include "hal/GvcpSettingsFile.h"
#include "hal/GvcpWire.h"

namespace GenTL {
namespace {

using namespace testing_gvcp;

TEST(GvcpWireTest, ReadsOutsideTheBufferGiveZeroAndWritesThereAreDropped) {
    std::uint8_t buffer[6] = {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC};
    EXPECT_EQ(0x12345678u, gvcp::GetU32(buffer, sizeof buffer, 0));
    EXPECT_EQ(0u, gvcp::GetU32(buffer, sizeof buffer, 3));
    EXPECT_EQ(0u, gvcp::GetU16(buffer, sizeof buffer, 5));
    EXPECT_EQ(0u, gvcp::GetU16(buffer, sizeof buffer, SIZE_MAX));
    gvcp::PutU32(buffer, sizeof buffer, 4, 0xFFFFFFFF);
    EXPECT_EQ(0x9ABCu, gvcp::GetU16(buffer, sizeof buffer, 4));
    // Strings end at a zero or at the buffer's end.
    const std::uint8_t open[] = {'x', 'y', 0, 'z'};
    EXPECT_EQ("xy", gvcp::GetString(open, sizeof open, 0));
    EXPECT_EQ("z", gvcp::GetString(open, sizeof open, 3));
    EXPECT_EQ("", gvcp::GetString(open, sizeof open, 100));
}

TEST(GvcpWireTest, RequestIdsRunFrom2To65535ThenWrapTo1) {
    BaseHandle handle;
    EXPECT_EQ(2, GetReqID(&handle));
    handle.requestId = 65534;
    EXPECT_EQ(65535, GetReqID(&handle));
    EXPECT_EQ(1, GetReqID(&handle));
    EXPECT_EQ(2, GetReqID(&handle));
}

GvcpSettings Apply(const std::string& text) {
    GvcpSettings settings;
    std::istringstream in(text);
    GvcpSettingsFile::Apply(in, settings);
    return settings;
}

TEST(GvcpSettingsFileTest, GoodLines) {
    GvcpSettings s = Apply("gvcp.maxRetries 7\ngvcp.timeout 350 trailing words\n");
    EXPECT_EQ(7u, s.numRetries);
    EXPECT_EQ(350, s.timeoutMs);
    EXPECT_TRUE(s.timeoutOverridden);

    s = Apply("  GVCP.MAXRETRIES   -1\n\n\t\nGvcp.Timeout 20000\n");
    EXPECT_EQ(100u, s.numRetries) << "negative counts as a large unsigned number";
    EXPECT_EQ(10000, s.timeoutMs);
}

TEST(GvcpSettingsFileTest, BadLinesLeaveTheSetting) {
    const GvcpSettings s = Apply("gvcp.maxRetries lots\n"
                                 "gvcp.maxRetries 99999999999999999999999\n"
                                 "gvcp.timeout 0\n"
                                 "gvcp.timeout -5\n"
                                 "gvcp.timeout soon\n"
                                 "gvcp.timeout\n"
                                 "# gvcp.timeout 5\n"
                                 "gvcp.unknown 5\n");
    EXPECT_EQ(3u, s.numRetries);
    EXPECT_EQ(200, s.timeoutMs);
    EXPECT_FALSE(s.timeoutOverridden);
}

} // namespace
} // namespace GenTL
