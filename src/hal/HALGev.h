#pragma once
/**
 * HALGev: the GVCP control layer (see IHALGev for the contract).
 *
 * The work is split into small parts, each in its own file:
 *   - GvcpWire: header layouts, codes, bounded field access;
 *   - GvcpTransaction: request ids, resends, pending and stale acks of the
 *     six register and memory operations;
 *   - AdapterTable: the host's adapters and their ids;
 *   - DiscoveryCollector: the two collector threads and unicast discovery;
 *   - GvcpSettingsFile: the KestaGentl.cfg overrides.
 * This class holds the settings and the adapter table and ties them together.
 */
#include <atomic>
#include <string>
#include <vector>

#include "hal/AdapterData.h"
#include "hal/IHALGev.h"

namespace GenTL {

class HALGev : public IHALGev {
public:
    /// Reads KestaGentl.cfg from the working directory.
    HALGev();
    /// Reads the override file at settingsPath instead.
    explicit HALGev(const std::string& settingsPath);
    ~HALGev() override;

    int GetInterfaces(std::vector<std::string>& ids) override;
    int OpenInterface(const std::string& id, void** hAdapter) const override;
    int CloseInterface(void* hAdapter) const override;
    int GetDevices(void* hAdapter, std::vector<DiscoveredDevice>& devices,
                   long timeoutMs) const override;
    int OpenDevice(void* hAdapter, const std::string& id, void** hDevice) const override;
    int SetDeviceTimeout(void* hDevice, int ms) const override;
    int CloseDevice(void* hDevice) const override;
    int ReadReg(void* hDevice, unsigned address, unsigned& value) const override;
    int WriteReg(void* hDevice, unsigned address, unsigned value) const override;
    int ReadRegBlock(void* hDevice, unsigned address, unsigned* values,
                     std::size_t count) const override;
    int WriteRegBlock(void* hDevice, unsigned address, const unsigned* values,
                      std::size_t count) const override;
    int ReadMem(void* hDevice, unsigned address, char* data, std::size_t length) const override;
    int WriteMem(void* hDevice, unsigned address, const char* data,
                 std::size_t length) const override;
    int GetModelName(void* hDevice, std::string& name) const override;
    int GetModelName(void* hAdapter, std::string id, std::string& name) const override;
    int GetVendorName(void* hDevice, std::string& name) const override;
    int GetVendorName(void* hAdapter, std::string id, std::string& name) const override;
    int GetSerialNumber(void* hDevice, std::string& serial) const override;
    int GetSerialNumber(void* hAdapter, std::string id, std::string& serial) const override;
    int GetUserDefinedName(void* hDevice, std::string& name) const override;
    int GetUserDefinedName(void* hAdapter, std::string id, std::string& name) const override;
    int GetDeviceVersion(void* hDevice, std::string& version) const override;
    int GetDeviceVersion(void* hAdapter, std::string id, std::string& version) const override;
    int GetInterfaceId(void* hAdapter, std::string& id) const override;
    int GetMACAddress(void* hAdapter, long& mac) const override;
    int GetIPAddress(void* hAdapter, long& ip) const override;
    int GetSubnetMask(void* hAdapter, long& mask) const override;
    int GetDevMACAddress(void* hAdapter, std::string id, long& mac) const override;
    int GetDevIPAddress(void* hAdapter, std::string id, long& ip) const override;
    int GetDevSubnetMask(void* hAdapter, std::string id, long& mask) const override;
    int GetDevMACAddress(void* hDevice, long& mac) const override;
    int GetDevSubnetMask(void* hDevice, long& mask) const override;
    int GetDevIPAddress(void* hDevice, long& ip) const override;
    int GetDevDefaultGateway(void* hDevice, long& gateway) const override;
    int GetDevIpConfigDHCP(void* hDevice, bool& on) const override;
    int GetDevIpConfigPersistentIp(void* hDevice, bool& on) const override;
    int GetDevIpConfigLLA(void* hDevice, bool& on) const override;
    int GetDevDefaultGateway(void* hAdapter, std::string id, long& gateway) const override;
    int GetDevIpConfigDHCP(void* hAdapter, std::string id, bool& on) const override;
    int GetDevIpConfigPersistentIp(void* hAdapter, std::string id, bool& on) const override;
    int GetDevIpConfigLLA(void* hAdapter, std::string id, bool& on) const override;
    int GetPort(void* handle, unsigned short& port) const override;
    int GetDevPort(void* handle, unsigned short& port) const override;
    int GetTimestampTickFrequency(void* hAdapter, std::string id,
                                  unsigned long& frequency) const override;
    int ForceIP(void* hAdapter, unsigned short macHigh, unsigned macLow, unsigned ip,
                unsigned subnet, unsigned gateway) const override;
    int SendPacketResend(void* hDevice, unsigned long blockId, unsigned firstPacket,
                         unsigned lastPacket, bool extended) const override;
    int SetGvcpRetries(unsigned long retries) override;
    int GetGvcpRetries(unsigned long& retries) const override;
    int IsConnected(void* hAdapter, std::string id, bool& connected) const override;
    int IsConnected(void* hDevice, bool& connected) const override;
    int SetConnected(void* hDevice, bool connected) const override;
    int CloseSocket(void* hDevice) const override;
    int SendActionCommand(void* hDevice, unsigned deviceKey, unsigned groupKey, unsigned groupMask,
                          unsigned long scheduledTime) const override;
    int AddUnicastDiscoveryDevice(void* hAdapter, unsigned ip) override;
    int RemoveUnicastDiscoveryDevice(void* hAdapter, unsigned ip) override;
    int GetUnicastDiscoveryDevices(void* hAdapter, unsigned* list, unsigned* size) override;
    bool IsLwfDriverInstalledForMac(long mac) const override;

    /// Milliseconds of SO_RCVTIMEO at socket open.
    int Timeout() const { return m_timeout; }
    bool TimeoutOverridden() const { return m_timeoutOverridden; }

private:
    std::vector<AdapterData> m_adapters;
    std::atomic<bool> m_timeoutOverridden{false};
    /// Guarded by the process-wide retries lock.
    unsigned long m_numRetries = 3;
    int m_timeout = 200;
};

} // namespace GenTL
