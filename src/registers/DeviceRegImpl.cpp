#include "registers/DeviceRegImpl.h"

#include <cstdint>
#include <cstring>
#include <string>

#include "modules/BaseModule.h"
#include "modules/DeviceGev.h"
#include "registers/ModuleXml.h"
#include "registers/NumberRegister.h"

namespace GenTL {

namespace {

constexpr unsigned long kKeyWidth = 4;
constexpr unsigned long kTimeWidth = 8;
constexpr unsigned long kSwitchoverKeyWidth = 2;

/// The switchover key lives in the GigE Vision device only.
DeviceGev* GevOwner(Device* owner) {
    return dynamic_cast<DeviceGev*>(owner);
}

} // namespace

DeviceRegImpl::DeviceRegImpl(Device* owner) : m_owner(owner) {}

// --- helpers -----------------------------------------------------------------

int DeviceRegImpl::Info(int cmd, void* buffer, unsigned long* size, bool number) {
    int type = INFO_DATATYPE_UNKNOWN;
    const unsigned long asked = *size;
    const int rc = m_owner->GetInfo(cmd, &type, buffer, size);
    if (rc != GC_ERR_SUCCESS) {
        return ChainError(rc);
    }
    return number ? WidenToNumberRegister(rc, buffer, asked, size) : rc;
}

int DeviceRegImpl::SetInfo(int cmd, const void* buffer, const unsigned long* size) {
    if (int rc = m_owner->SetInfo(cmd, INFO_DATATYPE_INT64, buffer, *size)) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int DeviceRegImpl::Constant(long value, void* buffer, unsigned long* size) {
    int type = INFO_DATATYPE_UNKNOWN;
    return m_infoUtility.SetInfo(value, &type, buffer, size, false);
}

int DeviceRegImpl::GetAction(unsigned long value, unsigned long width, void* buffer,
                             unsigned long* size) {
    if (buffer == nullptr || size == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "pBuffer==nullptr || piSize==nullptr");
    }
    return ReadNumberRegister(value, width, buffer, size);
}

template <typename T>
int DeviceRegImpl::SetAction(T& value, const void* buffer, unsigned long* size) {
    if (buffer == nullptr || size == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "pBuffer==nullptr || piSize==nullptr");
    }
    std::uint64_t written = 0;
    if (int rc = WrittenNumberRegister(buffer, sizeof(T), size, written)) {
        return rc;
    }
    value = static_cast<T>(written);
    return GC_ERR_SUCCESS;
}

// --- information -------------------------------------------------------------

int DeviceRegImpl::GetDeviceID(void* buffer, unsigned long* size) {
    return Info(DEVICE_INFO_ID, buffer, size, false);
}

int DeviceRegImpl::GetDeviceSerialNumber(void* buffer, unsigned long* size) {
    return Info(DEVICE_INFO_SERIAL_NUMBER, buffer, size, false);
}

int DeviceRegImpl::GetDeviceUserID(void* buffer, unsigned long* size) {
    return Info(DEVICE_INFO_USER_DEFINED_NAME, buffer, size, false);
}

int DeviceRegImpl::GetDeviceVendorName(void* buffer, unsigned long* size) {
    return Info(DEVICE_INFO_VENDOR, buffer, size, false);
}

int DeviceRegImpl::GetDeviceModelName(void* buffer, unsigned long* size) {
    return Info(DEVICE_INFO_MODEL, buffer, size, false);
}

int DeviceRegImpl::GetDeviceVersion(void* buffer, unsigned long* size) {
    return Info(DEVICE_INFO_VERSION, buffer, size, false);
}

int DeviceRegImpl::GetDeviceType_Reg(void* buffer, unsigned long* size) {
    return Constant(0, buffer, size);
}

int DeviceRegImpl::GetDeviceDisplayName(void* buffer, unsigned long* size) {
    return Info(DEVICE_INFO_DISPLAYNAME, buffer, size, false);
}

int DeviceRegImpl::GetDeviceAccessStatus_Reg(void* buffer, unsigned long* size) {
    return Info(DEVICE_INFO_ACCESS_STATUS, buffer, size, true);
}

int DeviceRegImpl::SetDeviceAccessStatus_Reg(const void* buffer, unsigned long* size) {
    return SetInfo(DEVICE_INFO_ACCESS_STATUS, buffer, size);
}

int DeviceRegImpl::GetDeviceEndianessMechanism_Reg(void* buffer, unsigned long* size) {
    return Info(DeviceGev::kInfoEndiannessMechanism, buffer, size, true);
}

int DeviceRegImpl::SetDeviceEndianessMechanism_Reg(const void* buffer, unsigned long* size) {
    return SetInfo(DeviceGev::kInfoEndiannessMechanism, buffer, size);
}

int DeviceRegImpl::GetGevDeviceIPAddress_Reg(void* buffer, unsigned long* size) {
    return Info(DEVICE_INFO_GEV_IP_ADDRESS, buffer, size, true);
}

int DeviceRegImpl::GetGevDeviceSubnetMask_Reg(void* buffer, unsigned long* size) {
    return Info(DEVICE_INFO_GEV_SUBNET_MASK, buffer, size, true);
}

int DeviceRegImpl::GetGevDeviceMACAddress_Reg(void* buffer, unsigned long* size) {
    return Info(DEVICE_INFO_GEV_MAC_ADDRESS, buffer, size, true);
}

int DeviceRegImpl::GetGevDeviceGateway_Reg(void*, unsigned long*) {
    return ReportNotImplemented();
}

int DeviceRegImpl::GetGevDeviceGateway_Available_Reg(void* buffer, unsigned long* size) {
    return Constant(0, buffer, size);
}

// --- stream list -------------------------------------------------------------

int DeviceRegImpl::GetStreamSelector_Reg(void* buffer, unsigned long* size) {
    if (buffer == nullptr) {
        *size = kNumberRegisterSize;
        return GC_ERR_SUCCESS;
    }
    return ReadNumberRegister(static_cast<std::uint64_t>(m_streamSelector), kNumberRegisterSize,
                              buffer, size);
}

int DeviceRegImpl::SetStreamSelector_Reg(const void* buffer, unsigned long* size) {
    std::uint64_t bits = 0;
    if (int rc = WrittenNumberRegister(buffer, kNumberRegisterSize, size, bits)) {
        return rc;
    }
    // Stored before the check: a bad index stays, and StreamID refuses it.
    m_streamSelector = static_cast<std::int32_t>(static_cast<std::uint32_t>(bits));
    unsigned int count = 0;
    if (int rc = m_owner->GetNumDataStreams(&count)) {
        return ChainError(rc);
    }
    if (m_streamSelector < 0 || m_streamSelector >= static_cast<long>(count)) {
        return ReportError(GC_ERR_INVALID_INDEX,
                           "StreamSelector=" + std::to_string(m_streamSelector) + " is not below " +
                               std::to_string(count));
    }
    *size = kNumberRegisterSize;
    return GC_ERR_SUCCESS;
}

int DeviceRegImpl::GetStreamID(void* buffer, unsigned long* size) {
    const unsigned long asked = *size;
    if (int rc = m_owner->GetDataStreamID(static_cast<unsigned int>(m_streamSelector),
                                          static_cast<char*>(buffer), size)) {
        return ChainError(rc);
    }
    if (*size < asked) {
        std::memset(static_cast<char*>(buffer) + *size, 0, asked - *size);
    }
    return GC_ERR_SUCCESS;
}

int DeviceRegImpl::GetStreamID_Available_Reg(void* buffer, unsigned long* size) {
    return Constant(0, buffer, size);
}

// --- action command ----------------------------------------------------------

int DeviceRegImpl::SetActionCommandFireCommand_Reg(const void*, unsigned long*) {
    const ActionCommandValues& v = m_owner->GetActionCommandValues();
    if (int rc = m_owner->SendActionCommand(v.deviceKey, v.groupKey, v.groupMask, v.executeTime)) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int DeviceRegImpl::GetActionCommandDeviceKey_Reg(void* buffer, unsigned long* size) {
    return GetAction(m_owner->GetActionCommandValues().deviceKey, kKeyWidth, buffer, size);
}

int DeviceRegImpl::SetActionCommandDeviceKey_Reg(const void* buffer, unsigned long* size) {
    return SetAction(m_owner->GetActionCommandValues().deviceKey, buffer, size);
}

int DeviceRegImpl::GetActionCommandGroupKey_Reg(void* buffer, unsigned long* size) {
    return GetAction(m_owner->GetActionCommandValues().groupKey, kKeyWidth, buffer, size);
}

int DeviceRegImpl::SetActionCommandGroupKey_Reg(const void* buffer, unsigned long* size) {
    return SetAction(m_owner->GetActionCommandValues().groupKey, buffer, size);
}

int DeviceRegImpl::GetActionCommandGroupMask_Reg(void* buffer, unsigned long* size) {
    return GetAction(m_owner->GetActionCommandValues().groupMask, kKeyWidth, buffer, size);
}

int DeviceRegImpl::SetActionCommandGroupMask_Reg(const void* buffer, unsigned long* size) {
    return SetAction(m_owner->GetActionCommandValues().groupMask, buffer, size);
}

int DeviceRegImpl::GetActionCommandExecuteTime_Reg(void* buffer, unsigned long* size) {
    return GetAction(m_owner->GetActionCommandValues().executeTime, kTimeWidth, buffer, size);
}

int DeviceRegImpl::SetActionCommandExecuteTime_Reg(const void* buffer, unsigned long* size) {
    return SetAction(m_owner->GetActionCommandValues().executeTime, buffer, size);
}

// --- the description and the switchover key ----------------------------------

int DeviceRegImpl::GetLocalTLXML_Reg(void* buffer, unsigned long* size) {
    return g_deviceXml.CopyTo(buffer, size);
}

int DeviceRegImpl::GetCcpSwitchoverKey_Reg(void* buffer, unsigned long* size) {
    if (*size < kSwitchoverKeyWidth) {
        return ReportError(GC_ERR_BUFFER_TOO_SMALL, "*piSize < 2");
    }
    DeviceGev* device = GevOwner(m_owner);
    if (device == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "the device has no CCP switchover key");
    }
    unsigned short key = 0;
    if (int rc = device->GetCcpSwitchoverKey(&key)) {
        return ChainError(rc);
    }
    return ReadNumberRegister(key, kSwitchoverKeyWidth, buffer, size);
}

int DeviceRegImpl::SetCcpSwitchoverKey_Reg(const void* buffer, unsigned long* size) {
    std::uint64_t written = 0;
    if (int rc = WrittenNumberRegister(buffer, kSwitchoverKeyWidth, size, written)) {
        return rc;
    }
    DeviceGev* device = GevOwner(m_owner);
    if (device == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "the device has no CCP switchover key");
    }
    auto key = static_cast<unsigned short>(written);
    if (int rc = device->SetCcpSwitchoverKey(&key)) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

} // namespace GenTL
