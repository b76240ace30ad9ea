#pragma once
/// One row of a device list: a device that answered a discovery.
#include <netinet/in.h>

#include <array>
#include <cstdint>
#include <string>

#include "hal/GvcpWire.h"

namespace GenTL {

using DiscoveryPayload = std::array<std::uint8_t, gvcp::kDiscoveryPayloadSize>;

struct DeviceData {
    /// Address of the adapter that received the answer.
    sockaddr_in localAddress{};
    /// The serial number from the answer.
    std::string id;
    /// The answer's payload as received, read field by field by the getters.
    DiscoveryPayload discoveryPayload{};
    /// Answered a unicast discovery rather than the broadcast.
    bool unicastDiscovered = false;
};

} // namespace GenTL
