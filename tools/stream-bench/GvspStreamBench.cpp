// Stream throughput beside a simulated camera (run inside run-with-camera).
// First the ceiling: the camera sends as fast as it can to a minimal GVSP
// receiver of this program's own (recvmmsg, counting bytes and whole
// blocks); then the camera is paced to half of that ceiling. At both rates
// the same frames are received by:
//   bare       the receiver of the ceiling again;
//   nr-<mode>  the producer's grab loop without packet resend, in each
//              receive mode (single, batch, ring: one datagram per read,
//              recvmmsg, the packet ring);
//   rs-<mode>  the grab loop with packet resend, in each mode;
//   tcp        the producer's stream 1, whole frames over TCP (the camera's
//              loss knobs touch only UDP packets);
//   aravis     Debian's Aravis 0.8 (arv-camera-test-0.8, its native GigE
//              receiver, packet socket as it chooses), in a process of its
//              own, while this program has the camera closed.
// The bare receiver asks for the receive buffer that the producer asks for
// (four blocks, 2 to 64 MiB), so that both face the same socket. With
// resend the stream may send more requests per image than the default of 5
// where an image has many packets, as a user would set it.
// Each as MB/s, frames/s, CPU seconds per GB received (getrusage of this
// process, less the trailer clock's thread; the schedstat of all tasks of
// the Aravis process), frames lost (the camera's count of blocks sent
// against the whole frames received) and the latency from the block's
// trailer on the link (the kernel's receive timestamp on a packet socket of
// this program, trailers only) to EventGetData returning with the block,
// or to the bare receiver reading the trailer: median and 99th percentile.
// It prints figures and asserts nothing about time.
//
// bench_gvsp_stream --cti PATH [--seconds S] [--width W] [--height H]
//                   [--fps F] [--packet-size BYTES] [--label TEXT] [--header]
//                   [--modes LIST] [--no-aravis]
#include <arpa/inet.h>
#include <dirent.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <unordered_map>
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
// Stream register of the producer: StreamMaxNumResendRequestsPerImage.
constexpr std::uint64_t kMaxResendRequests = 0x2300;

struct Config {
    std::string cti;
    double seconds = 4;
    std::int64_t width = 1024;
    std::int64_t height = 768;
    double fps = 0; // 0: half of the measured ceiling
    std::int64_t packetSize = 1500;
    std::string label;
    bool header = false;
    std::vector<std::string> modes{"single", "batch", "ring"};
    bool aravis = true;
};

struct Result {
    double seconds = 0;
    double cpu = 0; ///< user + system seconds of the process
    std::uint64_t bytes = 0;
    std::uint64_t frames = 0;      ///< whole frames
    std::uint64_t sent = 0;        ///< blocks the camera sent meanwhile
    std::uint64_t lost = 0;        ///< frames that never came or came with parts missing
    std::vector<double> latencyMs; ///< per block, trailer on the link to delivery
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

std::int64_t NowNs() {
    timespec t{};
    clock_gettime(CLOCK_REALTIME, &t);
    return static_cast<std::int64_t>(t.tv_sec) * 1000000000 + t.tv_nsec;
}

/// The value below which share of the sorted values lie; -1 for none.
double Percentile(const std::vector<double>& sorted, double share) {
    if (sorted.empty()) {
        return -1;
    }
    const auto at = static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1) + 0.5);
    return sorted[std::min(at, sorted.size() - 1)];
}

void Print(const std::string& label, const std::string& mode, Result r) {
    const double mbps = r.seconds > 0 ? static_cast<double>(r.bytes) / r.seconds / 1e6 : 0;
    const double fps = r.seconds > 0 ? static_cast<double>(r.frames) / r.seconds : 0;
    const double gb = static_cast<double>(r.bytes) / 1e9;
    char cpu[32] = "-";
    if (gb > 0) {
        std::snprintf(cpu, sizeof cpu, "%.3f", r.cpu / gb);
    }
    std::sort(r.latencyMs.begin(), r.latencyMs.end());
    char latency[48] = "-";
    if (!r.latencyMs.empty()) {
        std::snprintf(latency, sizeof latency, "%.3f %.3f", Percentile(r.latencyMs, 0.5),
                      Percentile(r.latencyMs, 0.99));
    }
    char lost[40];
    std::snprintf(lost, sizeof lost, "%llu / %llu", static_cast<unsigned long long>(r.lost),
                  static_cast<unsigned long long>(r.sent));
    std::printf("%-34s %-10s %8.1f %8.1f %8s %15s %15s\n", label.c_str(), mode.c_str(), mbps, fps,
                cpu, lost, latency);
    std::fflush(stdout);
}

/**
 * Kernel receive timestamps of the camera's trailers, by block id: a packet
 * socket whose filter lets through only GVSP trailers from the camera, read
 * by a thread of its own. Its CPU time is kept apart, so that the rows can
 * leave it out.
 */
class TrailerClock {
public:
    ~TrailerClock() { Stop(); }

    bool Start(in_addr camera) {
        m_fd = socket(AF_PACKET, SOCK_DGRAM, htons(ETH_P_IP));
        if (m_fd < 0) {
            std::perror("trailer clock (needs CAP_NET_RAW)");
            return false;
        }
        // UDP from the camera whose GVSP format nibble (byte 4 of the
        // datagram) is 2.
        sock_filter code[] = {
            BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 9),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, IPPROTO_UDP, 0, 7),
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 12),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ntohl(camera.s_addr), 0, 5),
            BPF_STMT(BPF_LDX | BPF_B | BPF_MSH, 0),
            BPF_STMT(BPF_LD | BPF_B | BPF_IND, 8 + 4),
            BPF_STMT(BPF_ALU | BPF_AND | BPF_K, 0x0F),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 2, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, 256),
            BPF_STMT(BPF_RET | BPF_K, 0),
        };
        sock_fprog program{static_cast<unsigned short>(sizeof code / sizeof code[0]), code};
        const int on = 1;
        timeval timeout{0, 100000};
        if (setsockopt(m_fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0 ||
            setsockopt(m_fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on) != 0 ||
            setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0) {
            std::perror("trailer clock");
            return false;
        }
        m_thread = std::thread([this] { Loop(); });
        return true;
    }

    void Stop() {
        m_stop = true;
        if (m_thread.joinable()) {
            m_thread.join();
        }
        if (m_fd >= 0) {
            close(m_fd);
            m_fd = -1;
        }
    }

    /// Forgets the trailers so far: block ids start again with each stream.
    void Clear() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_times.clear();
    }

    /// Latencies in ms of the deliveries (block id, time in ns) whose
    /// trailer was seen.
    std::vector<double> Latencies(const std::vector<std::pair<std::uint64_t, std::int64_t>>& at) {
        std::this_thread::sleep_for(std::chrono::milliseconds(150)); // the last trailers
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<double> result;
        for (const auto& d : at) {
            const auto found = m_times.find(d.first);
            if (found != m_times.end()) {
                result.push_back(static_cast<double>(d.second - found->second) / 1e6);
            }
        }
        return result;
    }

    /// CPU seconds of the clock's thread so far.
    double CpuSeconds() const { return m_cpuNs.load() / 1e9; }

private:
    void Loop() {
        std::uint8_t packet[256];
        char control[256];
        while (!m_stop) {
            iovec vector{packet, sizeof packet};
            msghdr message{};
            message.msg_iov = &vector;
            message.msg_iovlen = 1;
            message.msg_control = control;
            message.msg_controllen = sizeof control;
            const ssize_t got = recvmsg(m_fd, &message, 0);
            timespec self{};
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &self);
            m_cpuNs = static_cast<std::int64_t>(self.tv_sec) * 1000000000 + self.tv_nsec;
            if (got < 28) {
                continue;
            }
            const std::size_t ip = static_cast<std::size_t>(packet[0] & 0x0F) * 4;
            const std::uint8_t* d = packet + ip + 8;
            // The header: 8 bytes, or 20 with extended ids (a camera not
            // yet switched by the producer sends the short form).
            const std::size_t size = static_cast<std::size_t>(got);
            if (size < ip + 8 + 8 || ((d[4] & 0x80) != 0 && size < ip + 8 + 20)) {
                continue;
            }
            std::uint64_t block = 0;
            if ((d[4] & 0x80) != 0) {
                for (int i = 8; i < 16; ++i) {
                    block = block << 8 | d[i];
                }
            } else {
                block = std::uint64_t{d[2]} << 8 | d[3];
            }
            for (cmsghdr* c = CMSG_FIRSTHDR(&message); c != nullptr; c = CMSG_NXTHDR(&message, c)) {
                if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_TIMESTAMPNS) {
                    timespec t{};
                    std::memcpy(&t, CMSG_DATA(c), sizeof t);
                    std::lock_guard<std::mutex> lock(m_mutex);
                    m_times[block] = static_cast<std::int64_t>(t.tv_sec) * 1000000000 + t.tv_nsec;
                }
            }
        }
    }

    int m_fd = -1;
    std::thread m_thread;
    std::atomic<bool> m_stop{false};
    std::atomic<std::int64_t> m_cpuNs{0};
    std::mutex m_mutex;
    std::unordered_map<std::uint64_t, std::int64_t> m_times;
};

/// CPU seconds of all tasks of a process, from their schedstat.
double ProcessCpuSeconds(pid_t pid) {
    const std::string dir = "/proc/" + std::to_string(pid) + "/task";
    DIR* tasks = opendir(dir.c_str());
    if (tasks == nullptr) {
        return 0;
    }
    double total = 0;
    while (const dirent* e = readdir(tasks)) {
        if (e->d_name[0] == '.') {
            continue;
        }
        std::ifstream in(dir + "/" + e->d_name + "/schedstat");
        unsigned long long ns = 0;
        if (in >> ns) {
            total += static_cast<double>(ns) / 1e9;
        }
    }
    closedir(tasks);
    return total;
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
            if (trailers != nullptr) {
                trailers->emplace_back(block, NowNs());
            }
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
    /// Where the times of trailers read go; none when null.
    std::vector<std::pair<std::uint64_t, std::int64_t>>* trailers = nullptr;

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
        if (camera == nullptr || !Open(session, *camera)) {
            return 1;
        }
        const char* cameraIp = std::getenv("KESTA_CAMERA_IP");
        in_addr cameraAddress{};
        if (cameraIp == nullptr || inet_pton(AF_INET, cameraIp, &cameraAddress) != 1 ||
            !m_clock.Start(cameraAddress)) {
            std::cerr << "no trailer clock: run inside run-with-camera, as root\n";
            return 1;
        }
        if (m_c.header) {
            std::printf("%-34s %-10s %8s %8s %8s %15s %15s\n", "link, image, loss, camera rate",
                        "receiver", "MB/s", "frames/s", "CPU s/GB", "lost / sent",
                        "lat p50 p99 ms");
        }
        Result ceiling;
        if (!SetRate(kUnpaced) || !Bare(ceiling)) {
            return 1;
        }
        Print(m_c.label + ", unpaced", "bare", ceiling);
        if (!Receivers(session, *camera, m_c.label + ", unpaced", kUnpaced)) {
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
        return Receivers(session, *camera, label, fps) ? 0 : 1;
    }

private:
    /// The producer without and with resend in each receive mode, over
    /// TCP, and Aravis, at the camera's present rate.
    bool Receivers(Session& session, const Session::Camera& camera, const std::string& label,
                   double fps) {
        for (int resend : {0, 1}) {
            for (const std::string& mode : m_c.modes) {
                Result r;
                if (!Library(resend, r, mode)) {
                    return false;
                }
                Print(label, (resend ? "rs-" : "nr-") + mode, r);
            }
        }
        Result tcp;
        if (!Library(-1, tcp, "", kTcpStream)) {
            return false;
        }
        Print(label, "tcp", tcp);
        if (m_c.aravis) {
            Result aravis;
            const bool ran = Aravis(session, fps, aravis);
            if (!Open(session, camera) || !SetRate(fps)) {
                return false;
            }
            if (ran) {
                Print(label, "aravis", aravis);
            }
        }
        return true;
    }

    /// Opens the camera with control and sets its image up.
    bool Open(Session& session, const Session::Camera& camera) {
        DEV_HANDLE device = nullptr;
        if (session.OpenDevice(camera, DEVICE_ACCESS_CONTROL, &device)) {
            return false;
        }
        m_device = device;
        return SetUpCamera();
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
        m_features.reset(); // a reopened device has a port of its own
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
        std::vector<std::pair<std::uint64_t, std::int64_t>> trailers;
        trailers.reserve(1 << 16);
        counter.trailers = &trailers;
        m_clock.Clear();
        const double cpu = CpuSeconds() - m_clock.CpuSeconds();
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
        result.cpu = CpuSeconds() - m_clock.CpuSeconds() - cpu;
        counter.trailers = nullptr;
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
        result.latencyMs = m_clock.Latencies(trailers);
        return ok;
    }

    /// The producer's stream 0 in receive `mode` (with resend 1, without
    /// 0), or its stream 1.
    bool Library(int resend, Result& result, const std::string& mode, std::uint32_t stream = 0) {
        // The mode is taken at the start of the stream.
        setenv("KESTA_GVSP_RECEIVE_MODE", mode.empty() ? "auto" : mode.c_str(), 1);
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
        if (!grab.Open(settings) || !grab.Prepare(m_payload)) {
            return false;
        }
        if (resend == 1) {
            // Room for a request per lost packet at a few per cent of loss:
            // the default of 5 is for small images.
            const std::uint64_t packets =
                m_payload / static_cast<std::uint64_t>(m_c.packetSize - 48) + 3;
            std::uint64_t requests = std::max<std::uint64_t>(5, packets / 20);
            std::uint8_t bytes[8];
            for (int i = 0; i < 8; ++i) {
                bytes[i] = static_cast<std::uint8_t>(requests >> (8 * i));
            }
            size_t size = sizeof bytes;
            if (GC_ERROR rc = m_p.GCWritePort(grab.Stream(), kMaxResendRequests, bytes, &size)) {
                m_p.Report(std::cerr, "StreamMaxNumResendRequestsPerImage", rc);
                return false;
            }
        }
        if (!grab.Start()) {
            return false;
        }
        m_clock.Clear();
        std::vector<std::pair<std::uint64_t, std::int64_t>> delivered;
        delivered.reserve(1 << 16);
        const std::uint64_t sentBefore = BlocksSent();
        const double cpu = CpuSeconds() - m_clock.CpuSeconds();
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
                delivered.emplace_back(b.frameId, NowNs());
                bytes += b.sizeFilled;
                whole += b.incomplete ? 0 : 1;
                ok = grab.Requeue(b);
            }
        }
        result.seconds = std::chrono::duration<double>(Clock::now() - start).count();
        result.cpu = CpuSeconds() - m_clock.CpuSeconds() - cpu;
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
        if (stream != kTcpStream) {
            result.latencyMs = m_clock.Latencies(delivered);
        }
        return ok;
    }

    /**
     * Aravis 0.8 receives the same camera in a process of its own, for the
     * measured seconds after a second of start-up: its per-second lines
     * give frames and bytes, its tasks' schedstat the CPU time, its closing
     * counts the failures. The camera is closed here meanwhile, as Aravis
     * takes control itself. False when it could not run.
     */
    bool Aravis(Session& session, double fps, Result& result) {
        const std::uint64_t sentBefore = BlocksSent();
        session.CloseDevice();
        m_features.reset();
        int out[2];
        if (pipe(out) != 0) {
            return false;
        }
        const int seconds = static_cast<int>(m_c.seconds + 0.999);
        // Line-buffered, so that each per-second line comes when printed.
        const std::vector<std::string> args = {"stdbuf",
                                               "-oL",
                                               "arv-camera-test-0.8",
                                               "-w",
                                               std::to_string(m_c.width),
                                               "-h",
                                               std::to_string(m_c.height),
                                               "-f",
                                               std::to_string(fps),
                                               "-i",
                                               std::to_string(m_c.packetSize),
                                               "-j",
                                               "never",
                                               "--duration",
                                               std::to_string(seconds + 3)};
        const pid_t child = fork();
        if (child == 0) {
            dup2(out[1], 1);
            dup2(out[1], 2);
            close(out[0]);
            close(out[1]);
            std::vector<char*> argv;
            for (const std::string& a : args) {
                argv.push_back(const_cast<char*>(a.c_str()));
            }
            argv.push_back(nullptr);
            execvp(argv[0], argv.data());
            _exit(127);
        }
        close(out[1]);
        FILE* lines = fdopen(out[0], "r");
        char line[512];
        int rateLines = 0;
        double cpuStart = 0;
        double mib = 0;
        double frames = 0;
        auto spanStart = Clock::now();
        std::uint64_t completed = 0;
        std::uint64_t failed = 0;
        while (lines != nullptr && std::fgets(line, sizeof line, lines) != nullptr) {
            double f = 0;
            double m = 0;
            unsigned long long n = 0;
            if (std::sscanf(line, " %lf frames/s - %lf MiB/s", &f, &m) == 2) {
                ++rateLines;
                if (rateLines == 2) { // the first whole second
                    cpuStart = ProcessCpuSeconds(child);
                    spanStart = Clock::now();
                } else if (rateLines > 2 && rateLines <= seconds + 2) {
                    frames += f;
                    mib += m;
                    if (rateLines == seconds + 2) {
                        result.cpu = ProcessCpuSeconds(child) - cpuStart;
                        result.seconds =
                            std::chrono::duration<double>(Clock::now() - spanStart).count();
                    }
                }
            } else if (std::sscanf(line, "n_completed_buffers = %llu", &n) == 1) {
                completed = n;
            } else if (std::sscanf(line, "n_failures = %llu", &n) == 1 ||
                       std::sscanf(line, "n_missing_frames = %llu", &n) == 1 ||
                       std::sscanf(line, "n_underruns = %llu", &n) == 1) {
                failed += n;
            }
        }
        if (lines != nullptr) {
            std::fclose(lines);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (!WIFEXITED(status) || WEXITSTATUS(status) == 127 || rateLines < seconds + 2) {
            std::cerr << "arv-camera-test-0.8 did not run (install aravis-tools)\n";
            return false;
        }
        result.bytes = static_cast<std::uint64_t>(mib * 1048576.0);
        result.frames = static_cast<std::uint64_t>(frames);
        result.lost = failed;
        result.sent = completed + failed; // the camera's count is not Aravis's span
        (void)sentBefore;
        return true;
    }

    Producer& m_p;
    const Config& m_c;
    DEV_HANDLE m_device = nullptr;
    PORT_HANDLE m_port = nullptr;
    TrailerClock m_clock;
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
        } else if (a == "--modes" && hasValue) {
            c.modes.clear();
            std::istringstream words(argv[++i]);
            for (std::string w; std::getline(words, w, ',');) {
                c.modes.push_back(w);
            }
        } else if (a == "--no-aravis") {
            c.aravis = false;
        } else {
            std::cerr << "usage: bench_gvsp_stream --cti PATH [--seconds S] [--width W] "
                         "[--height H] [--fps F] [--packet-size BYTES] [--label TEXT] "
                         "[--header] [--modes single,batch,ring] [--no-aravis]\n";
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
