#include "ControlPrivilege.h"

#include "GevConstants.h"

namespace gevsim {

ControlPrivilege::ControlPrivilege(bool switchoverCapable)
    : m_switchoverCapable(switchoverCapable) {}

uint16_t ControlPrivilege::write(const Endpoint& from, uint32_t value, uint32_t switchoverKey,
                                 Clock::time_point now, bool& lostControl) {
    std::lock_guard<std::mutex> lock(m_mutex);
    lostControl = false;
    const uint32_t bits = value & (ccp::kExclusive | ccp::kControl | ccp::kSwitchoverEnable);
    const bool wantsControl = (bits & (ccp::kExclusive | ccp::kControl)) != 0;
    const uint32_t stored = m_switchoverCapable ? bits : bits & ~ccp::kSwitchoverEnable;

    if (m_hasPrimary && m_primary == from) {
        if (!wantsControl) {
            m_hasPrimary = false;
            m_value = 0;
            lostControl = true;
        } else {
            m_value = stored;
        }
        m_lastSeen = now;
        return status::kSuccess;
    }
    if (!m_hasPrimary) {
        if (wantsControl) {
            m_hasPrimary = true;
            m_primary = from;
            m_value = stored;
            m_lastSeen = now;
        }
        return status::kSuccess;
    }
    // Another application holds the camera: only a switchover with the
    // right key takes it over, and never from an exclusive holder.
    const bool switchoverOpen =
        m_switchoverCapable && (m_value & ccp::kSwitchoverEnable) && !(m_value & ccp::kExclusive);
    if (switchoverOpen && wantsControl && (value >> 16) == (switchoverKey & 0xFFFF)) {
        m_primary = from;
        m_value = stored;
        m_lastSeen = now;
        lostControl = true;
        return status::kSuccess;
    }
    return status::kAccessDenied;
}

uint32_t ControlPrivilege::value() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_value;
}

bool ControlPrivilege::hasPrimary() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_hasPrimary;
}

Endpoint ControlPrivilege::primary() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_hasPrimary ? m_primary : Endpoint{};
}

bool ControlPrivilege::mayRead(const Endpoint& from) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return !m_hasPrimary || m_primary == from || !(m_value & ccp::kExclusive);
}

bool ControlPrivilege::mayWrite(const Endpoint& from) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_hasPrimary && m_primary == from;
}

void ControlPrivilege::touch(const Endpoint& from, Clock::time_point now) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_hasPrimary && m_primary == from)
        m_lastSeen = now;
}

bool ControlPrivilege::expire(Clock::time_point now, uint32_t timeoutMs) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_hasPrimary || now - m_lastSeen <= std::chrono::milliseconds(timeoutMs))
        return false;
    m_hasPrimary = false;
    m_value = 0;
    return true;
}

} // namespace gevsim
