#include "hal/SocketHelper.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/ip.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <boost/thread/lock_guard.hpp>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/HLogger.h"
#include "api/localization.h"

namespace GenTL {

namespace {

constexpr uint16_t kFirstPort = 49152;
constexpr int kPortCount = 16384;
constexpr int kDefaultStreamTimeoutMs = 200;
constexpr int kConnectTimeoutMs = 3000;

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

/// Whole milliseconds until deadline, rounded up; 0 once it has passed.
int RemainingMs(std::chrono::steady_clock::time_point deadline) {
    const auto left = deadline - std::chrono::steady_clock::now();
    if (left <= std::chrono::steady_clock::duration::zero()) {
        return 0;
    }
    const auto ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    return static_cast<int>(std::min<long long>(ms, INT_MAX));
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
    m_timeoutMs = timeoutMs;
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
    m_timeoutMs = timeoutMs;
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
    int received = 0;
    return Receive(buffer, length, silent, received, kSocketTimeout);
}

bool CommSocket::FromPeer(const sockaddr_in& from) const {
    const in_addr_t peer = m_remoteAddr.sin_addr.s_addr;
    if (peer == htonl(INADDR_ANY) || peer == htonl(INADDR_BROADCAST)) {
        return true;
    }
    return from.sin_addr.s_addr == peer && from.sin_port == m_remoteAddr.sin_port;
}

int CommSocket::Receive(char* buffer, int length, bool silent, int& received, int waitMs) {
    using Clock = std::chrono::steady_clock;
    received = 0;
    const int limitMs = waitMs < 0 ? m_timeoutMs.load() : waitMs;
    // The socket's own timeout of 0 is none at all; a wait of 0 asked for
    // here is a look without waiting.
    const bool endless = waitMs < 0 && limitMs == 0;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(limitMs);
    // The first read waits by the socket's timeout itself, the usual case;
    // any other wait ends at the deadline by poll.
    bool byTimeout = waitMs < 0;
    int err = 0;
    for (;;) {
        sockaddr_in from{};
        socklen_t fromLength = sizeof from;
        const auto read = [&](int fd, int flags) {
            return ::recvfrom(fd, buffer, Length(length), MSG_TRUNC | flags,
                              reinterpret_cast<sockaddr*>(&from), &fromLength);
        };
        ssize_t got = -1;
        if (byTimeout) {
            got = m_socket.Run([&](int fd) { return read(fd, 0); }, true);
        } else {
            const int leftMs = endless ? -1 : RemainingMs(deadline);
            got = m_socket.Run(
                [&](int fd) -> ssize_t {
                    pollfd wait{fd, POLLIN, 0};
                    const int ready = ::poll(&wait, 1, leftMs);
                    if (ready == 0) {
                        errno = EAGAIN;
                    }
                    return ready > 0 ? read(fd, MSG_DONTWAIT) : -1;
                },
                true);
        }
        err = errno;
        byTimeout = false;
        if (got >= 0 && FromPeer(from)) {
            received = static_cast<int>(std::min<ssize_t>(got, INT_MAX));
            return GC_ERR_SUCCESS;
        }
        if (got >= 0) {
            HLogger::Warn("GenTL::CommSocket::Receive dropped a datagram of another sender");
            continue;
        }
        // Woken for a datagram that was then not there: wait on.
        if (IsTimeout(err) && (endless || RemainingMs(deadline) > 0)) {
            continue;
        }
        break;
    }
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

int OverlappedSocket::AcceptOnlyFrom(in_addr sender) {
    // A socket filter rather than connect(): a connected socket bound to the
    // any-address would no longer receive the datagrams of a group. The
    // program reads the IPv4 source address of each datagram and keeps it
    // whole when it is the sender's, else drops it before it is queued.
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(SKF_NET_OFF) + 12),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ntohl(sender.s_addr), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, 0xFFFFFFFFU),
        BPF_STMT(BPF_RET | BPF_K, 0),
    };
    sock_fprog program{};
    program.len = static_cast<unsigned short>(sizeof code / sizeof code[0]);
    program.filter = code;
    const ssize_t rc = m_socket.Run([&](int fd) {
        return ::setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program);
    });
    if (rc != 0) {
        const int err = errno;
        HLogger::Error("GenTL::OverlappedSocket::AcceptOnlyFrom", err);
        return ReportError(GC_ERR_IO,
                           "GenTL::OverlappedSocket::AcceptOnlyFrom Failed : " + Num(err));
    }
    return GC_ERR_SUCCESS;
}

int OverlappedSocket::GetNextResults(mmsghdr* messages, unsigned count, int& got, int timeoutMs) {
    got = 0;
    if (timeoutMs != m_timeout) {
        if (const int rc = SetTimeout(timeoutMs)) {
            return rc;
        }
        m_timeout = timeoutMs;
    }
    ssize_t n = m_socket.Run(
        [&](int fd) { return ::recvmmsg(fd, messages, count, MSG_WAITFORONE, nullptr); }, true);
    if (n > 0 && m_socket.Get() < 0) {
        // A socket shut down by Close() yields empty datagrams: nothing came.
        n = -1;
        errno = EBADF;
    }
    if (n >= 0) {
        got = static_cast<int>(n);
        return GC_ERR_SUCCESS;
    }
    const int err = errno;
    if (IsTimeout(err)) {
        return ReportError(GC_ERR_TIMEOUT,
                           "GenTL::OverlappedSocket::Receive recvfrom Failed: TIMEOUT");
    }
    HLogger::Error("GenTL::OverlappedSocket::GetNextResults recvmmsg", err);
    return ReportError(GC_ERR_IO, "GenTL::OverlappedSocket::Receive recvfrom Failed: " + Num(err));
}

int OverlappedSocket::RefuseAll() {
    sock_filter code[] = {BPF_STMT(BPF_RET | BPF_K, 0)};
    sock_fprog program{};
    program.len = 1;
    program.filter = code;
    const ssize_t rc = m_socket.Run([&](int fd) {
        return ::setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program);
    });
    if (rc != 0) {
        const int err = errno;
        HLogger::Error("GenTL::OverlappedSocket::RefuseAll", err);
        return ReportError(GC_ERR_IO, "GenTL::OverlappedSocket::RefuseAll Failed : " + Num(err));
    }
    return GC_ERR_SUCCESS;
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

namespace {

/// Ring geometry: blocks small enough that a slow stream's block is not
/// held back long, large enough for many jumbo frames each.
constexpr std::size_t kRingBlockSize = 1u << 18;
constexpr unsigned kRingFrameSize = 2048;   ///< only a unit of the kernel's bookkeeping in V3
constexpr unsigned kRingBlockTimeoutMs = 1; ///< a partly filled block is handed over after this

/// The interface that carries `address`, 0 when none does.
unsigned InterfaceIndexOf(in_addr address) {
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        return 0;
    }
    unsigned index = 0;
    for (const ifaddrs* a = list; a != nullptr && index == 0; a = a->ifa_next) {
        if (a->ifa_addr != nullptr && a->ifa_addr->sa_family == AF_INET &&
            reinterpret_cast<const sockaddr_in*>(a->ifa_addr)->sin_addr.s_addr == address.s_addr) {
            index = ::if_nametoindex(a->ifa_name);
        }
    }
    ::freeifaddrs(list);
    return index;
}

/// One's complement sum of 16-bit big-endian words, added to `sum`. The
/// words are summed in memory order, four bytes at a time, and the folded
/// result turned to host order once: the sum does not depend on byte order.
std::uint32_t Sum16(const std::uint8_t* p, std::size_t length, std::uint32_t sum) {
    std::uint64_t words = 0;
    for (; length >= 4; p += 4, length -= 4) {
        std::uint32_t w = 0;
        std::memcpy(&w, p, 4);
        words += w;
    }
    if (length > 0) {
        std::uint32_t w = 0; // the tail, padded with zeros
        std::memcpy(&w, p, length);
        words += w;
    }
    while (words >> 16) {
        words = (words & 0xFFFF) + (words >> 16);
    }
    return sum + ntohs(static_cast<std::uint16_t>(words));
}

std::uint16_t Fold(std::uint32_t sum) {
    while (sum >> 16) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<std::uint16_t>(sum);
}

std::uint16_t Be16(const std::uint8_t* p) {
    return static_cast<std::uint16_t>(p[0] << 8 | p[1]);
}

} // namespace

PacketRingSocket::~PacketRingSocket() {
    Close();
}

int PacketRingSocket::Open(in_addr source, in_addr destination, in_port_t port, in_addr adapter,
                           std::size_t bytes) {
    Close();
    // Protocol 0 until bound: nothing is queued before the filter and the
    // ring are in place.
    const int fd = ::socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        const int err = errno;
        if (err == EPERM || err == EACCES) {
            return ReportError(GC_ERR_ACCESS_DENIED,
                               "GenTL::PacketRingSocket::Open a packet ring needs CAP_NET_RAW");
        }
        return ReportError(GC_ERR_RESOURCE_EXHAUSTED,
                           "GenTL::PacketRingSocket::Open socket Failed : " + Num(err));
    }
    m_fd = fd;
    const auto fail = [this](const char* step) {
        const int err = errno;
        HLogger::Error((std::string("GenTL::PacketRingSocket::Open ") + step).c_str(), err);
        Close();
        return ReportError(GC_ERR_RESOURCE_EXHAUSTED,
                           std::string("GenTL::PacketRingSocket::Open ") + step +
                               " Failed : " + Num(err));
    };
    // The filter sees each packet from its IPv4 header on. It keeps UDP
    // datagrams from the sender to the destination and port, whole (no
    // fragment), and not sent by this host.
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, static_cast<std::uint32_t>(SKF_AD_OFF + SKF_AD_PKTTYPE)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PACKET_OUTGOING, 10, 0),
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 9),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, IPPROTO_UDP, 0, 8),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 12),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ntohl(source.s_addr), 0, 6),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 16),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ntohl(destination.s_addr), 0, 4),
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 6),
        BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, 0x3FFF, 2, 0),
        BPF_STMT(BPF_LDX | BPF_B | BPF_MSH, 0),
        BPF_JUMP(BPF_JMP | BPF_JA, 1, 0, 0),
        BPF_STMT(BPF_RET | BPF_K, 0),
        BPF_STMT(BPF_LD | BPF_H | BPF_IND, 2),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ntohs(port), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, 0xFFFFFFFFU),
        BPF_STMT(BPF_RET | BPF_K, 0),
    };
    sock_fprog program{};
    program.len = static_cast<unsigned short>(sizeof code / sizeof code[0]);
    program.filter = code;
    if (::setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0) {
        return fail("SO_ATTACH_FILTER");
    }
    const int version = TPACKET_V3;
    if (::setsockopt(fd, SOL_PACKET, PACKET_VERSION, &version, sizeof version) != 0) {
        return fail("PACKET_VERSION");
    }
    m_blockSize = kRingBlockSize;
    m_blocks = static_cast<unsigned>(std::max<std::size_t>(bytes / m_blockSize, 4));
    tpacket_req3 request{};
    request.tp_block_size = static_cast<unsigned>(m_blockSize);
    request.tp_block_nr = m_blocks;
    request.tp_frame_size = kRingFrameSize;
    request.tp_frame_nr = static_cast<unsigned>(m_blockSize / kRingFrameSize) * m_blocks;
    request.tp_retire_blk_tov = kRingBlockTimeoutMs;
    if (::setsockopt(fd, SOL_PACKET, PACKET_RX_RING, &request, sizeof request) != 0) {
        return fail("PACKET_RX_RING");
    }
    m_ringSize = m_blockSize * m_blocks;
    void* ring = ::mmap(nullptr, m_ringSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (ring == MAP_FAILED) {
        m_ringSize = 0;
        return fail("mmap");
    }
    m_ring = static_cast<char*>(ring);
    sockaddr_ll link{};
    link.sll_family = AF_PACKET;
    link.sll_protocol = htons(ETH_P_IP);
    link.sll_ifindex = static_cast<int>(InterfaceIndexOf(adapter));
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&link), sizeof link) != 0) {
        return fail("bind");
    }
    m_block = 0;
    m_handedOut = 0;
    m_framesLeft = 0;
    m_frame = nullptr;
    return GC_ERR_SUCCESS;
}

int PacketRingSocket::Close() {
    if (m_ring != nullptr) {
        ::munmap(m_ring, m_ringSize);
        m_ring = nullptr;
        m_ringSize = 0;
    }
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
    return GC_ERR_SUCCESS;
}

bool PacketRingSocket::ReadFrame(const char* frame, Datagram& out) {
    const auto* h = reinterpret_cast<const tpacket3_hdr*>(frame);
    if (h->tp_snaplen != h->tp_len) {
        return false; // cut by the ring
    }
    const auto* ip = reinterpret_cast<const std::uint8_t*>(frame + h->tp_net);
    const std::size_t captured = h->tp_snaplen;
    if (captured < 28 || (ip[0] >> 4) != 4) {
        return false;
    }
    const std::size_t ipHeader = static_cast<std::size_t>(ip[0] & 0x0F) * 4;
    const std::size_t total = Be16(ip + 2);
    if (ipHeader < 20 || total > captured || total < ipHeader + 8 ||
        Fold(Sum16(ip, ipHeader, 0)) != 0xFFFF) {
        return false;
    }
    const std::uint8_t* udp = ip + ipHeader;
    const std::size_t udpLength = Be16(udp + 4);
    if (udpLength < 8 || udpLength > total - ipHeader) {
        return false;
    }
    // The kernel checks the UDP checksum only later, on the socket's path:
    // here it is checked unless the device did (or, for a datagram of this
    // host, it was never filled in); 0 means the sender sent none.
    const bool checked = (h->tp_status & (TP_STATUS_CSUM_VALID | TP_STATUS_CSUMNOTREADY)) != 0;
    if (!checked && Be16(udp + 6) != 0) {
        std::uint32_t sum = Sum16(ip + 12, 8, 0); // addresses of the pseudo header
        sum += IPPROTO_UDP + static_cast<std::uint32_t>(udpLength);
        if (Fold(Sum16(udp, udpLength, sum)) != 0xFFFF) {
            return false;
        }
    }
    out.data = reinterpret_cast<const char*>(udp + 8);
    out.length = static_cast<int>(udpLength - 8);
    return true;
}

int PacketRingSocket::Next(Datagram* out, int count, int& got, int timeoutMs) {
    got = 0;
    if (m_ring == nullptr) {
        return ReportError(GC_ERR_IO, "GenTL::PacketRingSocket::Next the ring is not open");
    }
    // Blocks whose datagrams were all handed out at the last call go back.
    for (; m_handedOut > 0; --m_handedOut) {
        auto* block = reinterpret_cast<tpacket_block_desc*>(
            Block((m_block + m_blocks - m_handedOut) % m_blocks));
        __atomic_store_n(&block->hdr.bh1.block_status, TP_STATUS_KERNEL, __ATOMIC_RELEASE);
    }
    while (got < count) {
        if (m_framesLeft == 0) {
            if (m_handedOut == m_blocks) {
                break; // the whole ring is handed out: the next block is one of them
            }
            auto* block = reinterpret_cast<tpacket_block_desc*>(Block(m_block));
            if ((__atomic_load_n(&block->hdr.bh1.block_status, __ATOMIC_ACQUIRE) &
                 TP_STATUS_USER) == 0) {
                if (got > 0) {
                    break;
                }
                pollfd wait{m_fd, POLLIN | POLLERR, 0};
                const int ready = ::poll(&wait, 1, timeoutMs);
                if (ready < 0 && errno != EINTR) {
                    const int err = errno;
                    HLogger::Error("GenTL::PacketRingSocket::Next poll", err);
                    return ReportError(GC_ERR_IO,
                                       "GenTL::PacketRingSocket::Next poll Failed : " + Num(err));
                }
                if ((__atomic_load_n(&block->hdr.bh1.block_status, __ATOMIC_ACQUIRE) &
                     TP_STATUS_USER) == 0) {
                    return ReportError(GC_ERR_TIMEOUT,
                                       "GenTL::PacketRingSocket::Next Failed: TIMEOUT");
                }
            }
            m_framesLeft = block->hdr.bh1.num_pkts;
            m_frame = Block(m_block) + block->hdr.bh1.offset_to_first_pkt;
            if (m_framesLeft == 0) {
                __atomic_store_n(&block->hdr.bh1.block_status, TP_STATUS_KERNEL, __ATOMIC_RELEASE);
                m_block = (m_block + 1) % m_blocks;
                continue;
            }
        }
        const auto* h = reinterpret_cast<const tpacket3_hdr*>(m_frame);
        if (ReadFrame(m_frame, out[got])) {
            ++got;
        }
        m_frame += h->tp_next_offset;
        if (--m_framesLeft == 0) {
            ++m_handedOut;
            m_block = (m_block + 1) % m_blocks;
        }
    }
    return GC_ERR_SUCCESS;
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
    // A camera that does not answer must not hold the start for the
    // system's minutes of SYN retries: a blocking connect ends at the send
    // time-out.
    const timeval connectLimit = ToTimeval(kConnectTimeoutMs);
    m_socket.Run([&](int s) {
        return ::setsockopt(s, SOL_SOCKET, SO_SNDTIMEO, &connectLimit, sizeof connectLimit);
    });
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
            received = static_cast<int>(total);
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
            // The peer closed: nothing more will come. Waiting on would spin
            // on a socket that is readable for ever.
            received = static_cast<int>(total);
            HLogger::Error("GenTL::TCPSocket::GetNextResult recv Failed", 0);
            return ReportError(GC_ERR_IO, "GenTL::TCPSocket::GetNextResult recv Failed: the peer "
                                          "closed the connection");
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
