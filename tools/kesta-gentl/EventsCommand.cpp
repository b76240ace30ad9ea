// kesta-gentl events: a camera's events as they arrive on its message
// channel, through the remote-device event as any consumer receives them.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Commands.h"
#include "EventPacket.h"
#include "Options.h"
#include "Session.h"

namespace kesta::gentl {

namespace {

/// The largest message channel packet, and so the event's size.
constexpr std::size_t kPacketSizeMax = 576;
/// Longest single wait: how soon Ctrl-C or the end of --seconds is seen.
constexpr std::uint64_t kWaitSliceMs = 200;

volatile std::sig_atomic_t g_stopRequested = 0;

void OnInterrupt(int) {
    g_stopRequested = 1;
}

using Clock = std::chrono::steady_clock;

/// Prints each event of the remote-device event until the deadline (or
/// Ctrl-C); returns the number printed, or -1 after a failure.
long ShowEvents(Producer& p, EVENT_HANDLE event, bool timed, Clock::time_point deadline) {
    long count = 0;
    std::vector<std::uint8_t> packet(kPacketSizeMax);
    while (g_stopRequested == 0) {
        std::uint64_t waitMs = kWaitSliceMs;
        if (timed) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0) {
                break;
            }
            waitMs = std::min<std::uint64_t>(waitMs, static_cast<std::uint64_t>(left.count()));
        }
        size_t size = packet.size();
        const GC_ERROR rc = p.EventGetData(event, packet.data(), &size, waitMs);
        if (rc == GC_ERR_TIMEOUT) {
            continue;
        }
        if (rc != GC_ERR_SUCCESS) {
            p.Report(std::cerr, "EventGetData", rc);
            return -1;
        }
        const EventPacket parsed = ParseEventPacket(packet.data(), size);
        for (const EventRecord& e : parsed.events) {
            std::cout << DescribeEvent(e) << "\n";
            ++count;
        }
        if (!parsed.problem.empty()) {
            std::cout << "packet of " << size << " bytes: " << parsed.problem << "\n";
        }
        std::cout.flush();
    }
    return count;
}

} // namespace

int RunEvents(Producer& producer, const Arguments& arguments) {
    Options options;
    if (!options.Parse(arguments, {"--device", "--seconds", "--timeout"}, std::cerr)) {
        return 2;
    }
    if (!options.Rest().empty()) {
        std::cerr << "events takes options only, not " << options.Rest().front() << "\n";
        return 2;
    }
    double seconds = 0;
    const std::string secondsText = options.Get("--seconds");
    if (!secondsText.empty()) {
        try {
            seconds = std::stod(secondsText);
        } catch (const std::exception&) {
            seconds = -1;
        }
        if (!(seconds > 0)) {
            std::cerr << "--seconds takes a time above 0, not " << secondsText << "\n";
            return 2;
        }
    }

    Session session(producer);
    if (session.Start()) {
        return 1;
    }
    session.Discover(options.Timeout());
    const Session::Camera* camera = session.Find(options.Get("--device"));
    if (camera == nullptr) {
        return 1;
    }
    // The camera sends its events where a controlling application says.
    DEV_HANDLE device = nullptr;
    if (session.OpenDevice(*camera, DEVICE_ACCESS_CONTROL, &device)) {
        return 1;
    }
    EVENT_HANDLE event = nullptr;
    if (GC_ERROR rc = producer.GCRegisterEvent(device, EVENT_REMOTE_DEVICE, &event)) {
        return session.Fail("GCRegisterEvent(EVENT_REMOTE_DEVICE)", rc);
    }
    std::cout << "listening to the events of " << camera->id
              << (seconds > 0 ? " for " + secondsText + " s" : std::string(" until Ctrl-C")) << "\n"
              << std::flush;

    g_stopRequested = 0;
    std::signal(SIGINT, OnInterrupt);
    const auto deadline =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(
                           std::chrono::duration<double>(seconds > 0 ? seconds : 0));
    const long count = ShowEvents(producer, event, seconds > 0, deadline);
    std::signal(SIGINT, SIG_DFL);

    int status = count < 0 ? 1 : 0;
    if (GC_ERROR rc = producer.GCUnregisterEvent(device, EVENT_REMOTE_DEVICE)) {
        status = session.Fail("GCUnregisterEvent(EVENT_REMOTE_DEVICE)", rc);
    }
    if (count >= 0) {
        std::cout << count << (count == 1 ? " event" : " events") << "\n";
    }
    if (session.CloseDevice()) {
        return 1;
    }
    return status;
}

} // namespace kesta::gentl
