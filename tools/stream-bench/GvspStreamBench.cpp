// Stream throughput beside a simulated camera (run inside run-with-camera).
// First the ceiling: the camera sends as fast as it can to a minimal GVSP
// receiver of this program's own (recvmmsg, counting bytes and whole
// blocks), and the producer at that rate. Then the camera is paced to half
// of that ceiling and the same frames are received four ways:
//   bare       the receiver of the ceiling again;
//   no-resend  the producer's grab loop without packet resend;
//   resend     the producer's grab loop with packet resend;
//   tcp        the producer's stream 1, whole frames over TCP (the camera's
//              loss knobs touch only UDP packets);
// The bare receiver asks for the receive buffer that the producer asks for
// (four blocks, 2 to 64 MiB), so that both face the same socket.
// Each as MB/s, frames/s, CPU seconds per GB received (getrusage of the
// whole process over the measured span) and frames lost (the camera's count
// of blocks sent against the whole frames received). It prints figures and
// asserts nothing about time.
//
// bench_gvsp_stream --cti PATH [--seconds S] [--width W] [--height H]
//                   [--fps F] [--packet-size BYTES] [--label TEXT] [--header]
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "GrabSession.h"
#include "NodeMap.h"
#include "Producer.h"
#include "Session.h"

namespace {

using namespace kesta::gentl;
using Clock = std::chrono::steady_clock;

// Camera bootstrap registers of the stream channel.
constexpr std::uint64_t kScp = 0x0D00;
constexpr std::uint64_t kScps = 0x0D04;
constexpr std::uint64_t kScda = 0x0D18;
constexpr std::uint32_t kDoNotFragment = 0x40000000;

struct Config {
    std::string cti;
    double seconds = 4;
    std::int64_t width = 1024;
    std::int64_t height = 768;
    double fps = 0; // 0: half of the measured ceiling
    std::int64_t packetSize = 1500;
    std::string label;
    bool header = false;
};

struct Result {
    double seconds = 0;
    double cpu = 0; ///< user + system seconds of the process
    std::uint64_t bytes = 0;
    std::uint64_t frames = 0; ///< whole frames
    std::uint64_t sent = 0;   ///< blocks the camera sent meanwhile
    std::uint64_t lost = 0;   ///< frames that never came or came with parts missing
};

/// As fast as the simulated camera goes.
constexpr double kUnpaced = 10000;
/// The producer's stream of frames over TCP, and the header in front of
/// each frame's image in its buffers.
constexpr std::uint32_t kTcpStream = 1;
constexpr std::uint64_t kTcpFrameHeader = 60;

double CpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

void Print(const std::string& label, const char* mode, const Result& r) {
    const double mbps = r.seconds > 0 ? static_cast<double>(r.bytes) / r.seconds / 1e6 : 0;
    const double fps = r.seconds > 0 ? static_cast<double>(r.frames) / r.seconds : 0;
    const double gb = static_cast<double>(r.bytes) / 1e9;
    char cpu[32] = "-";
    if (gb > 0) {
        std::snprintf(cpu, sizeof cpu, "%.2f", r.cpu / gb);
    }
    std::printf("%-28s %-10s %9.1f %9.1f %9s %8llu / %llu\n", label.c_str(), mode, mbps, fps, cpu,
                static_cast<unsigned long long>(r.lost), static_cast<unsigned long long>(r.sent));
    std::fflush(stdout);
}

/// Whole blocks and their bytes from GVSP datagrams, standard or extended
/// header; a block counts when its leader, every data packet and its
/// trailer came. Block ids that never showed up count as lost.
class BlockCounter {
public:
    void Datagram(const std::uint8_t* d, std::size_t size) {
        if (size < 8) {
            return;
        }
        const bool extended = (d[4] & 0x80) != 0;
        const std::size_t headerSize = extended ? 20 : 8;
        if (size < headerSize) {
            return;
        }
        std::uint64_t block = 0;
        std::uint32_t packet = 0;
        if (extended) {
            for (int i = 8; i < 16; ++i) {
                block = block << 8 | d[i];
            }
            packet = std::uint32_t{d[16]} << 24 | std::uint32_t{d[17]} << 16 |
                     std::uint32_t{d[18]} << 8 | d[19];
        } else {
            block = std::uint64_t{d[2]} << 8 | d[3];
            packet = std::uint32_t{d[5]} << 16 | std::uint32_t{d[6]} << 8 | d[7];
        }
        const int format = d[4] & 0x0F;
        if (block != m_block) {
            Close();
            if (m_block != 0 && block > m_block + 1) {
                lost += block - m_block - 1; // blocks of which not one packet came
            }
            m_block = block;
            m_packets = 0;
            m_trailerId = 0;
            m_pending = true;
        }
        ++m_packets;
        if (format == 3) { // data packet
            bytes += size - headerSize;
        } else if (format == 2) { // trailer: its id is the number of data packets + 1
            m_trailerId = packet;
        }
    }
    /// Judges the block in progress.
    void Close() {
        if (!m_pending) {
            return;
        }
        m_pending = false;
        if (m_trailerId != 0 && m_packets == m_trailerId + 1) {
            ++frames;
        } else {
            ++lost;
        }
    }

    std::uint64_t bytes = 0;
    std::uint64_t frames = 0;
    std::uint64_t lost = 0;

private:
    std::uint64_t m_block = 0;
    std::uint32_t m_packets = 0;
    std::uint32_t m_trailerId = 0;
    bool m_pending = false;
};

class Bench {
public:
    Bench(Producer& producer, const Config& config) : m_p(producer), m_c(config) {}

    int Run() {
        Session session(m_p);
        if (session.Start()) {
            return 1;
        }
        session.Discover(1000);
        const Session::Camera* camera = session.Find("");
        DEV_HANDLE device = nullptr;
        if (camera == nullptr || session.OpenDevice(*camera, DEVICE_ACCESS_CONTROL, &device)) {
            return 1;
        }
        m_device = device;
        if (!SetUpCamera()) {
            return 1;
        }
        if (m_c.header) {
            std::printf("%-28s %-10s %9s %9s %9s %s\n", "link, loss, camera rate", "receiver",
                        "MB/s", "frames/s", "CPU s/GB", "lost / sent");
        }
        Result ceiling;
        if (!SetRate(kUnpaced) || !Bare(ceiling)) {
            return 1;
        }
        Print(m_c.label + ", unpaced", "bare", ceiling);
        if (!Receivers(m_c.label + ", unpaced")) {
            return 1;
        }
        double fps = m_c.fps;
        if (fps <= 0) {
            fps = 0.5 * static_cast<double>(ceiling.bytes) / ceiling.seconds /
                  static_cast<double>(m_payload);
            fps = fps < 1 ? 1 : static_cast<double>(static_cast<long>(fps));
        }
        char rate[32];
        std::snprintf(rate, sizeof rate, ", %.0f fps", fps);
        const std::string label = m_c.label + rate;
        Result bare;
        if (!SetRate(fps) || !Bare(bare)) {
            return 1;
        }
        Print(label, "bare", bare);
        return Receivers(label) ? 0 : 1;
    }

private:
    /// The producer without and with resend, and over TCP, at the camera's
    /// present rate.
    bool Receivers(const std::string& label) {
        for (int resend : {0, 1}) {
            Result r;
            if (!Library(resend, r)) {
                return false;
            }
            Print(label, resend ? "resend" : "no-resend", r);
        }
        Result tcp;
        if (!Library(-1, tcp, kTcpStream)) {
            return false;
        }
        Print(label, "tcp", tcp);
        return true;
    }

    bool Check(bool ok, const std::string& error) {
        if (!ok) {
            std::cerr << error << "\n";
        }
        return ok;
    }

    bool SetUpCamera() {
        if (GC_ERROR rc = m_p.DevGetPort(m_device, &m_port)) {
            m_p.Report(std::cerr, "DevGetPort", rc);
            return false;
        }
        std::string error;
        m_features = std::make_unique<NodeMap>(m_p, m_port);
        if (!m_features->Load()) {
            return false;
        }
        std::int64_t payload = 0;
        return Check(m_features->SetFromText("PixelFormat", "Mono8", error) &&
                         m_features->SetInteger("Width", m_c.width, error) &&
                         m_features->SetInteger("Height", m_c.height, error) &&
                         m_features->GetInteger("PayloadSize", payload, error),
                     error) &&
               (m_payload = static_cast<std::uint64_t>(payload)) > 0;
    }

    bool WriteCamera(std::uint64_t address, std::uint32_t value) {
        const std::uint8_t bytes[4] = {
            static_cast<std::uint8_t>(value >> 24), static_cast<std::uint8_t>(value >> 16),
            static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
        size_t size = sizeof bytes;
        if (GC_ERROR rc = m_p.GCWritePort(m_port, address, bytes, &size)) {
            m_p.Report(std::cerr, "GCWritePort", rc);
            return false;
        }
        return true;
    }

    bool Camera(const char* command) {
        // A camera busy with resends may miss a command: try again before giving up.
        std::string error;
        for (int attempt = 0; attempt < 3; ++attempt) {
            if (m_features->Execute(command, error)) {
                return true;
            }
        }
        return Check(false, error);
    }

    bool SetRate(double fps) {
        std::string error;
        return Check(m_features->SetFloat("AcquisitionFrameRate", fps, error), error);
    }

    /// The camera's count of blocks sent (the simulator's BlocksSent); 0
    /// where the camera has no such feature.
    std::uint64_t BlocksSent() {
        std::string error;
        std::int64_t sent = 0;
        return m_features->Has("BlocksSent") && m_features->GetInteger("BlocksSent", sent, error)
                   ? static_cast<std::uint64_t>(sent)
                   : 0;
    }

    /// Lost frames: blocks sent that did not arrive whole, or the
    /// receiver's own count where the camera does not tell.
    static std::uint64_t Lost(std::uint64_t sent, std::uint64_t whole, std::uint64_t counted) {
        if (sent == 0) {
            return counted;
        }
        return sent > whole ? sent - whole : 0;
    }

    /// The camera streams to a socket of this program's own.
    bool Bare(Result& result) {
        const char* hostIp = std::getenv("KESTA_NETNS_HOST_IP");
        if (hostIp == nullptr) {
            std::cerr << "KESTA_NETNS_HOST_IP is not set: run inside run-with-camera\n";
            return false;
        }
        const int fd = socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        inet_pton(AF_INET, hostIp, &local.sin_addr);
        socklen_t length = sizeof local;
        timeval timeout{0, 100000};
        const std::uint64_t wanted =
            std::min<std::uint64_t>(std::max<std::uint64_t>(4 * m_payload, 2u << 20), 64u << 20);
        const int half = static_cast<int>(wanted / 2); // the kernel doubles it
        if (fd >= 0 && setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &half, sizeof half) != 0) {
            setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &half, sizeof half);
        }
        if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0 ||
            getsockname(fd, reinterpret_cast<sockaddr*>(&local), &length) != 0 ||
            setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0) {
            std::perror("bare receiver socket");
            if (fd >= 0) {
                close(fd);
            }
            return false;
        }
        bool ok = WriteCamera(kScda, ntohl(local.sin_addr.s_addr)) &&
                  WriteCamera(kScp, ntohs(local.sin_port)) &&
                  WriteCamera(kScps, kDoNotFragment | static_cast<std::uint32_t>(m_c.packetSize));
        const std::uint64_t sentBefore = BlocksSent();
        ok = ok && Camera("AcquisitionStart");
        constexpr int kBatch = 64;
        std::vector<std::uint8_t> memory(kBatch * 9216);
        mmsghdr messages[kBatch];
        iovec vectors[kBatch];
        BlockCounter counter;
        const double cpu = CpuSeconds();
        const auto start = Clock::now();
        const auto end = start + std::chrono::duration<double>(m_c.seconds);
        while (ok && Clock::now() < end) {
            for (int i = 0; i < kBatch; ++i) {
                vectors[i] = {memory.data() + i * 9216, 9216};
                messages[i] = {};
                messages[i].msg_hdr.msg_iov = &vectors[i];
                messages[i].msg_hdr.msg_iovlen = 1;
            }
            const int got = recvmmsg(fd, messages, kBatch, MSG_WAITFORONE, nullptr);
            for (int i = 0; i < got; ++i) {
                counter.Datagram(memory.data() + i * 9216, messages[i].msg_len);
            }
        }
        result.seconds = std::chrono::duration<double>(Clock::now() - start).count();
        result.cpu = CpuSeconds() - cpu;
        ok = Camera("AcquisitionStop") && ok;
        // Blocks still on their way: take them, so that the count is of the same span.
        for (int got; (got = recvmmsg(fd, messages, kBatch, MSG_DONTWAIT, nullptr)) > 0;) {
            for (int i = 0; i < got; ++i) {
                counter.Datagram(memory.data() + i * 9216, messages[i].msg_len);
            }
        }
        result.sent = BlocksSent() - sentBefore;
        WriteCamera(kScp, 0); // the channel closes: the library opens it afresh
        close(fd);
        counter.Close();
        result.bytes = counter.bytes;
        result.frames = counter.frames;
        result.lost = Lost(result.sent, counter.frames, counter.lost);
        return ok;
    }

    bool Library(int resend, Result& result, std::uint32_t stream = 0) {
        GrabSession grab(m_p, m_device);
        StreamSettings settings;
        settings.resend = resend;
        settings.buffers = 16;
        settings.stream = stream;
        if (stream == kTcpStream) {
            settings.headerRoom = kTcpFrameHeader;
        } else {
            settings.autoPacketSize = 0; // the camera's size, which Bare set
        }
        if (!grab.Open(settings) || !grab.Prepare(m_payload) || !grab.Start()) {
            return false;
        }
        const std::uint64_t sentBefore = BlocksSent();
        const double cpu = CpuSeconds();
        const auto start = Clock::now();
        const auto end = start + std::chrono::duration<double>(m_c.seconds);
        bool ok = Camera("AcquisitionStart");
        std::uint64_t bytes = 0;
        std::uint64_t whole = 0;
        while (ok && Clock::now() < end) {
            DeliveredBuffer b;
            const int got = grab.Next(b, 100);
            if (got < 0) {
                ok = false;
                break;
            }
            if (got > 0) {
                bytes += b.sizeFilled;
                whole += b.incomplete ? 0 : 1;
                ok = grab.Requeue(b);
            }
        }
        result.seconds = std::chrono::duration<double>(Clock::now() - start).count();
        result.cpu = CpuSeconds() - cpu;
        ok = Camera("AcquisitionStop") && ok;
        result.sent = BlocksSent() - sentBefore;
        // Frames still on their way or in resend count as received if they come.
        const auto drain = Clock::now() + std::chrono::milliseconds(300);
        DeliveredBuffer b;
        while (ok && Clock::now() < drain && grab.Next(b, 50) > 0) {
            bytes += b.sizeFilled;
            whole += b.incomplete ? 0 : 1;
            ok = grab.Requeue(b);
        }
        const GrabCounters c = grab.Counters();
        grab.Stop();
        result.bytes = bytes;
        result.frames = whole;
        result.lost = Lost(result.sent, whole, c.incomplete + c.missed + c.underrun);
        return ok;
    }

    Producer& m_p;
    const Config& m_c;
    DEV_HANDLE m_device = nullptr;
    PORT_HANDLE m_port = nullptr;
    std::unique_ptr<NodeMap> m_features;
    std::uint64_t m_payload = 0;
};

bool ParseArguments(int argc, char** argv, Config& c) {
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        const bool hasValue = i + 1 < argc;
        if (a == "--header") {
            c.header = true;
        } else if (a == "--cti" && hasValue) {
            c.cti = argv[++i];
        } else if (a == "--seconds" && hasValue) {
            c.seconds = std::atof(argv[++i]);
        } else if (a == "--width" && hasValue) {
            c.width = std::atoll(argv[++i]);
        } else if (a == "--height" && hasValue) {
            c.height = std::atoll(argv[++i]);
        } else if (a == "--fps" && hasValue) {
            c.fps = std::atof(argv[++i]);
        } else if (a == "--packet-size" && hasValue) {
            c.packetSize = std::atoll(argv[++i]);
        } else if (a == "--label" && hasValue) {
            c.label = argv[++i];
        } else {
            std::cerr << "usage: bench_gvsp_stream --cti PATH [--seconds S] [--width W] "
                         "[--height H] [--fps F] [--packet-size BYTES] [--label TEXT] "
                         "[--header]\n";
            return false;
        }
    }
    return !c.cti.empty() && c.seconds > 0 && c.width > 0 && c.height > 0 && c.packetSize >= 576;
}

} // namespace

int main(int argc, char** argv) {
    Config config;
    if (!ParseArguments(argc, argv, config)) {
        return 2;
    }
    try {
        Producer producer(config.cti);
        return Bench(producer, config).Run();
    } catch (const std::exception& e) {
        std::cerr << "bench_gvsp_stream: " << e.what() << "\n";
        return 1;
    }
}
