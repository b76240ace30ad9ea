// One simulated camera: its registers and what writing them means, its
// control privilege and heartbeat, and its channels (control, stream, TCP
// stream, messages).
#pragma once

#include "ControlPrivilege.h"
#include "FaultInjector.h"
#include "GvcpServer.h"
#include "MessageChannel.h"
#include "RegisterMap.h"
#include "SimConfig.h"
#include "StreamChannel.h"
#include "TcpStreamServer.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace gevsim {

class Camera : public GvcpHandler {
public:
    Camera(const SimConfig& config, const CameraIdentity& identity);
    ~Camera() override;

    bool start(std::string& error);
    void stop();
    const std::string& name() const { return m_name; }

    // GvcpHandler
    uint16_t readMemory(const Endpoint& from, uint32_t address, uint8_t* dst,
                        size_t length) override;
    uint16_t writeRegister(const Endpoint& from, uint32_t address, uint32_t value) override;
    uint16_t writeMemory(const Endpoint& from, uint32_t address, const uint8_t* data, size_t length,
                         size_t& written) override;
    void discoveryPayload(std::vector<uint8_t>& payload) override;
    bool forceIp(uint64_t mac, uint32_t ip, uint32_t netmask, uint32_t gateway) override;
    bool action(const ActionCommand& command) override;
    void packetResend(uint64_t blockId, bool extendedForm, uint32_t first, uint32_t last) override;
    void commandSeen(const Endpoint& from) override;
    void tick() override;
    uint32_t ip() const override { return m_ip; }
    uint32_t netmask() const override { return m_netmask; }
    uint32_t gvcpCapability() const override { return m_gvcpCapability; }
    bool pendingAckEnabled() const override;
    bool silent() const override;

private:
    void buildRegisters(const SimConfig& config);
    uint16_t applyRegister(uint32_t address, uint32_t value);
    uint16_t applyImageRegister(uint32_t address, uint32_t value);
    void controlLost(const std::string& why);
    void updatePayloadSize();
    void moveInterfaceAddress(uint32_t from, uint32_t to, uint32_t netmask);
    void recordAction(const ActionCommand& command);
    void executeAction();
    void executeDueActions();
    uint64_t ticks() const;
    bool can(const char* capability) const;

    std::string m_name;
    const SimConfig& m_config;
    uint64_t m_mac;
    std::atomic<uint32_t> m_ip;
    std::atomic<uint32_t> m_netmask;
    uint32_t m_gvcpCapability = 0;
    std::chrono::steady_clock::time_point m_started;
    std::atomic<int64_t> m_tickEpochNs{0};

    RegisterMap m_registers;
    FaultInjector m_faults;
    ControlPrivilege m_privilege;
    TcpStreamServer m_tcp;
    StreamChannel m_stream;
    MessageChannel m_messages;
    GvcpServer m_gvcp;
    std::mutex m_writeMutex; // one register write with its side effects at a time
    std::atomic<bool> m_silentLogged{false};
    std::mutex m_actionMutex;
    std::vector<uint64_t> m_scheduledActions; // times of accepted actions still to come
};

} // namespace gevsim
