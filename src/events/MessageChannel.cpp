#include "events/MessageChannel.h"

#include <algorithm>
#include <limits>
#include <string>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/locks.hpp>
#include <boost/thread/thread_time.hpp>

#include "api/Error.h"
#include "api/GLogger.h"
#include "api/GenTLHandle.h"
#include "events/MCBuffer.h"
#include "events/RemoteDeviceEvent.h"

namespace GenTL {

namespace {

using Lock = boost::unique_lock<boost::mutex>;
using ModuleLock = boost::lock_guard<boost::recursive_mutex>;

const char* const kGevOnly = "only GEV message channels are supported";

const char* const kEventTypes =
    "EVENT_TYPE must be one of :\nGenTL::EVENT_REMOTE_DEVICE, GenTL::EVENT_ERROR, "
    "GenTL::EVENT_MODULE, \nGenTL::EVENT_FEATURE_INVALIDATE, GenTL::EVENT_FEATURE_CHANGE, "
    "GenTL::EVENT_NEW_BUFFER";

// The event types a message channel does not keep, as registering and
// unregistering refuse them.
const EventRefusal kRegisterRefusals[] = {
    {EVENT_ERROR, GC_ERR_NOT_IMPLEMENTED, "implemented"},
    {EVENT_NEW_BUFFER, GC_ERR_NOT_IMPLEMENTED, "implemented"},
    {EVENT_FEATURE_INVALIDATE, GC_ERR_NOT_IMPLEMENTED, "implemented"},
    {EVENT_FEATURE_CHANGE, GC_ERR_NOT_IMPLEMENTED, "implemented"},
    {EVENT_MODULE, GC_ERR_NOT_IMPLEMENTED, "implemented"},
};
const EventRefusal kUnregisterRefusals[] = {
    {EVENT_ERROR, GC_ERR_NOT_IMPLEMENTED, "implemented"},
    {EVENT_NEW_BUFFER, GC_ERR_NOT_AVAILABLE, "available"},
    {EVENT_FEATURE_INVALIDATE, GC_ERR_NOT_AVAILABLE, "available"},
    {EVENT_FEATURE_CHANGE, GC_ERR_NOT_AVAILABLE, "available"},
    {EVENT_MODULE, GC_ERR_NOT_IMPLEMENTED, "implemented"},
};

const char* const kMcInfoCmds =
    "MC_INFO_CMD must be one of :\nGenTL::MC_INFO_ID , GenTL::MC_INFO_NUM_DELIVERED, "
    "GenTL::MC_INFO_NUM_UNDERRUN, \nGenTL::MC_INFO_NUM_ANNOUNCED, GenTL::MC_INFO_NUM_QUEUED, "
    "\nGenTL::MC_INFO_NUM_AWAIT_DELIVERY, GenTL::MC_INFO_NUM_STARTED, "
    "\nGenTL::MC_INFO_PAYLOAD_SIZE, GenTL::MC_INFO_IS_GRABBING, GenTL::MC_INFO_TLTYPE, "
    "\nGenTL::MC_INFO_BUF_ANNOUNCE_MIN, GenTL::MC_INFO_BUF_ALIGNMENT";

const char* const kWaitsEnded = "the message channel's event was closed while waiting";

// Longest single timed wait, in milliseconds.
constexpr unsigned long kWaitSliceMs = 0xFFFFFFFFUL;
constexpr unsigned long kTopBit = 1UL << 63;

// Buffer info command of a message buffer's filled size; the other four
// share their values with BUFFER_INFO_*.
constexpr int kInfoSizeFilled = 4;

bool Contains(const std::deque<void*>& queue, void* handle) {
    return std::find(queue.begin(), queue.end(), handle) != queue.end();
}

// Handles in the channel's lists were made by AllocAndAnnounceBuffer.
MCBuffer* McBufferOf(void* handle) {
    return static_cast<MCBuffer*>(CastHandleToIBufferPtr(handle));
}

} // namespace

MessageChannel::MessageChannel() = default;

MessageChannel::~MessageChannel() {
    EndWaits();
    m_isGrabbing = false;
    if (m_pRemoteDeviceEvent != nullptr) {
        delete m_pRemoteDeviceEvent;
        m_pRemoteDeviceEvent = nullptr;
        if (DeleteHandle(m_hRemoteDeviceEvent) != GC_ERR_SUCCESS) {
            GLogger::Error("~MessageChannel DeleteHandle of the event failed");
        }
    }
    // The channel's owner made these buffers; nobody else can revoke them
    // once the channel is gone.
    ModuleLock lock(m_moduleMutex);
    for (void* handle : m_announcedBuffers) {
        delete McBufferOf(handle);
        DeleteHandle(handle);
    }
    m_announcedBuffers.clear();
}

// --- port ------------------------------------------------------------------

int MessageChannel::ReadPort(unsigned long, void*, unsigned long*) {
    return ReportError(GC_ERR_NOT_IMPLEMENTED, kGevOnly);
}
int MessageChannel::WritePort(unsigned long, const void*, unsigned long*) {
    return ReportError(GC_ERR_NOT_IMPLEMENTED, kGevOnly);
}
int MessageChannel::GetPortURL(char*, unsigned long*) const {
    return ReportError(GC_ERR_NOT_IMPLEMENTED, kGevOnly);
}
int MessageChannel::GetPortInfo(int, int*, void*, unsigned long*) {
    return ReportError(GC_ERR_NOT_IMPLEMENTED, kGevOnly);
}
int MessageChannel::GetNumPortURLs(unsigned int*) {
    return ReportError(GC_ERR_NOT_IMPLEMENTED, kGevOnly);
}
int MessageChannel::GetPortURLInfo(unsigned int, int, int*, void*, unsigned long*) {
    return ReportError(GC_ERR_NOT_IMPLEMENTED, kGevOnly);
}
int MessageChannel::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) {
    return ReportError(GC_ERR_NOT_IMPLEMENTED, kGevOnly);
}
int MessageChannel::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) {
    return ReportError(GC_ERR_NOT_IMPLEMENTED, kGevOnly);
}

int MessageChannel::RegisterEvent(int type, void** event) {
    if (event == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "phEvent == nullptr");
    }
    if (type == EVENT_REMOTE_DEVICE) {
        if (m_pRemoteDeviceEvent != nullptr) {
            return ReportError(GC_ERR_RESOURCE_IN_USE,
                               "an event is already registered on the message channel");
        }
        if (const int rc = AdoptEvent(new RemoteDeviceEvent(this), m_pRemoteDeviceEvent,
                                      m_hRemoteDeviceEvent, event)) {
            return ChainError(rc);
        }
        return GC_ERR_SUCCESS;
    }
    if (const EventRefusal* refusal = FindEventRefusal(kRegisterRefusals, type)) {
        return ReportError(refusal->code, EventRefusalText(*refusal));
    }
    return ReportError(GC_ERR_INVALID_INDEX, kEventTypes);
}

int MessageChannel::UnregisterEvent(int type) {
    if (type == EVENT_REMOTE_DEVICE) {
        if (m_pRemoteDeviceEvent == nullptr) {
            return ReportError(GC_ERR_RESOURCE_IN_USE, "m_pRemoteDeviceEvent != nullptr");
        }
        // A consumer blocked in the event's GetData must be out of it first.
        EndWaits();
        const int rc = ReleaseEvent(m_pRemoteDeviceEvent, m_hRemoteDeviceEvent);
        ResumeWaits();
        if (rc != GC_ERR_SUCCESS) {
            return ChainError(rc);
        }
        return GC_ERR_SUCCESS;
    }
    if (const EventRefusal* refusal = FindEventRefusal(kUnregisterRefusals, type)) {
        return ReportError(refusal->code, EventRefusalText(*refusal));
    }
    return ReportError(GC_ERR_INVALID_INDEX, kEventTypes);
}

// --- channel ---------------------------------------------------------------

int MessageChannel::Open(IHALGvmc*, bool) {
    return GC_ERR_SUCCESS;
}

int MessageChannel::Close() {
    return GC_ERR_SUCCESS;
}

int MessageChannel::AllocAndAnnounceBuffer(unsigned long size, void* userData, void** phBuffer) {
    if (phBuffer == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "phBuffer==nullptr");
    }
    if (m_isGrabbing) {
        return ReportError(GC_ERR_BUSY, "acquisition engine is already started");
    }
    auto* buffer = new MCBuffer(size, userData);
    void* handle = nullptr;
    if (int rc = AllocateHandle(&handle, static_cast<IBuffer*>(buffer))) {
        delete buffer;
        return ChainError(rc);
    }
    {
        ModuleLock lock(m_moduleMutex);
        m_announcedBuffers.push_back(handle);
    }
    *phBuffer = handle;
    return GC_ERR_SUCCESS;
}

int MessageChannel::QueueBuffer(void* hBuffer) {
    if (int rc = CheckHandle(hBuffer)) {
        return ChainError(rc);
    }
    IBuffer* ibuffer = CastHandleToIBufferPtr(hBuffer);
    if (ibuffer == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "hBuffer is not a valid buffer type");
    }
    auto* buffer = dynamic_cast<MCBuffer*>(ibuffer);
    if (buffer == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "pMCBuf is not a valid buffer type");
    }
    {
        Lock lock(m_inputMutex);
        m_inputQueue.push_back(hBuffer);
        buffer->filled = 0;
    }
    m_inputCondition.notify_one();
    return GC_ERR_SUCCESS;
}

int MessageChannel::RevokeBuffer(void* hBuffer, void** userData) {
    bool inUse = false;
    {
        Lock lock(m_inputMutex);
        inUse = Contains(m_inputQueue, hBuffer);
    }
    if (!inUse) {
        Lock lock(m_outputMutex);
        inUse = Contains(m_outputQueue, hBuffer);
    }
    if (inUse) {
        GLogger::Error("GenTL::MessageChannel::RevokeBuffer Buffer in use");
        return ReportError(GC_ERR_BUSY, "Buffer in use");
    }
    if (int rc = CheckHandle(hBuffer)) {
        return ChainError(rc);
    }
    auto* buffer = dynamic_cast<MCBuffer*>(CastHandleToIBufferPtr(hBuffer));
    if (buffer == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "hBuffer handle is of wrong type");
    }
    {
        ModuleLock lock(m_moduleMutex);
        auto it = std::find(m_announcedBuffers.begin(), m_announcedBuffers.end(), hBuffer);
        if (it == m_announcedBuffers.end()) {
            GLogger::Error("GenTL::MessageChannel::RevokeBuffer Buffer not found");
            return ReportError(GC_ERR_INVALID_HANDLE, "Buffer not found");
        }
        m_announcedBuffers.erase(it);
    }
    if (userData != nullptr) {
        *userData = buffer->userData;
    }
    delete buffer;
    if (int rc = DeleteHandle(hBuffer)) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int MessageChannel::GetBufferID(unsigned int index, void** phBuffer) const {
    if (phBuffer == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "phBuffer==nullptr");
    }
    ModuleLock lock(m_moduleMutex);
    if (index >= m_announcedBuffers.size()) {
        return ReportError(GC_ERR_INVALID_INDEX, "iIndex >= m_announcedBuffers.size()");
    }
    *phBuffer = m_announcedBuffers[index];
    return GC_ERR_SUCCESS;
}

int MessageChannel::GetBufferInfo(void* hBuffer, int cmd, int* type, void* buffer,
                                  unsigned long* size) {
    if (int rc = CheckHandle(hBuffer)) {
        return ChainError(rc);
    }
    auto* b = dynamic_cast<MCBuffer*>(CastHandleToIBufferPtr(hBuffer));
    if (b == nullptr) {
        GLogger::Error("GenTL::MessageChannel::RevokeBuffer Buffer handle is of worng type");
        return ReportError(GC_ERR_INVALID_HANDLE, "hBuffer handle is of wrong type");
    }
    int rc = GC_ERR_SUCCESS;
    switch (cmd) {
    case BUFFER_INFO_BASE:
        rc = m_infoUtility.SetInfo(reinterpret_cast<char*>(b->data), type, buffer, size, false);
        break;
    case BUFFER_INFO_SIZE:
        rc = m_infoUtility.SetInfo(static_cast<unsigned long>(b->size), type, buffer, size, false);
        break;
    case BUFFER_INFO_USER_PTR:
        rc = m_infoUtility.SetInfo(static_cast<char*>(b->userData), type, buffer, size, false);
        break;
    case BUFFER_INFO_TIMESTAMP:
        rc = m_infoUtility.SetInfo(static_cast<unsigned long>(b->timestamp), type, buffer, size,
                                   false);
        break;
    case kInfoSizeFilled:
        rc =
            m_infoUtility.SetInfo(static_cast<unsigned long>(b->filled), type, buffer, size, false);
        break;
    default:
        return ReportError(GC_ERR_INVALID_INDEX, "iInfoCmd must be one of 0 to 4");
    }
    return rc == GC_ERR_SUCCESS ? rc : ChainError(rc);
}

int MessageChannel::StartListening() {
    return ReportError(GC_ERR_NOT_IMPLEMENTED, kGevOnly);
}

int MessageChannel::StopListening() {
    return ReportError(GC_ERR_NOT_IMPLEMENTED, kGevOnly);
}

int MessageChannel::Flush() {
    {
        Lock lock(m_inputMutex);
        m_inputQueue.clear();
    }
    {
        Lock lock(m_outputMutex);
        m_outputQueue.clear();
    }
    return GC_ERR_SUCCESS;
}

bool MessageChannel::IsOpen() const {
    return false;
}

int MessageChannel::GetInfo(int cmd, int* type, void* buffer, unsigned long* size) const {
    using U64 = unsigned long;
    int rc = GC_ERR_SUCCESS;
    switch (cmd) {
    case MC_INFO_ID:
        rc = m_infoUtility.SetInfo(m_portInfo.id, type, buffer, size, false);
        break;
    case MC_INFO_NUM_DELIVERED:
        rc = m_infoUtility.SetInfo(static_cast<U64>(m_numDelivered.load()), type, buffer, size,
                                   false);
        break;
    case MC_INFO_NUM_UNDERRUN:
        rc = m_infoUtility.SetInfo(static_cast<U64>(m_numUnderrun), type, buffer, size, false);
        break;
    case MC_INFO_NUM_ANNOUNCED: {
        ModuleLock lock(m_moduleMutex);
        rc = m_infoUtility.SetInfo(static_cast<U64>(m_announcedBuffers.size()), type, buffer, size,
                                   false);
        break;
    }
    case MC_INFO_NUM_QUEUED: {
        U64 count = 0;
        {
            Lock lock(m_inputMutex);
            count = m_inputQueue.size();
        }
        rc = m_infoUtility.SetInfo(count, type, buffer, size, false);
        break;
    }
    case MC_INFO_NUM_AWAIT_DELIVERY:
        rc = m_infoUtility.SetInfo(static_cast<U64>(GetOutputQueueSize()), type, buffer, size,
                                   false);
        break;
    case MC_INFO_NUM_STARTED:
        rc = m_infoUtility.SetInfo(static_cast<U64>(m_numStarted), type, buffer, size, false);
        break;
    case MC_INFO_PAYLOAD_SIZE:
        rc = m_infoUtility.SetInfo(static_cast<U64>(m_payloadSize), type, buffer, size, false);
        break;
    case MC_INFO_IS_GRABBING:
        rc = m_infoUtility.SetInfo(m_isGrabbing.load(), type, buffer, size, false);
        break;
    case MC_INFO_TLTYPE:
        rc = m_infoUtility.SetInfo(m_tlType, type, buffer, size, false);
        break;
    case MC_INFO_BUF_ANNOUNCE_MIN:
        rc = m_infoUtility.SetInfo(static_cast<U64>(m_bufAnnounceMin), type, buffer, size, false);
        break;
    case MC_INFO_BUF_ALIGNMENT:
        rc = m_infoUtility.SetInfo(static_cast<U64>(m_bufAlignment), type, buffer, size, false);
        break;
    default:
        return ReportError(GC_ERR_INVALID_INDEX, kMcInfoCmds);
    }
    return rc == GC_ERR_SUCCESS ? rc : ChainError(rc);
}

int MessageChannel::WaitOnNewBuffer(void** phBuffer, unsigned long timeoutMs) {
    if (phBuffer == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "phBuffer==nullptr");
    }
    Lock lock(m_outputMutex);
    if (m_waitsEnded) {
        return ReportError(GC_ERR_ABORT, kWaitsEnded);
    }
    ++m_waiters;
    const int rc = WaitLocked(lock, phBuffer, timeoutMs);
    if (--m_waiters == 0 && m_waitsEnded) {
        m_outputCondition.notify_all();
    }
    return rc;
}

int MessageChannel::WaitLocked(boost::unique_lock<boost::mutex>& lock, void** phBuffer,
                               unsigned long timeoutMs) {
    if (m_outputQueue.empty()) {
        auto ready = [this] { return !m_outputQueue.empty() || m_killWait.load() || m_waitsEnded; };
        if (timeoutMs == GENTL_INFINITE) {
            m_outputCondition.wait(lock, ready);
        } else if ((timeoutMs & kTopBit) != 0) {
            return ReportError(GC_ERR_INVALID_PARAMETER, "iTimeout is out of range");
        } else {
            unsigned long remaining = timeoutMs;
            while (!ready()) {
                if (remaining == 0) {
                    return ReportError(GC_ERR_TIMEOUT, "WaitOnNewBuffer timed out");
                }
                const unsigned long slice = std::min(remaining, kWaitSliceMs);
                const boost::system_time deadline =
                    boost::get_system_time() +
                    boost::posix_time::milliseconds(static_cast<long>(slice));
                if (!m_outputCondition.timed_wait(lock, deadline, ready)) {
                    remaining -= slice;
                }
            }
        }
        if (m_waitsEnded) {
            return ReportError(GC_ERR_ABORT, kWaitsEnded);
        }
        if (m_killWait.exchange(false)) {
            return ReportError(GC_ERR_ABORT, "WaitOnNewBuffer interrupted by kill.");
        }
    }
    if (m_outputQueue.empty()) {
        return ReportError(GC_ERR_ABORT, "the output queue is empty");
    }
    *phBuffer = m_outputQueue.front();
    m_outputQueue.pop_front();
    ++m_numDelivered;
    return GC_ERR_SUCCESS;
}

int MessageChannel::KillWaitForNewBuffer() {
    {
        Lock lock(m_outputMutex);
        m_killWait = true;
    }
    m_outputCondition.notify_all();
    return GC_ERR_SUCCESS;
}

std::uint64_t MessageChannel::GetOutputQueueSize() const {
    Lock lock(m_outputMutex);
    return m_outputQueue.size();
}

void* MessageChannel::TakeInputBuffer(unsigned long timeoutMs) {
    Lock lock(m_inputMutex);
    const boost::system_time deadline =
        boost::get_system_time() + boost::posix_time::milliseconds(static_cast<long>(timeoutMs));
    if (!m_inputCondition.timed_wait(lock, deadline, [this] { return !m_inputQueue.empty(); })) {
        return nullptr;
    }
    void* handle = m_inputQueue.front();
    m_inputQueue.pop_front();
    return handle;
}

void MessageChannel::ReturnInputBuffer(void* hBuffer) {
    {
        Lock lock(m_inputMutex);
        m_inputQueue.push_front(hBuffer);
    }
    m_inputCondition.notify_one();
}

void MessageChannel::EndWaits() {
    Lock lock(m_outputMutex);
    m_waitsEnded = true;
    m_outputCondition.notify_all();
    m_outputCondition.wait(lock, [this] { return m_waiters == 0; });
}

void MessageChannel::ResumeWaits() {
    Lock lock(m_outputMutex);
    m_waitsEnded = false;
}

void MessageChannel::PutOutputBuffer(void* hBuffer) {
    {
        Lock lock(m_outputMutex);
        m_outputQueue.push_back(hBuffer);
    }
    m_outputCondition.notify_one();
}

} // namespace GenTL
