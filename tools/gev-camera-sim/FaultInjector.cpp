#include "FaultInjector.h"

namespace gevsim {

FaultInjector::FaultInjector(const FaultConfig& config) : m_config(config), m_random(config.seed) {}

bool FaultInjector::chance(double rate) {
    if (rate <= 0.0)
        return false;
    std::lock_guard<std::mutex> lock(m_mutex);
    return std::uniform_real_distribution<double>(0.0, 1.0)(m_random) < rate;
}

FaultInjector::Fate FaultInjector::packetFate(uint64_t blockNumber, PacketKind kind,
                                              uint32_t packetId) {
    Fate fate;
    if (kind == PacketKind::Leader && m_config.dropLeader.fires(blockNumber))
        fate.drop = true;
    if (kind == PacketKind::Trailer && m_config.dropTrailer.fires(blockNumber))
        fate.drop = true;
    if (kind == PacketKind::Payload && m_config.burstCount > 0 &&
        blockNumber % m_config.burstEvery == 0 && packetId >= m_config.burstFirst &&
        packetId - m_config.burstFirst < m_config.burstCount)
        fate.drop = true;
    if (!fate.drop)
        fate.drop = chance(m_config.lossRate);
    if (!fate.drop) {
        fate.duplicate = chance(m_config.duplicateRate);
        fate.holdBack = chance(m_config.reorderRate);
    }
    return fate;
}

FaultInjector::EventFate FaultInjector::eventFate(uint64_t eventNumber) {
    EventFate fate;
    fate.oversize = m_config.eventOversize.fires(eventNumber);
    fate.drop = chance(m_config.eventLossRate);
    fate.duplicate = !fate.drop && chance(m_config.eventDuplicateRate);
    return fate;
}

uint32_t FaultInjector::ackDelayMs(uint64_t ackNumber) const {
    return m_config.ackDelayWhen.fires(ackNumber) ? m_config.ackDelayMs : 0;
}

bool FaultInjector::wrongAckId(uint64_t ackNumber) const {
    return m_config.wrongAckId.fires(ackNumber);
}

uint16_t FaultInjector::ackStatus(uint64_t ackNumber) const {
    return m_config.ackStatusWhen.fires(ackNumber) ? m_config.ackStatus : 0;
}

bool FaultInjector::silent(double secondsSinceStart) const {
    return m_config.silentAfterSec >= 0 && secondsSinceStart >= m_config.silentAfterSec;
}

} // namespace gevsim
