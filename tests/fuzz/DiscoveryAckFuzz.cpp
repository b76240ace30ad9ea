// Fuzz target of the discovery answers: datagrams of any content and length
// collected as a discovery collects them, then every fact read from the
// rows by device id. The checks below: a row only for an answer with a
// payload, and nothing in a row that did not arrive in its answer.
//
// Input: datagrams as ScriptedSocket reads them.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <tuple>
#include <vector>

#include "ScriptedSocket.h"
#include "api/Error.h"
#include "hal/AdapterHandle.h"
#include "hal/DiscoveryCollector.h"
#include "hal/GvcpWire.h"
#include "hal/HALGev.h"

namespace {

void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace GenTL;
    static HALGev hal("/nonexistent/KestaGentl.cfg");
    kesta_fuzz::Input in(data, size);
    AdapterHandle adapter;
    auto* socket = new kesta_fuzz::ScriptedSocket(in);
    adapter.socket.reset(socket);
    std::vector<DiscoveredDevice> devices;
    ProcessDiscoveryAck(&adapter, devices, 1000, false);

    std::size_t answers = 0;
    for (const kesta_fuzz::Bytes& datagram : socket->handedOut) {
        if (datagram.size() <= gvcp::kHeaderSize) {
            continue;
        }
        Require(answers < adapter.deviceList.size());
        const DeviceData& row = adapter.deviceList[answers++];
        const std::size_t arrived = std::min(datagram.size(), kDiscoveryAckSize);
        for (std::size_t i = 0; i < row.discoveryPayload.size(); ++i) {
            const std::size_t at = gvcp::kHeaderSize + i;
            Require(row.discoveryPayload[i] == (at < arrived ? datagram[at] : 0));
        }
        Require(row.id == gvcp::GetString(datagram.data(), arrived, gvcp::kHeaderSize + 0xD8));
    }
    Require(answers == adapter.deviceList.size() && answers == devices.size());

    void* h = ToOpaque(&adapter);
    for (const DiscoveredDevice& device : devices) {
        const std::string& id = std::get<0>(device);
        std::string text;
        long number = 0;
        bool flag = false;
        hal.GetModelName(h, id, text);
        hal.GetVendorName(h, id, text);
        hal.GetSerialNumber(h, id, text);
        hal.GetUserDefinedName(h, id, text);
        hal.GetDeviceVersion(h, id, text);
        hal.GetDevMACAddress(h, id, number);
        hal.GetDevIPAddress(h, id, number);
        hal.GetDevSubnetMask(h, id, number);
        hal.GetDevDefaultGateway(h, id, number);
        hal.GetDevIpConfigDHCP(h, id, flag);
        hal.GetDevIpConfigPersistentIp(h, id, flag);
        hal.GetDevIpConfigLLA(h, id, flag);
    }
    ErrorCache::GetErrorCache()->Clear();
    return 0;
}
