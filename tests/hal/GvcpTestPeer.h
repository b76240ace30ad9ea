#pragma once
// Test support for the control layer: a scripted GVCP peer on 127.0.0.1, a
// device record opened towards it, and ack builders.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "hal/DeviceHandle.h"
#include "hal/GvcpWire.h"
#include "hal/SocketHelper.h"

namespace GenTL {
namespace testing_gvcp {

using Bytes = std::vector<std::uint8_t>;

/// One datagram the peer sends, after waiting delayMs.
struct Reply {
    Bytes bytes;
    int delayMs = 0;
};

/// The 8-byte ack header followed by payload.
inline Bytes Ack(std::uint16_t status, std::uint16_t code, std::uint16_t length,
                 std::uint16_t ackId, const Bytes& payload = {}) {
    Bytes ack(8);
    gvcp::PutU16(ack.data(), ack.size(), 0, status);
    gvcp::PutU16(ack.data(), ack.size(), 2, code);
    gvcp::PutU16(ack.data(), ack.size(), 4, length);
    gvcp::PutU16(ack.data(), ack.size(), 6, ackId);
    ack.insert(ack.end(), payload.begin(), payload.end());
    return ack;
}

inline Bytes Word(std::uint32_t value) {
    Bytes bytes(4);
    gvcp::PutU32(bytes.data(), 4, 0, value);
    return bytes;
}

inline Bytes PendingAck(std::uint16_t ackId, std::uint16_t waitMs) {
    Bytes payload(4, 0);
    gvcp::PutU16(payload.data(), payload.size(), 2, waitMs);
    return Ack(0, gvcp::kPendingAck, 4, ackId, payload);
}

inline std::uint16_t RequestIdOf(const Bytes& command) {
    return gvcp::GetU16(command.data(), command.size(), 6);
}

/**
 * A UDP peer on 127.0.0.1 that answers each datagram as its script says.
 * The script sees the request and its index (0 for the first datagram) and
 * returns the replies; an empty list leaves the request unanswered.
 */
class ScriptedPeer {
public:
    using Script = std::function<std::vector<Reply>(const Bytes& request, int index)>;

    explicit ScriptedPeer(Script script) : m_script(std::move(script)) {
        m_fd = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(0, ::bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address));
        socklen_t length = sizeof address;
        ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &length);
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] { Serve(); });
    }
    ~ScriptedPeer() {
        m_stop = true;
        m_thread.join();
        ::close(m_fd);
    }
    ScriptedPeer(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(const ScriptedPeer&) = delete;

    unsigned short Port() const { return m_port; }
    std::vector<Bytes> Received() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_received;
    }
    int Count() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return static_cast<int>(m_received.size());
    }

private:
    void Serve() {
        while (!m_stop) {
            pollfd wait{m_fd, POLLIN, 0};
            if (::poll(&wait, 1, 20) <= 0) {
                continue;
            }
            std::uint8_t buffer[2048];
            sockaddr_in from{};
            socklen_t fromLength = sizeof from;
            const ssize_t n = ::recvfrom(m_fd, buffer, sizeof buffer, 0,
                                         reinterpret_cast<sockaddr*>(&from), &fromLength);
            if (n < 0) {
                continue;
            }
            const Bytes request(buffer, buffer + n);
            int index = 0;
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                index = static_cast<int>(m_received.size());
                m_received.push_back(request);
            }
            for (const Reply& reply : m_script(request, index)) {
                if (reply.delayMs > 0) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(reply.delayMs));
                }
                ::sendto(m_fd, reply.bytes.data(), reply.bytes.size(), 0,
                         reinterpret_cast<sockaddr*>(&from), fromLength);
            }
        }
    }

    Script m_script;
    int m_fd = -1;
    unsigned short m_port = 0;
    std::atomic<bool> m_stop{false};
    std::mutex m_mutex;
    std::vector<Bytes> m_received;
    std::thread m_thread;
};

/// A device record whose control socket is aimed at a peer on 127.0.0.1, as
/// OpenDevice would make it for a discovered device.
inline DeviceHandle* MakeLoopbackDevice(unsigned short peerPort, int timeoutMs,
                                        std::uint64_t timeoutLimit) {
    auto* device = new DeviceHandle();
    device->socket.reset(new CommSocket());
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(0, device->socket->OpenAndBindSocket(local, "127.0.0.1", peerPort, false, timeoutMs));
    device->timeoutLimit = timeoutLimit;
    device->connected = true;
    return device;
}

} // namespace testing_gvcp
} // namespace GenTL
