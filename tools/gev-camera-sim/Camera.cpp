#include "Camera.h"

#include "GenApiXml.h"
#include "GevConstants.h"
#include "Log.h"
#include "StoredZip.h"
#include "Wire.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace gevsim {

namespace {
using Access = RegisterMap::Access;
constexpr uint32_t kMinHeartbeatMs = 500;
constexpr uint32_t kPendingTimeoutMs = 200;
constexpr uint32_t kMinPacketSize = 576;
constexpr uint64_t kTickFrequency = 1000000000ull;
constexpr size_t kMaxScheduledActions = 16;

uint32_t floatBits(float f) {
    uint32_t bits;
    std::memcpy(&bits, &f, sizeof bits);
    return bits;
}

float toFloat(uint32_t bits) {
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

// The description as the camera keeps it: the XML, or a zip archive of it.
std::vector<uint8_t> xmlFile(bool zipped) {
    if (zipped)
        return storedZip("KestaSimCamera.xml", kGenApiXml, kGenApiXmlSize);
    return std::vector<uint8_t>(kGenApiXml, kGenApiXml + kGenApiXmlSize);
}

std::string xmlUrl(bool zipped, size_t size) {
    char url[96];
    std::snprintf(url, sizeof url, "Local:KestaSimCamera.%s;%X;%zX", zipped ? "zip" : "xml",
                  reg::kXmlFile, size);
    return url;
}
} // namespace

Camera::Camera(const SimConfig& config, const CameraIdentity& identity)
    : m_name(identity.serial), m_config(config), m_mac(identity.mac), m_ip(identity.ip),
      m_netmask(identity.netmask), m_started(std::chrono::steady_clock::now()),
      m_faults(config.faults), m_privilege(!config.isDisabled("switchover")),
      m_tcp(m_name, m_faults),
      m_stream(
          m_name, m_registers, m_faults, m_tcp, [this] { return ticks(); }, config.ringBlocks),
      m_messages(
          m_name, m_registers, m_faults, [this] { return ticks(); },
          [this] { return m_stream.lastBlockId(); }, !config.isDisabled("eventdata")),
      m_gvcp(m_name, *this, m_faults) {
    buildRegisters(config);
    m_registers.setString(reg::kUserName, identity.userName);
    m_registers.set(reg::kGateway, identity.gateway);
}

Camera::~Camera() {
    stop();
}

bool Camera::can(const char* capability) const {
    return !m_config.isDisabled(capability);
}

void Camera::buildRegisters(const SimConfig& c) {
    RegisterMap& r = m_registers;
    uint32_t gvcp = gvcpcap::kExtendedStatus11;
    const std::pair<const char*, uint32_t> gvcpBits[] = {
        {"user-name", gvcpcap::kUserName},
        {"serial-number", gvcpcap::kSerialNumber},
        {"heartbeat-disable", gvcpcap::kHeartbeatDisable},
        {"ccp-application", gvcpcap::kCcpApplication},
        {"manifest", gvcpcap::kManifest},
        {"test-data", gvcpcap::kTestData},
        {"switchover", gvcpcap::kSwitchover},
        {"action", gvcpcap::kAction},
        {"scheduled-action", gvcpcap::kScheduledAction},
        {"pending-ack", gvcpcap::kPendingAck},
        {"eventdata", gvcpcap::kEventData},
        {"event", gvcpcap::kEvent},
        {"resend", gvcpcap::kPacketResend},
        {"writemem", gvcpcap::kWriteMem},
        {"concatenation", gvcpcap::kConcatenation}};
    for (const auto& b : gvcpBits)
        if (can(b.first))
            gvcp |= b.second;
    if (!can("action"))
        gvcp &= ~gvcpcap::kScheduledAction;
    if (!can("event"))
        gvcp &= ~gvcpcap::kEventData;
    m_gvcpCapability = gvcp;
    const uint32_t gvsp = (can("scsp") ? gvspcap::kScsp : 0) |
                          (can("extended-id") && c.gevMajor >= 2 ? gvspcap::kExtendedId : 0);

    r.addRegister(reg::kVersion, static_cast<uint32_t>(c.gevMajor) << 16 | c.gevMinor,
                  Access::ReadOnly);
    r.addRegister(reg::kDeviceMode, 0x80000001, Access::ReadOnly); // big-endian, UTF-8
    r.addRegister(reg::kMacHigh, static_cast<uint32_t>(m_mac >> 32), Access::ReadOnly);
    r.addRegister(reg::kMacLow, static_cast<uint32_t>(m_mac), Access::ReadOnly);
    r.addRegister(reg::kIpConfigOptions, 0x7, Access::ReadOnly);
    r.addRegister(reg::kIpConfigCurrent, 0x5, Access::ReadOnly); // persistent IP and LLA
    r.addRegister(reg::kCurrentIp, m_ip, Access::ReadOnly);
    r.addRegister(reg::kSubnetMask, m_netmask, Access::ReadOnly);
    r.addRegister(reg::kGateway, 0, Access::ReadOnly);
    r.addString(reg::kManufacturerName, 32, c.vendor, Access::ReadOnly);
    r.addString(reg::kModelName, 32, c.model, Access::ReadOnly);
    r.addString(reg::kDeviceVersion, 32, c.deviceVersion, Access::ReadOnly);
    r.addString(reg::kManufacturerInfo, 48, "simulated GigE Vision camera", Access::ReadOnly);
    r.addString(reg::kSerialNumber, 16, m_name, Access::ReadOnly);
    r.addString(reg::kUserName, 16, "", can("user-name") ? Access::ReadWrite : Access::ReadOnly);
    const std::vector<uint8_t> xml = xmlFile(c.zipXml);
    r.addString(reg::kFirstUrl, 512, xmlUrl(c.zipXml, xml.size()), Access::ReadOnly);
    r.addString(reg::kSecondUrl, 512, xmlUrl(c.zipXml, xml.size()), Access::ReadOnly);
    r.addRegister(reg::kNumInterfaces, 1, Access::ReadOnly);
    r.addRegister(0x064C, 0, Access::ReadWrite); // persistent IP, mask, gateway
    r.addRegister(0x065C, 0, Access::ReadWrite);
    r.addRegister(0x066C, 0, Access::ReadWrite);
    r.addRegister(reg::kNumMessageChannels, 1, Access::ReadOnly);
    r.addRegister(reg::kNumStreamChannels, 1, Access::ReadOnly);
    r.addRegister(reg::kNumActionSignals, can("action") ? 1 : 0, Access::ReadOnly);
    r.addRegister(reg::kActionDeviceKey, 0, Access::WriteOnly);
    r.addRegister(reg::kGvspCapability, gvsp, Access::ReadOnly);
    r.addRegister(reg::kMessageCapability, can("mcsp") ? mccap::kMcsp : 0, Access::ReadOnly);
    r.addRegister(reg::kGvcpCapability, gvcp, Access::ReadOnly);
    r.addRegister(reg::kHeartbeatTimeout, std::max(c.heartbeatMs, kMinHeartbeatMs),
                  Access::ReadWrite);
    r.addRegister(reg::kTickFrequencyHigh, static_cast<uint32_t>(kTickFrequency >> 32),
                  Access::ReadOnly);
    r.addRegister(reg::kTickFrequencyLow, static_cast<uint32_t>(kTickFrequency), Access::ReadOnly);
    r.addRegister(reg::kTimestampControl, 0, Access::WriteOnly);
    r.addRegister(reg::kTimestampHigh, 0, Access::ReadOnly);
    r.addRegister(reg::kTimestampLow, 0, Access::ReadOnly);
    r.addRegister(reg::kGvcpConfig, 0, Access::ReadWrite);
    r.addRegister(reg::kPendingTimeout, kPendingTimeoutMs, Access::ReadOnly);
    r.addRegister(reg::kSwitchoverKey, 0, Access::WriteOnly);
    r.addRegister(reg::kGvspConfig, 0, Access::ReadWrite);
    r.addRegister(reg::kCcp, 0, Access::ReadWrite);
    if (can("ccp-application")) {
        r.addRegister(reg::kPrimaryPort, 0, Access::ReadOnly);
        r.addRegister(reg::kPrimaryIp, 0, Access::ReadOnly);
    }
    r.addRegister(reg::kMcp, 0, Access::ReadWrite);
    r.addRegister(reg::kMcda, 0, Access::ReadWrite);
    r.addRegister(reg::kMctt, 300, Access::ReadWrite);
    r.addRegister(reg::kMcrc, 0, Access::ReadWrite);
    if (can("mcsp"))
        r.addRegister(reg::kMcsp, 0, Access::ReadOnly);
    r.addRegister(reg::kScp, 0, Access::ReadWrite);
    r.addRegister(reg::kScps, scps::kBigEndian | c.packetSize, Access::ReadWrite);
    r.addRegister(reg::kScpd, 0, Access::ReadWrite);
    r.addRegister(reg::kScda, 0, Access::ReadWrite);
    if (can("scsp"))
        r.addRegister(reg::kScsp, 0, Access::ReadOnly);
    r.addRegister(0x0D20, 0, Access::ReadOnly);  // stream channel capability
    r.addRegister(0x0D24, 0, Access::ReadWrite); // stream channel configuration
    if (can("manifest")) {
        // One entry: the XML's file and schema versions, and where its URL is.
        r.addRegister(reg::kManifest, 1u << 26, Access::ReadOnly);
        r.addRegister(reg::kManifest + 4, 0, Access::ReadOnly);
        r.addRegister(reg::kManifest + 8, 1u << 26 | 1u << 8 | 1u << 2, Access::ReadOnly);
        r.addRegister(reg::kManifest + 12, reg::kFirstUrl, Access::ReadOnly);
    }
    if (can("action")) {
        r.addRegister(reg::kActionGroupKey, 0, Access::ReadWrite);
        r.addRegister(reg::kActionGroupMask, 0, Access::ReadWrite);
    }

    r.addRegister(reg::kWidth, c.width, Access::ReadWrite);
    r.addRegister(reg::kHeight, c.height, Access::ReadWrite);
    r.addRegister(reg::kPixelFormat, c.pixelFormat, Access::ReadWrite);
    r.addRegister(reg::kPayloadSize, 0, Access::ReadOnly);
    r.addRegister(reg::kAcquisitionMode, 0, Access::ReadWrite);
    r.addRegister(reg::kAcquisitionStart, 0, Access::WriteOnly);
    r.addRegister(reg::kAcquisitionStop, 0, Access::WriteOnly);
    r.addRegister(reg::kAcquisitionFrameRate, floatBits(static_cast<float>(c.frameRate)),
                  Access::ReadWrite);
    r.addRegister(reg::kTestPattern, TestPattern::BlockStamp, Access::ReadWrite);
    r.addRegister(reg::kAcquisitionFrameCount, 1, Access::ReadWrite);
    r.addRegister(reg::kVariableSize, c.variableSize ? 1 : 0, Access::ReadWrite);
    r.addRegister(reg::kEventRate, floatBits(static_cast<float>(c.eventRate)), Access::ReadWrite);
    r.addRegister(reg::kActionCount, 0, Access::ReadOnly);
    r.addRegister(reg::kBlocksSent, 0, Access::ReadOnly);
    r.addRegister(reg::kTLParamsLocked, 0, Access::ReadWrite);
    r.addRegister(reg::kEventFire, 0, Access::WriteOnly);
    r.addRegister(reg::kEventId, c.eventId, Access::ReadWrite);
    r.addRegister(reg::kEventDataSize, c.eventDataSize, Access::ReadWrite);
    for (uint32_t a = reg::kActionsReceived; a <= reg::kLastActionSource; a += 4)
        r.addRegister(a, 0, Access::ReadOnly);
    r.addMemory(reg::kXmlFile, (xml.size() + 3) / 4 * 4, Access::ReadOnly);
    r.setBytes(reg::kXmlFile, xml.data(), xml.size());
    updatePayloadSize();
}

bool Camera::start(std::string& error) {
    if (!m_stream.open(m_ip, error) || !m_tcp.open(m_ip, error))
        return false;
    if (can("scsp"))
        m_registers.set(reg::kScsp, m_stream.sourcePort());
    if (can("event")) {
        if (!m_messages.open(m_ip, error))
            return false;
        if (can("mcsp"))
            m_registers.set(reg::kMcsp, m_messages.sourcePort());
    }
    if (!m_gvcp.open(error))
        return false;
    Log::write(1, m_name, "camera up at " + ipToString(m_ip));
    return true;
}

void Camera::stop() {
    m_gvcp.shutdown();
    m_messages.shutdown();
    m_stream.shutdown();
    m_tcp.shutdown();
}

uint64_t Camera::ticks() const {
    const int64_t ns = std::chrono::duration_cast<std::chrono::nanoseconds>(
                           std::chrono::steady_clock::now() - m_started)
                           .count();
    return static_cast<uint64_t>(ns - m_tickEpochNs) + 1; // never 0: 0 means no timestamp
}

bool Camera::pendingAckEnabled() const {
    return (m_gvcpCapability & gvcpcap::kPendingAck) &&
           (m_registers.get(reg::kGvcpConfig) & gvcpcfg::kPendingAckEnable);
}

bool Camera::silent() const {
    const double s =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - m_started).count();
    return m_faults.silent(s);
}

uint16_t Camera::readMemory(const Endpoint& from, uint32_t address, uint8_t* dst, size_t length) {
    if (!m_privilege.mayRead(from))
        return status::kAccessDenied;
    const uint16_t st = m_registers.read(address, dst, length);
    uint32_t lie = 0;
    if (st == status::kSuccess && length == 4 && m_faults.lie(address, lie))
        for (int i = 0; i < 4; ++i)
            dst[i] = static_cast<uint8_t>(lie >> (24 - 8 * i));
    return st;
}

uint16_t Camera::writeRegister(const Endpoint& from, uint32_t address, uint32_t value) {
    std::lock_guard<std::mutex> lock(m_writeMutex);
    if (address == reg::kCcp) {
        bool lost = false;
        const uint16_t st = m_privilege.write(from, value, m_registers.get(reg::kSwitchoverKey),
                                              std::chrono::steady_clock::now(), lost);
        if (st != status::kSuccess) {
            Log::write(1, m_name, "control refused to " + ipToString(from.ip));
            return st;
        }
        if (lost && !m_privilege.hasPrimary())
            controlLost("released by the primary application");
        else if (lost)
            Log::write(1, m_name, "control switched over to " + ipToString(from.ip));
        else if (m_privilege.hasPrimary())
            Log::write(1, m_name, "control taken by " + ipToString(from.ip));
        const Endpoint p = m_privilege.primary();
        m_registers.set(reg::kCcp, m_privilege.value());
        m_registers.set(reg::kPrimaryPort, p.port);
        m_registers.set(reg::kPrimaryIp, p.ip);
        return st;
    }
    if (!m_privilege.mayWrite(from))
        return status::kAccessDenied;
    const uint16_t st = m_registers.checkWrite(address, 4);
    if (st != status::kSuccess)
        return st;
    return applyRegister(address, value);
}

uint16_t Camera::writeMemory(const Endpoint& from, uint32_t address, const uint8_t* data,
                             size_t length, size_t& written) {
    std::lock_guard<std::mutex> lock(m_writeMutex);
    written = 0;
    if (!m_privilege.mayWrite(from))
        return status::kAccessDenied;
    uint16_t st = m_registers.checkWrite(address, length);
    if (st != status::kSuccess)
        return st;
    // Registers inside the range keep their meaning; plain memory is copied.
    for (size_t k = 0; k + 4 <= length; k += 4) {
        const uint32_t at = address + static_cast<uint32_t>(k);
        if (m_registers.isRegister(at)) {
            st = applyRegister(at, get32(data, length, k));
            if (st != status::kSuccess)
                return st;
        } else {
            m_registers.setBytes(at, data + k, 4);
        }
        written += 4;
    }
    return status::kSuccess;
}

uint16_t Camera::applyRegister(uint32_t address, uint32_t value) {
    RegisterMap& r = m_registers;
    switch (address) {
    case reg::kHeartbeatTimeout:
        r.set(address, std::max(value, kMinHeartbeatMs));
        return status::kSuccess;
    case reg::kGvcpConfig: {
        uint32_t mask = 0;
        if (m_gvcpCapability & gvcpcap::kHeartbeatDisable)
            mask |= gvcpcfg::kHeartbeatDisable;
        if (m_gvcpCapability & gvcpcap::kPendingAck)
            mask |= gvcpcfg::kPendingAckEnable;
        r.set(address, value & mask);
        return status::kSuccess;
    }
    case reg::kGvspConfig: {
        const bool capable = r.get(reg::kGvspCapability) & gvspcap::kExtendedId;
        if (m_stream.acquiring())
            return status::kBusy;
        r.set(address, capable ? value & kGvspConfigExtendedId : 0);
        return status::kSuccess;
    }
    case reg::kScps: {
        uint32_t size = value & scps::kSizeMask;
        size = std::min(std::max(size, kMinPacketSize), m_config.maxPacketSize);
        const uint32_t kept = size | (value & scps::kDoNotFragment) | scps::kBigEndian;
        r.set(address, kept);
        if (value & scps::kFireTestPacket)
            m_stream.fireTestPacket(kept);
        return status::kSuccess;
    }
    case reg::kScp:
        if ((r.get(address) & 0xFFFF) == 0 && (value & 0xFFFF) != 0)
            m_stream.restartBlockIds(m_config.firstBlockId);
        r.set(address, value & 0xFFFF);
        return status::kSuccess;
    case reg::kMcp:
        r.set(address, value & 0xFFFF);
        return status::kSuccess;
    case reg::kTimestampControl:
        if (value & 1)
            m_tickEpochNs = static_cast<int64_t>(ticks() - 1) + m_tickEpochNs;
        if (value & 2) {
            const uint64_t t = ticks();
            r.set(reg::kTimestampHigh, static_cast<uint32_t>(t >> 32));
            r.set(reg::kTimestampLow, static_cast<uint32_t>(t));
        }
        return status::kSuccess;
    case reg::kAcquisitionStart:
        updatePayloadSize();
        m_stream.startAcquisition();
        return status::kSuccess;
    case reg::kAcquisitionStop:
        m_stream.stopAcquisition();
        return status::kSuccess;
    case reg::kWidth:
    case reg::kHeight:
    case reg::kPixelFormat:
    case reg::kVariableSize:
        return applyImageRegister(address, value);
    case reg::kAcquisitionMode:
    case reg::kTestPattern:
        if (value > 2)
            return status::kInvalidParameter;
        r.set(address, value);
        return status::kSuccess;
    case reg::kAcquisitionFrameRate:
    case reg::kEventRate: {
        const float f = toFloat(value);
        const float low = address == reg::kEventRate ? 0.0f : 0.01f;
        if (!(f >= low && f <= 10000.0f))
            return status::kInvalidParameter;
        r.set(address, value);
        return status::kSuccess;
    }
    case reg::kEventFire:
        if (value == 0 || value > kMaxEventFire)
            return status::kInvalidParameter;
        m_messages.fire(value);
        return status::kSuccess;
    case reg::kEventId:
        if (value > 0xFFFF)
            return status::kInvalidParameter;
        r.set(address, value);
        return status::kSuccess;
    case reg::kEventDataSize:
        if (value > kGvcpMaxDatagram - kEventHeaderSize)
            return status::kInvalidParameter;
        r.set(address, value);
        return status::kSuccess;
    case reg::kAcquisitionFrameCount:
        if (value == 0)
            return status::kInvalidParameter;
        r.set(address, value);
        return status::kSuccess;
    default:
        r.set(address, value);
        return status::kSuccess;
    }
}

uint16_t Camera::applyImageRegister(uint32_t address, uint32_t value) {
    if (m_stream.acquiring())
        return status::kBusy;
    switch (address) {
    case reg::kWidth:
    case reg::kHeight:
        if (value < 1 || value > 16384)
            return status::kInvalidParameter;
        break;
    case reg::kPixelFormat:
        if (value != pixfmt::kMono8 && value != pixfmt::kMono16 && value != pixfmt::kRGB8)
            return status::kInvalidParameter;
        break;
    default:
        value = value ? 1 : 0;
        break;
    }
    m_registers.set(address, value);
    updatePayloadSize();
    return status::kSuccess;
}

void Camera::updatePayloadSize() {
    const uint64_t size = static_cast<uint64_t>(m_registers.get(reg::kWidth)) *
                          m_registers.get(reg::kHeight) *
                          (pixfmt::bitsPerPixel(m_registers.get(reg::kPixelFormat)) / 8);
    m_registers.set(reg::kPayloadSize, static_cast<uint32_t>(std::min<uint64_t>(size, 0xFFFFFFFF)));
}

void Camera::controlLost(const std::string& why) {
    Log::write(1, m_name, "control lost: " + why);
    m_stream.stopAcquisition();
    m_tcp.disconnect();
    for (uint32_t a : {reg::kCcp, reg::kPrimaryPort, reg::kPrimaryIp, reg::kScp, reg::kScda,
                       reg::kMcp, reg::kMcda})
        m_registers.set(a, 0);
}

void Camera::commandSeen(const Endpoint& from) {
    m_privilege.touch(from, std::chrono::steady_clock::now());
}

void Camera::tick() {
    executeDueActions();
    if (silent() && !m_silentLogged.exchange(true)) {
        Log::write(1, m_name, "fault: the camera goes silent");
        m_stream.setSilent(true);
        m_messages.setSilent(true);
    }
    const bool disabled = m_registers.get(reg::kGvcpConfig) & gvcpcfg::kHeartbeatDisable;
    if (!disabled && m_privilege.expire(std::chrono::steady_clock::now(),
                                        m_registers.get(reg::kHeartbeatTimeout))) {
        std::lock_guard<std::mutex> lock(m_writeMutex);
        controlLost("heartbeat expired");
    }
}

void Camera::discoveryPayload(std::vector<uint8_t>& p) {
    p.assign(248, 0);
    uint8_t text[48];
    auto copy = [&](uint32_t address, size_t offset, size_t size) {
        m_registers.read(address, text, size);
        std::memcpy(p.data() + offset, text, size);
    };
    put32(p, 0x00, m_registers.get(reg::kVersion));
    put32(p, 0x04, m_registers.get(reg::kDeviceMode));
    put16(p, 0x0A, static_cast<uint16_t>(m_mac >> 32));
    put32(p, 0x0C, static_cast<uint32_t>(m_mac));
    put32(p, 0x10, m_registers.get(reg::kIpConfigOptions));
    put32(p, 0x14, m_registers.get(reg::kIpConfigCurrent));
    put32(p, 0x24, m_ip);
    put32(p, 0x34, m_netmask);
    put32(p, 0x44, m_registers.get(reg::kGateway));
    copy(reg::kManufacturerName, 0x48, 32);
    copy(reg::kModelName, 0x68, 32);
    copy(reg::kDeviceVersion, 0x88, 32);
    copy(reg::kManufacturerInfo, 0xA8, 48);
    copy(reg::kSerialNumber, 0xD8, 16);
    copy(reg::kUserName, 0xE8, 16);
}

bool Camera::forceIp(uint64_t mac, uint32_t ip, uint32_t netmask, uint32_t gateway) {
    if (mac != m_mac)
        return false;
    if (ip == 0) {
        Log::write(1, m_name, "ForceIP to 0.0.0.0 ignored");
        return false;
    }
    const uint32_t old = m_ip;
    Log::write(1, m_name, "ForceIP " + ipToString(old) + " -> " + ipToString(ip));
    moveInterfaceAddress(old, ip, netmask);
    m_ip = ip;
    m_netmask = netmask;
    m_registers.set(reg::kCurrentIp, ip);
    m_registers.set(reg::kSubnetMask, netmask);
    m_registers.set(reg::kGateway, gateway);
    std::string error;
    if (!m_stream.open(ip, error) || !m_tcp.open(ip, error) ||
        (can("event") && !m_messages.open(ip, error)))
        Log::write(0, m_name, "reopening channels after ForceIP failed: " + error);
    if (can("scsp"))
        m_registers.set(reg::kScsp, m_stream.sourcePort());
    if (can("event") && can("mcsp"))
        m_registers.set(reg::kMcsp, m_messages.sourcePort());
    return true;
}

void Camera::moveInterfaceAddress(uint32_t from, uint32_t to, uint32_t netmask) {
    // The camera owns the interface that carries its address (one camera per
    // namespace in the test bed), so a ForceIP moves that address.
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0)
        return;
    std::string name;
    for (ifaddrs* i = list; i; i = i->ifa_next) {
        if (i->ifa_addr && i->ifa_addr->sa_family == AF_INET &&
            ntohl(reinterpret_cast<sockaddr_in*>(i->ifa_addr)->sin_addr.s_addr) == from) {
            name = i->ifa_name;
            break;
        }
    }
    freeifaddrs(list);
    if (name.empty() || name.size() >= IFNAMSIZ) {
        Log::write(1, m_name, "no interface carries " + ipToString(from) + "; address not moved");
        return;
    }
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return;
    auto set = [&](unsigned long request, uint32_t value, const char* what) {
        ifreq req{};
        std::memcpy(req.ifr_name, name.c_str(), name.size());
        auto* a = reinterpret_cast<sockaddr_in*>(&req.ifr_addr);
        a->sin_family = AF_INET;
        a->sin_addr.s_addr = htonl(value);
        if (ioctl(fd, request, &req) != 0)
            Log::write(0, m_name,
                       std::string("setting the ") + what + " of " + name +
                           " failed: " + std::strerror(errno));
    };
    set(SIOCSIFADDR, to, "address");
    set(SIOCSIFNETMASK, netmask, "netmask");
    set(SIOCSIFBRDADDR, to | ~netmask, "broadcast address");
    ::close(fd);
}

bool Camera::action(const ActionCommand& command) {
    recordAction(command);
    const bool selected = command.deviceKey == m_registers.get(reg::kActionDeviceKey) &&
                          command.groupKey == m_registers.get(reg::kActionGroupKey) &&
                          (command.groupMask & m_registers.get(reg::kActionGroupMask)) != 0;
    if (selected && command.scheduled && command.time > ticks()) {
        // The standard's queue of scheduled actions holds a few; more are
        // acknowledged and dropped.
        std::lock_guard<std::mutex> lock(m_actionMutex);
        if (m_scheduledActions.size() < kMaxScheduledActions)
            m_scheduledActions.push_back(command.time);
        Log::write(1, m_name, "action command scheduled at " + std::to_string(command.time));
    } else if (selected) {
        executeAction();
    }
    // Counted last: a reader that sees the count sees all the command did.
    m_registers.set(reg::kActionsReceived, m_registers.get(reg::kActionsReceived) + 1);
    return selected;
}

void Camera::recordAction(const ActionCommand& c) {
    RegisterMap& r = m_registers;
    const uint64_t arrival = ticks();
    r.set(reg::kLastActionDeviceKey, c.deviceKey);
    r.set(reg::kLastActionGroupKey, c.groupKey);
    r.set(reg::kLastActionGroupMask, c.groupMask);
    r.set(reg::kLastActionTimeHigh, static_cast<uint32_t>(c.time >> 32));
    r.set(reg::kLastActionTimeLow, static_cast<uint32_t>(c.time));
    r.set(reg::kLastActionLength, static_cast<uint32_t>(c.length));
    r.set(reg::kLastActionArrivalHigh, static_cast<uint32_t>(arrival >> 32));
    r.set(reg::kLastActionArrivalLow, static_cast<uint32_t>(arrival));
    r.set(reg::kLastActionSource, c.from.ip);
    Log::write(2, m_name,
               "action command of " + std::to_string(c.length) + " bytes from " +
                   ipToString(c.from.ip));
}

void Camera::executeAction() {
    m_registers.set(reg::kActionCount, m_registers.get(reg::kActionCount) + 1);
    Log::write(1, m_name, "action command accepted");
}

void Camera::executeDueActions() {
    std::lock_guard<std::mutex> lock(m_actionMutex);
    const uint64_t now = ticks();
    auto due = [now](uint64_t time) { return time <= now; };
    for (uint64_t time : m_scheduledActions)
        if (due(time))
            executeAction();
    m_scheduledActions.erase(
        std::remove_if(m_scheduledActions.begin(), m_scheduledActions.end(), due),
        m_scheduledActions.end());
}

void Camera::packetResend(uint64_t blockId, bool extendedForm, uint32_t first, uint32_t last) {
    m_stream.resend(blockId, extendedForm, first, last);
}

} // namespace gevsim
