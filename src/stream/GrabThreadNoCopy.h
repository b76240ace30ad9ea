#pragma once
/**
 * GrabThreadNoCopy: the grab loop of a UDP stream without packet resend.
 *
 * Nothing is asked for again, so a block is taken in one pass: the loop
 * predicts the next data packets and lets the kernel write their payloads
 * straight into the image buffer at those packets' places (a scatter read
 * of one datagram, or of a batch of them, each header into a small slot of
 * its own). A packet that turns out to be another one is moved to its place
 * afterwards (a datagram of the batch that still waits at that place is
 * first copied into its slot); a lost one leaves a hole. A batch ends at the
 * block's predicted trailer; datagrams of a newer block that came in it are
 * copied into their slots before the block's buffer is handed on. In the
 * ring mode datagrams lie whole in the ring and each payload is copied once.
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
#include "stream/IHALGvspUDP.h"
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
    void Begin();
    void End();
    /// One block, from taking a buffer to its completion.
    void RunBlock();
    /// Files the next datagram of the batch (reading a batch first when
    /// none is left) into the block in `buffer`.
    void PacketPass(Buffer* buffer);
    /// Points each datagram of the next read at its predicted place in
    /// `buffer` (single, batch) and notes where the batch begins.
    void PrepareBatch(Buffer* buffer);
    /// Reads a batch; false when nothing came.
    bool ReceiveBatch(Buffer* buffer);
    /// A leader, trailer or data packet that lies whole at `packet`.
    void HandleWhole(Buffer* buffer, const ParsedGvspHeader& header, const char* packet,
                     int received);
    /// A data packet whose payload already lies at `offset` in the buffer.
    void HandlePlaced(Buffer* buffer, const ParsedGvspHeader& header, std::uint64_t offset,
                      int received);
    /// Copies the payload of datagram `index` from its place in the buffer
    /// into its slot, behind its header: the datagram is then whole there.
    void Rescue(std::size_t index);
    /// Rescues every datagram not handled yet.
    void RescueRest();
    /// Rescues the datagram not handled yet that lies at `place` of
    /// `buffer`, before something else is written there.
    void ClaimPlace(const Buffer* buffer, std::uint64_t place);
    char* SlotOf(std::size_t index) { return m_slots.data() + index * m_slotSize; }
    /// The log line of a packet dropped for its format or place.
    static void LogMisplaced(const ParsedGvspHeader& header);
    void CreateDummy();
    void DestroyDummy();

    static constexpr std::size_t kBatchSize = 64;
    static constexpr std::uint64_t kWhole = ~std::uint64_t{0};

    GrabContext& m_context;
    ResendScheduler m_resends;
    GrabCompletion m_completion;
    GvspReceiveMode m_mode = GvspReceiveMode::Single;
    std::vector<GvspDatagram> m_batch;
    /// Per datagram of the batch: where its payload lies in m_placedIn, or
    /// kWhole when the datagram lies whole in its slot (or in the ring).
    std::vector<std::uint64_t> m_place;
    std::vector<char> m_slots; ///< kBatchSize slots of m_slotSize bytes
    std::size_t m_slotSize = 0;
    std::size_t m_prepared = 0;         ///< datagrams the read was prepared for
    std::size_t m_count = 0;            ///< datagrams the read brought
    std::size_t m_cursor = 0;           ///< the first not handled yet
    Buffer* m_placedIn = nullptr;       ///< the buffer the batch was prepared in
    std::uint32_t m_firstPredicted = 0; ///< the packet id predicted for datagram 0
    std::uint32_t m_dataOffset = 0;
    std::uint64_t m_chunk = 0;
    std::uint32_t m_dataPackets = 0;
    Buffer* m_dummy = nullptr;
    GenTLHandle* m_dummyHandle = nullptr;
    bool m_dummyInUse = false;
    bool m_blockDone = false;
    bool m_timersStarted = false;
    Buffer* m_current = nullptr;
};

} // namespace GenTL
