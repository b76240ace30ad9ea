#include "events/RemoteDeviceEvent.h"

#include <algorithm>
#include <cstring>

#include "api/Error.h"
#include "api/GenTLHandle.h"
#include "events/MCBuffer.h"
#include "events/MessageChannel.h"

namespace GenTL {

RemoteDeviceEvent::RemoteDeviceEvent(MessageChannel* channel)
    : Event(EVENT_REMOTE_DEVICE, kRemoteDeviceEventSizeMax), m_pChannel(channel) {}

RemoteDeviceEvent::~RemoteDeviceEvent() = default;

int RemoteDeviceEvent::GetData(void* buffer, unsigned long* size, unsigned long timeout) {
    if (size == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piSize==nullptr");
    }
    if (buffer == nullptr) {
        *size = sizeMax;
        return GC_ERR_SUCCESS;
    }
    if (*size < sizeMax) {
        return ReportError(GC_ERR_BUFFER_TOO_SMALL, "*piSize < sizeMax");
    }
    void* handle = nullptr;
    if (int rc = m_pChannel->WaitOnNewBuffer(&handle, timeout)) {
        return ChainError(rc);
    }
    auto* message = dynamic_cast<MCBuffer*>(CastHandleToIBufferPtr(handle));
    if (message != nullptr) {
        const unsigned long length =
            std::min<unsigned long>(std::min(message->filled, message->size), *size);
        std::memcpy(buffer, message->data, length);
        *size = length;
    }
    if (int rc = m_pChannel->QueueBuffer(handle)) {
        return ChainError(rc);
    }
    ++numFired;
    return GC_ERR_SUCCESS;
}

int RemoteDeviceEvent::GetDataInfo(const void* data, unsigned long dataSize, int cmd, int* type,
                                   void* out, unsigned long* outSize) const {
    return AnswerDataInfo(data, dataSize, cmd, type, out, outSize);
}

int RemoteDeviceEvent::GetInfo(int cmd, int* type, void* buffer, unsigned long* size) {
    if (cmd == EVENT_NUM_IN_QUEUE) {
        numInQueue = m_pChannel->GetOutputQueueSize();
    }
    return Event::GetInfo(cmd, type, buffer, size);
}

int RemoteDeviceEvent::Flush() const {
    return m_pChannel->Flush();
}

int RemoteDeviceEvent::Kill() const {
    return m_pChannel->KillWaitForNewBuffer();
}

} // namespace GenTL
