#pragma once

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>

namespace GenTL {

/**
 * The wait of DSWaitForNextLeader, shared by both stream transports: each
 * arrival of a block's first data frees one waiter; Close frees them all and
 * waits until they have left, so that the gate can be destroyed.
 */
class LeaderGate {
public:
    /// A block's first data arrived.
    void Arrive();
    /// Forgets an arrival nobody waited for (a new start).
    void Reset();
    /// Waits for an arrival, for ever or up to timeoutMs; true if one came.
    bool Wait(bool forever, unsigned long timeoutMs);
    /// Frees every waiter, now and later, and returns once none is left.
    void Close();
    /// Number of threads waiting now.
    int Waiters();

private:
    boost::condition_variable m_condition;
    boost::mutex m_mutex;
    bool m_arrived = false;
    /// Threads inside Wait; Close waits for them to leave.
    int m_waiters = 0;
    bool m_closing = false;
};

} // namespace GenTL
