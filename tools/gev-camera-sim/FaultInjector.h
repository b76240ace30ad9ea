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

private:
    bool chance(double rate);

    FaultConfig m_config;
    std::mutex m_mutex;
    std::mt19937 m_random;
};

} // namespace gevsim
