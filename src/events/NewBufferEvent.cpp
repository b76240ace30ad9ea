#include "events/NewBufferEvent.h"

#include <cstring>

#include "api/Error.h"
#include "stream/Buffer.h"
#include "stream/BufferStateMachine.h"
#include "stream/DataStream.h"

namespace GenTL {

NewBufferEvent::NewBufferEvent(DataStream* stream)
    : Event(EVENT_NEW_BUFFER, sizeof(NewBufferEventData)), m_pStream(stream) {}

NewBufferEvent::~NewBufferEvent() = default;

int NewBufferEvent::GetData(void* buffer, unsigned long* size, unsigned long timeout) {
    if (size == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piSize==nullptr");
    }
    if (buffer == nullptr) {
        *size = sizeof(NewBufferEventData);
        return GC_ERR_SUCCESS;
    }
    if (*size < sizeof(NewBufferEventData)) {
        return ReportError(GC_ERR_BUFFER_TOO_SMALL, "*piSize < sizeof(S_EVENT_NEW_BUFFER)");
    }
    // A pending kill is the state machine's flag: its wait consumes it
    // before it would take a ready buffer.
    void* handle = nullptr;
    if (int rc = m_pStream->WaitOnNewBuffer(&handle, timeout)) {
        return ChainError(rc);
    }
    NewBufferEventData data{handle, nullptr};
    if (Buffer* b = CastHandleToBufferPtr(handle)) {
        data.userPointer = b->userData;
    }
    *size = sizeof(NewBufferEventData);
    std::memcpy(buffer, &data, sizeof data);
    ++numFired;
    return GC_ERR_SUCCESS;
}

int NewBufferEvent::GetDataInfo(const void* data, unsigned long dataSize, int cmd, int* type,
                                void* out, unsigned long* outSize) const {
    return AnswerDataInfo(data, dataSize, cmd, type, out, outSize);
}

int NewBufferEvent::GetInfo(int cmd, int* type, void* buffer, unsigned long* size) {
    if (cmd == EVENT_NUM_IN_QUEUE) {
        numInQueue = m_pStream->GetBufferStateMachine()->GetOutputBufferQueueSize();
    }
    return Event::GetInfo(cmd, type, buffer, size);
}

int NewBufferEvent::Flush() const {
    if (int rc = m_pStream->FlushQueue(ACQ_QUEUE_OUTPUT_DISCARD)) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int NewBufferEvent::Kill() const {
    return m_pStream->KillWaitForNewBuffer();
}

} // namespace GenTL
