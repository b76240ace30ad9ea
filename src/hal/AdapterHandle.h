#pragma once
/// An open adapter: its broadcast control socket and the last discovery.
#include <netinet/in.h>

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "hal/BaseHandle.h"
#include "hal/DeviceData.h"

namespace GenTL {

struct AdapterHandle : BaseHandle {
    AdapterHandle();
    ~AdapterHandle();

    /// The adapter's own address.
    sockaddr_in localAddress{};
    std::string adapterId;
    /// The result of the last discovery; guarded by deviceListLock.
    std::vector<DeviceData> deviceList;
    boost::mutex deviceListLock;
    /// Exists only while a discovery runs: takes broadcast answers of devices
    /// on a foreign subnet, which the socket bound to the adapter's address
    /// does not see.
    std::unique_ptr<CommSocket> broadcastSocket;
    /// Devices asked by unicast after each broadcast, in network order.
    std::unordered_set<std::uint32_t> unicastList;
    boost::mutex unicastLock;
};

inline AdapterHandle* AsAdapter(void* handle) {
    return handle ? static_cast<AdapterHandle*>(AsBase(handle)) : nullptr;
}

} // namespace GenTL
