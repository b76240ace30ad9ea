#pragma once
// A consumer of a stream of the loaded producer beside simulated cameras:
// opens a camera with control (or read-only) and sets its image through the
// remote port, announces and queues buffers, starts and stops both ends, and
// checks every byte of a delivered block against the camera's stamp.
#include <cstring>
#include <functional>
#include <initializer_list>
#include <string>
#include <thread>
#include <vector>

#include "CameraTestBed.h"

namespace kesta_grab {

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

inline uint32_t FloatBits(float value) {
    uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

/// The first byte of block `id` that differs from the camera's stamp (the id
/// in the first 8 bytes, big-endian, then a pattern that moves with the id),
/// or -1.
inline long long FirstWrongByte(const uint8_t* data, uint64_t size, uint64_t id) {
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
    std::vector<uint64_t> stamps;
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

    /// Opens m_serial and its stream m_streamId. With control it sets the image;
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
    /// Announces `count` buffers of `size` bytes (the payload's by default)
    /// and queues them; `slack` more bytes of 0xA5 lie behind each.
    void AnnounceAndQueue(int count, uint64_t size = 0, size_t slack = 0) {
        size = size != 0 ? size : PayloadBytes();
        for (int i = 0; i < count; ++i) {
            m_memory.emplace_back(size + slack, 0xA5);
            BUFFER_HANDLE h = nullptr;
            ASSERT_EQ(Lib().DSAnnounceBuffer(m_stream, m_memory.back().data(), size, nullptr, &h),
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
    /// Runs `grab` between a start and a stop of each loop (true: resend).
    void WithLoops(std::initializer_list<bool> loops, const std::function<void(bool)>& grab) {
        for (const bool resend : loops) {
            SCOPED_TRACE(resend ? "resend" : "no copy");
            ASSERT_NO_FATAL_FAILURE(UseResend(resend));
            ASSERT_NO_FATAL_FAILURE(Start());
            grab(resend);
            ASSERT_NO_FATAL_FAILURE(Stop());
        }
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
            t.stamps.push_back(BufferInfo<uint64_t>(d.handle, BUFFER_INFO_TIMESTAMP));
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

} // namespace kesta_grab
