// The data stream module on a fake GVSP layer and a fake camera: open and
// close, announce, queue, flush, revoke, the acquisition's checks and
// settings, refusals of stream and buffer info, the new-buffer event.
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "FakeGvcpForStream.h"
#include "StreamTestSupport.h"
#include "events/NewBufferEvent.h"
#include "stream/DataStreamGevTCP.h"
#include "stream/DataStreamGevUDP.h"

namespace {

using GenTL::Buffer;
using GenTL::BufferStateMachineGev;
using GenTL::DataStreamGevTCP;
using GenTL::DataStreamGevUDP;
using GenTL::GenTLHandle;
using GenTL::IEvent;
using StreamTest::BufferOf;
using StreamTest::LastErrorText;
using StreamTest::StateOf;

int g_parent; // stands for the device's handle

template <typename Value> Value Info(DataStreamGevUDP& s, int cmd, int expectedType) {
    Value value{};
    int type = -1;
    unsigned long size = sizeof value;
    EXPECT_EQ(s.GetInfo(cmd, &type, &value, &size), GC_ERR_SUCCESS) << cmd;
    EXPECT_EQ(type, expectedType) << cmd;
    EXPECT_EQ(size, sizeof value) << cmd;
    return value;
}

class UdpStreamTest : public StreamTest::ErrorCacheTest {
protected:
    UdpStreamTest() : gvcp(link), stream(&gvcp, nullptr, &g_parent, 0, DEVICE_ACCESS_CONTROL) {
        gvcp.regs[0x0934] = 0x4; // packet resend
        gvsp = new kesta::test::FakeGvsp();
    }
    ~UdpStreamTest() override {
        if (!opened) {
            delete gvsp;
        }
    }
    void Open() {
        ASSERT_EQ(stream.Open(gvsp), GC_ERR_SUCCESS);
        opened = true;
    }
    std::vector<void*> Announce(int count, unsigned long size = 256) {
        std::vector<void*> handles;
        for (int i = 0; i < count; ++i) {
            void* h = nullptr;
            EXPECT_EQ(stream.AllocAndAnnounceBuffer(size, &userTags[i], &h), GC_ERR_SUCCESS);
            handles.push_back(h);
        }
        return handles;
    }
    /// One finished block, as a grab loop delivers it.
    void* Deliver(std::uint64_t blockId) {
        auto* sm = dynamic_cast<BufferStateMachineGev*>(stream.GetBufferStateMachine());
        bool dummyInUse = false;
        GenTLHandle* h = sm->PopNextBuffer(nullptr, dummyInUse);
        if (h == nullptr) {
            return nullptr;
        }
        {
            Buffer* b = BufferOf(h);
            boost::lock_guard<boost::mutex> lock(b->m_mutex);
            b->frameId = blockId;
            b->isNewData = true;
            b->payloadType = PAYLOAD_TYPE_IMAGE;
            b->width = 640;
            b->height = 480;
            b->pixelFormat = 0x01080001;
            b->sizeFilled = 200;
        }
        EXPECT_EQ(sm->QueueBufferToOutput(h), GC_ERR_SUCCESS);
        return h;
    }

    kesta::test::FakeStreamLink link;
    kesta::test::FakeGvcpForStream gvcp;
    DataStreamGevUDP stream;
    kesta::test::FakeGvsp* gvsp;
    bool opened = false;
    int userTags[8] = {};
};

TEST(DataStreamConstruction, NullParentIsRefusedWithTheError) {
    GenTL::ErrorCache::GetErrorCache()->Clear();
    EXPECT_THROW(DataStreamGevUDP(nullptr, nullptr, nullptr, 0, 3), std::logic_error);
    GenTL::Error e;
    ASSERT_EQ(GenTL::ErrorCache::GetErrorCache()->Peak(e), GC_ERR_SUCCESS);
    EXPECT_EQ(e.Code(), GC_ERR_INVALID_HANDLE);
    EXPECT_NE(e.Message().find("DataStream parent device is null"), std::string::npos);
    GenTL::ErrorCache::ReleaseErrorCache();
}

TEST_F(UdpStreamTest, ClosedStreamRefusesEverything) {
    void* h = nullptr;
    int type = 0;
    unsigned long size = 8;
    std::uint64_t value = 0;
    EXPECT_FALSE(stream.IsOpen());
    EXPECT_EQ(stream.AllocAndAnnounceBuffer(64, nullptr, &h), GC_ERR_INVALID_HANDLE);
    EXPECT_NE(LastErrorText().find("DataStream is not open"), std::string::npos);
    EXPECT_EQ(stream.GetInfo(STREAM_INFO_NUM_ANNOUNCED, &type, &value, &size),
              GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(stream.StartAcquisition(0, 1), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(stream.FlushQueue(ACQ_QUEUE_ALL_DISCARD), GC_ERR_INVALID_HANDLE);
    EXPECT_NE(LastErrorText().find("the data stream is not open"), std::string::npos);
    EXPECT_EQ(stream.Close(), GC_ERR_RESOURCE_IN_USE);
}

TEST_F(UdpStreamTest, OpensOnceAndReopens) {
    Open();
    EXPECT_EQ(stream.Open(nullptr), GC_ERR_RESOURCE_IN_USE);
    EXPECT_NE(LastErrorText().find("DataStreamGevUDP is already open"), std::string::npos);
    EXPECT_EQ(stream.Close(), GC_ERR_SUCCESS);
    opened = false;
    gvsp = nullptr;
    // Reopened on a layer of its own.
    EXPECT_EQ(stream.Open(nullptr), GC_ERR_SUCCESS);
    EXPECT_EQ(stream.Close(), GC_ERR_SUCCESS);
}

TEST_F(UdpStreamTest, AnnounceQueueAndRevokeRefusals) {
    Open();
    char memory[128];
    void* h = nullptr;
    EXPECT_EQ(stream.AnnounceBuffer(nullptr, 128, nullptr, &h), GC_ERR_INVALID_PARAMETER);
    EXPECT_NE(LastErrorText().find("pBuffer==nullptr"), std::string::npos);
    EXPECT_EQ(stream.AnnounceBuffer(memory, 128, nullptr, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_NE(LastErrorText().find("phBuffer==nullptr"), std::string::npos);
    ASSERT_EQ(stream.AnnounceBuffer(memory, 128, &userTags[0], &h), GC_ERR_SUCCESS);
    EXPECT_EQ(stream.AnnounceBuffer(memory, 128, nullptr, &h), GC_ERR_RESOURCE_IN_USE);
    std::vector<void*> more = Announce(1);
    EXPECT_EQ(stream.QueueBuffer(nullptr), GC_ERR_INVALID_PARAMETER);
    ASSERT_EQ(stream.QueueBuffer(more[0]), GC_ERR_SUCCESS);
    EXPECT_EQ(stream.QueueBuffer(more[0]), GC_ERR_INVALID_BUFFER); // already queued
    EXPECT_EQ(stream.RevokeBuffer(more[0], nullptr, nullptr), GC_ERR_BUSY);

    void* memoryBack = nullptr;
    void* userBack = nullptr;
    ASSERT_EQ(stream.RevokeBuffer(h, &memoryBack, &userBack), GC_ERR_SUCCESS);
    EXPECT_EQ(memoryBack, memory);
    EXPECT_EQ(userBack, &userTags[0]);
    EXPECT_EQ(Info<std::uint64_t>(stream, STREAM_INFO_NUM_ANNOUNCED, INFO_DATATYPE_UINT64), 1u);
}

TEST_F(UdpStreamTest, StartRefusalsInTheirOrder) {
    Open();
    EXPECT_EQ(stream.StartAcquisition(0, 1), GC_ERR_INVALID_BUFFER);
    EXPECT_NE(LastErrorText().find("the announced buffers is less then the min allowed. min "
                                   "allowed is 1"),
              std::string::npos);
    Announce(1);
    EXPECT_EQ(stream.StartAcquisition(0, 0), GC_ERR_INVALID_PARAMETER);
    EXPECT_NE(LastErrorText().find("iNumToAcquire must be > 0"), std::string::npos);
    EXPECT_EQ(stream.StartAcquisition(5, 1), GC_ERR_INVALID_INDEX);
    EXPECT_EQ(gvsp->starts, 0);

    gvsp->startResult = GC_ERR_IO;
    EXPECT_EQ(stream.StartAcquisition(0, 1), GC_ERR_IO);
    EXPECT_FALSE(Info<bool>(stream, STREAM_INFO_IS_GRABBING, INFO_DATATYPE_BOOL8));
}

TEST_F(UdpStreamTest, StartAndStopHandTheSettingsToTheLayer) {
    Open();
    std::vector<void*> h = Announce(3, 4096);
    ASSERT_EQ(stream.QueueBuffer(h[0]), GC_ERR_SUCCESS);
    ASSERT_EQ(stream.QueueBuffer(h[1]), GC_ERR_SUCCESS);
    bool on = true;
    ASSERT_EQ(stream.SetInfo(STREAM_INFO_PACKET_RESEND_ENABLE, INFO_DATATYPE_BOOL8, &on, 1),
              GC_ERR_SUCCESS);
    ASSERT_EQ(stream.SetupResendRetryParams(10, 25.0, "a", nullptr, 0, 0), GC_ERR_SUCCESS);

    ASSERT_EQ(stream.StartAcquisition(ACQ_START_FLAGS_GVSP_LEGACY_ID, GENTL_INFINITE),
              GC_ERR_SUCCESS);
    EXPECT_TRUE(gvsp->legacyAsked);
    EXPECT_EQ(gvsp->started.bufferSize, 4096u);
    EXPECT_EQ(gvsp->started.accessMode, DEVICE_ACCESS_CONTROL);
    EXPECT_TRUE(gvsp->started.packetResendEnable);
    EXPECT_EQ(gvsp->started.retryWindowFrames, 10u);
    EXPECT_EQ(gvsp->started.first, "a");
    EXPECT_EQ(stream.GetStreamInfo().packetSize, 1500u);
    EXPECT_EQ(stream.GetStreamInfo().bufferExpiry, 90u);

    // While grabbing the stream does not close; a stop frees the leader wait.
    EXPECT_EQ(stream.Close(), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(stream.StopAcquisition(7), GC_ERR_INVALID_INDEX);
    ASSERT_EQ(stream.StopAcquisition(ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS);
    EXPECT_EQ(gvsp->stops, 1);
    EXPECT_GE(gvsp->leaderSignals, 1);
    EXPECT_EQ(Info<std::uint64_t>(stream, STREAM_INFO_NUM_QUEUED, INFO_DATATYPE_UINT64), 2u);
    EXPECT_EQ(stream.Close(), GC_ERR_SUCCESS);
    opened = false;
    gvsp = nullptr;
}

TEST_F(UdpStreamTest, CameraWithoutResendTurnsResendOffForGood) {
    gvcp.regs[0x0934] = 0;
    Open();
    Announce(1);
    bool on = true;
    ASSERT_EQ(stream.SetInfo(STREAM_INFO_PACKET_RESEND_ENABLE, INFO_DATATYPE_BOOL8, &on, 1),
              GC_ERR_SUCCESS);
    ASSERT_EQ(stream.StartAcquisition(0, 1), GC_ERR_SUCCESS);
    ASSERT_EQ(stream.StopAcquisition(0), GC_ERR_SUCCESS);
    EXPECT_FALSE(Info<bool>(stream, STREAM_INFO_PACKET_RESEND_ENABLE, INFO_DATATYPE_BOOL8));

    // A failed capability read does the same.
    ASSERT_EQ(stream.SetInfo(STREAM_INFO_PACKET_RESEND_ENABLE, INFO_DATATYPE_BOOL8, &on, 1),
              GC_ERR_SUCCESS);
    gvcp.readFailures[0x0934] = GC_ERR_TIMEOUT;
    ASSERT_EQ(stream.StartAcquisition(0, 1), GC_ERR_SUCCESS);
    EXPECT_FALSE(gvsp->started.packetResendEnable);
    ASSERT_EQ(stream.StopAcquisition(0), GC_ERR_SUCCESS);
}

TEST_F(UdpStreamTest, StreamInfoRefusalsAndSettings) {
    Open();
    gvcp.readFailures[0x10200000] = GC_ERR_TIMEOUT;
    EXPECT_EQ(Info<std::uint64_t>(stream, STREAM_INFO_PAYLOAD_SIZE, INFO_DATATYPE_UINT64), 0u);
    int type = 0;
    std::uint64_t value = 0;
    unsigned long size = sizeof value;
    EXPECT_EQ(stream.GetInfo(1009, &type, &value, &size), GC_ERR_INVALID_INDEX);
    EXPECT_NE(LastErrorText().find("STREAM_INFO_CMD must be one of :"), std::string::npos);
    EXPECT_EQ(stream.GetInfo(14, &type, &value, &size), GC_ERR_INVALID_INDEX);
    size = 4;
    EXPECT_EQ(stream.GetInfo(STREAM_INFO_NUM_DELIVERED, &type, &value, &size),
              GC_ERR_BUFFER_TOO_SMALL);

    long mode = 2;
    ASSERT_EQ(stream.SetInfo(STREAM_INFO_BUFFER_HANDLING_MODE, INFO_DATATYPE_INT64, &mode, 8),
              GC_ERR_SUCCESS);
    mode = 3;
    EXPECT_EQ(stream.SetInfo(STREAM_INFO_BUFFER_HANDLING_MODE, INFO_DATATYPE_INT64, &mode, 8),
              GC_ERR_INVALID_INDEX);
    EXPECT_EQ(stream.SetInfo(STREAM_INFO_BUFFER_HANDLING_MODE, INFO_DATATYPE_INT32, &mode, 8),
              GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(Info<long>(stream, STREAM_INFO_BUFFER_HANDLING_MODE, INFO_DATATYPE_INT64), 2);
    EXPECT_EQ(stream.SetInfo(STREAM_INFO_NUM_DELIVERED, INFO_DATATYPE_UINT64, &value, 8),
              GC_ERR_NOT_IMPLEMENTED);
}

TEST_F(UdpStreamTest, BufferInfoByPayloadType) {
    Open();
    char memory[256];
    void* h = nullptr;
    ASSERT_EQ(stream.AnnounceBuffer(memory, sizeof memory, &userTags[1], &h), GC_ERR_SUCCESS);
    int type = 0;
    std::uint64_t value = 0;
    unsigned long size = sizeof value;
    // No payload yet: the chunk layout is not available.
    EXPECT_EQ(stream.GetBufferInfo(h, BUFFER_INFO_CHUNKLAYOUTID, &type, &value, &size),
              GC_ERR_NOT_AVAILABLE);
    {
        Buffer* b = BufferOf(h);
        boost::lock_guard<boost::mutex> lock(b->m_mutex);
        b->payloadType = 0x4001;
        b->width = 640;
        b->isNewData = true;
    }
    ASSERT_EQ(stream.GetBufferInfo(h, BUFFER_INFO_WIDTH, &type, &value, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(value, 640u);
    // New data reads true once.
    bool flag = false;
    size = 1;
    ASSERT_EQ(stream.GetBufferInfo(h, BUFFER_INFO_NEW_DATA, &type, &flag, &size), GC_ERR_SUCCESS);
    EXPECT_TRUE(flag);
    ASSERT_EQ(stream.GetBufferInfo(h, BUFFER_INFO_NEW_DATA, &type, &flag, &size), GC_ERR_SUCCESS);
    EXPECT_FALSE(flag);
    BufferOf(h)->payloadType = PAYLOAD_TYPE_FILE;
    size = sizeof value;
    EXPECT_EQ(stream.GetBufferInfo(h, BUFFER_INFO_HEIGHT, &type, &value, &size),
              GC_ERR_NOT_AVAILABLE);

    // Not a buffer's handle.
    void* other = nullptr;
    ASSERT_EQ(GenTL::AllocateHandle(&other, static_cast<GenTL::IDataStream*>(&stream)),
              GC_ERR_SUCCESS);
    EXPECT_EQ(stream.GetBufferInfo(other, BUFFER_INFO_SIZE, &type, &value, &size),
              GC_ERR_INVALID_HANDLE);
    EXPECT_NE(LastErrorText().find("pIBuffer==nullptr || pBuf==nullptr"), std::string::npos);
    GenTL::DeleteHandle(other);
}

TEST_F(UdpStreamTest, EventRegistrationRefusals) {
    Open();
    void* event = nullptr;
    EXPECT_EQ(stream.RegisterEvent(EVENT_NEW_BUFFER, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(stream.RegisterEvent(EVENT_ERROR, &event), GC_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(stream.RegisterEvent(EVENT_REMOTE_DEVICE, &event), GC_ERR_NOT_AVAILABLE);
    EXPECT_EQ(stream.UnregisterEvent(EVENT_FEATURE_CHANGE), GC_ERR_NOT_AVAILABLE);
    EXPECT_NE(LastErrorText().find("the EVENT_TYPE EVENT_FEATURE_CHANGE is not implemented"),
              std::string::npos);
    EXPECT_EQ(stream.RegisterEvent(9, &event), GC_ERR_INVALID_INDEX);
    EXPECT_NE(LastErrorText().find("EVENT_TYPE must be one of :"), std::string::npos);
}

TEST_F(UdpStreamTest, NewBufferEventDeliversTheRecord) {
    Open();
    std::vector<void*> h = Announce(2);
    void* hEvent = nullptr;
    ASSERT_EQ(stream.RegisterEvent(EVENT_NEW_BUFFER, &hEvent), GC_ERR_SUCCESS);
    IEvent* event = stream.GetNewBufferEvent();

    GenTL::NewBufferEventData data{};
    unsigned long size = 15;
    EXPECT_EQ(event->GetData(&data, &size, 0), GC_ERR_BUFFER_TOO_SMALL);
    size = sizeof data;
    EXPECT_EQ(event->GetData(&data, &size, 0), GC_ERR_TIMEOUT);

    ASSERT_EQ(stream.QueueBuffer(h[1]), GC_ERR_SUCCESS);
    ASSERT_EQ(stream.QueueBuffer(h[0]), GC_ERR_SUCCESS);
    ASSERT_EQ(Deliver(1), h[1]);
    ASSERT_EQ(Deliver(2), h[0]);
    ASSERT_EQ(event->GetData(&data, &size, 1000), GC_ERR_SUCCESS);
    EXPECT_EQ(size, 16u);
    EXPECT_EQ(data.bufferHandle, h[1]);
    EXPECT_EQ(data.userPointer, &userTags[1]);
    EXPECT_EQ(StateOf(h[1]), GenTL::BS_USER);
    EXPECT_EQ(Info<std::uint64_t>(stream, STREAM_INFO_NUM_DELIVERED, INFO_DATATYPE_UINT64), 1u);

    ASSERT_EQ(event->GetData(&data, &size, 1000), GC_ERR_SUCCESS);
    EXPECT_EQ(data.bufferHandle, h[0]);
    int type = 0;
    std::uint64_t count = 0;
    unsigned long countSize = sizeof count;
    ASSERT_EQ(event->GetInfo(EVENT_NUM_FIRED, &type, &count, &countSize), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 2u);

    // Flush discards the output queue.
    ASSERT_EQ(stream.QueueBuffer(h[1]), GC_ERR_SUCCESS);
    ASSERT_NE(Deliver(3), nullptr);
    ASSERT_EQ(event->Flush(), GC_ERR_SUCCESS);
    EXPECT_EQ(StateOf(h[1]), GenTL::BS_ANNOUNCE);
    EXPECT_EQ(Info<std::uint64_t>(stream, STREAM_INFO_NUM_AWAIT_DELIVERY, INFO_DATATYPE_UINT64),
              0u);
}

// --- TCP: the 60 bytes of frame header in front of every image ---------------

class TcpStreamTest : public StreamTest::ErrorCacheTest {
protected:
    // A viewer: its stream cannot start, so nothing goes on the wire.
    TcpStreamTest() : gvcp(link), stream(&gvcp, nullptr, &g_parent, 1, DEVICE_ACCESS_READONLY) {}

    kesta::test::FakeStreamLink link;
    kesta::test::FakeGvcpForStream gvcp;
    DataStreamGevTCP stream;
};

TEST_F(TcpStreamTest, BuffersKeepRoomForTheHeader) {
    kesta::test::FakeGvsp udp;
    EXPECT_EQ(stream.Open(&udp), GC_ERR_INVALID_PARAMETER);
    ASSERT_EQ(stream.Open(nullptr), GC_ERR_SUCCESS);
    void* allocated = nullptr;
    ASSERT_EQ(stream.AllocAndAnnounceBuffer(1000, nullptr, &allocated), GC_ERR_SUCCESS);
    int type = 0;
    std::uint64_t value = 0;
    unsigned long size = sizeof value;
    ASSERT_EQ(stream.GetBufferInfo(allocated, BUFFER_INFO_SIZE, &type, &value, &size),
              GC_ERR_SUCCESS);
    EXPECT_EQ(value, 1060u);
    BufferOf(allocated)->payloadType = PAYLOAD_TYPE_IMAGE;
    ASSERT_EQ(stream.GetBufferInfo(allocated, BUFFER_INFO_SIZE, &type, &value, &size),
              GC_ERR_SUCCESS);
    EXPECT_EQ(value, 1000u);

    std::vector<char> memory(2000);
    void* announced = nullptr;
    ASSERT_EQ(stream.AnnounceBuffer(memory.data(), memory.size(), nullptr, &announced),
              GC_ERR_SUCCESS);
    void* base = nullptr;
    size = sizeof base;
    ASSERT_EQ(stream.GetBufferInfo(announced, BUFFER_INFO_BASE, &type, &base, &size),
              GC_ERR_SUCCESS);
    EXPECT_EQ(base, memory.data() + 60);

    // A refused revoke keeps the room; a good one hands back what was announced.
    ASSERT_EQ(stream.QueueBuffer(announced), GC_ERR_SUCCESS);
    EXPECT_EQ(stream.RevokeBuffer(announced, nullptr, nullptr), GC_ERR_BUSY);
    ASSERT_EQ(stream.GetBufferInfo(announced, BUFFER_INFO_BASE, &type, &base, &size),
              GC_ERR_SUCCESS);
    EXPECT_EQ(base, memory.data() + 60);
    ASSERT_EQ(stream.FlushQueue(ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS);
    void* back = nullptr;
    ASSERT_EQ(stream.RevokeBuffer(announced, &back, nullptr), GC_ERR_SUCCESS);
    EXPECT_EQ(back, memory.data());
    // `allocated` stays announced: the stream frees it at destruction.
}

TEST_F(TcpStreamTest, StartRefusesByCodeAndAViewerStaysGrabbing) {
    ASSERT_EQ(stream.Open(nullptr), GC_ERR_SUCCESS);
    EXPECT_EQ(stream.StartAcquisition(0, 1), GC_ERR_INVALID_BUFFER);
    EXPECT_NE(LastErrorText().find("GC_ERR_INVALID_BUFFER"), std::string::npos);
    void* h = nullptr;
    ASSERT_EQ(stream.AllocAndAnnounceBuffer(100, nullptr, &h), GC_ERR_SUCCESS);
    EXPECT_EQ(stream.StartAcquisition(0, 1), GC_ERR_RESOURCE_IN_USE);
    bool grabbing = false;
    int type = 0;
    unsigned long size = 1;
    ASSERT_EQ(stream.GetInfo(STREAM_INFO_IS_GRABBING, &type, &grabbing, &size), GC_ERR_SUCCESS);
    EXPECT_TRUE(grabbing);
    ASSERT_EQ(stream.StopAcquisition(0), GC_ERR_SUCCESS);
    EXPECT_TRUE(gvcp.WritesTo(0x0D00).empty()) << "a viewer never writes SCP";
}

} // namespace
