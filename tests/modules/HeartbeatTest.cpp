// The heartbeat thread against a camera in memory: it gives up on an
// unreadable timeout and ends promptly when told. (The beats themselves, a
// silent camera and a changed timeout are tested against the simulated
// camera, in tests/netns.)
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include <boost/thread/thread.hpp>
#include <gtest/gtest.h>

#include "FakeHALGev.h"
#include "GenTL_KESTA.h"
#include "modules/Heartbeat.h"

namespace {

using Clock = std::chrono::steady_clock;
using GenTL::sk_addrHeartbeatTimeout;
using kesta::test::FakeHALGev;

class Heartbeat : public ::testing::Test {
protected:
    void Start() {
        m_running = true;
        m_thread = boost::thread(GenTL::HeartbeatThread, &m_hal, m_device, std::cref(m_running));
    }
    /// Stops as DeviceGev::Close does; returns how long the join took.
    Clock::duration Stop() {
        const auto start = Clock::now();
        m_running = false;
        m_thread.interrupt();
        m_thread.join();
        return Clock::now() - start;
    }
    void TearDown() override {
        if (m_thread.joinable()) {
            Stop();
        }
    }
    std::size_t Beats() const { return m_hal.WritesTo(sk_addrHeartbeatTimeout).size(); }

    FakeHALGev m_hal;
    void* m_device = reinterpret_cast<void*>(0x1);
    std::atomic<bool> m_running{false};
    boost::thread m_thread;
};

TEST_F(Heartbeat, UnreadableTimeoutEndsTheThreadWithoutABeat) {
    m_hal.Fail(sk_addrHeartbeatTimeout, GC_ERR_TIMEOUT);
    Start();
    EXPECT_TRUE(m_thread.try_join_for(boost::chrono::seconds(2)));
    EXPECT_EQ(Beats(), 0u);
    EXPECT_EQ(m_hal.CallsTo("ReadReg").size(), 1u);
}

TEST_F(Heartbeat, StopDuringALongSleepIsPromptAndWritesNothing) {
    m_hal.SetReg(sk_addrHeartbeatTimeout, 20000); // 10 s per turn
    Start();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_LT(Stop(), std::chrono::milliseconds(500));
    EXPECT_EQ(Beats(), 0u);
}

} // namespace
