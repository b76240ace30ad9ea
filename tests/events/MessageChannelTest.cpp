// The message channel's buffers and queues, and the remote-device event on
// top of them; the receive thread is played by the test.
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "CachedError.h"
#include "api/GenTLHandle.h"
#include "events/MCBuffer.h"
#include "events/MessageChannel.h"
#include "events/RemoteDeviceEvent.h"

namespace {

using GenTL::IEvent;
using GenTL::MCBuffer;

/// The channel with the receive thread's two steps made callable.
class Channel : public GenTL::MessageChannel {
public:
    /// Receives one message into the oldest queued buffer.
    bool Receive(const std::vector<std::uint8_t>& packet) {
        void* h = TakeInputBuffer(0);
        if (h == nullptr) {
            return false;
        }
        auto* b = static_cast<MCBuffer*>(GenTL::CastHandleToIBufferPtr(h));
        std::memcpy(b->data, packet.data(), packet.size());
        b->filled = packet.size();
        PutOutputBuffer(h);
        return true;
    }
};

class MessageChannelTest : public kesta::test::ErrorCacheTest {
protected:
    std::uint64_t Info(int cmd) {
        std::uint64_t value = 0;
        int type = 0;
        unsigned long size = sizeof value;
        EXPECT_EQ(channel.GetInfo(cmd, &type, &value, &size), GC_ERR_SUCCESS) << cmd;
        return value;
    }
    std::vector<void*> AnnounceAndQueue(int count) {
        std::vector<void*> handles;
        for (int i = 0; i < count; ++i) {
            void* h = nullptr;
            EXPECT_EQ(channel.AllocAndAnnounceBuffer(576, &tags[i], &h), GC_ERR_SUCCESS);
            EXPECT_EQ(channel.QueueBuffer(h), GC_ERR_SUCCESS);
            handles.push_back(h);
        }
        return handles;
    }

    Channel channel;
    int tags[4] = {};
};

TEST_F(MessageChannelTest, AnnounceQueueAndRevoke) {
    void* h = nullptr;
    EXPECT_EQ(channel.AllocAndAnnounceBuffer(576, nullptr, nullptr), GC_ERR_INVALID_PARAMETER);
    ASSERT_EQ(channel.AllocAndAnnounceBuffer(576, &tags[0], &h), GC_ERR_SUCCESS);
    void* id = nullptr;
    EXPECT_EQ(channel.GetBufferID(1, &id), GC_ERR_INVALID_INDEX);

    ASSERT_EQ(channel.QueueBuffer(h), GC_ERR_SUCCESS);
    EXPECT_EQ(channel.RevokeBuffer(h, nullptr), GC_ERR_BUSY);
    // Flush drops the handles; the buffers stay announced.
    ASSERT_EQ(channel.Flush(), GC_ERR_SUCCESS);
    EXPECT_EQ(Info(MC_INFO_NUM_QUEUED), 0u);
    void* user = nullptr;
    ASSERT_EQ(channel.RevokeBuffer(h, &user), GC_ERR_SUCCESS);
    EXPECT_EQ(user, &tags[0]);
    EXPECT_EQ(Info(MC_INFO_NUM_ANNOUNCED), 0u);
}

TEST_F(MessageChannelTest, BufferInfoCountsTheFilledBytes) {
    std::vector<void*> h = AnnounceAndQueue(1);
    ASSERT_TRUE(channel.Receive(std::vector<std::uint8_t>(40, 0xAB)));
    int type = 0;
    std::uint64_t value = 0;
    unsigned long size = sizeof value;
    ASSERT_EQ(channel.GetBufferInfo(h[0], 4, &type, &value, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(value, 40u);
    EXPECT_EQ(channel.GetBufferInfo(h[0], 5, &type, &value, &size), GC_ERR_INVALID_INDEX);
    EXPECT_EQ(Info(MC_INFO_NUM_AWAIT_DELIVERY), 1u);
    EXPECT_EQ(channel.GetInfo(12, &type, &value, &size), GC_ERR_INVALID_INDEX);
}

TEST_F(MessageChannelTest, WaitTimesOutIsKilledAndDelivers) {
    void* h = nullptr;
    EXPECT_EQ(channel.WaitOnNewBuffer(&h, 0), GC_ERR_TIMEOUT);
    EXPECT_EQ(channel.WaitOnNewBuffer(&h, 1UL << 63), GC_ERR_INVALID_PARAMETER);

    // A kill ends a wait in another thread.
    std::thread killer([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        channel.KillWaitForNewBuffer();
    });
    EXPECT_EQ(channel.WaitOnNewBuffer(&h, GENTL_INFINITE), GC_ERR_ABORT);
    killer.join();

    // A kill with a message ready stays armed: the message comes first.
    std::vector<void*> queued = AnnounceAndQueue(1);
    ASSERT_TRUE(channel.Receive({1, 2, 3}));
    channel.KillWaitForNewBuffer();
    ASSERT_EQ(channel.WaitOnNewBuffer(&h, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(h, queued[0]);
    EXPECT_EQ(channel.WaitOnNewBuffer(&h, 1000), GC_ERR_ABORT);
    EXPECT_EQ(Info(MC_INFO_NUM_DELIVERED), 1u);
}

TEST_F(MessageChannelTest, EventRegistrationIsNotSymmetric) {
    void* event = nullptr;
    EXPECT_EQ(channel.UnregisterEvent(EVENT_REMOTE_DEVICE), GC_ERR_RESOURCE_IN_USE);
    ASSERT_EQ(channel.RegisterEvent(EVENT_REMOTE_DEVICE, &event), GC_ERR_SUCCESS);
    void* second = nullptr;
    EXPECT_EQ(channel.RegisterEvent(EVENT_REMOTE_DEVICE, &second), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(channel.RegisterEvent(EVENT_NEW_BUFFER, &second), GC_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(channel.UnregisterEvent(EVENT_NEW_BUFFER), GC_ERR_NOT_AVAILABLE);
    EXPECT_EQ(channel.RegisterEvent(42, &second), GC_ERR_INVALID_INDEX);
    ASSERT_EQ(channel.UnregisterEvent(EVENT_REMOTE_DEVICE), GC_ERR_SUCCESS);
    ASSERT_EQ(channel.RegisterEvent(EVENT_REMOTE_DEVICE, &event), GC_ERR_SUCCESS);
    // The channel deletes the event with itself.
}

TEST_F(MessageChannelTest, RemoteDeviceEventHandsOutWholePacketsAndRequeues) {
    void* hEvent = nullptr;
    ASSERT_EQ(channel.RegisterEvent(EVENT_REMOTE_DEVICE, &hEvent), GC_ERR_SUCCESS);
    auto* event = dynamic_cast<IEvent*>(GenTL::CastHandle(hEvent));
    ASSERT_NE(event, nullptr);

    unsigned long size = 0;
    ASSERT_EQ(event->GetData(nullptr, &size, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(size, 576u);
    std::vector<std::uint8_t> out(576);
    std::vector<void*> h = AnnounceAndQueue(1);
    std::vector<std::uint8_t> packet(40);
    for (std::size_t i = 0; i < packet.size(); ++i) {
        packet[i] = static_cast<std::uint8_t>(i);
    }
    ASSERT_TRUE(channel.Receive(packet));
    size = 575;
    EXPECT_EQ(event->GetData(out.data(), &size, 0), GC_ERR_BUFFER_TOO_SMALL);

    size = out.size();
    ASSERT_EQ(event->GetData(out.data(), &size, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(size, 40u);
    EXPECT_TRUE(std::equal(packet.begin(), packet.end(), out.begin()));
    EXPECT_EQ(Info(MC_INFO_NUM_QUEUED), 1u); // back in the input queue
    int type = 0;
    std::uint64_t count = 0;
    unsigned long countSize = sizeof count;
    ASSERT_EQ(event->GetInfo(EVENT_NUM_FIRED, &type, &count, &countSize), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(event->GetInfo(5, &type, &count, &countSize), GC_ERR_INVALID_INDEX);

    size = out.size();
    EXPECT_EQ(event->GetData(out.data(), &size, 0), GC_ERR_TIMEOUT);
    ASSERT_EQ(event->Kill(), GC_ERR_SUCCESS);
    EXPECT_EQ(event->GetData(out.data(), &size, 0), GC_ERR_ABORT);
    ASSERT_EQ(event->Flush(), GC_ERR_SUCCESS);
    EXPECT_EQ(Info(MC_INFO_NUM_QUEUED), 0u);

    // Its data info answers with the new-buffer texts; a null datum is refused.
    char text[32] = {};
    size = sizeof text;
    ASSERT_EQ(event->GetDataInfo(out.data(), 4, EVENT_DATA_ID, &type, text, &size), GC_ERR_SUCCESS);
    EXPECT_STREQ(text, "New Buffer Event");
    EXPECT_EQ(event->GetDataInfo(nullptr, 4, EVENT_DATA_ID, &type, text, &size),
              GC_ERR_INVALID_HANDLE);
}

TEST(McBuffer, AssignmentCopiesIntoOwnMemory) {
    MCBuffer a(8, nullptr);
    MCBuffer b(4, &a);
    std::memcpy(b.data, "abcd", 4);
    b.filled = 3;
    a = b;
    EXPECT_NE(a.data, b.data);
    EXPECT_EQ(a.size, 4u);
    EXPECT_EQ(a.filled, 3u);
    EXPECT_EQ(std::memcmp(a.data, "abcd", 4), 0);
}

} // namespace
