#pragma once
/**
 * IMessageChannel: a device's channel of asynchronous event packets. It has
 * the shape of a data stream with small buffers that it makes itself; no
 * exported function reaches it directly, the device does.
 */
#include "modules/IBaseModule.h"

namespace GenTL {

class IHALGvmc;

class IMessageChannel : public IBaseModule {
public:
    /// Opens the channel on the given receive layer (own one when null);
    /// the flag asks for multicast.
    virtual int Open(IHALGvmc* hal, bool multicast) = 0;
    /// Closes the channel.
    virtual int Close() = 0;
    /// Allocates a message buffer of size bytes and hands out its handle.
    virtual int AllocAndAnnounceBuffer(unsigned long size, void* userData, void** phBuffer) = 0;
    /// Puts the buffer back into the input queue.
    virtual int QueueBuffer(void* hBuffer) = 0;
    /// Withdraws a buffer; gives back its user pointer.
    virtual int RevokeBuffer(void* hBuffer, void** userData) = 0;
    /// Handle of announced buffer number index.
    virtual int GetBufferID(unsigned int index, void** phBuffer) const = 0;
    /// A BUFFER_INFO_* fact of a message buffer.
    virtual int GetBufferInfo(void* hBuffer, int cmd, int* type, void* buffer,
                              unsigned long* size) = 0;
    /// Starts receiving event packets.
    virtual int StartListening() = 0;
    /// Stops receiving.
    virtual int StopListening() = 0;
    /// Empties both queues.
    virtual int Flush() = 0;
    /// Whether the channel is open.
    virtual bool IsOpen() const = 0;
    /// An MC_INFO_* fact, through the info triple.
    virtual int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) const = 0;
    /// Waits up to timeout milliseconds for a received message; hands out
    /// its buffer's handle.
    virtual int WaitOnNewBuffer(void** phBuffer, unsigned long timeout) = 0;
    /// Ends one wait in WaitOnNewBuffer (or the next one, if none waits).
    virtual int KillWaitForNewBuffer() = 0;
};

} // namespace GenTL
