// Images from simulated cameras through stream 0 of the loaded producer, as
// a consumer takes them: byte-exact blocks from both grab loops, stop, start,
// revoke and close while packets arrive, empty input queues, the buffer
// handling modes, variable-size blocks, a multicast stream shared by two
// processes, 16-bit ids that wrap, a camera without resend, a faulty link
// and lost leaders (the cameras of each test bed are in ../CMakeLists.txt).
#include <unistd.h>

#include <cstdio>
#include <future>

#include "GrabTest.h"

namespace kesta_grab {
namespace {

// --- a clean link ----------------------------------------------------------

// Either loop may hold any announced buffer by pointer, also one that a
// flush has put back to the announced state: no revoke while grabbing.
TEST_F(Grab, StopAndStartManyTimesWithBothLoopsAndNoRevokeWhileGrabbing) {
    ASSERT_NO_FATAL_FAILURE(Open());
    ASSERT_NO_FATAL_FAILURE(AnnounceAndQueue(3));
    BUFFER_HANDLE spare = nullptr; // announced, never queued
    ASSERT_EQ(Lib().DSAllocAndAnnounceBuffer(m_stream, PayloadBytes(), nullptr, &spare),
              GC_ERR_SUCCESS);
    m_buffers.push_back(spare);
    UseResend(true);
    ASSERT_NO_FATAL_FAILURE(Start());
    for (int round = 0; round < 8; ++round) {
        const Tally t = Take(3);
        EXPECT_EQ(t.complete, 3) << "round " << round;
        if (round < 2) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100)); // blocks wait
            ASSERT_EQ(Lib().DSFlushQueue(m_stream, ACQ_QUEUE_OUTPUT_DISCARD), GC_ERR_SUCCESS);
            for (BUFFER_HANDLE h : m_buffers) {
                EXPECT_EQ(Lib().DSRevokeBuffer(m_stream, h, nullptr, nullptr), GC_ERR_BUSY);
                EXPECT_NE(Lib().TakeLastError().text.find("acquisition engine is grabbing"),
                          std::string::npos);
            }
        }
        ASSERT_NO_FATAL_FAILURE(Stop());
        UseResend(round % 2 == 1); // the resend loop, then the no-copy one, in turn
        ASSERT_NO_FATAL_FAILURE(Start());
    }
    ASSERT_NO_FATAL_FAILURE(Stop());
    ASSERT_EQ(Lib().DSFlushQueue(m_stream, ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS);
    for (BUFFER_HANDLE h : m_buffers) {
        EXPECT_EQ(Lib().DSRevokeBuffer(m_stream, h, nullptr, nullptr), GC_ERR_SUCCESS);
    }
}

TEST_F(Grab, StopWhilePacketsArrive) {
    ASSERT_NO_FATAL_FAILURE(Begin(true));
    SetCamera(kAcquisitionStop, 1);
    SetCamera(kFrameRate, FloatBits(200.0f));
    SetCamera(kAcquisitionStart, 1);
    for (int round = 0; round < 6; ++round) {
        std::this_thread::sleep_for(std::chrono::milliseconds(15 + 7 * round));
        ASSERT_EQ(Lib().DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS);
        ASSERT_EQ(Lib().DSFlushQueue(m_stream, ACQ_QUEUE_ALL_TO_INPUT), GC_ERR_SUCCESS);
        EXPECT_EQ(StreamInfo<uint64_t>(STREAM_INFO_NUM_QUEUED), m_buffers.size());
        UseResend(round % 2 == 1);
        ASSERT_EQ(Lib().DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE),
                  GC_ERR_SUCCESS);
    }
    EXPECT_EQ(Take(3).complete, 3);
}

TEST_F(Grab, CloseTheDeviceWhileGrabbing) {
    ASSERT_NO_FATAL_FAILURE(Begin(true));
    Take(1);
    EXPECT_EQ(Lib().DevClose(m_device), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
    m_device = nullptr;
    // The stream went with its device: its handle is refused, and closing
    // it frees what was left of it.
    EXPECT_EQ(Lib().DSClose(m_stream), GC_ERR_INVALID_HANDLE);
    m_stream = nullptr;
    m_buffers.clear();
}

// Both buffers fill and then none is queued for a while: the blocks of that
// stretch are lost, the ones after it delivered whole, by either loop.
TEST_F(Grab, StarvedLoopsLoseTheStretchAndGoOn) {
    for (const bool resend : {true, false}) {
        SCOPED_TRACE(resend);
        if (resend) {
            ASSERT_NO_FATAL_FAILURE(Begin(true, 2));
        } else {
            ASSERT_NO_FATAL_FAILURE(Stop());
            UseResend(false);
            ASSERT_NO_FATAL_FAILURE(Start());
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        if (!resend) {
            EXPECT_GT(StreamInfo<uint64_t>(STREAM_INFO_NUM_UNDERRUN), 5u);
        }
        Delivered first;
        Delivered second;
        ASSERT_TRUE(Next(first));
        ASSERT_TRUE(Next(second));
        EXPECT_FALSE(resend && first.incomplete);
        EXPECT_FALSE(second.incomplete);
        Requeue(first);
        Requeue(second);
        // Without resend, a block received into the dummy and copied into a
        // buffer that came meanwhile stays with the engine until a flush.
        const Tally t = Take(resend ? 4 : 1);
        EXPECT_EQ(t.complete, resend ? 4 : 1);
        EXPECT_GT(t.ids.front(), second.frameId + 5) << "blocks of the starved stretch are lost";
    }
}

TEST_F(Grab, HandlingModesChooseWhichBlocksWait) {
    ASSERT_NO_FATAL_FAILURE(Open());
    ASSERT_NO_FATAL_FAILURE(AnnounceAndQueue(3));
    for (const int64_t mode : {0, 1, 2}) {
        SCOPED_TRACE(mode);
        SetStream(kStreamBufferHandlingMode, mode);
        UseResend(true);
        ASSERT_NO_FATAL_FAILURE(Start());
        Delivered d;
        ASSERT_TRUE(Next(d));
        const uint64_t first = d.frameId;
        Requeue(d);
        std::this_thread::sleep_for(std::chrono::milliseconds(400)); // about 20 blocks
        if (mode == 2) {
            EXPECT_LE(StreamInfo<uint64_t>(STREAM_INFO_NUM_AWAIT_DELIVERY), 1u);
        }
        const Tally t = Take(3);
        EXPECT_EQ(t.complete, 3);
        if (mode == 0) {
            EXPECT_EQ(t.ids, (std::vector<uint64_t>{first + 1, first + 2, first + 3}));
        } else {
            EXPECT_GT(t.ids[0], first + 3) << "older blocks were refilled";
        }
        ASSERT_NO_FATAL_FAILURE(Stop());
    }
}

TEST_F(Grab, VariableSizeBlocksEndAtTheirTrailer) {
    ASSERT_NO_FATAL_FAILURE(Open());
    UseResend(true);
    SetCamera(kVariableSize, 1);
    ASSERT_EQ(Lib().DSSetupResendRetryParams(m_stream, 0, 0.0, "", "", 0, 0), GC_ERR_SUCCESS);
    ASSERT_NO_FATAL_FAILURE(AnnounceAndQueue(4));
    ASSERT_NO_FATAL_FAILURE(Start());
    for (int i = 0; i < 8; ++i) {
        Delivered d;
        ASSERT_TRUE(Next(d));
        EXPECT_FALSE(d.incomplete);
        EXPECT_EQ(d.width, 1u);
        EXPECT_EQ(d.deliveredHeight, d.sizeFilled);
        EXPECT_GE(d.sizeFilled, PayloadBytes() / 2);
        EXPECT_LE(d.sizeFilled, PayloadBytes());
        EXPECT_EQ(FirstWrongByte(d.base, d.sizeFilled, d.frameId), -1);
        Requeue(d);
    }
    ASSERT_NO_FATAL_FAILURE(Stop());
    // The consumer's geometry replaces the one-column carrier.
    ASSERT_EQ(Lib().DSSetupResendRetryParams(m_stream, 0, 0.0, "", "", 64, 32), GC_ERR_SUCCESS);
    ASSERT_NO_FATAL_FAILURE(Start());
    Delivered d;
    ASSERT_TRUE(Next(d));
    EXPECT_EQ(d.width, 64u);
    EXPECT_EQ(d.height, 32u);
    Requeue(d);
}

// --- two applications on one multicast stream --------------------------------

constexpr char kListenerRole[] = "KESTA_MULTICAST_LISTENER";

class Multicast : public Grab {
protected:
    /// Opens with `access`, joins the group and starts; counts the images
    /// that arrive complete and exact out of `count`, and while `more` says so.
    int TakeFromTheGroup(DEVICE_ACCESS_FLAGS access, int count,
                         const std::function<bool()>& more = nullptr) {
        Open(128, 32, kFps, access);
        if (!HasFatalFailure()) {
            AnnounceAndQueue(4);
        }
        if (!HasFatalFailure() && access == DEVICE_ACCESS_READONLY) {
            // A viewer may not aim the camera's channel at itself.
            EXPECT_EQ(Lib().DSStartAcquisition(m_stream, 0, GENTL_INFINITE),
                      GC_ERR_RESOURCE_IN_USE);
            Lib().TakeLastError();
        }
        if (!HasFatalFailure()) {
            SetStream(kStreamMulticastEnable, 1);
        }
        if (!HasFatalFailure()) {
            Start();
        }
        if (HasFatalFailure()) {
            return -1;
        }
        int exact = 0;
        for (int i = 0; i < count || (more && more()); ++i) {
            Delivered d;
            if (!Next(d)) {
                ADD_FAILURE() << "no image " << i;
                break;
            }
            exact += !d.incomplete && d.sizeFilled == PayloadBytes() &&
                     FirstWrongByte(d.base, d.sizeFilled, d.frameId) < 0;
            Requeue(d);
        }
        return exact;
    }
};

// The controlling application on the host starts the camera onto the group;
// a listening one, this same program started again in the second host's
// namespace, opens the camera read-only and takes the same images.
TEST_F(Multicast, ControllerAndListenerTakeTheSameStream) {
    const std::string host2 = kesta_device::Env("KESTA_NETNS_HOST2");
    ASSERT_FALSE(host2.empty()) << "needs the second host";
    char self[4096] = {};
    ASSERT_GT(::readlink("/proc/self/exe", self, sizeof self - 1), 0);
    const std::string listener =
        std::string("env ") + kListenerRole + "=1 KESTA_NETNS_HOST=" + host2 +
        " KESTA_NETNS_HOST_IF=" + kesta_device::Env("KESTA_NETNS_HOST2_IF") + " ip netns exec " +
        host2 + " " + self + " --gtest_filter=Multicast.ListenerTakesTheGroupsImages 2>&1";

    // Once the stream runs, the listener joins; the controller keeps taking
    // until it ends. A listener that skipped or crashed does not say OK.
    std::future<std::string> output;
    const int exact = TakeFromTheGroup(DEVICE_ACCESS_CONTROL, 10, [&] {
        if (!output.valid()) {
            output = std::async(std::launch::async, [&] {
                std::string text;
                FILE* p = ::popen(listener.c_str(), "r");
                for (char line[512]; p != nullptr && std::fgets(line, sizeof line, p);) {
                    text += line;
                }
                return p != nullptr && ::pclose(p) == 0 ? text : "failed:\n" + text;
            });
        }
        return output.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
    });
    EXPECT_GE(exact, 10);
    ASSERT_TRUE(output.valid());
    const std::string text = output.get();
    EXPECT_TRUE(text.rfind("failed:", 0) != 0 &&
                text.find("[       OK ] Multicast.ListenerTakesTheGroupsImages") !=
                    std::string::npos)
        << text;
    // The listener's stop left the stream to the controller.
    EXPECT_EQ(Take(3).complete, 3);
}

// Run only by the test above, in the second host.
TEST_F(Multicast, ListenerTakesTheGroupsImages) {
    if (kesta_device::Env(kListenerRole).empty()) {
        GTEST_SKIP() << "the controlling test starts this one";
    }
    EXPECT_EQ(TakeFromTheGroup(DEVICE_ACCESS_READONLY, 10), 10) << "exact images";
}

// --- cameras of their own (netns_grab_cameras) -------------------------------

using CameraKinds = Grab;

// Camera 0, a GigE Vision 1.1 camera, starts its 16-bit ids at 32000: just
// inside the half of the id space that the loop, which expects block 1 at
// each start, takes as ahead. Tiny blocks at a high rate bring it to 65535
// within seconds, while resend recovers what a lossy link drops.
TEST_F(CameraKinds, StandardIdsWrapFrom65535To1) {
    constexpr uint64_t kFirstId = 32000;
    ASSERT_NO_FATAL_FAILURE(Open(16, 16, 8000.0f));
    UseResend(true);
    ASSERT_NO_FATAL_FAILURE(AnnounceAndQueue(32));
    ASSERT_NO_FATAL_FAILURE(Start(ACQ_START_FLAGS_GVSP_LEGACY_ID));

    std::vector<uint64_t> ids;
    uint64_t skipped = 0;
    int wrongBytes = 0;
    size_t wrapAt = 0;
    while (ids.size() < 40000 && (wrapAt == 0 || ids.size() < wrapAt + 50)) {
        Delivered d;
        ASSERT_TRUE(Next(d)) << "after " << ids.size() << " blocks";
        if (!ids.empty()) {
            // Wrap-aware step: 65535 is followed by 1, never by 0.
            const uint64_t prev = ids.back();
            const uint64_t step = d.frameId > prev ? d.frameId - prev : d.frameId + 0xFFFF - prev;
            if (d.frameId < prev) {
                wrapAt = ids.size();
            }
            // Blocks that a resend stalls hold back the ones behind them until
            // the buffers run out, and the blocks of that stretch are lost: a
            // gap of a few hundred is normal, one near 65535 is a misread wrap.
            ASSERT_LT(step, 20000u) << prev << " then " << d.frameId;
            skipped += step - 1;
        } else {
            ASSERT_EQ(d.frameId, kFirstId);
        }
        ids.push_back(d.frameId);
        if (!d.incomplete && FirstWrongByte(d.base, d.sizeFilled, d.frameId) >= 0) {
            ++wrongBytes;
        }
        Requeue(d);
    }
    EXPECT_EQ(wrongBytes, 0);
    ASSERT_NE(wrapAt, 0u) << "the ids never wrapped";
    // Missed images count from block 1, and across the wrap without 0.
    EXPECT_EQ(StreamInfo<uint64_t>(STREAM_INFO_MISSED_IMAGE_COUNT), kFirstId - 1 + skipped);
}

// Camera 1 has no packet resend: the stream runs the no-copy loop even when
// resend is asked for, here with 16-bit ids. Run after every other no-copy
// stream of the process: the loop fixes its header length at its first run.
TEST_F(CameraKinds, WithoutResendTheStreamRunsWithoutResend) {
    UseCamera(1);
    ASSERT_NO_FATAL_FAILURE(Begin(true, 4, ACQ_START_FLAGS_GVSP_LEGACY_ID));
    EXPECT_EQ(StreamInfo<bool8_t>(STREAM_INFO_PACKET_RESEND_ENABLE), 0);
    EXPECT_EQ(Take(12).complete, 12);
}

// --- faulty cameras (netns_grab_faults): a lossy link on camera 0 ----------

using FaultyLink = Grab;

TEST_F(FaultyLink, ResendRecoversIt) {
    ASSERT_NO_FATAL_FAILURE(Begin(true));
    const Tally t = Take(40);
    EXPECT_EQ(t.wrongBytes, 0);
    EXPECT_GE(t.complete, 38) << "resend should recover nearly every block";
}

TEST_F(FaultyLink, NoCopyFlagsWhatItLost) {
    ASSERT_NO_FATAL_FAILURE(Begin(false));
    const Tally t = Take(40);
    EXPECT_EQ(t.wrongBytes, 0) << "complete blocks must be exact, reordered or not";
    // Blocks that lost a packet are flagged, the others delivered whole.
    EXPECT_GT(t.incomplete, 0);
    EXPECT_GT(t.complete, 0);
}

// Camera 1 loses every leader and trailer: each block begins with a data
// packet, which ended the block before it, and still frees a waiter.
TEST_F(FaultyLink, NoCopyLeaderWaitWithLostLeaders) {
    UseCamera(1);
    ASSERT_NO_FATAL_FAILURE(Begin(false));
    ASSERT_EQ(Lib().DSResetWaitForNextLeader(m_stream), GC_ERR_SUCCESS);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(Lib().DSWaitForNextLeader(m_stream, 2000), GC_ERR_SUCCESS)
            << "wait " << i << ": " << Lib().TakeLastError().text;
    }
}

} // namespace
} // namespace kesta_grab
