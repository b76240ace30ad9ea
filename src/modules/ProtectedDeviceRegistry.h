#pragma once
/**
 * ProtectedDeviceRegistry: which interfaces and devices are open in the
 * process, by id, with their handles. It refuses a second open of the same
 * interface or device, and lets GCCloseLib and System::Close find what an
 * application left open.
 *
 * The one instance, g_openedDevicesRegistry, exists from load to unload,
 * so it outlives GCCloseLib. It holds handles only and owns nothing.
 *
 * A device is kept in two places: in the device vector of its interface's
 * entry and in the device map; the two agree. Popping an interface leaves
 * its devices in the device map until their own pop. Every operation is
 * atomic under the registry's mutex; a sequence (snapshot, peek, close,
 * pop) is not.
 */
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <boost/thread/mutex.hpp>

namespace GenTL {

class ProtectedDeviceRegistry {
public:
    /// An open interface: its handle and the devices opened on it (device
    /// id, device handle), in the order they were added.
    struct Entry {
        void* handle = nullptr;
        std::vector<std::pair<std::string, void*>> devices;
    };
    /// An open device: the id of its interface and its handle.
    struct DeviceEntry {
        std::string interfaceId;
        void* handle = nullptr;
    };

    ProtectedDeviceRegistry();
    /// Starts with these interface entries (and no device entries).
    explicit ProtectedDeviceRegistry(std::map<std::string, Entry> interfaces);

    /// Snapshots of the ids, sorted.
    std::vector<std::string> AllInterfaceIDs();
    std::vector<std::string> AllDeviceIDs();

    /// GC_ERR_RESOURCE_IN_USE "interface ID=<id> is already open" for an id
    /// that is there already; else adds an entry with no devices.
    int AddInterfaceEntry(const std::string& id, void* const& handle);
    /**
     * GC_ERR_INVALID_ID if interfaceId is not registered;
     * GC_ERR_RESOURCE_IN_USE "device ID=<id> is already open" if the device
     * is listed under any interface (a camera seen through two adapters is
     * open once). Else adds it to both places.
     */
    int AddDeviceEntry(const std::string& interfaceId, const std::string& deviceId,
                       void* const& handle);

    /// Copies of an entry; an unknown id gives a blank one (null handle),
    /// which is no failure and records nothing.
    Entry PeekInterfaceEntry(const std::string& id);
    DeviceEntry PeekDeviceEntry(const std::string& id);
    /// As the peeks, and the entry is erased (a device from both places).
    Entry PopInterfaceEntry(const std::string& id);
    DeviceEntry PopDeviceEntry(const std::string& id);

    bool IsInterfaceAlreadyOpen(const std::string& id);
    bool IsDeviceAlreadyOpen(const std::string& id);

private:
    Entry GetInterfaceEntry_(const std::string& id, bool pop);
    DeviceEntry GetDeviceEntry_(const std::string& id, bool pop);

    std::map<std::string, Entry> m_interfaces;
    std::map<std::string, DeviceEntry> m_devices;
    boost::mutex m_mutex;
};

/// The process's registry of opened interfaces and devices.
extern ProtectedDeviceRegistry g_openedDevicesRegistry;

} // namespace GenTL
