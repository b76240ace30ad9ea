#include "stream/GrabThreadResend.h"

#include <algorithm>
#include <string>

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/thread.hpp>

#include "GenTL_KESTA.h"
#include "api/GLogger.h"
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

// The wait of one read; between reads the thread can be interrupted.
constexpr unsigned long kReceiveTimeoutMs = 50;
// Milliseconds between the repeats of one request.
constexpr std::uint32_t kResendRequestTimeoutMs = 25;
// Room for a datagram when no packet size is known.
constexpr std::uint32_t kMinPacketArray = 576;
// Datagrams taken from the kernel at most per read.
constexpr std::size_t kBatchSize = 64;

std::string Num(long long value) {
    return std::to_string(value);
}

/// The block id after a trailer: 0 is skipped when the counter wraps.
std::uint64_t NextBlockIdAfter(std::uint64_t blockId, bool extended) {
    if (extended) {
        return blockId == ~std::uint64_t{0} ? 1 : blockId + 1;
    }
    return blockId + 1 >= 0x10000 ? 1 : blockId + 1;
}

} // namespace

GrabThreadResend::GrabThreadResend(GrabContext& context)
    : m_context(context), m_resends(context), m_completion(context, m_resends) {}

void GrabThreadResend::Run() {
    ThreadPriority::ApplyThreadPrioritySetting(ThreadPriority::m_priorityGrabThread);
    GLogger::Info("DataStreamGevUDP::GrabThreadResend(): Starting");
    Begin();
    try {
        for (;;) {
            boost::this_thread::interruption_point();
            m_context.buffers.RequeOldestBufferIfNeeded(m_context.bufferHandlingMode);
            m_blockCompleted = false;
            while (!m_blockCompleted) {
                if (m_next == m_received) {
                    // Once per read: the point takes a lock, too dear per packet.
                    boost::this_thread::interruption_point();
                    ReceiveBatch();
                    continue;
                }
                const GvspDatagram& d = m_batch[m_next++];
                HandlePacket(d.data != nullptr ? d.data : d.head, d.length);
            }
            m_completion.CheckAndCompleteExpiredBuffers();
            boost::this_thread::interruption_point();
        }
    } catch (const boost::thread_interrupted&) {
        End();
    } catch (...) {
        End();
        throw;
    }
}

void GrabThreadResend::ReceiveBatch() {
    m_next = 0;
    m_received = 0;
    const int rc = m_context.gvsp.GetNextPackets(m_batch.data(), static_cast<int>(m_batch.size()),
                                                 m_received, kReceiveTimeoutMs);
    if (rc == GC_ERR_TIMEOUT) {
        GLogger::Debug("GrabThreadResend(): Timed out waiting for packet");
    } else if (rc != GC_ERR_SUCCESS) {
        GLogger::Error(
            loc::al("GrabThreadResend(): Failed to retrieve a packet. Error: {0}", Num(rc).c_str())
                .c_str());
    }
}

void GrabThreadResend::Begin() {
    StreamInfo& info = m_context.info;
    // Every datagram of a batch has a whole packet's room of its own (in the
    // ring the kernel placed them already).
    const std::size_t room = std::max(info.packetSize, kMinPacketArray);
    m_batch.assign(kBatchSize, GvspDatagram{});
    if (m_context.gvsp.ReceiveMode() != GvspReceiveMode::Ring) {
        m_packets.assign(kBatchSize * room, 0);
        for (std::size_t i = 0; i < kBatchSize; ++i) {
            m_batch[i].head = m_packets.data() + i * room;
            m_batch[i].headLength = static_cast<int>(room);
        }
    }
    m_next = 0;
    m_received = 0;
    info.nextBlockId = 1;
    info.lastBlockId = 0;
    info.resendRequestTimeout = kResendRequestTimeoutMs;
    const std::uint64_t chunk = info.PayloadBytesPerPacket();
    const std::uint64_t bufferSize = m_context.buffers.GetSizeOfFirstAnnouncedBuffer();
    const std::uint64_t dataPackets = chunk == 0 ? 0 : (bufferSize + chunk - 1) / chunk;
    info.packetsPerBlock = static_cast<std::uint32_t>(dataPackets + 2);
    m_bitmapBytes = (info.packetsPerBlock + 7) / 8;
    m_blockCompleted = false;
    m_starved = false;
    m_lastBuffer = nullptr;
    m_completion.StartTimerThreads();
    m_context.running = true;
}

void GrabThreadResend::StartBlock(Buffer* b, std::uint64_t blockId) {
    const StreamInfo& info = m_context.info;
    b->missingPackets = static_cast<std::int32_t>(info.packetsPerBlock);
    b->AllocatePacketBitmap(m_bitmapBytes);
    b->isIncomplete = true;
    b->width = b->height = 0;
    b->xOffset = b->yOffset = 0;
    b->xPadding = b->yPadding = 0;
    b->payloadType = 0;
    b->pixelFormat = 0;
    b->deliveredChunkPayloadSize = 0;
    b->chunkLayoutId = 0;
    b->timestamp = 0;
    b->dataLargerThanBuffer = false;
    b->containsChunkData = false;
    b->receivedBytes = 0;
    b->bufferExpired = false;
    b->packetSeen = false;
    b->nextExpectedPacket = 0;
    b->trailerSeen = false;
    b->leaderSeen = false;
    b->trailerSizeY = 0;
    b->receivedPackets = 0;
    // Until a leader tells the real size, a block may fill the whole buffer:
    // data that comes before a late leader then still finds its place.
    b->dataSize = b->size;
    b->frameId = blockId;
    m_completion.ArmBlockTimers(b);
    m_starved = false;
}

bool GrabThreadResend::HandlePacket(const char* packet, int received) {
    ParsedGvspHeader header;
    if (GetPktHeaderInfo(packet, received, received, header) != GC_ERR_SUCCESS) {
        return false;
    }
    if ((header.status & ~kGvspStatusResent) != 0) {
        return false; // a real status: the packet is not to be used
    }
    // A packet that cannot be what its header says is dropped before it
    // touches a block: taken, it would open a block or a request of its own.
    if (!PacketIdFitsFormat(header)) {
        LogMisplaced(header);
        return false;
    }
    StreamInfo& info = m_context.info;
    const bool extended = info.extendedId;
    boost::lock_guard<boost::mutex> listLock(m_context.activeBlocksMutex);

    Buffer* current = nullptr;
    Buffer* buffer = nullptr;
    for (GenTLHandle* handle : m_context.activeBlocks) {
        Buffer* b = CastHandleToBufferPtr(handle);
        if (b == nullptr) {
            continue;
        }
        if (b->frameId == info.nextBlockId) {
            current = b;
        }
        if (b->frameId == header.blockId) {
            buffer = b;
            break;
        }
    }

    if (buffer == nullptr) {
        const int order = CompareBlockIds(header.blockId, info.nextBlockId, extended);
        // A block that has been delivered or dropped is gone for good, also
        // while the id expected next has not moved past it yet: a straggler
        // or a resent packet of it would make it again and have it asked for
        // and delivered twice.
        const bool finished =
            info.lastBlockId != 0 &&
            CompareBlockIds(header.blockId, info.lastBlockId, extended) != BLOCK_ID_AHEAD;
        if (order == BLOCK_ID_BEHIND || finished) {
            return false; // its block is gone
        }
        if (order == BLOCK_ID_AHEAD) {
            // A newer block began before the expected one was finished: ask
            // for the expected block's tail.
            if (current != nullptr) {
                boost::lock_guard<boost::mutex> lock(current->m_mutex);
                if (current->resendCount < info.maxResendRequestsPerImage) {
                    ++current->resendCount;
                    const std::uint32_t first = current->nextExpectedPacket;
                    const std::uint32_t last = info.packetsPerBlock - 1;
                    const std::uint32_t remaining =
                        info.packetsPerBlock > first ? info.packetsPerBlock - first : 0;
                    m_resends.OpenRequest(current, info.nextBlockId, first, last, remaining);
                }
            }
            info.nextBlockId = header.blockId;
        }
        bool dummyInUse = false;
        GenTLHandle* handle = m_context.buffers.PopNextBuffer(nullptr, dummyInUse);
        buffer = CastHandleToBufferPtr(handle);
        if (buffer == nullptr) {
            if (!m_starved) {
                GLogger::Error("GrabThreadResend(): Grab thread starved of input image buffers");
                m_starved = true;
            }
            return false;
        }
        m_context.activeBlocks.push_back(handle);
        ++m_context.activeBlockCount;
        boost::lock_guard<boost::mutex> lock(buffer->m_mutex);
        StartBlock(buffer, header.blockId);
    }

    boost::lock_guard<boost::mutex> lock(buffer->m_mutex);
    m_lastBuffer = buffer;
    const std::uint32_t id = header.packetId;
    if (header.packetFormat == GVSP_PACKET_PAYLOAD) {
        // A data packet must land inside the block with one packet's share:
        // checked here, before it can open a request for a gap up to its id.
        const std::uint32_t offset = header.DataOffset();
        const std::uint64_t chunk = info.packetSize > kIpUdpHeaderSize + offset
                                        ? info.packetSize - kIpUdpHeaderSize - offset
                                        : 0;
        const auto bytes = static_cast<std::uint64_t>(received);
        if (!DataPacketFitsBlock(id, bytes > offset ? bytes - offset : 0, chunk, *buffer,
                                 info.payloadType)) {
            LogMisplaced(header);
            return false;
        }
    }
    if (buffer->IsPacketSeen(id)) {
        GLogger::Error("GrabThreadResend(): Duplicate packet received");
        return false;
    }
    // Only a packet that is taken shows that the block is alive: a camera
    // that repeats or misplaces packets without end must not keep its block
    // from expiring.
    buffer->packetSeen = true;
    if (header.extendedId != extended) {
        GLogger::Error(loc::al("GrabThreadResend(): Invalid packet header expected. EI bit = {0} "
                               "received header = {1}",
                               Num(extended).c_str(), Num(header.extendedId).c_str())
                           .c_str());
    }

    const std::uint32_t next = buffer->nextExpectedPacket;
    bool late = false;
    if (id > next) {
        // A gap: ask for what lies between.
        if (buffer->resendCount < info.maxResendRequestsPerImage) {
            ++buffer->resendCount;
            m_resends.OpenRequest(buffer, info.nextBlockId, next, id - 1, id - next);
        }
    } else if (header.blockId < info.nextBlockId) {
        late = true;
    } else {
        late = header.blockId == info.nextBlockId && id < next;
    }

    Dispatch(buffer, packet, received, header);

    if (late) {
        m_resends.SettleLatePacket(buffer, id);
    } else if (header.packetFormat == GVSP_PACKET_TRAILER) {
        // Only forward: the trailer of an older block, behind a gap of its
        // own, must not take the expected id back to a block already begun.
        const std::uint64_t after = NextBlockIdAfter(header.blockId, extended);
        if (CompareBlockIds(after, info.nextBlockId, extended) == BLOCK_ID_AHEAD) {
            info.nextBlockId = after;
        }
    }

    const bool done = buffer->receivedPackets == info.packetsPerBlock ||
                      (buffer->leaderSeen && buffer->trailerSeen && buffer->width == 1 &&
                       buffer->receivedPackets == buffer->lastPacketId + 1);
    if (!done) {
        return false;
    }
    m_blockCompleted = true;
    buffer->isAcquiring = false;
    GrabCompletion::CancelBlockTimers(buffer);
    m_resends.ClearResendRequestList(buffer);
    return true;
}

void GrabThreadResend::Dispatch(Buffer* buffer, const char* packet, int received,
                                const ParsedGvspHeader& header) {
    StreamInfo& info = m_context.info;
    const auto size = static_cast<unsigned long>(received);
    const std::uint32_t id = header.packetId;
    switch (header.packetFormat) {
    case GVSP_PACKET_LEADER:
        if (const int rc = ParseGVSPLeader(info, packet, size, buffer, header)) {
            GLogger::Error(loc::al("GrabThreadResend(): Failed to parse GVSP leader! Error: {0}",
                                   Num(rc).c_str())
                               .c_str());
            return;
        }
        buffer->MarkPacketSeen(id);
        ++buffer->receivedPackets;
        buffer->leaderSeen = true;
        buffer->payloadType = info.payloadType;
        if (buffer->nextExpectedPacket < id + 1) {
            buffer->nextExpectedPacket = id + 1;
        }
        m_context.gvsp.SetNextLeaderArrived();
        return;
    case GVSP_PACKET_TRAILER:
        if (const int rc = ParseGVSPTrailer(info, packet, size, buffer, m_blockCompleted, header)) {
            GLogger::Error(loc::al("GrabThreadResend(): Failed to parse GVSP trailer! Error: {0}",
                                   Num(rc).c_str())
                               .c_str());
            return;
        }
        buffer->trailerSeen = true;
        buffer->MarkPacketSeen(id);
        buffer->lastPacketId = id;
        ++buffer->receivedPackets;
        return;
    default: // a data packet: HandlePacket let through no other format
        if (const int rc = ParseGVSPPayload(info, packet, size, buffer, header)) {
            GLogger::Error(loc::al("GrabThreadResend(): Failed to parse GVSP payload! Error: {0}",
                                   Num(rc).c_str())
                               .c_str());
        }
        return;
    }
}

void GrabThreadResend::LogMisplaced(const ParsedGvspHeader& header) {
    const std::uint8_t format = header.packetFormat;
    if (format < GVSP_PACKET_LEADER || format > GVSP_PACKET_PAYLOAD) {
        GLogger::Error(
            loc::al("GrabThreadResend(): Unsupported GVSP packet format: {0}", Num(format).c_str())
                .c_str());
        return;
    }
    GLogger::Error(loc::al("GrabThreadResend(): Packet [{0}]:[{1}] of format {2} has no place in "
                           "its block; dropped",
                           Num(static_cast<long long>(header.blockId)).c_str(),
                           Num(header.packetId).c_str(), Num(format).c_str())
                       .c_str());
}

void GrabThreadResend::End() {
    boost::this_thread::disable_interruption noInterruption;
    m_context.running = false;
    if (m_lastBuffer != nullptr) {
        boost::lock_guard<boost::mutex> lock(m_lastBuffer->m_mutex);
        m_lastBuffer->isAcquiring = false;
    }
    {
        boost::lock_guard<boost::mutex> listLock(m_context.activeBlocksMutex);
        for (GenTLHandle* handle : m_context.activeBlocks) {
            Buffer* buffer = CastHandleToBufferPtr(handle);
            if (buffer == nullptr) {
                continue;
            }
            boost::unique_lock<boost::mutex> lock(buffer->m_mutex);
            GrabCompletion::CancelBlockTimers(buffer);
            m_resends.ClearResendRequestList(buffer);
            if (buffer->state != BS_OUTPUT) {
                buffer->FreePacketBitmap();
                lock.unlock();
                m_context.buffers.QueueBufferToInput(handle);
            }
        }
        m_context.activeBlocks.clear();
        m_context.activeBlockCount = 0;
    }
    m_completion.StopTimerThreads();
    m_lastBuffer = nullptr;
}

} // namespace GenTL
