#include "hal/BaseHandle.h"

#include "hal/SocketHelper.h"

namespace GenTL {

BaseHandle::BaseHandle() = default;
BaseHandle::~BaseHandle() = default;

std::uint16_t GetReqID(BaseHandle* handle) {
    boost::mutex::scoped_lock lock(handle->requestIdLock);
    std::uint32_t next = (handle->requestId + 1) & 0xFFFF;
    if (next == 0) {
        next = 1;
    }
    handle->requestId = next;
    return static_cast<std::uint16_t>(next);
}

} // namespace GenTL
