// Sockets on 127.0.0.1 only: the port search at the top of the range, the
// TCP stream socket, and closing from another thread to end a blocking
// receive. Datagram exchanges (whole, split for the no-copy path) and
// multicast sockets are exercised by the tests in tests/netns.
#include "hal/SocketHelper.h"

#include "CachedError.h"
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

namespace GenTL {
namespace {

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

TEST_F(TCPSocketTest, ATimeOutTellsWhatCameAndAHangupIsAFailure) {
    server.Write("ab");
    char buffer[4], header[1];
    int received = -1;
    EXPECT_EQ(GC_ERR_TIMEOUT, socket.GetNextResult(buffer, 4, received, header, 1, 100));
    EXPECT_EQ(2, received) << "the caller may go on from there";
    EXPECT_EQ("ab", std::string(buffer, 2));
    server.Hangup();
    EXPECT_EQ(GC_ERR_IO, socket.GetNextResult(buffer + 2, 2, received, header, 0, 100));
    EXPECT_EQ(0, received);
    EXPECT_TRUE(kesta::test::CachedError::Says("the peer closed the connection"));
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
