#include "MessageChannel.h"

#include "GevConstants.h"
#include "Log.h"
#include "Wire.h"

#include <algorithm>
#include <cstring>

namespace gevsim {

namespace {
float toFloat(uint32_t bits) {
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

void eventHeader(uint16_t command, uint16_t requestId, const EventInfo& e, size_t extra,
                 std::vector<uint8_t>& out) {
    // No acknowledge is asked for: the camera does not retransmit events.
    out.assign(8 + 16, 0);
    out[0] = kGvcpKey;
    out[1] = 0;
    put16(out, 2, command);
    put16(out, 4, static_cast<uint16_t>(16 + extra));
    put16(out, 6, requestId);
    put16(out, 10, e.eventId);
    put16(out, 12, 0); // stream channel index
    put16(out, 14, e.blockId);
    put64(out, 16, e.timestamp);
}
} // namespace

MessageChannel::MessageChannel(std::string name, RegisterMap& registers, FaultInjector& faults,
                               TickClock clock, BlockIdSource lastBlockId, bool withEventData)
    : m_name(std::move(name)), m_registers(registers), m_faults(faults), m_clock(std::move(clock)),
      m_lastBlockId(std::move(lastBlockId)), m_withEventData(withEventData) {}

MessageChannel::~MessageChannel() {
    shutdown();
}

void MessageChannel::eventPacket(uint16_t requestId, const EventInfo& e,
                                 std::vector<uint8_t>& out) {
    eventHeader(cmd::kEvent, requestId, e, 0, out);
}

void MessageChannel::eventDataPacket(uint16_t requestId, const EventInfo& e, const uint8_t* data,
                                     size_t size, std::vector<uint8_t>& out) {
    size = std::min(size, kGvcpMaxDatagram - 24);
    eventHeader(cmd::kEventData, requestId, e, size, out);
    out.insert(out.end(), data, data + size);
}

std::vector<uint8_t> MessageChannel::eventData(uint64_t n, size_t size) {
    std::vector<uint8_t> data(size);
    for (size_t i = 0; i < size; ++i)
        data[i] = i < 8 ? static_cast<uint8_t>(n >> (56 - 8 * i)) : static_cast<uint8_t>(n + i * 7);
    return data;
}

bool MessageChannel::open(uint32_t ip, std::string& error) {
    {
        std::lock_guard<std::mutex> lock(m_socketMutex);
        if (!m_socket.open(ip, 0, false, error))
            return false;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_running) {
        m_running = true;
        m_thread = std::thread(&MessageChannel::run, this);
    }
    return true;
}

void MessageChannel::shutdown() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_running = false;
    }
    m_wake.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

void MessageChannel::run() {
    std::unique_lock<std::mutex> lock(m_mutex);
    auto next = std::chrono::steady_clock::now();
    while (m_running) {
        const float rate = toFloat(m_registers.get(reg::kEventRate));
        if (!(rate > 0.0f)) {
            m_wake.wait_for(lock, std::chrono::milliseconds(50), [&] { return !m_running; });
            next = std::chrono::steady_clock::now();
            continue;
        }
        lock.unlock();
        sendOne();
        lock.lock();
        next += std::chrono::duration_cast<std::chrono::steady_clock::duration>(
            std::chrono::duration<double>(1.0 / rate));
        const auto now = std::chrono::steady_clock::now();
        if (next < now)
            next = now;
        m_wake.wait_until(lock, next, [&] { return !m_running; });
    }
}

void MessageChannel::fire(uint32_t count) {
    for (uint32_t i = 0; i < count; ++i)
        sendOne();
}

void MessageChannel::sendOne() {
    const uint32_t ip = m_registers.get(reg::kMcda);
    const uint16_t port = static_cast<uint16_t>(m_registers.get(reg::kMcp) & 0xFFFF);
    if (m_silent || ip == 0 || port == 0)
        return;
    EventInfo e;
    e.eventId = static_cast<uint16_t>(m_registers.get(reg::kEventId));
    e.blockId = static_cast<uint16_t>(m_lastBlockId());
    e.timestamp = m_clock();
    const size_t dataSize = m_registers.get(reg::kEventDataSize);
    std::vector<uint8_t> packet;
    std::lock_guard<std::mutex> lock(m_socketMutex);
    m_requestId = static_cast<uint16_t>(m_requestId + 1 == 0x10000 ? 1 : m_requestId + 1);
    ++m_sent;
    const FaultInjector::EventFate fate = m_faults.eventFate(m_sent);
    if (fate.oversize) {
        const std::vector<uint8_t> data = eventData(m_sent, kOversizedDatagram - 24);
        eventDataPacket(m_requestId, e, data.data(), data.size(), packet);
        packet.resize(kOversizedDatagram, 0xEE);
        put16(packet, 4, static_cast<uint16_t>(packet.size() - 8));
    } else if (m_withEventData && dataSize > 0 && m_sent % 2 == 0) {
        const std::vector<uint8_t> data = eventData(m_sent, dataSize);
        eventDataPacket(m_requestId, e, data.data(), data.size(), packet);
    } else {
        eventPacket(m_requestId, e, packet);
    }
    if (fate.drop) {
        Log::write(2, m_name, "fault: event " + std::to_string(m_sent) + " lost");
        return;
    }
    for (int copy = 0; copy < (fate.duplicate ? 2 : 1); ++copy) {
        if (!m_socket.sendTo(ip, port, packet.data(), packet.size())) {
            Log::write(1, m_name, "event could not be sent");
            return;
        }
    }
    Log::write(2, m_name, "event " + std::to_string(m_sent) + " sent");
}

} // namespace gevsim
