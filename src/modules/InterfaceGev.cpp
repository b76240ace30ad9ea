#include "modules/InterfaceGev.h"

#include <algorithm>
#include <cstring>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/GLogger.h"
#include "api/GenTLHandle.h"
#include "modules/DeviceGev.h"
#include "modules/ProtectedDeviceRegistry.h"
#include "registers/ModuleXml.h"

namespace GenTL {

namespace {

const char kInterfaceUrlTemplate[] =
    "local:SFNC_GenTLInterface_Reference_Version_1_0_0_Schema_1_1.xml;F0F00000;%X?"
    "SchemaVersion=1.0.0";

constexpr int kAccessStatusUnknown = 0;
constexpr int kAccessStatusReadWrite = 1;
constexpr int kAccessStatusReadOnly = 2;

} // namespace

InterfaceGev::InterfaceGev(IHALGev* hal, void* parent, void* hAdapter)
    : m_pHwInterface(hal), m_parent(parent), m_hAdapter(hAdapter) {
    m_portInfo.module = "TLInterface";
    m_portInfo.portName = "InterfacePort";
    std::string id;
    if (m_pHwInterface->GetInterfaceId(m_hAdapter, id) == GC_ERR_SUCCESS) {
        m_portInfo.id = id;
        m_displayName = "GigE Interface ( MAC:" + id + " )";
    } else {
        GLogger::Error("GenTL::InterfaceGev::InterfaceGev failed set id");
        m_portInfo.id = "Failed to Get InterfaceId";
        m_displayName = "GigEInterface ( unknown MAC )";
    }
}

InterfaceGev::~InterfaceGev() = default;

// --- Port ------------------------------------------------------------------

int InterfaceGev::ReadPort(unsigned long address, void* buffer, unsigned long* size) {
    return m_registers.DispatchRead(address, buffer, size);
}

int InterfaceGev::WritePort(unsigned long address, const void* buffer, unsigned long* size) {
    return m_registers.DispatchWrite(address, buffer, size);
}

int InterfaceGev::GetPortURL(char* url, unsigned long* size) const {
    return BaseModule::GetPortURL(kInterfaceUrlTemplate, g_interfaceXml.size, kPortUrlExtraTwo, url,
                                  size);
}

int InterfaceGev::GetNumPortURLs(unsigned int* count) {
    return GetOneNumPortURLs(count);
}

// --- Interface -------------------------------------------------------------

int InterfaceGev::Open() {
    return GC_ERR_SUCCESS;
}

int InterfaceGev::Close() {
    const int rc = m_pHwInterface->CloseInterface(m_hAdapter);
    // IFClose deletes this object whatever happens, so the entry goes too.
    g_openedDevicesRegistry.PopInterfaceEntry(m_portInfo.id);
    if (rc != GC_ERR_SUCCESS) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int InterfaceGev::UpdateDeviceList(bool* changed, unsigned long timeout) {
    if (timeout == 0) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "input iTimeout==0");
    }
    std::vector<DiscoveredDevice> devices;
    if (int rc = m_pHwInterface->GetDevices(m_hAdapter, devices, static_cast<long>(timeout))) {
        GLogger::Error("GenTL::InterfaceGev::UpdateDeviceList failed to update device list", rc);
        return ChainError(rc);
    }
    if (changed != nullptr) {
        // Equal entries have the same id and the same address: a camera with
        // a new address is a change, another order of answers is not.
        *changed = devices.size() != m_devices.size() ||
                   !std::is_permutation(devices.begin(), devices.end(), m_devices.begin());
    }
    m_devices = std::move(devices);
    return GC_ERR_SUCCESS;
}

int InterfaceGev::GetInfo(int cmd, int* type, void* buffer, unsigned long* size) {
    long value = 0;
    int rc = GC_ERR_SUCCESS;
    switch (cmd) {
    case INTERFACE_INFO_GEV_MAC_ADDRESS:
        if ((rc = m_pHwInterface->GetMACAddress(m_hAdapter, value)) != GC_ERR_SUCCESS) {
            return ReportError(rc, "GenTL::INTERFACE_INFO_GEV_MAC_ADDRESS is not implemented");
        }
        break;
    case INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS:
        if ((rc = m_pHwInterface->GetIPAddress(m_hAdapter, value)) != GC_ERR_SUCCESS) {
            return ReportError(rc,
                               "GenTL::INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS is not implemented");
        }
        break;
    case INTERFACE_INFO_GEV_SUBNET_MASK:
        if ((rc = m_pHwInterface->GetSubnetMask(m_hAdapter, value)) != GC_ERR_SUCCESS) {
            return ReportError(rc, "GenTL::INTERFACE_INFO_GEV_SUBNET_MASK is not implemented");
        }
        break;
    default:
        return Interface::GetInfo(cmd, type, buffer, size);
    }
    return m_infoUtility.SetInfo(value, type, buffer, size, false);
}

int InterfaceGev::GetParentTL(void** phSystem) const {
    if (phSystem == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "phSystem==nullptr");
    }
    *phSystem = m_parent;
    return GC_ERR_SUCCESS;
}

int InterfaceGev::GetNumDevices(unsigned int* count) const {
    if (count == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piNumDevices==nullptr");
    }
    *count = static_cast<unsigned int>(m_devices.size());
    return GC_ERR_SUCCESS;
}

int InterfaceGev::GetDeviceID(unsigned int index, char* id, unsigned long* size) const {
    if (size == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piSize==nullptr");
    }
    if (index >= m_devices.size()) {
        return ReportError(GC_ERR_INVALID_INDEX,
                           "iIndex==" + std::to_string(index) +
                               " is invalid; iIndex must be 0 <= iIndex <=" +
                               std::to_string(static_cast<long>(m_devices.size()) - 1));
    }
    const std::string& text = std::get<0>(m_devices[index]);
    const unsigned long needed = text.size() + 1;
    if (id == nullptr) {
        *size = needed;
        return GC_ERR_SUCCESS;
    }
    if (*size < needed) {
        return ReportError(GC_ERR_BUFFER_TOO_SMALL, "*piSize=" + std::to_string(*size) +
                                                        "idSize=" + std::to_string(needed) +
                                                        ". *piSize must be >= idSize");
    }
    std::memcpy(id, text.c_str(), needed);
    *size = needed;
    return GC_ERR_SUCCESS;
}

int InterfaceGev::GetDeviceInfo(const char* id, int cmd, int* type, void* buffer,
                                unsigned long* size) const {
    if (id == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "sDeviceID==nullptr");
    }
    const std::string key(id);
    const IHALGev& hal = *m_pHwInterface;
    // A failed lookup is reported with its own code and the command's text.
    auto answer = [&](int rc, const char* failure, const auto& value) {
        if (rc != GC_ERR_SUCCESS) {
            return detail::ReportErrorAt(rc, failure, "GetDeviceInfo", __LINE__);
        }
        return m_infoUtility.SetInfo(value, type, buffer, size, false);
    };
    std::string text;
    long number = 0;
    bool flag = false;
    switch (cmd) {
    case DEVICE_INFO_ID:
        return answer(hal.GetSerialNumber(m_hAdapter, key, text),
                      "GenTL::DEVICE_INFO_ID is not implemented", text);
    case DEVICE_INFO_VENDOR:
        return answer(hal.GetVendorName(m_hAdapter, key, text),
                      "GenTL::DEVICE_INFO_VENDOR is not implemented", text);
    case DEVICE_INFO_MODEL:
        return answer(hal.GetModelName(m_hAdapter, key, text),
                      "GenTL::DEVICE_INFO_MODEL is not implemented", text);
    case DEVICE_INFO_TLTYPE:
        return answer(GC_ERR_SUCCESS, "", std::string("GEV"));
    case DEVICE_INFO_DISPLAYNAME: {
        const int rc = hal.GetModelName(m_hAdapter, key, text);
        std::string serial;
        if (rc == GC_ERR_SUCCESS && hal.GetSerialNumber(m_hAdapter, key, serial) != 0) {
            GLogger::Error("InterfaceGev::GetDeviceInfo coud not get serial number");
            serial = "Unknown Serial Number";
        }
        return answer(rc, "GenTL::DEVICE_INFO_DISPLAYNAME is not implemented",
                      text + " ( " + serial + " ) ");
    }
    case DEVICE_INFO_ACCESS_STATUS:
        return GetAccessStatus(key, type, buffer, size);
    case DEVICE_INFO_USER_DEFINED_NAME:
        return answer(hal.GetUserDefinedName(m_hAdapter, key, text),
                      "GenTL::DEVICE_INFO_USER_DEFINED_NAME is not implemented", text);
    case DEVICE_INFO_SERIAL_NUMBER:
        return answer(hal.GetSerialNumber(m_hAdapter, key, text),
                      "GenTL::DEVICE_INFO_SERIAL_NUMBER is not implemented", text);
    case DEVICE_INFO_VERSION:
        return answer(hal.GetDeviceVersion(m_hAdapter, key, text),
                      "GenTL::DEVICE_INFO_VERSION is not implemented", text);
    case DEVICE_INFO_TIMESTAMP_FREQUENCY: {
        unsigned long frequency = 0;
        return answer(hal.GetTimestampTickFrequency(m_hAdapter, key, frequency),
                      "GenTL::DEVICE_INFO_TIMESTAMP_FREQUENCY is not implemented", frequency);
    }
    case DEVICE_INFO_GEV_IP_ADDRESS:
        return answer(hal.GetDevIPAddress(m_hAdapter, key, number),
                      "GenTL::DEVICE_INFO_GEV_IP_ADDRESS is not implemented", number);
    case DEVICE_INFO_GEV_SUBNET_MASK:
        return answer(hal.GetDevSubnetMask(m_hAdapter, key, number),
                      "GenTL::DEVICE_INFO_GEV_SUBNET_MASK is not implemented", number);
    case DEVICE_INFO_GEV_MAC_ADDRESS:
        return answer(hal.GetDevMACAddress(m_hAdapter, key, number),
                      "GenTL::DEVICE_INFO_GEV_MAC_ADDRESS is not implemented", number);
    case DEVICE_INFO_GEV_DEFAULT_GATEWAY:
        return answer(hal.GetDevDefaultGateway(m_hAdapter, key, number),
                      "GenTL::DEVICE_INFO_GEV_DEFAULT_GATEWAY is not implemented", number);
    case DEVICE_INFO_GEV_CONFIG_DHCP:
        return answer(hal.GetDevIpConfigDHCP(m_hAdapter, key, flag),
                      "GenTL::DEVICE_INFO_GEV_CONFIG_DHCP is not implemented", flag);
    case DEVICE_INFO_GEV_CONFIG_PERSISTENT_IP:
        return answer(hal.GetDevIpConfigPersistentIp(m_hAdapter, key, flag),
                      "GenTL::DEVICE_INFO_GEV_CONFIG_PERSISTENT_IP is not implemented", flag);
    case DEVICE_INFO_GEV_CONFIG_LLA:
        return answer(hal.GetDevIpConfigLLA(m_hAdapter, key, flag),
                      "GenTL::DEVICE_INFO_GEV_CONFIG_LLA is not implemented", flag);
    case DEVICE_INFO_IS_CONNECTED:
        return answer(hal.IsConnected(m_hAdapter, key, flag),
                      "GenTL::DEVICE_INFO_IS_CONNECTED is not implemented", flag);
    default:
        return ReportError(
            GC_ERR_INVALID_INDEX,
            "iInfoCmd must be one of :\nGenTL::DEVICE_INFO_ID, GenTL::DEVICE_INFO_TLTYPE, "
            "GenTL::DEVICE_INFO_DISPLAYNAME, \nGenTL::DEVICE_INFO_MODEL, "
            "GenTL::DEVICE_INFO_VENDOR, GenTL::DEVICE_INFO_ACCESS_STATUS, "
            "\nGenTL::DEVICE_INFO_USER_DEFINED_NAME, GenTL::DEVICE_INFO_SERIAL_NUMBER, "
            "GenTL::DEVICE_INFO_VERSION, \nGenTL::DEVICE_INFO_TIMESTAMP_FREQUENCY, "
            "GenTL::DEVICE_INFO_GEV_IP_ADDRESS, GenTL::DEVICE_INFO_GEV_SUBNET_MASK, "
            "\nGenTL::DEVICE_INFO_GEV_MAC_ADDRESS, GenTL::DEVICE_INFO_GEV_DEFAULT_GATEWAY, "
            "GenTL::DEVICE_INFO_GEV_CONFIG_DHCP, \nGenTL::DEVICE_INFO_GEV_CONFIG_PERSISTENT_IP, "
            "GenTL::DEVICE_INFO_GEV_CONFIG_LLA, GenTL::DEVICE_INFO_IS_CONNECTED");
    }
}

int InterfaceGev::GetAccessStatus(const std::string& id, int* type, void* buffer,
                                  unsigned long* size) const {
    unsigned long idSize = 0;
    if (int rc = GetDeviceID(0, nullptr, &idSize)) {
        return ChainError(rc);
    }
    // The trial really claims the camera, and releases it at once.
    void* hIface = g_openedDevicesRegistry.PeekInterfaceEntry(m_portInfo.id).handle;
    int status = kAccessStatusUnknown;
    void* hDevice = nullptr;
    if (OpenDevice(id.c_str(), DEVICE_ACCESS_CONTROL, &hDevice, hIface) == GC_ERR_SUCCESS) {
        DevClose(hDevice);
        status = kAccessStatusReadWrite;
    } else if (OpenDevice(id.c_str(), DEVICE_ACCESS_READONLY, &hDevice, hIface) == GC_ERR_SUCCESS) {
        DevClose(hDevice);
        status = kAccessStatusReadOnly;
    }
    return m_infoUtility.SetInfo(status, type, buffer, size, false);
}

int InterfaceGev::OpenDevice(const char* id, const int& flags, void** phDevice,
                             void* hIface) const {
    if (id == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "sDeviceID==nullptr");
    }
    if (phDevice == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "pDevHandle==nullptr");
    }
    const std::string key(id);
    const bool listed = std::any_of(m_devices.begin(), m_devices.end(),
                                    [&](const auto& device) { return std::get<0>(device) == key; });
    if (!listed) {
        std::string message = "GenTL::InterfaceGev::OpenDevice device ID=" + key +
                              " not found in the list of devices.\n";
        if (m_devices.empty()) {
            message += "\t\t\t\t\t  The list of devices is empty. No devices is connected this "
                       "interface.";
        } else {
            message += "\t\t\t\t\t  The list of devices has the following device(s):\n";
            for (const auto& device : m_devices) {
                message += "\t\t\t\t\t\t" + std::get<0>(device) + "\n";
            }
        }
        return ReportError(GC_ERR_INVALID_ID, message);
    }
    if (g_openedDevicesRegistry.IsDeviceAlreadyOpen(key)) {
        return ReportError(GC_ERR_RESOURCE_IN_USE, "device ID=" + key + " is already open");
    }
    void* hDevice = nullptr;
    if (int rc = m_pHwInterface->OpenDevice(m_hAdapter, key, &hDevice)) {
        GLogger::Error(
            "GenTL::InterfaceGev::OpenDevice Failed calling  m_pHwInterface->OpenDevice with err",
            rc);
        return ChainError(rc);
    }
    return CreateDevice(key, flags, hDevice, hIface, phDevice);
}

int InterfaceGev::CreateDevice(const std::string& id, int flags, void* hDevice, void* hIface,
                               void** phDevice) const {
    auto* device = new DeviceGev(m_pHwInterface, id, const_cast<InterfaceGev*>(this), hDevice);
    if (int rc = device->Open(flags, hIface)) {
        GLogger::Error("GenTL::InterfaceGev::OpenDevice Failed calling m_pDevice->Open() with err",
                       rc);
        // A failed Open leaves the device handle to its maker.
        delete device;
        m_pHwInterface->CloseDevice(hDevice);
        return ChainError(rc);
    }
    void* handle = nullptr;
    AllocateHandle(&handle, static_cast<IDevice*>(device));
    if (int rc = g_openedDevicesRegistry.AddDeviceEntry(m_portInfo.id, id, handle)) {
        // Close gives the camera and the device handle back.
        device->Close();
        delete device;
        DeleteHandle(handle);
        return ChainError(rc);
    }
    *phDevice = handle;
    return GC_ERR_SUCCESS;
}

int InterfaceGev::ForceIp(unsigned long mac, unsigned int ip, unsigned int mask,
                          unsigned int gateway) {
    if (mac == 0) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "mac==0");
    }
    if (ip == 0) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "ip==0");
    }
    if (mask == 0) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "subnet==0");
    }
    const auto macHigh = static_cast<unsigned short>((mac >> 32) & 0xFFFF);
    const auto macLow = static_cast<unsigned int>(mac & 0xFFFFFFFFUL);
    if (int rc = m_pHwInterface->ForceIP(m_hAdapter, macHigh, macLow, ip, mask, gateway)) {
        GLogger::Error("GenTL::InterfaceGev::ForceIp failed to update device ip", rc);
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int InterfaceGev::AddUnicastDiscoveryDevice(unsigned int ip) {
    if (int rc = m_pHwInterface->AddUnicastDiscoveryDevice(m_hAdapter, ip)) {
        GLogger::Error("GenTL::InterfaceGev::AddUnicastDiscoveryDevice failed", rc);
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int InterfaceGev::RemoveUnicastDiscoveryDevice(unsigned int ip) {
    if (int rc = m_pHwInterface->RemoveUnicastDiscoveryDevice(m_hAdapter, ip)) {
        GLogger::Error("GenTL::InterfaceGev::RemoveUnicastDiscoveryDevice failed", rc);
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int InterfaceGev::GetUnicastDiscoveryDevices(unsigned int* ips, unsigned int* count) {
    if (int rc = m_pHwInterface->GetUnicastDiscoveryDevices(m_hAdapter, ips, count)) {
        GLogger::Error("GenTL::InterfaceGev::GetUnicastDiscoveryDevices failed", rc);
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

} // namespace GenTL
