#pragma once
/**
 * IInterface: one network adapter. It discovers the cameras on its network,
 * answers facts about them and opens them as devices.
 */
#include "modules/IBaseModule.h"

namespace GenTL {

class IInterface : public IBaseModule {
public:
    /// Brings the interface up on its adapter.
    virtual int Open() = 0;
    /// Ends the interface; IFClose deletes the object afterwards.
    virtual int Close() = 0;
    /// Runs a discovery for up to timeout milliseconds; *changed tells
    /// whether the list of devices changed.
    virtual int UpdateDeviceList(bool* changed, unsigned long timeout) = 0;
    /// An INTERFACE_INFO_* fact, through the info triple.
    virtual int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) = 0;
    /// The handle of the system that opened this interface.
    virtual int GetParentTL(void** phSystem) const = 0;
    /// Number of devices in the current list.
    virtual int GetNumDevices(unsigned int* count) const = 0;
    /// ID of device number index; a null id asks for the size.
    virtual int GetDeviceID(unsigned int index, char* id, unsigned long* size) const = 0;
    /// A DEVICE_INFO_* fact of a listed device, without opening it.
    virtual int GetDeviceInfo(const char* id, int cmd, int* type, void* buffer,
                              unsigned long* size) const = 0;
    /// Opens device id with DEVICE_ACCESS_* flags; hIface, the interface's own
    /// handle, becomes its parent.
    virtual int OpenDevice(const char* id, const int& flags, void** phDevice,
                           void* hIface) const = 0;
    /// Forces ip, mask and gateway onto the camera with MAC address mac.
    virtual int ForceIp(unsigned long mac, unsigned int ip, unsigned int mask,
                        unsigned int gateway) = 0;
    /// Adds an address that discovery asks directly.
    virtual int AddUnicastDiscoveryDevice(unsigned int ip) = 0;
    /// Changes the set of directly asked addresses (0xFFFFFFFF empties it).
    virtual int RemoveUnicastDiscoveryDevice(unsigned int ip) = 0;
    /// Copies the directly asked addresses; *count is capacity in, count out.
    virtual int GetUnicastDiscoveryDevices(unsigned int* ips, unsigned int* count) = 0;
};

} // namespace GenTL
