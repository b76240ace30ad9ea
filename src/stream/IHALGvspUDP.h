#pragma once
/**
 * IHALGvspUDP: the GVSP layer of a stream over UDP, as its grab loops see
 * it. Between Start and Stop the grab thread reads datagrams, one per call:
 *
 *   // whole packet, for leaders, trailers and resent packets
 *   rc = gvsp->GetNextPacket(packet, packetSize, received, 50);
 *   // scatter read: the header to one place, the payload straight into the
 *   // image buffer where the expected packet belongs
 *   rc = gvsp->GetNextPacket(header, headerSize, headerReceived,
 *                            base + offset, length, payloadReceived, 50);
 *
 * or many per call, in the way that Start chose (ReceiveMode):
 *
 *   GvspDatagram batch[64];    // head/body: where each one may go
 *   rc = gvsp->GetNextPackets(batch, 64, got, 50);
 *   // single, batch: datagram i lies in batch[i].head and .body
 *   // ring: batch[i].data points at it in the ring, until the next call
 *
 * A read that times out returns GC_ERR_TIMEOUT; a read blocked in the grab
 * thread ends when Stop closes the socket. Only one thread may read. The
 * grab thread calls SetNextLeaderArrived when a block's first packet is in.
 */
#include "stream/GvspReceiveMode.h"
#include "stream/IHALGvsp.h"

namespace GenTL {

/// One datagram of GetNextPackets.
struct GvspDatagram {
    /// Where a datagram goes in the single and batch modes: its first
    /// headLength bytes to head, the rest to body (at most bodyLength).
    char* head = nullptr;
    int headLength = 0;
    char* body = nullptr;
    int bodyLength = 0;
    /// Ring mode: the whole datagram, in the ring; null in the other modes.
    const char* data = nullptr;
    /// Bytes of the datagram that were written (head first, then body), or
    /// its size in the ring.
    int length = 0;
    /// It was longer than head and body together: its tail is lost.
    bool truncated = false;
};

class IHALGvspUDP : public IHALGvsp {
public:
    /// One datagram of at most size bytes into buffer; received is its size.
    virtual int GetNextPacket(char* buffer, int size, int& received, unsigned long timeout) = 0;
    /// One datagram: its first headerSize bytes into header, the rest into
    /// payload (at most payloadSize bytes).
    virtual int GetNextPacket(char* header, int headerSize, int& headerReceived, char* payload,
                              int payloadSize, int& payloadReceived, unsigned long timeout) = 0;
    /// Frees waiters in WaitForNextLeader (one wait per arrival).
    virtual int SetNextLeaderArrived() = 0;

    /// How GetNextPackets reads, as the last Start chose it (never Auto).
    virtual GvspReceiveMode ReceiveMode() const { return GvspReceiveMode::Single; }
    /**
     * Up to count datagrams, waiting at most timeout ms for the first (then
     * GC_ERR_TIMEOUT); got tells how many. In single mode one at a time
     * through the scatter read above; in batch mode all that are queued,
     * up to count, in one system call; in ring mode pointers into the ring,
     * valid until the next call.
     */
    virtual int GetNextPackets(GvspDatagram* datagrams, int count, int& got, unsigned long timeout);
};

} // namespace GenTL
