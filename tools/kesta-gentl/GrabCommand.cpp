// kesta-gentl grab: set the camera's image, grab images through the
// producer and tell how it went.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Commands.h"
#include "GrabSession.h"
#include "ImageWriter.h"
#include "NodeMap.h"
#include "Options.h"
#include "ProgressLine.h"
#include "Session.h"

namespace kesta::gentl {

namespace {

/// Exit status when the grab ran but images were lost or wrong.
constexpr int kLostImages = 3;
/// Stream 1 carries frames over TCP, each received with its 60-byte header
/// in front of the image.
constexpr std::uint32_t kTcpStream = 1;
constexpr std::uint64_t kTcpFrameHeader = 60;

volatile std::sig_atomic_t g_stopRequested = 0;

void OnInterrupt(int) {
    g_stopRequested = 1;
}

using Assignments = std::vector<std::pair<std::string, std::string>>;

struct GrabOptions {
    std::string device;
    std::string xmlFile;
    std::int64_t width = -1;
    std::int64_t height = -1;
    std::string pixelFormat;
    double fps = -1;
    std::uint64_t frames = 0;
    double seconds = 0;
    std::uint64_t waitMs = 3000;
    std::int64_t packetSize = -1; ///< bytes; 0 for the stream's automatic search
    StreamSettings stream;
    std::string save;
    std::string saveDir;
    std::string format = "png";
    bool checkStamp = false;
    Assignments set;       ///< --set NAME=VALUE pairs, in order
    Assignments streamSet; ///< --stream-set, in order
};

/// The share of an image's packets that the default resend limit covers.
constexpr double kResendShare = 0.05;
/// Bytes of a GVSP packet that are not payload: IP, UDP and GVSP headers.
constexpr std::int64_t kGvspOverhead = 20 + 8 + 8;
constexpr char kResendLimit[] = "StreamMaxNumResendRequestsPerImage";

bool ParseOnOff(const std::string& name, const std::string& text, int& value) {
    if (text == "on" || text == "1" || text == "yes") {
        value = 1;
    } else if (text == "off" || text == "0" || text == "no") {
        value = 0;
    } else {
        std::cerr << name << " takes on or off, not " << text << "\n";
        return false;
    }
    return true;
}

bool ParseCount(const std::string& name, const std::string& text, std::uint64_t& value,
                std::uint64_t max) {
    if (!ParseNumber(text, value) || value == 0 || value > max) {
        std::cerr << name << " takes a number from 1 to " << max << ", not " << text << "\n";
        return false;
    }
    return true;
}

bool ParsePositive(const std::string& name, const std::string& text, double& value) {
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(value > 0) || value > 1e9) {
        std::cerr << name << " takes a number above 0, not " << text << "\n";
        return false;
    }
    return true;
}

bool ParseGrabOptions(const Arguments& arguments, GrabOptions& o, Options& options) {
    if (!options.Parse(arguments, {"--device",        "--timeout",      "--xml",    "--width",
                                   "--height",        "--pixel-format", "--fps",    "--frames",
                                   "--seconds",       "--wait",         "--resend", "--buffers",
                                   "--handling-mode", "--packet-size",  "--save",   "--save-dir",
                                   "--format",        "--check",        "--set",    "--stream",
                                   "--stream-set"},
                       std::cerr)) {
        return false;
    }
    if (!options.Rest().empty()) {
        std::cerr << "grab takes options only, not " << options.Rest().front() << "\n";
        return false;
    }
    std::uint64_t n = 0;
    o.device = options.Get("--device");
    o.xmlFile = options.Get("--xml");
    o.pixelFormat = options.Get("--pixel-format");
    o.save = options.Get("--save");
    o.saveDir = options.Get("--save-dir");
    o.format = options.Get("--format", "png");
    if (o.format != "png" && o.format != "pgm") {
        std::cerr << "--format takes png or pgm, not " << o.format << "\n";
        return false;
    }
    for (auto [name, target] :
         {std::pair<const char*, std::int64_t*>{"--width", &o.width}, {"--height", &o.height}}) {
        if (!options.Get(name).empty()) {
            if (!ParseCount(name, options.Get(name), n, 1u << 20)) {
                return false;
            }
            *target = static_cast<std::int64_t>(n);
        }
    }
    if (!options.Get("--fps").empty() && !ParsePositive("--fps", options.Get("--fps"), o.fps)) {
        return false;
    }
    if (!options.Get("--frames").empty() &&
        !ParseCount("--frames", options.Get("--frames"), o.frames, 1ull << 40)) {
        return false;
    }
    if (!options.Get("--seconds").empty() &&
        !ParsePositive("--seconds", options.Get("--seconds"), o.seconds)) {
        return false;
    }
    if (o.frames == 0 && o.seconds == 0) {
        o.frames = 100;
    }
    if (!options.Get("--wait").empty() &&
        !ParseCount("--wait", options.Get("--wait"), o.waitMs, 3600000)) {
        return false;
    }
    const std::string stream = options.Get("--stream", "0");
    if (stream != "0" && stream != "1") {
        std::cerr << "--stream takes 0 (GVSP over UDP) or 1 (frames over TCP), not " << stream
                  << "\n";
        return false;
    }
    if (stream == "1") {
        o.stream.stream = kTcpStream;
        o.stream.headerRoom = kTcpFrameHeader;
    } else {
        o.stream.resend = 1; // on unless told otherwise: a lossy link then still gives whole images
    }
    if (!options.Get("--resend").empty() &&
        !ParseOnOff("--resend", options.Get("--resend"), o.stream.resend)) {
        return false;
    }
    if (!options.Get("--buffers").empty()) {
        if (!ParseCount("--buffers", options.Get("--buffers"), n, 1024)) {
            return false;
        }
        o.stream.buffers = static_cast<std::uint32_t>(n);
    }
    const std::string mode = options.Get("--handling-mode");
    if (!mode.empty()) {
        const char* names[] = {"OldestFirst", "OldestFirstOverwrite", "NewestOnly"};
        for (int i = 0; i < 3; ++i) {
            if (mode == names[i]) {
                o.stream.handlingMode = i;
            }
        }
        if (o.stream.handlingMode < 0) {
            std::cerr << "--handling-mode takes OldestFirst, OldestFirstOverwrite or NewestOnly, "
                         "not "
                      << mode << "\n";
            return false;
        }
    }
    const std::string packet = options.Get("--packet-size");
    if (packet == "auto") {
        o.packetSize = 0;
        o.stream.autoPacketSize = 1;
    } else if (!packet.empty()) {
        if (!ParseNumber(packet, n) || n < 576 || n > 65535) {
            std::cerr << "--packet-size takes auto or 576 to 65535 bytes, not " << packet << "\n";
            return false;
        }
        o.packetSize = static_cast<std::int64_t>(n);
        o.stream.autoPacketSize = 0;
    }
    for (auto [name, target] :
         {std::pair<const char*, Assignments*>{"--set", &o.set}, {"--stream-set", &o.streamSet}}) {
        if (!ParseAssignments(options.Get(name), *target)) {
            std::cerr << name << " takes NAME=VALUE[,NAME=VALUE...], not " << options.Get(name)
                      << "\n";
            return false;
        }
    }
    const std::string check = options.Get("--check");
    if (check == "stamp") {
        o.checkStamp = true;
    } else if (!check.empty()) {
        std::cerr << "--check takes stamp (the simulated camera's pattern), not " << check << "\n";
        return false;
    }
    return true;
}

/// The number of the first byte of a block that differs from the simulated
/// camera's stamp: the block id in 8 big-endian bytes, then a pattern of
/// offset and id. -1 if all agree.
long long FirstStampMismatch(const std::uint8_t* data, std::size_t size, std::uint64_t id) {
    for (std::size_t i = 0; i < size; ++i) {
        const std::uint8_t expected =
            i < 8 ? static_cast<std::uint8_t>(id >> (56 - 8 * i))
                  : static_cast<std::uint8_t>(i * 7 + (i >> 8) * 3 + (i >> 16) + id * 13);
        if (data[i] != expected) {
            return static_cast<long long>(i);
        }
    }
    return -1;
}

/// Sets the camera up, runs the grab and tells what happened.
class GrabRun {
public:
    GrabRun(Producer& producer, DEV_HANDLE device, const GrabOptions& options)
        : m_p(producer), m_device(device), m_o(options) {}

    int Run() {
        if (!LoadFeatures() || !SetUpCamera()) {
            return 1;
        }
        std::uint64_t payload = 0;
        if (!PayloadSize(payload)) {
            return 1;
        }
        GrabSession grab(m_p, m_device);
        if (!grab.Open(m_o.stream)) {
            return 1;
        }
        NodeMap stream(m_p, grab.Stream());
        if (!stream.Load() || !SetUpStream(stream, payload) || !grab.Prepare(payload) ||
            !grab.Start()) {
            return 1;
        }
        std::string error;
        SetIfPresent("TLParamsLocked", 1);
        if (!m_features->Execute("AcquisitionStart", error)) {
            std::cerr << "cannot start the camera: " << error << "\n";
            return 1;
        }
        const int status = Loop(grab);
        if (!m_features->Execute("AcquisitionStop", error)) {
            std::cerr << "cannot stop the camera: " << error << "\n";
        }
        SetIfPresent("TLParamsLocked", 0);
        const GrabCounters counters = grab.Counters();
        grab.Stop();
        return Summary(counters, status);
    }

private:
    bool LoadFeatures() {
        if (GC_ERROR rc = m_p.DevGetPort(m_device, &m_port)) {
            m_p.Report(std::cerr, "DevGetPort", rc);
            return false;
        }
        m_features = std::make_unique<NodeMap>(m_p, m_port);
        if (m_o.xmlFile.empty()) {
            return m_features->Load();
        }
        std::ifstream in(m_o.xmlFile, std::ios::binary);
        const std::vector<char> description{std::istreambuf_iterator<char>(in),
                                            std::istreambuf_iterator<char>()};
        std::string error;
        if (!in.good() && !in.eof()) {
            error = "cannot be read";
        }
        if (!error.empty() || !m_features->Load(description, error)) {
            std::cerr << m_o.xmlFile << ": " << error << "\n";
            return false;
        }
        return true;
    }

    /// Writes a feature the camera may lack; a failure is not one of the grab.
    void SetIfPresent(const char* name, std::int64_t value) {
        std::string error;
        if (m_features->Has(name)) {
            m_features->SetInteger(name, value, error);
        }
    }

    bool Set(bool ok, const std::string& error) {
        if (!ok) {
            std::cerr << "cannot set the camera: " << error << "\n";
        }
        return ok;
    }

    /**
     * The stream's own features: by default as many resend requests per
     * image as it has packets to lose at a few per cent (the stream's own
     * limit is made for short images), then --stream-set in order.
     */
    bool SetUpStream(NodeMap& stream, std::uint64_t payload) {
        std::string error;
        bool limitGiven = false;
        for (const auto& assignment : m_o.streamSet) {
            limitGiven = limitGiven || assignment.first == kResendLimit;
        }
        std::int64_t packetSize = 0;
        std::int64_t limit = 0;
        if (m_o.stream.stream != kTcpStream && !limitGiven && stream.Has(kResendLimit) &&
            stream.GetInteger(kResendLimit, limit, error)) {
            if (!m_features->Has("GevSCPSPacketSize") ||
                !m_features->GetInteger("GevSCPSPacketSize", packetSize, error)) {
                packetSize = 1500; // what an Ethernet link without jumbo frames carries
            }
            const auto perPacket =
                static_cast<double>(std::max<std::int64_t>(packetSize - kGvspOverhead, 1));
            const auto packets = static_cast<std::int64_t>(std::ceil(payload / perPacket));
            const auto wanted = static_cast<std::int64_t>(std::ceil(packets * kResendShare));
            if (wanted > limit && !stream.SetInteger(kResendLimit, wanted, error)) {
                std::cerr << "cannot raise " << kResendLimit << ": " << error << "\n";
                return false;
            }
        }
        for (const auto& [name, value] : m_o.streamSet) {
            if (!stream.SetFromText(name, value, error)) {
                std::cerr << "cannot set the stream's " << name << ": " << error << "\n";
                return false;
            }
        }
        if (stream.Has(kResendLimit)) {
            stream.GetInteger(kResendLimit, m_resendLimit, error);
        }
        return true;
    }

    bool SetUpCamera() {
        std::string error;
        // A camera left running by someone else would refuse its image settings.
        if (m_features->Has("AcquisitionStop")) {
            m_features->Execute("AcquisitionStop", error);
        }
        SetIfPresent("TLParamsLocked", 0);
        if (m_features->Has("AcquisitionMode") &&
            !m_features->SetFromText("AcquisitionMode", "Continuous", error)) {
            std::cerr << "note: " << error << "\n";
        }
        if (!m_o.pixelFormat.empty() &&
            !Set(m_features->SetFromText("PixelFormat", m_o.pixelFormat, error), error)) {
            return false;
        }
        if (m_o.width > 0 && !Set(m_features->SetInteger("Width", m_o.width, error), error)) {
            return false;
        }
        if (m_o.height > 0 && !Set(m_features->SetInteger("Height", m_o.height, error), error)) {
            return false;
        }
        if (m_o.fps > 0) {
            if (m_features->Has("AcquisitionFrameRateEnable")) {
                m_features->SetBoolean("AcquisitionFrameRateEnable", true, error);
            }
            if (!Set(m_features->SetFloat("AcquisitionFrameRate", m_o.fps, error), error)) {
                return false;
            }
        }
        for (const auto& [name, value] : m_o.set) {
            if (!Set(m_features->SetFromText(name, value, error), error)) {
                return false;
            }
        }
        if (m_o.packetSize > 0 &&
            !Set(m_features->SetInteger("GevSCPSPacketSize", m_o.packetSize, error), error)) {
            return false;
        }
        std::int64_t width = 0;
        std::int64_t height = 0;
        std::string format = "?";
        if (m_features->GetInteger("Width", width, error) &&
            m_features->GetInteger("Height", height, error)) {
            m_features->GetString("PixelFormat", format, error);
            std::cout << "camera: " << width << "x" << height << " " << format;
            double fps = 0;
            if (m_features->Has("AcquisitionFrameRate") &&
                m_features->GetFloat("AcquisitionFrameRate", fps, error)) {
                std::cout << " at " << fps << " fps";
            }
            std::cout << "\n";
        }
        return true;
    }

    bool PayloadSize(std::uint64_t& bytes) {
        std::string error;
        std::int64_t payload = 0;
        if (m_features->Has("PayloadSize") &&
            m_features->GetInteger("PayloadSize", payload, error) && payload > 0) {
            bytes = static_cast<std::uint64_t>(payload);
            return true;
        }
        std::cerr << "cannot read the camera's PayloadSize" << (error.empty() ? "" : ": " + error)
                  << "\n";
        return false;
    }

    /// Saves one image; false (once reported) if it cannot be.
    bool Save(const std::string& path, const DeliveredBuffer& b) {
        std::string error;
        if (!ImageWriter::Write(path, b.image, error)) {
            std::cerr << "cannot save frame " << b.frameId << ": " << error << "\n";
            return false;
        }
        return true;
    }

    /// Handles one delivered buffer: checks and saves it.
    void Take(const DeliveredBuffer& b) {
        if (b.incomplete || !b.imagePresent) {
            return;
        }
        if (m_o.checkStamp) {
            const long long at = FirstStampMismatch(b.image.data, b.image.size, b.frameId);
            if (at >= 0) {
                if (m_wrong++ == 0) {
                    std::cerr << "frame " << b.frameId << " differs from the stamp at byte " << at
                              << "\n";
                }
            }
        }
        if (!m_o.save.empty() && m_savedFirst.empty() && !m_saveFailed) {
            m_saveFailed = !Save(m_o.save, b);
            if (!m_saveFailed) {
                m_savedFirst = m_o.save;
                m_savedFrame = b;
            }
        }
        if (!m_o.saveDir.empty() && !m_saveFailed) {
            const std::string ext = m_o.format == "pgm" && b.image.pixelFormat >> 24 == 2
                                        ? "ppm" // colour images go into the colour netpbm form
                                        : m_o.format;
            m_saveFailed =
                !Save(m_o.saveDir + "/frame-" + std::to_string(b.frameId) + "." + ext, b);
            m_savedCount += m_saveFailed ? 0 : 1;
        }
    }

    int Loop(GrabSession& grab) {
        using Clock = std::chrono::steady_clock;
        const bool live = isatty(STDOUT_FILENO) != 0;
        ProgressLine progress(std::cout, live);
        const auto every = std::chrono::milliseconds(live ? 250 : 1000);
        const auto start = Clock::now();
        auto nextUpdate = start + every;
        auto lastImage = start;
        g_stopRequested = 0;
        void (*previous)(int) = std::signal(SIGINT, OnInterrupt);
        int status = 0;
        while (m_o.frames == 0 || grab.Frames() < m_o.frames) {
            const auto now = Clock::now();
            if (g_stopRequested) {
                m_interrupted = true;
                break;
            }
            if (m_o.seconds > 0 && now - start >= std::chrono::duration<double>(m_o.seconds)) {
                break;
            }
            if (now - lastImage >= std::chrono::milliseconds(m_o.waitMs)) {
                progress.Finish();
                std::cerr << "no image for " << m_o.waitMs << " ms: giving up\n";
                m_timedOut = true;
                break;
            }
            if (now >= nextUpdate) {
                progress.Update(grab.Counters());
                nextUpdate += every;
            }
            DeliveredBuffer b;
            // Short waits, so that Ctrl-C and the progress line stay timely.
            const int got = grab.Next(b, 100);
            if (got < 0) {
                status = 1;
                break;
            }
            if (got == 0) {
                continue;
            }
            lastImage = Clock::now();
            Take(b);
            if (!grab.Requeue(b)) {
                status = 1;
                break;
            }
        }
        std::signal(SIGINT, previous);
        progress.Update(grab.Counters());
        progress.Finish();
        return status;
    }

    int Summary(const GrabCounters& c, int status) {
        const double fps = c.seconds > 0 ? static_cast<double>(c.frames) / c.seconds : 0;
        const double mbps = c.seconds > 0 ? static_cast<double>(c.bytes) / c.seconds / 1e6 : 0;
        const std::uint64_t shortfall =
            m_o.frames > c.frames && !m_interrupted && m_o.seconds == 0 ? m_o.frames - c.frames : 0;
        const std::uint64_t lost = c.incomplete + c.missed + c.underrun + m_wrong + shortfall;
        char line[256];
        std::snprintf(line, sizeof line, "grabbed %llu frames in %.2f s: %.1f fps, %.2f MB/s\n",
                      static_cast<unsigned long long>(c.frames), c.seconds, fps, mbps);
        std::cout << line << "incomplete " << c.incomplete << ", missed " << c.missed
                  << ", lost packets " << c.missedPackets << ", underrun " << c.underrun
                  << ", resend " << (c.resend ? "on" : "off");
        if (c.resend && m_resendLimit > 0) {
            std::cout << " (up to " << m_resendLimit << " requests per image)";
        }
        if (m_o.checkStamp) {
            std::cout << ", wrong bytes in " << m_wrong << " frames";
        }
        std::cout << "\n";
        if (!m_savedFirst.empty()) {
            std::cout << "saved frame " << m_savedFrame.frameId << " (" << m_savedFrame.image.width
                      << "x" << m_savedFrame.image.height << ") to " << m_savedFirst << "\n";
        }
        if (!m_o.saveDir.empty()) {
            std::cout << "saved " << m_savedCount << " frames in " << m_o.saveDir << "\n";
        }
        if (m_interrupted) {
            std::cout << "stopped by Ctrl-C\n";
        }
        if (status != 0 || m_saveFailed || (!m_o.save.empty() && m_savedFirst.empty())) {
            if (!m_o.save.empty() && m_savedFirst.empty() && !m_saveFailed) {
                std::cerr << "no complete image to save\n";
            }
            return 1;
        }
        if (lost != 0 || m_timedOut) {
            std::cout << "LOST " << lost << " images\n";
            return kLostImages;
        }
        return 0;
    }

    Producer& m_p;
    DEV_HANDLE m_device;
    const GrabOptions& m_o;
    PORT_HANDLE m_port = nullptr;
    std::unique_ptr<NodeMap> m_features;
    std::int64_t m_resendLimit = 0; ///< the stream's, as it runs
    std::uint64_t m_wrong = 0;
    std::string m_savedFirst;
    DeliveredBuffer m_savedFrame;
    std::uint64_t m_savedCount = 0;
    bool m_saveFailed = false;
    bool m_interrupted = false;
    bool m_timedOut = false;
};

} // namespace

int RunGrab(Producer& producer, const Arguments& arguments) {
    GrabOptions o;
    Options options;
    if (!ParseGrabOptions(arguments, o, options)) {
        return 2;
    }
    Session session(producer);
    if (session.Start()) {
        return 1;
    }
    session.Discover(options.Timeout());
    const Session::Camera* camera = session.Find(o.device);
    if (camera == nullptr) {
        return 1;
    }
    DEV_HANDLE device = nullptr;
    if (session.OpenDevice(*camera, DEVICE_ACCESS_CONTROL, &device)) {
        return 1;
    }
    std::cout << "opened " << camera->id << " on " << session.Interfaces()[camera->iface].id
              << "\n";
    const int status = GrabRun(producer, device, o).Run();
    if (session.CloseDevice()) {
        return status == 0 ? 1 : status;
    }
    return status;
}

} // namespace kesta::gentl
