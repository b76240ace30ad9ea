// Stream 0 of a simulated camera as a consumer drives it through the
// exported functions: announce, queue, the new-buffer event, start and stop
// (no images: the camera is not started), what the camera's stream channel
// holds meanwhile, flush and revoke, and the refusals while grabbing, which
// the unit tests list in full. Images are the grab tests' part.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CameraTestBed.h"

namespace {

constexpr uint64_t kScp = 0x0D00;
constexpr uint64_t kScda = 0x0D18;

class StreamTest : public kesta_device::CameraTest {
protected:
    /// Announces two buffers of the test's memory and one of the stream's.
    void AnnounceThree() {
        for (int i = 0; i < 2; ++i) {
            BUFFER_HANDLE h = nullptr;
            ASSERT_EQ(Lib().DSAnnounceBuffer(m_stream, m_memory[i].data(), m_memory[i].size(),
                                             &m_tags[i], &h),
                      GC_ERR_SUCCESS)
                << Lib().TakeLastError().text;
            m_buffers.push_back(h);
        }
        BUFFER_HANDLE h = nullptr;
        ASSERT_EQ(Lib().DSAllocAndAnnounceBuffer(m_stream, kSize, &m_tags[2], &h), GC_ERR_SUCCESS);
        m_buffers.push_back(h);
    }

    template <typename T> T StreamInfo(STREAM_INFO_CMD cmd, INFO_DATATYPE expectedType) {
        INFO_DATATYPE type = -1;
        size_t size = 0;
        EXPECT_EQ(Lib().DSGetInfo(m_stream, cmd, &type, nullptr, &size), GC_ERR_SUCCESS) << cmd;
        EXPECT_EQ(size, sizeof(T)) << cmd;
        T value{};
        size = sizeof value;
        EXPECT_EQ(Lib().DSGetInfo(m_stream, cmd, &type, &value, &size), GC_ERR_SUCCESS)
            << cmd << Lib().TakeLastError().text;
        EXPECT_EQ(type, expectedType) << cmd;
        return value;
    }
    template <typename T>
    T BufferInfo(BUFFER_HANDLE h, BUFFER_INFO_CMD cmd, INFO_DATATYPE expectedType) {
        INFO_DATATYPE type = -1;
        T value{};
        size_t size = sizeof value;
        EXPECT_EQ(Lib().DSGetBufferInfo(m_stream, h, cmd, &type, &value, &size), GC_ERR_SUCCESS)
            << cmd << Lib().TakeLastError().text;
        EXPECT_EQ(type, expectedType) << cmd;
        EXPECT_EQ(size, sizeof value) << cmd;
        return value;
    }
    static constexpr size_t kSize = 4096;
    std::vector<char> m_memory[2] = {std::vector<char>(kSize), std::vector<char>(kSize)};
    int m_tags[3] = {};
    std::vector<BUFFER_HANDLE> m_buffers;
};

TEST_F(StreamTest, AnnounceQueueGrabStopFlushRevoke) {
    OpenStream();
    AnnounceThree();
    EXPECT_EQ(StreamInfo<uint64_t>(STREAM_INFO_NUM_ANNOUNCED, INFO_DATATYPE_UINT64), 3u);
    for (uint32_t i = 0; i < 3; ++i) {
        BUFFER_HANDLE h = nullptr;
        ASSERT_EQ(Lib().DSGetBufferID(m_stream, i, &h), GC_ERR_SUCCESS);
        EXPECT_EQ(h, m_buffers[i]);
    }
    BUFFER_HANDLE none = nullptr;
    EXPECT_EQ(Lib().DSGetBufferID(m_stream, 3, &none), GC_ERR_INVALID_INDEX);
    // A fresh buffer: its memory and tag, unqueued, and no image facts yet.
    BUFFER_HANDLE h = m_buffers[0];
    EXPECT_EQ(BufferInfo<void*>(h, BUFFER_INFO_BASE, INFO_DATATYPE_PTR), m_memory[0].data());
    EXPECT_EQ(BufferInfo<void*>(h, BUFFER_INFO_USER_PTR, INFO_DATATYPE_PTR), &m_tags[0]);
    EXPECT_FALSE(BufferInfo<bool8_t>(h, BUFFER_INFO_IS_QUEUED, INFO_DATATYPE_BOOL8));
    INFO_DATATYPE type = 0;
    uint64_t width = 0;
    size_t size = sizeof width;
    EXPECT_EQ(Lib().DSGetBufferInfo(m_stream, h, BUFFER_INFO_WIDTH, &type, &width, &size),
              GC_ERR_NOT_AVAILABLE);
    ASSERT_EQ(Lib().DSQueueBuffer(m_stream, m_buffers[0]), GC_ERR_SUCCESS);
    EXPECT_TRUE(BufferInfo<bool8_t>(h, BUFFER_INFO_IS_QUEUED, INFO_DATATYPE_BOOL8));
    ASSERT_EQ(Lib().DSQueueBuffer(m_stream, m_buffers[1]), GC_ERR_SUCCESS);
    EXPECT_EQ(StreamInfo<uint64_t>(STREAM_INFO_NUM_QUEUED, INFO_DATATYPE_UINT64), 2u);

    EVENT_HANDLE event = nullptr;
    ASSERT_EQ(Lib().GCRegisterEvent(m_stream, EVENT_NEW_BUFFER, &event), GC_ERR_SUCCESS)
        << Lib().TakeLastError().text;
    EVENT_HANDLE second = nullptr;
    EXPECT_EQ(Lib().GCRegisterEvent(m_stream, EVENT_NEW_BUFFER, &second), GC_ERR_RESOURCE_IN_USE);

    ASSERT_EQ(Lib().DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE),
              GC_ERR_SUCCESS)
        << Lib().TakeLastError().text;
    EXPECT_TRUE(StreamInfo<bool8_t>(STREAM_INFO_IS_GRABBING, INFO_DATATYPE_BOOL8));
    EXPECT_EQ(StreamInfo<uint64_t>(STREAM_INFO_NUM_STARTED, INFO_DATATYPE_UINT64), 2u);
    // The camera streams to this host now.
    EXPECT_NE(ReadCamera(kScp) & 0xFFFF, 0u);
    EXPECT_EQ(ReadCamera(kScda), kesta_netns::ParseIp(kesta_device::Env("KESTA_NETNS_HOST_IP")));

    // Refusals while grabbing; queueing goes on.
    BUFFER_HANDLE more = nullptr;
    std::vector<char> memory(kSize);
    EXPECT_EQ(Lib().DSAnnounceBuffer(m_stream, memory.data(), memory.size(), nullptr, &more),
              GC_ERR_BUSY);
    EXPECT_EQ(Lib().DSAllocAndAnnounceBuffer(m_stream, kSize, nullptr, &more), GC_ERR_BUSY);
    EXPECT_EQ(Lib().DSRevokeBuffer(m_stream, m_buffers[0], nullptr, nullptr), GC_ERR_BUSY);
    EXPECT_EQ(Lib().DSFlushQueue(m_stream, ACQ_QUEUE_ALL_DISCARD), GC_ERR_BUSY);
    EXPECT_EQ(Lib().DSFlushQueue(m_stream, ACQ_QUEUE_ALL_TO_INPUT), GC_ERR_BUSY);
    EXPECT_EQ(Lib().DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, 1),
              GC_ERR_RESOURCE_IN_USE);
    ASSERT_EQ(Lib().DSQueueBuffer(m_stream, m_buffers[2]), GC_ERR_SUCCESS);
    EXPECT_EQ(StreamInfo<uint64_t>(STREAM_INFO_NUM_QUEUED, INFO_DATATYPE_UINT64), 3u);

    // No images while the camera is not started: the wait times out.
    S_EVENT_NEW_BUFFER data{};
    size = sizeof data;
    EXPECT_EQ(Lib().EventGetData(event, &data, &size, 100), GC_ERR_TIMEOUT);
    EXPECT_EQ(Lib().DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_KILL), GC_ERR_NOT_IMPLEMENTED);
    EXPECT_TRUE(StreamInfo<bool8_t>(STREAM_INFO_IS_GRABBING, INFO_DATATYPE_BOOL8));

    ASSERT_EQ(Lib().DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS)
        << Lib().TakeLastError().text;
    EXPECT_FALSE(StreamInfo<bool8_t>(STREAM_INFO_IS_GRABBING, INFO_DATATYPE_BOOL8));
    EXPECT_EQ(StreamInfo<uint64_t>(STREAM_INFO_NUM_STARTED, INFO_DATATYPE_UINT64), 0u);
    EXPECT_EQ(ReadCamera(kScp) & 0xFFFF, 0u);
    EXPECT_EQ(Lib().DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT), GC_ERR_RESOURCE_IN_USE);

    // A second start and stop work on the same buffers.
    ASSERT_EQ(Lib().DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, 10), GC_ERR_SUCCESS)
        << Lib().TakeLastError().text;
    ASSERT_EQ(Lib().DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS);

    ASSERT_EQ(Lib().DSFlushQueue(m_stream, ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS);
    EXPECT_EQ(StreamInfo<uint64_t>(STREAM_INFO_NUM_QUEUED, INFO_DATATYPE_UINT64), 0u);
    for (int i = 0; i < 3; ++i) {
        void* memoryBack = reinterpret_cast<void*>(1);
        void* userBack = nullptr;
        ASSERT_EQ(Lib().DSRevokeBuffer(m_stream, m_buffers[i], &memoryBack, &userBack),
                  GC_ERR_SUCCESS)
            << Lib().TakeLastError().text;
        EXPECT_EQ(memoryBack, i < 2 ? static_cast<void*>(m_memory[i].data()) : nullptr);
        EXPECT_EQ(userBack, &m_tags[i]);
    }
    EXPECT_EQ(StreamInfo<uint64_t>(STREAM_INFO_NUM_ANNOUNCED, INFO_DATATYPE_UINT64), 0u);
    EXPECT_EQ(Lib().DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, 1),
              GC_ERR_INVALID_BUFFER);

    ASSERT_EQ(Lib().GCUnregisterEvent(m_stream, EVENT_NEW_BUFFER), GC_ERR_SUCCESS);
    EXPECT_EQ(Lib().GCUnregisterEvent(m_stream, EVENT_NEW_BUFFER), GC_ERR_NOT_INITIALIZED);
    ASSERT_EQ(Lib().DSClose(m_stream), GC_ERR_SUCCESS);
    m_stream = nullptr;
}

TEST_F(StreamTest, AViewerCannotRedirectTheStream) {
    OpenStream(DEVICE_ACCESS_READONLY);
    AnnounceThree();
    ASSERT_EQ(Lib().DSFlushQueue(m_stream, ACQ_QUEUE_UNQUEUED_TO_INPUT), GC_ERR_SUCCESS);
    EXPECT_EQ(Lib().DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE),
              GC_ERR_RESOURCE_IN_USE);
    Lib().TakeLastError();
    EXPECT_FALSE(StreamInfo<bool8_t>(STREAM_INFO_IS_GRABBING, INFO_DATATYPE_BOOL8));
    ASSERT_EQ(Lib().DSFlushQueue(m_stream, ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS);
    for (BUFFER_HANDLE h : m_buffers) {
        EXPECT_EQ(Lib().DSRevokeBuffer(m_stream, h, nullptr, nullptr), GC_ERR_SUCCESS);
    }
}

} // namespace
