#include "modules/ThreadPriority.h"

#include <pthread.h>
#include <sched.h>

#include <string>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/GLogger.h"

namespace GenTL {

std::atomic<long> ThreadPriority::m_priorityGrabThread{ThreadPriority::kNormal};
std::atomic<long> ThreadPriority::m_priorityEventThread{ThreadPriority::kNormal};
std::atomic<long> ThreadPriority::m_priorityHeartbeatThread{ThreadPriority::kNormal};

int ThreadPriority::ApplyThreadPrioritySetting(long setting) {
    int policy = SCHED_OTHER;
    sched_param param{};
    switch (setting) {
    case kBelowNormal:
        policy = SCHED_IDLE;
        break;
    case kNormal:
        policy = SCHED_OTHER;
        break;
    case kAboveNormal:
        policy = SCHED_BATCH;
        break;
    case kCritical:
        policy = SCHED_RR;
        param.sched_priority = 20;
        break;
    default:
        return ReportError(GC_ERR_INVALID_PARAMETER,
                           "thread priority setting must be 0, 1, 2 or 3, not " +
                               std::to_string(setting));
    }
    // pthread_setschedparam returns the error number instead of setting errno.
    const int err = pthread_setschedparam(pthread_self(), policy, &param);
    if (err != 0) {
        GLogger::Error("Failed to set Thread priority", err);
        return ReportError(GC_ERR_IO, "Failed to set Thread priority!");
    }
    return GC_ERR_SUCCESS;
}

} // namespace GenTL
