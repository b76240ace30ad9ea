#pragma once
/**
 * The common head of the two opaque records of the control layer: an open
 * adapter (AdapterHandle) and an open device (DeviceHandle).
 *
 * Callers above the control layer only ever hold these as void*. They are
 * handed out as BaseHandle* turned into void*, and AsBase(), AsAdapter() and
 * AsDevice() turn them back the same way.
 */
#include <cstdint>
#include <memory>
#include <string>

#include <boost/thread/mutex.hpp>

namespace GenTL {

class CommSocket;

struct BaseHandle {
    BaseHandle();
    BaseHandle(const BaseHandle&) = delete;
    BaseHandle& operator=(const BaseHandle&) = delete;
    ~BaseHandle();

    /// The adapter's id, or the device's id.
    std::string id;
    /// The control socket, owned.
    std::unique_ptr<CommSocket> socket;
    /// Last request id used; guarded by requestIdLock.
    std::uint32_t requestId = 1;
    boost::mutex requestIdLock;
};

/// Next request id of the handle: 1 to 65535, then 1 again; never 0.
std::uint16_t GetReqID(BaseHandle* handle);

inline void* ToOpaque(BaseHandle* handle) {
    return static_cast<void*>(handle);
}
inline BaseHandle* AsBase(void* handle) {
    return static_cast<BaseHandle*>(handle);
}

} // namespace GenTL
