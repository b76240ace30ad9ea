#pragma once
/**
 * The heartbeat of a device opened for control.
 *
 * A camera keeps an application's control only while that application
 * talks to it within the camera's heartbeat timeout (register 0x0938). One
 * thread per controlled device re-writes that register's own value every
 * half timeout (never more often than every 100 ms), reading it afresh each
 * turn so that a changed timeout is followed from the next turn on:
 *
 *   running = true;
 *   thread = boost::thread(HeartbeatThread, hal, hDevice, std::cref(running));
 *   ...
 *   running = false; thread.interrupt(); thread.join();
 *
 * The thread knows nothing of a lost device: its transactions count their
 * timeouts on the device handle like any other, which is how a silent
 * camera becomes "not connected". Failures are logged and never end the
 * loop, except a failed first read of the timeout, which ends the thread.
 */
#include <atomic>

namespace GenTL {

class IHALGev;

/// Heartbeat timeout register of the camera (milliseconds).
constexpr unsigned sk_addrHeartbeatTimeout = 0x0938;

/**
 * Runs the heartbeat of hDevice until running is false or the thread is
 * interrupted. Applies ThreadPriority::m_priorityHeartbeatThread first.
 */
void HeartbeatThread(IHALGev* hal, void* hDevice, const std::atomic<bool>& running);

} // namespace GenTL
