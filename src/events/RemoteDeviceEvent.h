#pragma once
/**
 * RemoteDeviceEvent: EVENT_REMOTE_DEVICE of a message channel, a view of
 * the channel's output queue. GetData hands out one received message-
 * channel packet, whole, and puts its buffer straight back into the
 * channel's input queue: the consumer never sees an MCBuffer.
 */
#include "events/Event.h"

namespace GenTL {

class MessageChannel;

/// Largest message-channel packet, and the event's sizeMax.
constexpr unsigned long kRemoteDeviceEventSizeMax = 576;

class RemoteDeviceEvent : public Event {
public:
    /// The channel stays the owner; it must outlive the event.
    explicit RemoteDeviceEvent(MessageChannel* channel);
    ~RemoteDeviceEvent() override;

    /**
     * Null size: GC_ERR_INVALID_PARAMETER. Null buffer: *size = 576. A
     * *size under 576 is GC_ERR_BUFFER_TOO_SMALL, whatever the waiting
     * message's length. Otherwise waits up to timeout ms for a message,
     * copies it and sets *size to its length.
     */
    int GetData(void* buffer, unsigned long* size, unsigned long timeout) override;
    int GetDataInfo(const void* data, unsigned long dataSize, int cmd, int* type, void* out,
                    unsigned long* outSize) const override;
    /// EVENT_NUM_IN_QUEUE is the channel's output queue length.
    int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) override;
    /// Empties both queues of the channel.
    int Flush() const override;
    /// Ends one wait in GetData, or the next one that has to wait.
    int Kill() const override;

private:
    MessageChannel* m_pChannel;
};

} // namespace GenTL
