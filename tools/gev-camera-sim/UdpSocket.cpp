#include "UdpSocket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace gevsim {

UdpSocket::~UdpSocket() {
    close();
}

bool UdpSocket::open(uint32_t ip, uint16_t port, bool reuse, std::string& error, bool foreign) {
    close();
    m_fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (m_fd < 0) {
        error = std::string("socket: ") + std::strerror(errno);
        return false;
    }
    const int one = 1;
    if (reuse)
        setsockopt(m_fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    if (foreign && setsockopt(m_fd, IPPROTO_IP, IP_TRANSPARENT, &one, sizeof one) != 0) {
        error = std::string("IP_TRANSPARENT: ") + std::strerror(errno);
        close();
        return false;
    }
    setsockopt(m_fd, SOL_SOCKET, SO_BROADCAST, &one, sizeof one);
    const int bufferSize = 4 << 20;
    setsockopt(m_fd, SOL_SOCKET, SO_SNDBUF, &bufferSize, sizeof bufferSize);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(ip);
    a.sin_port = htons(port);
    if (::bind(m_fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
        error = std::string("bind: ") + std::strerror(errno);
        close();
        return false;
    }
    setDontFragment(false);
    return true;
}

void UdpSocket::close() {
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}

uint16_t UdpSocket::localPort() const {
    sockaddr_in a{};
    socklen_t len = sizeof a;
    if (m_fd < 0 || getsockname(m_fd, reinterpret_cast<sockaddr*>(&a), &len) != 0)
        return 0;
    return ntohs(a.sin_port);
}

bool UdpSocket::sendTo(uint32_t ip, uint16_t port, const void* data, size_t size) const {
    if (m_fd < 0)
        return false;
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(ip);
    a.sin_port = htons(port);
    for (int attempt = 0; attempt < 100; ++attempt) {
        const ssize_t n = ::sendto(m_fd, data, size, 0, reinterpret_cast<sockaddr*>(&a), sizeof a);
        if (n == static_cast<ssize_t>(size))
            return true;
        // A full send queue is waited out briefly; anything else is final.
        if (n < 0 && (errno == ENOBUFS || errno == EAGAIN)) {
            usleep(200);
            continue;
        }
        return false;
    }
    return false;
}

long UdpSocket::receive(void* data, size_t size, uint32_t& fromIp, uint16_t& fromPort,
                        int timeoutMs) const {
    if (m_fd < 0)
        return -1;
    pollfd p{m_fd, POLLIN, 0};
    const int r = ::poll(&p, 1, timeoutMs);
    if (r == 0)
        return 0;
    if (r < 0)
        return errno == EINTR ? 0 : -1;
    sockaddr_in a{};
    socklen_t len = sizeof a;
    const ssize_t n = ::recvfrom(m_fd, data, size, 0, reinterpret_cast<sockaddr*>(&a), &len);
    if (n < 0)
        return -1;
    fromIp = ntohl(a.sin_addr.s_addr);
    fromPort = ntohs(a.sin_port);
    return n;
}

void UdpSocket::setDontFragment(bool on) {
    if (m_fd < 0)
        return;
    const int mode = on ? IP_PMTUDISC_DO : IP_PMTUDISC_DONT;
    setsockopt(m_fd, IPPROTO_IP, IP_MTU_DISCOVER, &mode, sizeof mode);
    m_dontFragment = on;
}

} // namespace gevsim
