#pragma once
// One run against the producer: the library opened, the system module, every
// interface, the cameras they found and at most one open camera. The
// destructor closes what is open in reverse order, so a command may return
// from anywhere.
#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

#include "Producer.h"

namespace kesta::gentl {

class Session {
public:
    struct Interface {
        std::string id;
        IF_HANDLE handle = nullptr;
    };
    struct Camera {
        std::size_t iface; ///< index into Interfaces()
        std::string id;    ///< the device id (its serial number)
    };

    explicit Session(Producer& producer);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// GCInitLib, TLOpen and TLOpenInterface of every interface. An
    /// interface that cannot be opened is reported and left out.
    GC_ERROR Start();
    /// IFUpdateDeviceList on every interface, waiting timeoutMs for answers;
    /// the cameras found, in interface order, become Cameras().
    GC_ERROR Discover(std::uint64_t timeoutMs);

    /// The system module (TLOpen's handle), null before Start.
    TL_HANDLE System() const { return m_system; }
    const std::vector<Interface>& Interfaces() const { return m_interfaces; }
    const std::vector<Camera>& Cameras() const { return m_cameras; }

    /**
     * The camera that selector names: a device id, or else its index in
     * Cameras(); the first camera if selector is empty. Null (with a message
     * on stderr) if there is none.
     */
    const Camera* Find(const std::string& selector) const;

    /// IFOpenDevice; the handle stays the session's until CloseDevice.
    GC_ERROR OpenDevice(const Camera& camera, DEVICE_ACCESS_FLAGS flags, DEV_HANDLE* device);
    /// DevClose of the open camera, if any.
    GC_ERROR CloseDevice();

    Producer& Library() { return m_producer; }
    /// Prints the failure with the library's error stack to stderr; returns 1.
    int Fail(const std::string& what, GC_ERROR code);

private:
    Producer& m_producer;
    bool m_initialized = false;
    TL_HANDLE m_system = nullptr;
    std::vector<Interface> m_interfaces;
    std::vector<Camera> m_cameras;
    DEV_HANDLE m_device = nullptr;
};

} // namespace kesta::gentl
