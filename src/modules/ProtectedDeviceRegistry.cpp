#include "modules/ProtectedDeviceRegistry.h"

#include <algorithm>

#include "GenTL_KESTA.h"
#include "api/Error.h"

namespace GenTL {

ProtectedDeviceRegistry g_openedDevicesRegistry;

ProtectedDeviceRegistry::ProtectedDeviceRegistry() = default;

ProtectedDeviceRegistry::ProtectedDeviceRegistry(std::map<std::string, Entry> interfaces)
    : m_interfaces(std::move(interfaces)) {}

std::vector<std::string> ProtectedDeviceRegistry::AllInterfaceIDs() {
    boost::mutex::scoped_lock lock(m_mutex);
    std::vector<std::string> ids;
    ids.reserve(m_interfaces.size());
    for (const auto& item : m_interfaces) {
        ids.push_back(item.first);
    }
    return ids;
}

std::vector<std::string> ProtectedDeviceRegistry::AllDeviceIDs() {
    boost::mutex::scoped_lock lock(m_mutex);
    std::vector<std::string> ids;
    ids.reserve(m_devices.size());
    for (const auto& item : m_devices) {
        ids.push_back(item.first);
    }
    return ids;
}

int ProtectedDeviceRegistry::AddInterfaceEntry(const std::string& id, void* const& handle) {
    boost::mutex::scoped_lock lock(m_mutex);
    if (m_interfaces.count(id) != 0) {
        return ReportError(GC_ERR_RESOURCE_IN_USE, "interface ID=" + id + " is already open");
    }
    m_interfaces.emplace(id, Entry{handle, {}});
    return GC_ERR_SUCCESS;
}

int ProtectedDeviceRegistry::AddDeviceEntry(const std::string& interfaceId,
                                            const std::string& deviceId, void* const& handle) {
    boost::mutex::scoped_lock lock(m_mutex);
    const auto owner = m_interfaces.find(interfaceId);
    if (owner == m_interfaces.end()) {
        return ReportError(GC_ERR_INVALID_ID,
                           "interface ID=" + interfaceId +
                               " not found in the registry of opened interfaces");
    }
    // Across all interfaces: one camera may be reachable through several.
    for (const auto& item : m_interfaces) {
        for (const auto& device : item.second.devices) {
            if (device.first == deviceId) {
                return ReportError(GC_ERR_RESOURCE_IN_USE,
                                   "device ID=" + deviceId + " is already open");
            }
        }
    }
    owner->second.devices.emplace_back(deviceId, handle);
    m_devices[deviceId] = DeviceEntry{interfaceId, handle};
    return GC_ERR_SUCCESS;
}

ProtectedDeviceRegistry::Entry ProtectedDeviceRegistry::PeekInterfaceEntry(const std::string& id) {
    return GetInterfaceEntry_(id, false);
}

ProtectedDeviceRegistry::Entry ProtectedDeviceRegistry::PopInterfaceEntry(const std::string& id) {
    return GetInterfaceEntry_(id, true);
}

ProtectedDeviceRegistry::DeviceEntry
ProtectedDeviceRegistry::PeekDeviceEntry(const std::string& id) {
    return GetDeviceEntry_(id, false);
}

ProtectedDeviceRegistry::DeviceEntry
ProtectedDeviceRegistry::PopDeviceEntry(const std::string& id) {
    return GetDeviceEntry_(id, true);
}

bool ProtectedDeviceRegistry::IsInterfaceAlreadyOpen(const std::string& id) {
    return PeekInterfaceEntry(id).handle != nullptr;
}

bool ProtectedDeviceRegistry::IsDeviceAlreadyOpen(const std::string& id) {
    return PeekDeviceEntry(id).handle != nullptr;
}

ProtectedDeviceRegistry::Entry ProtectedDeviceRegistry::GetInterfaceEntry_(const std::string& id,
                                                                           bool pop) {
    boost::mutex::scoped_lock lock(m_mutex);
    const auto found = m_interfaces.find(id);
    if (found == m_interfaces.end()) {
        return Entry{};
    }
    Entry entry = found->second;
    if (pop) {
        m_interfaces.erase(found);
    }
    return entry;
}

ProtectedDeviceRegistry::DeviceEntry ProtectedDeviceRegistry::GetDeviceEntry_(const std::string& id,
                                                                              bool pop) {
    boost::mutex::scoped_lock lock(m_mutex);
    const auto found = m_devices.find(id);
    if (found == m_devices.end()) {
        return DeviceEntry{};
    }
    DeviceEntry entry = found->second;
    if (pop) {
        for (auto& item : m_interfaces) {
            auto& devices = item.second.devices;
            const auto it = std::find_if(devices.begin(), devices.end(),
                                         [&](const auto& device) { return device.first == id; });
            if (it != devices.end()) {
                devices.erase(it);
                break;
            }
        }
        m_devices.erase(found);
    }
    return entry;
}

} // namespace GenTL
