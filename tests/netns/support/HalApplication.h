#pragma once
// One application of the library's own control layer on one host namespace
// of the test bed: a HALGev, the adapter with the given address, and the
// cameras it opens, which it gives back (control released) and closes at the
// end. Its sockets belong to the namespace of the thread that makes it.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "GenTL_KESTA.h"
#include "NetnsSupport.h"
#include "hal/HALGev.h"

namespace kesta_netns {

class HalApplication {
public:
    explicit HalApplication(std::uint32_t adapterIp)
        : m_hal(new GenTL::HALGev("/nonexistent/KestaGentl.cfg")) {
        std::vector<std::string> ids;
        m_hal->GetInterfaces(ids);
        for (const std::string& id : ids) {
            void* adapter = nullptr;
            if (m_hal->OpenInterface(id, &adapter) != GC_ERR_SUCCESS) {
                continue;
            }
            long own = 0;
            m_hal->GetIPAddress(adapter, own);
            if (static_cast<std::uint32_t>(own) == adapterIp) {
                m_adapter = adapter;
                m_adapterId = id;
                return;
            }
            m_hal->CloseInterface(adapter);
        }
    }
    virtual ~HalApplication() {
        for (void* device : m_devices) {
            m_hal->WriteReg(device, 0x0A00, 0); // refused where it had no control
            m_hal->CloseDevice(device);
        }
        if (m_adapter != nullptr) {
            m_hal->CloseInterface(m_adapter);
        }
    }
    HalApplication(const HalApplication&) = delete;
    HalApplication& operator=(const HalApplication&) = delete;

    GenTL::HALGev* Hal() { return m_hal.get(); }
    void* Adapter() const { return m_adapter; }
    const std::string& AdapterId() const { return m_adapterId; }

    std::vector<GenTL::DiscoveredDevice> Discover(long timeoutMs) {
        std::vector<GenTL::DiscoveredDevice> devices;
        EXPECT_EQ(GC_ERR_SUCCESS, m_hal->GetDevices(m_adapter, devices, timeoutMs));
        return devices;
    }
    /// Opens a discovered camera, with `control` claimed; null on failure.
    void* OpenCamera(const std::string& serial, bool control) {
        void* device = nullptr;
        if (m_hal->OpenDevice(m_adapter, serial, &device) != GC_ERR_SUCCESS) {
            return nullptr;
        }
        m_devices.push_back(device);
        m_hal->SetConnected(device, true);
        return !control || m_hal->WriteReg(device, 0x0A00, 2) == GC_ERR_SUCCESS ? device : nullptr;
    }

private:
    std::unique_ptr<GenTL::HALGev> m_hal;
    void* m_adapter = nullptr;
    std::string m_adapterId;
    std::vector<void*> m_devices;
};

} // namespace kesta_netns
