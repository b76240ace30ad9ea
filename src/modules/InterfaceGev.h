#pragma once
/**
 * InterfaceGev: one network adapter of the GigE Vision control layer.
 *
 * System::OpenInterface makes it around an adapter handle that the control
 * layer has already opened; Close (from IFClose) closes that handle and
 * takes the interface out of g_openedDevicesRegistry.
 *
 * It keeps the devices of the last successful discovery (id and IP address,
 * in arrival order), answers DEVICE_INFO_* facts about them by id from the
 * control layer's list without opening them, except the access status,
 * which is found by trial: the camera is opened for control, else
 * read-only, and closed again. OpenDevice makes a DeviceGev, opens it and
 * registers it; a second open of a device id that the registry lists open
 * is refused.
 *
 * No lock guards the device list: the caller must not update it on one
 * thread while reading it on another.
 */
#include <string>
#include <vector>

#include "hal/IHALGev.h"
#include "modules/Interface.h"
#include "registers/InterfaceRegImpl.h"

namespace GenTL {

class InterfaceGev : public Interface {
public:
    /**
     * parent: the system's handle (GetParentTL hands it out); hAdapter: the
     * open adapter, owned from here on. The id is the adapter's, the display
     * name "GigE Interface ( MAC:<id> )"; an adapter without id is logged and
     * named "Failed to Get InterfaceId", "GigEInterface ( unknown MAC )".
     */
    InterfaceGev(IHALGev* hal, void* parent, void* hAdapter);
    ~InterfaceGev() override;

    /// The interface's register space (InterfaceReg).
    int ReadPort(unsigned long address, void* buffer, unsigned long* size) override;
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override;
    /// "local:SFNC_GenTLInterface_Reference_Version_1_0_0_Schema_1_1.xml;F0F00000;<len>?..."
    /// with two trailing zero bytes.
    int GetPortURL(char* url, unsigned long* size) const override;
    /// One URL.
    int GetNumPortURLs(unsigned int* count) override;

    /// Nothing to do: the adapter was opened before the module was made.
    int Open() override;
    /// Closes the adapter handle and pops the registry entry.
    int Close() override;
    /**
     * One discovery of timeout ms (0 is refused and sends nothing). On
     * success the new list replaces the old one and *changed (if given)
     * tells whether the set of (id, IP) pairs differs; order alone is no
     * change. A failed discovery leaves the list and *changed alone.
     */
    int UpdateDeviceList(bool* changed, unsigned long timeout) override;
    /// INTERFACE_INFO_GEV_MAC_ADDRESS, _SUBNET_IP_ADDRESS, _SUBNET_MASK of
    /// the adapter as int64; the rest as Interface::GetInfo.
    int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) override;
    int GetParentTL(void** phSystem) const override;
    int GetNumDevices(unsigned int* count) const override;
    int GetDeviceID(unsigned int index, char* id, unsigned long* size) const override;
    int GetDeviceInfo(const char* id, int cmd, int* type, void* buffer,
                      unsigned long* size) const override;
    int OpenDevice(const char* id, const int& flags, void** phDevice, void* hIface) const override;
    /// mac, ip and mask must be non-zero; gateway may be 0.
    int ForceIp(unsigned long mac, unsigned int ip, unsigned int mask,
                unsigned int gateway) override;
    int AddUnicastDiscoveryDevice(unsigned int ip) override;
    int RemoveUnicastDiscoveryDevice(unsigned int ip) override;
    int GetUnicastDiscoveryDevices(unsigned int* ips, unsigned int* count) override;

    /// The list of the last successful discovery.
    const std::vector<DiscoveredDevice>& GetDeviceList() const { return m_devices; }

private:
    /// Makes, opens and registers the device module around an open device
    /// handle; on failure nothing of it is left.
    int CreateDevice(const std::string& id, int flags, void* hDevice, void* hIface,
                     void** phDevice) const;
    int GetAccessStatus(const std::string& id, int* type, void* buffer, unsigned long* size) const;

    std::vector<DiscoveredDevice> m_devices;
    /// The port's registers; the device selector lives here.
    InterfaceRegImpl m_registers{this};
    IHALGev* m_pHwInterface;
    void* m_parent;
    void* m_hAdapter;
};

} // namespace GenTL
