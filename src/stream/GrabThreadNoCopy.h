#pragma once
/**
 * GrabThreadNoCopy: the grab loop of a UDP stream without packet resend.
 *
 * Nothing is asked for again, so a block is taken in one pass: the loop
 * predicts the next data packet and lets the socket write its payload
 * straight into the image buffer at that packet's place (a scatter read,
 * the header into a small array of its own). A packet that turns out to be
 * another one is moved to its place afterwards; a lost one leaves a hole.
 * Only the place of a whole packet is a scatter target: the short last place
 * of a buffer is read the plain way. A packet that cannot be what its header
 * says (an unknown format, a leader that is not packet 0, data beyond the
 * block or longer than one packet's share) is dropped, and bytes count as
 * received only where they reached their own place.
 *
 * A block ends at its trailer, at the first packet of a newer block (which
 * is kept for the next one), or by its timers when the stream stops dead.
 * With no free buffer the block goes into a private dummy buffer, which is
 * copied into a buffer that came meanwhile or else counted as an underrun.
 * Finished blocks are delivered by CheckAndCompleteExpiredBuffers
 * (GrabCompletion), complete or flagged incomplete.
 *
 * Run is the body of the stream's grab thread and ends when that thread is
 * interrupted; it starts and joins the two timer threads itself. Buffers of
 * unfinished blocks stay in BS_FILL for the stream's stop to flush.
 */
#include <cstdint>
#include <vector>

#include "stream/GrabCompletion.h"
#include "stream/GvspParser.h"
#include "stream/ResendScheduler.h"

namespace GenTL {

class Buffer;
struct GenTLHandle;
struct GrabContext;

class GrabThreadNoCopy {
public:
    explicit GrabThreadNoCopy(GrabContext& context);
    /// Frees the dummy buffer if End has not.
    ~GrabThreadNoCopy();
    GrabThreadNoCopy(const GrabThreadNoCopy&) = delete;
    GrabThreadNoCopy& operator=(const GrabThreadNoCopy&) = delete;

    /// The thread body; returns when the thread is interrupted.
    void Run();

private:
    /// Where the packet of one pass came from.
    enum class Source { Plain, Scatter, Carried };

    void Begin();
    void End();
    /// One block, from taking a buffer to its completion.
    void RunBlock();
    /// Reads and files one packet of the block in `buffer`.
    void PacketPass(Buffer* buffer);
    /// A leader, trailer or data packet that sits whole in the packet array.
    void HandleWhole(Buffer* buffer, const ParsedGvspHeader& header, int received);
    /// A data packet whose payload already lies at `offset` in the buffer.
    void HandlePlaced(Buffer* buffer, const ParsedGvspHeader& header, std::uint64_t offset,
                      int received);
    /// Puts header and payload of a scatter read back together in the
    /// packet array; returns the datagram's size.
    int Reassemble(const Buffer* buffer, int headerReceived, std::uint64_t offset, int received);
    /// The log line of a packet dropped for its format or place.
    static void LogMisplaced(const ParsedGvspHeader& header);
    void CreateDummy();
    void DestroyDummy();

    GrabContext& m_context;
    ResendScheduler m_resends;
    GrabCompletion m_completion;
    std::vector<char> m_packet; ///< whole datagrams
    std::vector<char> m_header; ///< the header of a scatter read
    std::uint32_t m_dataOffset = 0;
    std::uint64_t m_chunk = 0;
    std::uint32_t m_dataPackets = 0;
    Buffer* m_dummy = nullptr;
    GenTLHandle* m_dummyHandle = nullptr;
    bool m_dummyInUse = false;
    bool m_carryPacket = false; ///< the packet array holds the next block's first packet
    int m_carryReceived = 0;
    bool m_blockDone = false;
    bool m_timersStarted = false;
    Buffer* m_current = nullptr;
};

} // namespace GenTL
