#include "stream/BufferStateMachine.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/locks.hpp>
#include <boost/thread/thread_time.hpp>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/GLogger.h"
#include "api/GenTLHandle.h"
#include "api/localization.h"
#include "stream/Buffer.h"

namespace GenTL {

namespace {

using Lock = boost::lock_guard<boost::mutex>;

// Handles in the lists were made by the announce here, so their module is a
// Buffer seen through its IBuffer part.
Buffer* BufferOf(GenTLHandle* handle) {
    return static_cast<Buffer*>(static_cast<IBuffer*>(handle->module));
}

void Erase(std::deque<GenTLHandle*>& queue, GenTLHandle* handle) {
    auto it = std::find(queue.begin(), queue.end(), handle);
    if (it != queue.end()) {
        queue.erase(it);
    }
}

// Longest single wait of WaitOnNewBuffer, in milliseconds.
constexpr std::uint64_t kWaitSliceMs = 0xFFFFFFFFULL;

} // namespace

BufferStateMachine::BufferStateMachine() = default;

BufferStateMachine::~BufferStateMachine() {
    Lock lock(m_announcedMutex);
    for (GenTLHandle* handle : m_announcedBuffers) {
        Buffer* buffer = BufferOf(handle);
        if (!buffer->userOwned) {
            delete[] buffer->base;
        }
        delete buffer;
        DeleteHandle(handle);
    }
    m_announcedBuffers.clear();
}

// --- state entries ---------------------------------------------------------

void BufferStateMachine::PrepBufferForAnnounceState(Buffer* b) {
    b->state = BS_ANNOUNCE;
    b->isNewData = false;
    b->isQueued = false;
    b->isAcquiring = false;
    b->isIncomplete = false;
    b->tlType = "Ethernet";
    b->sizeFilled = 0;
    b->width = b->height = b->xOffset = b->yOffset = b->xPadding = b->yPadding = 0;
    b->frameId = 0;
    b->imagePresent = false;
    b->imageOffset = 0;
    b->payloadType = 0;
    b->pixelFormat = 0;
    b->deliveredImageHeight = 0;
    b->deliveredChunkPayloadSize = 0;
    b->chunkLayoutId = 0;
    b->pixelFormatNamespace = PIXELFORMAT_NAMESPACE_PFNC_32BIT;
    b->filename.clear();
    b->pixelEndianness = PIXELENDIANNESS_LITTLE;
    b->dataSize = 0;
    b->timestamp = 0;
    b->dataLargerThanBuffer = false;
    b->containsChunkData = false;
    b->receivedBytes = 0;
    b->receivedPackets = 0;
    b->missingPackets = 0;
    b->nextExpectedPacket = 0;
    b->resendCount = 0;
    b->lastPacketId = 0;
    b->trailerSizeY = 0;
    b->nextPacketDone = false;
    b->bufferExpired = false;
    b->bufferExpiryDone = false;
    b->packetSeen = false;
    b->trailerSeen = false;
    b->leaderSeen = false;
    b->FreePacketBitmap();
}

void BufferStateMachine::PrepBufferForInputState(Buffer* b) {
    b->state = BS_INPUT;
    b->isNewData = false;
    b->isQueued = true;
    b->isAcquiring = false;
    b->isIncomplete = false;
    b->sizeFilled = 0;
    b->width = b->height = b->xOffset = b->yOffset = b->xPadding = b->yPadding = 0;
    b->frameId = 0;
    b->imagePresent = false;
    b->imageOffset = 0;
    b->payloadType = 0;
    b->pixelFormat = 0;
    b->deliveredImageHeight = 0;
    b->deliveredChunkPayloadSize = 0;
    b->chunkLayoutId = 0;
    b->dataSize = 0;
    b->timestamp = 0;
    b->dataLargerThanBuffer = false;
    b->containsChunkData = false;
    b->filename.clear();
    b->lastPacketId = 0;
}

void BufferStateMachine::PrepBufferForFillState(Buffer* b) {
    b->state = BS_FILL;
    // Incomplete until the completion step proves otherwise.
    b->isQueued = true;
    b->isAcquiring = true;
    b->isIncomplete = true;
    b->sizeFilled = 0;
    b->frameId = 0;
    b->imagePresent = false;
    b->dataLargerThanBuffer = false;
    b->containsChunkData = false;
    b->receivedBytes = 0;
    b->nextPacketDone = false;
    b->nextExpectedPacket = 0;
    b->resendCount = 0;
    b->trailerSeen = false;
    b->leaderSeen = false;
    b->missingPackets = 0;
    // The grab loop allocates a bitmap per block; a block that was never
    // finished must not leave one behind.
    b->FreePacketBitmap();
}

void BufferStateMachine::PrepBufferForOutputState(Buffer* b) {
    b->state = BS_OUTPUT;
    b->isAcquiring = false;
    b->isQueued = true;
    // isNewData stays: a buffer flushed out without data claims none.
}

void BufferStateMachine::PrepBufferForUserState(Buffer* b) {
    b->state = BS_USER;
    b->isQueued = false;
    b->isAcquiring = false;
}

// --- single moves ------------------------------------------------------------

void BufferStateMachine::MoveBufferToInputState(GenTLHandle* handle, bool inputLocked) {
    Buffer* buffer = BufferOf(handle);
    {
        Lock bufferLock(buffer->m_mutex);
        PrepBufferForInputState(buffer);
    }
    if (inputLocked) {
        m_inputQueue.push_back(handle);
    } else {
        Lock lock(m_inputMutex);
        m_inputQueue.push_back(handle);
    }
    m_inputAvailable.notify_one();
}

void BufferStateMachine::MoveBufferToAnnounceState(GenTLHandle* handle) {
    Buffer* buffer = BufferOf(handle);
    {
        Lock bufferLock(buffer->m_mutex);
        buffer->state = BS_ANNOUNCE;
    }
    Lock lock(m_announcedMutex);
    m_announcedBuffers.push_back(handle);
}

// --- announce and revoke -----------------------------------------------------

int BufferStateMachine::AnnounceNewBuffer(std::uint8_t* memory, unsigned long size, void* userData,
                                          bool userOwned, void** handle,
                                          boost::asio::io_service* timerService) {
    auto* buffer = new Buffer();
    {
        Lock bufferLock(buffer->m_mutex);
        PrepBufferForAnnounceState(buffer);
        buffer->base = memory;
        buffer->size = size;
        buffer->userData = userData;
        buffer->userOwned = userOwned;
        if (timerService != nullptr) {
            buffer->CreateTimers(*timerService);
        }
    }
    if (int rc = AllocateHandle(handle, static_cast<IBuffer*>(buffer))) {
        if (userOwned) {
            m_userBuffers.RemoveFromSet(memory);
        } else {
            delete[] memory;
        }
        delete buffer;
        return ChainError(rc);
    }
    MoveBufferToAnnounceState(static_cast<GenTLHandle*>(*handle));
    return GC_ERR_SUCCESS;
}

int BufferStateMachine::AnnounceBuffer(void* memory, unsigned long size, void* userData,
                                       void** handle, boost::asio::io_service* timerService) {
    if (memory == nullptr) {
        return ReportError(GC_ERR_INVALID_ADDRESS, "User buffer cannot be null");
    }
    if (handle == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "Buffer handle cannot be null");
    }
    if (size == 0) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "Buffer size cannot be zero");
    }
    if (int rc = m_userBuffers.AddToSet(memory)) {
        return rc;
    }
    return AnnounceNewBuffer(static_cast<std::uint8_t*>(memory), size, userData, true, handle,
                             timerService);
}

int BufferStateMachine::AllocAndAnnounceBuffer(unsigned long size, void* userData, void** handle,
                                               boost::asio::io_service* timerService) {
    if (handle == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "Buffer handle cannot be null");
    }
    return AnnounceNewBuffer(new std::uint8_t[size](), size, userData, false, handle, timerService);
}

int BufferStateMachine::RevokeBuffer(void* handle, void** memory, void** userData) {
    if (handle == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "hBuffer==nullptr");
    }
    if (int rc = CheckHandle(handle)) {
        GLogger::Error(
            "GenTL::DataStream::RevokeBuffer(): Buffer handle is not valid GenTL handle");
        return rc;
    }
    Buffer* buffer = CastHandleToBufferPtr(handle);
    if (buffer == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "pBuffer==nullptr");
    }
    auto* record = static_cast<GenTLHandle*>(handle);
    {
        Lock announcedLock(m_announcedMutex);
        auto it = std::find(m_announcedBuffers.begin(), m_announcedBuffers.end(), record);
        {
            Lock bufferLock(buffer->m_mutex);
            // The address is released first, so that the consumer can
            // announce it anew even when this revoke is refused.
            if (buffer->userOwned) {
                m_userBuffers.RemoveFromSet(buffer->base);
            }
            const int state = buffer->state;
            if (state != BS_ANNOUNCE) {
                GLogger::Error(loc::al("GenTL::DataStream::RevokeBuffer(): Buffer not in announced "
                                       "state. Current state: {0}",
                                       std::to_string(state).c_str())
                                   .c_str());
                return ReportError(GC_ERR_BUSY, "Buffer not in announced state");
            }
        }
        if (it == m_announcedBuffers.end()) {
            GLogger::Error("GenTL::DataStream::RevokeBuffer Buffer was not announced");
            return ReportError(GC_ERR_INVALID_HANDLE, "buffer was not found in announced buffers");
        }
        m_announcedBuffers.erase(it);
    }
    if (memory != nullptr) {
        *memory = buffer->userOwned ? buffer->base : nullptr;
    }
    if (!buffer->userOwned) {
        delete[] buffer->base;
    }
    if (userData != nullptr) {
        *userData = buffer->userData;
    }
    delete buffer;
    if (int rc = DeleteHandle(handle)) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

// --- queue moves -------------------------------------------------------------

int BufferStateMachine::QueueBufferToInput(void* handle) {
    if (handle == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "Buffer handle is null");
    }
    Buffer* buffer = CastHandleToBufferPtr(handle);
    if (buffer == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "pBuffer==nullptr");
    }
    auto* record = static_cast<GenTLHandle*>(handle);
    // Test and move under one hold of the locks, so that two threads that
    // queue the same buffer cannot both pass the test.
    Lock inputLock(m_inputMutex);
    Lock fillLock(m_fillMutex);
    {
        Lock bufferLock(buffer->m_mutex);
        const int state = buffer->state;
        if (state != BS_ANNOUNCE && state != BS_USER && state != BS_FILL) {
            return ReportError(GC_ERR_INVALID_BUFFER,
                               "buffer is not in the announced, fill or user state");
        }
        if (state == BS_FILL) {
            Erase(m_fillQueue, record);
        }
    }
    MoveBufferToInputState(record, true);
    return GC_ERR_SUCCESS;
}

int BufferStateMachine::QueueBufferToOutput(GenTLHandle* handle) {
    if (handle == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "Buffer handle is null");
    }
    Buffer* buffer = CastHandleToBufferPtr(handle);
    if (buffer == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "pBuffer==nullptr");
    }
    Lock fillLock(m_fillMutex);
    Lock outputLock(m_outputMutex);
    {
        Lock bufferLock(buffer->m_mutex);
        if (buffer->state != BS_FILL) {
            return ReportError(GC_ERR_INVALID_BUFFER, "buffer is not in the fill state");
        }
        auto it = std::find(m_fillQueue.begin(), m_fillQueue.end(), handle);
        // A filled dummy copy is in no queue: it stays in BS_FILL until a
        // flush takes it.
        if (it != m_fillQueue.end()) {
            m_fillQueue.erase(it);
            PrepBufferForOutputState(buffer);
            m_outputQueue.push_back(handle);
        }
    }
    m_outputAvailable.notify_one();
    return GC_ERR_SUCCESS;
}

int BufferStateMachine::RequeOldestBufferIfNeeded(long mode) {
    if (mode != OldestFirstOverwrite) {
        return GC_ERR_SUCCESS;
    }
    Lock inputLock(m_inputMutex);
    Lock fillLock(m_fillMutex);
    if (!m_inputQueue.empty() || !m_fillQueue.empty()) {
        return GC_ERR_SUCCESS;
    }
    Lock outputLock(m_outputMutex);
    if (!m_outputQueue.empty()) {
        GenTLHandle* oldest = m_outputQueue.front();
        m_outputQueue.pop_front();
        MoveBufferToInputState(oldest, true);
    }
    return GC_ERR_SUCCESS;
}

int BufferStateMachine::FlushQueue(int flushMode, long handlingMode, bool grabbing) {
    static const char* const kDiscardWhileGrabbing =
        "Cannot discard all buffers while the engine is grabbing. Call "
        "GenTL::DSStopAcquisition() to stop engine";
    switch (flushMode) {
    case ACQ_QUEUE_INPUT_TO_OUTPUT:
        if (handlingMode != OldestFirst) {
            return ReportError(GC_ERR_INVALID_PARAMETER,
                               "Only applies to OldestFirst buffer handling mode");
        }
        MoveAllBuffersFromInputToOutput();
        break;
    case ACQ_QUEUE_OUTPUT_DISCARD:
        MoveAllBuffersFromOutputToDiscard();
        break;
    case ACQ_QUEUE_ALL_TO_INPUT:
        if (grabbing) {
            return ReportError(GC_ERR_BUSY,
                               "Cannot flush all buffers to input queue while the engine is "
                               "grabbing. Call GenTL::DSStopAcquisition() to stop engine");
        }
        MoveAllBuffersToInput();
        break;
    case ACQ_QUEUE_UNQUEUED_TO_INPUT:
        MoveUnqueuedBuffersToInput();
        break;
    case ACQ_QUEUE_ALL_DISCARD:
        if (grabbing) {
            return ReportError(GC_ERR_BUSY, kDiscardWhileGrabbing);
        }
        MoveAllBuffersToDiscard();
        break;
    case ACQ_QUEUE_OUTPUT_TO_INPUT:
        if (handlingMode != NewestOnly) {
            return ReportError(GC_ERR_INVALID_PARAMETER,
                               "Only applies to NewestOnly buffer handling mode");
        }
        MoveAllBuffersFromOutputToInput();
        break;
    case ACQ_QUEUE_FILL_TO_OUTPUT:
        MoveAllBuffersFromFillToOutput();
        break;
    case ACQ_QUEUE_FILL_DISCARD:
        if (grabbing) {
            return ReportError(GC_ERR_BUSY, kDiscardWhileGrabbing);
        }
        MoveAllBuffersFromFillToDiscard();
        break;
    default:
        break;
    }
    return GC_ERR_SUCCESS;
}

// --- bulk moves --------------------------------------------------------------

void BufferStateMachine::MoveQueue(std::deque<GenTLHandle*>& from, std::deque<GenTLHandle*>& to,
                                   void (*prep)(Buffer*), boost::condition_variable& arrived) {
    for (GenTLHandle* handle : from) {
        Buffer* buffer = BufferOf(handle);
        {
            Lock bufferLock(buffer->m_mutex);
            prep(buffer);
        }
        to.push_back(handle);
        arrived.notify_one();
    }
    from.clear();
}

void BufferStateMachine::MoveAllBuffersFromInputToOutput() {
    Lock inputLock(m_inputMutex);
    Lock outputLock(m_outputMutex);
    MoveQueue(m_inputQueue, m_outputQueue, PrepBufferForOutputState, m_outputAvailable);
}

void BufferStateMachine::MoveAllBuffersFromOutputToDiscard() {
    Lock outputLock(m_outputMutex);
    for (GenTLHandle* handle : m_outputQueue) {
        Buffer* buffer = BufferOf(handle);
        Lock bufferLock(buffer->m_mutex);
        PrepBufferForAnnounceState(buffer);
    }
    m_outputQueue.clear();
}

void BufferStateMachine::MoveAllBuffersFromOutputToInput() {
    Lock inputLock(m_inputMutex);
    Lock outputLock(m_outputMutex);
    MoveQueue(m_outputQueue, m_inputQueue, PrepBufferForInputState, m_inputAvailable);
}

void BufferStateMachine::MoveAllBuffersFromFillToOutput() {
    Lock fillLock(m_fillMutex);
    Lock outputLock(m_outputMutex);
    MoveQueue(m_fillQueue, m_outputQueue, PrepBufferForOutputState, m_outputAvailable);
}

void BufferStateMachine::MoveAllBuffersFromFillToDiscard() {
    Lock announcedLock(m_announcedMutex);
    Lock fillLock(m_fillMutex);
    // Also buffers in BS_FILL outside the fill queue (dummy copies).
    for (GenTLHandle* handle : m_announcedBuffers) {
        Buffer* buffer = BufferOf(handle);
        Lock bufferLock(buffer->m_mutex);
        if (buffer->state == BS_FILL) {
            PrepBufferForAnnounceState(buffer);
        }
    }
    m_fillQueue.clear();
}

void BufferStateMachine::MoveUnqueuedBuffersToInput() {
    Lock announcedLock(m_announcedMutex);
    Lock inputLock(m_inputMutex);
    for (GenTLHandle* handle : m_announcedBuffers) {
        Buffer* buffer = BufferOf(handle);
        {
            Lock bufferLock(buffer->m_mutex);
            if (buffer->state != BS_ANNOUNCE) {
                continue;
            }
            PrepBufferForInputState(buffer);
        }
        m_inputQueue.push_back(handle);
        m_inputAvailable.notify_one();
    }
}

void BufferStateMachine::MoveAllBuffersToInput() {
    Lock announcedLock(m_announcedMutex);
    Lock inputLock(m_inputMutex);
    Lock fillLock(m_fillMutex);
    Lock outputLock(m_outputMutex);
    for (GenTLHandle* handle : m_announcedBuffers) {
        Buffer* buffer = BufferOf(handle);
        {
            Lock bufferLock(buffer->m_mutex);
            // Buffers in BS_INPUT keep their place in the queue.
            if (buffer->state == BS_INPUT) {
                continue;
            }
            PrepBufferForInputState(buffer);
        }
        m_inputQueue.push_back(handle);
        m_inputAvailable.notify_one();
    }
    m_outputQueue.clear();
    m_fillQueue.clear();
}

void BufferStateMachine::MoveAllBuffersToDiscard() {
    Lock announcedLock(m_announcedMutex);
    Lock inputLock(m_inputMutex);
    Lock fillLock(m_fillMutex);
    Lock outputLock(m_outputMutex);
    for (GenTLHandle* handle : m_announcedBuffers) {
        Buffer* buffer = BufferOf(handle);
        Lock bufferLock(buffer->m_mutex);
        if (buffer->state != BS_ANNOUNCE) {
            PrepBufferForAnnounceState(buffer);
        }
    }
    m_inputQueue.clear();
    m_fillQueue.clear();
    m_outputQueue.clear();
}

// --- consumer side -----------------------------------------------------------

int BufferStateMachine::WaitOnNewBuffer(void** handle, unsigned long timeoutMs) {
    if (handle == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "phBuffer==nullptr");
    }
    *handle = nullptr;
    boost::unique_lock<boost::mutex> lock(m_outputMutex);
    auto ready = [this] { return !m_outputQueue.empty() || m_killWait.load(); };
    if (!ready()) {
        if (timeoutMs == GENTL_INFINITE) {
            m_outputAvailable.wait(lock, ready);
        } else if (timeoutMs > static_cast<unsigned long>(std::numeric_limits<long>::max())) {
            return detail::ReportBareError(GC_ERR_INVALID_PARAMETER);
        } else {
            std::uint64_t remaining = timeoutMs;
            for (;;) {
                const std::uint64_t slice = std::min(remaining, kWaitSliceMs);
                const boost::system_time deadline =
                    boost::get_system_time() +
                    boost::posix_time::milliseconds(static_cast<long>(slice));
                if (m_outputAvailable.timed_wait(lock, deadline, ready)) {
                    break;
                }
                remaining -= slice;
                if (remaining == 0) {
                    return ReportError(GC_ERR_TIMEOUT, Error::GetErrCodeName(GC_ERR_TIMEOUT));
                }
            }
        }
    }
    // A pending kill beats a ready buffer, which stays for the next wait.
    if (m_killWait.exchange(false)) {
        return ReportError(GC_ERR_ABORT, "WaitOnNewBuffer interrupted by kill.");
    }
    GenTLHandle* front = m_outputQueue.front();
    m_outputQueue.pop_front();
    Buffer* buffer = BufferOf(front);
    {
        // Still under the output lock, so that no flush sees the buffer
        // between the queue and the consumer.
        Lock bufferLock(buffer->m_mutex);
        PrepBufferForUserState(buffer);
    }
    *handle = front;
    return GC_ERR_SUCCESS;
}

int BufferStateMachine::KillWaitForNewBuffer() {
    m_killWait = true;
    {
        // A waiter between its test and its sleep holds the lock: passing
        // through it ensures the signal below cannot fall into that gap.
        Lock lock(m_outputMutex);
    }
    m_outputAvailable.notify_all();
    return GC_ERR_SUCCESS;
}

// --- queries -------------------------------------------------------------------

unsigned long BufferStateMachine::GetAnnouncedBufferQueueSize() const {
    Lock lock(m_announcedMutex);
    return m_announcedBuffers.size();
}

unsigned long BufferStateMachine::GetInputBufferQueueSize() const {
    Lock lock(m_inputMutex);
    return m_inputQueue.size();
}

unsigned long BufferStateMachine::GetOutputBufferQueueSize() const {
    Lock lock(m_outputMutex);
    return m_outputQueue.size();
}

unsigned long BufferStateMachine::GetFillBufferQueueSize() const {
    Lock lock(m_fillMutex);
    return m_fillQueue.size();
}

unsigned long BufferStateMachine::GetQueuedBufferCount() const {
    Lock inputLock(m_inputMutex);
    Lock fillLock(m_fillMutex);
    return m_inputQueue.size() + m_fillQueue.size();
}

GenTLHandle* BufferStateMachine::GetBufferIDFromIndex(unsigned int index) const {
    Lock lock(m_announcedMutex);
    if (m_announcedBuffers.empty() || index > m_announcedBuffers.size()) {
        return nullptr;
    }
    // An index equal to the count throws the vector's out_of_range.
    return m_announcedBuffers.at(index);
}

unsigned long BufferStateMachine::GetSizeOfFirstAnnouncedBuffer() const {
    Lock lock(m_announcedMutex);
    if (m_announcedBuffers.empty()) {
        return 0;
    }
    Buffer* buffer = BufferOf(m_announcedBuffers.front());
    return buffer->size;
}

} // namespace GenTL
