#include "stream/GrabThreadNoCopy.h"

#include <algorithm>
#include <cstring>
#include <string>

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/thread.hpp>

#include "GenTL_KESTA.h"
#include "api/GLogger.h"
#include "api/GenTLHandle.h"
#include "api/localization.h"
#include "modules/ThreadPriority.h"
#include "stream/BlockId.h"
#include "stream/Buffer.h"
#include "stream/BufferStateMachineGev.h"
#include "stream/GrabContext.h"
#include "stream/IHALGvspUDP.h"
#include "stream/StreamInfo.h"

namespace GenTL {

namespace {

constexpr unsigned long kReceiveTimeoutMs = 50;
constexpr std::size_t kHeaderArray = 1024;
constexpr std::uint32_t kMinPacketArray = 576;

std::string Num(long long value) {
    return std::to_string(value);
}

/// Where data begins in a packet. Fixed by the first stream of the process
/// that runs this loop; later streams keep it.
std::uint32_t DataOffsetOfFirstRun(bool extendedId) {
    static const std::uint32_t sk_dataOffset =
        extendedId ? kGvspExtendedHeaderSize : kGvspHeaderSize;
    return sk_dataOffset;
}

/// Bytes that fit at `place` of the buffer, at most `wanted`.
std::uint64_t Room(const Buffer* buffer, std::uint64_t place, std::uint64_t wanted) {
    return place < buffer->size ? std::min(wanted, buffer->size - place) : 0;
}

} // namespace

GrabThreadNoCopy::GrabThreadNoCopy(GrabContext& context)
    : m_context(context), m_resends(context), m_completion(context, m_resends) {}

GrabThreadNoCopy::~GrabThreadNoCopy() {
    DestroyDummy();
}

void GrabThreadNoCopy::Run() {
    ThreadPriority::ApplyThreadPrioritySetting(ThreadPriority::m_priorityGrabThread);
    GLogger::Info("DataStreamGevUDP::GrabThread(NC): Starting");
    Begin();
    try {
        for (;;) {
            RunBlock();
        }
    } catch (const boost::thread_interrupted&) {
        End();
    } catch (...) {
        End();
        throw;
    }
}

void GrabThreadNoCopy::Begin() {
    StreamInfo& info = m_context.info;
    CreateDummy();
    m_packet.assign(std::max(info.packetSize, kMinPacketArray), 0);
    m_header.assign(kHeaderArray, 0);
    m_dataOffset = DataOffsetOfFirstRun(info.extendedId);
    m_chunk = info.packetSize > kIpUdpHeaderSize + m_dataOffset
                  ? info.packetSize - kIpUdpHeaderSize - m_dataOffset
                  : 0;
    const std::uint64_t size = m_context.buffers.GetSizeOfFirstAnnouncedBuffer();
    m_dataPackets = m_chunk == 0 ? 0 : static_cast<std::uint32_t>((size + m_chunk - 1) / m_chunk);
    info.packetsPerBlock = 0; // blocks end by events here, not by counting
    info.nextBlockId = 1;
    info.lastBlockId = 0;
    m_carryPacket = false;
    m_dummyInUse = false;
    m_current = nullptr;
    m_completion.StartTimerThreads();
    m_context.running = true;
}

void GrabThreadNoCopy::CreateDummy() {
    const std::uint64_t size = m_context.buffers.GetSizeOfFirstAnnouncedBuffer();
    m_dummy = new Buffer();
    m_dummy->base = new std::uint8_t[size]();
    m_dummy->size = size;
    m_dummy->CreateTimers(m_context.blockTimerService);
    void* handle = nullptr;
    if (AllocateHandle(&handle, static_cast<IBuffer*>(m_dummy)) == GC_ERR_SUCCESS) {
        m_dummyHandle = static_cast<GenTLHandle*>(handle);
    }
}

void GrabThreadNoCopy::DestroyDummy() {
    if (m_dummyHandle != nullptr) {
        DeleteHandle(m_dummyHandle);
        m_dummyHandle = nullptr;
    }
    if (m_dummy != nullptr) {
        m_dummy->DestroyTimers();
        delete[] m_dummy->base;
        delete m_dummy;
        m_dummy = nullptr;
    }
}

void GrabThreadNoCopy::RunBlock() {
    boost::this_thread::interruption_point();
    BufferStateMachineGev& buffers = m_context.buffers;
    StreamInfo& info = m_context.info;
    buffers.RequeOldestBufferIfNeeded(m_context.bufferHandlingMode);
    GenTLHandle* handle = buffers.PopNextBuffer(m_dummyHandle, m_dummyInUse);
    Buffer* buffer = CastHandleToBufferPtr(handle);
    if (buffer == nullptr) {
        boost::this_thread::yield();
        return;
    }
    m_current = buffer;
    {
        boost::lock_guard<boost::mutex> lock(buffer->m_mutex);
        buffer->bufferExpired = false;
        buffer->packetSeen = false;
        buffer->bufferExpiryDone = false;
        buffer->nextPacketDone = false;
        buffer->missingPackets = static_cast<std::int32_t>(m_dataPackets + 2);
        buffer->receivedPackets = 0;
        buffer->frameId = info.nextBlockId;
        buffer->AllocatePacketBitmap((m_dataPackets + 2 + 7) / 8);
    }
    {
        // A new block closes all older ones.
        boost::lock_guard<boost::mutex> listLock(m_context.activeBlocksMutex);
        for (GenTLHandle* older : m_context.activeBlocks) {
            if (Buffer* b = CastHandleToBufferPtr(older)) {
                boost::lock_guard<boost::mutex> lock(b->m_mutex);
                GrabCompletion::CancelBlockTimers(b);
            }
        }
        if (!m_dummyInUse) {
            m_context.activeBlocks.push_back(handle);
            ++m_context.activeBlockCount;
        }
    }
    m_blockDone = false;
    m_timersStarted = false;
    while (!m_blockDone) {
        PacketPass(buffer);
    }
    {
        boost::lock_guard<boost::mutex> lock(buffer->m_mutex);
        GrabCompletion::CancelBlockTimers(buffer);
    }
    if (m_dummyInUse) {
        GenTLHandle* copy =
            buffers.CopyDummyToInputIfAvailable(m_dummyHandle, handle, m_dummyInUse,
                                                m_context.numUnderrun);
        Buffer* target = m_dummyInUse ? nullptr : CastHandleToBufferPtr(copy);
        if (target != nullptr) {
            {
                boost::lock_guard<boost::mutex> lock(target->m_mutex);
                target->receivedPackets = 0;
                target->bufferExpiryDone = true; // its block is over
                target->nextPacketDone = true;
            }
            boost::lock_guard<boost::mutex> listLock(m_context.activeBlocksMutex);
            m_context.activeBlocks.push_back(copy);
            ++m_context.activeBlockCount;
        }
    }
    m_completion.CheckAndCompleteExpiredBuffers();
    boost::this_thread::interruption_point();
}

int GrabThreadNoCopy::Reassemble(const Buffer* buffer, int headerReceived, std::uint64_t offset,
                                 int received) {
    const auto head = static_cast<std::size_t>(std::max(headerReceived, 0));
    std::memcpy(m_packet.data(), m_header.data(), std::min(head, m_packet.size()));
    const std::uint64_t body =
        std::min<std::uint64_t>(Room(buffer, offset, static_cast<std::uint64_t>(received)),
                                m_packet.size() - std::min(head, m_packet.size()));
    if (body > 0) {
        std::memcpy(m_packet.data() + head, buffer->base + offset, body);
    }
    return static_cast<int>(head + body);
}

void GrabThreadNoCopy::PacketPass(Buffer* buffer) {
    boost::this_thread::interruption_point();
    StreamInfo& info = m_context.info;
    IHALGvspUDP& gvsp = m_context.gvsp;
    Source source = Source::Plain;
    int received = 0;
    int headerReceived = 0;
    std::uint64_t offset = 0;
    const std::uint32_t next = buffer->nextExpectedPacket;
    if (m_carryPacket) {
        source = Source::Carried;
        received = m_carryReceived;
        m_carryPacket = false;
    } else if (next == 0 || next >= m_dataPackets + 1) {
        if (next > m_dataPackets + 1) {
            GLogger::Error(loc::al("GrabThread(NC): Invalid expected packet Id: [{0}]",
                                   Num(next).c_str())
                               .c_str());
        }
        if (gvsp.GetNextPacket(m_packet.data(), static_cast<int>(m_packet.size()), received,
                               kReceiveTimeoutMs) != GC_ERR_SUCCESS) {
            return;
        }
    } else {
        source = Source::Scatter;
        offset = (next - 1) * m_chunk;
        const std::uint64_t length = Room(buffer, offset, m_chunk);
        const int rc = gvsp.GetNextPacket(
            m_header.data(), static_cast<int>(m_dataOffset), headerReceived,
            reinterpret_cast<char*>(buffer->base + offset), static_cast<int>(length), received,
            kReceiveTimeoutMs);
        if (rc == GC_ERR_BUFFER_TOO_SMALL) {
            boost::lock_guard<boost::mutex> lock(buffer->m_mutex);
            buffer->dataLargerThanBuffer = true;
        } else if (rc != GC_ERR_SUCCESS) {
            return;
        }
    }

    ParsedGvspHeader header;
    const char* head = source == Source::Scatter ? m_header.data() : m_packet.data();
    const int headLength = source == Source::Scatter ? headerReceived : received;
    if (GetPktHeaderInfo(head, headLength, headLength, header) != GC_ERR_SUCCESS ||
        header.status != 0) {
        return;
    }

    boost::lock_guard<boost::mutex> lock(buffer->m_mutex);
    if (buffer->IsPacketSeen(header.packetId)) {
        GLogger::Error("GrabThread(NC): Duplicate packet received");
        return;
    }
    if (header.extendedId != info.extendedId) {
        GLogger::Error(loc::al("Invalid packet header for BlockId [{0}]! Expected EI bit [{1}], "
                               "received header [{2}]",
                               Num(static_cast<long long>(header.blockId)).c_str(),
                               Num(info.extendedId).c_str(), Num(header.extendedId).c_str())
                           .c_str());
    }
    const int order = CompareBlockIds(header.blockId, info.nextBlockId, header.extendedId);
    if (order == BLOCK_ID_BEHIND) {
        return;
    }
    const std::uint8_t format = header.packetFormat;
    if (order == BLOCK_ID_AHEAD) {
        // The block ends here; the packet opens the next one.
        info.nextBlockId = header.blockId;
        if (format >= GVSP_PACKET_LEADER && format <= GVSP_PACKET_PAYLOAD) {
            m_carryReceived = source == Source::Scatter
                                  ? Reassemble(buffer, headerReceived, offset, received)
                                  : received;
            m_blockDone = true;
            m_carryPacket = true;
        }
        return;
    }

    const bool whole = format == GVSP_PACKET_LEADER || format == GVSP_PACKET_TRAILER;
    if (source == Source::Plain) {
        HandleWhole(buffer, header, received);
    } else if (source == Source::Scatter) {
        if (whole) {
            HandleWhole(buffer, header, Reassemble(buffer, headerReceived, offset, received));
        } else {
            HandlePlaced(buffer, header, offset, received);
        }
    } else if (whole || format != GVSP_PACKET_PAYLOAD || header.packetId == 0) {
        HandleWhole(buffer, header, received);
    } else {
        // The next block's first data packet, kept from the last pass.
        const std::uint64_t place = (header.packetId - 1) * m_chunk;
        const auto data = static_cast<std::uint64_t>(std::max(received, 0));
        const std::uint64_t length =
            Room(buffer, place, std::min(m_chunk, data > m_dataOffset ? data - m_dataOffset : 0));
        if (length > 0) {
            std::memcpy(buffer->base + place, m_packet.data() + m_dataOffset, length);
        }
        HandlePlaced(buffer, header, place, static_cast<int>(length));
    }
    if (!m_timersStarted) {
        m_completion.ArmBlockTimers(buffer);
        m_timersStarted = true;
    }
    buffer->packetSeen = true;
}

void GrabThreadNoCopy::HandleWhole(Buffer* buffer, const ParsedGvspHeader& header, int received) {
    StreamInfo& info = m_context.info;
    const std::uint32_t id = header.packetId;
    const auto size = static_cast<unsigned long>(std::max(received, 0));
    const bool blockStart = buffer->nextExpectedPacket == 0;
    const auto raiseNext = [buffer, id] {
        if (buffer->nextExpectedPacket < id + 1) {
            buffer->nextExpectedPacket = id + 1;
        }
    };
    if (header.packetFormat == GVSP_PACKET_LEADER) {
        if (const int rc = ParseGVSPLeader(info, m_packet.data(), size, buffer, header)) {
            GLogger::Error(loc::al("GrabThread(): Failed to parse GVSP leader! Error: {0}",
                                   Num(rc).c_str())
                               .c_str());
            return;
        }
        buffer->payloadType = info.payloadType;
        buffer->frameId = header.blockId;
        raiseNext();
    } else if (header.packetFormat == GVSP_PACKET_TRAILER) {
        if (const int rc =
                ParseGVSPTrailer(info, m_packet.data(), size, buffer, m_blockDone, header)) {
            GLogger::Error(loc::al("GrabThread(): Failed to parse GVSP trailer! Error: {0}",
                                   Num(rc).c_str())
                               .c_str());
            return;
        }
        buffer->frameId = header.blockId;
        m_blockDone = true;
        info.nextBlockId = IncrementBlockId(info.nextBlockId, info.extendedId);
        buffer->lastPacketId = id;
    } else {
        // Any other format counts as data: the leader may have been lost.
        const std::uint64_t data = size > m_dataOffset ? size - m_dataOffset : 0;
        std::uint64_t length = 0;
        if (id > 0) {
            const std::uint64_t place = (id - 1) * m_chunk;
            length = Room(buffer, place, data);
            if (length < data) {
                buffer->dataLargerThanBuffer = true;
            }
            if (length > 0) {
                std::memcpy(buffer->base + place, m_packet.data() + m_dataOffset, length);
            }
        }
        buffer->receivedBytes += static_cast<std::uint32_t>(length);
        --buffer->missingPackets;
        buffer->frameId = header.blockId;
        raiseNext();
    }
    if (blockStart) {
        m_context.gvsp.SetNextLeaderArrived();
    }
    buffer->MarkPacketSeen(id);
}

void GrabThreadNoCopy::HandlePlaced(Buffer* buffer, const ParsedGvspHeader& header,
                                    std::uint64_t offset, int received) {
    const std::uint32_t id = header.packetId;
    const auto length = static_cast<std::uint64_t>(std::max(received, 0));
    // A block that begins with a carried data packet lost its leader; it
    // frees a leader waiter all the same.
    const bool blockStart = buffer->nextExpectedPacket == 0;
    --buffer->missingPackets;
    buffer->receivedBytes += static_cast<std::uint32_t>(length);
    buffer->frameId = header.blockId;
    if (id == buffer->nextExpectedPacket) {
        buffer->nextExpectedPacket = id + 1;
    } else {
        // Another packet than the one predicted: move it to its place.
        if (id > 0) {
            const std::uint64_t place = (id - 1) * m_chunk;
            const std::uint64_t moved = Room(buffer, place, std::min(length, m_chunk));
            if (moved > 0 && place != offset) {
                std::memmove(buffer->base + place, buffer->base + offset, moved);
            }
        }
        if (id >= buffer->nextExpectedPacket) {
            buffer->nextExpectedPacket = id + 1;
        }
    }
    if (blockStart) {
        m_context.gvsp.SetNextLeaderArrived();
    }
    buffer->MarkPacketSeen(id);
}

void GrabThreadNoCopy::End() {
    boost::this_thread::disable_interruption noInterruption;
    m_context.running = false;
    if (m_current != nullptr) {
        boost::lock_guard<boost::mutex> lock(m_current->m_mutex);
        m_current->isAcquiring = false;
        GrabCompletion::CancelBlockTimers(m_current);
    }
    {
        boost::lock_guard<boost::mutex> listLock(m_context.activeBlocksMutex);
        for (GenTLHandle* handle : m_context.activeBlocks) {
            if (Buffer* b = CastHandleToBufferPtr(handle)) {
                boost::lock_guard<boost::mutex> lock(b->m_mutex);
                GrabCompletion::CancelBlockTimers(b);
            }
        }
        m_context.activeBlocks.clear();
        m_context.activeBlockCount = 0;
    }
    // The timer threads go first: a handler may still hold the dummy.
    m_completion.StopTimerThreads();
    DestroyDummy();
    m_current = nullptr;
}

} // namespace GenTL
