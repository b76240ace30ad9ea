#pragma once
// One acquisition on one of a camera's streams, through the exported
// functions as any consumer runs it: open the stream, write its settings to
// the stream's registers, announce and queue buffers, register the
// new-buffer event, start; then wait for buffers and give them back; stop,
// flush, revoke and close in the destructor if the caller did not.
//
// The camera itself (its features, AcquisitionStart) is the caller's.
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "ImageWriter.h"
#include "Producer.h"
#include "ProgressLine.h"

namespace kesta::gentl {

/// Stream settings; a value of -1 leaves the stream's own setting.
struct StreamSettings {
    int resend = -1; ///< StreamPacketResendEnable: 0 off, 1 on
    int handlingMode =
        -1; ///< StreamBufferHandlingMode: 0 OldestFirst, 1 OldestFirstOverwrite, 2 NewestOnly
    int autoPacketSize = -1;   ///< StreamAutoNegotiatePacketSize: 0 off, 1 on
    std::uint32_t buffers = 8; ///< buffers announced
    std::uint32_t stream = 0;  ///< index of the stream: 0 GVSP over UDP, 1 frames over TCP
    /// Bytes that the stream keeps in front of each image in a buffer (the
    /// frame header of the TCP stream); announced on top of the payload.
    std::uint64_t headerRoom = 0;
};

/// One delivered buffer, as its info commands describe it.
struct DeliveredBuffer {
    BUFFER_HANDLE handle = nullptr;
    std::uint64_t frameId = 0;
    std::uint64_t sizeFilled = 0;
    bool incomplete = false;
    bool imagePresent = false;
    ImageView image; ///< width, height and format are 0 when no image is present
};

class GrabSession {
public:
    GrabSession(Producer& producer, DEV_HANDLE device);
    ~GrabSession();
    GrabSession(const GrabSession&) = delete;
    GrabSession& operator=(const GrabSession&) = delete;

    /// Opens the stream settings.stream and writes the settings to its
    /// registers.
    bool Open(const StreamSettings& settings);
    /// Announces settings.buffers buffers of bytes each, queues them and
    /// registers the new-buffer event.
    bool Prepare(std::uint64_t bytes);
    /// DSStartAcquisition; the counters start from here.
    bool Start();
    /**
     * Waits up to timeoutMs for the next buffer. 1: one arrived (give it
     * back with Requeue); 0: none in time; -1: a failure or Interrupt().
     */
    int Next(DeliveredBuffer& buffer, std::uint64_t timeoutMs);
    bool Requeue(const DeliveredBuffer& buffer);
    /// Ends a Next that waits, from another thread or a signal handler's
    /// flag (see Interrupted).
    void Interrupt();
    bool Interrupted() const { return m_interrupted; }
    /// The counters of the run so far: own counts and the stream's.
    GrabCounters Counters();
    /// Buffers delivered since Start.
    std::uint64_t Frames() const { return m_frames; }
    /// DSStopAcquisition and the flush of every queue.
    bool Stop();

    DS_HANDLE Stream() const { return m_stream; }
    /// A stream setting read back (after Start it shows what the stream runs with).
    bool ReadSetting(std::uint64_t address, std::int64_t& value);

    // Stream register addresses, 8 bytes little-endian each.
    static constexpr std::uint64_t kBufferHandlingMode = 0x0400;
    static constexpr std::uint64_t kPacketResendEnable = 0x1900;
    static constexpr std::uint64_t kAutoNegotiatePacketSize = 0x2100;

private:
    bool WriteSetting(std::uint64_t address, std::int64_t value, const char* name);
    bool StreamNumber(STREAM_INFO_CMD cmd, std::uint64_t& value);
    bool BufferNumber(BUFFER_HANDLE buffer, BUFFER_INFO_CMD cmd, std::uint64_t& value);
    void Close();

    Producer& m_p;
    DEV_HANDLE m_device;
    DS_HANDLE m_stream = nullptr;
    EVENT_HANDLE m_event = nullptr;
    std::vector<BUFFER_HANDLE> m_buffers;
    std::vector<std::vector<std::uint8_t>> m_memory;
    std::uint32_t m_wantedBuffers = 0;
    std::uint64_t m_headerRoom = 0;
    bool m_started = false;
    std::atomic<bool> m_interrupted{false};
    double m_startTime = 0;
    std::uint64_t m_frames = 0;
    std::uint64_t m_bytes = 0;
    std::uint64_t m_incomplete = 0;
    std::uint64_t m_missedBaseline = 0;        ///< the stream's missed count at the first buffer
    std::uint64_t m_missedPacketsBaseline = 0; ///< and its missed packets
};

} // namespace kesta::gentl
