// The message channel: sends event packets to MCDA:MCP from the MCSP port,
// at the rate of the EventRate register and in bursts on a write of
// EventFire. Packets alternate EVENT and, when the camera can and
// EventDataSize is not 0, EVENTDATA with that many data bytes; EventId is
// their event id. The fault injector loses, doubles or oversizes some.
#pragma once

#include "FaultInjector.h"
#include "RegisterMap.h"
#include "UdpSocket.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace gevsim {

struct EventInfo {
    uint16_t eventId = 0;
    uint16_t blockId = 0;
    uint64_t timestamp = 0;
};

class MessageChannel {
public:
    using TickClock = std::function<uint64_t()>;
    using BlockIdSource = std::function<uint64_t()>;

    MessageChannel(std::string name, RegisterMap& registers, FaultInjector& faults, TickClock clock,
                   BlockIdSource lastBlockId, bool withEventData);
    ~MessageChannel();

    bool open(uint32_t ip, std::string& error);
    void shutdown();
    uint16_t sourcePort() const { return m_socket.localPort(); }
    void setSilent(bool silent) { m_silent = silent; }
    // Sends count events now, back to back.
    void fire(uint32_t count);

    // Packet layouts, public for the unit tests.
    static void eventPacket(uint16_t requestId, const EventInfo& e, std::vector<uint8_t>& out);
    static void eventDataPacket(uint16_t requestId, const EventInfo& e, const uint8_t* data,
                                size_t size, std::vector<uint8_t>& out);
    // The data bytes of event number n: n in 8 big-endian bytes, then a
    // pattern of n and the offset.
    static std::vector<uint8_t> eventData(uint64_t n, size_t size);
    // Datagram size of the oversized fault: beyond the largest GVCP packet.
    static constexpr size_t kOversizedDatagram = 600;

private:
    void run();
    void sendOne();

    std::string m_name;
    RegisterMap& m_registers;
    FaultInjector& m_faults;
    TickClock m_clock;
    BlockIdSource m_lastBlockId;
    bool m_withEventData;
    UdpSocket m_socket;
    std::mutex m_socketMutex;
    uint16_t m_requestId = 0;
    uint64_t m_sent = 0;

    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_running = false;
    std::atomic<bool> m_silent{false};
    std::thread m_thread;
};

} // namespace gevsim
