#include "hal/DeviceHandle.h"

#include "hal/SocketHelper.h"

namespace GenTL {

DeviceHandle::DeviceHandle() = default;
DeviceHandle::~DeviceHandle() = default;

void DeviceHandle::ConnectionTimeout() {
    boost::mutex::scoped_lock lock(stateLock);
    timeoutCount = timeoutCount + 1;
    if (timeoutCount >= timeoutLimit) {
        connected = false;
    }
}

} // namespace GenTL
