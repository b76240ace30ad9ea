#include "stream/HALGvspUDP.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/thread_time.hpp>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/HLogger.h"
#include "api/localization.h"
#include "hal/DeviceHandle.h"
#include "hal/IHALGev.h"
#include "hal/SocketHelper.h"
#include "stream/GvspReceiveMode.h"

namespace GenTL {

namespace {

/// Packet sizes of the automatic search, largest first.
constexpr std::array<std::uint32_t, 7> kPacketSizes = {9000, 7500, 6000, 4500, 3000, 1500, 576};
/// How long one test packet may take to arrive.
constexpr int kTestPacketTimeoutMs = 100;
/// Floor of the inter-packet expiry, ms.
constexpr std::uint32_t kMinInterPacketExpiryMs = 40;
/// Receive buffer of the stream socket: room for a few blocks, so that a
/// grab thread delayed by the scheduler loses nothing, within sane bounds.
constexpr std::uint64_t kReceiveBufferBlocks = 4;
constexpr std::uint64_t kMinReceiveBuffer = 2u << 20;
constexpr std::uint64_t kMaxReceiveBuffer = 64u << 20;
/// Largest finite wait of WaitForNextLeader, ms.
constexpr unsigned long kMaxLeaderWaitMs = 0xFFFFFFFFul;

/// The bytes of socket buffer, or of ring, for blocks of blockSize.
std::uint64_t ReceiveBufferBytes(std::uint64_t blockSize) {
    std::uint64_t wanted = blockSize * kReceiveBufferBlocks;
    wanted = wanted < kMinReceiveBuffer ? kMinReceiveBuffer : wanted;
    return wanted > kMaxReceiveBuffer ? kMaxReceiveBuffer : wanted;
}

/// Whether packets of packetSize carry data behind the IP, UDP and GVSP
/// headers.
bool CarriesData(std::uint32_t packetSize, bool extendedId) {
    constexpr std::uint32_t kIpUdpHeaderBytes = 28;
    return packetSize > kIpUdpHeaderBytes + (extendedId ? 20u : 8u);
}

bool HasControl(int accessMode) {
    return accessMode == DEVICE_ACCESS_CONTROL || accessMode == DEVICE_ACCESS_EXCLUSIVE;
}

std::string Decimal(unsigned long long value) {
    return std::to_string(value);
}

/// A non-negative double cut to 32 bits, saturating instead of overflowing;
/// NaN and negative values give 0.
std::uint32_t TruncateToU32(double value) {
    if (!(value >= 0.0)) {
        return 0;
    }
    if (value >= 4294967295.0) {
        return std::numeric_limits<std::uint32_t>::max();
    }
    return static_cast<std::uint32_t>(value);
}

std::uint32_t SaturatingTimes(std::uint32_t value, std::uint32_t factor) {
    const std::uint64_t product = static_cast<std::uint64_t>(value) * factor;
    return product > std::numeric_limits<std::uint32_t>::max()
               ? std::numeric_limits<std::uint32_t>::max()
               : static_cast<std::uint32_t>(product);
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

/// The socket's bound address and port in host order.
std::uint32_t LocalIp(const StreamHandle& stream) {
    return ntohl(stream.m_pSocket->LocalAddress().sin_addr.s_addr);
}
std::uint16_t LocalPort(const StreamHandle& stream) {
    return ntohs(stream.m_pSocket->LocalAddress().sin_port);
}

/**
 * Sends one small datagram from the stream socket to the camera's stream
 * source port, so that a stateful firewall of the host takes the camera's
 * packets as answers and lets them in.
 */
int TraverseFirewall(IHALGev* hal, void* device, StreamHandle& stream,
                     GvspCapabilities capabilities) {
    if (!capabilities.HasSourcePort()) {
        return GC_ERR_NOT_AVAILABLE;
    }
    if (device == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "hDevice==nullptr");
    }
    unsigned sourcePort = 0;
    if (const int rc = hal->ReadReg(device, sk_addrScsp, sourcePort)) {
        HLogger::Error(
            loc::al("anonymous::TraverseFirewall WriteReg {0}", Decimal(sk_addrScsp).c_str())
                .c_str());
        return ChainError(rc);
    }
    long deviceIp = 0;
    if (const int rc = hal->GetDevIPAddress(device, deviceIp)) {
        return ChainError(rc);
    }
    sockaddr_in camera{};
    camera.sin_family = AF_INET;
    camera.sin_addr.s_addr = htonl(static_cast<std::uint32_t>(deviceIp));
    camera.sin_port = htons(static_cast<std::uint16_t>(sourcePort & 0xFFFF));
    const char zeros[4] = {0, 0, 0, 0};
    if (const int rc = stream.m_pSocket->Send(zeros, sizeof zeros, camera)) {
        HLogger::Error("anonymous::TraverseFirewall stream.m_pSocket->Send");
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

/**
 * Restricts the stream socket to the camera's address: a datagram from any
 * other sender never reaches the grab loop, whatever it claims to be. On
 * failure the socket is closed: a stream open to every sender is not started.
 */
int AcceptOnlyTheCamera(IHALGev* hal, void* device, StreamHandle& stream) {
    long deviceIp = 0;
    int rc = hal->GetDevIPAddress(device, deviceIp);
    if (rc == GC_ERR_SUCCESS) {
        in_addr camera{};
        camera.s_addr = htonl(static_cast<std::uint32_t>(deviceIp));
        rc = stream.m_pSocket->AcceptOnlyFrom(camera);
    }
    if (rc != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGvspUDP::Start AcceptOnlyFrom");
        stream.m_pSocket->Close();
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

/// One test packet of size bytes (the socket's next datagram) within the
/// test time-out.
bool TestPacketArrives(StreamHandle& stream, std::uint32_t size, int& rc) {
    std::vector<char> buffer(size);
    int received = 0;
    rc = stream.m_pSocket->GetNextResult(buffer.data(), static_cast<int>(size), received,
                                         kTestPacketTimeoutMs);
    return rc == GC_ERR_SUCCESS;
}

/**
 * Makes sure packets of packetSize reach this host, or finds the largest
 * size of the search table that does and sets the camera to it. The camera
 * sends its test packet unfragmented, so a link with a smaller MTU drops it.
 */
int TestPacketSize(IHALGev* hal, void* device, StreamHandle& stream, unsigned int& packetSize,
                   bool autoNegotiate) {
    if (!autoNegotiate) {
        if (const int rc = hal->WriteReg(device, sk_addrScps,
                                         (packetSize & sk_scpsSizeMask) | sk_scpsFireTestPacket |
                                             sk_scpsDoNotFragment)) {
            return ChainErrorText(rc, "sending a test packet to device failed");
        }
        int rc = GC_ERR_SUCCESS;
        if (!TestPacketArrives(stream, packetSize, rc)) {
            return ChainErrorText(
                rc, "test packet failed. Could be because mtu is < than that of the device");
        }
        return GC_ERR_SUCCESS;
    }

    std::uint32_t found = 0;
    for (const std::uint32_t size : kPacketSizes) {
        if (const int rc = hal->WriteReg(device, sk_addrScps,
                                         (size & sk_scpsSizeMask) | sk_scpsFireTestPacket |
                                             sk_scpsDoNotFragment)) {
            return ChainErrorText(rc, "auto packet size test sent a test packet to device but it "
                                      "failed. Sent packet size was " +
                                          Decimal(size));
        }
        // A time-out and a receive error alike mean: try the next size.
        int rc = GC_ERR_SUCCESS;
        if (TestPacketArrives(stream, size, rc)) {
            found = size;
            break;
        }
    }
    if (found == 0) {
        return ChainErrorText(GC_ERR_ERROR, "failed to find a working packet size");
    }
    packetSize = found;
    const std::uint32_t value = (found & sk_scpsSizeMask) | sk_scpsDoNotFragment;
    if (const int rc = hal->WriteReg(device, sk_addrScps, value)) {
        return ChainErrorText(
            rc, "failed to set the datastream register to the max packetsize of " + Decimal(value));
    }
    return GC_ERR_SUCCESS;
}

void LogStartFailure(const char* text) {
    HLogger::Error(text);
}

void TraverseFirewallOrLog(IHALGev* hal, void* device, StreamHandle& stream,
                           GvspCapabilities capabilities) {
    if (TraverseFirewall(hal, device, stream, capabilities) != GC_ERR_SUCCESS) {
        LogStartFailure("GenTL::HALGvspUDP::Start TraverseFirewall");
    }
}

/// Where a group's socket binds: the kernel hands a group's datagrams only
/// to sockets bound to the group or to any address, never to one bound to
/// the adapter's own address. The join stays on the default interface.
sockaddr_in GroupBindAddress(const sockaddr_in& adapter) {
    sockaddr_in any = adapter;
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    return any;
}

/// The stream's multicast group in host order.
int MulticastGroup(std::uint32_t& group) {
    in_addr address{};
    if (inet_pton(AF_INET, sk_gvspMulticastGroup, &address) != 1) {
        LogStartFailure("GenTL::HALGvspUDP::Start error setting multicast address");
        return ReportError(GC_ERR_RESOURCE_EXHAUSTED, "Error creating gvsp multicast address");
    }
    group = ntohl(address.s_addr);
    return GC_ERR_SUCCESS;
}

} // namespace

HALGvspUDP::HALGvspUDP() : HALGvspUDP(nullptr) {}

HALGvspUDP::HALGvspUDP(std::shared_ptr<OverlappedSocket> socket)
    : m_ring(std::make_unique<PacketRingSocket>()) {
    m_stream.m_pSocket = socket ? std::move(socket) : std::make_shared<OverlappedSocket>();
}

HALGvspUDP::~HALGvspUDP() {
    // Free every waiter and let them leave before the wait objects go.
    m_leader.Close();
    // A layer deleted without Stop must not leak its descriptor.
    m_stream.m_pSocket->Close();
    m_ring->Close();
}

int HALGvspUDP::Start(IHALGev* hal, void* device, StreamStartParams& params) {
    if (hal == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "hal==nullptr");
    }
    ResetWaitForNextLeader();

    unsigned capabilities = 0;
    if (const int rc = hal->ReadReg(device, sk_addrGvspCaps, capabilities)) {
        HLogger::Error(
            loc::al("GenTL::HALGvspUDP::Start ReadReg {0}", Decimal(sk_addrGvspCaps).c_str())
                .c_str());
        return ChainError(rc);
    }
    m_capabilities.word = capabilities;

    params.packetSize = 0;
    unsigned scps = 0;
    if (const int rc = hal->ReadReg(device, sk_addrScps, scps)) {
        HLogger::Error(
            loc::al("GenTL::HALGvspUDP::Start ReadReg {0}", Decimal(sk_addrScps).c_str()).c_str());
        return ChainError(rc);
    }
    params.packetSize = scps & sk_scpsSizeMask;

    const bool control = HasControl(params.accessMode);
    if (!params.multicastEnable && !control) {
        return ReportError(GC_ERR_RESOURCE_IN_USE,
                           "a unicast stream needs control of the device; a viewer can only "
                           "listen to a multicast stream");
    }
    sockaddr_in adapter{};
    if (const int rc = AdapterAddress(device, adapter)) {
        LogStartFailure("GenTL::HALGvspUDP::Start OpenAndBindSocket");
        return ChainError(rc);
    }
    int rc = GC_ERR_SUCCESS;
    if (!params.multicastEnable) {
        rc = StartUnicast(hal, device, adapter, params);
    } else if (control) {
        rc = StartMulticast(hal, device, adapter, params);
    } else {
        rc = StartListener(hal, device, adapter);
    }
    if (rc != GC_ERR_SUCCESS) {
        return rc;
    }
    if (!CarriesData(params.packetSize, params.extendedId)) {
        // A camera that reads its size as 0, or as less than the headers,
        // would have every payload placed wrongly: no stream runs with it.
        LogStartFailure("GenTL::HALGvspUDP::Start packet size");
        Stop(hal, device, params.packetSize, params.accessMode);
        return ReportError(GC_ERR_INVALID_VALUE, "packet size " + Decimal(params.packetSize) +
                                                     " leaves no room for data");
    }
    SizeReceiveBuffer(params.bufferSize);
    in_addr destination{};
    if (params.multicastEnable) {
        std::uint32_t group = 0;
        MulticastGroup(group);
        destination.s_addr = htonl(group);
    } else {
        destination = m_stream.m_pSocket->LocalAddress().sin_addr;
    }
    if (const int rc = ChooseReceiveMode(hal, device, adapter, destination, params.bufferSize)) {
        Stop(hal, device, params.packetSize, params.accessMode);
        return rc;
    }

    params.interPacketExpiry = CalculateInterPacketExpiry(hal, device);
    CalculateBufferExpiry(params);
    return GC_ERR_SUCCESS;
}

void HALGvspUDP::SizeReceiveBuffer(std::uint64_t blockSize) {
    const std::uint64_t wanted = ReceiveBufferBytes(blockSize);
    const int granted = m_stream.m_pSocket->RequestReceiveBuffer(static_cast<int>(wanted));
    HLogger::Debug(loc::al("GVSP receive buffer size {0} bytes of {1} asked",
                           Decimal(static_cast<unsigned long long>(granted)).c_str(),
                           Decimal(wanted).c_str())
                       .c_str());
}

int HALGvspUDP::ChooseReceiveMode(IHALGev* hal, void* device, const sockaddr_in& adapter,
                                  in_addr destination, std::uint64_t blockSize) {
    std::string origin;
    const GvspReceiveMode asked = RequestedReceiveMode(origin);
    GvspReceiveMode mode = asked == GvspReceiveMode::Auto ? GvspReceiveMode::Ring : asked;
    std::string why = origin;
    if (mode == GvspReceiveMode::Ring) {
        long deviceIp = 0;
        int rc = hal->GetDevIPAddress(device, deviceIp);
        if (rc == GC_ERR_SUCCESS) {
            in_addr camera{};
            camera.s_addr = htonl(static_cast<std::uint32_t>(deviceIp));
            rc = m_ring->Open(camera, destination, m_stream.m_pSocket->LocalAddress().sin_port,
                              adapter.sin_addr, ReceiveBufferBytes(blockSize));
        }
        // With the ring the socket only keeps the port: a second copy of
        // every datagram queued there would be work for nothing.
        if (rc == GC_ERR_SUCCESS) {
            rc = m_stream.m_pSocket->RefuseAll();
        }
        if (rc != GC_ERR_SUCCESS) {
            m_ring->Close();
            if (asked == GvspReceiveMode::Ring) {
                HLogger::Error("GenTL::HALGvspUDP::Start packet ring");
                return ChainErrorText(rc, "GenTL::HALGvspUDP::Start the receive mode ring (" +
                                              origin + ") cannot be had");
            }
            // The automatic choice falls back; the reason stays out of the
            // error cache.
            Error ignored;
            ErrorCache::GetErrorCache()->Pop(ignored);
            mode = GvspReceiveMode::Batch;
            why += rc == GC_ERR_ACCESS_DENIED ? ", no CAP_NET_RAW for a packet ring"
                                              : ", the packet ring failed";
        }
    }
    m_mode = mode;
    HLogger::Info(loc::al("GenTL::HALGvspUDP::Start receive mode {0} ({1})", ReceiveModeName(mode),
                          why.c_str())
                      .c_str());
    return GC_ERR_SUCCESS;
}

int HALGvspUDP::GetNextPackets(GvspDatagram* datagrams, int count, int& got,
                               unsigned long timeout) {
    got = 0;
    if (count < 1) {
        return GC_ERR_SUCCESS;
    }
    const auto n = static_cast<std::size_t>(count);
    if (m_mode == GvspReceiveMode::Ring) {
        m_ringDatagrams.resize(n);
        const int rc = m_ring->Next(m_ringDatagrams.data(), count, got, static_cast<int>(timeout));
        for (int i = 0; i < got; ++i) {
            GvspDatagram& d = datagrams[i];
            d.data = m_ringDatagrams[static_cast<std::size_t>(i)].data;
            d.length = m_ringDatagrams[static_cast<std::size_t>(i)].length;
            d.truncated = false;
        }
        return rc;
    }
    if (m_mode == GvspReceiveMode::Single) {
        return IHALGvspUDP::GetNextPackets(datagrams, count, got, timeout);
    }
    m_messages.resize(n);
    m_vectors.resize(2 * n);
    for (std::size_t i = 0; i < n; ++i) {
        const GvspDatagram& d = datagrams[i];
        m_vectors[2 * i] = {d.head, static_cast<std::size_t>(std::max(d.headLength, 0))};
        m_vectors[2 * i + 1] = {d.body, static_cast<std::size_t>(std::max(d.bodyLength, 0))};
        m_messages[i] = {};
        m_messages[i].msg_hdr.msg_iov = &m_vectors[2 * i];
        m_messages[i].msg_hdr.msg_iovlen = 2;
    }
    const int rc = m_stream.m_pSocket->GetNextResults(m_messages.data(), static_cast<unsigned>(n),
                                                      got, static_cast<int>(timeout));
    for (int i = 0; i < got; ++i) {
        GvspDatagram& d = datagrams[i];
        const mmsghdr& m = m_messages[static_cast<std::size_t>(i)];
        d.data = nullptr;
        d.length = static_cast<int>(m.msg_len);
        d.truncated = (m.msg_hdr.msg_flags & MSG_TRUNC) != 0;
    }
    return rc;
}

int HALGvspUDP::StartUnicast(IHALGev* hal, void* device, const sockaddr_in& adapter,
                             StreamStartParams& params) {
    if (const int rc = m_stream.m_pSocket->OpenAndBindSocket(adapter)) {
        LogStartFailure("GenTL::HALGvspUDP::Start OpenAndBindSocket");
        return ChainError(rc);
    }
    if (const int rc = AcceptOnlyTheCamera(hal, device, m_stream)) {
        return rc;
    }
    if (const int rc = WriteDestination(hal, device, LocalIp(m_stream), LocalPort(m_stream))) {
        return rc;
    }
    TraverseFirewallOrLog(hal, device, m_stream, m_capabilities);
    return NegotiatePacketSize(hal, device, params);
}

int HALGvspUDP::StartMulticast(IHALGev* hal, void* device, const sockaddr_in& adapter,
                               StreamStartParams& params) {
    std::uint32_t group = 0;
    if (const int rc = MulticastGroup(group)) {
        return rc;
    }
    // The packet size is negotiated over unicast, before the group is joined.
    if (const int rc = m_stream.m_pSocket->OpenAndBindSocket(adapter)) {
        LogStartFailure("GenTL::HALGvspUDP::Start OpenAndBindSocket");
        return ChainError(rc);
    }
    if (const int rc = AcceptOnlyTheCamera(hal, device, m_stream)) {
        return rc;
    }
    HLogger::Debug(loc::al("HALGvspUDP::Start :: Writing unicast port {0}",
                           Decimal(LocalPort(m_stream)).c_str())
                       .c_str());
    if (const int rc = WriteDestination(hal, device, LocalIp(m_stream), LocalPort(m_stream))) {
        return rc;
    }
    TraverseFirewallOrLog(hal, device, m_stream, m_capabilities);
    if (const int rc = NegotiatePacketSize(hal, device, params)) {
        return rc;
    }
    m_stream.m_pSocket->Close();

    if (const int rc = m_stream.m_pSocket->OpenAndBindSocketForMulticast(GroupBindAddress(adapter),
                                                                         static_cast<int>(group))) {
        LogStartFailure("GenTL::HALGvspUDP::Start OpenAndBindSocket");
        return ChainError(rc);
    }
    if (const int rc = AcceptOnlyTheCamera(hal, device, m_stream)) {
        return rc;
    }
    if (const int rc = WriteDestination(hal, device, group, LocalPort(m_stream))) {
        return rc;
    }
    TraverseFirewallOrLog(hal, device, m_stream, m_capabilities);
    return GC_ERR_SUCCESS;
}

int HALGvspUDP::StartListener(IHALGev* hal, void* device, const sockaddr_in& adapter) {
    std::uint32_t group = 0;
    if (const int rc = MulticastGroup(group)) {
        return rc;
    }
    // The controlling application chose the port; a camera that nobody
    // started gives 0 here.
    unsigned scp = 0;
    if (const int rc = hal->ReadReg(device, sk_addrScp, scp)) {
        LogStartFailure("GenTL::HALGvspUDP::Port ReadReg SCP");
        return ChainError(rc);
    }
    if (const int rc = m_stream.m_pSocket->OpenAndBindSocketForMulticastListening(
            GroupBindAddress(adapter), static_cast<int>(group),
            static_cast<unsigned short>(scp & 0xFFFF))) {
        LogStartFailure("GenTL::HALGvspUDP::Start OpenAndBindSocket");
        return ChainError(rc);
    }
    if (const int rc = AcceptOnlyTheCamera(hal, device, m_stream)) {
        return rc;
    }
    TraverseFirewallOrLog(hal, device, m_stream, m_capabilities);
    return GC_ERR_SUCCESS;
}

int HALGvspUDP::WriteDestination(IHALGev* hal, void* device, std::uint32_t address,
                                 std::uint16_t port) {
    if (const int rc = hal->WriteReg(device, sk_addrScda, address)) {
        LogStartFailure("GenTL::HALGvspUDP::Start WriteReg SCDA");
        m_stream.m_pSocket->Close();
        return ChainError(rc);
    }
    if (const int rc = hal->WriteReg(device, sk_addrScp, port)) {
        LogStartFailure("GenTL::HALGvspUDP::Start WriteReg SCP");
        m_stream.m_pSocket->Close();
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int HALGvspUDP::NegotiatePacketSize(IHALGev* hal, void* device, StreamStartParams& params) {
    unsigned packetSize = params.packetSize;
    const int rc =
        TestPacketSize(hal, device, m_stream, packetSize, params.autoNegotiatePacketSize);
    params.packetSize = packetSize;
    if (rc == GC_ERR_SUCCESS) {
        return GC_ERR_SUCCESS;
    }
    LogStartFailure("GenTL::HALGvspUDP::Start TestPacketSize");
    // Clears SCP again, so that the camera sends nowhere.
    Stop(hal, device, params.packetSize, params.accessMode);
    return ChainErrorText(rc, "GenTL::HALGvspUDP::Start TestPacketSize Failed with err: " +
                                  std::to_string(rc));
}

int HALGvspUDP::Stop(IHALGev* hal, void* device, unsigned int /*packetSize*/, int accessMode) {
    if (hal == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "hal==nullptr");
    }
    if (HasControl(accessMode)) {
        const int rc = hal->WriteReg(device, sk_addrScp, 0);
        if (rc == GC_ERR_TIMEOUT) {
            // A camera that is gone must not keep the socket open.
            HLogger::Error("GenTL::HALGvspUDP::Stop WriteReg Timed out SCP");
        } else if (rc != GC_ERR_SUCCESS) {
            HLogger::Error("GenTL::HALGvspUDP::Stop WriteReg SCP");
            return ChainError(rc);
        }
    }
    m_stream.m_pSocket->Close();
    m_ring->Close();
    return GC_ERR_SUCCESS;
}

int HALGvspUDP::ConfigureExtendedId(IHALGev* hal, void* device, bool legacyRequested,
                                    bool& extendedId) {
    return ConfigureExtendedIdHelper(hal, device, legacyRequested, extendedId, m_gevVersion,
                                     m_capabilities);
}

int HALGvspUDP::WaitForNextLeader(unsigned long timeoutMs) {
    const bool forever = timeoutMs == static_cast<unsigned long>(GENTL_INFINITE);
    if (!forever && timeoutMs > kMaxLeaderWaitMs) {
        return ReportError(GC_ERR_INVALID_PARAMETER,
                           "iTimeout must be at most 0xFFFFFFFF or GENTL_INFINITE");
    }
    if (!m_leader.Wait(forever, timeoutMs)) {
        return ReportError(GC_ERR_TIMEOUT, "no leader arrived within the time-out");
    }
    return GC_ERR_SUCCESS;
}

int HALGvspUDP::ResetWaitForNextLeader() {
    m_leader.Reset();
    return GC_ERR_SUCCESS;
}

int HALGvspUDP::LeaderWaiters() {
    return m_leader.Waiters();
}

int HALGvspUDP::SetNextLeaderArrived() {
    m_leader.Arrive();
    return GC_ERR_SUCCESS;
}

int HALGvspUDP::GetNextPacket(char* buffer, int size, int& received, unsigned long timeout) {
    return m_stream.m_pSocket->GetNextResult(buffer, size, received, static_cast<int>(timeout));
}

int HALGvspUDP::GetNextPacket(char* header, int headerSize, int& headerReceived, char* payload,
                              int payloadSize, int& payloadReceived, unsigned long timeout) {
    return m_stream.m_pSocket->GetNextResultNoCopy(header, headerSize, headerReceived, payload,
                                                   payloadSize, payloadReceived,
                                                   static_cast<int>(timeout));
}

std::uint32_t HALGvspUDP::CalculateInterPacketExpiry(IHALGev* hal, void* device) {
    const auto read = [hal, device](unsigned address, unsigned& value) {
        unsigned read = 0;
        if (hal->ReadReg(device, address, read) != GC_ERR_SUCCESS) {
            HLogger::Error(
                loc::al("GenTL::HALGvspUDP::Start(): ReadReg {0}", Decimal(address).c_str())
                    .c_str());
            return;
        }
        value = read;
    };
    unsigned delay = 0;
    unsigned high = 0;
    unsigned low = 0;
    read(sk_addrScpd, delay);
    read(sk_addrTickFrequencyHigh, high);
    read(sk_addrTickFrequencyLow, low);
    const std::uint64_t frequency = static_cast<std::uint64_t>(high) << 32 | low;

    std::uint32_t expiry = kMinInterPacketExpiryMs;
    if (frequency != 0 && delay != 0) {
        const double delayMs = (1.0 / static_cast<double>(frequency)) * 1000.0 * delay;
        const std::uint32_t threeDelays = SaturatingTimes(TruncateToU32(delayMs), 3);
        if (threeDelays >= kMinInterPacketExpiryMs) {
            expiry = threeDelays;
        }
    }
    return expiry;
}

void HALGvspUDP::CalculateBufferExpiry(StreamStartParams& params) {
    if (params.retryWindowFrames != 0) {
        params.bufferExpiry = TruncateToU32(static_cast<double>(params.retryWindowFrames) /
                                            params.frameRate * 1000.0);
    } else if (params.frameRate != 0.0) {
        // The time of two frames.
        params.bufferExpiry = SaturatingTimes(TruncateToU32((1.0 / params.frameRate) * 1000.0), 2);
    } else {
        params.bufferExpiry = SaturatingTimes(params.interPacketExpiry, 2);
    }
    const std::uint32_t retries =
        params.interPacketExpiry == 0 ? 0 : params.bufferExpiry / params.interPacketExpiry;
    params.resendRetries = retries == 0 ? 1 : retries;
}

} // namespace GenTL
