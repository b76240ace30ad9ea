#include "events/MessageChannelGev.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <boost/thread/locks.hpp>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/GLogger.h"
#include "api/GenTLHandle.h"
#include "events/HALGvmc.h"
#include "events/MCBuffer.h"
#include "modules/ThreadPriority.h"

namespace GenTL {

namespace {

using ModuleLock = boost::lock_guard<boost::recursive_mutex>;
using Lock = boost::lock_guard<boost::mutex>;

/// EVENT_CMD 0x00C0 and EVENTDATA_CMD 0x00C2 differ in bit 1 alone.
constexpr unsigned kEventCommandMask = 0xFFFD;
constexpr unsigned kEventCommand = 0x00C0;

/// Whether a datagram of `length` bytes is an event packet. Its command is
/// the big-endian word at bytes 2 and 3; a datagram too short to hold it is
/// none (its bytes would be those of an earlier one).
bool IsEventPacket(const char* packet, int length) {
    if (length < 4) {
        return false;
    }
    const unsigned command = static_cast<unsigned>(static_cast<unsigned char>(packet[2])) << 8 |
                             static_cast<unsigned char>(packet[3]);
    return (command & kEventCommandMask) == kEventCommand;
}

MCBuffer* McBufferOf(void* handle) {
    return dynamic_cast<MCBuffer*>(CastHandleToIBufferPtr(handle));
}

} // namespace

MessageChannelGev::MessageChannelGev(IHALGev* hal, void* hDevice, unsigned int channelId,
                                     int accessMode)
    : m_pHal(hal), m_hDevice(hDevice), m_accessMode(accessMode) {
    m_portInfo.id = std::to_string(channelId);
    m_portInfo.module = "TLMessageChannel";
    m_payloadSize = kGvmcPacketSizeMax;
    m_bufAnnounceMin = 1;
    m_bufAlignment = 1;
    m_tlType = "GEV";
}

MessageChannelGev::~MessageChannelGev() {
    // A consumer blocked in EventGetData leaves first. Then the camera is
    // told to stop and the socket goes: a channel deleted while listening
    // (its device closed with the event registered) must neither leave the
    // camera sending nor leak its layer.
    EndWaits();
    if (m_isGrabbing) {
        StopListening();
    }
    if (m_thread.joinable()) {
        m_thread.interrupt();
        m_thread.join();
    }
    if (m_open) {
        Close();
    }
}

int MessageChannelGev::RefuseClosed() const {
    return ReportError(GC_ERR_INVALID_HANDLE, "GEV message channel is not open");
}

// --- port: the base's refusals while open ------------------------------------

int MessageChannelGev::ReadPort(unsigned long address, void* buffer, unsigned long* size) {
    return IsOpen() ? MessageChannel::ReadPort(address, buffer, size) : RefuseClosed();
}
int MessageChannelGev::WritePort(unsigned long address, const void* buffer, unsigned long* size) {
    return IsOpen() ? MessageChannel::WritePort(address, buffer, size) : RefuseClosed();
}
int MessageChannelGev::GetPortURL(char* url, unsigned long* size) const {
    return IsOpen() ? MessageChannel::GetPortURL(url, size) : RefuseClosed();
}
int MessageChannelGev::GetPortInfo(int cmd, int* type, void* buffer, unsigned long* size) {
    return IsOpen() ? MessageChannel::GetPortInfo(cmd, type, buffer, size) : RefuseClosed();
}
int MessageChannelGev::GetNumPortURLs(unsigned int* count) {
    return IsOpen() ? MessageChannel::GetNumPortURLs(count) : RefuseClosed();
}
int MessageChannelGev::GetPortURLInfo(unsigned int index, int cmd, int* type, void* buffer,
                                      unsigned long* size) {
    return IsOpen() ? MessageChannel::GetPortURLInfo(index, cmd, type, buffer, size)
                    : RefuseClosed();
}
int MessageChannelGev::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) {
    return IsOpen() ? MessageChannel::ReadPortStacked(entries, count) : RefuseClosed();
}
int MessageChannelGev::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* entries,
                                        unsigned long* count) {
    return IsOpen() ? MessageChannel::WritePortStacked(entries, count) : RefuseClosed();
}

// --- the event ---------------------------------------------------------------

int MessageChannelGev::RegisterEvent(int type, void** event) {
    if (!IsOpen()) {
        return RefuseClosed();
    }
    if (const int rc = MessageChannel::RegisterEvent(type, event)) {
        return rc;
    }
    if (m_isGrabbing) {
        return GC_ERR_SUCCESS; // started by hand, with buffers of its own
    }
    int rc = PrepareBuffers();
    if (rc == GC_ERR_SUCCESS) {
        rc = StartListening();
    }
    if (rc != GC_ERR_SUCCESS) {
        MessageChannel::UnregisterEvent(type);
        *event = nullptr;
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int MessageChannelGev::UnregisterEvent(int type) {
    if (!IsOpen()) {
        return RefuseClosed();
    }
    if (type == EVENT_REMOTE_DEVICE && m_isGrabbing) {
        if (const int rc = StopListening()) {
            GLogger::Error("MessageChannelGev::UnregisterEvent StopListening failed with", rc);
        }
    }
    return MessageChannel::UnregisterEvent(type);
}

int MessageChannelGev::PrepareBuffers() {
    std::size_t announced = 0;
    {
        ModuleLock lock(m_moduleMutex);
        announced = m_announcedBuffers.size();
    }
    for (; announced < kMessageBuffers; ++announced) {
        void* handle = nullptr;
        if (const int rc = MessageChannel::AllocAndAnnounceBuffer(
                static_cast<unsigned long>(m_payloadSize), nullptr, &handle)) {
            return ChainError(rc);
        }
    }
    // Buffers of an earlier registration may sit anywhere: start afresh.
    MessageChannel::Flush();
    std::vector<void*> all;
    {
        ModuleLock lock(m_moduleMutex);
        all = m_announcedBuffers;
    }
    for (void* handle : all) {
        if (const int rc = MessageChannel::QueueBuffer(handle)) {
            return ChainError(rc);
        }
    }
    return GC_ERR_SUCCESS;
}

// --- channel -----------------------------------------------------------------

int MessageChannelGev::Open(IHALGvmc* hal, bool multicast) {
    if (m_open) {
        return ReportError(GC_ERR_RESOURCE_IN_USE, "GEV message channel is already open");
    }
    m_pLayer = hal != nullptr ? hal : new HALGvmc();
    m_open = true;
    m_multicast = multicast;
    return GC_ERR_SUCCESS;
}

int MessageChannelGev::Close() {
    if (!m_open) {
        return ReportError(GC_ERR_RESOURCE_IN_USE, "GEV message channel is not open");
    }
    // The receive thread reads through the layer: it ends before the layer.
    if (m_isGrabbing) {
        if (const int rc = StopListening()) {
            GLogger::Error("MessageChannelGev::Close StopListening failed with", rc);
        }
    }
    m_open = false;
    delete m_pLayer;
    m_pLayer = nullptr;
    return GC_ERR_SUCCESS;
}

int MessageChannelGev::AllocAndAnnounceBuffer(unsigned long size, void* userData, void** phBuffer) {
    return IsOpen() ? MessageChannel::AllocAndAnnounceBuffer(size, userData, phBuffer)
                    : RefuseClosed();
}
int MessageChannelGev::QueueBuffer(void* hBuffer) {
    return IsOpen() ? MessageChannel::QueueBuffer(hBuffer) : RefuseClosed();
}
int MessageChannelGev::RevokeBuffer(void* hBuffer, void** userData) {
    return IsOpen() ? MessageChannel::RevokeBuffer(hBuffer, userData) : RefuseClosed();
}
int MessageChannelGev::GetBufferID(unsigned int index, void** phBuffer) const {
    return IsOpen() ? MessageChannel::GetBufferID(index, phBuffer) : RefuseClosed();
}
int MessageChannelGev::GetBufferInfo(void* hBuffer, int cmd, int* type, void* buffer,
                                     unsigned long* size) {
    return IsOpen() ? MessageChannel::GetBufferInfo(hBuffer, cmd, type, buffer, size)
                    : RefuseClosed();
}
int MessageChannelGev::GetInfo(int cmd, int* type, void* buffer, unsigned long* size) const {
    return IsOpen() ? MessageChannel::GetInfo(cmd, type, buffer, size) : RefuseClosed();
}
int MessageChannelGev::WaitOnNewBuffer(void** phBuffer, unsigned long timeout) {
    return IsOpen() ? MessageChannel::WaitOnNewBuffer(phBuffer, timeout) : RefuseClosed();
}
int MessageChannelGev::KillWaitForNewBuffer() {
    return IsOpen() ? MessageChannel::KillWaitForNewBuffer() : RefuseClosed();
}

bool MessageChannelGev::IsOpen() const {
    return m_open;
}

int MessageChannelGev::Flush() {
    if (!IsOpen()) {
        return RefuseClosed();
    }
    // Only the event queues this channel's buffers, and never again after
    // dropping them: a flush that emptied the input queue too would leave
    // the channel deaf for good. The dropped messages' buffers go back to
    // the input queue instead.
    std::deque<void*> dropped;
    {
        Lock lock(m_outputMutex);
        dropped.swap(m_outputQueue);
    }
    for (void* handle : dropped) {
        MessageChannel::QueueBuffer(handle);
    }
    return GC_ERR_SUCCESS;
}

int MessageChannelGev::StartListening() {
    if (!IsOpen()) {
        return RefuseClosed();
    }
    if (m_isGrabbing) {
        return ReportError(GC_ERR_RESOURCE_IN_USE, "acquisition engine is already started");
    }
    std::size_t announced = 0;
    {
        ModuleLock lock(m_moduleMutex);
        announced = m_announcedBuffers.size();
    }
    if (announced < m_bufAnnounceMin) {
        return ReportError(GC_ERR_INVALID_BUFFER,
                           "the number of announced buffers is " + std::to_string(announced) +
                               " which is less than " + std::to_string(m_bufAnnounceMin) +
                               " --the minimum allowed");
    }
    if (const int rc = m_pLayer->Start(m_pHal, m_hDevice, m_multicast, m_accessMode)) {
        return ChainError(rc);
    }
    m_isGrabbing = true;
    {
        Lock lock(m_inputMutex);
        m_numStarted = m_inputQueue.size();
    }
    m_thread = boost::thread(&MessageChannelGev::GrabThread, this);
    return GC_ERR_SUCCESS;
}

int MessageChannelGev::StopListening() {
    if (!IsOpen()) {
        return RefuseClosed();
    }
    if (!m_isGrabbing) {
        return ReportError(GC_ERR_RESOURCE_IN_USE, "acquisition engine was not started");
    }
    m_thread.interrupt();
    m_thread.join();
    m_numStarted = 0;
    m_isGrabbing = false;
    if (const int rc = m_pLayer->Stop(m_pHal, m_hDevice, m_accessMode)) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

void MessageChannelGev::GrabThread() {
    ThreadPriority::ApplyThreadPrioritySetting(ThreadPriority::m_priorityEventThread);
    std::vector<char> scratch(kGvmcPacketSizeMax);
    for (;;) {
        // The wait for a buffer is interruptible; this point covers a queue
        // that never runs dry.
        boost::this_thread::interruption_point();
        void* handle = TakeInputBuffer(kReceiveTimeoutMs);
        if (handle == nullptr) {
            continue;
        }
        int received = 0;
        if (m_pLayer->GetNextPacket(scratch.data(), kGvmcPacketSizeMax, received,
                                    kReceiveTimeoutMs) != GC_ERR_SUCCESS) {
            ReturnInputBuffer(handle);
            continue;
        }
        // A datagram that is no event takes its buffer out of circulation
        // until the buffers are queued anew (the next registration).
        if (received == 0 || !IsEventPacket(scratch.data(), received)) {
            continue;
        }
        MCBuffer* buffer = McBufferOf(handle);
        if (buffer == nullptr) {
            continue;
        }
        const std::size_t length =
            std::min<std::size_t>(static_cast<std::size_t>(received), buffer->size);
        std::memcpy(buffer->data, scratch.data(), length);
        buffer->filled = length;
        PutOutputBuffer(handle);
    }
}

} // namespace GenTL
