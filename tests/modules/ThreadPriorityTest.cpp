// ThreadPriority: each setting maps to its scheduling policy on the calling
// thread; bad settings and refusals leave the thread as it was. Every case
// runs on a thread of its own so that the test runner keeps its scheduling.
#include <pthread.h>
#include <sched.h>

#include <thread>
#include <utility>

#include <gtest/gtest.h>

#include "CachedError.h"
#include "GenTL_KESTA.h"
#include "modules/ThreadPriority.h"

namespace {

using GenTL::ThreadPriority;

struct Outcome {
    int rc = 0;
    int policy = -1;
    int priority = -1;
    kesta::test::CachedError error;
};

Outcome ApplyOnFreshThread(long setting) {
    Outcome out;
    std::thread t([&] {
        kesta::test::CachedError::Clear();
        out.rc = ThreadPriority::ApplyThreadPrioritySetting(setting);
        sched_param param{};
        pthread_getschedparam(pthread_self(), &out.policy, &param);
        out.priority = param.sched_priority;
        out.error = kesta::test::CachedError::Take();
    });
    t.join();
    return out;
}

TEST(ThreadPriority, SettingsMapToTheirPoliciesAndUnknownOnesChangeNothing) {
    for (const auto& [setting, policy] :
         {std::pair<long, int>{ThreadPriority::kBelowNormal, SCHED_IDLE},
          {ThreadPriority::kNormal, SCHED_OTHER},
          {ThreadPriority::kAboveNormal, SCHED_BATCH}}) {
        const Outcome out = ApplyOnFreshThread(setting);
        EXPECT_EQ(out.rc, GC_ERR_SUCCESS) << setting;
        EXPECT_EQ(out.policy, policy) << setting;
    }
    for (long setting : {-1L, 4L}) {
        const Outcome out = ApplyOnFreshThread(setting);
        EXPECT_EQ(out.rc, GC_ERR_INVALID_PARAMETER) << setting;
        EXPECT_EQ(out.error.code, GC_ERR_INVALID_PARAMETER) << setting;
        EXPECT_EQ(out.policy, SCHED_OTHER) << setting;
    }
}

TEST(ThreadPriority, CriticalIsRoundRobinOrRefusedWithoutPrivilege) {
    const Outcome rr = ApplyOnFreshThread(ThreadPriority::kCritical);
    if (rr.rc == GC_ERR_SUCCESS) {
        EXPECT_EQ(rr.policy, SCHED_RR);
        EXPECT_EQ(rr.priority, 20);
    } else {
        // Without CAP_SYS_NICE the system says no and nothing changes.
        EXPECT_EQ(rr.rc, GC_ERR_IO);
        EXPECT_EQ(rr.policy, SCHED_OTHER);
    }
}

} // namespace
