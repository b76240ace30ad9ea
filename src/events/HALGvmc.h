#pragma once
/**
 * HALGvmc: the message channel's wire layer over UDP.
 *
 * Start, as a controlling application runs it on unicast:
 *
 *   read 0x0930 (capabilities)
 *   open the socket on the adapter of the device's control socket
 *   write MCDA = the socket's address, then MCP = its port
 *   send four zero bytes to the camera's source port (0x0B1C), so that a
 *   stateful firewall takes the camera's packets for answers
 *
 * A controlling application on multicast binds a socket of its own port in
 * the group 239.11.11.11 and writes the group to MCDA; a listener without
 * control reads MCP and joins the group at that port, writing nothing.
 * Without control a unicast start is refused (GC_ERR_RESOURCE_IN_USE). A
 * firewall step that fails (a camera without the source-port register, for
 * one) is logged and the start goes on.
 *
 * GetNextPacket hands out only datagrams that come from the camera's
 * address and fit in the caller's buffer: whatever else reaches the port (a
 * forged or stray datagram, an oversized one that the socket would cut) is
 * dropped and the wait goes on until its time-out.
 *
 * Start and Stop are called by the channel, one at a time; its receive
 * thread reads packets while the socket is open.
 */
#include <cstdint>
#include <memory>

#include "events/IHALGvmc.h"

namespace GenTL {

class HALGvmc : public IHALGvmc {
public:
    HALGvmc();
    /// Uses socket as the channel's socket object (tests put a stand-in
    /// here); a null socket makes a new one.
    explicit HALGvmc(std::shared_ptr<OverlappedSocket> socket);
    /// Closes the socket if Stop did not.
    ~HALGvmc() override;
    HALGvmc(const HALGvmc&) = delete;
    HALGvmc& operator=(const HALGvmc&) = delete;

    int Start(IHALGev* hal, void* device, bool multicast, int accessMode) override;
    int Stop(IHALGev* hal, void* device, int accessMode) override;
    int GetNextPacket(char* buffer, int size, int& received, unsigned long timeoutMs) override;

    /// The capability word as the last Start read it.
    GvmcCapabilities Capabilities() const { return m_capabilities; }
    /// The channel's socket; open between Start and Stop.
    const MCHandle& Channel() const { return m_channel; }

private:
    int StartUnicast(IHALGev* hal, void* device, int accessMode);
    int StartMulticast(IHALGev* hal, void* device, int accessMode);
    /// Writes MCDA, then MCP; on failure closes the socket.
    int WriteDestination(IHALGev* hal, void* device, std::uint32_t address, std::uint16_t port);

    GvmcCapabilities m_capabilities;
    MCHandle m_channel;
    /// The camera's address (network order): the one sender taken.
    std::uint32_t m_cameraIp = 0;
};

} // namespace GenTL
