#pragma once
/**
 * IHALGvspUDP: the GVSP layer of a stream over UDP, as its grab loops see
 * it. Between Start and Stop the grab thread reads one datagram per call:
 *
 *   // whole packet, for leaders, trailers and resent packets
 *   rc = gvsp->GetNextPacket(packet, packetSize, received, 50);
 *   // scatter read: the header to one place, the payload straight into the
 *   // image buffer where the expected packet belongs
 *   rc = gvsp->GetNextPacket(header, headerSize, headerReceived,
 *                            base + offset, length, payloadReceived, 50);
 *
 * A read that times out returns GC_ERR_TIMEOUT; a read blocked in the grab
 * thread ends when Stop closes the socket. Only one thread may read. The
 * grab thread calls SetNextLeaderArrived when a block's first packet is in.
 */
#include "stream/IHALGvsp.h"

namespace GenTL {

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
};

} // namespace GenTL
