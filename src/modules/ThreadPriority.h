#pragma once
/**
 * ThreadPriority: the scheduling of the library's own threads.
 *
 * Three process-wide settings, one per kind of thread, written through the
 * system module's registers. A thread applies its kind's setting to itself
 * when it starts; threads that already run keep what they had:
 *
 *   ThreadPriority::ApplyThreadPrioritySetting(ThreadPriority::m_priorityGrabThread);
 *
 * Settings: 0 below normal (SCHED_IDLE), 1 normal (SCHED_OTHER, the
 * default), 2 above normal (SCHED_BATCH), 3 critical (SCHED_RR, priority 20).
 */
#include <atomic>

namespace GenTL {

class ThreadPriority {
public:
    static constexpr long kBelowNormal = 0;
    static constexpr long kNormal = 1;
    static constexpr long kAboveNormal = 2;
    static constexpr long kCritical = 3;

    static std::atomic<long> m_priorityGrabThread;
    static std::atomic<long> m_priorityEventThread;
    static std::atomic<long> m_priorityHeartbeatThread;

    /**
     * Applies setting to the calling thread with pthread_setschedparam. A
     * setting outside 0..3 fails with GC_ERR_INVALID_PARAMETER; a refusal
     * by the system (e.g. SCHED_RR without the privilege) is logged with
     * errno and fails with GC_ERR_IO "Failed to set Thread priority!".
     * Either failure leaves the thread's scheduling as it was.
     */
    static int ApplyThreadPrioritySetting(long setting);
};

} // namespace GenTL
