#pragma once
/**
 * NewBufferEvent: EVENT_NEW_BUFFER of a data stream, a view of the stream's
 * output queue. GetData takes the oldest finished buffer (BS_USER) and
 * hands out a NewBufferEventData record; the consumer gives the buffer
 * back with DSQueueBuffer.
 */
#include "events/Event.h"

namespace GenTL {

class DataStream;

/// The datum of a new-buffer event: 16 bytes.
struct NewBufferEventData {
    void* bufferHandle; ///< the filled buffer's handle
    void* userPointer;  ///< the private pointer of its announce
};
static_assert(sizeof(NewBufferEventData) == 16, "the datum is two 64-bit words");

class NewBufferEvent : public Event {
public:
    /// The stream stays the owner; it must outlive the event.
    explicit NewBufferEvent(DataStream* stream);
    ~NewBufferEvent() override;

    /**
     * Null size: GC_ERR_INVALID_PARAMETER. Null buffer: *size = 16 (the
     * size query). *size below 16: GC_ERR_BUFFER_TOO_SMALL. Otherwise waits
     * up to timeout ms (GENTL_INFINITE: no limit) for a finished buffer and
     * writes its record; -1011 on time-out, -1012 after a Kill.
     */
    int GetData(void* buffer, unsigned long* size, unsigned long timeout) override;
    int GetDataInfo(const void* data, unsigned long dataSize, int cmd, int* type, void* out,
                    unsigned long* outSize) const override;
    /// EVENT_NUM_IN_QUEUE is the stream's output queue length.
    int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) override;
    /// Discards the stream's output queue (ACQ_QUEUE_OUTPUT_DISCARD).
    int Flush() const override;
    /// Ends one wait in GetData, or the next one.
    int Kill() const override;

private:
    DataStream* m_pStream;
};

} // namespace GenTL
