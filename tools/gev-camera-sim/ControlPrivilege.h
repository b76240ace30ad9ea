// Who controls the camera: the control channel privilege register with its
// exclusive, control and switchover rules, and the heartbeat that takes the
// privilege away from a primary application that went quiet.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>

namespace gevsim {

struct Endpoint {
    uint32_t ip = 0; // host order
    uint16_t port = 0;
    bool operator==(const Endpoint& o) const { return ip == o.ip && port == o.port; }
};

class ControlPrivilege {
public:
    using Clock = std::chrono::steady_clock;

    explicit ControlPrivilege(bool switchoverCapable);

    // A write of the privilege register; returns a GVCP status. lostControl
    // is set when the write ended a primary's control.
    uint16_t write(const Endpoint& from, uint32_t value, uint32_t switchoverKey,
                   Clock::time_point now, bool& lostControl);
    uint32_t value() const;
    bool hasPrimary() const;
    Endpoint primary() const;

    bool mayRead(const Endpoint& from) const;
    bool mayWrite(const Endpoint& from) const;

    // Any command of the primary application counts as a heartbeat.
    void touch(const Endpoint& from, Clock::time_point now);
    // True when the primary was silent for longer than timeoutMs; it then
    // loses control.
    bool expire(Clock::time_point now, uint32_t timeoutMs);

private:
    bool m_switchoverCapable;
    mutable std::mutex m_mutex;
    bool m_hasPrimary = false;
    Endpoint m_primary;
    uint32_t m_value = 0;
    Clock::time_point m_lastSeen;
};

} // namespace gevsim
