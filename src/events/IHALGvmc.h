#pragma once
/**
 * IHALGvmc: the wire layer between a message channel and the camera's
 * message channel. It owns the channel's receive socket and does what must
 * happen on the wire before the first event packet and after the last one.
 *
 *   gvmc->Start(hal, hDevice, multicast, accessMode);  // MCDA, MCP, firewall
 *   ... receive thread: gvmc->GetNextPacket(scratch, 576, received, 200) ...
 *   gvmc->Stop(hal, hDevice, accessMode);              // MCP 0, socket closed
 *
 * Every operation returns 0 or a GC_ERR_* code and leaves a failure in the
 * calling thread's error cache.
 */
#include <cstdint>
#include <memory>

namespace GenTL {

class IHALGev;
class OverlappedSocket;

/// Message channel registers of the camera.
constexpr unsigned sk_addrGvmcCaps = 0x0930;
constexpr unsigned sk_addrMcp = 0x0B00;
constexpr unsigned sk_addrMcda = 0x0B10;
constexpr unsigned sk_addrMcsp = 0x0B1C;

/// Multicast group of the message channel.
constexpr const char* sk_gvmcMulticastGroup = "239.11.11.11";

/// Largest message-channel packet: EVENT_CMD or EVENTDATA_CMD, header
/// included.
constexpr int kGvmcPacketSizeMax = 576;

/// The camera's message channel capability word (0x0930).
struct GvmcCapabilities {
    std::uint32_t word = 0;

    /// Bit 31: the camera has the source-port register (0x0B1C), so the
    /// host can open its firewall towards the channel's source port.
    bool HasSourcePort() const { return (word & 0x80000000u) != 0; }
};

/// The receive side of a message channel: its socket.
struct MCHandle {
    std::shared_ptr<OverlappedSocket> m_pSocket;
};

class IHALGvmc {
public:
    virtual ~IHALGvmc() = default;

    /**
     * Opens the receive socket and points the camera's channel at it (or at
     * the multicast group). A unicast channel needs control (accessMode 3
     * or 4); a multicast listener without control writes nothing.
     */
    virtual int Start(IHALGev* hal, void* device, bool multicast, int accessMode) = 0;
    /// With control, tells the camera to stop (MCP 0); closes the socket.
    virtual int Stop(IHALGev* hal, void* device, int accessMode) = 0;
    /**
     * Receives the camera's next datagram, of at most size bytes, within
     * timeoutMs; received is its length. Time-out: GC_ERR_TIMEOUT.
     */
    virtual int GetNextPacket(char* buffer, int size, int& received, unsigned long timeoutMs) = 0;
};

} // namespace GenTL
