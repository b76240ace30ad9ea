#pragma once
/**
 * Interface: the base of an interface module, one network adapter. It
 * holds the facts that every kind of interface answers from fields (id,
 * display name, transport layer type) and refuses everything else with
 * GC_ERR_NOT_IMPLEMENTED "only GEV interfaces are supported";
 * InterfaceGev, the only kind, overrides those operations.
 */
#include <string>

#include "api/InfoUtility.h"
#include "modules/BaseModule.h"
#include "modules/IInterface.h"

namespace GenTL {

class Interface : public IInterface, public BaseModule {
public:
    Interface();
    ~Interface() override;

    int ReadPort(unsigned long address, void* buffer, unsigned long* size) override;
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override;
    int GetPortURL(char* url, unsigned long* size) const override;
    int GetPortInfo(int cmd, int* type, void* buffer, unsigned long* size) override;
    int RegisterEvent(int type, void** event) override;
    int UnregisterEvent(int type) override;
    int GetNumPortURLs(unsigned int* count) override;
    int GetPortURLInfo(unsigned int index, int cmd, int* type, void* buffer,
                       unsigned long* size) override;
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;

    int Open() override;
    int Close() override;
    int UpdateDeviceList(bool* changed, unsigned long timeout) override;
    /// INTERFACE_INFO_ID, INTERFACE_INFO_DISPLAYNAME, INTERFACE_INFO_TLTYPE
    /// from the fields, as strings; another command fails with
    /// GC_ERR_INVALID_INDEX.
    int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) override;
    int GetParentTL(void** phSystem) const override;
    int GetNumDevices(unsigned int* count) const override;
    int GetDeviceID(unsigned int index, char* id, unsigned long* size) const override;
    int GetDeviceInfo(const char* id, int cmd, int* type, void* buffer,
                      unsigned long* size) const override;
    int OpenDevice(const char* id, const int& flags, void** phDevice, void* hIface) const override;
    int ForceIp(unsigned long mac, unsigned int ip, unsigned int mask,
                unsigned int gateway) override;
    int AddUnicastDiscoveryDevice(unsigned int ip) override;
    int RemoveUnicastDiscoveryDevice(unsigned int ip) override;
    int GetUnicastDiscoveryDevices(unsigned int* ips, unsigned int* count) override;

    /// The interface's id (also its port id).
    const std::string& GetId() const { return m_portInfo.id; }
    const std::string& GetDisplayName() const { return m_displayName; }

protected:
    InfoUtility m_infoUtility;
    std::string m_displayName;
};

} // namespace GenTL
