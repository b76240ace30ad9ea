#pragma once
/**
 * DataStreamGevTCP: stream 1 of a GigE Vision device, whole frames over one
 * TCP connection.
 *
 * Each frame is a 60-byte header followed by the image, received straight
 * into the buffer, so every buffer of this stream keeps 60 bytes in front
 * of its image: the announces move `base` forward by kTcpFrameHeaderSize
 * (AllocAndAnnounceBuffer asks for that much more memory; AnnounceBuffer
 * gives the consumer's first 60 bytes to the header), and RevokeBuffer
 * moves it back, so that the memory handed back is the one announced. For
 * an image buffer BUFFER_INFO_SIZE leaves the header out.
 *
 * The grab thread (GrabThread) reads one frame per buffer through the TCP
 * layer: the header into the 60 bytes in front of `base`, the payload
 * straight to `base`. The header's payload size frames the stream: a frame
 * larger than the buffer fills the buffer, the rest is read and dropped and
 * the buffer is delivered flagged incomplete (dataLargerThanBuffer); a
 * smaller one ends where the header says. With the input queue empty the
 * frame goes into a private dummy buffer, copied into a buffer that comes
 * meanwhile (which then stays with the engine in BS_FILL until the stream
 * stops) or counted as an underrun. A read that fails (the camera closed or
 * reset the connection) loses the frame, counts one missed image and ends
 * the receiving: nothing reconnects, and the thread waits for its stop.
 * There are no timers and no resend; every read waits at most 200 ms, so
 * that StopAcquisition ends the thread whatever the camera does.
 */
#include <cstdint>
#include <vector>

#include "stream/DataStreamGev.h"

namespace GenTL {

class Buffer;
class IHALGvspTCP;

/// Bytes of the frame header in front of every buffer's image.
constexpr unsigned long kTcpFrameHeaderSize = 60;

class DataStreamGevTCP : public DataStreamGev {
public:
    /// Builds the stream's BufferStateMachineGev.
    DataStreamGevTCP(IHALGev* hal, void* hDevice, void* parentDevice, unsigned int index,
                     int accessMode);
    /// Ends the grab thread, gives the buffers their announced memory back
    /// and deletes the GVSP layer.
    ~DataStreamGevTCP() override;

    /// Already open: GC_ERR_RESOURCE_IN_USE. The stream owns hal from here
    /// on; a null hal makes a HALGvspTCP, a layer of another transport is
    /// GC_ERR_INVALID_PARAMETER.
    int Open(IHALGvsp* hal) override;
    /// Open and idle: deletes the GVSP layer. Otherwise GC_ERR_RESOURCE_IN_USE.
    int Close() override;
    int AnnounceBuffer(void* memory, unsigned long size, void* userData, void** phBuffer) override;
    /// Allocates size + 60 bytes; BUFFER_INFO_SIZE of an image still reads size.
    int AllocAndAnnounceBuffer(unsigned long size, void* userData, void** phBuffer) override;
    /// Hands back the memory that was announced.
    int RevokeBuffer(void* hBuffer, void** memory, void** userData) override;
    /// BUFFER_INFO_SIZE of an image buffer without the header; the rest as
    /// DataStream.
    int GetBufferInfo(void* hBuffer, int cmd, int* type, void* buffer,
                      unsigned long* size) const override;
    /**
     * The UDP stream's checks, refused with the codes' names only. The
     * stream counts as grabbing from the moment the checks pass: a failing
     * start of the layer (a viewer: GC_ERR_RESOURCE_IN_USE) leaves it so.
     */
    int StartAcquisition(int flags, unsigned long count) override;
    /// Ends the grab thread (within one read time-out, whatever the camera
    /// does), frees a waiter of WaitForNextLeader, stops the layer and
    /// discards the buffers being filled.
    int StopAcquisition(int flags) override;
    /// Frees one waiter of WaitForNextLeader, once the stream is open.
    int SetNextLeaderArrived();

protected:
    IHALGvsp* GvspLayer() const override;
    /// The grab thread.
    void GrabThread();
    /// Moves the base of the buffer behind hBuffer by delta bytes.
    static void ShiftBase(void* hBuffer, long delta);

    void* m_hDeviceTcp;
    IHALGvspTCP* m_pHalGvsp = nullptr;

private:
    struct FrameHeader;
    /// Receives one frame into buffer: its header and as much of its
    /// payload as fits; the rest of the payload is read and dropped.
    /// payloadBytes is what went into the buffer.
    int ReceiveFrame(Buffer& buffer, FrameHeader& header, std::uint64_t& payloadBytes);
    /// Reads exactly length bytes into data, going on after time-outs from
    /// where the last read stopped. A non-null header marks the read that
    /// begins a frame and gets a copy of what was read.
    int ReadExactly(char* data, std::uint64_t length, char* header);
    /// Sets the metadata of a received frame, as the consumer reads it.
    void Finish(Buffer& buffer);

    /// Grab thread only: room for the header of a buffer too small to hold
    /// one, and for payload that does not fit.
    std::vector<char> m_spareHeader;
    std::vector<char> m_drain;
};

} // namespace GenTL
