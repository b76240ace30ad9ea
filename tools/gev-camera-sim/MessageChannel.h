// The message channel: sends event packets (EVENT and, when the camera can,
// EVENTDATA) to MCDA:MCP at the rate of the EventRate register.
#pragma once

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

    MessageChannel(std::string name, RegisterMap& registers, TickClock clock,
                   BlockIdSource lastBlockId, bool withEventData);
    ~MessageChannel();

    bool open(uint32_t ip, std::string& error);
    void shutdown();
    uint16_t sourcePort() const { return m_socket.localPort(); }
    void setSilent(bool silent) { m_silent = silent; }

    // Packet layouts, public for the unit tests.
    static void eventPacket(uint16_t requestId, const EventInfo& e, std::vector<uint8_t>& out);
    static void eventDataPacket(uint16_t requestId, const EventInfo& e, const uint8_t* data,
                                size_t size, std::vector<uint8_t>& out);

private:
    void run();
    void sendOne();

    std::string m_name;
    RegisterMap& m_registers;
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
