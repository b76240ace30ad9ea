// A bound UDP socket. Addresses and ports are in host order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace gevsim {

class UdpSocket {
public:
    UdpSocket() = default;
    ~UdpSocket();
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;

    // Binds to ip:port (0 for any); reuse lets several cameras of one
    // process share the wildcard broadcast port. A foreign socket may bind
    // an address this host does not have, to send as someone else.
    bool open(uint32_t ip, uint16_t port, bool reuse, std::string& error, bool foreign = false);
    void close();
    bool isOpen() const { return m_fd >= 0; }
    int fd() const { return m_fd; }
    uint16_t localPort() const;

    // Returns false on a send error (EMSGSIZE for a too big packet with
    // do-not-fragment set, for one).
    bool sendTo(uint32_t ip, uint16_t port, const void* data, size_t size) const;
    // Waits up to timeoutMs; returns the size read, 0 on time-out, -1 on error.
    long receive(void* data, size_t size, uint32_t& fromIp, uint16_t& fromPort,
                 int timeoutMs) const;
    void setDontFragment(bool on);

private:
    int m_fd = -1;
    bool m_dontFragment = false;
};

} // namespace gevsim
