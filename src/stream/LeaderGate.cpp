#include "stream/LeaderGate.h"

#include <boost/thread/locks.hpp>

namespace GenTL {

void LeaderGate::Arrive() {
    boost::lock_guard<boost::mutex> lock(m_mutex);
    m_arrived = true;
    m_condition.notify_all();
}

void LeaderGate::Reset() {
    boost::lock_guard<boost::mutex> lock(m_mutex);
    m_arrived = false;
}

bool LeaderGate::Wait(bool forever, unsigned long timeoutMs) {
    boost::unique_lock<boost::mutex> lock(m_mutex);
    ++m_waiters;
    if (forever) {
        while (!m_arrived) {
            m_condition.wait(lock);
        }
    } else {
        const boost::system_time deadline =
            boost::get_system_time() + boost::posix_time::milliseconds(timeoutMs);
        while (!m_arrived && m_condition.timed_wait(lock, deadline)) {
        }
    }
    const bool arrived = m_arrived;
    if (arrived && !m_closing) {
        // Each arrival frees one wait.
        m_arrived = false;
    }
    if (--m_waiters == 0 && m_closing) {
        m_condition.notify_all();
    }
    return arrived;
}

void LeaderGate::Close() {
    boost::unique_lock<boost::mutex> lock(m_mutex);
    m_arrived = true;
    m_closing = true;
    m_condition.notify_all();
    while (m_waiters > 0) {
        m_condition.wait(lock);
    }
}

int LeaderGate::Waiters() {
    boost::lock_guard<boost::mutex> lock(m_mutex);
    return m_waiters;
}

} // namespace GenTL
