#include "TcpStreamServer.h"

#include "GevConstants.h"
#include "Log.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace gevsim {

TcpStreamServer::TcpStreamServer(std::string name, FaultInjector& faults)
    : m_name(std::move(name)), m_faults(faults) {}

TcpStreamServer::~TcpStreamServer() {
    shutdown();
}

bool TcpStreamServer::open(uint32_t ip, std::string& error) {
    shutdown();
    if (m_faults.refuseTcp()) {
        Log::write(1, m_name, "fault: nothing listens on the tcp stream port");
        return true;
    }
    m_listenFd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (m_listenFd < 0) {
        error = std::string("tcp socket: ") + std::strerror(errno);
        return false;
    }
    const int one = 1;
    setsockopt(m_listenFd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(ip);
    a.sin_port = htons(kTcpStreamPort);
    if (::bind(m_listenFd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
        ::listen(m_listenFd, 2) != 0) {
        error = std::string("tcp bind/listen: ") + std::strerror(errno);
        ::close(m_listenFd);
        m_listenFd = -1;
        return false;
    }
    m_running = true;
    m_thread = std::thread(&TcpStreamServer::run, this);
    return true;
}

void TcpStreamServer::shutdown() {
    m_running = false;
    if (m_thread.joinable())
        m_thread.join();
    disconnect();
    if (m_listenFd >= 0)
        ::close(m_listenFd);
    m_listenFd = -1;
}

bool TcpStreamServer::connected() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_clientFd >= 0;
}

void TcpStreamServer::disconnect() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_clientFd >= 0)
        ::close(m_clientFd);
    m_clientFd = -1;
}

void TcpStreamServer::run() {
    while (m_running) {
        int client;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            client = m_clientFd;
        }
        pollfd p[2] = {{m_listenFd, POLLIN, 0}, {client, POLLIN, 0}};
        if (::poll(p, client >= 0 ? 2 : 1, 50) <= 0)
            continue;
        if (p[0].revents & POLLIN) {
            const int fd = ::accept4(m_listenFd, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd >= 0) {
                const int one = 1;
                setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
                timeval tv{2, 0};
                setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
                std::lock_guard<std::mutex> lock(m_mutex);
                if (m_clientFd >= 0)
                    ::close(m_clientFd);
                m_clientFd = fd;
                m_framesOnConnection = 0;
                m_stalled = false;
                Log::write(1, m_name, "tcp stream receiver connected");
            }
        }
        // The receiver never sends; readable means it closed.
        if (client >= 0 && (p[1].revents & (POLLIN | POLLHUP | POLLERR))) {
            char scratch[64];
            if (::recv(client, scratch, sizeof scratch, MSG_DONTWAIT) <= 0) {
                std::lock_guard<std::mutex> lock(m_mutex);
                if (m_clientFd == client) {
                    ::close(m_clientFd);
                    m_clientFd = -1;
                    Log::write(1, m_name, "tcp stream receiver closed");
                }
            }
        }
    }
}

bool TcpStreamServer::sendAll(int fd, const uint8_t* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = ::send(fd, data + done, size - done, MSG_NOSIGNAL);
        if (n <= 0) {
            if (n < 0 && errno == EINTR)
                continue;
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

void TcpStreamServer::dropClient(const char* why, bool reset) {
    if (reset) {
        // Linger 0: close() sends a reset instead of the orderly end.
        const linger abort{1, 0};
        setsockopt(m_clientFd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    }
    Log::write(1, m_name, why);
    ::close(m_clientFd);
    m_clientFd = -1;
}

bool TcpStreamServer::sendFrame(const uint8_t* header, size_t headerSize, const uint8_t* payload,
                                size_t payloadSize) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_clientFd < 0 || m_stalled)
        return false;
    using Fault = FaultInjector::TcpFrameFault;
    const Fault fault = m_faults.tcpFrameFault(++m_framesOnConnection);
    std::vector<uint8_t> head(header, header + headerSize);
    if (fault == Fault::Oversize && headerSize >= 4) {
        // The header tells the doubled length, and that many bytes follow:
        // the image and then the image again.
        const uint32_t doubled = static_cast<uint32_t>(payloadSize * 2);
        for (int i = 0; i < 4; ++i)
            head[i] = static_cast<uint8_t>(doubled >> (24 - 8 * i));
    }
    const size_t first =
        fault == Fault::Reset || fault == Fault::Stall ? payloadSize / 2 : payloadSize;
    bool sent =
        sendAll(m_clientFd, head.data(), head.size()) && sendAll(m_clientFd, payload, first);
    if (sent && fault == Fault::Oversize)
        sent = sendAll(m_clientFd, payload, payloadSize);
    if (!sent) {
        dropClient("tcp stream send failed, dropping the receiver", false);
        return false;
    }
    if (fault == Fault::Reset) {
        dropClient("fault: tcp stream reset in the middle of a frame", true);
        return false;
    }
    if (fault == Fault::Stall) {
        m_stalled = true;
        Log::write(1, m_name, "fault: tcp stream sender stalls in the middle of a frame");
        return false;
    }
    return true;
}

} // namespace gevsim
