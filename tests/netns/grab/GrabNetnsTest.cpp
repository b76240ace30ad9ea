// Images from a simulated camera through stream 0, as a consumer takes
// them: byte-exact blocks in both id forms with and without packet resend,
// the behaviour under injected loss, reordering, duplication and lost
// leaders or trailers (the fault knobs come from the CTest entry), empty
// input queues, the three buffer handling modes, variable-size blocks, the
// leader wait, and stop, start, revoke and close while packets arrive.
#include <cstdio>
#include <map>

#include "GrabTestBed.h"

namespace kesta_grab {
namespace {

constexpr uint32_t kWidthPx = 256;
constexpr uint32_t kHeightPx = 64;
constexpr float kFps = 50.0f;

/// What a run of the consumer saw.
struct Tally {
    int complete = 0;
    int incomplete = 0;
    int wrongBytes = 0;
    std::vector<uint64_t> ids;
};

class Grab : public GrabTest {
protected:
    /// Opens, sets resend, announces `buffers` and starts; false (test
    /// skipped) when resend cannot be set in this build.
    bool Begin(bool resend, int buffers = 4, int flags = ACQ_START_FLAGS_DEFAULT) {
        Open(kWidthPx, kHeightPx, kFps);
        if (HasFatalFailure()) {
            return false;
        }
        if (!UseResend(resend)) {
            if (resend) {
                return false;
            }
        }
        AnnounceAndQueue(buffers);
        Start(flags);
        return !HasFatalFailure();
    }

    /// Takes `count` images, checks each, and gives each buffer back.
    Tally Take(int count) {
        Tally t;
        for (int i = 0; i < count; ++i) {
            Delivered d;
            if (!Next(d)) {
                ADD_FAILURE() << "no image " << i;
                break;
            }
            t.ids.push_back(d.frameId);
            if (d.incomplete) {
                ++t.incomplete;
                std::printf("[ incomplete] block %llu: %llu of %u bytes\n",
                            static_cast<unsigned long long>(d.frameId),
                            static_cast<unsigned long long>(d.sizeFilled), PayloadBytes());
                EXPECT_LT(d.sizeFilled, PayloadBytes()) << "id " << d.frameId;
            } else {
                ++t.complete;
                EXPECT_EQ(d.sizeFilled, PayloadBytes());
                EXPECT_EQ(d.width, kWidthPx);
                EXPECT_EQ(d.height, kHeightPx);
                EXPECT_EQ(d.deliveredHeight, kHeightPx);
                const long long wrong = FirstWrongByte(d.base, d.sizeFilled, d.frameId);
                if (wrong >= 0) {
                    ++t.wrongBytes;
                    ADD_FAILURE() << "block " << d.frameId << " differs at byte " << wrong;
                }
            }
            Requeue(d);
        }
        return t;
    }

    static void ExpectIncreasing(const std::vector<uint64_t>& ids) {
        for (size_t i = 1; i < ids.size(); ++i) {
            EXPECT_GT(ids[i], ids[i - 1]) << "at " << i;
        }
    }

    void Report(const char* what, const Tally& t) {
        std::printf(
            "[ stats    ] %s: %d complete, %d incomplete, missed images %llu, missed "
            "packets %llu, incomplete total %llu\n",
            what, t.complete, t.incomplete,
            static_cast<unsigned long long>(StreamInfo<uint64_t>(STREAM_INFO_MISSED_IMAGE_COUNT)),
            static_cast<unsigned long long>(StreamInfo<uint64_t>(STREAM_INFO_MISSED_PACKET_COUNT)),
            static_cast<unsigned long long>(
                StreamInfo<uint64_t>(STREAM_INFO_TOTAL_INCOMPLETE_IMAGE_COUNT)));
    }
};

#define KESTA_BEGIN_OR_SKIP(...)                                                                   \
    do {                                                                                           \
        if (!Begin(__VA_ARGS__)) {                                                                 \
            if (!HasFatalFailure()) {                                                              \
                GTEST_SKIP() << "packet resend cannot be switched on in this build";               \
            }                                                                                      \
            return;                                                                                \
        }                                                                                          \
    } while (0)

// --- a clean link ----------------------------------------------------------

TEST_F(Grab, ResendDeliversExactImagesWithExtendedIds) {
    KESTA_BEGIN_OR_SKIP(true);
    const Tally t = Take(12);
    EXPECT_EQ(t.complete, 12);
    ExpectIncreasing(t.ids);
}

TEST_F(Grab, ResendDeliversExactImagesWithStandardIds) {
    KESTA_BEGIN_OR_SKIP(true, 4, ACQ_START_FLAGS_GVSP_LEGACY_ID);
    const Tally t = Take(12);
    EXPECT_EQ(t.complete, 12);
    ExpectIncreasing(t.ids);
}

TEST_F(Grab, NoCopyDeliversExactImagesWithExtendedIds) {
    KESTA_BEGIN_OR_SKIP(false);
    EXPECT_EQ(StreamInfo<bool8_t>(STREAM_INFO_PACKET_RESEND_ENABLE), 0);
    const Tally t = Take(12);
    EXPECT_EQ(t.complete, 12);
    ExpectIncreasing(t.ids);
}

// Run in a process of its own: the loop fixes its header length at its
// first run in the process.
TEST_F(Grab, NoCopyDeliversExactImagesWithStandardIds) {
    KESTA_BEGIN_OR_SKIP(false, 4, ACQ_START_FLAGS_GVSP_LEGACY_ID);
    const Tally t = Take(12);
    EXPECT_EQ(t.complete, 12);
    ExpectIncreasing(t.ids);
}

TEST_F(Grab, StopAndStartManyTimes) {
    KESTA_BEGIN_OR_SKIP(true);
    for (int round = 0; round < 8; ++round) {
        const bool resend = round % 2 == 0;
        const Tally t = Take(2);
        EXPECT_EQ(t.complete, 2) << "round " << round;
        Stop();
        ASSERT_FALSE(HasFatalFailure());
        UseResend(!resend); // alternates the two loops where the build allows
        Start();
        ASSERT_FALSE(HasFatalFailure());
    }
}

TEST_F(Grab, StopWhilePacketsArrive) {
    KESTA_BEGIN_OR_SKIP(true);
    WriteCamera(kAcquisitionStop, 1);
    WriteCamera(kFrameRate, 0x43480000); // 200 fps
    WriteCamera(kAcquisitionStart, 1);
    for (int round = 0; round < 6; ++round) {
        std::this_thread::sleep_for(std::chrono::milliseconds(15 + 7 * round));
        ASSERT_EQ(m_api.DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS);
        m_started = false;
        ASSERT_EQ(m_api.DSFlushQueue(m_stream, ACQ_QUEUE_ALL_TO_INPUT), GC_ERR_SUCCESS);
        EXPECT_EQ(StreamInfo<uint64_t>(STREAM_INFO_NUM_QUEUED), m_buffers.size());
        UseResend(round % 2 == 1);
        ASSERT_EQ(m_api.DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE),
                  GC_ERR_SUCCESS);
        m_started = true;
    }
    const Tally t = Take(3);
    EXPECT_EQ(t.complete, 3);
}

TEST_F(Grab, CloseTheDeviceWhileGrabbing) {
    KESTA_BEGIN_OR_SKIP(true);
    Take(1);
    EXPECT_EQ(m_api.DevClose(m_device), GC_ERR_SUCCESS) << LastErrorText(m_api);
    m_device = nullptr;
    // The stream went with its device: its handle is refused, and closing
    // it frees what was left of it.
    EXPECT_EQ(m_api.DSClose(m_stream), GC_ERR_INVALID_HANDLE);
    m_stream = nullptr;
    m_started = false;
    m_buffers.clear();
}

// Either loop may hold any announced buffer by pointer, also one that a
// flush has put back to the announced state: no revoke while grabbing.
TEST_F(Grab, RevokeIsRefusedWhileEitherLoopGrabs) {
    Open(kWidthPx, kHeightPx, kFps);
    ASSERT_FALSE(HasFatalFailure());
    AnnounceAndQueue(3);
    m_memory.emplace_back(PayloadBytes());
    BUFFER_HANDLE spare = nullptr; // announced, never queued
    ASSERT_EQ(
        m_api.DSAnnounceBuffer(m_stream, m_memory.back().data(), PayloadBytes(), nullptr, &spare),
        GC_ERR_SUCCESS);
    m_buffers.push_back(spare);
    for (const bool resend : {true, false}) {
        SCOPED_TRACE(resend ? "resend" : "no copy");
        if (!UseResend(resend)) {
            GTEST_SKIP() << "packet resend cannot be switched in this build";
        }
        Start();
        ASSERT_FALSE(HasFatalFailure());
        Delivered d;
        ASSERT_TRUE(Next(d));
        Requeue(d);
        std::this_thread::sleep_for(std::chrono::milliseconds(100)); // blocks wait for delivery
        ASSERT_EQ(m_api.DSFlushQueue(m_stream, ACQ_QUEUE_OUTPUT_DISCARD), GC_ERR_SUCCESS);
        for (BUFFER_HANDLE h : m_buffers) {
            EXPECT_EQ(m_api.DSRevokeBuffer(m_stream, h, nullptr, nullptr), GC_ERR_BUSY);
            EXPECT_NE(LastErrorText(m_api).find("acquisition engine is grabbing"),
                      std::string::npos);
        }
        Stop();
        ASSERT_FALSE(HasFatalFailure());
    }
    ASSERT_EQ(m_api.DSFlushQueue(m_stream, ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS);
    for (BUFFER_HANDLE h : m_buffers) {
        EXPECT_EQ(m_api.DSRevokeBuffer(m_stream, h, nullptr, nullptr), GC_ERR_SUCCESS);
    }
    m_buffers.clear();
    EXPECT_EQ(m_api.DSClose(m_stream), GC_ERR_SUCCESS);
    m_stream = nullptr;
}

TEST_F(Grab, ResendLoopStarvedThenFed) {
    KESTA_BEGIN_OR_SKIP(true, 2);
    std::this_thread::sleep_for(std::chrono::milliseconds(400)); // both buffers fill, then none
    Delivered first;
    Delivered second;
    ASSERT_TRUE(Next(first));
    ASSERT_TRUE(Next(second));
    EXPECT_FALSE(first.incomplete);
    EXPECT_FALSE(second.incomplete);
    Requeue(first);
    Requeue(second);
    const Tally t = Take(4);
    EXPECT_EQ(t.complete, 4);
    EXPECT_GT(t.ids.front(), second.frameId + 5) << "blocks of the starved stretch are lost";
    ExpectIncreasing(t.ids);
}

TEST_F(Grab, NoCopyFillsTheDummyWhenTheConsumerFallsBehind) {
    KESTA_BEGIN_OR_SKIP(false, 2);
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    EXPECT_GT(StreamInfo<uint64_t>(STREAM_INFO_NUM_UNDERRUN), 5u);
    Delivered first;
    Delivered second;
    ASSERT_TRUE(Next(first));
    ASSERT_TRUE(Next(second));
    Requeue(first);
    Requeue(second);
    // A block received into the dummy and copied into a buffer that came
    // meanwhile stays with the engine; the next ones are delivered.
    Delivered later;
    ASSERT_TRUE(Next(later));
    EXPECT_GT(later.frameId, second.frameId + 5);
    EXPECT_EQ(FirstWrongByte(later.base, later.sizeFilled, later.frameId), -1);
}

TEST_F(Grab, HandlingModesChooseWhichBlocksWait) {
    for (const int64_t mode : {0, 1, 2}) {
        SCOPED_TRACE(mode);
        if (mode == 0) {
            Open(kWidthPx, kHeightPx, kFps);
            ASSERT_FALSE(HasFatalFailure());
            AnnounceAndQueue(3);
        }
        if (!SetStreamInt(kStreamBufferHandlingMode, STREAM_INFO_BUFFER_HANDLING_MODE, mode)) {
            GTEST_SKIP() << "the buffer handling mode cannot be set in this build";
        }
        UseResend(true);
        Start();
        ASSERT_FALSE(HasFatalFailure());
        Delivered d;
        ASSERT_TRUE(Next(d));
        const uint64_t first = d.frameId;
        Requeue(d);
        std::this_thread::sleep_for(std::chrono::milliseconds(400)); // about 20 blocks
        if (mode == 2) {
            EXPECT_LE(StreamInfo<uint64_t>(STREAM_INFO_NUM_AWAIT_DELIVERY), 1u);
        }
        std::vector<uint64_t> ids;
        for (int i = 0; i < 3; ++i) {
            ASSERT_TRUE(Next(d));
            ids.push_back(d.frameId);
            EXPECT_EQ(FirstWrongByte(d.base, d.sizeFilled, d.frameId), -1);
            Requeue(d);
        }
        if (mode == 0) {
            EXPECT_EQ(ids, (std::vector<uint64_t>{first + 1, first + 2, first + 3}));
        } else {
            EXPECT_GT(ids[0], first + 3) << "older blocks were refilled";
        }
        ExpectIncreasing(ids);
        Stop();
        ASSERT_FALSE(HasFatalFailure());
    }
}

TEST_F(Grab, VariableSizeBlocksEndAtTheirTrailer) {
    Open(kWidthPx, kHeightPx, kFps);
    ASSERT_FALSE(HasFatalFailure());
    if (!UseResend(true)) {
        GTEST_SKIP() << "packet resend cannot be switched on in this build";
    }
    WriteCamera(kVariableSize, 1);
    ASSERT_EQ(m_api.DSSetupResendRetryParams(m_stream, 0, 0.0, "", "", 0, 0), GC_ERR_SUCCESS);
    AnnounceAndQueue(4);
    Start();
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
    Stop();
    // The consumer's geometry replaces the one-column carrier.
    ASSERT_EQ(m_api.DSSetupResendRetryParams(m_stream, 0, 0.0, "", "", 64, 32), GC_ERR_SUCCESS);
    Start();
    Delivered d;
    ASSERT_TRUE(Next(d));
    EXPECT_EQ(d.width, 64u);
    EXPECT_EQ(d.height, 32u);
    Requeue(d);
}

// Under a camera without packet resend (its own CTest entry).
TEST_F(Grab, WithoutResendCameraTheStreamRunsWithoutResend) {
    KESTA_BEGIN_OR_SKIP(true);
    EXPECT_EQ(StreamInfo<bool8_t>(STREAM_INFO_PACKET_RESEND_ENABLE), 0);
    const Tally t = Take(6);
    EXPECT_EQ(t.complete, 6);
}

// --- 16-bit ids that wrap (a GigE Vision 1.x camera, from its CTest entry) --

// The camera's first id lies just inside the half of the id space that the
// loop, which expects block 1 at each start, takes as ahead; tiny blocks at a
// high rate bring it to 65535 within seconds.
TEST_F(Grab, StandardIdsWrapFrom65535To1) {
    constexpr uint64_t kFirstId = 32000;
    Open(16, 16, 8000.0f);
    ASSERT_FALSE(HasFatalFailure());
    UseResend(true);
    AnnounceAndQueue(32);
    Start(ACQ_START_FLAGS_GVSP_LEGACY_ID);
    ASSERT_FALSE(HasFatalFailure());

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
    std::printf("[ wrap     ] %zu blocks, %llu skipped by the consumer\n", ids.size(),
                static_cast<unsigned long long>(skipped));
}

// --- a faulty link (the CTest entry sets the faults) -------------------------

// Every leader and trailer lost (its CTest entry): each block begins with a
// data packet, which ended the block before it, and still frees a waiter.
TEST_F(Grab, NoCopyLeaderWaitWithLostLeaders) {
    KESTA_BEGIN_OR_SKIP(false);
    ASSERT_EQ(StreamInfo<bool8_t>(STREAM_INFO_PACKET_RESEND_ENABLE), 0);
    ASSERT_EQ(m_api.DSResetWaitForNextLeader(m_stream), GC_ERR_SUCCESS);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(m_api.DSWaitForNextLeader(m_stream, 2000), GC_ERR_SUCCESS)
            << "wait " << i << ": " << LastErrorText(m_api);
    }
}

TEST_F(Grab, ResendRecoversAFaultyLink) {
    KESTA_BEGIN_OR_SKIP(true);
    const Tally t = Take(40);
    Report("resend", t);
    EXPECT_EQ(t.wrongBytes, 0);
    EXPECT_GE(t.complete, 38) << "resend should recover nearly every block";
    ExpectIncreasing(t.ids);
}

TEST_F(Grab, NoCopyFlagsWhatAFaultyLinkLost) {
    KESTA_BEGIN_OR_SKIP(false);
    const Tally t = Take(40);
    Report("no resend", t);
    EXPECT_EQ(t.wrongBytes, 0) << "complete blocks must be exact, reordered or not";
    ExpectIncreasing(t.ids);
}

} // namespace
} // namespace kesta_grab
