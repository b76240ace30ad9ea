// What both event kinds share: the info commands, the data info answers,
// and the refusals of a module without a port.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "api/Error.h"
#include "events/MCBuffer.h"
#include "events/MessageChannel.h"
#include "events/RemoteDeviceEvent.h"

namespace {

class EventTest : public ::testing::Test {
protected:
    void SetUp() override { GenTL::ErrorCache::GetErrorCache()->Clear(); }
    void TearDown() override { GenTL::ErrorCache::ReleaseErrorCache(); }

    std::string LastErrorText() {
        GenTL::Error e;
        return GenTL::ErrorCache::GetErrorCache()->Peak(e) == GC_ERR_SUCCESS ? e.Message() : "";
    }

    GenTL::MessageChannel channel;
    GenTL::RemoteDeviceEvent event{&channel};
};

TEST_F(EventTest, InfoCommands) {
    int type = 0;
    std::int32_t kind = 0;
    unsigned long size = sizeof kind;
    ASSERT_EQ(event.GetInfo(EVENT_EVENT_TYPE, &type, &kind, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(type, INFO_DATATYPE_INT32);
    EXPECT_EQ(kind, EVENT_REMOTE_DEVICE);
    std::uint64_t value = 0;
    size = sizeof value;
    ASSERT_EQ(event.GetInfo(EVENT_SIZE_MAX, &type, &value, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(type, INFO_DATATYPE_UINT64);
    EXPECT_EQ(value, 576u);
    ASSERT_EQ(event.GetInfo(EVENT_INFO_DATA_SIZE_MAX, &type, &value, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(value, 256u);
    ASSERT_EQ(event.GetInfo(EVENT_NUM_FIRED, &type, &value, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(event.GetInfo(5, &type, &value, &size), GC_ERR_INVALID_INDEX);
    EXPECT_NE(LastErrorText().find("iInfoCmd must be one of :\nGenTL::EVENT_EVENT_TYPE, "
                                   "GenTL::EVENT_NUM_IN_QUEUE, GenTL::EVENT_NUM_FIRED, "
                                   "\nGenTL::EVENT_SIZE_MAX, GenTL::EVENT_INFO_DATA_SIZE_MAX"),
              std::string::npos);
}

TEST_F(EventTest, DataInfoGivesTheNewBufferTextsForBothKinds) {
    const char datum[4] = {};
    int type = 0;
    char text[32] = {};
    unsigned long size = sizeof text;
    ASSERT_EQ(event.GetDataInfo(datum, sizeof datum, EVENT_DATA_ID, &type, text, &size),
              GC_ERR_SUCCESS);
    EXPECT_EQ(type, INFO_DATATYPE_STRING);
    EXPECT_STREQ(text, "New Buffer Event");
    size = sizeof text;
    ASSERT_EQ(event.GetDataInfo(datum, sizeof datum, EVENT_DATA_VALUE, &type, text, &size),
              GC_ERR_SUCCESS);
    EXPECT_STREQ(text, "No buffer data value");
    EXPECT_EQ(event.GetDataInfo(datum, sizeof datum, EVENT_DATA_NUMID, &type, text, &size),
              GC_ERR_NOT_AVAILABLE);
    EXPECT_EQ(event.GetDataInfo(datum, sizeof datum, 3, &type, text, &size), GC_ERR_INVALID_INDEX);

    EXPECT_EQ(event.GetDataInfo(nullptr, 4, EVENT_DATA_ID, &type, text, &size),
              GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(event.GetDataInfo(datum, 0, EVENT_DATA_ID, &type, text, &size),
              GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(event.GetDataInfo(datum, 4, EVENT_DATA_ID, nullptr, text, &size),
              GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(event.GetDataInfo(datum, 4, EVENT_DATA_ID, &type, text, nullptr),
              GC_ERR_INVALID_PARAMETER);
}

TEST_F(EventTest, AnEventHasNoPort) {
    unsigned long size = 4;
    char buffer[4] = {};
    EXPECT_EQ(event.ReadPort(0, buffer, &size), GC_ERR_NOT_IMPLEMENTED);
    EXPECT_NE(LastErrorText().find("GenTL::GC_ERR_NOT_IMPLEMENTED(-1003)"), std::string::npos);
    int type = 0;
    EXPECT_EQ(event.GetPortInfo(PORT_INFO_ID, &type, buffer, &size), GC_ERR_NOT_IMPLEMENTED);
    void* nested = nullptr;
    EXPECT_EQ(event.RegisterEvent(EVENT_NEW_BUFFER, &nested), GC_ERR_NOT_IMPLEMENTED);
    unsigned int count = 0;
    EXPECT_EQ(event.GetNumPortURLs(&count), GC_ERR_NOT_IMPLEMENTED);
}

TEST(McBuffer, AssignmentCopiesIntoOwnMemory) {
    GenTL::MCBuffer a(8, nullptr);
    GenTL::MCBuffer b(4, &a);
    std::memcpy(b.data, "abcd", 4);
    b.filled = 3;
    a = b;
    EXPECT_NE(a.data, b.data);
    EXPECT_EQ(a.size, 4u);
    EXPECT_EQ(a.filled, 3u);
    EXPECT_EQ(a.userData, &a);
    EXPECT_EQ(std::memcmp(a.data, "abcd", 4), 0);
}

} // namespace
