#include "registers/SystemRegImpl.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "modules/System.h"
#include "modules/ThreadPriority.h"
#include "registers/ModuleXml.h"

namespace GenTL {

namespace {

/// Width of every number register of the space.
constexpr unsigned long kRegisterWidth = 8;
/// Width of the string registers; an interface id fits.
constexpr unsigned long kTextWidth = 512;
/// Refresh time-out of InterfaceUpdateList, in ms.
constexpr unsigned long kUpdateListTimeoutMs = 100;
/// Thread selections: grab, event, heartbeat.
constexpr std::int64_t kThreadSelections = 3;

int TooSmall(unsigned long size, unsigned long needed) {
    return ReportError(GC_ERR_BUFFER_TOO_SMALL, "*piSize=" + std::to_string(size) +
                                                    " < size=" + std::to_string(needed) +
                                                    ". iSize must be >= len");
}

/// value as the 8-byte little-endian register, cut to *size bytes.
void PutNumber(std::uint64_t value, void* buffer, unsigned long* size) {
    unsigned char bytes[kRegisterWidth];
    for (unsigned i = 0; i < kRegisterWidth; ++i) {
        bytes[i] = static_cast<unsigned char>(value >> (8 * i));
    }
    *size = std::min(*size, kRegisterWidth);
    std::memcpy(buffer, bytes, *size);
}

/// The first width bytes of buffer as a little-endian number.
std::uint64_t TakeNumber(const void* buffer, unsigned long width) {
    unsigned char bytes[kRegisterWidth] = {};
    std::memcpy(bytes, buffer, std::min(width, kRegisterWidth));
    std::uint64_t value = 0;
    for (unsigned i = kRegisterWidth; i-- > 0;) {
        value = value << 8 | bytes[i];
    }
    return value;
}

/// A register with a value of its own: buffer and size given, *size at
/// least width. nullCode is what a null argument gets.
int CheckOwnValue(const void* buffer, const unsigned long* size, unsigned long width,
                  int nullCode) {
    if (buffer == nullptr || size == nullptr) {
        return detail::ReportBareError(nullCode);
    }
    if (*size < width) {
        return TooSmall(*size, width);
    }
    return GC_ERR_SUCCESS;
}

/// Action values: System::Get/Set... of T, checked as the owner's width.
template <typename T>
int GetAction(const System& system, int (System::*get)(T*) const, void* buffer,
              unsigned long* size) {
    if (int rc = CheckOwnValue(buffer, size, sizeof(T), GC_ERR_INVALID_HANDLE)) {
        return rc;
    }
    T value = 0;
    if (int rc = (system.*get)(&value)) {
        return ChainError(rc);
    }
    PutNumber(value, buffer, size);
    return GC_ERR_SUCCESS;
}

template <typename T>
int SetAction(System& system, int (System::*set)(const T*), const void* buffer,
              const unsigned long* size) {
    if (int rc = CheckOwnValue(buffer, size, sizeof(T), GC_ERR_INVALID_HANDLE)) {
        return rc;
    }
    const T value = static_cast<T>(TakeNumber(buffer, sizeof(T)));
    if (int rc = (system.*set)(&value)) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

/// A driver string into the caller's buffer, with its terminator.
int PutText(const std::string& text, void* buffer, unsigned long* size) {
    if (*size < text.size() + 1) {
        return TooSmall(*size, text.size() + 1);
    }
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    *size = text.size() + 1;
    return GC_ERR_SUCCESS;
}

int Chained(int rc) {
    return rc == GC_ERR_SUCCESS ? rc : ChainError(rc);
}

} // namespace

SystemRegImpl::SystemRegImpl(System* system) : m_system(system) {}

// --- helpers -----------------------------------------------------------------

int SystemRegImpl::Info(int cmd, void* buffer, unsigned long* size) {
    int type = INFO_DATATYPE_UNKNOWN;
    return Chained(m_system->GetInfo(cmd, &type, buffer, size));
}

int SystemRegImpl::InfoNumber(int cmd, void* buffer, unsigned long* size) {
    // The info answer is 4 bytes wide; a consumer reads the whole register.
    std::memset(buffer, 0, std::min(*size, kRegisterWidth));
    return Info(cmd, buffer, size);
}

int SystemRegImpl::Constant(long value, void* buffer, unsigned long* size) {
    int type = INFO_DATATYPE_UNKNOWN;
    return m_infoUtility.SetInfo(value, &type, buffer, size, false);
}

int SystemRegImpl::SelectedInterfaceId(char* id, unsigned long* size) {
    if (m_interfaceSelector == -1) {
        return ReportError(GC_ERR_INVALID_INDEX, "no interface is selected");
    }
    return Chained(
        m_system->GetInterfaceID(static_cast<unsigned int>(m_interfaceSelector), id, size));
}

int SystemRegImpl::InterfaceAddress(int cmd, void* buffer, unsigned long* size) {
    char id[kTextWidth] = {};
    unsigned long idSize = sizeof id;
    if (int rc = SelectedInterfaceId(id, &idSize)) {
        return rc;
    }
    int type = INFO_DATATYPE_UNKNOWN;
    return Chained(m_system->GetInterfaceInfo(id, cmd, &type, buffer, size));
}

std::atomic<long>* SystemRegImpl::SelectedThreadPriority() {
    switch (m_threadSelector) {
    case 0:
        return &ThreadPriority::m_priorityGrabThread;
    case 1:
        return &ThreadPriority::m_priorityEventThread;
    case 2:
        return &ThreadPriority::m_priorityHeartbeatThread;
    default:
        return nullptr;
    }
}

// --- system information ------------------------------------------------------

int SystemRegImpl::GetTLID(void* buffer, unsigned long* size) {
    return Info(TL_INFO_ID, buffer, size);
}

int SystemRegImpl::GetTLVendorName(void* buffer, unsigned long* size) {
    return Info(TL_INFO_VENDOR, buffer, size);
}

int SystemRegImpl::GetTLModelName(void* buffer, unsigned long* size) {
    return Info(TL_INFO_MODEL, buffer, size);
}

int SystemRegImpl::GetTLVersion(void* buffer, unsigned long* size) {
    return Info(TL_INFO_VERSION, buffer, size);
}

int SystemRegImpl::GetTLFileName(void* buffer, unsigned long* size) {
    return Info(TL_INFO_NAME, buffer, size);
}

int SystemRegImpl::GetTLDisplayName(void* buffer, unsigned long* size) {
    return Info(TL_INFO_DISPLAYNAME, buffer, size);
}

int SystemRegImpl::GetTLPath(void* buffer, unsigned long* size) {
    return Info(TL_INFO_PATHNAME, buffer, size);
}

int SystemRegImpl::GetTLType_Reg(void* buffer, unsigned long* size) {
    return Constant(0, buffer, size);
}

int SystemRegImpl::GetGenTLVersionMajor_Reg(void* buffer, unsigned long* size) {
    return InfoNumber(TL_INFO_GENTL_VER_MAJOR, buffer, size);
}

int SystemRegImpl::GetGenTLVersionMinor_Reg(void* buffer, unsigned long* size) {
    return InfoNumber(TL_INFO_GENTL_VER_MINOR, buffer, size);
}

int SystemRegImpl::GetGenTLSFNCVersionMajor_Reg(void* buffer, unsigned long* size) {
    return Constant(1, buffer, size);
}

int SystemRegImpl::GetGenTLSFNCVersionMinor_Reg(void* buffer, unsigned long* size) {
    return Constant(1, buffer, size);
}

int SystemRegImpl::GetGenTLSFNCVersionSubMinor_Reg(void* buffer, unsigned long* size) {
    return Constant(1, buffer, size);
}

int SystemRegImpl::GetGevVersionMajor_Reg(void* buffer, unsigned long* size) {
    return Constant(2, buffer, size);
}

int SystemRegImpl::GetGevVersionMinor_Reg(void* buffer, unsigned long* size) {
    return Constant(0, buffer, size);
}

// --- interface enumeration ---------------------------------------------------

int SystemRegImpl::SetInterfaceUpdateList_Reg(const void*, unsigned long*) {
    return Chained(m_system->UpdateInterfaceList(nullptr, kUpdateListTimeoutMs));
}

int SystemRegImpl::GetInterfaceSelector_Reg(void* buffer, unsigned long* size) {
    if (int rc = CheckOwnValue(buffer, size, kRegisterWidth, GC_ERR_INVALID_PARAMETER)) {
        return rc;
    }
    PutNumber(static_cast<std::uint64_t>(m_interfaceSelector), buffer, size);
    return GC_ERR_SUCCESS;
}

int SystemRegImpl::SetInterfaceSelector_Reg(const void* buffer, unsigned long* size) {
    if (int rc = CheckOwnValue(buffer, size, kRegisterWidth, GC_ERR_INVALID_PARAMETER)) {
        return rc;
    }
    const auto value = static_cast<std::int64_t>(TakeNumber(buffer, kRegisterWidth));
    unsigned int count = 0;
    if (int rc = m_system->GetNumInterfaces(&count)) {
        return ChainError(rc);
    }
    if (value < 0 || value >= static_cast<std::int64_t>(count)) {
        return ReportError(GC_ERR_INVALID_INDEX, "InterfaceSelector=" + std::to_string(value) +
                                                     " must be >= 0 and < " +
                                                     std::to_string(count));
    }
    m_interfaceSelector = value;
    *size = kRegisterWidth;
    return GC_ERR_SUCCESS;
}

int SystemRegImpl::GetInterfaceSelector_Min_Reg(void* buffer, unsigned long* size) {
    return Constant(0, buffer, size);
}

int SystemRegImpl::GetInterfaceSelector_Max_Reg(void* buffer, unsigned long* size) {
    unsigned int count = 0;
    if (int rc = m_system->GetNumInterfaces(&count)) {
        return ChainError(rc);
    }
    return Constant(count == 0 ? 0 : static_cast<long>(count) - 1, buffer, size);
}

int SystemRegImpl::GetInterfaceID(void* buffer, unsigned long* size) {
    return SelectedInterfaceId(static_cast<char*>(buffer), size);
}

int SystemRegImpl::GetInterfaceID_Available_Reg(void* buffer, unsigned long* size) {
    unsigned int count = 0;
    if (int rc = m_system->GetNumInterfaces(&count)) {
        return ChainError(rc);
    }
    const bool available =
        m_interfaceSelector >= 0 && m_interfaceSelector < static_cast<std::int64_t>(count);
    return Constant(available ? 1 : 0, buffer, size);
}

int SystemRegImpl::GetGevInterfaceMACAddress_Reg(void* buffer, unsigned long* size) {
    return InterfaceAddress(INTERFACE_INFO_GEV_MAC_ADDRESS, buffer, size);
}

int SystemRegImpl::GetGevInterfaceMACAddress_Available_Reg(void* buffer, unsigned long* size) {
    return Constant(0, buffer, size);
}

int SystemRegImpl::GetGevInterfaceDefaultIPAddress_Reg(void* buffer, unsigned long* size) {
    return InterfaceAddress(INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS, buffer, size);
}

int SystemRegImpl::GetGevInterfaceDefaultIPAddress_Available_Reg(void* buffer,
                                                                 unsigned long* size) {
    return Constant(0, buffer, size);
}

int SystemRegImpl::GetGevInterfaceDefaultSubnetMask_Reg(void* buffer, unsigned long* size) {
    return InterfaceAddress(INTERFACE_INFO_GEV_SUBNET_MASK, buffer, size);
}

int SystemRegImpl::GetGevInterfaceDefaultSubnetMask_Available_Reg(void* buffer,
                                                                  unsigned long* size) {
    return Constant(0, buffer, size);
}

// --- action commands ---------------------------------------------------------

int SystemRegImpl::SetActionCommandFireCommand_Reg(const void*, unsigned long*) {
    unsigned int deviceKey = 0;
    unsigned int groupKey = 0;
    unsigned int groupMask = 0;
    unsigned int targetIp = 0;
    unsigned long executeTime = 0;
    m_system->GetActionCommandDeviceKey(&deviceKey);
    m_system->GetActionCommandGroupKey(&groupKey);
    m_system->GetActionCommandGroupMask(&groupMask);
    m_system->GetActionCommandTargetIP(&targetIp);
    m_system->GetActionCommandExecuteTime(&executeTime);
    return Chained(
        m_system->SendActionCommand(deviceKey, groupKey, groupMask, targetIp, executeTime));
}

int SystemRegImpl::GetActionCommandDeviceKey_Reg(void* buffer, unsigned long* size) {
    return GetAction(*m_system, &System::GetActionCommandDeviceKey, buffer, size);
}

int SystemRegImpl::SetActionCommandDeviceKey_Reg(const void* buffer, unsigned long* size) {
    return SetAction(*m_system, &System::SetActionCommandDeviceKey, buffer, size);
}

int SystemRegImpl::GetActionCommandGroupKey_Reg(void* buffer, unsigned long* size) {
    return GetAction(*m_system, &System::GetActionCommandGroupKey, buffer, size);
}

int SystemRegImpl::SetActionCommandGroupKey_Reg(const void* buffer, unsigned long* size) {
    return SetAction(*m_system, &System::SetActionCommandGroupKey, buffer, size);
}

int SystemRegImpl::GetActionCommandGroupMask_Reg(void* buffer, unsigned long* size) {
    return GetAction(*m_system, &System::GetActionCommandGroupMask, buffer, size);
}

int SystemRegImpl::SetActionCommandGroupMask_Reg(const void* buffer, unsigned long* size) {
    return SetAction(*m_system, &System::SetActionCommandGroupMask, buffer, size);
}

int SystemRegImpl::GetActionCommandTargetIP_Reg(void* buffer, unsigned long* size) {
    return GetAction(*m_system, &System::GetActionCommandTargetIP, buffer, size);
}

int SystemRegImpl::SetActionCommandTargetIP_Reg(const void* buffer, unsigned long* size) {
    return SetAction(*m_system, &System::SetActionCommandTargetIP, buffer, size);
}

int SystemRegImpl::GetActionCommandExecuteTime_Reg(void* buffer, unsigned long* size) {
    return GetAction(*m_system, &System::GetActionCommandExecuteTime, buffer, size);
}

int SystemRegImpl::SetActionCommandExecuteTime_Reg(const void* buffer, unsigned long* size) {
    return SetAction(*m_system, &System::SetActionCommandExecuteTime, buffer, size);
}

// --- thread control ----------------------------------------------------------

int SystemRegImpl::GetThreadSelection_Reg(void* buffer, unsigned long* size) {
    if (int rc = CheckOwnValue(buffer, size, kRegisterWidth, GC_ERR_INVALID_PARAMETER)) {
        return rc;
    }
    PutNumber(static_cast<std::uint64_t>(m_threadSelector), buffer, size);
    return GC_ERR_SUCCESS;
}

int SystemRegImpl::SetThreadSelection_Reg(const void* buffer, unsigned long* size) {
    if (int rc = CheckOwnValue(buffer, size, kRegisterWidth, GC_ERR_INVALID_PARAMETER)) {
        return rc;
    }
    const auto value = static_cast<std::int64_t>(TakeNumber(buffer, kRegisterWidth));
    if (value < 0 || value >= kThreadSelections) {
        return ReportError(GC_ERR_INVALID_VALUE,
                           "ThreadSelection=" + std::to_string(value) + " must be 0, 1 or 2");
    }
    m_threadSelector = value;
    return GC_ERR_SUCCESS;
}

int SystemRegImpl::GetThreadPriority_Reg(void* buffer, unsigned long* size) {
    if (int rc = CheckOwnValue(buffer, size, kRegisterWidth, GC_ERR_INVALID_PARAMETER)) {
        return rc;
    }
    std::atomic<long>* priority = SelectedThreadPriority();
    if (priority == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "no thread is selected");
    }
    PutNumber(static_cast<std::uint64_t>(priority->load()), buffer, size);
    return GC_ERR_SUCCESS;
}

int SystemRegImpl::SetThreadPriority_Reg(const void* buffer, unsigned long* size) {
    if (int rc = CheckOwnValue(buffer, size, kRegisterWidth, GC_ERR_INVALID_PARAMETER)) {
        return rc;
    }
    const auto value = static_cast<std::int64_t>(TakeNumber(buffer, kRegisterWidth));
    if (value < ThreadPriority::kBelowNormal || value > ThreadPriority::kCritical) {
        return ReportError(GC_ERR_INVALID_VALUE,
                           "ThreadPriority=" + std::to_string(value) + " must be 0 to 3");
    }
    std::atomic<long>* priority = SelectedThreadPriority();
    if (priority == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "no thread is selected");
    }
    priority->store(static_cast<long>(value));
    return GC_ERR_SUCCESS;
}

// --- driver ------------------------------------------------------------------

int SystemRegImpl::SetWriteDriverLogToFileCommand_Reg(const void*, unsigned long*) {
    return Chained(m_system->WriteDriverLogToFile());
}

int SystemRegImpl::GetWindowsDriverFeatures_Implemented_Reg(void* buffer, unsigned long* size) {
    return Constant(0, buffer, size);
}

int SystemRegImpl::GetWriteDriverLogToFilePath_Reg(void* buffer, unsigned long* size) {
    if (int rc = CheckOwnValue(buffer, size, 0, GC_ERR_INVALID_PARAMETER)) {
        return rc;
    }
    std::string fileName;
    if (int rc = m_system->GetDriverLogFilename(fileName)) {
        return ChainError(rc);
    }
    return PutText(fileName, buffer, size);
}

int SystemRegImpl::SetWriteDriverLogToFilePath_Reg(const void* buffer, unsigned long* size) {
    if (int rc = CheckOwnValue(buffer, size, 0, GC_ERR_INVALID_PARAMETER)) {
        return rc;
    }
    const char* text = static_cast<const char*>(buffer);
    return Chained(m_system->SetDriverLogFilename(std::string(text, strnlen(text, *size))));
}

int SystemRegImpl::GetDriverVersion_Reg(void* buffer, unsigned long* size) {
    if (int rc = CheckOwnValue(buffer, size, 0, GC_ERR_INVALID_PARAMETER)) {
        return rc;
    }
    std::string version;
    if (int rc = m_system->GetDriverVersion(version)) {
        return ChainError(rc);
    }
    return PutText(version, buffer, size);
}

int SystemRegImpl::GetLwfDriverLogLevel_Reg(void* buffer, unsigned long* size) {
    if (int rc = CheckOwnValue(buffer, size, sizeof(int), GC_ERR_INVALID_PARAMETER)) {
        return rc;
    }
    int level = 0;
    if (int rc = m_system->GetLwfDriverLogLevel(level)) {
        return ChainError(rc);
    }
    PutNumber(static_cast<std::uint64_t>(static_cast<std::int64_t>(level)), buffer, size);
    return GC_ERR_SUCCESS;
}

int SystemRegImpl::SetLwfDriverLogLevel_Reg(const void* buffer, unsigned long* size) {
    if (int rc = CheckOwnValue(buffer, size, sizeof(int), GC_ERR_INVALID_PARAMETER)) {
        return rc;
    }
    return Chained(
        m_system->SetLwfDriverLogLevel(static_cast<int>(TakeNumber(buffer, sizeof(int)))));
}

int SystemRegImpl::SetClearDriverLogCommand_Reg(const void*, unsigned long*) {
    return Chained(m_system->ClearDriverLog());
}

int SystemRegImpl::GetLocalTLXML_Reg(void* buffer, unsigned long* size) {
    return g_systemXml.CopyTo(buffer, size);
}

} // namespace GenTL
