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
    m_mode = m_context.gvsp.ReceiveMode();
    m_dataOffset = DataOffsetOfFirstRun(info.extendedId);
    // Each datagram of a batch has a slot: its header, and its whole body
    // where the kernel does not put that straight into the image buffer.
    m_slotSize = std::max<std::size_t>(info.packetSize, kMinPacketArray);
    m_batch.assign(kBatchSize, GvspDatagram{});
    m_place.assign(kBatchSize, kWhole);
    if (m_mode != GvspReceiveMode::Ring) {
        m_slots.assign(kBatchSize * m_slotSize, 0);
    }
    m_count = 0;
    m_cursor = 0;
    m_placedIn = nullptr;
    m_chunk = info.packetSize > kIpUdpHeaderSize + m_dataOffset
                  ? info.packetSize - kIpUdpHeaderSize - m_dataOffset
                  : 0;
    const std::uint64_t size = m_context.buffers.GetSizeOfFirstAnnouncedBuffer();
    m_dataPackets = m_chunk == 0 ? 0 : static_cast<std::uint32_t>((size + m_chunk - 1) / m_chunk);
    info.packetsPerBlock = 0; // blocks end by events here, not by counting
    info.nextBlockId = 1;
    info.lastBlockId = 0;
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
        GenTLHandle* copy = buffers.CopyDummyToInputIfAvailable(m_dummyHandle, handle, m_dummyInUse,
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

void GrabThreadNoCopy::PrepareBatch(Buffer* buffer) {
    const std::uint32_t next = buffer->nextExpectedPacket;
    m_count = 0;
    m_cursor = 0;
    m_placedIn = buffer;
    m_firstPredicted = next;
    if (m_mode == GvspReceiveMode::Ring) {
        return; // the ring holds whole datagrams
    }
    // The batch ends with the block's trailer: the datagrams after it are
    // the next block's, whose places lie in another buffer.
    std::size_t count = 1;
    if (next <= m_dataPackets + 1) {
        count = std::min<std::size_t>(kBatchSize, m_dataPackets + 2 - next);
    } else {
        GLogger::Error(
            loc::al("GrabThread(NC): Invalid expected packet Id: [{0}]", Num(next).c_str())
                .c_str());
    }
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t id = static_cast<std::uint64_t>(next) + i;
        const std::uint64_t place = id == 0 ? 0 : (id - 1) * m_chunk;
        GvspDatagram& d = m_batch[i];
        char* slot = SlotOf(i);
        d.head = slot;
        d.headLength = static_cast<int>(m_dataOffset);
        // Only the place of a whole packet is a target: another packet read
        // into the short last place would be cut there. Other datagrams get
        // a slot of their own, header and body in one piece.
        if (id >= 1 && id <= m_dataPackets && Room(buffer, place, m_chunk) == m_chunk) {
            m_place[i] = place;
            d.body = reinterpret_cast<char*>(buffer->base + place);
            d.bodyLength = static_cast<int>(m_chunk);
        } else {
            m_place[i] = kWhole;
            d.body = slot + m_dataOffset;
            d.bodyLength = static_cast<int>(m_slotSize - m_dataOffset);
        }
    }
    m_prepared = count;
}

bool GrabThreadNoCopy::ReceiveBatch(Buffer* buffer) {
    PrepareBatch(buffer);
    const int capacity =
        static_cast<int>(m_mode == GvspReceiveMode::Ring ? kBatchSize : m_prepared);
    int got = 0;
    if (m_context.gvsp.GetNextPackets(m_batch.data(), capacity, got, kReceiveTimeoutMs) !=
        GC_ERR_SUCCESS) {
        return false;
    }
    m_count = static_cast<std::size_t>(got);
    return m_count > 0;
}

void GrabThreadNoCopy::Rescue(std::size_t index) {
    if (index >= m_count || m_place[index] == kWhole) {
        return;
    }
    GvspDatagram& d = m_batch[index];
    const auto total = static_cast<std::uint64_t>(std::max(d.length, 0));
    const std::uint64_t body = total > m_dataOffset ? total - m_dataOffset : 0;
    const std::uint64_t bytes = Room(m_placedIn, m_place[index], std::min(body, m_chunk));
    if (bytes > 0) {
        std::memcpy(SlotOf(index) + m_dataOffset, m_placedIn->base + m_place[index], bytes);
    }
    d.length = static_cast<int>(std::min<std::uint64_t>(total, m_dataOffset + bytes));
    m_place[index] = kWhole;
}

void GrabThreadNoCopy::RescueRest() {
    for (std::size_t j = m_cursor; j < m_count; ++j) {
        Rescue(j);
    }
}

void GrabThreadNoCopy::ClaimPlace(const Buffer* buffer, std::uint64_t place) {
    if (buffer != m_placedIn || m_chunk == 0 || m_mode == GvspReceiveMode::Ring) {
        return;
    }
    // A datagram not handled yet whose payload the kernel put at `place`
    // is moved to its slot before anything else is written there.
    const std::uint64_t id = place / m_chunk + 1;
    if (id >= m_firstPredicted && id - m_firstPredicted < m_count &&
        id - m_firstPredicted >= m_cursor) {
        Rescue(static_cast<std::size_t>(id - m_firstPredicted));
    }
}

void GrabThreadNoCopy::PacketPass(Buffer* buffer) {
    if (m_cursor == m_count) {
        // Once per read: the point takes a lock, too dear per packet.
        boost::this_thread::interruption_point();
        if (!ReceiveBatch(buffer)) {
            return;
        }
    }
    const std::size_t index = m_cursor++;
    GvspDatagram& d = m_batch[index];
    const bool placed = m_mode != GvspReceiveMode::Ring && m_place[index] != kWhole;
    // A datagram longer than a header and one packet's share is no packet
    // of this stream (what was read of it lies in a place not yet filled).
    if (placed && d.truncated) {
        return;
    }
    StreamInfo& info = m_context.info;
    const auto total = static_cast<std::uint64_t>(std::max(d.length, 0));
    const int headLength =
        placed ? static_cast<int>(std::min<std::uint64_t>(total, m_dataOffset)) : d.length;
    const int payload =
        placed ? static_cast<int>(total - static_cast<std::uint64_t>(headLength)) : 0;
    const char* head = d.data != nullptr ? d.data : d.head;

    ParsedGvspHeader header;
    if (GetPktHeaderInfo(head, headLength, headLength, header) != GC_ERR_SUCCESS ||
        header.status != 0) {
        return;
    }
    // Formats other than leader, trailer and data have no place in a block,
    // and a leader is packet 0: such a packet is dropped, not taken as data.
    if (!PacketIdFitsFormat(header)) {
        LogMisplaced(header);
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
        // The block ends here; the packet opens the next one, where it is
        // handled again, whole, with the rest of the batch.
        info.nextBlockId = header.blockId;
        m_cursor = index;
        RescueRest();
        m_blockDone = true;
        return;
    }
    if (format == GVSP_PACKET_PAYLOAD) {
        // Data must land inside the block with at most one packet's share;
        // anything else is dropped before it is counted.
        const std::uint64_t data = placed                 ? static_cast<std::uint64_t>(payload)
                                   : total > m_dataOffset ? total - m_dataOffset
                                                          : 0;
        if (!DataPacketFitsBlock(header.packetId, data, m_chunk, *buffer, info.payloadType)) {
            LogMisplaced(header);
            return;
        }
    }

    const bool whole = format == GVSP_PACKET_LEADER || format == GVSP_PACKET_TRAILER;
    if (!placed) {
        HandleWhole(buffer, header, head, d.length);
    } else if (whole) {
        Rescue(index);
        HandleWhole(buffer, header, SlotOf(index), d.length);
    } else {
        HandlePlaced(buffer, header, m_place[index], payload);
    }
    if (m_blockDone) {
        RescueRest(); // the rest of the batch is no longer this buffer's
    }
    if (!m_timersStarted) {
        m_completion.ArmBlockTimers(buffer);
        m_timersStarted = true;
    }
    buffer->packetSeen = true;
}

void GrabThreadNoCopy::HandleWhole(Buffer* buffer, const ParsedGvspHeader& header,
                                   const char* packet, int received) {
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
        if (const int rc = ParseGVSPLeader(info, packet, size, buffer, header)) {
            GLogger::Error(
                loc::al("GrabThread(): Failed to parse GVSP leader! Error: {0}", Num(rc).c_str())
                    .c_str());
            return;
        }
        buffer->payloadType = info.payloadType;
        buffer->frameId = header.blockId;
        raiseNext();
    } else if (header.packetFormat == GVSP_PACKET_TRAILER) {
        if (const int rc = ParseGVSPTrailer(info, packet, size, buffer, m_blockDone, header)) {
            GLogger::Error(
                loc::al("GrabThread(): Failed to parse GVSP trailer! Error: {0}", Num(rc).c_str())
                    .c_str());
            return;
        }
        buffer->frameId = header.blockId;
        m_blockDone = true;
        info.nextBlockId = IncrementBlockId(info.nextBlockId, info.extendedId);
        buffer->lastPacketId = id;
    } else {
        // A data packet read whole (PacketPass checked its place and size).
        const std::uint64_t data = size > m_dataOffset ? size - m_dataOffset : 0;
        const std::uint64_t place = (id - 1) * m_chunk;
        const std::uint64_t length = Room(buffer, place, data);
        if (length < data) {
            buffer->dataLargerThanBuffer = true;
        }
        if (length > 0) {
            ClaimPlace(buffer, place);
            std::memcpy(buffer->base + place, packet + m_dataOffset, length);
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
    auto length = static_cast<std::uint64_t>(std::max(received, 0));
    // A block that begins with a carried data packet lost its leader; it
    // frees a leader waiter all the same.
    const bool blockStart = buffer->nextExpectedPacket == 0;
    --buffer->missingPackets;
    buffer->frameId = header.blockId;
    // The place predicted for the datagram is not always the place of the
    // expected packet: in a batch it follows the datagram's position.
    const std::uint64_t place = (id - 1) * m_chunk;
    if (place != offset) {
        // Another packet than the one predicted: move it to its place.
        const std::uint64_t moved = Room(buffer, place, std::min(length, m_chunk));
        if (moved > 0) {
            ClaimPlace(buffer, place);
            std::memmove(buffer->base + place, buffer->base + offset, moved);
        }
        // Only what reached the packet's own place counts as received.
        if (moved < length) {
            buffer->dataLargerThanBuffer = true;
        }
        length = moved;
    }
    if (id >= buffer->nextExpectedPacket) {
        buffer->nextExpectedPacket = id + 1;
    }
    buffer->receivedBytes += static_cast<std::uint32_t>(length);
    if (blockStart) {
        m_context.gvsp.SetNextLeaderArrived();
    }
    buffer->MarkPacketSeen(id);
}

void GrabThreadNoCopy::LogMisplaced(const ParsedGvspHeader& header) {
    GLogger::Error(loc::al("GrabThread(NC): Packet [{0}]:[{1}] of format {2} has no place in its "
                           "block; dropped",
                           Num(static_cast<long long>(header.blockId)).c_str(),
                           Num(header.packetId).c_str(), Num(header.packetFormat).c_str())
                       .c_str());
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
