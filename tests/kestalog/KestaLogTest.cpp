#include "KestaLog.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

/// A UDP socket on 127.0.0.1 at a port the system picks.
class Listener {
public:
    Listener() : m_fd(::socket(AF_INET, SOCK_DGRAM, 0)) {
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(0, ::bind(m_fd, reinterpret_cast<sockaddr*>(&a), sizeof(a)));
        socklen_t len = sizeof(a);
        EXPECT_EQ(0, ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&a), &len));
        m_port = ntohs(a.sin_port);
    }
    ~Listener() { ::close(m_fd); }
    uint16_t Port() const { return m_port; }

    /// The next datagram, or "<none>" after timeoutMs.
    std::string Next(int timeoutMs = 1000) {
        pollfd p{m_fd, POLLIN, 0};
        if (::poll(&p, 1, timeoutMs) != 1) {
            return "<none>";
        }
        char buf[65536];
        const ssize_t n = ::recv(m_fd, buf, sizeof(buf), 0);
        return n < 0 ? "<error>" : std::string(buf, static_cast<size_t>(n));
    }

private:
    int m_fd;
    uint16_t m_port = 0;
};

/// Keeps the records that contain a marker, and counts its calls.
class MarkerFilter : public IFilterOutFn {
public:
    bool OnFilterOut(const char* json) override {
        ++calls;
        return std::strstr(json, "keep") != nullptr;
    }
    int calls = 0;
};

struct LogDeleter {
    void operator()(IKestaLog* l) const { KestaLog::Deinit(l); }
};
using LogPtr = std::unique_ptr<IKestaLog, LogDeleter>;

TEST(KestaLog, DeliversEachKeptRecordAsOneDatagram) {
    Listener listener;
    LogPtr log(KestaLog::Init());
    ASSERT_TRUE(log);
    MarkerFilter filter;
    log->AddInPort(40001);
    log->SetOutPort(listener.Port());
    log->SetFilter(&filter);

    log->SendMessage(R"({"message":"keep one"})");
    log->SendMessage(R"({"message":"drop"})");
    log->SendMessage(R"({"message":"keep two"})");

    EXPECT_EQ(R"({"message":"keep one"})", listener.Next());
    EXPECT_EQ(R"({"message":"keep two"})", listener.Next());
    EXPECT_EQ("<none>", listener.Next(100));
    EXPECT_EQ(3, filter.calls);
}

TEST(KestaLog, RemovedOrForeignOutPortStopsDelivery) {
    Listener listener;
    LogPtr log(KestaLog::Init());
    log->SetOutPort(listener.Port());
    log->RemoveOutPort(static_cast<uint16_t>(listener.Port() + 1)); // not ours: no effect
    log->SendMessage("a");
    EXPECT_EQ("a", listener.Next());
    log->RemoveOutPort(listener.Port());
    log->SendMessage("b");
    EXPECT_EQ("<none>", listener.Next(100));
    log->SetOutPort(listener.Port());
    log->SendMessage("c");
    EXPECT_EQ("c", listener.Next());
}

TEST(KestaLog, FilterExceptionReachesTheSender) {
    struct Throwing : IFilterOutFn {
        bool OnFilterOut(const char*) override { throw std::logic_error("bad level"); }
    } filter;
    LogPtr log(KestaLog::Init());
    log->SetFilter(&filter);
    EXPECT_THROW(log->SendMessage("{}"), std::logic_error);
    log->SetFilter(nullptr); // without a filter everything passes
    EXPECT_NO_THROW(log->SendMessage("{}"));
}

} // namespace
