#include "modules/System.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/FileUtility.h"
#include "api/GLogger.h"
#include "api/GenTL.h"
#include "api/GenTLHandle.h"
#include "hal/GvcpWire.h"
#include "hal/HALGev.h"
#include "modules/InterfaceGev.h"
#include "modules/ProtectedDeviceRegistry.h"
#include "registers/ModuleXml.h"

namespace GenTL {

namespace {

const char kSystemUrlTemplate[] =
    "local:SFNC_GenTLSystem_Reference_Version_1_0_0_Schema_1_1.xml;F0F00000;%X?"
    "SchemaVersion=1.0.0";

/// The action command as sent by the system: no ack is awaited, so the
/// request id is all ones and the length field 0.
constexpr std::uint16_t kBroadcastActionId = 0xFFFF;
constexpr std::size_t kActionSize = 20;
constexpr std::size_t kScheduledActionSize = 28;

/// An interface that an action command leaves through: IPv4, up, running,
/// not loopback.
bool CarriesActions(const ifaddrs& entry) {
    const unsigned int flags = entry.ifa_flags;
    return entry.ifa_addr != nullptr && entry.ifa_addr->sa_family == AF_INET &&
           (flags & IFF_UP) != 0 && (flags & IFF_LOOPBACK) == 0 && (flags & IFF_RUNNING) != 0;
}

/// A socket option that the send needs; its failure is recorded without a
/// stamp, in the words of the control layer's sockets.
int EnableOption(int fd, int option, const char* name) {
    const int one = 1;
    if (::setsockopt(fd, SOL_SOCKET, option, &one, sizeof one) == 0) {
        return GC_ERR_SUCCESS;
    }
    const int err = errno;
    const std::string text = std::string("GenTL::CommSocket Setting ") + name + " Failed";
    GLogger::Error(text.c_str(), err);
    CacheError(Error::GenerateError(GC_ERR_ABORT, text + " : " + std::to_string(err)));
    return GC_ERR_ABORT;
}

/// Closes the sending socket on every way out.
struct ScopedFd {
    int fd;
    ~ScopedFd() {
        if (fd >= 0) {
            ::close(fd);
        }
    }
};

/// The datagram once from a socket bound to local (port 0) to target.
int SendFrom(const sockaddr_in& local, const sockaddr_in& target, const std::uint8_t* datagram,
             std::size_t length) {
    const ScopedFd owned{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP)};
    const int fd = owned.fd;
    if (fd < 0) {
        GLogger::Error("GenTL::System::SendActionCommand socket() failed", errno);
        return detail::ReportBareError(GC_ERR_ERROR);
    }
    if (int rc = EnableOption(fd, SO_BROADCAST, "SO_BROADCAST")) {
        return rc;
    }
    if (int rc = EnableOption(fd, SO_REUSEADDR, "SO_REUSEADDR")) {
        return rc;
    }
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
        GLogger::Error("GenTL::System::SendActionCommand bind() failed", errno);
        return detail::ReportBareError(GC_ERR_ERROR);
    }
    // Nobody answers to the system, and a lost datagram is not retried: the
    // result is not looked at.
    (void)::sendto(fd, datagram, length, 0, reinterpret_cast<const sockaddr*>(&target),
                   sizeof target);
    return GC_ERR_SUCCESS;
}

template <typename T> int ReadField(const T& field, T* value) {
    if (value == nullptr) {
        return detail::ReportBareError(GC_ERR_INVALID_HANDLE);
    }
    *value = field;
    return GC_ERR_SUCCESS;
}

template <typename T> int WriteField(T& field, const T* value) {
    if (value == nullptr) {
        return detail::ReportBareError(GC_ERR_INVALID_HANDLE);
    }
    field = *value;
    return GC_ERR_SUCCESS;
}

} // namespace

System::System() : System(nullptr) {}

System::System(IHALGev* hal)
    : BaseModule(kProducerId, "TLSystem", "TLPort"), m_pHal(hal), m_tlFileName(GetGenTLFileName()),
      m_tlFilePath(GetGenTLFilePath()) {}

System::~System() = default;

// --- Port ------------------------------------------------------------------

int System::ReadPort(unsigned long address, void* buffer, unsigned long* size) {
    return m_regImpl.DispatchRead(address, buffer, size);
}

int System::WritePort(unsigned long address, const void* buffer, unsigned long* size) {
    return m_regImpl.DispatchWrite(address, buffer, size);
}

int System::GetPortURL(char* url, unsigned long* size) const {
    return BaseModule::GetPortURL(kSystemUrlTemplate, g_systemXml.size, kPortUrlExtraTwo, url,
                                  size);
}

int System::GetPortInfo(int cmd, int* type, void* buffer, unsigned long* size) {
    return BaseModule::GetPortInfo(cmd, type, buffer, size);
}

int System::RegisterEvent(int type, void** event) {
    return BaseModule::RegisterEvent(type, event);
}

int System::UnregisterEvent(int type) {
    return BaseModule::UnregisterEvent(type);
}

int System::GetNumPortURLs(unsigned int* count) {
    return GetOneNumPortURLs(count);
}

int System::GetPortURLInfo(unsigned int index, int cmd, int* type, void* buffer,
                           unsigned long* size) {
    return BaseModule::GetPortURLInfo(index, cmd, type, buffer, size);
}

int System::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) {
    return ReadPortEntries(entries, count);
}

int System::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) {
    return WritePortEntries(entries, count);
}

// --- System ----------------------------------------------------------------

int System::Open() {
    if (m_pHal == nullptr) {
        m_pHal = new HALGev();
    }
    bool changed = false;
    if (int rc = UpdateInterfaceList(&changed, 1)) {
        // The destructor leaves the control layer alone, so it goes here.
        delete m_pHal;
        m_pHal = nullptr;
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int System::Close() {
    int kept = GC_ERR_SUCCESS;
    // IFClose and DevClose take their own entries out of the registry.
    for (const std::string& id : g_openedDevicesRegistry.AllInterfaceIDs()) {
        void* handle = g_openedDevicesRegistry.PeekInterfaceEntry(id).handle;
        if (handle == nullptr) {
            continue;
        }
        if (int rc = IFClose(handle)) {
            ChainErrorText(rc,
                           "while closing the system, the interface " + id + " failed to close.");
            kept = rc;
        }
    }
    for (const std::string& id : g_openedDevicesRegistry.AllDeviceIDs()) {
        void* handle = g_openedDevicesRegistry.PeekDeviceEntry(id).handle;
        if (handle == nullptr) {
            continue;
        }
        if (int rc = DevClose(handle)) {
            ChainErrorText(rc,
                           "while closing the system, the interface " + id + " failed to close.");
            kept = rc;
        }
    }
    delete m_pHal;
    m_pHal = nullptr;
    if (kept != GC_ERR_SUCCESS) {
        return ChainError(kept);
    }
    return GC_ERR_SUCCESS;
}

int System::GetInfo(int cmd, int* type, void* buffer, unsigned long* size) {
    int rc = GC_ERR_SUCCESS;
    switch (cmd) {
    case TL_INFO_ID:
        rc = m_infoUtility.SetInfo(m_portInfo.id, type, buffer, size, false);
        break;
    case TL_INFO_VENDOR:
        rc = m_infoUtility.SetInfo(m_portInfo.vendor, type, buffer, size, false);
        break;
    case TL_INFO_MODEL:
        rc = m_infoUtility.SetInfo(m_portInfo.model, type, buffer, size, false);
        break;
    case TL_INFO_VERSION:
        rc = m_infoUtility.SetInfo(m_portInfo.version, type, buffer, size, false);
        break;
    case TL_INFO_TLTYPE:
        rc = m_infoUtility.SetInfo(m_portInfo.tlType, type, buffer, size, false);
        break;
    case TL_INFO_NAME:
        rc = m_infoUtility.SetInfo(m_tlFileName, type, buffer, size, false);
        break;
    case TL_INFO_PATHNAME:
        rc = m_infoUtility.SetInfo(m_tlFilePath, type, buffer, size, false);
        break;
    case TL_INFO_DISPLAYNAME:
        rc = m_infoUtility.SetInfo(m_displayName, type, buffer, size, false);
        break;
    case TL_INFO_CHAR_ENCODING:
        rc = m_infoUtility.SetInfo(m_charEncoding, type, buffer, size, false);
        break;
    case TL_INFO_GENTL_VER_MAJOR:
        rc = m_infoUtility.SetInfo(m_versionMajor, type, buffer, size, false);
        break;
    case TL_INFO_GENTL_VER_MINOR:
        rc = m_infoUtility.SetInfo(m_versionMinor, type, buffer, size, false);
        break;
    default:
        return ReportError(GC_ERR_INVALID_INDEX, kInfoCommands);
    }
    if (rc != GC_ERR_SUCCESS) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int System::GetNumInterfaces(unsigned int* count) {
    if (count == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piNumIfaces==nullptr");
    }
    *count = static_cast<unsigned int>(m_interfaceIds.size());
    return GC_ERR_SUCCESS;
}

int System::GetInterfaceID(unsigned int index, char* id, unsigned long* size) {
    if (index >= m_interfaceIds.size()) {
        return ReportError(GC_ERR_INVALID_INDEX, "interface index must between 0 <= and < " +
                                                     std::to_string(m_interfaceIds.size()));
    }
    if (size == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piSize==nullptr");
    }
    const std::string& text = m_interfaceIds[index];
    const unsigned long needed = text.size() + 1;
    if (id == nullptr) {
        *size = needed;
        return GC_ERR_SUCCESS;
    }
    if (*size < needed) {
        return ReportError(GC_ERR_BUFFER_TOO_SMALL, "*piSize=" + std::to_string(*size) + " < " +
                                                        "idLen=" + std::to_string(needed) +
                                                        ". iSize must be >= idLen");
    }
    std::memcpy(id, text.c_str(), needed);
    *size = needed;
    return GC_ERR_SUCCESS;
}

int System::GetInterfaceInfo(const char* id, int cmd, int* type, void* buffer,
                             unsigned long* size) {
    const std::string text = id == nullptr ? std::string() : std::string(id);
    if (id == nullptr ||
        std::find(m_interfaceIds.begin(), m_interfaceIds.end(), text) == m_interfaceIds.end()) {
        return ReportError(GC_ERR_INVALID_ID, text + " not found in the list of interfaces");
    }
    switch (cmd) {
    case INTERFACE_INFO_ID:
        return m_infoUtility.SetInfo(text, type, buffer, size, false);
    case INTERFACE_INFO_DISPLAYNAME:
        return m_infoUtility.SetInfo("GigE Interface ( MAC:" + text + " )", type, buffer, size,
                                     false);
    case INTERFACE_INFO_TLTYPE:
        return m_infoUtility.SetInfo(std::string("GEV"), type, buffer, size, false);
    case INTERFACE_INFO_GEV_MAC_ADDRESS:
    case INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS:
    case INTERFACE_INFO_GEV_SUBNET_MASK:
        return ReportError(GC_ERR_NOT_AVAILABLE, "the info is not available until the interface "
                                                 "is open via GenTL::TLOpenInterface()");
    default:
        return ReportError(GC_ERR_INVALID_INDEX,
                           "iInfoCmd must be one of :\nGenTL::INTERFACE_INFO_ID, "
                           "GenTL::INTERFACE_INFO_DISPLAYNAME, \nGenTL::INTERFACE_INFO_TLTYPE, "
                           "GenTL::INTERFACE_INFO_GEV_MAC_ADDRESS, "
                           "\nGenTL::INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS, "
                           "GenTL::INTERFACE_INFO_GEV_SUBNET_MASK");
    }
}

int System::OpenInterface(const char* id, void* hTL, void** phIface) {
    if (id == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "sIfaceID==nullptr");
    }
    if (phIface == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "phIface==nullptr");
    }
    const std::string text(id);
    if (std::find(m_interfaceIds.begin(), m_interfaceIds.end(), text) == m_interfaceIds.end()) {
        std::string message = "interface ID=" + text + " not found in the list of interfaces.\n";
        if (m_interfaceIds.empty()) {
            message += "\t\t\t\t\t  The list of interfaces is empty. No interfaces is connected "
                       "this machine.";
        } else {
            message += "\t\t\t\t\t  The list of interfaces has the following interface(s):\n";
            for (const std::string& known : m_interfaceIds) {
                message += "\t\t\t\t\t\t" + known + "\n";
            }
        }
        return ReportError(GC_ERR_INVALID_ID, message);
    }
    void* adapter = nullptr;
    if (int rc = m_pHal->OpenInterface(text, &adapter)) {
        return ChainError(rc);
    }
    // A failure below also closes this adapter handle: left open, its socket
    // would take the discovery answers meant for an interface already open.
    auto* iface = new InterfaceGev(m_pHal, hTL, adapter);
    if (int rc = iface->Open()) {
        delete iface;
        m_pHal->CloseInterface(adapter);
        return ChainError(rc);
    }
    if (int rc = AllocateHandle(phIface, static_cast<IInterface*>(iface))) {
        delete iface;
        m_pHal->CloseInterface(adapter);
        return ChainError(rc);
    }
    const int rc = g_openedDevicesRegistry.AddInterfaceEntry(text, *phIface);
    if (rc == GC_ERR_SUCCESS) {
        return GC_ERR_SUCCESS;
    }
    // Already open: this second object goes, with its handle.
    delete iface;
    m_pHal->CloseInterface(adapter);
    if (int deleted = DeleteHandle(*phIface)) {
        ChainError(deleted);
    }
    return ChainError(rc);
}

int System::UpdateInterfaceList(bool* changed, unsigned long timeout) {
    if (timeout == 0) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "input iTimeout==0");
    }
    std::vector<std::string> ids;
    if (int rc = m_pHal->GetInterfaces(ids)) {
        GLogger::Error("GenTL::System::UpdateInterfaceList failed to update interface list", rc);
        return ChainError(rc);
    }
    if (changed != nullptr) {
        *changed = ids.size() != m_interfaceIds.size() ||
                   !std::is_permutation(ids.begin(), ids.end(), m_interfaceIds.begin());
    }
    m_interfaceIds = std::move(ids);
    return GC_ERR_SUCCESS;
}

// --- Register map helpers ----------------------------------------------------

int System::GetDriverLogFilename(std::string&) const {
    return ReportNotImplemented();
}

int System::SetDriverLogFilename(const std::string&) {
    return ReportNotImplemented();
}

int System::WriteDriverLogToFile() {
    return ReportNotImplemented();
}

int System::ClearDriverLog() {
    return ReportNotImplemented();
}

int System::GetDriverVersion(std::string&) const {
    return ReportNotImplemented();
}

int System::GetLwfDriverLogLevel(int&) const {
    return ReportNotImplemented();
}

int System::SetLwfDriverLogLevel(int) {
    return ReportNotImplemented();
}

int System::GetActionCommandDeviceKey(unsigned int* value) const {
    return ReadField(m_actionDeviceKey, value);
}

int System::SetActionCommandDeviceKey(const unsigned int* value) {
    return WriteField(m_actionDeviceKey, value);
}

int System::GetActionCommandGroupKey(unsigned int* value) const {
    return ReadField(m_actionGroupKey, value);
}

int System::SetActionCommandGroupKey(const unsigned int* value) {
    return WriteField(m_actionGroupKey, value);
}

int System::GetActionCommandGroupMask(unsigned int* value) const {
    return ReadField(m_actionGroupMask, value);
}

int System::SetActionCommandGroupMask(const unsigned int* value) {
    return WriteField(m_actionGroupMask, value);
}

int System::GetActionCommandTargetIP(unsigned int* value) const {
    return ReadField(m_actionTargetIP, value);
}

int System::SetActionCommandTargetIP(const unsigned int* value) {
    return WriteField(m_actionTargetIP, value);
}

int System::GetActionCommandExecuteTime(unsigned long* value) const {
    return ReadField(m_actionExecuteTime, value);
}

int System::SetActionCommandExecuteTime(const unsigned long* value) {
    return WriteField(m_actionExecuteTime, value);
}

int System::SendActionCommand(unsigned int deviceKey, unsigned int groupKey, unsigned int groupMask,
                              unsigned int targetIP, unsigned long executeTime) {
    std::uint8_t datagram[kScheduledActionSize] = {};
    const bool scheduled = executeTime != 0;
    const std::size_t length = scheduled ? kScheduledActionSize : kActionSize;
    const std::uint8_t flags =
        gvcp::kFlagAckRequired | (scheduled ? gvcp::kFlagScheduledAction : std::uint8_t{0});
    gvcp::PutCommandHeader(datagram, length, flags, gvcp::kActionCmd, 0, kBroadcastActionId);
    gvcp::PutU32(datagram, length, 8, deviceKey);
    gvcp::PutU32(datagram, length, 12, groupKey);
    gvcp::PutU32(datagram, length, 16, groupMask);
    gvcp::PutU32(datagram, length, 20, static_cast<std::uint32_t>(executeTime >> 32));
    gvcp::PutU32(datagram, length, 24, static_cast<std::uint32_t>(executeTime));

    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_port = htons(gvcp::kPort);
    target.sin_addr.s_addr = htonl(targetIP);

    // getifaddrs in place of a fixed-size SIOCGIFCONF: the same filter, with
    // no limit on the number of interfaces and no socket to enumerate with.
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        GLogger::Error("GenTL::System::SendActionCommand getifaddrs() failed", errno);
        return detail::ReportBareError(GC_ERR_ERROR);
    }
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, ::freeifaddrs);
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (!CarriesActions(*entry)) {
            continue;
        }
        sockaddr_in local{};
        std::memcpy(&local, entry->ifa_addr, sizeof local);
        local.sin_port = 0;
        if (int rc = SendFrom(local, target, datagram, length)) {
            return rc;
        }
    }
    return GC_ERR_SUCCESS;
}

} // namespace GenTL
