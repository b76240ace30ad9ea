#pragma once
// Support for the network tests: the test bed from the harness's
// environment, threads that work inside another namespace of the test bed, a
// capture of UDP datagrams as a namespace receives them, and a scripted GVCP
// peer for answers that no camera would send.
#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace kesta_netns {

using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;

inline std::string Env(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

inline std::vector<std::string> EnvList(const char* name) {
    std::istringstream in(Env(name));
    std::vector<std::string> items;
    for (std::string item; in >> item;) {
        items.push_back(item);
    }
    return items;
}

inline std::uint16_t Be16(const std::uint8_t* p) {
    return static_cast<std::uint16_t>(p[0] << 8 | p[1]);
}

inline std::uint32_t Be32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(Be16(p)) << 16 | Be16(p + 2);
}

/// Host order.
inline std::uint32_t ParseIp(const std::string& text) {
    in_addr address{};
    inet_pton(AF_INET, text.c_str(), &address);
    return ntohl(address.s_addr);
}

inline std::uint64_t ParseMac(const std::string& text) {
    std::uint64_t mac = 0;
    for (std::size_t i = 0; i + 1 < text.size() + 1; i += 3) {
        mac = (mac << 8) | std::stoul(text.substr(i, 2), nullptr, 16);
    }
    return mac;
}

/// Moves the calling thread into a namespace of the test bed.
inline bool EnterNamespace(const std::string& name) {
    const int fd = ::open(("/var/run/netns/" + name).c_str(), O_RDONLY | O_CLOEXEC);
    const bool ok = fd >= 0 && ::setns(fd, CLONE_NEWNET) == 0;
    if (fd >= 0) {
        ::close(fd);
    }
    return ok;
}

/// A socket that `make` makes inside the namespace `netns`, where it stays:
/// the calling thread enters the namespace and comes back. -1 on failure.
inline int SocketIn(const std::string& netns, const std::function<int()>& make) {
    const int home = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    if (home < 0) {
        return -1;
    }
    if (!EnterNamespace(netns)) {
        ::close(home);
        return -1;
    }
    const int fd = make();
    if (::setns(home, CLONE_NEWNET) != 0) {
        std::abort(); // the test would go on in the wrong namespace
    }
    ::close(home);
    return fd;
}

/// One UDP datagram as captured.
struct Captured {
    Clock::time_point at;
    std::uint32_t sourceIp = 0; // host order
    std::uint16_t sourcePort = 0;
    Bytes payload;
};

/// A socket made inside a namespace of the test bed and a thread that serves
/// it until the derived class calls End() in its destructor.
class NamespaceWorker {
public:
    virtual ~NamespaceWorker() = default;
    bool Ok() const { return m_fd >= 0; }

protected:
    /// `serve` is given each readable moment of the socket.
    void Begin(const std::string& netns, const std::function<int()>& make,
               std::function<void(int)> serve) {
        m_fd = SocketIn(netns, make);
        if (m_fd >= 0) {
            m_thread = std::thread([this, serve] {
                while (!m_stop) {
                    pollfd wait{m_fd, POLLIN, 0};
                    if (::poll(&wait, 1, 20) > 0) {
                        serve(m_fd);
                    }
                }
            });
        }
    }
    void End() {
        m_stop = true;
        if (m_thread.joinable()) {
            m_thread.join();
        }
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }

    std::mutex m_mutex;

private:
    int m_fd = -1;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

/**
 * Captures the UDP datagrams to a port as the interfaces of a namespace
 * receive them, headers stripped, bounds checked.
 */
class Sniffer : public NamespaceWorker {
public:
    Sniffer(const std::string& netns, std::uint16_t port) : m_port(port) {
        Begin(
            netns, [] { return ::socket(AF_PACKET, SOCK_DGRAM, htons(ETH_P_IP)); },
            [this](int fd) { Read(fd); });
    }
    ~Sniffer() override { End(); }
    std::vector<Captured> Packets() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_packets;
    }
    /// Waits up to timeoutMs until count datagrams were seen.
    std::vector<Captured> WaitFor(std::size_t count, int timeoutMs) {
        const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
        while (Clock::now() < end && Packets().size() < count) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return Packets();
    }

private:
    void Read(int fd) {
        std::uint8_t frame[9000];
        sockaddr_ll from{};
        socklen_t length = sizeof from;
        const ssize_t n =
            ::recvfrom(fd, frame, sizeof frame, 0, reinterpret_cast<sockaddr*>(&from), &length);
        if (n < static_cast<ssize_t>(sizeof(iphdr)) || from.sll_pkttype == PACKET_OUTGOING) {
            return;
        }
        iphdr ip{};
        std::memcpy(&ip, frame, sizeof ip);
        const std::size_t ipLength = ip.ihl * 4u;
        if (ip.protocol != IPPROTO_UDP || ipLength < sizeof ip ||
            static_cast<std::size_t>(n) < ipLength + sizeof(udphdr)) {
            return;
        }
        udphdr udp{};
        std::memcpy(&udp, frame + ipLength, sizeof udp);
        if (ntohs(udp.dest) != m_port) {
            return;
        }
        const std::size_t udpLength =
            std::min<std::size_t>(ntohs(udp.len), static_cast<std::size_t>(n) - ipLength);
        Captured packet;
        packet.at = ArrivalTime(fd);
        packet.sourceIp = ntohl(ip.saddr);
        packet.sourcePort = ntohs(udp.source);
        if (udpLength > sizeof udp) {
            packet.payload.assign(frame + ipLength + sizeof udp, frame + ipLength + udpLength);
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        m_packets.push_back(std::move(packet));
    }

    /// The kernel's arrival stamp of the datagram just read, on the steady
    /// clock: a loaded machine may run this thread late, never the stamp.
    static Clock::time_point ArrivalTime(int fd) {
        const Clock::time_point now = Clock::now();
        timeval stamp{};
        timeval wall{};
        if (::ioctl(fd, SIOCGSTAMP, &stamp) != 0 || ::gettimeofday(&wall, nullptr) != 0) {
            return now;
        }
        const auto age = std::chrono::seconds(wall.tv_sec - stamp.tv_sec) +
                         std::chrono::microseconds(wall.tv_usec - stamp.tv_usec);
        return age > Clock::duration::zero() ? now - age : now;
    }

    std::uint16_t m_port;
    std::vector<Captured> m_packets;
};

/// A GVCP peer on port 3956 of a namespace that answers each datagram as its
/// script says (broadcasts included).
class NetnsPeer : public NamespaceWorker {
public:
    using Script = std::function<std::vector<Bytes>(const Bytes& request)>;

    NetnsPeer(const std::string& netns, Script script) : m_script(std::move(script)) {
        Begin(netns, &NetnsPeer::MakeSocket, [this](int fd) { Answer(fd); });
    }
    ~NetnsPeer() override { End(); }

private:
    static int MakeSocket() {
        const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
        const int on = 1;
        ::setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(3956);
        if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            ::close(fd);
            return -1;
        }
        return fd;
    }
    void Answer(int fd) {
        std::uint8_t buffer[1500];
        sockaddr_in from{};
        socklen_t length = sizeof from;
        const ssize_t n =
            ::recvfrom(fd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &length);
        if (n < 0) {
            return;
        }
        for (const Bytes& reply : m_script(Bytes(buffer, buffer + n))) {
            ::sendto(fd, reply.data(), reply.size(), 0, reinterpret_cast<sockaddr*>(&from), length);
        }
    }

    Script m_script;
};

} // namespace kesta_netns
