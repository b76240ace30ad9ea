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
 * The grab thread (GrabThread) receives through the TCP layer's seven-
 * argument GetNextPacket into base - 60, and leaves when interrupted. There
 * are no timers and no resend.
 */
#include "stream/DataStreamGev.h"

namespace GenTL {

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
    /// on. This build has no TCP layer of its own: a null hal is not
    /// implemented.
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
    int StopAcquisition(int flags) override;

protected:
    IHALGvsp* GvspLayer() const override { return m_pHalGvsp; }
    /// The grab thread.
    void GrabThread();
    /// Moves the base of the buffer behind hBuffer by delta bytes.
    static void ShiftBase(void* hBuffer, long delta);

    void* m_hDeviceTcp;
    IHALGvsp* m_pHalGvsp = nullptr;
};

} // namespace GenTL
