#include "modules/Interface.h"

#include "GenTL_KESTA.h"
#include "api/Error.h"

namespace GenTL {

namespace {

int NotThisKind(const char* function, int line) {
    return detail::ReportErrorAt(GC_ERR_NOT_IMPLEMENTED, "only GEV interfaces are supported",
                                 function, line);
}

} // namespace

// Stamped with the refused operation.
#define RefuseInterface() NotThisKind(__func__, __LINE__)

Interface::Interface() = default;

Interface::~Interface() = default;

int Interface::ReadPort(unsigned long, void*, unsigned long*) {
    return RefuseInterface();
}

int Interface::WritePort(unsigned long, const void*, unsigned long*) {
    return RefuseInterface();
}

int Interface::GetPortURL(char*, unsigned long*) const {
    return RefuseInterface();
}

int Interface::GetPortInfo(int cmd, int* type, void* buffer, unsigned long* size) {
    return BaseModule::GetPortInfo(cmd, type, buffer, size);
}

int Interface::RegisterEvent(int type, void** event) {
    return BaseModule::RegisterEvent(type, event);
}

int Interface::UnregisterEvent(int type) {
    return BaseModule::UnregisterEvent(type);
}

int Interface::GetNumPortURLs(unsigned int*) {
    return RefuseInterface();
}

int Interface::GetPortURLInfo(unsigned int index, int cmd, int* type, void* buffer,
                              unsigned long* size) {
    return BaseModule::GetPortURLInfo(index, cmd, type, buffer, size);
}

int Interface::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) {
    return BaseModule::ReadPortStacked(entries, count);
}

int Interface::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) {
    return BaseModule::WritePortStacked(entries, count);
}

int Interface::Open() {
    return RefuseInterface();
}

int Interface::Close() {
    return RefuseInterface();
}

int Interface::UpdateDeviceList(bool*, unsigned long) {
    return RefuseInterface();
}

int Interface::GetInfo(int cmd, int* type, void* buffer, unsigned long* size) {
    switch (cmd) {
    case INTERFACE_INFO_ID:
        return m_infoUtility.SetInfo(m_portInfo.id, type, buffer, size, false);
    case INTERFACE_INFO_DISPLAYNAME:
        return m_infoUtility.SetInfo(m_displayName, type, buffer, size, false);
    case INTERFACE_INFO_TLTYPE:
        return m_infoUtility.SetInfo(m_portInfo.tlType, type, buffer, size, false);
    default:
        return ReportError(GC_ERR_INVALID_INDEX,
                           "iInfoCmd must be one of :\nGenTL::INTERFACE_INFO_ID, "
                           "GenTL::INTERFACE_INFO_TLTYPE, \nGenTL::INTERFACE_INFO_DISPLAYNAME, "
                           "GenTL::INTERFACE_INFO_GEV_MAC_ADDRESS, "
                           "\nGenTL::INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS, "
                           "GenTL::INTERFACE_INFO_GEV_SUBNET_MASK");
    }
}

int Interface::GetParentTL(void**) const {
    return RefuseInterface();
}

int Interface::GetNumDevices(unsigned int*) const {
    return RefuseInterface();
}

int Interface::GetDeviceID(unsigned int, char*, unsigned long*) const {
    return RefuseInterface();
}

int Interface::GetDeviceInfo(const char*, int, int*, void*, unsigned long*) const {
    return RefuseInterface();
}

int Interface::OpenDevice(const char*, const int&, void**, void*) const {
    return RefuseInterface();
}

int Interface::ForceIp(unsigned long, unsigned int, unsigned int, unsigned int) {
    return RefuseInterface();
}

int Interface::AddUnicastDiscoveryDevice(unsigned int) {
    return RefuseInterface();
}

int Interface::RemoveUnicastDiscoveryDevice(unsigned int) {
    return RefuseInterface();
}

int Interface::GetUnicastDiscoveryDevices(unsigned int*, unsigned int*) {
    return RefuseInterface();
}

} // namespace GenTL
