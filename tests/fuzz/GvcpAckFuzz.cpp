// Fuzz target of the GVCP ack path: the six register and memory transactions
// and the action command against a device that answers with datagrams of any
// content and length (pending acks, acks of this or an older request id,
// short, long and empty ones), and the answers that a discovery collects.
// The sanitizers report any read outside the ack buffer; the checks below
// that the transaction ends within its sends, that whatever it hands out as
// data came from the last datagram, which carried all of it, and that a
// discovery makes a row only of an answer with a payload and puts nothing in
// it that did not arrive in that answer.
//
// Input: the operation and retry count (1 byte), an address offset and a
// length or count (2 bytes), then datagrams as ScriptedSocket reads them.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "ScriptedSocket.h"
#include "api/Error.h"
#include "hal/AdapterHandle.h"
#include "hal/DeviceHandle.h"
#include "hal/DiscoveryCollector.h"
#include "hal/GvcpWire.h"
#include "hal/HALGev.h"

namespace {

using kesta_fuzz::Bytes;

void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

std::uint32_t Be32(const Bytes& bytes, std::size_t at) {
    return (std::uint32_t(bytes[at]) << 24) | (std::uint32_t(bytes[at + 1]) << 16) |
           (std::uint32_t(bytes[at + 2]) << 8) | bytes[at + 3];
}

/// Data handed out as read: they must be the last datagram's, from byte
/// `from`, and the datagram must hold them all.
void RequireFromLastDatagram(const kesta_fuzz::ScriptedSocket& socket, const std::uint8_t* data,
                             std::size_t length, std::size_t from) {
    Require(!socket.handedOut.empty());
    const Bytes& last = socket.handedOut.back();
    Require(last.size() >= from + length);
    Require(std::equal(data, data + length, last.begin() + static_cast<long>(from)));
}

/// The answers of a discovery, then every fact read from the rows by id.
void Discover(GenTL::HALGev& hal, kesta_fuzz::Input& in) {
    using namespace GenTL;
    AdapterHandle adapter;
    auto* socket = new kesta_fuzz::ScriptedSocket(in);
    adapter.socket.reset(socket);
    std::vector<DiscoveredDevice> devices;
    ProcessDiscoveryAck(&adapter, devices, 1000, false);
    std::size_t answers = 0;
    for (const Bytes& datagram : socket->handedOut) {
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
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace GenTL;
    static HALGev hal("/nonexistent/KestaGentl.cfg");
    kesta_fuzz::Input in(data, size);
    const std::uint32_t selector = in.Take(1);
    const std::uint32_t operation = selector % 8;
    const unsigned long retries = (selector >> 3) % 4;
    const std::uint32_t parameter = in.Take(2);
    if (operation == 7) {
        Discover(hal, in);
        ErrorCache::GetErrorCache()->Clear();
        return 0;
    }

    DeviceHandle device;
    auto* socket = new kesta_fuzz::ScriptedSocket(in);
    device.socket.reset(socket);
    device.timeoutLimit = retries + 1;
    hal.SetGvcpRetries(retries);
    void* h = ToOpaque(&device);
    const unsigned address = 0x1000 + (parameter & 0xF0);

    constexpr std::uint32_t kUntouched = 0x5A5A5A5A;
    int rc = GC_ERR_SUCCESS;
    switch (operation) {
    case 0: {
        unsigned value = kUntouched;
        rc = hal.ReadReg(h, address, value);
        if (rc == GC_ERR_SUCCESS && value != kUntouched) {
            Require(socket->handedOut.back().size() >= 12);
            Require(value == Be32(socket->handedOut.back(), 8));
        }
        break;
    }
    case 1:
        rc = hal.WriteReg(h, address, parameter);
        break;
    case 2: {
        const std::size_t count = 1 + parameter % 136;
        std::vector<unsigned> values(count, kUntouched);
        rc = hal.ReadRegBlock(h, address, values.data(), count);
        if (rc == GC_ERR_SUCCESS && values[0] != kUntouched) {
            for (std::size_t i = 0; i < count; ++i) {
                Require(socket->handedOut.back().size() >= 12 + 4 * i);
                Require(values[i] == Be32(socket->handedOut.back(), 8 + 4 * i));
            }
        }
        break;
    }
    case 3: {
        const unsigned values[2] = {parameter, ~parameter};
        rc = hal.WriteRegBlock(h, address, values, 1 + parameter % 2);
        break;
    }
    case 4: {
        const std::size_t length = parameter % 537;
        std::vector<std::uint8_t> out(length, 0x5A);
        rc = hal.ReadMem(h, address, reinterpret_cast<char*>(out.data()), length);
        if (rc == GC_ERR_SUCCESS && out != std::vector<std::uint8_t>(length, 0x5A)) {
            RequireFromLastDatagram(*socket, out.data(), length, 12);
        }
        break;
    }
    case 5: {
        const std::vector<char> bytes(parameter % 537, 'w');
        rc = hal.WriteMem(h, address, bytes.data(), bytes.size());
        break;
    }
    default:
        rc = hal.SendActionCommand(h, 1, 2, 3, parameter);
        break;
    }
    // Only a timeout is resent; every attempt ends.
    Require(socket->sends <= static_cast<int>(retries) + 1);
    (void)rc;
    ErrorCache::GetErrorCache()->Clear();
    return 0;
}
