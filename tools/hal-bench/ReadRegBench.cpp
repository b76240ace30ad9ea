// Round trip of one register read on the link to a camera: through HALGev
// (request id, lock, transaction, ack judged) and as a raw UDP exchange of
// the same datagram, interleaved in blocks so that both see the same load.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <tuple>
#include <vector>

#include "GenTL_KESTA.h"
#include "hal/GvcpWire.h"
#include "hal/HALGev.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr unsigned sk_addrVersion = 0x0000;
constexpr int kBlock = 100;

std::string Env(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::uint32_t ParseIp(const std::string& text) {
    in_addr address{};
    inet_pton(AF_INET, text.c_str(), &address);
    return address.s_addr; // network order
}

double Micros(Clock::duration d) {
    return std::chrono::duration<double, std::micro>(d).count();
}

struct Summary {
    double median, p90, p99, mean, min;
};

Summary Summarize(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    double sum = 0;
    for (double s : samples) {
        sum += s;
    }
    const auto at = [&](double q) {
        return samples[std::min(samples.size() - 1, static_cast<std::size_t>(q * samples.size()))];
    };
    return {at(0.5), at(0.9), at(0.99), sum / samples.size(), samples.front()};
}

/// A plain UDP socket that sends READREG and waits for its ack.
class RawReader {
public:
    RawReader(std::uint32_t hostIp, std::uint32_t cameraIp) {
        m_fd = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_addr.s_addr = hostIp;
        ::bind(m_fd, reinterpret_cast<sockaddr*>(&local), sizeof local);
        m_camera.sin_family = AF_INET;
        m_camera.sin_addr.s_addr = cameraIp;
        m_camera.sin_port = htons(GenTL::gvcp::kPort);
    }
    ~RawReader() { ::close(m_fd); }

    /// One exchange; false on a lost or wrong answer.
    bool Read(std::uint16_t id) {
        std::uint8_t command[12] = {};
        GenTL::gvcp::PutCommandHeader(command, sizeof command, GenTL::gvcp::kFlagAckRequired,
                                      GenTL::gvcp::kReadRegCmd, 4, id);
        GenTL::gvcp::PutU32(command, sizeof command, 8, sk_addrVersion);
        if (::sendto(m_fd, command, sizeof command, 0, reinterpret_cast<sockaddr*>(&m_camera),
                     sizeof m_camera) != static_cast<ssize_t>(sizeof command)) {
            return false;
        }
        for (;;) {
            pollfd wait{m_fd, POLLIN, 0};
            if (::poll(&wait, 1, 200) <= 0) {
                return false;
            }
            std::uint8_t ack[64] = {};
            if (::recv(m_fd, ack, sizeof ack, 0) < 12) {
                continue;
            }
            if (GenTL::gvcp::GetU16(ack, sizeof ack, 6) == id) {
                return GenTL::gvcp::GetU16(ack, sizeof ack, 2) == GenTL::gvcp::kReadRegAck;
            }
        }
    }

private:
    int m_fd = -1;
    sockaddr_in m_camera{};
};

} // namespace

int main(int argc, char** argv) {
    using namespace GenTL;
    const int count = argc > 1 ? std::max(kBlock, std::atoi(argv[1])) : 2000;
    if (Env("KESTA_NETNS_HOST").empty()) {
        std::fprintf(stderr, "run me through tools/hal-bench/run-readreg-bench\n");
        return 2;
    }
    const std::uint32_t hostIp = ParseIp(Env("KESTA_NETNS_HOST_IP"));
    const std::uint32_t cameraIp = ParseIp(Env("KESTA_CAMERA_IP"));

    HALGev hal("/nonexistent/KestaGentl.cfg");
    std::vector<std::string> ids;
    hal.GetInterfaces(ids);
    void* adapter = nullptr;
    for (const std::string& id : ids) {
        void* candidate = nullptr;
        long ip = 0;
        if (hal.OpenInterface(id, &candidate) == GC_ERR_SUCCESS &&
            hal.GetIPAddress(candidate, ip) == GC_ERR_SUCCESS &&
            htonl(static_cast<std::uint32_t>(ip)) == hostIp) {
            adapter = candidate;
            break;
        }
        if (candidate != nullptr) {
            hal.CloseInterface(candidate);
        }
    }
    std::vector<DiscoveredDevice> devices;
    if (adapter == nullptr || hal.GetDevices(adapter, devices, 300) != GC_ERR_SUCCESS ||
        devices.empty()) {
        std::fprintf(stderr, "no camera found on the test link\n");
        return 1;
    }
    void* device = nullptr;
    if (hal.OpenDevice(adapter, std::get<0>(devices[0]), &device) != GC_ERR_SUCCESS) {
        std::fprintf(stderr, "cannot open %s\n", std::get<0>(devices[0]).c_str());
        return 1;
    }
    RawReader raw(hostIp, cameraIp);

    std::vector<double> viaHal;
    std::vector<double> viaRaw;
    int halFailures = 0;
    int rawFailures = 0;
    std::uint16_t rawId = 1;
    // Warm-up, then alternate blocks of each kind.
    for (int i = 0; i < 50; ++i) {
        unsigned value = 0;
        hal.ReadReg(device, sk_addrVersion, value);
        raw.Read(rawId++);
    }
    while (static_cast<int>(viaHal.size()) < count) {
        for (int i = 0; i < kBlock; ++i) {
            unsigned value = 0;
            const auto start = Clock::now();
            const int rc = hal.ReadReg(device, sk_addrVersion, value);
            const auto end = Clock::now();
            rc == GC_ERR_SUCCESS ? viaHal.push_back(Micros(end - start)) : void(++halFailures);
        }
        for (int i = 0; i < kBlock; ++i) {
            rawId = static_cast<std::uint16_t>(rawId == 0xFFFF ? 1 : rawId + 1);
            const auto start = Clock::now();
            const bool ok = raw.Read(rawId);
            const auto end = Clock::now();
            ok ? viaRaw.push_back(Micros(end - start)) : void(++rawFailures);
        }
    }
    hal.CloseDevice(device);
    hal.CloseInterface(adapter);

    const Summary h = Summarize(viaHal);
    const Summary r = Summarize(viaRaw);
    std::printf("ReadReg round trip on the veth link to %s, %d samples each (us)\n",
                Env("KESTA_CAMERA_IP").c_str(), count);
    std::printf("%-14s %9s %9s %9s %9s %9s %6s\n", "", "median", "p90", "p99", "mean", "min",
                "lost");
    std::printf("%-14s %9.1f %9.1f %9.1f %9.1f %9.1f %6d\n", "HALGev::ReadReg", h.median, h.p90,
                h.p99, h.mean, h.min, halFailures);
    std::printf("%-14s %9.1f %9.1f %9.1f %9.1f %9.1f %6d\n", "raw UDP", r.median, r.p90, r.p99,
                r.mean, r.min, rawFailures);
    std::printf("HALGev overhead at the median: %.1f us\n", h.median - r.median);
    return 0;
}
