#pragma once
// A consumer of stream 0 beside one simulated camera: opens the camera with
// control, sets its image through the remote port, announces and queues
// buffers, starts and stops both ends, and checks every byte of a delivered
// block against the camera's stamp pattern.
//
// The same tests run twice: over the loaded producer (dlopen, as a consumer
// does) and over the library linked in (KESTA_GRAB_STATIC), where the
// stream's own setters stand in for stream registers that a producer build
// may not serve yet.
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "CameraTestBed.h"
#include "CtiLibrary.h"

#ifdef KESTA_GRAB_STATIC
#include "api/GenTLHandle.h"
#include "stream/DataStreamGev.h"
#endif

namespace kesta_grab {

// The exported functions, from the loaded producer or from the linked library.
struct Api {
#define KESTA_GRAB_C(name) P##name name = nullptr;
#define KESTA_GRAB_CXX(name, mangled) GenTL::P##name name = nullptr;
    KESTA_CTI_C_FUNCTIONS(KESTA_GRAB_C)
    KESTA_CTI_CXX_FUNCTIONS(KESTA_GRAB_CXX)
#undef KESTA_GRAB_C
#undef KESTA_GRAB_CXX
};

/// The top error text, for failure messages.
inline std::string LastErrorText(const Api& api) {
    GC_ERROR code = 0;
    char text[2048] = {};
    size_t size = sizeof text;
    if (api.GCGetLastError(&code, text, &size) != GC_ERR_SUCCESS) {
        return "?";
    }
    return std::to_string(code) + " " + text;
}

// Camera registers of the simulator (its own feature map).
constexpr uint64_t kWidth = 0x10000;
constexpr uint64_t kHeight = 0x10004;
constexpr uint64_t kPixelFormat = 0x10008;
constexpr uint64_t kAcquisitionStart = 0x10014;
constexpr uint64_t kAcquisitionStop = 0x10018;
constexpr uint64_t kFrameRate = 0x1001C;
constexpr uint64_t kVariableSize = 0x10028;
constexpr uint32_t kMono8 = 0x01080001;

// Stream registers of the producer, 8 bytes little-endian.
constexpr uint64_t kStreamBufferHandlingMode = 0x0400;
constexpr uint64_t kStreamPacketResendEnable = 0x1900;
constexpr uint64_t kStreamMulticastEnable = 0x2400;

/// Byte i of block `id` as the camera stamps it: the id in the first 8
/// bytes (big-endian), then a pattern that moves with the id.
inline uint8_t Expected(uint64_t i, uint64_t id) {
    if (i < 8) {
        return static_cast<uint8_t>(id >> (56 - 8 * i));
    }
    return static_cast<uint8_t>(i * 7 + (i >> 8) * 3 + (i >> 16) + id * 13);
}

/// The first byte that differs from the pattern, or -1.
inline long long FirstWrongByte(const uint8_t* data, uint64_t size, uint64_t id) {
    for (uint64_t i = 0; i < size; ++i) {
        if (data[i] != Expected(i, id)) {
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

class GrabTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    /// Opens the camera and its stream m_streamId. With control it sets the
    /// image; read-only it takes the size the controlling application set.
    void Open(uint32_t width, uint32_t height, float fps,
              DEVICE_ACCESS_FLAGS access = DEVICE_ACCESS_CONTROL);
    uint32_t PayloadBytes() const { return m_width * m_height; }
    void WriteCamera(uint64_t address, uint32_t value);
    uint32_t ReadCamera(uint64_t address);
    /// Writes a stream setting; false when this build cannot.
    bool SetStreamBool(uint64_t address, int cmd, bool value);
    bool SetStreamInt(uint64_t address, int cmd, int64_t value);
    /// Resend on or off; skips the test when the setting cannot be made.
    bool UseResend(bool on);
    /// Announces `count` buffers of `size` bytes (the payload by default)
    /// and queues them.
    void AnnounceAndQueue(int count, uint64_t size = 0);
    /// Starts the stream and then, with control, the camera.
    void Start(int flags = ACQ_START_FLAGS_DEFAULT);
    /// Stops the camera and then the stream; flushes everything to input.
    void Stop();
    /// Waits for the next buffer; false on time-out.
    bool Next(Delivered& out, uint64_t timeoutMs = 2000);
    void Requeue(const Delivered& d);
    /// Takes `count` images, checks each (a complete one must have the
    /// image's size and geometry and the camera's bytes), gives each back.
    Tally Take(int count);
    template <typename T> T StreamInfo(STREAM_INFO_CMD cmd);
    template <typename T> T BufferInfo(BUFFER_HANDLE h, BUFFER_INFO_CMD cmd);

    Api m_api;
    kesta::test::CtiLibrary* m_lib = nullptr;
    TL_HANDLE m_system = nullptr;
    IF_HANDLE m_iface = nullptr;
    DEV_HANDLE m_device = nullptr;
    DS_HANDLE m_stream = nullptr;
    PORT_HANDLE m_port = nullptr;
    EVENT_HANDLE m_event = nullptr;
    std::vector<BUFFER_HANDLE> m_buffers;
    std::vector<std::vector<uint8_t>> m_memory;
    uint32_t m_width = 0;
    uint32_t m_height = 0;
    bool m_control = true;
    bool m_started = false;
    const char* m_streamId = "0";
};

} // namespace kesta_grab
