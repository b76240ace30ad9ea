// The data stream module on a fake GVSP layer and a fake camera: what the
// exported-function tests of tests/netns do not reach (a close while
// grabbing, a register that fails, buffer facts by payload type, the
// new-buffer event's refusals, and the TCP stream's frame header room).
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

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
using kesta::test::CachedError;
using StreamTest::BufferOf;
using StreamTest::FakeGvsp;
using StreamTest::StateOf;

int g_parent; // stands for the device's handle

template <typename Value, typename Stream> Value Info(Stream& s, int cmd) {
    Value value{};
    int type = -1;
    unsigned long size = sizeof value;
    EXPECT_EQ(s.GetInfo(cmd, &type, &value, &size), GC_ERR_SUCCESS) << cmd;
    return value;
}

class UdpStreamTest : public StreamTest::ErrorCacheTest {
protected:
    UdpStreamTest() : stream(&hal, nullptr, &g_parent, 0, DEVICE_ACCESS_CONTROL) {
        hal.SetReg(0x0934, 0x4); // packet resend
    }
    void Open() { ASSERT_EQ(stream.Open(gvsp), GC_ERR_SUCCESS); } // takes the layer
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
        if (h != nullptr) {
            BufferOf(h)->frameId = blockId;
            BufferOf(h)->isNewData = true;
            EXPECT_EQ(sm->QueueBufferToOutput(h), GC_ERR_SUCCESS);
        }
        return h;
    }

    kesta::test::FakeHALGev hal;
    DataStreamGevUDP stream;
    FakeGvsp* gvsp = new FakeGvsp();
    int userTags[8] = {};
};

// The settings reach the layer in the grab tests of tests/netns.
TEST_F(UdpStreamTest, WhileGrabbingItDoesNotCloseAndAStopFreesTheLeaderWait) {
    Open();
    ASSERT_EQ(stream.QueueBuffer(Announce(1)[0]), GC_ERR_SUCCESS);
    ASSERT_EQ(stream.StartAcquisition(0, GENTL_INFINITE), GC_ERR_SUCCESS);
    EXPECT_EQ(stream.Close(), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(stream.StopAcquisition(7), GC_ERR_INVALID_INDEX);
    void* parent = nullptr;
    ASSERT_EQ(stream.GetParentDev(&parent), GC_ERR_SUCCESS);
    EXPECT_EQ(parent, &g_parent);
    ASSERT_EQ(stream.StopAcquisition(ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS);
    EXPECT_EQ(gvsp->stops, 1);
    EXPECT_GE(gvsp->leaderSignals, 1);
    EXPECT_EQ(stream.Close(), GC_ERR_SUCCESS);
}

TEST_F(UdpStreamTest, AnUnreadableResendCapabilityTurnsResendOff) {
    Open();
    Announce(1);
    bool on = true;
    ASSERT_EQ(stream.SetInfo(STREAM_INFO_PACKET_RESEND_ENABLE, INFO_DATATYPE_BOOL8, &on, 1),
              GC_ERR_SUCCESS);
    hal.Fail(0x0934);
    ASSERT_EQ(stream.StartAcquisition(0, 1), GC_ERR_SUCCESS);
    EXPECT_FALSE(gvsp->started.packetResendEnable);
    ASSERT_EQ(stream.StopAcquisition(0), GC_ERR_SUCCESS);
    EXPECT_FALSE(Info<bool>(stream, STREAM_INFO_PACKET_RESEND_ENABLE));
}

TEST_F(UdpStreamTest, PayloadSizeAndHandlingModeSettings) {
    Open();
    hal.SetReg(0x10200000, 4096);
    EXPECT_EQ(Info<std::uint64_t>(stream, STREAM_INFO_PAYLOAD_SIZE), 4096u);
    hal.Fail(0x10200000);
    EXPECT_EQ(Info<std::uint64_t>(stream, STREAM_INFO_PAYLOAD_SIZE), 0u);
    long mode = 2;
    ASSERT_EQ(stream.SetInfo(STREAM_INFO_BUFFER_HANDLING_MODE, INFO_DATATYPE_INT64, &mode, 8),
              GC_ERR_SUCCESS);
    mode = 3;
    EXPECT_EQ(stream.SetInfo(STREAM_INFO_BUFFER_HANDLING_MODE, INFO_DATATYPE_INT64, &mode, 8),
              GC_ERR_INVALID_INDEX);
    EXPECT_EQ(stream.SetInfo(STREAM_INFO_BUFFER_HANDLING_MODE, INFO_DATATYPE_INT32, &mode, 8),
              GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(Info<long>(stream, STREAM_INFO_BUFFER_HANDLING_MODE), 2);
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
    Buffer* b = BufferOf(h);
    b->payloadType = 0x4001;
    b->isNewData = true;
    // Each image fact from its own field.
    const std::pair<int, std::uint64_t Buffer::*> facts[] = {
        {BUFFER_INFO_WIDTH, &Buffer::width},       {BUFFER_INFO_HEIGHT, &Buffer::height},
        {BUFFER_INFO_XOFFSET, &Buffer::xOffset},   {BUFFER_INFO_YOFFSET, &Buffer::yOffset},
        {BUFFER_INFO_XPADDING, &Buffer::xPadding}, {BUFFER_INFO_YPADDING, &Buffer::yPadding},
    };
    std::uint64_t distinct = 11;
    for (const auto& [cmd, field] : facts) {
        b->*field = distinct++;
    }
    distinct = 11;
    for (const auto& [cmd, field] : facts) {
        ASSERT_EQ(stream.GetBufferInfo(h, cmd, &type, &value, &size), GC_ERR_SUCCESS) << cmd;
        EXPECT_EQ(value, distinct++) << cmd;
    }
    // New data reads true once.
    bool flag = false;
    size = 1;
    ASSERT_EQ(stream.GetBufferInfo(h, BUFFER_INFO_NEW_DATA, &type, &flag, &size), GC_ERR_SUCCESS);
    EXPECT_TRUE(flag);
    ASSERT_EQ(stream.GetBufferInfo(h, BUFFER_INFO_NEW_DATA, &type, &flag, &size), GC_ERR_SUCCESS);
    EXPECT_FALSE(flag);
    b->payloadType = PAYLOAD_TYPE_FILE;
    size = sizeof value;
    EXPECT_EQ(stream.GetBufferInfo(h, BUFFER_INFO_HEIGHT, &type, &value, &size),
              GC_ERR_NOT_AVAILABLE);
}

TEST_F(UdpStreamTest, NewBufferEventRefusesAShortRecordAndItsFlushDiscardsTheOutput) {
    Open();
    std::vector<void*> h = Announce(1);
    void* hEvent = nullptr;
    ASSERT_EQ(stream.RegisterEvent(EVENT_NEW_BUFFER, &hEvent), GC_ERR_SUCCESS);
    IEvent* event = stream.GetNewBufferEvent();

    GenTL::NewBufferEventData data{};
    unsigned long size = 15;
    EXPECT_EQ(event->GetData(&data, &size, 0), GC_ERR_BUFFER_TOO_SMALL);
    size = sizeof data;
    EXPECT_EQ(event->GetData(&data, &size, 0), GC_ERR_TIMEOUT);

    ASSERT_EQ(stream.QueueBuffer(h[0]), GC_ERR_SUCCESS);
    ASSERT_EQ(Deliver(1), h[0]);
    ASSERT_EQ(event->GetData(&data, &size, 1000), GC_ERR_SUCCESS);
    EXPECT_EQ(data.userPointer, &userTags[0]);
    EXPECT_EQ(StateOf(h[0]), GenTL::BS_USER);

    ASSERT_EQ(stream.QueueBuffer(h[0]), GC_ERR_SUCCESS);
    ASSERT_NE(Deliver(2), nullptr);
    ASSERT_EQ(event->Flush(), GC_ERR_SUCCESS);
    EXPECT_EQ(StateOf(h[0]), GenTL::BS_ANNOUNCE);
    EXPECT_EQ(Info<std::uint64_t>(stream, STREAM_INFO_NUM_AWAIT_DELIVERY), 0u);
}

// --- TCP: the 60 bytes of frame header in front of every image ---------------

class TcpStreamTest : public StreamTest::ErrorCacheTest {
protected:
    // A viewer: its stream cannot start, so nothing goes on the wire.
    TcpStreamTest() : stream(&hal, nullptr, &g_parent, 1, DEVICE_ACCESS_READONLY) {}

    kesta::test::FakeHALGev hal;
    DataStreamGevTCP stream;
};

TEST_F(TcpStreamTest, BuffersKeepRoomForTheHeader) {
    FakeGvsp udp;
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
    EXPECT_NE(CachedError::Take().message.find("GC_ERR_INVALID_BUFFER"), std::string::npos);
    void* h = nullptr;
    ASSERT_EQ(stream.AllocAndAnnounceBuffer(100, nullptr, &h), GC_ERR_SUCCESS);
    EXPECT_EQ(stream.StartAcquisition(0, 1), GC_ERR_RESOURCE_IN_USE);
    EXPECT_TRUE(Info<bool>(stream, STREAM_INFO_IS_GRABBING));
    ASSERT_EQ(stream.StopAcquisition(0), GC_ERR_SUCCESS);
    EXPECT_TRUE(hal.WritesTo(0x0D00).empty()) << "a viewer never writes SCP";
}

} // namespace
