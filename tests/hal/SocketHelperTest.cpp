// Sockets on 127.0.0.1 only: the port search at the top of the range,
// truncated datagrams, the record of a time-out, the TCP stream socket, and
// closing from another thread to end a blocking receive. Plain exchanges
// and multicast sockets are exercised by the tests in tests/netns.
#include "hal/SocketHelper.h"

#include "GenTL_KESTA.h"
#include "api/Error.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <string>
#include <thread>

#include <boost/thread/thread.hpp>

namespace GenTL {
namespace {

using Clock = std::chrono::steady_clock;

sockaddr_in Loopback(uint16_t port = 0, const char* ip = "127.0.0.1") {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    ::inet_pton(AF_INET, ip, &a.sin_addr);
    return a;
}

uint16_t PortOf(const sockaddr_in& a) {
    return ntohs(a.sin_port);
}

long long MsSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

/// A plain socket on a loopback address, kernel-chosen port unless given.
class Peer {
public:
    explicit Peer(int type = SOCK_DGRAM, const char* ip = "127.0.0.1", uint16_t port = 0)
        : m_fd(::socket(AF_INET, type, 0)) {
        sockaddr_in a = Loopback(port, ip);
        m_bound = ::bind(m_fd, reinterpret_cast<sockaddr*>(&a), sizeof(a)) == 0;
        socklen_t len = sizeof(m_addr);
        ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&m_addr), &len);
    }
    ~Peer() { ::close(m_fd); }
    bool Bound() const { return m_bound; }
    int Fd() const { return m_fd; }
    uint16_t Port() const { return PortOf(m_addr); }
    const sockaddr_in& Addr() const { return m_addr; }

    void SendTo(const std::string& data, uint16_t port) const {
        const sockaddr_in to = Loopback(port);
        ASSERT_EQ(static_cast<ssize_t>(data.size()),
                  ::sendto(m_fd, data.data(), data.size(), 0,
                           reinterpret_cast<const sockaddr*>(&to), sizeof(to)));
    }
    /// The next datagram and its source port; "" on timeout.
    std::string Receive(uint16_t* fromPort = nullptr, int timeoutMs = 1000) const {
        pollfd p{m_fd, POLLIN, 0};
        if (::poll(&p, 1, timeoutMs) != 1) {
            return "";
        }
        char buf[2048];
        sockaddr_in from{};
        socklen_t len = sizeof(from);
        const ssize_t n =
            ::recvfrom(m_fd, buf, sizeof(buf), 0, reinterpret_cast<sockaddr*>(&from), &len);
        if (fromPort != nullptr) {
            *fromPort = PortOf(from);
        }
        return n < 0 ? "" : std::string(buf, static_cast<size_t>(n));
    }

private:
    int m_fd;
    bool m_bound = false;
    sockaddr_in m_addr{};
};

// --- Port choice -----------------------------------------------------------

TEST(SocketPortChoice, SearchToTheTopSucceedsAndAWrapBelowTheStartFails) {
    Peer taken(SOCK_DGRAM, "127.0.0.1", 65534);
    if (!taken.Bound() || !Peer(SOCK_DGRAM, "127.0.0.1", 65535).Bound()) {
        GTEST_SKIP() << "ports 65534/65535 are not ours to use";
    }
    int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in local = Loopback();
    EXPECT_TRUE(detail::BindFromPort(fd, local, 65534));
    EXPECT_EQ(65535, PortOf(local));
    ::close(fd);

    Peer top(SOCK_DGRAM, "127.0.0.1", 65535);
    fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    local = Loopback();
    EXPECT_FALSE(detail::BindFromPort(fd, local, 65534));
    EXPECT_LT(PortOf(local), 65534); // it did bind, below the start
    ::close(fd);
}

// --- CommSocket ------------------------------------------------------------

class CommSocketTest : public ::testing::Test {
protected:
    void SetUp() override {
        ErrorCache::GetErrorCache()->Clear();
        ASSERT_EQ(0, socket.OpenAndBindSocket(Loopback(), "127.0.0.1", peer.Port(), false, 300));
    }
    void TearDown() override { socket.Close(); }

    Peer peer;
    CommSocket socket;
};

TEST_F(CommSocketTest, TimeoutIsRecordedUnlessSilent) {
    char buffer[8];
    int former = 0;
    ASSERT_EQ(0, socket.SetTimeout(80, former));
    const auto start = Clock::now();
    EXPECT_EQ(GC_ERR_TIMEOUT, socket.Receive(buffer, sizeof(buffer), true));
    EXPECT_GE(MsSince(start), 70);
    EXPECT_EQ(0, ErrorCache::GetErrorCache()->Count());

    EXPECT_EQ(GC_ERR_TIMEOUT, socket.Receive(buffer, sizeof(buffer), false));
    EXPECT_EQ(1, ErrorCache::GetErrorCache()->Count());
}

TEST_F(CommSocketTest, CloseFromAnotherThreadEndsABlockingReceive) {
    int former = 0;
    ASSERT_EQ(0, socket.SetTimeout(0, former)); // no timeout: blocks
    auto receiving = std::async(std::launch::async, [this] {
        char buffer[8];
        return socket.Receive(buffer, sizeof(buffer), false);
    });
    EXPECT_EQ(std::future_status::timeout, receiving.wait_for(std::chrono::milliseconds(100)));
    socket.Close();
    ASSERT_EQ(std::future_status::ready, receiving.wait_for(std::chrono::seconds(5)));
    EXPECT_EQ(GC_ERR_BUSY, receiving.get());
    EXPECT_EQ(-1, socket.Descriptor());
}

// --- OverlappedSocket ------------------------------------------------------

class OverlappedSocketTest : public ::testing::Test {
protected:
    void SetUp() override {
        ErrorCache::GetErrorCache()->Clear();
        ASSERT_EQ(0, socket.OpenAndBindSocket(Loopback()));
        port = PortOf(socket.LocalAddress());
    }
    void TearDown() override { socket.Close(); }

    Peer peer;
    OverlappedSocket socket;
    uint16_t port = 0;
};

TEST_F(OverlappedSocketTest, SendsAndReceivesWholeAndTruncatedDatagrams) {
    ASSERT_EQ(0, socket.Send("ping", 4, peer.Addr()));
    uint16_t from = 0;
    EXPECT_EQ("ping", peer.Receive(&from));
    EXPECT_EQ(port, from);
    peer.SendTo("hello", port);
    peer.SendTo("0123456789", port);
    char buffer[8];
    int received = -1;
    ASSERT_EQ(0, socket.GetNextResult(buffer, sizeof(buffer), received, 200));
    EXPECT_EQ("hello", std::string(buffer, static_cast<size_t>(received)));
    ASSERT_EQ(0, socket.GetNextResult(buffer, sizeof(buffer), received, 200));
    EXPECT_EQ("01234567", std::string(buffer, static_cast<size_t>(received)));
}

TEST_F(OverlappedSocketTest, NoCopySplitsHeaderFromPayload) {
    peer.SendTo("HDR:payload", port);
    peer.SendTo("HD", port);
    char head[4], body[16];
    int headGot = -1, bodyGot = -1;
    ASSERT_EQ(0, socket.GetNextResultNoCopy(head, 4, headGot, body, sizeof(body), bodyGot, 200));
    EXPECT_EQ("HDR:", std::string(head, static_cast<size_t>(headGot)));
    EXPECT_EQ("payload", std::string(body, static_cast<size_t>(bodyGot)));
    ASSERT_EQ(0, socket.GetNextResultNoCopy(head, 4, headGot, body, sizeof(body), bodyGot, 200));
    EXPECT_EQ(2, headGot);
    EXPECT_EQ(0, bodyGot);
    // A datagram longer than both parts is reported, not silently cut.
    peer.SendTo("HDR:payload", port);
    EXPECT_EQ(GC_ERR_BUFFER_TOO_SMALL,
              socket.GetNextResultNoCopy(head, 4, headGot, body, 3, bodyGot, 200));
    EXPECT_EQ("pay", std::string(body, static_cast<size_t>(bodyGot)));
}

// --- TCPSocket -------------------------------------------------------------

/// A TCP server on 127.0.0.1 that accepts one connection.
class TcpServer {
public:
    TcpServer() : m_listen(SOCK_STREAM) { ::listen(m_listen.Fd(), 1); }
    ~TcpServer() {
        if (m_conn >= 0) {
            ::close(m_conn);
        }
    }
    sockaddr_in Addr() const { return m_listen.Addr(); }
    void Accept() { m_conn = ::accept(m_listen.Fd(), nullptr, nullptr); }
    void Write(const std::string& data) const {
        ASSERT_EQ(static_cast<ssize_t>(data.size()),
                  ::send(m_conn, data.data(), data.size(), MSG_NOSIGNAL));
    }
    void Hangup() {
        ::close(m_conn);
        m_conn = -1;
    }

private:
    Peer m_listen;
    int m_conn = -1;
};

class TCPSocketTest : public ::testing::Test {
protected:
    void SetUp() override {
        ErrorCache::GetErrorCache()->Clear();
        socket.SetFirstDataCallback([this] { ++firstData; });
        ASSERT_EQ(0, socket.OpenAndConnectSocket(server.Addr()));
        server.Accept();
    }
    void TearDown() override { socket.Close(); }

    TcpServer server;
    TCPSocket socket;
    std::atomic<int> firstData{0};
};

TEST_F(TCPSocketTest, GathersTheWholeLengthAndCopiesTheHeader) {
    std::thread writer([this] {
        server.Write("HEAD1");
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        server.Write("23456");
    });
    char buffer[10], header[4];
    int received = 0;
    const int rc =
        socket.GetNextResult(buffer, sizeof(buffer), received, header, sizeof(header), 1000);
    writer.join();
    ASSERT_EQ(0, rc);
    EXPECT_EQ(10, received);
    EXPECT_EQ("HEAD123456", std::string(buffer, 10));
    EXPECT_EQ("HEAD", std::string(header, 4));
    EXPECT_EQ(1, firstData); // once per call, though two receives were needed
    EXPECT_EQ(1000, socket.Timeout());
}

TEST_F(TCPSocketTest, TimeoutSkipsTheCallbackAndTheCopyIsBoundedByTheLength) {
    char small[4], one[1];
    int got = 0;
    EXPECT_EQ(GC_ERR_TIMEOUT, socket.GetNextResult(small, 4, got, one, 1, 50));
    EXPECT_EQ(0, firstData);
    server.Write("ab");
    char buffer[2], copy[8] = {};
    int received = 0;
    ASSERT_EQ(0, socket.GetNextResult(buffer, sizeof(buffer), received, copy, sizeof(copy), 500));
    EXPECT_EQ(std::string("ab\0\0", 4), std::string(copy, 4));
}

TEST_F(TCPSocketTest, CloseFromAnotherThreadEndsTheWait) {
    auto receiving = std::async(std::launch::async, [this] {
        char buffer[4], header[1];
        int received = 0;
        return socket.GetNextResult(buffer, 4, received, header, 1, 0);
    });
    EXPECT_EQ(std::future_status::timeout, receiving.wait_for(std::chrono::milliseconds(100)));
    socket.Close();
    ASSERT_EQ(std::future_status::ready, receiving.wait_for(std::chrono::seconds(5)));
    EXPECT_EQ(GC_ERR_IO, receiving.get());
}

TEST_F(TCPSocketTest, PeerHangupKeepsWaitingUntilInterrupted) {
    std::atomic<bool> interrupted{false};
    boost::thread grab([this, &interrupted] {
        char buffer[4], header[1];
        int received = 0;
        try {
            socket.GetNextResult(buffer, 4, received, header, 1, 100);
        } catch (const boost::thread_interrupted&) {
            interrupted = true;
        }
    });
    server.Write("ab");
    server.Hangup();
    EXPECT_FALSE(grab.try_join_for(boost::chrono::milliseconds(150)));
    grab.interrupt();
    ASSERT_TRUE(grab.try_join_for(boost::chrono::seconds(5)));
    EXPECT_TRUE(interrupted);
    EXPECT_EQ(1, firstData);
}

TEST(TCPSocket, RefusedConnectIsAnAbort) {
    ErrorCache::GetErrorCache()->Clear();
    Peer probe(SOCK_STREAM); // bound but never listening: connects are refused
    TCPSocket socket;
    EXPECT_EQ(GC_ERR_ABORT, socket.OpenAndConnectSocket(probe.Addr()));
    EXPECT_EQ(-1, socket.Descriptor());
}

} // namespace
} // namespace GenTL
