#include "events/HALGvmc.h"

#include <arpa/inet.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/HLogger.h"
#include "api/localization.h"
#include "hal/DeviceHandle.h"
#include "hal/IHALGev.h"
#include "hal/SocketHelper.h"

namespace GenTL {

namespace {

using Clock = std::chrono::steady_clock;

bool HasControl(int accessMode) {
    return accessMode == DEVICE_ACCESS_CONTROL || accessMode == DEVICE_ACCESS_EXCLUSIVE;
}

std::string Decimal(unsigned long long value) {
    return std::to_string(value);
}

/// The address of the adapter that the device was opened on (network
/// order, port 0): the control socket is bound to it.
int AdapterAddress(void* device, sockaddr_in& address) {
    DeviceHandle* handle = AsDevice(device);
    if (handle == nullptr || !handle->socket) {
        return ReportError(GC_ERR_INVALID_HANDLE, "failed to cast hDevice to DeviceHandle*");
    }
    address = handle->socket->LocalAddress();
    address.sin_port = 0;
    return GC_ERR_SUCCESS;
}

/// Where a group's socket binds: the kernel hands a group's datagrams only
/// to sockets bound to the group or to any address, never to one bound to
/// the adapter's own address.
sockaddr_in AnyAddress() {
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    return any;
}

/**
 * Sends four zero bytes from the channel's socket to the camera's message
 * channel source port, so that a stateful firewall of the host takes the
 * camera's event packets as answers and lets them in.
 */
int TraverseFirewall(IHALGev* hal, void* device, MCHandle& channel, GvmcCapabilities capabilities,
                     std::uint32_t cameraIp) {
    if (!capabilities.HasSourcePort()) {
        return GC_ERR_NOT_AVAILABLE;
    }
    if (device == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "hDevice==nullptr");
    }
    unsigned sourcePort = 0;
    if (const int rc = hal->ReadReg(device, sk_addrMcsp, sourcePort)) {
        HLogger::Error(loc::al("anonymous::TraverseFirewall WriteReg {0} with err",
                               Decimal(sk_addrMcsp).c_str())
                           .c_str(),
                       rc);
        return ChainError(rc);
    }
    sockaddr_in camera{};
    camera.sin_family = AF_INET;
    camera.sin_addr.s_addr = cameraIp;
    camera.sin_port = htons(static_cast<std::uint16_t>(sourcePort & 0xFFFF));
    const char zeros[4] = {0, 0, 0, 0};
    if (const int rc = channel.m_pSocket->Send(zeros, sizeof zeros, camera)) {
        HLogger::Error("anonymous::TraverseFirewall stream.m_pSocket->Send failed with err", rc);
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

/// The socket's bound address and port in host order.
std::uint32_t LocalIp(const MCHandle& channel) {
    return ntohl(channel.m_pSocket->LocalAddress().sin_addr.s_addr);
}
std::uint16_t LocalPort(const MCHandle& channel) {
    return ntohs(channel.m_pSocket->LocalAddress().sin_port);
}

} // namespace

HALGvmc::HALGvmc() : HALGvmc(nullptr) {}

HALGvmc::HALGvmc(std::shared_ptr<OverlappedSocket> socket) {
    m_channel.m_pSocket = socket ? std::move(socket) : std::make_shared<OverlappedSocket>();
}

HALGvmc::~HALGvmc() {
    // A layer deleted after a failed Stop must not leak its descriptor.
    m_channel.m_pSocket->Close();
}

int HALGvmc::Start(IHALGev* hal, void* device, bool multicast, int accessMode) {
    if (hal == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "pHwInterface==nullptr");
    }
    unsigned capabilities = 0;
    if (const int rc = hal->ReadReg(device, sk_addrGvmcCaps, capabilities)) {
        HLogger::Error(
            loc::al("GenTL::HALGvmc::Start ReadReg {0} with err", Decimal(sk_addrGvmcCaps).c_str())
                .c_str(),
            rc);
        return ChainError(rc);
    }
    m_capabilities.word = capabilities;

    // Only the camera may feed this channel: its address filters the socket.
    long cameraIp = 0;
    if (const int rc = hal->GetDevIPAddress(device, cameraIp)) {
        return ChainError(rc);
    }
    m_cameraIp = htonl(static_cast<std::uint32_t>(cameraIp));

    const int rc =
        multicast ? StartMulticast(hal, device, accessMode) : StartUnicast(hal, device, accessMode);
    if (rc != GC_ERR_SUCCESS) {
        return rc;
    }
    if (TraverseFirewall(hal, device, m_channel, m_capabilities, m_cameraIp) != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGvmc::Start TraverseFirewall");
    }
    return GC_ERR_SUCCESS;
}

int HALGvmc::StartUnicast(IHALGev* hal, void* device, int accessMode) {
    if (!HasControl(accessMode)) {
        HLogger::Error("GenTL::HALGvmc::Start unicast read-only failure");
        return ReportError(GC_ERR_RESOURCE_IN_USE,
                           "a unicast message channel needs control of the device");
    }
    sockaddr_in adapter{};
    if (const int rc = AdapterAddress(device, adapter)) {
        HLogger::Error("GenTL::HALGvmc::Start OpenAndBindSocket");
        return ChainError(rc);
    }
    if (const int rc = m_channel.m_pSocket->OpenAndBindSocket(adapter)) {
        HLogger::Error("GenTL::HALGvmc::Start OpenAndBindSocket");
        return ChainError(rc);
    }
    return WriteDestination(hal, device, LocalIp(m_channel), LocalPort(m_channel));
}

int HALGvmc::StartMulticast(IHALGev* hal, void* device, int accessMode) {
    in_addr group{};
    if (inet_pton(AF_INET, sk_gvmcMulticastGroup, &group) != 1) {
        HLogger::Error("GenTL::HALGvmc::Start error setting multicast address");
        return ReportError(GC_ERR_RESOURCE_EXHAUSTED, "Error creating gvmc multicast address");
    }
    const std::uint32_t groupHost = ntohl(group.s_addr);
    if (HasControl(accessMode)) {
        if (const int rc = m_channel.m_pSocket->OpenAndBindSocketForMulticast(
                AnyAddress(), static_cast<int>(groupHost))) {
            HLogger::Error("GenTL::HALGvmc::Start OpenAndBindSocket");
            return ChainError(rc);
        }
        return WriteDestination(hal, device, groupHost, LocalPort(m_channel));
    }
    // The controlling application chose the port; the camera is not
    // written to.
    unsigned mcp = 0;
    if (hal->ReadReg(device, sk_addrMcp, mcp) != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGvmc::Port ReadReg MCP");
    }
    if (const int rc = m_channel.m_pSocket->OpenAndBindSocketForMulticastListening(
            AnyAddress(), static_cast<int>(groupHost), static_cast<unsigned short>(mcp & 0xFFFF))) {
        HLogger::Error("GenTL::HALGvmc::Start OpenAndBindSocket");
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int HALGvmc::WriteDestination(IHALGev* hal, void* device, std::uint32_t address,
                              std::uint16_t port) {
    if (const int rc = hal->WriteReg(device, sk_addrMcda, address)) {
        HLogger::Error("GenTL::HALGvmc::Start WriteReg MCDA");
        m_channel.m_pSocket->Close();
        return ChainError(rc);
    }
    if (const int rc = hal->WriteReg(device, sk_addrMcp, port)) {
        HLogger::Error("GenTL::HALGvmc::Start WriteReg MCP");
        m_channel.m_pSocket->Close();
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int HALGvmc::Stop(IHALGev* hal, void* device, int accessMode) {
    if (hal == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "pHwInterface==nullptr");
    }
    if (HasControl(accessMode)) {
        if (const int rc = hal->WriteReg(device, sk_addrMcp, 0)) {
            return ReportError(rc, "GenTL::HALGvsp::Stop WriteReg MCP");
        }
    }
    if (const int rc = m_channel.m_pSocket->Close()) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int HALGvmc::GetNextPacket(char* buffer, int size, int& received, unsigned long timeoutMs) {
    received = 0;
    const Clock::time_point deadline =
        Clock::now() + std::chrono::milliseconds(std::min<unsigned long>(timeoutMs, 0x7FFFFFFF));
    for (;;) {
        // At least 1 ms: a socket time-out of 0 would block for good.
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        const int waitMs = static_cast<int>(std::max<long long>(left, 1));
        sockaddr_in from{};
        int length = 0;
        if (const int rc =
                m_channel.m_pSocket->GetNextResultFrom(buffer, size, length, from, waitMs)) {
            return rc;
        }
        // Taken only from the camera, and only whole: a longer datagram
        // has been cut by the socket and is no event packet.
        if (from.sin_addr.s_addr == m_cameraIp && length <= size) {
            received = length;
            return GC_ERR_SUCCESS;
        }
        if (Clock::now() >= deadline) {
            return ReportError(GC_ERR_TIMEOUT, "GenTL::HALGvmc::GetNextPacket no packet in time");
        }
    }
}

} // namespace GenTL
