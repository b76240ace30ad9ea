// The control channel: a UDP server on port 3956 that parses GVCP commands,
// hands them to the device behind GvcpHandler, and writes the acks, with
// pending acks for slow replies and the ack faults of the FaultInjector,
// the hostile ones (AckRule) included.
#pragma once

#include "ControlPrivilege.h"
#include "FaultInjector.h"
#include "UdpSocket.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace gevsim {

// An action command as it arrived.
struct ActionCommand {
    uint32_t deviceKey = 0;
    uint32_t groupKey = 0;
    uint32_t groupMask = 0;
    bool scheduled = false;
    uint64_t time = 0; // when scheduled: the camera timestamp to act at
    size_t length = 0; // bytes of the datagram
    Endpoint from;
};

// What the server needs of the camera. Status results are GVCP codes.
class GvcpHandler {
public:
    virtual ~GvcpHandler() = default;
    virtual uint16_t readMemory(const Endpoint& from, uint32_t address, uint8_t* dst,
                                size_t length) = 0;
    virtual uint16_t writeRegister(const Endpoint& from, uint32_t address, uint32_t value) = 0;
    // written is the count of bytes that were written.
    virtual uint16_t writeMemory(const Endpoint& from, uint32_t address, const uint8_t* data,
                                 size_t length, size_t& written) = 0;
    virtual void discoveryPayload(std::vector<uint8_t>& payload) = 0;
    // True when the MAC is this camera's and the address was taken.
    virtual bool forceIp(uint64_t mac, uint32_t ip, uint32_t netmask, uint32_t gateway) = 0;
    // Every well-formed action command; true when its keys select this camera.
    virtual bool action(const ActionCommand& command) = 0;
    virtual void packetResend(uint64_t blockId, bool extendedForm, uint32_t first,
                              uint32_t last) = 0;
    virtual void commandSeen(const Endpoint& from) = 0;
    // Called every few milliseconds: heartbeat expiry and the like.
    virtual void tick() = 0;
    virtual uint32_t ip() const = 0;
    virtual uint32_t netmask() const = 0;
    virtual uint32_t gvcpCapability() const = 0;
    virtual bool pendingAckEnabled() const = 0;
    virtual bool silent() const = 0;
};

class GvcpServer {
public:
    GvcpServer(std::string name, GvcpHandler& handler, FaultInjector& faults);
    ~GvcpServer();

    bool open(std::string& error);
    // After a ForceIP: the unicast socket follows the camera's new address.
    bool rebind(std::string& error);
    void shutdown();

private:
    void run();
    void handle(const uint8_t* d, size_t n, const Endpoint& from, bool viaBroadcast);
    void reply(const Endpoint& to, const std::vector<uint8_t>& ack, bool broadcastAllowed);
    static void ackHeader(std::vector<uint8_t>& ack, uint16_t status, uint16_t code,
                          uint16_t length, uint16_t id);
    // Sends a register or memory ack through the rules that hit its address.
    void deliver(const Endpoint& to, uint32_t address, std::vector<uint8_t> ack);
    // Sends datagram count times, gapMs apart, or without end for count 0.
    // False when the series was cut short: by shutdown, or (without end) by
    // a new datagram from the host, which is then served instead.
    bool series(const Endpoint& to, const std::vector<uint8_t>& datagram, uint32_t count,
                uint32_t gapMs);

    void readReg(const uint8_t* d, size_t n, const Endpoint& from, std::vector<uint8_t>& ack);
    void writeReg(const uint8_t* d, size_t n, const Endpoint& from, std::vector<uint8_t>& ack);
    void readMem(const uint8_t* d, size_t n, const Endpoint& from, std::vector<uint8_t>& ack);
    void writeMem(const uint8_t* d, size_t n, const Endpoint& from, std::vector<uint8_t>& ack);

    std::string m_name;
    GvcpHandler& m_handler;
    FaultInjector& m_faults;
    UdpSocket m_unicast;
    UdpSocket m_broadcast;
    std::vector<std::unique_ptr<UdpSocket>> m_forgers; // per ack rule; null unless Forge
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_rebind{false};
    std::thread m_thread;
    uint64_t m_acks = 0;
};

} // namespace gevsim
