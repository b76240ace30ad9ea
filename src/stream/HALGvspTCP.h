#pragma once
/**
 * HALGvspTCP: stream channel 0 of a camera over TCP. The camera listens on
 * port 58243 of its own address; the host connects to it and receives whole
 * frames in order, or nothing. There is no packet size, no resend and no
 * time-out arithmetic.
 *
 * Start, for a device under control (access 3 or 4; a viewer cannot move
 * the stream and gets GC_ERR_RESOURCE_IN_USE):
 *   1. reads the GVSP capabilities;
 *   2. writes SCDA with the adapter's address and SCP with 58243;
 *   3. connects to the camera's address at 58243 (read time-out 200 ms).
 * Stop writes SCP 0 (a time-out of the camera does not keep the socket
 * open) and closes the connection.
 *
 * The first bytes of each frame free one waiter of WaitForNextLeader (the
 * socket's first-data callback, on the grab thread). Start and Stop are
 * serialised by the data stream; the grab thread reads between them.
 */
#include <cstdint>
#include <memory>

#include <boost/thread/mutex.hpp>

#include "stream/GvspCapabilities.h"
#include "stream/IHALGvspTCP.h"
#include "stream/LeaderGate.h"

namespace GenTL {

class TCPSocket;

/// The port of the camera's TCP stream; SCP tells the camera to use it.
constexpr std::uint16_t sk_gvspTcpPort = 58243;

class HALGvspTCP : public IHALGvspTCP {
public:
    HALGvspTCP();
    /// Uses socket as the connection's socket object (tests put a stand-in
    /// here); a null socket makes a new one.
    explicit HALGvspTCP(std::shared_ptr<TCPSocket> socket);
    /// Frees every waiter of WaitForNextLeader, then closes the connection.
    ~HALGvspTCP() override;
    HALGvspTCP(const HALGvspTCP&) = delete;
    HALGvspTCP& operator=(const HALGvspTCP&) = delete;

    int Start(IHALGev* hal, void* device, StreamStartParams& params) override;
    int Stop(IHALGev* hal, void* device, unsigned int packetSize, int accessMode) override;
    int ConfigureExtendedId(IHALGev* hal, void* device, bool legacyRequested,
                            bool& extendedId) override;
    int WaitForNextLeader(unsigned long timeoutMs) override;
    int ResetWaitForNextLeader() override;
    int GetServerAddrTCP(void* device, sockaddr_in& address) override;
    int GetHostAddrTCP(void* device, sockaddr_in& address) override;
    int GetNextPacket(char* header, int headerSize, int& headerReceived, char* data, int dataSize,
                      int& received, unsigned long timeout) override;
    int SetNextLeaderArrived() override;

    /// The connection; open between Start and Stop.
    const TCPSocket& Socket() const { return *m_socket; }

private:
    /// The socket's first-data callback: a frame has begun.
    void SignalNextLeader();

    std::shared_ptr<TCPSocket> m_socket;
    /// Set by the read that begins a frame, so that the later reads of the
    /// same frame do not count as further arrivals. Grab thread only.
    bool m_frameBegins = false;
    LeaderGate m_leader;

    /// Caches of ConfigureExtendedId and the capabilities of the last
    /// Start, shared by every TCP stream of the process (the cameras of one
    /// process are taken to agree); under m_cacheMutex, as two devices may
    /// start at once.
    static std::uint32_t m_gevVersion;
    static GvspCapabilities m_capabilities;
    static boost::mutex m_cacheMutex;
};

} // namespace GenTL
