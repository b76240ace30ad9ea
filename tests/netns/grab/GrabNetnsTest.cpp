// Images from a simulated camera through stream 0 of the loaded producer, as
// a consumer takes them: byte-exact blocks from both grab loops, stop, start
// and close while packets arrive, empty input queues, the buffer handling
// modes, variable-size blocks, a multicast stream shared by two processes,
// 16-bit ids that wrap, a camera without resend, and a faulty link (the
// fault knobs come from the CTest entry, which runs a group by filter).
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <future>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "CameraTestBed.h"

namespace {

using kesta_device::EnvList;

// Camera registers of the simulator (its own feature map).
constexpr uint64_t kWidth = 0x10000;
constexpr uint64_t kHeight = 0x10004;
constexpr uint64_t kPixelFormat = 0x10008;
constexpr uint64_t kAcquisitionStart = 0x10014;
constexpr uint64_t kAcquisitionStop = 0x10018;
constexpr uint64_t kFrameRate = 0x1001C;
constexpr uint64_t kVariableSize = 0x10028;
constexpr uint64_t kScp = 0x0D00;
constexpr uint32_t kMono8 = 0x01080001;

// Stream registers of the producer, 8 bytes little-endian.
constexpr uint64_t kStreamBufferHandlingMode = 0x0400;
constexpr uint64_t kStreamPacketResendEnable = 0x1900;
constexpr uint64_t kStreamMulticastEnable = 0x2400;

constexpr uint32_t kWidthPx = 256;
constexpr uint32_t kHeightPx = 64;
constexpr float kFps = 50.0f;

uint32_t FloatBits(float value) {
    uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

/// The first byte of block `id` that differs from the camera's stamp (the id
/// in the first 8 bytes, big-endian, then a pattern that moves with the id),
/// or -1.
long long FirstWrongByte(const uint8_t* data, uint64_t size, uint64_t id) {
    for (uint64_t i = 0; i < size; ++i) {
        const auto expected = static_cast<uint8_t>(
            i < 8 ? id >> (56 - 8 * i) : i * 7 + (i >> 8) * 3 + (i >> 16) + id * 13);
        if (data[i] != expected) {
            return static_cast<long long>(i);
        }
    }
    return -1;
}

/// One delivered buffer, as the consumer reads it.
struct Delivered {
    BUFFER_HANDLE handle = nullptr;
    uint64_t frameId = 0;
    uint64_t sizeFilled = 0;
    uint64_t width = 0;
    uint64_t height = 0;
    uint64_t deliveredHeight = 0;
    bool incomplete = true;
    const uint8_t* base = nullptr;
};

/// What a run of the consumer saw.
struct Tally {
    int complete = 0;
    int incomplete = 0;
    int wrongBytes = 0;
    std::vector<uint64_t> ids;
};

class Grab : public kesta_device::CameraTest {
protected:
    void TearDown() override {
        if (m_device != nullptr && m_control) {
            // Leave the camera idle and with fixed-size blocks for the next test.
            WriteCamera(kAcquisitionStop, 1);
            WriteCamera(kVariableSize, 0);
        }
        CameraTest::TearDown(); // stops the stream and closes it with its buffers
    }

    /// Opens m_serial and its stream 0. With control it sets the image;
    /// read-only it takes the size the controlling application set.
    void Open(uint32_t width = kWidthPx, uint32_t height = kHeightPx, float fps = kFps,
              DEVICE_ACCESS_FLAGS access = DEVICE_ACCESS_CONTROL) {
        m_control = access == DEVICE_ACCESS_CONTROL;
        OpenStream(access);
        m_width = width;
        m_height = height;
        if (m_control) {
            SetCamera(kWidth, width);
            SetCamera(kHeight, height);
            SetCamera(kPixelFormat, kMono8);
            SetCamera(kFrameRate, FloatBits(fps));
        }
        ASSERT_EQ(Lib().GCRegisterEvent(m_stream, EVENT_NEW_BUFFER, &m_event), GC_ERR_SUCCESS)
            << Lib().TakeLastError().text;
    }
    uint32_t PayloadBytes() const { return m_width * m_height; }
    void SetCamera(uint64_t address, uint32_t value) {
        ASSERT_EQ(WriteCamera(address, value), GC_ERR_SUCCESS)
            << std::hex << address << " " << Lib().TakeLastError().text;
    }
    void SetStream(uint64_t address, int64_t value) {
        size_t size = sizeof value;
        ASSERT_EQ(Lib().GCWritePort(m_stream, address, &value, &size), GC_ERR_SUCCESS)
            << std::hex << address << " " << Lib().TakeLastError().text;
    }
    void UseResend(bool on) {
        SetStream(kStreamPacketResendEnable, on);
        EXPECT_EQ(StreamInfo<bool8_t>(STREAM_INFO_PACKET_RESEND_ENABLE), on ? 1 : 0);
    }
    /// Announces `count` buffers of the payload's size and queues them.
    void AnnounceAndQueue(int count) {
        for (int i = 0; i < count; ++i) {
            m_memory.emplace_back(PayloadBytes());
            BUFFER_HANDLE h = nullptr;
            ASSERT_EQ(Lib().DSAnnounceBuffer(m_stream, m_memory.back().data(), PayloadBytes(),
                                             nullptr, &h),
                      GC_ERR_SUCCESS)
                << Lib().TakeLastError().text;
            m_buffers.push_back(h);
            ASSERT_EQ(Lib().DSQueueBuffer(m_stream, h), GC_ERR_SUCCESS);
        }
    }
    /// Starts the stream and then, with control, the camera.
    void Start(int flags = ACQ_START_FLAGS_DEFAULT) {
        ASSERT_EQ(Lib().DSStartAcquisition(m_stream, flags, GENTL_INFINITE), GC_ERR_SUCCESS)
            << Lib().TakeLastError().text;
        if (m_control) {
            SetCamera(kAcquisitionStart, 1);
        }
    }
    /// Opens, sets resend, announces `buffers` and starts.
    void Begin(bool resend, int buffers = 4, int flags = ACQ_START_FLAGS_DEFAULT) {
        ASSERT_NO_FATAL_FAILURE(Open());
        ASSERT_NO_FATAL_FAILURE(UseResend(resend));
        ASSERT_NO_FATAL_FAILURE(AnnounceAndQueue(buffers));
        ASSERT_NO_FATAL_FAILURE(Start(flags));
    }
    /// Stops the camera and then the stream; flushes everything to input.
    void Stop() {
        SetCamera(kAcquisitionStop, 1);
        ASSERT_EQ(Lib().DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS)
            << Lib().TakeLastError().text;
        ASSERT_EQ(Lib().DSFlushQueue(m_stream, ACQ_QUEUE_ALL_TO_INPUT), GC_ERR_SUCCESS);
    }
    /// Waits for the next buffer; false on time-out.
    bool Next(Delivered& out, uint64_t timeoutMs = 2000) {
        EVENT_NEW_BUFFER_DATA data{};
        size_t size = sizeof data;
        if (Lib().EventGetData(m_event, &data, &size, timeoutMs) != GC_ERR_SUCCESS) {
            return false;
        }
        out.handle = data.BufferHandle;
        out.frameId = BufferInfo<uint64_t>(out.handle, BUFFER_INFO_FRAMEID);
        out.sizeFilled = BufferInfo<uint64_t>(out.handle, BUFFER_INFO_SIZE_FILLED);
        out.incomplete = BufferInfo<bool8_t>(out.handle, BUFFER_INFO_IS_INCOMPLETE) != 0;
        out.base = static_cast<const uint8_t*>(BufferInfo<void*>(out.handle, BUFFER_INFO_BASE));
        out.width = BufferInfo<uint64_t>(out.handle, BUFFER_INFO_WIDTH);
        out.height = BufferInfo<uint64_t>(out.handle, BUFFER_INFO_HEIGHT);
        out.deliveredHeight = BufferInfo<uint64_t>(out.handle, BUFFER_INFO_DELIVERED_IMAGEHEIGHT);
        return true;
    }
    void Requeue(const Delivered& d) {
        ASSERT_EQ(Lib().DSQueueBuffer(m_stream, d.handle), GC_ERR_SUCCESS)
            << Lib().TakeLastError().text;
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
                EXPECT_LT(d.sizeFilled, PayloadBytes()) << "id " << d.frameId;
            } else {
                ++t.complete;
                EXPECT_EQ(d.sizeFilled, PayloadBytes());
                EXPECT_EQ(d.width, m_width);
                EXPECT_EQ(d.height, m_height);
                EXPECT_EQ(d.deliveredHeight, m_height);
                const long long wrong = FirstWrongByte(d.base, d.sizeFilled, d.frameId);
                if (wrong >= 0) {
                    ++t.wrongBytes;
                    ADD_FAILURE() << "block " << d.frameId << " differs at byte " << wrong;
                }
            }
            Requeue(d);
        }
        for (size_t i = 1; i < t.ids.size(); ++i) {
            EXPECT_GT(t.ids[i], t.ids[i - 1]) << "at " << i;
        }
        return t;
    }
    template <typename T> T BufferInfo(BUFFER_HANDLE h, BUFFER_INFO_CMD cmd) {
        INFO_DATATYPE type = 0;
        T value{};
        size_t size = sizeof value;
        EXPECT_EQ(Lib().DSGetBufferInfo(m_stream, h, cmd, &type, &value, &size), GC_ERR_SUCCESS)
            << cmd << " " << Lib().TakeLastError().text;
        return value;
    }

    EVENT_HANDLE m_event = nullptr;
    std::vector<BUFFER_HANDLE> m_buffers;
    std::vector<std::vector<uint8_t>> m_memory;
    uint32_t m_width = 0;
    uint32_t m_height = 0;
    bool m_control = true;
};

// --- a clean link ----------------------------------------------------------

TEST_F(Grab, StopAndStartManyTimesWithBothLoops) {
    ASSERT_NO_FATAL_FAILURE(Begin(true));
    for (int round = 0; round < 8; ++round) {
        const Tally t = Take(3);
        EXPECT_EQ(t.complete, 3) << "round " << round;
        ASSERT_NO_FATAL_FAILURE(Stop());
        UseResend(round % 2 == 1); // the resend loop, then the no-copy one, in turn
        ASSERT_NO_FATAL_FAILURE(Start());
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
            SetStream(kStreamMulticastEnable, 1);
            AnnounceAndQueue(4);
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
}

// Run only by the test above, in the second host.
TEST_F(Multicast, ListenerTakesTheGroupsImages) {
    if (kesta_device::Env(kListenerRole).empty()) {
        GTEST_SKIP() << "the controlling test starts this one";
    }
    EXPECT_EQ(TakeFromTheGroup(DEVICE_ACCESS_READONLY, 10), 10) << "exact images";
}

// --- cameras of their own (the CTest entry makes them) ---------------------

// Camera 0, a GigE Vision 1.1 camera, starts its 16-bit ids at 32000: just
// inside the half of the id space that the loop, which expects block 1 at
// each start, takes as ahead. Tiny blocks at a high rate bring it to 65535
// within seconds, while resend recovers what a lossy link drops.
TEST_F(Grab, StandardIdsWrapFrom65535To1) {
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
TEST_F(Grab, WithoutResendCameraTheStreamRunsWithoutResend) {
    m_serial = EnvList("KESTA_CAMERA_SERIALS").at(1);
    ASSERT_NO_FATAL_FAILURE(Begin(true, 4, ACQ_START_FLAGS_GVSP_LEGACY_ID));
    EXPECT_EQ(StreamInfo<bool8_t>(STREAM_INFO_PACKET_RESEND_ENABLE), 0);
    EXPECT_EQ(Take(12).complete, 12);
}

// --- a faulty link (the CTest entry sets the faults) -------------------------

/// The faults the link showed, from the GVSP packets (extended ids) as the
/// host received them.
std::map<std::string, int> WireFaults(const std::vector<kesta_netns::Captured>& packets) {
    struct Block {
        bool leader = false;
        uint32_t trailer = 0; // its packet id, 0 while none came
        uint32_t last = 0;
        std::set<uint32_t> seen;
    };
    std::map<uint64_t, Block> blocks;
    std::map<std::string, int> faults;
    for (const auto& p : packets) {
        if (p.payload.size() < 20 || !(p.payload[4] & 0x80)) {
            continue;
        }
        const uint64_t id =
            uint64_t{kesta_netns::Be32(&p.payload[8])} << 32 | kesta_netns::Be32(&p.payload[12]);
        const uint32_t packet = kesta_netns::Be32(&p.payload[16]);
        Block& b = blocks[id];
        faults["duplicated"] += !b.seen.insert(packet).second;
        faults["reordered"] += packet < b.last;
        b.last = std::max(b.last, packet);
        b.leader |= (p.payload[4] & 0x0F) == 1;
        b.trailer = (p.payload[4] & 0x0F) == 2 ? packet : b.trailer;
    }
    if (blocks.empty()) {
        return faults;
    }
    // The first block may have begun before the capture, the last ones may
    // still be under way.
    for (auto b = std::next(blocks.begin()); b != blocks.end(); ++b) {
        const Block& block = b->second;
        faults["without leader"] += !block.leader;
        faults["without trailer"] += !block.trailer && b->first + 2 < blocks.rbegin()->first;
        if (block.trailer != 0) {
            const auto data =
                std::distance(block.seen.upper_bound(0), block.seen.lower_bound(block.trailer));
            faults["lost"] += static_cast<int>(block.trailer - 1 - data);
        }
    }
    return faults;
}

TEST_F(Grab, ResendRecoversAFaultyLink) {
    ASSERT_NO_FATAL_FAILURE(Begin(true));
    const Tally t = Take(40);
    EXPECT_EQ(t.wrongBytes, 0);
    EXPECT_GE(t.complete, 38) << "resend should recover nearly every block";
}

TEST_F(Grab, NoCopyFlagsWhatAFaultyLinkLost) {
    ASSERT_NO_FATAL_FAILURE(Begin(false));
    // What the camera sent, as this host received it: each fault knob must
    // have left its mark, or the test proves nothing.
    kesta_netns::Sniffer sniffer(kesta_device::Env("KESTA_NETNS_HOST"),
                                 static_cast<uint16_t>(ReadCamera(kScp)));
    ASSERT_TRUE(sniffer.Ok());
    const Tally t = Take(40);
    EXPECT_EQ(t.wrongBytes, 0) << "complete blocks must be exact, reordered or not";
    // Blocks that lost a packet are flagged, the others delivered whole.
    EXPECT_GT(t.incomplete, 0);
    EXPECT_GT(t.complete, 0);
    // About 40 blocks: every 4th without leader, every 5th without trailer.
    std::map<std::string, int> faults = WireFaults(sniffer.Packets());
    const std::pair<const char*, int> least[] = {{"lost", 1},
                                                 {"reordered", 1},
                                                 {"duplicated", 1},
                                                 {"without leader", 6},
                                                 {"without trailer", 5}};
    for (const auto& [fault, count] : least) {
        EXPECT_GE(faults[fault], count) << ::testing::PrintToString(faults);
    }
}

} // namespace
