#include "stream/BufferStateMachineGev.h"

#include <algorithm>

#include <boost/thread/locks.hpp>

#include "api/GenTLHandle.h"
#include "api/PortableUtil.h"
#include "stream/Buffer.h"

namespace GenTL {

namespace {

using Lock = boost::lock_guard<boost::mutex>;

Buffer* BufferOf(GenTLHandle* handle) {
    return static_cast<Buffer*>(static_cast<IBuffer*>(handle->module));
}

} // namespace

GenTLHandle* BufferStateMachineGev::PopNextBuffer(GenTLHandle* dummy, bool& dummyInUse) {
    Lock inputLock(m_inputMutex);
    if (m_inputQueue.empty()) {
        if (dummy == nullptr) {
            return nullptr;
        }
        dummyInUse = true;
        Buffer* buffer = BufferOf(dummy);
        Lock bufferLock(buffer->m_mutex);
        PrepBufferForFillState(buffer);
        return dummy;
    }
    GenTLHandle* handle = m_inputQueue.front();
    m_inputQueue.pop_front();
    Buffer* buffer = BufferOf(handle);
    {
        Lock bufferLock(buffer->m_mutex);
        PrepBufferForFillState(buffer);
    }
    {
        Lock fillLock(m_fillMutex);
        m_fillQueue.push_back(handle);
    }
    dummyInUse = false;
    return handle;
}

GenTLHandle* BufferStateMachineGev::CopyDummyToInputIfAvailable(GenTLHandle* dummy,
                                                                GenTLHandle* current,
                                                                bool& dummyInUse,
                                                                unsigned long& underrunCount,
                                                                std::uint64_t headerRoom) {
    if (!dummyInUse) {
        return current;
    }
    GenTLHandle* handle = nullptr;
    Buffer* target = nullptr;
    {
        Lock inputLock(m_inputMutex);
        if (m_inputQueue.empty()) {
            ++underrunCount;
            return dummy;
        }
        handle = m_inputQueue.front();
        m_inputQueue.pop_front();
        target = BufferOf(handle);
        Lock bufferLock(target->m_mutex);
        PrepBufferForFillState(target);
    }
    Buffer* source = BufferOf(dummy);
    Lock targetLock(target->m_mutex);
    Lock sourceLock(source->m_mutex);
    if (target->base != nullptr && source->base != nullptr) {
        memcpy_portable(target->base - headerRoom, target->size, source->base - headerRoom,
                        std::min(target->size, source->size));
    }
    target->state = source->state.load();
    target->frameId = source->frameId;
    target->payloadType = source->payloadType;
    target->leaderSeen = source->leaderSeen;
    target->trailerSeen = source->trailerSeen;
    target->timestamp = source->timestamp;
    target->pixelFormat = source->pixelFormat;
    target->width = source->width;
    target->height = source->height;
    target->xOffset = source->xOffset;
    target->yOffset = source->yOffset;
    target->xPadding = source->xPadding;
    target->yPadding = source->yPadding;
    target->dataSize = source->dataSize;
    target->deliveredChunkPayloadSize = source->deliveredChunkPayloadSize;
    target->chunkLayoutId = source->chunkLayoutId;
    target->containsChunkData = source->containsChunkData;
    target->missingPackets = source->missingPackets;
    dummyInUse = false;
    return handle;
}

} // namespace GenTL
