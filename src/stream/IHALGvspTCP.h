#pragma once
/**
 * IHALGvspTCP: the GVSP layer of a stream over TCP, as its grab thread sees
 * it. Start connects to the camera; between Start and Stop the grab thread
 * reads frames, each a 60-byte header and the payload, through
 * GetNextPacket:
 *
 *   // the first read of a frame asks for its header: it wakes a waiter of
 *   // WaitForNextLeader as soon as the first bytes are in
 *   rc = gvsp->GetNextPacket(header, 60, headerReceived, room, 60, received, 200);
 *   // the rest of the frame goes straight into the image buffer
 *   rc = gvsp->GetNextPacket(nullptr, 0, headerReceived, base, length, received, 200);
 *
 * A read that times out returns GC_ERR_TIMEOUT with `received` telling the
 * bytes that did come, so that the next read can go on from there. Only one
 * thread may read.
 */
#include <netinet/in.h>

#include "stream/IHALGvsp.h"

namespace GenTL {

class IHALGvspTCP : public IHALGvsp {
public:
    /// The camera's address (network order), as the device was opened.
    virtual int GetServerAddrTCP(void* device, sockaddr_in& address) = 0;
    /// The adapter's address (network order) that the device was opened on.
    virtual int GetHostAddrTCP(void* device, sockaddr_in& address) = 0;
    /**
     * Reads dataSize bytes into data; on success received is dataSize and
     * the first headerSize of them are copied to header (headerReceived is
     * headerSize). A headerSize above 0 marks the read that begins a frame.
     */
    virtual int GetNextPacket(char* header, int headerSize, int& headerReceived, char* data,
                              int dataSize, int& received, unsigned long timeout) = 0;
    /// Frees waiters in WaitForNextLeader (one wait per arrival).
    virtual int SetNextLeaderArrived() = 0;
};

} // namespace GenTL
