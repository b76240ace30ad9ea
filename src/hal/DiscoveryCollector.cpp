#include "hal/DiscoveryCollector.h"

#include <arpa/inet.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>

#include <boost/timer/timer.hpp>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/HLogger.h"
#include "api/localization.h"
#include "hal/SocketHelper.h"

namespace GenTL {

namespace {

/// Offset of the serial number in a whole answer (header included).
constexpr std::size_t kSerialInAck = gvcp::kHeaderSize + 0xD8;
constexpr std::size_t kIpInPayload = 0x24;

int ToSocketTimeout(long timeoutMs) {
    return static_cast<int>(std::min<long>(std::max<long>(timeoutMs, 1), INT_MAX));
}

/// An answer with no payload behind its header tells of no device; taking
/// it would make one from whatever the buffer held before.
bool CarriesPayload(int received) {
    return received > static_cast<int>(gvcp::kHeaderSize);
}

/// The bytes of an answer that are in the buffer.
std::size_t Arrived(int received) {
    return std::min(static_cast<std::size_t>(received), kDiscoveryAckSize);
}

std::string Dotted(unsigned networkIp) {
    in_addr address{};
    address.s_addr = networkIp;
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

} // namespace

DeviceData MakeDeviceData(const sockaddr_in& local, const std::uint8_t* datagram, std::size_t size,
                          bool unicastDiscovered) {
    DeviceData row;
    row.localAddress = local;
    row.id = gvcp::GetString(datagram, size, kSerialInAck);
    if (size > gvcp::kHeaderSize) {
        std::memcpy(row.discoveryPayload.data(), datagram + gvcp::kHeaderSize,
                    std::min(size - gvcp::kHeaderSize, row.discoveryPayload.size()));
    }
    row.unicastDiscovered = unicastDiscovered;
    return row;
}

unsigned PayloadIp(const DeviceData& row) {
    unsigned ip = 0;
    std::memcpy(&ip, row.discoveryPayload.data() + kIpInPayload, sizeof ip);
    return ip;
}

void ProcessDiscoveryAck(AdapterHandle* adapter, std::vector<DiscoveredDevice>& devices,
                         long timeoutMs, bool useBroadcastSocket) {
    std::unique_ptr<std::uint8_t[]> buffer(new std::uint8_t[kDiscoveryAckSize]());
    CommSocket* socket =
        useBroadcastSocket ? adapter->broadcastSocket.get() : adapter->socket.get();
    if (socket == nullptr) {
        return;
    }
    boost::timer::cpu_timer clock;
    for (;;) {
        int received = 0;
        const int rc = socket->Receive(reinterpret_cast<char*>(buffer.get()), kDiscoveryAckSize,
                                       true, received, CommSocket::kSocketTimeout);
        if (rc != GC_ERR_SUCCESS) {
            // The usual end: the time is up.
            HLogger::Error("GenTL::HALGev::GetDevices Receive Failed", rc);
            return;
        }
        if (CarriesPayload(received)) {
            DeviceData row =
                MakeDeviceData(adapter->localAddress, buffer.get(), Arrived(received), false);
            boost::mutex::scoped_lock lock(adapter->deviceListLock);
            devices.emplace_back(row.id, PayloadIp(row));
            adapter->deviceList.push_back(std::move(row));
        }
        const long elapsedMs = static_cast<long>(clock.elapsed().wall / 1000000);
        const long remaining = timeoutMs - elapsedMs;
        if (remaining < 1) {
            return;
        }
        int former = 0;
        if (socket->SetTimeout(ToSocketTimeout(remaining), former) != GC_ERR_SUCCESS) {
            HLogger::Error(loc::al("GenTL::HALGev::GetDevices SetTimeout Failed setting timout {0}",
                                   std::to_string(remaining).c_str())
                               .c_str());
        }
    }
}

int UnicastDiscovery(AdapterHandle* adapter, const std::uint8_t* command, std::size_t commandLength,
                     std::vector<DiscoveredDevice>& devices, long timeoutMs) {
    boost::mutex::scoped_lock lock(adapter->unicastLock);
    if (adapter->unicastList.empty()) {
        return GC_ERR_SUCCESS;
    }
    std::unique_ptr<CommSocket> socket(new CommSocket());
    const int rc = socket->OpenAndBindSocket(adapter->localAddress, "", gvcp::kPort, false,
                                             ToSocketTimeout(timeoutMs));
    if (rc != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGev::GetDevices failed to open and bind unicast socket");
        return ReportError(rc, "failed to open and bind unicast socket.");
    }
    std::unique_ptr<std::uint8_t[]> buffer(new std::uint8_t[kDiscoveryAckSize]());
    for (const unsigned ip : adapter->unicastList) {
        if (socket->Send(reinterpret_cast<const char*>(command), static_cast<int>(commandLength),
                         ip) != GC_ERR_SUCCESS) {
            HLogger::Error(
                loc::al("GenTL::HALGev::GetDevices(): Unicast discovery send failed. Remote IP: "
                        "[{0}]",
                        Dotted(ip).c_str())
                    .c_str());
            continue;
        }
        int received = 0;
        if (socket->Receive(reinterpret_cast<char*>(buffer.get()), kDiscoveryAckSize, true,
                            received, CommSocket::kSocketTimeout) != GC_ERR_SUCCESS) {
            HLogger::Error(
                loc::al("GenTL::HALGev::GetDevices(): Unicast discovery receive failed. Remote "
                        "IP: [{0}]",
                        Dotted(ip).c_str())
                    .c_str());
            continue;
        }
        if (!CarriesPayload(received)) {
            continue;
        }
        DeviceData row =
            MakeDeviceData(adapter->localAddress, buffer.get(), Arrived(received), true);
        devices.emplace_back(row.id, PayloadIp(row));
        adapter->deviceList.push_back(std::move(row));
    }
    socket->Close();
    return GC_ERR_SUCCESS;
}

} // namespace GenTL
