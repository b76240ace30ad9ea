#include "registers/InterfaceRegImpl.h"

#include <cstdint>
#include <string>

#include "modules/BaseModule.h"
#include "modules/Interface.h"
#include "registers/ModuleXml.h"
#include "registers/NumberRegister.h"

namespace GenTL {

namespace {

/// The discovery that DeviceUpdateList runs.
constexpr unsigned long kUpdateListTimeoutMs = 100;
/// A selector that names no row.
constexpr long kUnselected = -1;
/// Room for a device id, as the interface's lists hold them.
constexpr unsigned long kIdSize = 512;

} // namespace

InterfaceRegImpl::InterfaceRegImpl(Interface* owner) : m_owner(owner) {}

// --- helpers -----------------------------------------------------------------

int InterfaceRegImpl::Info(int cmd, void* buffer, unsigned long* size, bool number) {
    int type = INFO_DATATYPE_UNKNOWN;
    const unsigned long asked = *size;
    const int rc = m_owner->GetInfo(cmd, &type, buffer, size);
    if (rc != GC_ERR_SUCCESS) {
        return ChainError(rc);
    }
    return number ? WidenToNumberRegister(rc, buffer, asked, size) : rc;
}

int InterfaceRegImpl::Row(int cmd, void* buffer, unsigned long* size, bool number) {
    if (m_selector == kUnselected) {
        return ReportError(GC_ERR_INVALID_INDEX, "DeviceSelector is not set");
    }
    char id[kIdSize] = {};
    unsigned long idSize = sizeof id;
    if (int rc = m_owner->GetDeviceID(static_cast<unsigned int>(m_selector), id, &idSize)) {
        return ChainError(rc);
    }
    int type = INFO_DATATYPE_UNKNOWN;
    const unsigned long asked = *size;
    const int rc = m_owner->GetDeviceInfo(id, cmd, &type, buffer, size);
    if (rc != GC_ERR_SUCCESS) {
        return ChainError(rc);
    }
    return number ? WidenToNumberRegister(rc, buffer, asked, size) : rc;
}

int InterfaceRegImpl::Constant(long value, void* buffer, unsigned long* size) {
    int type = INFO_DATATYPE_UNKNOWN;
    return m_infoUtility.SetInfo(value, &type, buffer, size, false);
}

unsigned int InterfaceRegImpl::Count() const {
    unsigned int count = 0;
    if (m_owner->GetNumDevices(&count) != GC_ERR_SUCCESS) {
        return 0;
    }
    return count;
}

int InterfaceRegImpl::SetAddress(unsigned int& stored, const void* buffer, unsigned long* size) {
    std::uint64_t value = 0;
    if (int rc = WrittenNumberRegister(buffer, kNumberRegisterSize, size, value)) {
        return rc;
    }
    if (value > 0xFFFFFFFFu) {
        return ReportError(GC_ERR_INVALID_VALUE, "an IPv4 address has 32 bits");
    }
    stored = static_cast<unsigned int>(value);
    *size = kNumberRegisterSize;
    return GC_ERR_SUCCESS;
}

// --- the adapter -------------------------------------------------------------

int InterfaceRegImpl::GetInterfaceID(void* buffer, unsigned long* size) {
    return Info(INTERFACE_INFO_ID, buffer, size, false);
}

int InterfaceRegImpl::GetInterfaceDisplayName(void* buffer, unsigned long* size) {
    return Info(INTERFACE_INFO_DISPLAYNAME, buffer, size, false);
}

int InterfaceRegImpl::GetInterfaceType_Reg(void* buffer, unsigned long* size) {
    return Constant(0, buffer, size);
}

int InterfaceRegImpl::GetGevInterfaceGatewaySelector_Reg(void*, unsigned long*) {
    return ReportNotImplemented();
}

int InterfaceRegImpl::SetGevInterfaceGatewaySelector_Reg(const void*, unsigned long*) {
    return ReportNotImplemented();
}

int InterfaceRegImpl::GetGevInterfaceGatewaySelector_Available_Reg(void* buffer,
                                                                   unsigned long* size) {
    return Constant(0, buffer, size);
}

int InterfaceRegImpl::GetGevInterfaceGateway_Reg(void*, unsigned long*) {
    return ReportNotImplemented();
}

int InterfaceRegImpl::GetGevInterfaceGateway_Available_Reg(void* buffer, unsigned long* size) {
    return Constant(0, buffer, size);
}

int InterfaceRegImpl::GetGevInterfaceMACAddress_Reg(void* buffer, unsigned long* size) {
    return Info(INTERFACE_INFO_GEV_MAC_ADDRESS, buffer, size, true);
}

int InterfaceRegImpl::GetGevInterfaceSubnetSelector_Reg(void*, unsigned long*) {
    return ReportNotImplemented();
}

int InterfaceRegImpl::SetGevInterfaceSubnetSelector_Reg(const void*, unsigned long*) {
    return ReportNotImplemented();
}

int InterfaceRegImpl::GetGevInterfaceSubnetSelector_Available_Reg(void* buffer,
                                                                  unsigned long* size) {
    return Constant(0, buffer, size);
}

int InterfaceRegImpl::GetGevInterfaceSubnetIPAddress_Reg(void* buffer, unsigned long* size) {
    return Info(INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS, buffer, size, true);
}

int InterfaceRegImpl::GetGevInterfaceSubnetMask_Reg(void* buffer, unsigned long* size) {
    return Info(INTERFACE_INFO_GEV_SUBNET_MASK, buffer, size, true);
}

// --- the device list ---------------------------------------------------------

int InterfaceRegImpl::SetDeviceUpdateList_Reg(const void*, unsigned long*) {
    if (int rc = m_owner->UpdateDeviceList(nullptr, kUpdateListTimeoutMs)) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int InterfaceRegImpl::GetDeviceSelector_Reg(void* buffer, unsigned long* size) {
    return ReadNumberRegister(static_cast<std::uint64_t>(m_selector), kNumberRegisterSize, buffer,
                              size);
}

int InterfaceRegImpl::SetDeviceSelector_Reg(const void* buffer, unsigned long* size) {
    std::uint64_t bits = 0;
    if (int rc = WrittenNumberRegister(buffer, kNumberRegisterSize, size, bits)) {
        return rc;
    }
    const auto value = static_cast<std::int64_t>(bits);
    const unsigned int count = Count();
    if (value < 0 || value >= static_cast<std::int64_t>(count)) {
        return ReportError(GC_ERR_INVALID_INDEX, "DeviceSelector=" + std::to_string(value) +
                                                     " is out of range; " + std::to_string(count) +
                                                     " device(s) listed");
    }
    m_selector = static_cast<long>(value);
    *size = kNumberRegisterSize;
    return GC_ERR_SUCCESS;
}

int InterfaceRegImpl::GetDeviceSelector_Min_Reg(void* buffer, unsigned long* size) {
    return Constant(0, buffer, size);
}

int InterfaceRegImpl::GetDeviceSelector_Max_Reg(void* buffer, unsigned long* size) {
    const unsigned int count = Count();
    return Constant(count == 0 ? 0 : static_cast<long>(count) - 1, buffer, size);
}

int InterfaceRegImpl::GetDeviceID(void* buffer, unsigned long* size) {
    return Row(DEVICE_INFO_ID, buffer, size, false);
}

int InterfaceRegImpl::GetDeviceVendorName(void* buffer, unsigned long* size) {
    return Row(DEVICE_INFO_VENDOR, buffer, size, false);
}

int InterfaceRegImpl::GetDeviceModelName(void* buffer, unsigned long* size) {
    return Row(DEVICE_INFO_MODEL, buffer, size, false);
}

int InterfaceRegImpl::GetDeviceAccessStatus_Reg(void* buffer, unsigned long* size) {
    return Row(DEVICE_INFO_ACCESS_STATUS, buffer, size, true);
}

int InterfaceRegImpl::GetDeviceAccessStatus_Available_Reg(void* buffer, unsigned long* size) {
    return Constant(0, buffer, size);
}

int InterfaceRegImpl::GetDeviceSerialNumber(void* buffer, unsigned long* size) {
    return Row(DEVICE_INFO_SERIAL_NUMBER, buffer, size, false);
}

int InterfaceRegImpl::GetDeviceUserID(void* buffer, unsigned long* size) {
    return Row(DEVICE_INFO_USER_DEFINED_NAME, buffer, size, false);
}

int InterfaceRegImpl::GetGevDeviceIPAddress_Reg(void* buffer, unsigned long* size) {
    return Row(DEVICE_INFO_GEV_IP_ADDRESS, buffer, size, true);
}

int InterfaceRegImpl::GetGevDeviceSubnetMask_Reg(void* buffer, unsigned long* size) {
    return Row(DEVICE_INFO_GEV_SUBNET_MASK, buffer, size, true);
}

int InterfaceRegImpl::GetGevDeviceMACAddress_Reg(void* buffer, unsigned long* size) {
    return Row(DEVICE_INFO_GEV_MAC_ADDRESS, buffer, size, true);
}

int InterfaceRegImpl::GetSelectedDevice_Available_Reg(void* buffer, unsigned long* size) {
    const bool available = m_selector >= 0 && m_selector < static_cast<long>(Count());
    return Constant(available ? 1 : 0, buffer, size);
}

// --- ForceIP -----------------------------------------------------------------

int InterfaceRegImpl::SetGevDeviceForceIP_Reg(const void*, unsigned long*) {
    long mac = 0;
    unsigned long macSize = sizeof mac;
    if (int rc = Row(DEVICE_INFO_GEV_MAC_ADDRESS, &mac, &macSize, false)) {
        return ChainError(rc);
    }
    if (int rc = m_owner->ForceIp(static_cast<unsigned long>(mac), m_forceIp, m_forceSubnetMask,
                                  m_forceGateway)) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int InterfaceRegImpl::GetGevDeviceForceIPAddress_Reg(void* buffer, unsigned long* size) {
    return ReadNumberRegister(m_forceIp, kNumberRegisterSize, buffer, size);
}

int InterfaceRegImpl::SetGevDeviceForceIPAddress_Reg(const void* buffer, unsigned long* size) {
    return SetAddress(m_forceIp, buffer, size);
}

int InterfaceRegImpl::GetGevDeviceForceSubnetMask_Reg(void* buffer, unsigned long* size) {
    return ReadNumberRegister(m_forceSubnetMask, kNumberRegisterSize, buffer, size);
}

int InterfaceRegImpl::SetGevDeviceForceSubnetMask_Reg(const void* buffer, unsigned long* size) {
    return SetAddress(m_forceSubnetMask, buffer, size);
}

int InterfaceRegImpl::GetGevDeviceForceGateway_Reg(void* buffer, unsigned long* size) {
    return ReadNumberRegister(m_forceGateway, kNumberRegisterSize, buffer, size);
}

int InterfaceRegImpl::SetGevDeviceForceGateway_Reg(const void* buffer, unsigned long* size) {
    return SetAddress(m_forceGateway, buffer, size);
}

int InterfaceRegImpl::GetLocalTLXML_Reg(void* buffer, unsigned long* size) {
    return g_interfaceXml.CopyTo(buffer, size);
}

} // namespace GenTL
