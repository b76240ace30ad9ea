#include "modules/BaseModule.h"

#include <algorithm>
#include <cstring>

#include "GenTL_KESTA.h"
#include "api/InfoUtility.h"

namespace GenTL {

namespace {

// Longest URL text that GetPortURL formats.
constexpr std::size_t kMaxUrlLength = 4095;

std::string ToUpperHex(unsigned long value) {
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    do {
        text.insert(text.begin(), digits[value & 0xF]);
        value >>= 4;
    } while (value != 0);
    return text;
}

} // namespace

BaseModule::BaseModule() = default;

BaseModule::BaseModule(const std::string& id, const std::string& module,
                       const std::string& portName) {
    m_portInfo.id = id;
    m_portInfo.module = module;
    m_portInfo.portName = portName;
}

BaseModule::~BaseModule() = default;

int BaseModule::ReadPort(unsigned long, void*, unsigned long*) {
    return ReportNotImplemented();
}

int BaseModule::WritePort(unsigned long, const void*, unsigned long*) {
    return ReportNotImplemented();
}

int BaseModule::GetPortURL(char*, unsigned long*) const {
    return ReportNotImplemented();
}

int BaseModule::GetPortInfo(int cmd, int* type, void* buffer, unsigned long* size) {
    const InfoUtility info;
    switch (cmd) {
    case PORT_INFO_ID:
        return info.SetInfo(m_portInfo.id, type, buffer, size, false);
    case PORT_INFO_VENDOR:
        return info.SetInfo(m_portInfo.vendor, type, buffer, size, false);
    case PORT_INFO_MODEL:
        return info.SetInfo(m_portInfo.model, type, buffer, size, false);
    case PORT_INFO_TLTYPE:
        return info.SetInfo(m_portInfo.tlType, type, buffer, size, false);
    case PORT_INFO_MODULE:
        return info.SetInfo(m_portInfo.module, type, buffer, size, false);
    case PORT_INFO_LITTLE_ENDIAN:
        return info.SetInfo(m_portInfo.littleEndian, type, buffer, size, false);
    case PORT_INFO_BIG_ENDIAN:
        return info.SetInfo(m_portInfo.bigEndian, type, buffer, size, false);
    case PORT_INFO_ACCESS_READ:
        return info.SetInfo(m_portInfo.accessRead, type, buffer, size, false);
    case PORT_INFO_ACCESS_WRITE:
        return info.SetInfo(m_portInfo.accessWrite, type, buffer, size, false);
    case PORT_INFO_ACCESS_NA:
        return info.SetInfo(m_portInfo.accessNA, type, buffer, size, false);
    case PORT_INFO_ACCESS_NI:
        return info.SetInfo(m_portInfo.accessNI, type, buffer, size, false);
    case PORT_INFO_VERSION:
        return info.SetInfo(m_portInfo.version, type, buffer, size, false);
    case PORT_INFO_PORTNAME:
        return info.SetInfo(m_portInfo.portName, type, buffer, size, false);
    default:
        return ReportError(
            GC_ERR_INVALID_INDEX,
            "PORT_INFO_CMD must be one of :\n"
            "GenTL::PORT_INFO_ID, GenTL::PORT_INFO_VENDOR, GenTL::PORT_INFO_MODEL, \n"
            "GenTL::PORT_INFO_TLTYPE, GenTL::PORT_INFO_MODULE, GenTL::PORT_INFO_LITTLE_ENDIAN, \n"
            "GenTL::PORT_INFO_BIG_ENDIAN, GenTL::PORT_INFO_ACCESS_READ, "
            "GenTL::PORT_INFO_ACCESS_WRITE, \n"
            "GenTL::PORT_INFO_ACCESS_NA, GenTL::PORT_INFO_ACCESS_NI, GenTL::PORT_INFO_VERSION , \n"
            "GenTL::PORT_INFO_PORTNAME");
    }
}

int BaseModule::RegisterEvent(int, void**) {
    return ReportNotImplemented();
}

int BaseModule::UnregisterEvent(int) {
    return ReportNotImplemented();
}

int BaseModule::GetNumPortURLs(unsigned int*) {
    return ReportNotImplemented();
}

int BaseModule::GetPortURLInfo(unsigned int index, int cmd, int* type, void* buffer,
                               unsigned long* size) {
    if (index != 0) {
        return ReportError(GC_ERR_INVALID_INDEX, "iURLIndex is out of range");
    }
    const InfoUtility info;
    switch (cmd) {
    case URL_INFO_URL: {
        if (type == nullptr) {
            return ReportError(GC_ERR_INVALID_PARAMETER, "piType==nullptr");
        }
        if (int rc = GetPortURL(static_cast<char*>(buffer), size)) {
            return ChainError(rc);
        }
        *type = INFO_DATATYPE_STRING;
        return GC_ERR_SUCCESS;
    }
    case URL_INFO_SCHEMA_VER_MAJOR:
        return info.SetInfo(static_cast<int>(m_urlInfo.SchemaVerMajor), type, buffer, size, false);
    case URL_INFO_SCHEMA_VER_MINOR:
        return info.SetInfo(static_cast<int>(m_urlInfo.SchemaVerMinor), type, buffer, size, false);
    case URL_INFO_FILE_VER_MAJOR:
        return ReportError(GC_ERR_NOT_IMPLEMENTED,
                           "URL_INFO_CMD URL_INFO_FILE_VER_MAJOR is not implemented");
    case URL_INFO_FILE_VER_MINOR:
        return ReportError(GC_ERR_NOT_IMPLEMENTED,
                           "URL_INFO_CMD URL_INFO_FILE_VER_MINOR is not implemented");
    case URL_INFO_FILE_VER_SUBMINOR:
        return ReportError(GC_ERR_NOT_IMPLEMENTED,
                           "URL_INFO_CMD URL_INFO_FILE_VER_SUBMINOR is not implemented");
    case URL_INFO_FILE_SHA1_HASH:
        return ReportError(GC_ERR_NOT_IMPLEMENTED,
                           "URL_INFO_CMD URL_INFO_FILE_SHA1_HASH is not implemented");
    case URL_INFO_FILE_REGISTER_ADDRESS:
        return ReportError(GC_ERR_NOT_IMPLEMENTED,
                           "URL_INFO_CMD URL_INFO_FILE_REGISTER_ADDRESS is not implemented");
    case URL_INFO_FILE_SIZE:
        return ReportError(GC_ERR_NOT_IMPLEMENTED,
                           "URL_INFO_CMD URL_INFO_FILE_SIZE is not implemented");
    case URL_INFO_SCHEME:
        return ReportError(GC_ERR_NOT_IMPLEMENTED,
                           "URL_INFO_CMD URL_INFO_SCHEME is not implemented");
    case URL_INFO_FILENAME:
        return ReportError(GC_ERR_NOT_IMPLEMENTED,
                           "URL_INFO_CMD URL_INFO_FILENAME is not implemented");
    case URL_INFO_CUSTOM_ID:
        return ReportError(GC_ERR_NOT_IMPLEMENTED,
                           "URL_INFO_CMD URL_INFO_CUSTOM_ID is not implemented");
    default:
        return ReportError(
            GC_ERR_INVALID_INDEX,
            "URL_INFO_CMD must be one of :\n"
            "GenTL::URL_INFO_URL, GenTL::URL_INFO_SCHEMA_VER_MAJOR, "
            "GenTL::URL_INFO_SCHEMA_VER_MINOR, \n"
            "GenTL::URL_INFO_FILE_VER_MAJOR, GenTL::URL_INFO_FILE_VER_MINOR, "
            "GenTL::URL_INFO_FILE_VER_SUBMINOR, \n"
            "GenTL::URL_INFO_FILE_SHA1_HASH, GenTL::URL_INFO_FILE_REGISTER_ADDRESS, "
            "GenTL::URL_INFO_FILE_SIZE, \n"
            "GenTL::URL_INFO_SCHEME, GenTL::URL_INFO_FILENAME, GenTL::URL_INFO_CUSTOM_ID");
    }
}

int BaseModule::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) {
    return ReportNotImplemented();
}

int BaseModule::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) {
    return ReportNotImplemented();
}

int BaseModule::GetPortURL(const std::string& urlTemplate, unsigned long xmlLength,
                           unsigned long extraBytes, char* url, unsigned long* size) {
    if (size == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piSize==nullptr");
    }
    std::string text = urlTemplate;
    const std::string::size_type field = text.find("%X");
    if (field != std::string::npos) {
        text.replace(field, 2, ToUpperHex(xmlLength));
    }
    const std::size_t length = std::min(text.size(), kMaxUrlLength);
    const unsigned long needed = length + extraBytes;
    if (url == nullptr) {
        *size = needed;
        return GC_ERR_SUCCESS;
    }
    if (*size < needed) {
        return ReportError(GC_ERR_BUFFER_TOO_SMALL, "*piSize=" + std::to_string(*size) + " < " +
                                                        "len=" + std::to_string(needed) +
                                                        ". iSize must be >= len");
    }
    std::memcpy(url, text.data(), length);
    std::memset(url + length, 0, extraBytes);
    *size = needed;
    return GC_ERR_SUCCESS;
}

int BaseModule::GetOneNumPortURLs(unsigned int* count) {
    if (count == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piNumURLs==nullptr");
    }
    *count = 1;
    return GC_ERR_SUCCESS;
}

int BaseModule::ReadPortEntries(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) {
    if (entries == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "pEntries==nullptr");
    }
    if (count == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piNumEntries==nullptr");
    }
    for (unsigned long i = 0; i < *count; ++i) {
        S_PORT_REGISTER_STACK_ENTRY& entry = entries[i];
        if (int rc = ReadPort(entry.Address, entry.pBuffer, &entry.Size)) {
            return ChainError(rc);
        }
    }
    return GC_ERR_SUCCESS;
}

int BaseModule::WritePortEntries(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) {
    if (entries == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "pEntries==nullptr");
    }
    if (count == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piNumEntries==nullptr");
    }
    for (unsigned long i = 0; i < *count; ++i) {
        S_PORT_REGISTER_STACK_ENTRY& entry = entries[i];
        if (int rc = WritePort(entry.Address, entry.pBuffer, &entry.Size)) {
            return ChainError(rc);
        }
    }
    return GC_ERR_SUCCESS;
}

} // namespace GenTL
