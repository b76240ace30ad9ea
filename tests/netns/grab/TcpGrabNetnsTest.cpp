// Images from simulated cameras through stream 1, whole frames over TCP, as
// a consumer takes them: exact frames with their ids, sizes and timestamps,
// a consumer slower than the camera, stop and start with the camera still
// sending (netns_grab); and the cameras' faults (netns_grab_faults, see
// ../CMakeLists.txt): a reset or a stalled sender in the middle of a frame,
// frames larger than the buffers, a refused connection.
#include <algorithm>

#include "GrabTest.h"

namespace kesta_grab {
namespace {

/// Bytes in front of each image: the frame's header lands there.
constexpr uint64_t kHeaderRoom = 60;

class TcpGrab : public Grab {
protected:
    TcpGrab() { m_streamId = "1"; }

    /// Opens camera i's stream 1 with `buffers` buffers of the payload and
    /// its header, `slack` bytes of 0xA5 behind each.
    void Begin(std::size_t camera = 0, int buffers = 4, size_t slack = 0) {
        UseCamera(camera);
        ASSERT_NO_FATAL_FAILURE(Open());
        ASSERT_NO_FATAL_FAILURE(AnnounceAndQueue(buffers, PayloadBytes() + kHeaderRoom, slack));
    }
    /// Takes `count` frames, each whole and exact, the one after the one
    /// before and stamped later.
    void TakeExact(int count) {
        const Tally t = Take(count);
        EXPECT_EQ(t.complete, count);
        for (size_t i = 1; i < t.ids.size(); ++i) {
            EXPECT_EQ(t.ids[i], t.ids[i - 1] + 1);
            EXPECT_GT(t.stamps[i], t.stamps[i - 1]);
        }
    }
    /// Stops the stream (the camera goes on), checks that every buffer comes
    /// back, and starts it again.
    void Restart() {
        ASSERT_EQ(Lib().DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS)
            << Lib().TakeLastError().text;
        ASSERT_EQ(Lib().DSFlushQueue(m_stream, ACQ_QUEUE_ALL_TO_INPUT), GC_ERR_SUCCESS);
        EXPECT_EQ(StreamInfo<uint64_t>(STREAM_INFO_NUM_QUEUED), m_buffers.size());
        ASSERT_EQ(Lib().DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE),
                  GC_ERR_SUCCESS)
            << Lib().TakeLastError().text;
    }
};

TEST_F(TcpGrab, ExactFramesStopStartAndCloseWithTheCameraStillSending) {
    ASSERT_NO_FATAL_FAILURE(Begin());
    ASSERT_NO_FATAL_FAILURE(Start());
    EXPECT_EQ(Lib().DSWaitForNextLeader(m_stream, 2000), GC_ERR_SUCCESS)
        << Lib().TakeLastError().text;
    TakeExact(12);
    EXPECT_EQ(StreamInfo<uint64_t>(STREAM_INFO_MISSED_IMAGE_COUNT), 0u);
    EXPECT_EQ(StreamInfo<uint64_t>(STREAM_INFO_NUM_UNDERRUN), 0u);
    Delivered d;
    ASSERT_TRUE(Next(d));
    EXPECT_EQ(BufferInfo<uint64_t>(d.handle, BUFFER_INFO_SIZE), PayloadBytes()); // header hidden
    Requeue(d);
    // The grab thread may hold any announced buffer.
    EXPECT_EQ(Lib().DSRevokeBuffer(m_stream, m_buffers[0], nullptr, nullptr), GC_ERR_BUSY);
    Lib().TakeLastError();
    for (int round = 0; round < 5 && !HasFatalFailure(); ++round) {
        SCOPED_TRACE(round);
        Restart();
        TakeExact(2);
    }
    EXPECT_EQ(Lib().DevClose(m_device), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
    m_device = nullptr;
    EXPECT_EQ(Lib().DSClose(m_stream), GC_ERR_INVALID_HANDLE) << "the stream went with its device";
    m_stream = nullptr;
}

TEST_F(TcpGrab, AConsumerSlowerThanTheCameraLeavesFramesToTheDummy) {
    ASSERT_NO_FATAL_FAILURE(Begin(0, 2));
    ASSERT_NO_FATAL_FAILURE(Start());
    std::this_thread::sleep_for(std::chrono::milliseconds(400)); // both buffers fill, then none
    EXPECT_GT(StreamInfo<uint64_t>(STREAM_INFO_NUM_UNDERRUN), 5u);
    EXPECT_GT(StreamInfo<uint64_t>(STREAM_INFO_MISSED_IMAGE_COUNT), 5u);
    Delivered first;
    Delivered second;
    ASSERT_TRUE(Next(first));
    ASSERT_TRUE(Next(second));
    Requeue(first);
    Requeue(second);
    // A frame received into the dummy and copied into a buffer that came
    // meanwhile stays with the engine; the next ones are delivered.
    const Tally t = Take(1);
    EXPECT_EQ(t.complete, 1);
    EXPECT_GT(t.ids.at(0), second.frameId + 5);
}

// --- faults of the cameras of netns_grab_faults --------------------------------

class FaultyTcp : public TcpGrab {
protected:
    /// Three exact frames, then nothing, `missed` of them counted; the
    /// stream stops with every buffer back, and a new start gets frames
    /// again.
    void ThreeFramesThenTheCut(std::size_t camera, uint64_t missed) {
        ASSERT_NO_FATAL_FAILURE(Begin(camera));
        ASSERT_NO_FATAL_FAILURE(Start());
        for (int round = 0; round < 2 && !HasFatalFailure(); ++round) {
            SCOPED_TRACE(round);
            TakeExact(3);
            Delivered d;
            EXPECT_FALSE(Next(d, 800)) << "frame " << d.frameId << " was delivered";
            EXPECT_EQ(StreamInfo<uint64_t>(STREAM_INFO_MISSED_IMAGE_COUNT), missed);
            EXPECT_EQ(StreamInfo<uint64_t>(STREAM_INFO_NUM_DELIVERED), 3u);
            Restart();
        }
    }
};

// Camera 5 resets the connection in the middle of the fourth frame of each
// connection, camera 6 stops sending there.
TEST_F(FaultyTcp, ResetMidFrame) {
    ThreeFramesThenTheCut(5, 1);
}

TEST_F(FaultyTcp, StalledSender) {
    ThreeFramesThenTheCut(6, 0);
}

// Camera 7 sends every third frame twice as long as the image: the buffer
// takes what fits, flagged, and not a byte lands past it or comes from
// another frame.
TEST_F(FaultyTcp, FramesLargerThanTheBuffers) {
    constexpr size_t kGuard = 64;
    ASSERT_NO_FATAL_FAILURE(Begin(7, 4, kGuard));
    ASSERT_NO_FATAL_FAILURE(Start());
    int larger = 0;
    uint64_t lastId = 0;
    for (int i = 0; i < 9; ++i) {
        Delivered d;
        ASSERT_TRUE(Next(d)) << "frame " << i;
        const bool flagged =
            BufferInfo<bool8_t>(d.handle, BUFFER_INFO_DATA_LARGER_THAN_BUFFER) != 0;
        larger += flagged ? 1 : 0;
        EXPECT_EQ(d.incomplete, flagged) << d.frameId;
        EXPECT_EQ(BufferInfo<uint64_t>(d.handle, BUFFER_INFO_DATA_SIZE),
                  PayloadBytes() * (flagged ? 2 : 1));
        EXPECT_EQ(d.sizeFilled, PayloadBytes());
        EXPECT_EQ(FirstWrongByte(d.base, d.sizeFilled, d.frameId), -1) << d.frameId;
        EXPECT_TRUE(lastId == 0 || d.frameId == lastId + 1) << "the stream keeps step with frames";
        lastId = d.frameId;
        Requeue(d);
    }
    EXPECT_EQ(larger, 3);
    for (const std::vector<uint8_t>& memory : m_memory) {
        EXPECT_TRUE(
            std::all_of(memory.end() - kGuard, memory.end(), [](uint8_t b) { return b == 0xA5; }));
    }
}

// Nothing listens on camera 8's stream port.
TEST_F(FaultyTcp, RefusedConnection) {
    ASSERT_NO_FATAL_FAILURE(Begin(8));
    EXPECT_EQ(Lib().DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE),
              GC_ERR_ABORT);
    // The stream counts as grabbing from its checks on, so it is stopped.
    EXPECT_EQ(StreamInfo<bool8_t>(STREAM_INFO_IS_GRABBING), 1);
    EXPECT_EQ(Lib().DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS);
}

} // namespace
} // namespace kesta_grab
