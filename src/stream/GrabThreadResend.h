#pragma once
/**
 * GrabThreadResend: the grab loop of a UDP stream with packet resend.
 *
 * Every datagram is filed into the buffer of its block; several blocks can
 * be in progress at once (the active list, oldest first). A packet id
 * beyond the next expected one opens a resend request for the gap; a block
 * that is overtaken by a newer one gets a request for its tail; a block
 * that goes quiet is asked for its rest by its timers (GrabCompletion).
 * Resent and reordered packets that fill a gap settle their request.
 * Packets that cannot be what their header says (an unknown format, a
 * leader that is not packet 0, data beyond the block or longer than one
 * packet's share) are dropped before they touch a block or a request.
 * A block is done when all its packets are in (a variable-size block: up
 * to its trailer's id), or when its timers have run out; finished blocks
 * are delivered in the order in which they began, complete or flagged
 * incomplete, and a block whose leader never came goes back to the input
 * queue and counts as missed.
 *
 * Threads: Run is the body of the stream's grab thread and ends when that
 * thread is interrupted (the stream's StopAcquisition); it starts and joins
 * the two timer threads itself. Unfinished blocks return to the input queue
 * on the way out, and no request, timer or thread is left behind.
 *
 * Datagrams come in batches (IHALGvspUDP::GetNextPackets), each handled in
 * turn as if it had been read alone: a block that a datagram completes is
 * delivered before the next datagram of the batch is looked at.
 *
 * Tests drive it packet by packet: Begin, HandlePacket..., End.
 */
#include <cstdint>
#include <vector>

#include "stream/GrabCompletion.h"
#include "stream/GvspParser.h"
#include "stream/IHALGvspUDP.h"
#include "stream/ResendScheduler.h"

namespace GenTL {

class Buffer;
struct GrabContext;

class GrabThreadResend {
public:
    explicit GrabThreadResend(GrabContext& context);
    GrabThreadResend(const GrabThreadResend&) = delete;
    GrabThreadResend& operator=(const GrabThreadResend&) = delete;

    /// The thread body: Begin, receive until interrupted, End.
    void Run();

    /// Sizes the block from the first announced buffer (packetsPerBlock),
    /// resets the block ids, starts the timer threads and sets `running`.
    void Begin();
    /**
     * Files one datagram of `received` bytes. Returns true when it completed
     * a block (its buffer's timers are stopped; delivery follows in
     * CheckAndCompleteExpiredBuffers).
     */
    bool HandlePacket(const char* packet, int received);
    /// Delivers the finished blocks at the front of the active list.
    void CheckAndCompleteExpiredBuffers() { m_completion.CheckAndCompleteExpiredBuffers(); }
    /// Clears `running`, returns unfinished blocks to the input queue, frees
    /// their requests and stops the timer threads.
    void End();

private:
    /// Resets a buffer for the first packet of a block and starts its
    /// timers. Caller holds activeBlocksMutex and the buffer's m_mutex.
    void StartBlock(Buffer* buffer, std::uint64_t blockId);
    /// The step of the packet's format. Caller holds both locks.
    void Dispatch(Buffer* buffer, const char* packet, int received, const ParsedGvspHeader& header);
    /// The log line of a packet dropped for its format or place.
    static void LogMisplaced(const ParsedGvspHeader& header);
    /// Reads the next datagrams into m_batch (logs a failed read).
    void ReceiveBatch();

    GrabContext& m_context;
    ResendScheduler m_resends;
    GrabCompletion m_completion;
    std::vector<GvspDatagram> m_batch; ///< the datagrams of the last read
    std::vector<char> m_packets;       ///< their room, where the kernel does not place them
    int m_received = 0;                ///< datagrams in m_batch
    int m_next = 0;                    ///< the first not handled yet
    std::uint32_t m_bitmapBytes = 0;
    bool m_blockCompleted = false;
    bool m_starved = false;
    Buffer* m_lastBuffer = nullptr; ///< buffer of the last packet filed
};

} // namespace GenTL
