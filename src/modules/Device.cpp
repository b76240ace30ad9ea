#include "modules/Device.h"

#include "GenTL_KESTA.h"
#include "api/Error.h"

namespace GenTL {

namespace {

const char* const kDeviceInfoCommands =
    "iInfoCmd must be one of :\nGenTL::DEVICE_INFO_ID, GenTL::DEVICE_INFO_TLTYPE, "
    "\nGenTL::DEVICE_INFO_DISPLAYNAME, GenTL::DEVICE_INFO_MODEL, GenTL::DEVICE_INFO_VENDOR, "
    "\nGenTL::DEVICE_INFO_ACCESS_STATUS, GenTL::DEVICE_INFO_USER_DEFINED_NAME, "
    "\nGenTL::DEVICE_INFO_SERIAL_NUMBER, GenTL::DEVICE_INFO_VERSION, "
    "\nGenTL::DEVICE_INFO_TIMESTAMP_FREQUENCY";

} // namespace

Device::Device() : m_id("Unknown ID"), m_vendor("Kesta Optic Works"), m_model("GenTL Producer") {}

Device::~Device() = default;

int Device::ReadPort(unsigned long address, void* buffer, unsigned long* size) {
    return BaseModule::ReadPort(address, buffer, size);
}

int Device::WritePort(unsigned long address, const void* buffer, unsigned long* size) {
    return BaseModule::WritePort(address, buffer, size);
}

int Device::GetPortURL(char* url, unsigned long* size) const {
    return BaseModule::GetPortURL(url, size);
}

int Device::GetPortInfo(int cmd, int* type, void* buffer, unsigned long* size) {
    return BaseModule::GetPortInfo(cmd, type, buffer, size);
}

int Device::RegisterEvent(int type, void** event) {
    return BaseModule::RegisterEvent(type, event);
}

int Device::UnregisterEvent(int type) {
    return BaseModule::UnregisterEvent(type);
}

int Device::GetNumPortURLs(unsigned int* count) {
    return BaseModule::GetNumPortURLs(count);
}

int Device::GetPortURLInfo(unsigned int index, int cmd, int* type, void* buffer,
                           unsigned long* size) {
    return BaseModule::GetPortURLInfo(index, cmd, type, buffer, size);
}

int Device::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) {
    return BaseModule::ReadPortStacked(entries, count);
}

int Device::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) {
    return BaseModule::WritePortStacked(entries, count);
}

int Device::Open(int, void*) {
    return ReportNotImplemented();
}

int Device::Close() {
    return ReportNotImplemented();
}

int Device::GetInfo(int cmd, int* type, void* buffer, unsigned long* size) const {
    int rc = GC_ERR_SUCCESS;
    switch (cmd) {
    case DEVICE_INFO_ID:
        rc = m_infoUtility.SetInfo(m_id, type, buffer, size, false);
        break;
    case DEVICE_INFO_VENDOR:
        rc = m_infoUtility.SetInfo(m_vendor, type, buffer, size, false);
        break;
    case DEVICE_INFO_MODEL:
        rc = m_infoUtility.SetInfo(m_model, type, buffer, size, false);
        break;
    case DEVICE_INFO_TLTYPE:
        rc = m_infoUtility.SetInfo(std::string("GEV"), type, buffer, size, false);
        break;
    case DEVICE_INFO_DISPLAYNAME:
        rc = m_infoUtility.SetInfo(m_displayName, type, buffer, size, false);
        break;
    case DEVICE_INFO_ACCESS_STATUS:
        rc = m_infoUtility.SetInfo(static_cast<int>(m_accessStatus), type, buffer, size, false);
        break;
    case DEVICE_INFO_USER_DEFINED_NAME:
        rc = m_infoUtility.SetInfo(m_userDefinedName, type, buffer, size, false);
        break;
    case DEVICE_INFO_SERIAL_NUMBER:
        rc = m_infoUtility.SetInfo(m_serialNumber, type, buffer, size, false);
        break;
    case DEVICE_INFO_VERSION:
        rc = m_infoUtility.SetInfo(m_version, type, buffer, size, false);
        break;
    case DEVICE_INFO_TIMESTAMP_FREQUENCY:
        rc = m_infoUtility.SetInfo(m_timestampTickFrequency, type, buffer, size, false);
        break;
    default:
        return ReportError(GC_ERR_INVALID_INDEX, kDeviceInfoCommands);
    }
    if (rc != GC_ERR_SUCCESS) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int Device::GetPort(void**) {
    return ReportNotImplemented();
}

int Device::GetNumDataStreams(unsigned int*) const {
    return ReportNotImplemented();
}

int Device::GetDataStreamID(unsigned int, char*, unsigned long*) const {
    return ReportNotImplemented();
}

int Device::OpenDataStream(const char*, void**) const {
    return ReportNotImplemented();
}

int Device::OpenDataStream(const char*, void**, IHALGvsp*) const {
    return ReportNotImplemented();
}

int Device::GetParentIF(void**) const {
    return ReportNotImplemented();
}

int Device::SetInfo(int, int, const void*, unsigned long) {
    return ReportError(GC_ERR_NOT_IMPLEMENTED, "only GEV devices are supported");
}

int Device::SendActionCommand(unsigned int, unsigned int, unsigned int, unsigned long) const {
    return ReportNotImplemented();
}

} // namespace GenTL
