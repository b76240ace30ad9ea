#include "modules/Heartbeat.h"

#include <algorithm>
#include <string>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/thread.hpp>
#include <boost/thread/thread_time.hpp>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/GLogger.h"
#include "api/localization.h"
#include "hal/IHALGev.h"
#include "modules/ThreadPriority.h"

namespace GenTL {

namespace {

/// The shortest period: a camera whose timeout reads 0 or near it would
/// otherwise get thousands of heartbeats a second. Cameras take no timeout
/// under 500 ms, so this never slows the heartbeat of an honest one.
constexpr unsigned kMinPeriodMs = 100;

void HeartbeatLoop(IHALGev* hal, void* hDevice, const std::atomic<bool>& running) {
    if (ThreadPriority::ApplyThreadPrioritySetting(ThreadPriority::m_priorityHeartbeatThread)) {
        ReportError(GC_ERR_IO, ":IGNORABLE: failed to set thread priority");
    }

    unsigned timeoutMs = 0;
    if (int rc = hal->ReadReg(hDevice, sk_addrHeartbeatTimeout, timeoutMs)) {
        GLogger::Error(loc::al("anonymous::HeartbeatThread ReadReg  failed with: {0}",
                               std::to_string(rc).c_str())
                           .c_str());
        ReportError(rc, "failed to read heartbeat timeout (0x0938) register");
        return;
    }

    while (running) {
        // An absolute deadline, taken afresh each turn: the period is half the
        // timeout plus the time of the two transactions.
        const unsigned periodMs = std::max(timeoutMs >> 1, kMinPeriodMs);
        boost::this_thread::sleep(boost::get_system_time() +
                                  boost::posix_time::milliseconds(periodMs));

        unsigned value = 0;
        if (int rc = hal->ReadReg(hDevice, sk_addrHeartbeatTimeout, value)) {
            GLogger::Error(loc::al("anonymous::HeartbeatThread ReadReg  failed with : {0}",
                                   std::to_string(rc).c_str())
                               .c_str());
            ReportError(rc, ":IGNORABLE: failed to read heartbeat timeout (0x0938) register");
            continue;
        }
        timeoutMs = value;
        if (!running) {
            return;
        }
        // Writing the unchanged value is the heartbeat itself.
        if (int rc = hal->WriteReg(hDevice, sk_addrHeartbeatTimeout, value)) {
            GLogger::Error("anonymous::HeartbeatThread WriteReg  failed with", rc);
            ReportError(rc, ":IGNORABLE: failed to write to heartbeat timeout (0x0938) register");
        }
    }
}

} // namespace

void HeartbeatThread(IHALGev* hal, void* hDevice, const std::atomic<bool>& running) {
    try {
        HeartbeatLoop(hal, hDevice, running);
    } catch (const boost::thread_interrupted&) {
        // The owner stops the heartbeat by interruption during the sleep.
    }
}

} // namespace GenTL
