#pragma once
/**
 * IDataStream: one stream channel of a device, the DS module. It takes the
 * consumer's buffers, fills them from the camera's stream and hands them
 * back in the order of the buffer handling mode.
 */
#include "GenTL_KESTA.h"
#include "modules/IBaseModule.h"

namespace GenTL {

class IHALGvsp;

class IDataStream : public IBaseModule {
public:
    /// Opens the stream on the given receive layer, or on its own when null.
    virtual int Open(IHALGvsp* hal) = 0;
    /// Closes the stream; the device keeps the object.
    virtual int Close() = 0;
    /// Announces the consumer's memory of size bytes; hands out a buffer handle.
    virtual int AnnounceBuffer(void* memory, unsigned long size, void* userData,
                               void** phBuffer) = 0;
    /// Allocates size bytes, announces them, hands out a buffer handle.
    virtual int AllocAndAnnounceBuffer(unsigned long size, void* userData, void** phBuffer) = 0;
    /// Puts the buffer (by its handle) into the input queue.
    virtual int QueueBuffer(void* hBuffer) = 0;
    /// Withdraws an announced buffer; gives back its memory and user pointer.
    virtual int RevokeBuffer(void* hBuffer, void** memory, void** userData) = 0;
    /// Moves or discards buffers by ACQ_QUEUE_* operation.
    virtual int FlushQueue(int operation) = 0;
    /// A STREAM_INFO_* fact, through the info triple.
    virtual int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) const = 0;
    /// Handle of announced buffer number index.
    virtual int GetBufferID(unsigned int index, void** phBuffer) const = 0;
    /// A BUFFER_INFO_* fact of the buffer with handle hBuffer.
    virtual int GetBufferInfo(void* hBuffer, int cmd, int* type, void* buffer,
                              unsigned long* size) const = 0;
    /// Starts the grab with ACQ_START_* flags, for count images (all ones: endless).
    virtual int StartAcquisition(int flags, unsigned long count) = 0;
    /// Stops the grab with ACQ_STOP_* flags.
    virtual int StopAcquisition(int flags) = 0;
    /// Chunk layout of a filled buffer.
    virtual int GetBufferChunkData(void* hBuffer, S_SINGLE_CHUNK_DATA* chunks,
                                   unsigned long* count) = 0;
    /// The handle of the device that owns the stream.
    virtual int GetParentDev(void** phDevice) const = 0;
    /// Whether the stream is open.
    virtual bool IsOpen() const = 0;
    /// Waits up to timeout milliseconds for the next block's leader.
    virtual int WaitForNextLeader(unsigned long timeout) = 0;
    /// Forgets a leader that arrived before the next wait.
    virtual int ResetWaitForNextLeader() = 0;
    /// Resend tuning for the next start: retry window in frames, frame rate,
    /// two settings strings, and the geometry of variable-length blocks.
    virtual int SetupResendRetryParams(unsigned long retryWindowFrames, double frameRate,
                                       const char* first, const char* second, int width,
                                       int height) = 0;
};

} // namespace GenTL
