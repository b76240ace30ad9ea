// Decides which faults hit a packet or an ack. Random decisions come from a
// seeded generator, so a run with the same seed loses the same packets.
#pragma once

#include "SimConfig.h"

#include <cstdint>
#include <mutex>
#include <random>

namespace gevsim {

class FaultInjector {
public:
    enum class PacketKind { Leader, Payload, Trailer };
    struct Fate {
        bool drop = false;
        bool duplicate = false;
        bool holdBack = false; // sent after the next packet
    };
    struct EventFate {
        bool drop = false;
        bool duplicate = false;
        bool oversize = false;
    };

    explicit FaultInjector(const FaultConfig& config);

    // blockNumber counts the blocks of this camera from 1. Only first
    // transmissions go through here: resent packets always leave.
    Fate packetFate(uint64_t blockNumber, PacketKind kind, uint32_t packetId);

    // eventNumber counts the event packets of this camera from 1.
    EventFate eventFate(uint64_t eventNumber);

    // ackNumber counts the register and memory acks from 1.
    uint32_t ackDelayMs(uint64_t ackNumber) const;
    bool wrongAckId(uint64_t ackNumber) const;
    uint16_t ackStatus(uint64_t ackNumber) const;
    bool silent(double secondsSinceStart) const;
    const std::vector<AckRule>& ackRules() const { return m_config.ackRules; }
    // True when reads of the register lie; value is what they answer.
    bool lie(uint32_t address, uint32_t& value) const;
    // The forgery that replaces data packet `packetId`, or null.
    const PacketForgery* forgery(uint32_t packetId) const;
    // How many packets later than its turn data packet `packetId` goes out.
    uint32_t lateBy(uint32_t packetId) const;
    const FaultConfig& config() const { return m_config; }

    // What happens to the n-th frame of a TCP stream connection.
    enum class TcpFrameFault { None, Reset, Stall, Oversize };
    TcpFrameFault tcpFrameFault(uint64_t frameOnConnection) const;
    bool refuseTcp() const { return m_config.tcpRefuse; }

private:
    bool chance(double rate);

    FaultConfig m_config;
    std::mutex m_mutex;
    std::mt19937 m_random;
};

} // namespace gevsim
