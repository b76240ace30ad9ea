#pragma once
/// An open device: its control socket, its discovery facts and the state
/// shared by every thread that talks to it.
#include <cstdint>

#include "hal/BaseHandle.h"
#include "hal/DeviceData.h"

namespace GenTL {

struct DeviceHandle : BaseHandle {
    DeviceHandle();
    ~DeviceHandle();

    /// The device's discovery payload when it was opened; never changes.
    DiscoveryPayload discoveryPayload{};
    /// Held from before a command is built until its transaction ends, so
    /// that threads take turns per device.
    boost::mutex transactionLock;
    /// Guards the three fields below.
    boost::mutex stateLock;
    bool connected = false;
    /// Consecutive receive timeouts, across transactions.
    std::uint64_t timeoutCount = 0;
    /// Retries plus one at the time of open.
    std::uint64_t timeoutLimit = 0;

    /// Counts one receive timeout; at timeoutLimit in a row the device is
    /// taken as disconnected. Never sets connected back to true.
    void ConnectionTimeout();
};

inline DeviceHandle* AsDevice(void* handle) {
    return handle ? static_cast<DeviceHandle*>(AsBase(handle)) : nullptr;
}

} // namespace GenTL
