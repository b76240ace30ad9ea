#pragma once
/**
 * HALGvspUDP: stream channel 0 of a camera over UDP.
 *
 * Start reads the camera's GVSP capabilities and packet size, chooses where
 * the stream goes, and works out the time-outs of the grab loops:
 *
 *   multicast | control (access 3 or 4) | what Start does
 *   ----------+-------------------------+-----------------------------------
 *   no        | yes | unicast socket; SCDA and SCP to it; firewall; packet
 *             |     | size test
 *   no        | no  | GC_ERR_RESOURCE_IN_USE: a viewer cannot redirect the
 *             |     | stream, and nothing is opened
 *   yes       | yes | unicast socket first for the packet size test, then a
 *             |     | socket in group 239.10.10.10; SCDA and SCP to the group
 *   yes       | no  | listener: joins the group on the port that SCP holds,
 *             |     | writes nothing to the camera, tests nothing
 *
 * Sockets in the group bind to the any-address, not to the adapter's: the
 * kernel never hands a group's datagrams to a socket bound to a unicast
 * address. Every stream socket takes datagrams from the camera's address
 * only (a socket filter): packets of any other sender never reach a grab
 * loop, and a start that cannot set the filter fails.
 *
 * The firewall traversal sends four zero bytes from the stream socket to the
 * camera's stream source port (SCSP), so that a stateful firewall lets the
 * camera's packets in; it needs SCSP (capability bit 31), and its failure
 * never ends a start.
 *
 * The packet size test fires the camera's test packet (SCPS bit 31, no
 * fragmenting) and waits 100 ms for it. With autoNegotiatePacketSize the
 * sizes 9000, 7500, 6000, 4500, 3000, 1500, 576 are tried from the top and
 * the first that arrives is written to SCPS; otherwise the camera's present
 * size is tested. A failed test stops the channel again.
 *
 * Time-outs (ms): interPacketExpiry is three packet delays (SCPD over the
 * tick frequency), at least 40. bufferExpiry is retryWindowFrames over
 * frameRate; or, without a window, two frame times; or, without a frame
 * rate, two inter-packet expiries. resendRetries is their quotient, at
 * least 1.
 *
 * Receive modes (GvspReceiveMode): at the end of a start the layer takes
 * the mode asked for (KestaGentl.cfg or the environment, else automatic).
 * Automatic is a packet ring where the process may open one (CAP_NET_RAW),
 * else batched reads; a ring that was asked for and cannot be opened fails
 * the start. With a ring, the stream socket stays bound (no port-unreachable
 * goes back to the camera) but queues nothing. The choice is logged at info
 * level.
 *
 * Start and Stop are serialised by the data stream; the grab thread reads
 * packets while the socket is open; the leader wait is the only state
 * shared between threads.
 */
#include <netinet/in.h>

#include <sys/socket.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "hal/SocketHelper.h"
#include "stream/GvspCapabilities.h"
#include "stream/IHALGvspUDP.h"
#include "stream/LeaderGate.h"
#include "stream/StreamHandle.h"

namespace GenTL {

/// Multicast group of the stream (host byte order after conversion).
constexpr const char* sk_gvspMulticastGroup = "239.10.10.10";

class HALGvspUDP : public IHALGvspUDP {
public:
    HALGvspUDP();
    /// Uses socket as the stream's socket object (tests put a stand-in
    /// here); a null socket makes a new one.
    explicit HALGvspUDP(std::shared_ptr<OverlappedSocket> socket);
    /// Frees every waiter of WaitForNextLeader, then closes the socket.
    ~HALGvspUDP() override;
    HALGvspUDP(const HALGvspUDP&) = delete;
    HALGvspUDP& operator=(const HALGvspUDP&) = delete;

    int Start(IHALGev* hal, void* device, StreamStartParams& params) override;
    int Stop(IHALGev* hal, void* device, unsigned int packetSize, int accessMode) override;
    int ConfigureExtendedId(IHALGev* hal, void* device, bool legacyRequested,
                            bool& extendedId) override;
    int WaitForNextLeader(unsigned long timeoutMs) override;
    int ResetWaitForNextLeader() override;
    int GetNextPacket(char* buffer, int size, int& received, unsigned long timeout) override;
    int GetNextPacket(char* header, int headerSize, int& headerReceived, char* payload,
                      int payloadSize, int& payloadReceived, unsigned long timeout) override;
    int SetNextLeaderArrived() override;
    GvspReceiveMode ReceiveMode() const override { return m_mode; }
    int GetNextPackets(GvspDatagram* datagrams, int count, int& got,
                       unsigned long timeout) override;

    /// The capability word as the last Start (or ConfigureExtendedId) read it.
    GvspCapabilities Capabilities() const { return m_capabilities; }
    /// The stream's socket; open between Start and Stop.
    const StreamHandle& Stream() const { return m_stream; }
    /// Threads now inside WaitForNextLeader.
    int LeaderWaiters();

    /**
     * Inter-packet expiry in ms from SCPD and the tick frequency: three
     * packet delays, at least 40. Reads that fail are logged and count as 0.
     */
    static std::uint32_t CalculateInterPacketExpiry(IHALGev* hal, void* device);
    /// Fills bufferExpiry and resendRetries of params from its
    /// interPacketExpiry, retryWindowFrames and frameRate.
    static void CalculateBufferExpiry(StreamStartParams& params);

private:
    /// Grows the socket's receive buffer for blocks of `blockSize` bytes;
    /// what the system refuses is logged, not failed.
    void SizeReceiveBuffer(std::uint64_t blockSize);
    int StartUnicast(IHALGev* hal, void* device, const sockaddr_in& adapter,
                     StreamStartParams& params);
    int StartMulticast(IHALGev* hal, void* device, const sockaddr_in& adapter,
                       StreamStartParams& params);
    int StartListener(IHALGev* hal, void* device, const sockaddr_in& adapter);
    /// Writes SCDA and SCP; on failure closes the socket.
    int WriteDestination(IHALGev* hal, void* device, std::uint32_t address, std::uint16_t port);
    /// Runs the packet size test; on failure stops the channel and adds the
    /// start's line to the error.
    int NegotiatePacketSize(IHALGev* hal, void* device, StreamStartParams& params);
    /// Takes the receive mode asked for, opening the ring where it is
    /// one; `destination` is where the camera sends (network order).
    int ChooseReceiveMode(IHALGev* hal, void* device, const sockaddr_in& adapter,
                          in_addr destination, std::uint64_t blockSize);

    GvspCapabilities m_capabilities;
    StreamHandle m_stream;
    GvspReceiveMode m_mode = GvspReceiveMode::Single;
    std::unique_ptr<PacketRingSocket> m_ring;
    /// The batch read's system-call records, kept between reads.
    std::vector<mmsghdr> m_messages;
    std::vector<iovec> m_vectors;
    std::vector<PacketRingSocket::Datagram> m_ringDatagrams;
    std::uint32_t m_gevVersion = 0;
    LeaderGate m_leader;
};

} // namespace GenTL
