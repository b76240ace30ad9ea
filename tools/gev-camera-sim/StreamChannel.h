// Stream channel 0: produces blocks at the frame rate while acquisition
// runs, sends them as GVSP packets to SCDA:SCP (or as TCP frames when SCP is
// the TCP port), answers the test packet, and serves resend requests from a
// ring of the most recent blocks.
#pragma once

#include "FaultInjector.h"
#include "GvspPacketWriter.h"
#include "RegisterMap.h"
#include "TcpStreamServer.h"
#include "TestPattern.h"
#include "UdpSocket.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace gevsim {

class StreamChannel {
public:
    using TickClock = std::function<uint64_t()>;

    StreamChannel(std::string name, RegisterMap& registers, FaultInjector& faults,
                  TcpStreamServer& tcp, TickClock clock, uint32_t ringBlocks);
    ~StreamChannel();

    bool open(uint32_t ip, std::string& error);
    void shutdown();
    uint16_t sourcePort() const { return m_socket.localPort(); }

    void startAcquisition();
    void stopAcquisition();
    /// Block ids start again at first: a camera does so when its channel opens.
    void restartBlockIds(uint64_t first);
    bool acquiring() const { return m_acquiring; }
    void setSilent(bool silent) { m_silent = silent; }

    void fireTestPacket(uint32_t scps);
    void resend(uint64_t blockId, bool extendedForm, uint32_t first, uint32_t last);
    uint64_t lastBlockId() const { return m_lastBlockId; }

private:
    struct Settings {
        uint32_t destIp = 0;
        uint16_t destPort = 0;
        uint32_t packetSize = 0;
        bool dontFragment = false;
        uint64_t delayTicks = 0;
        bool extended = false;
    };
    struct RingEntry {
        BlockInfo block;
        bool extended;
        uint32_t packetSize;
        TestPattern pattern;
    };

    void run();
    Settings settings() const;
    bool produceBlock(uint64_t blockNumber);
    void sendUdpBlock(const RingEntry& entry, const std::vector<uint8_t>& data,
                      uint64_t blockNumber, const Settings& s);
    void sendPacket(const std::vector<uint8_t>& packet, const Settings& s);
    void pace(const Settings& s);
    uint64_t nextBlockId(bool extended);

    std::string m_name;
    RegisterMap& m_registers;
    FaultInjector& m_faults;
    TcpStreamServer& m_tcp;
    TickClock m_clock;
    uint32_t m_ringBlocks;

    UdpSocket m_socket;
    std::mutex m_sendMutex; // one sender at a time: the stream loop or a resend
    std::chrono::steady_clock::time_point m_nextSend;

    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_running = false;
    std::atomic<bool> m_acquiring{false};
    std::atomic<bool> m_silent{false};
    std::thread m_thread;

    std::mutex m_ringMutex;
    std::deque<RingEntry> m_ring;
    std::atomic<uint64_t> m_blockId{0};
    std::atomic<uint64_t> m_lastBlockId{0};
};

} // namespace gevsim
