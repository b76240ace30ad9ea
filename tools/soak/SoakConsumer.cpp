// The consumer of the stream soak (run by run-soak inside run-with-camera,
// beside one simulated camera): streams from the camera for a given time,
// first with packet resend and then without, and checks at the end of each
// acquisition that every block the camera sent is accounted for (delivered
// or counted missed), that every complete image holds the camera's bytes,
// and that all buffers are back in the input queue; and at the end of the
// run that no thread, socket or descriptor is left over and that resident
// memory did not grow while streaming. It prints its figures and exits 0
// only when every check passed.
//
// kesta-soak --cti PATH --seconds S [--width W] [--height H] [--fps F]
//            [--resend on|off|both]
#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include "GrabSession.h"
#include "NodeMap.h"
#include "Producer.h"
#include "Session.h"

namespace {

using namespace kesta::gentl;
using Clock = std::chrono::steady_clock;

struct Config {
    std::string cti;
    double seconds = 1800;
    std::int64_t width = 640;
    std::int64_t height = 480;
    double fps = 25;
    std::string resend = "both";
};

/// What the process holds, from /proc/self.
struct Resources {
    int threads = 0;
    int descriptors = 0;
    int sockets = 0;
    long rssKiB = 0;
};

Resources Count() {
    Resources r;
    for (const char* dir : {"/proc/self/task", "/proc/self/fd"}) {
        DIR* d = ::opendir(dir);
        if (d == nullptr) {
            continue;
        }
        const bool fds = dir[11] == 'f';
        while (const dirent* e = ::readdir(d)) {
            if (e->d_name[0] == '.' || (fds && std::atoi(e->d_name) == ::dirfd(d))) {
                continue;
            }
            if (!fds) {
                ++r.threads;
                continue;
            }
            ++r.descriptors;
            char target[64] = {};
            const std::string path = std::string(dir) + "/" + e->d_name;
            if (::readlink(path.c_str(), target, sizeof target - 1) > 0 &&
                std::string(target).rfind("socket:", 0) == 0) {
                ++r.sockets;
            }
        }
        ::closedir(d);
    }
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) {
            r.rssKiB = std::atol(line.c_str() + 6);
        }
    }
    return r;
}

/// The first byte that differs from the simulated camera's stamp, or -1.
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

class Soak {
public:
    Soak(Producer& producer, const Config& config) : m_p(producer), m_c(config) {}

    int Run() {
        Session session(m_p);
        if (session.Start()) {
            return 1;
        }
        session.Discover(1000);
        const Session::Camera* camera = session.Find("");
        if (camera == nullptr) {
            return 1;
        }
        const Resources before = Count();
        DEV_HANDLE device = nullptr;
        if (session.OpenDevice(*camera, DEVICE_ACCESS_CONTROL, &device) || !SetUp(device)) {
            return 1;
        }
        const bool both = m_c.resend == "both";
        const double phase = both ? m_c.seconds / 2 : m_c.seconds;
        bool ok = true;
        if (m_c.resend != "off") {
            ok = Acquire(device, true, phase) && ok;
        }
        if (m_c.resend != "on") {
            ok = Acquire(device, false, phase) && ok;
        }
        m_features.reset();
        session.CloseDevice();
        const Resources after = Count();
        std::printf("threads %d -> %d, descriptors %d -> %d, sockets %d -> %d (before the camera "
                    "was opened and after it was closed)\n",
                    before.threads, after.threads, before.descriptors, after.descriptors,
                    before.sockets, after.sockets);
        std::printf("resident memory %ld KiB before, %ld KiB after the warm-up of streaming, "
                    "%ld KiB at its end, %ld KiB after the close\n",
                    before.rssKiB, m_warmRss, m_endRss, after.rssKiB);
        ok = Expect(after.threads == before.threads && after.descriptors == before.descriptors &&
                        after.sockets == before.sockets,
                    "threads, descriptors or sockets left over") &&
             ok;
        // Allocator arenas settle in steps: 1 MiB of slack.
        ok = Expect(m_endRss <= m_warmRss + 1024, "resident memory grew while streaming") && ok;
        std::printf(ok ? "SOAK PASSED\n" : "SOAK FAILED\n");
        return ok ? 0 : 1;
    }

private:
    static bool Expect(bool condition, const char* what) {
        if (!condition) {
            std::printf("FAILED: %s\n", what);
        }
        return condition;
    }

    bool SetUp(DEV_HANDLE device) {
        PORT_HANDLE port = nullptr;
        std::string error;
        if (m_p.DevGetPort(device, &port) != GC_ERR_SUCCESS) {
            std::cerr << "cannot reach the camera's port\n";
            return false;
        }
        m_features = std::make_unique<NodeMap>(m_p, port);
        if (!m_features->Load()) {
            return false;
        }
        std::int64_t payload = 0;
        if (!m_features->SetFromText("PixelFormat", "Mono8", error) ||
            !m_features->SetInteger("Width", m_c.width, error) ||
            !m_features->SetInteger("Height", m_c.height, error) ||
            !m_features->SetFloat("AcquisitionFrameRate", m_c.fps, error) ||
            !m_features->GetInteger("PayloadSize", payload, error)) {
            std::cerr << "cannot set the camera up: " << error << "\n";
            return false;
        }
        m_payload = static_cast<std::uint64_t>(payload);
        return true;
    }

    std::uint64_t BlocksSent() {
        std::int64_t sent = 0;
        std::string error;
        if (!m_features->GetInteger("BlocksSent", sent, error)) {
            std::cerr << "cannot read BlocksSent: " << error << "\n";
        }
        return static_cast<std::uint64_t>(sent);
    }

    std::uint64_t StreamNumber(DS_HANDLE stream, STREAM_INFO_CMD cmd) {
        std::uint64_t value = 0;
        size_t size = sizeof value;
        INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
        m_p.DSGetInfo(stream, cmd, &type, &value, &size);
        return size == 4 ? value & 0xFFFFFFFFu : value;
    }

    /// One acquisition of `seconds`; false when a check failed.
    bool Acquire(DEV_HANDLE device, bool resend, double seconds) {
        StreamSettings settings;
        settings.resend = resend ? 1 : 0;
        settings.buffers = 8;
        GrabSession grab(m_p, device);
        std::string error;
        if (!grab.Open(settings) || !grab.Prepare(m_payload) || !grab.Start()) {
            return false;
        }
        const std::uint64_t sentBefore = BlocksSent();
        if (!m_features->Execute("AcquisitionStart", error)) {
            std::cerr << "cannot start the camera: " << error << "\n";
            return false;
        }
        std::uint64_t complete = 0;
        std::uint64_t wrong = 0;
        std::uint64_t outOfOrder = 0; // delivered at or below an id delivered before
        std::uint64_t lastId = 0;
        const auto start = Clock::now();
        // Memory is first measured after a warm-up: a minute, or a fifth of
        // a short run.
        const auto warm = start + std::chrono::duration_cast<Clock::duration>(
                                      std::chrono::duration<double>(std::min(60.0, seconds / 5)));
        bool warmed = m_warmRss != 0;
        const auto take = [&](std::uint64_t waitMs) {
            DeliveredBuffer b;
            if (grab.Next(b, waitMs) != 1) {
                return false;
            }
            if (b.frameId <= lastId) {
                if (outOfOrder++ < 5) {
                    std::printf("block %llu delivered after block %llu (%s, %llu bytes)\n",
                                static_cast<unsigned long long>(b.frameId),
                                static_cast<unsigned long long>(lastId),
                                b.incomplete ? "incomplete" : "complete",
                                static_cast<unsigned long long>(b.sizeFilled));
                }
            }
            lastId = b.frameId;
            if (!b.incomplete) {
                ++complete;
                const bool exact = b.imagePresent && b.image.size == m_payload &&
                                   FirstStampMismatch(b.image.data, b.image.size, b.frameId) < 0;
                wrong += exact ? 0 : 1;
            }
            grab.Requeue(b);
            return true;
        };
        while (Clock::now() - start < std::chrono::duration<double>(seconds)) {
            take(200);
            if (!warmed && Clock::now() >= warm) {
                m_warmRss = Count().rssKiB;
                warmed = true;
            }
        }
        m_endRss = Count().rssKiB;
        m_features->Execute("AcquisitionStop", error);
        // The blocks on their way end by their timers: wait until a whole
        // second passes without one.
        while (take(1000)) {
        }
        const GrabCounters c = grab.Counters();
        const std::uint64_t sent = BlocksSent() - sentBefore;
        const std::uint64_t missed = StreamNumber(grab.Stream(), STREAM_INFO_MISSED_IMAGE_COUNT);
        grab.Stop();
        m_p.DSFlushQueue(grab.Stream(), ACQ_QUEUE_ALL_TO_INPUT);
        const std::uint64_t announced = StreamNumber(grab.Stream(), STREAM_INFO_NUM_ANNOUNCED);
        const std::uint64_t queued = StreamNumber(grab.Stream(), STREAM_INFO_NUM_QUEUED);
        std::cout << (resend ? "resend" : "no resend") << ", " << static_cast<long>(c.seconds)
                  << " s: camera sent " << sent << " blocks; delivered " << c.frames << " ("
                  << complete << " complete, " << c.incomplete << " incomplete, " << wrong
                  << " with wrong bytes, " << outOfOrder << " out of order), missed " << missed
                  << ", packets missed " << c.missedPackets << ", underruns " << c.underrun
                  << "; buffers " << announced << " announced, " << queued
                  << " back in the input queue" << std::endl;
        bool ok = Expect(c.frames + missed == sent, "delivered + missed differ from blocks sent");
        ok = Expect(wrong == 0, "complete images with wrong bytes") && ok;
        ok = Expect(outOfOrder == 0, "blocks delivered out of order or twice") && ok;
        return Expect(queued == announced && announced == settings.buffers,
                      "buffers not back in the input queue") &&
               ok;
    }

    Producer& m_p;
    const Config& m_c;
    std::unique_ptr<NodeMap> m_features;
    std::uint64_t m_payload = 0;
    long m_warmRss = 0;
    long m_endRss = 0;
};

bool ParseArguments(int argc, char** argv, Config& c) {
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        const char* value = argv[i + 1];
        if (name == "--cti") {
            c.cti = value;
        } else if (name == "--seconds") {
            c.seconds = std::atof(value);
        } else if (name == "--width") {
            c.width = std::atoll(value);
        } else if (name == "--height") {
            c.height = std::atoll(value);
        } else if (name == "--fps") {
            c.fps = std::atof(value);
        } else if (name == "--resend") {
            c.resend = value;
        } else {
            return false;
        }
    }
    return argc % 2 == 1 && !c.cti.empty() && c.seconds > 0 && c.width > 0 && c.height > 0 &&
           c.fps > 0 && (c.resend == "on" || c.resend == "off" || c.resend == "both");
}

} // namespace

int main(int argc, char** argv) {
    Config config;
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // figures show as they come, also in a log file
    if (!ParseArguments(argc, argv, config)) {
        std::cerr << "usage: kesta-soak --cti PATH --seconds S [--width W] [--height H] [--fps F] "
                     "[--resend on|off|both]\n";
        return 2;
    }
    try {
        Producer producer(config.cti);
        return Soak(producer, config).Run();
    } catch (const std::exception& e) {
        std::cerr << e.what() << "\n";
        return 1;
    }
}
