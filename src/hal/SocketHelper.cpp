#include "hal/SocketHelper.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/thread.hpp>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/HLogger.h"
#include "api/localization.h"

namespace GenTL {

namespace {

constexpr uint16_t kFirstPort = 49152;
constexpr int kPortCount = 16384;
constexpr int kDefaultStreamTimeoutMs = 200;

std::string Num(long long value) {
    return std::to_string(value);
}

timeval ToTimeval(int ms) {
    timeval tv{};
    tv.tv_sec = ms / 1000;
    tv.tv_usec = (ms % 1000) * 1000;
    return tv;
}

size_t Length(int length) {
    return length > 0 ? static_cast<size_t>(length) : 0;
}

/// SO_RCVTIMEO on fd, or -1 with errno.
int SetReceiveTimeout(detail::SocketDescriptor& socket, int ms) {
    const timeval tv = ToTimeval(ms);
    return static_cast<int>(socket.Run(
        [&](int fd) { return ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv)); }));
}

int SetIntOption(detail::SocketDescriptor& socket, int level, int name, int value) {
    return static_cast<int>(
        socket.Run([&](int fd) { return ::setsockopt(fd, level, name, &value, sizeof(value)); }));
}

bool IsTimeout(int err) {
    return err == ETIMEDOUT || err == EAGAIN || err == EWOULDBLOCK;
}

/// The OverlappedSocket/TCPSocket timeout setter; the texts name CommSocket.
int SetStreamTimeout(detail::SocketDescriptor& socket, int timeoutMs) {
    if (SetReceiveTimeout(socket, timeoutMs) != 0) {
        const int err = errno;
        HLogger::Error("GenTL::CommSocket::SetTimeout", err);
        return ReportError(GC_ERR_ABORT, "GenTL::CommSocket::GetTimeout Failed : " + Num(err));
    }
    return GC_ERR_SUCCESS;
}

/// Reports SO_RCVBUF; a failure to read it is only logged.
void ReportReceiveBuffer(detail::SocketDescriptor& socket, bool atErrorLevel, const char* line) {
    int size = 0;
    socklen_t len = sizeof(size);
    if (socket.Run([&](int fd) { return ::getsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, &len); }) !=
        0) {
        HLogger::Error("Error getting socket opts", errno);
        return;
    }
    const std::string text = loc::al(line, Num(size).c_str());
    if (atErrorLevel) {
        HLogger::Error(text.c_str());
    } else {
        HLogger::Debug(text.c_str());
    }
}

/// A port of 49152..65534 for the multicast sender side.
uint16_t DrawMulticastPort() {
    return static_cast<uint16_t>(std::rand() % 16383 - 16384);
}

/// The shared tail of a failed open: record the error, close what was
/// opened.
int FailOpen(detail::SocketDescriptor& socket, int code, const std::string& text) {
    socket.Close();
    return ReportError(code, text);
}

} // namespace

// ---------------------------------------------------------------------------

namespace detail {

void SocketDescriptor::Assign(int fd) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_fd = fd;
}

void SocketDescriptor::Close() {
    std::unique_lock<std::mutex> lock(m_mutex);
    const int fd = m_fd;
    if (fd < 0) {
        return;
    }
    m_fd = -1;
    // Wakes receives blocked on this socket; close() alone would not.
    ::shutdown(fd, SHUT_RDWR);
    m_idle.wait(lock, [this] { return m_users == 0; });
    ::close(fd);
}

int SocketDescriptor::Get() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_fd;
}

bool BindFromPort(int fd, sockaddr_in& local, uint16_t start) {
    uint16_t port = start;
    for (int i = 0; i < kPortCount; ++i) {
        local.sin_port = htons(port);
        if (::bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) == 0) {
            break;
        }
        port = port == 65535 ? kFirstPort : static_cast<uint16_t>(port + 1);
    }
    return port >= start;
}

uint16_t ProcessStartPort() {
    std::srand(static_cast<unsigned>(::getpid()));
    return static_cast<uint16_t>(kFirstPort + std::rand() % kPortCount);
}

} // namespace detail

// ---------------------------------------------------------------------------

CommSocket::CommSocket() : m_localAddr{}, m_remoteAddr{} {}

CommSocket::~CommSocket() = default;

int CommSocket::OpenAndBindSocket(sockaddr_in local, const std::string& remoteIp,
                                  unsigned short remotePort, bool broadcast, int timeoutMs) {
    const uint16_t start = detail::ProcessStartPort();
    m_localAddr = local;
    m_localAddr.sin_family = AF_INET;
    m_localAddr.sin_port = htons(start);

    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
    if (fd < 0) {
        return ReportError(GC_ERR_RESOURCE_EXHAUSTED, "Couldn't open gvcp socket");
    }
    m_socket.Assign(fd);

    struct Option {
        bool wanted;
        int name;
        int value;
        const char* logLine;
        const char* errorText;
    };
    const Option options[] = {
        {true, SO_BROADCAST, broadcast ? 1 : 0, "GenTL::CommSocket Setting SO_BROADCAST",
         "GenTL::CommSocket Setting SO_BROADCAST Failed : "},
        {broadcast, SO_REUSEADDR, 1, "GenTL::CommSocket Setting SO_REUSEADDR",
         "GenTL::CommSocket Setting SO_REUSEADDR Failed : "},
    };
    if (SetReceiveTimeout(m_socket, timeoutMs) != 0) {
        const int err = errno;
        m_socket.Close();
        HLogger::Error("GenTL::CommSocket Setting SO_RCVTIMEO", err);
        return ReportError(GC_ERR_ABORT,
                           "GenTL::CommSocket Setting SO_RCVTIMEO Failed : " + Num(err));
    }
    for (const Option& o : options) {
        if (o.wanted && SetIntOption(m_socket, SOL_SOCKET, o.name, o.value) != 0) {
            const int err = errno;
            m_socket.Close();
            HLogger::Error(o.logLine, err);
            return ReportError(GC_ERR_ABORT, o.errorText + Num(err));
        }
    }

    if (!detail::BindFromPort(fd, m_localAddr, start)) {
        return FailOpen(m_socket, GC_ERR_RESOURCE_EXHAUSTED, "Unable to bind to gvcp socket");
    }

    m_remoteAddr.sin_family = AF_INET;
    ::inet_pton(AF_INET, remoteIp.c_str(), &m_remoteAddr.sin_addr);
    m_remoteAddr.sin_port = htons(remotePort);
    return GC_ERR_SUCCESS;
}

int CommSocket::SetTimeout(int timeoutMs, int& oldTimeoutMs) {
    timeval old{};
    socklen_t len = sizeof(old);
    if (m_socket.Run(
            [&](int fd) { return ::getsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &old, &len); }) != 0) {
        const int err = errno;
        HLogger::Error("GenTL::CommSocket::GetTimeout", err);
        return ReportError(GC_ERR_ABORT, "GenTL::CommSocket::GetTimeout Failed : " + Num(err));
    }
    if (SetReceiveTimeout(m_socket, timeoutMs) != 0) {
        const int err = errno;
        HLogger::Error("GenTL::CommSocket::SetTimeout", err);
        return ReportError(GC_ERR_ABORT, "GenTL::CommSocket::GetTimeout Failed : " + Num(err));
    }
    oldTimeoutMs = static_cast<int>(old.tv_sec * 1000 + old.tv_usec / 1000);
    return GC_ERR_SUCCESS;
}

int CommSocket::Send(const char* data, int length, unsigned ip) {
    if (ip != 0) {
        m_remoteAddr.sin_addr.s_addr = ip;
    }
    const sockaddr_in to = m_remoteAddr;
    const ssize_t sent = m_socket.Run([&](int fd) {
        return ::sendto(fd, data, Length(length), MSG_NOSIGNAL,
                        reinterpret_cast<const sockaddr*>(&to), sizeof(to));
    });
    if (sent != static_cast<ssize_t>(Length(length))) {
        const int err = errno;
        HLogger::Error("GenTL::CommSocket::Send sendto", err);
        return ReportError(GC_ERR_IO, "GenTL::CommSocket::Send sendto Failed : " + Num(err));
    }
    return GC_ERR_SUCCESS;
}

int CommSocket::Receive(char* buffer, int length, bool silent) {
    const ssize_t got = m_socket.Run(
        [&](int fd) { return ::recvfrom(fd, buffer, Length(length), 0, nullptr, nullptr); }, true);
    if (got >= 0) {
        return GC_ERR_SUCCESS;
    }
    const int err = errno;
    HLogger::Error("GenTL::CommSocket::Receive recvfrom", err);
    if (IsTimeout(err)) {
        if (silent) {
            return GC_ERR_TIMEOUT;
        }
        return ReportError(GC_ERR_TIMEOUT,
                           "the call to recvfrom() returned with timeout error ETIMEDOUT");
    }
    return ReportError(GC_ERR_BUSY, "the call to recvfrom() returned with error" + Num(err));
}

int CommSocket::Close() {
    m_socket.Close();
    return GC_ERR_SUCCESS;
}

// ---------------------------------------------------------------------------

boost::mutex OverlappedSocket::m_overlappedSocketMutex;

OverlappedSocket::OverlappedSocket() : m_localAddr{}, m_groupRequest{} {}

OverlappedSocket::~OverlappedSocket() = default;

int OverlappedSocket::FinishOpen(bool reportAtErrorLevel, const char* bufferLine) {
    if (const int rc = SetTimeout(kDefaultStreamTimeoutMs)) {
        m_socket.Close();
        return rc;
    }
    m_timeout = kDefaultStreamTimeoutMs;
    ReportReceiveBuffer(m_socket, reportAtErrorLevel, bufferLine);
    return GC_ERR_SUCCESS;
}

int OverlappedSocket::OpenAndBindSocket(sockaddr_in local) {
    boost::lock_guard<boost::mutex> lock(m_overlappedSocketMutex);
    const uint16_t start = detail::ProcessStartPort();
    m_localAddr = local;
    m_localAddr.sin_family = AF_INET;
    m_localAddr.sin_port = htons(start);

    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
    if (fd < 0) {
        return ReportError(GC_ERR_RESOURCE_EXHAUSTED, "Couldn't open gvsp socket");
    }
    m_socket.Assign(fd);
    if (!detail::BindFromPort(fd, m_localAddr, start)) {
        return FailOpen(m_socket, GC_ERR_RESOURCE_EXHAUSTED, "Unable to bind to gvcp socket");
    }
    return FinishOpen(false, "GVSP receive buffer size = {0} bytes");
}

int OverlappedSocket::OpenAndBindSocketForMulticast(sockaddr_in local, int group) {
    boost::lock_guard<boost::mutex> lock(m_overlappedSocketMutex);
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    static uint16_t currBindPort = DrawMulticastPort();
    m_multicast = true;

    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
    if (fd < 0) {
        return ReportError(GC_ERR_RESOURCE_EXHAUSTED, "Couldn't open gvsp socket");
    }
    m_socket.Assign(fd);
    if (SetIntOption(m_socket, SOL_SOCKET, SO_REUSEADDR, 1) != 0) {
        return FailOpen(m_socket, GC_ERR_RESOURCE_EXHAUSTED, "Unable to reuse port");
    }

    m_localAddr = local;
    m_localAddr.sin_family = AF_INET;
    for (;;) {
        m_localAddr.sin_port = htons(currBindPort);
        if (::bind(fd, reinterpret_cast<const sockaddr*>(&m_localAddr), sizeof(m_localAddr)) == 0) {
            break;
        }
        const uint16_t next = DrawMulticastPort();
        if (next == currBindPort) {
            return FailOpen(m_socket, GC_ERR_RESOURCE_EXHAUSTED, "Unable to bind to gvsp socket");
        }
        currBindPort = next;
    }
    currBindPort = DrawMulticastPort();

    m_groupRequest.imr_multiaddr.s_addr = htonl(static_cast<uint32_t>(group));
    m_groupRequest.imr_interface.s_addr = 0;
    if (::setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &m_groupRequest, sizeof(m_groupRequest)) !=
        0) {
        const int err = errno;
        return FailOpen(m_socket, GC_ERR_RESOURCE_EXHAUSTED,
                        "Unable to add multicast group (err " + Num(err) + ")");
    }
    return FinishOpen(false, "GVSP receive buffer size {0} bytes");
}

int OverlappedSocket::OpenAndBindSocketForMulticastListening(sockaddr_in local, int group,
                                                             unsigned short port) {
    m_multicast = true;
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
    if (fd < 0) {
        return ReportError(GC_ERR_RESOURCE_EXHAUSTED, "Couldn't open gvsp socket");
    }
    m_socket.Assign(fd);
    if (SetIntOption(m_socket, SOL_SOCKET, SO_REUSEADDR, 1) != 0) {
        return FailOpen(m_socket, GC_ERR_RESOURCE_EXHAUSTED, "Unable to reuse port");
    }
    m_localAddr = local;
    m_localAddr.sin_family = AF_INET;
    m_localAddr.sin_port = htons(port);
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&m_localAddr), sizeof(m_localAddr)) != 0) {
        return FailOpen(m_socket, GC_ERR_RESOURCE_EXHAUSTED, "Unable to bind to gvsp socket");
    }
    m_groupRequest.imr_multiaddr.s_addr = htonl(static_cast<uint32_t>(group));
    m_groupRequest.imr_interface.s_addr = 0;
    if (::setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &m_groupRequest, sizeof(m_groupRequest)) !=
        0) {
        return FailOpen(m_socket, GC_ERR_RESOURCE_EXHAUSTED, "Unable to add multicast group");
    }
    return FinishOpen(true, "GVSP receive buffer size = {0} bytes");
}

int OverlappedSocket::Send(const char* data, int length, sockaddr_in to) {
    const ssize_t sent = m_socket.Run([&](int fd) {
        return ::sendto(fd, data, Length(length), MSG_NOSIGNAL,
                        reinterpret_cast<const sockaddr*>(&to), sizeof(to));
    });
    if (sent != static_cast<ssize_t>(Length(length))) {
        const int err = errno;
        HLogger::Error("GenTL::CommSocket::Send sendto", err);
        return ReportError(GC_ERR_IO, "GenTL::CommSocket::Send sendto Failed : " + Num(err));
    }
    return GC_ERR_SUCCESS;
}

int OverlappedSocket::GetNextResult(char* buffer, int length, int& received, int timeoutMs) {
    if (timeoutMs != m_timeout) {
        if (const int rc = SetTimeout(timeoutMs)) {
            return rc;
        }
        m_timeout = timeoutMs;
    }
    const ssize_t got =
        m_socket.Run([&](int fd) { return ::recv(fd, buffer, Length(length), 0); }, true);
    if (got >= 0) {
        received = static_cast<int>(got);
        return GC_ERR_SUCCESS;
    }
    const int err = errno;
    HLogger::Error("GenTL::OverlappedSocket::GetNextResult recv", err);
    HLogger::Error(
        loc::al("GenTL::OverlappedSocket::GetNextResult recv Buffer size: {0}", Num(length).c_str())
            .c_str());
    if (IsTimeout(err)) {
        return ReportError(GC_ERR_TIMEOUT,
                           "GenTL::OverlappedSocket::Receive recvfrom Failed: TIMEOUT");
    }
    return ReportError(GC_ERR_IO, "GenTL::OverlappedSocket::Receive recvfrom Failed: " + Num(err));
}

int OverlappedSocket::GetNextResultFrom(char* buffer, int length, int& received, sockaddr_in& from,
                                        int timeoutMs) {
    if (timeoutMs != m_timeout) {
        if (const int rc = SetTimeout(timeoutMs)) {
            return rc;
        }
        m_timeout = timeoutMs;
    }
    const ssize_t got = m_socket.Run(
        [&](int fd) {
            socklen_t size = sizeof(from);
            return ::recvfrom(fd, buffer, Length(length), MSG_TRUNC,
                              reinterpret_cast<sockaddr*>(&from), &size);
        },
        true);
    if (got >= 0) {
        received = static_cast<int>(got);
        return GC_ERR_SUCCESS;
    }
    // A quiet channel times out all the time: only real failures are logged.
    const int err = errno;
    if (IsTimeout(err)) {
        return ReportError(GC_ERR_TIMEOUT,
                           "GenTL::OverlappedSocket::Receive recvfrom Failed: TIMEOUT");
    }
    HLogger::Error("GenTL::OverlappedSocket::GetNextResultFrom recvfrom", err);
    return ReportError(GC_ERR_IO, "GenTL::OverlappedSocket::Receive recvfrom Failed: " + Num(err));
}

int OverlappedSocket::GetNextResultNoCopy(char* head, int headLength, int& headReceived, char* body,
                                          int bodyLength, int& bodyReceived, int timeoutMs) {
    if (timeoutMs != m_timeout) {
        if (const int rc = SetTimeout(timeoutMs)) {
            return rc;
        }
        m_timeout = timeoutMs;
    }
    iovec parts[2];
    parts[0].iov_base = head;
    parts[0].iov_len = Length(headLength);
    parts[1].iov_base = body;
    parts[1].iov_len = Length(bodyLength);
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    const ssize_t got = m_socket.Run([&](int fd) { return ::recvmsg(fd, &message, 0); }, true);
    if (got >= 0) {
        const size_t count = static_cast<size_t>(got);
        headReceived = static_cast<int>(std::min(count, parts[0].iov_len));
        bodyReceived = static_cast<int>(count - static_cast<size_t>(headReceived));
        // The kernel dropped the tail of a datagram longer than both parts:
        // the caller must know that the data did not fit.
        return (message.msg_flags & MSG_TRUNC) != 0 ? GC_ERR_BUFFER_TOO_SMALL : GC_ERR_SUCCESS;
    }
    const int err = errno;
    HLogger::Error("GenTL::OverlappedSocket::Receive recvfrom", err);
    HLogger::Error(loc::al("GenTL::OverlappedSocket::Receive recvfrom Buffer size: {0}",
                           Num(static_cast<long long>(headLength) + bodyLength).c_str())
                       .c_str());
    if (IsTimeout(err)) {
        return ReportError(GC_ERR_TIMEOUT,
                           "GenTL::OverlappedSocket::Receive recvfrom Failed: TIMEOUT");
    }
    return ReportError(GC_ERR_IO, "GenTL::OverlappedSocket::Receive recvfrom Failed: " + Num(err));
}

int OverlappedSocket::Close() {
    if (m_multicast) {
        const ip_mreq request = m_groupRequest;
        m_socket.Run([&](int fd) {
            return ::setsockopt(fd, IPPROTO_IP, IP_DROP_MEMBERSHIP, &request, sizeof(request));
        });
        m_multicast = false;
    }
    m_socket.Close();
    return GC_ERR_SUCCESS;
}

int OverlappedSocket::SetTimeout(int timeoutMs) {
    return SetStreamTimeout(m_socket, timeoutMs);
}

int OverlappedSocket::RequestReceiveBuffer(int bytes) {
    // SO_RCVBUFFORCE passes net.core.rmem_max for a process with
    // CAP_NET_ADMIN; others get what SO_RCVBUF allows. The kernel doubles
    // the request for its own bookkeeping, so ask for half.
    const int half = bytes / 2;
    int granted = 0;
    socklen_t len = sizeof granted;
    const int rc = m_socket.Run([&](int fd) {
        if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &half, sizeof half) != 0 &&
            ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &half, sizeof half) != 0) {
            return -1;
        }
        return ::getsockopt(fd, SOL_SOCKET, SO_RCVBUF, &granted, &len);
    });
    return rc == 0 ? granted : 0;
}

// ---------------------------------------------------------------------------

TCPSocket::TCPSocket() : m_remoteAddr{} {}

TCPSocket::TCPSocket(FirstDataCallback onFirstData)
    : m_remoteAddr{}, m_onFirstData(std::move(onFirstData)) {}

TCPSocket::~TCPSocket() = default;

void TCPSocket::SetFirstDataCallback(FirstDataCallback onFirstData) {
    m_onFirstData = std::move(onFirstData);
}

int TCPSocket::OpenAndConnectSocket(sockaddr_in remote) {
    m_remoteAddr = remote;
    auto fail = [this](int err) {
        m_socket.Close();
        HLogger::Error("GenTL::TCPSocket::OpenAndConnectSocket Failed", err);
        return ReportError(GC_ERR_ABORT,
                           "GenTL::TCPSocket::OpenAndConnectSocket Failed : " + Num(err));
    };
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return fail(errno);
    }
    m_socket.Assign(fd);
    if (m_socket.Run([&](int s) {
            return ::connect(s, reinterpret_cast<const sockaddr*>(&m_remoteAddr),
                             sizeof(m_remoteAddr));
        }) != 0) {
        return fail(errno);
    }
    m_timeout = kDefaultStreamTimeoutMs;
    if (const int rc = SetTimeout(m_timeout)) {
        m_socket.Close();
        return rc;
    }
    return GC_ERR_SUCCESS;
}

int TCPSocket::GetNextResult(char* buffer, int length, int& received, char* copyTo,
                             unsigned long copyLength, int timeoutMs) {
    if (timeoutMs != m_timeout) {
        if (const int rc = SetTimeout(timeoutMs)) {
            return rc;
        }
        m_timeout = timeoutMs;
    }
    const size_t wanted = Length(length);
    size_t total = 0;
    bool firstData = true;
    while (total < wanted) {
        const ssize_t got = m_socket.Run(
            [&](int fd) { return ::recv(fd, buffer + total, wanted - total, 0); }, true);
        if (got >= 0 && firstData) {
            firstData = false;
            if (m_onFirstData) {
                m_onFirstData();
            }
        }
        if (got < 0) {
            const int err = errno;
            HLogger::Error("GenTL::TCPSocket::GetNextResult recv Failed", err);
            HLogger::Error("GenTL::TCPSocket::GetNextResult recv Buffer size", length);
            if (IsTimeout(err)) {
                return ReportError(GC_ERR_TIMEOUT,
                                   "GenTL::TCPSocket::GetNextResult recv Failed: TIMEOUT");
            }
            return ReportError(GC_ERR_IO,
                               "GenTL::TCPSocket::GetNextResult recv Failed: " + Num(err));
        }
        if (got == 0) {
            // The peer closed: nothing more will come, but the grab thread
            // that waits here must still be stoppable.
            boost::this_thread::interruption_point();
            continue;
        }
        total += static_cast<size_t>(got);
    }
    received = static_cast<int>(total);
    const size_t copied = std::min<unsigned long>(copyLength, wanted);
    if (copied > 0) {
        std::memcpy(copyTo, buffer, copied);
    }
    return GC_ERR_SUCCESS;
}

int TCPSocket::Close() {
    m_socket.Close();
    return GC_ERR_SUCCESS;
}

int TCPSocket::SetTimeout(int timeoutMs) {
    return SetStreamTimeout(m_socket, timeoutMs);
}

} // namespace GenTL
