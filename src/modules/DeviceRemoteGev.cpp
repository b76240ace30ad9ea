#include "modules/DeviceRemoteGev.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/GLogger.h"
#include "api/InfoUtility.h"
#include "hal/IHALGev.h"

namespace GenTL {

namespace {

constexpr std::uint32_t kDeviceModeBigEndian = 1u << 31;
constexpr std::uint32_t kScpsBigEndian = 1u << 29;
constexpr GvcpCapabilities kCapWriteMem = 1u << 1;
constexpr GvcpCapabilities kCapManifest = 1u << 26;
/// WRITEREG pairs that fit one command.
constexpr std::size_t kMaxWriteRegBlock = 68;
/// GVCP addresses are 32 bits wide.
constexpr unsigned long kAddressSpace = 0x100000000UL;

/// An access that would run past the camera's address space.
bool OutOfRange(unsigned long address, unsigned long size) {
    return address >= kAddressSpace || size > kAddressSpace - address;
}

const char* const kUrlInfoCommands =
    "URL_INFO_CMD must be one of :\nGenTL::URL_INFO_URL, GenTL::URL_INFO_SCHEMA_VER_MAJOR, "
    "GenTL::URL_INFO_SCHEMA_VER_MINOR, \nGenTL::URL_INFO_FILE_VER_MAJOR, "
    "GenTL::URL_INFO_FILE_VER_MINOR, GenTL::URL_INFO_FILE_VER_SUBMINOR, "
    "\nGenTL::URL_INFO_FILE_SHA1_HASH, GenTL::URL_INFO_FILE_REGISTER_ADDRESS, "
    "GenTL::URL_INFO_FILE_SIZE, \nGenTL::URL_INFO_SCHEME, GenTL::URL_INFO_FILENAME";

std::uint32_t Swap32(std::uint32_t v) {
    return __builtin_bswap32(v);
}

/// Bits first..last (counted from the least significant) of word.
int Bits(std::uint32_t word, unsigned first, unsigned last) {
    return static_cast<int>((word >> first) & ((1u << (last - first + 1)) - 1));
}

int ReportNotAvailable(const char* function, int line) {
    return detail::ReportErrorAt(GC_ERR_NOT_AVAILABLE, Error::GetErrCodeName(GC_ERR_NOT_AVAILABLE),
                                 function, line);
}

} // namespace

RemoteDeviceGev::RemoteDeviceGev(IHALGev* hal, void* hDevice, GvcpCapabilities capabilities,
                                 long endianness, PortInfo info, long accessStatus)
    : m_hDevice(hDevice), m_pHal(hal), m_gvcpCapabilities(capabilities),
      m_endiannessMechanism(endianness), m_accessStatus(accessStatus) {
    // The port's identity is the producer's: the camera's own serial,
    // vendor and model are answered by the device module.
    const PortInfo producer;
    m_portInfo = std::move(info);
    m_portInfo.id = producer.id;
    m_portInfo.vendor = producer.vendor;
    m_portInfo.model = producer.model;
    m_portInfo.tlType = producer.tlType;
    m_portInfo.version = producer.version;
    m_portInfo.module = "Device";
    m_portInfo.portName = "Device";

    unsigned mode = 0;
    if (m_pHal->ReadReg(m_hDevice, sk_addrDeviceMode, mode) == GC_ERR_SUCCESS) {
        m_deviceMode = mode;
    }

    unsigned scps = 0;
    if (int rc = m_pHal->ReadReg(m_hDevice, sk_addrScps, scps)) {
        ReportError(rc, ":IGNORABLE: RemoteDeviceGev endianness bit unable to be read");
    } else {
        const bool big = (scps & kScpsBigEndian) != 0;
        m_portInfo.bigEndian = big;
        m_portInfo.littleEndian = !big;
    }
}

RemoteDeviceGev::~RemoteDeviceGev() = default;

void RemoteDeviceGev::SetEndianessMechanism(long mechanism) {
    m_endiannessMechanism = mechanism;
}

void RemoteDeviceGev::SetAccessStatus(long status) {
    m_accessStatus = status;
}

bool RemoteDeviceGev::SwapsRegisterValues() const {
    return (m_deviceMode & kDeviceModeBigEndian) != 0;
}

int RemoteDeviceGev::CheckPortAccess(unsigned long address, const void* buffer,
                                     const unsigned long* size) const {
    if (buffer == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "pBuffer==nullptr");
    }
    if (size == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piSize==nullptr");
    }
    if (m_accessStatus == DEVICE_ACCESS_STATUS_UNKNOWN) {
        return ReportError(GC_ERR_ABORT, "m_accessStatus==DEVICE_ACCESS_STATUS_UNKNOWN");
    }
    if (OutOfRange(address, *size)) {
        return ReportError(GC_ERR_INVALID_ADDRESS,
                           "iAddress + *piSize is beyond the camera's 32-bit address space");
    }
    return GC_ERR_SUCCESS;
}

template <class Legacy, class Standard>
int RemoteDeviceGev::ByMechanism(const char* caller, Legacy legacy, Standard standard) const {
    int rc = GC_ERR_SUCCESS;
    switch (m_endiannessMechanism) {
    case kEndiannessLegacy:
        rc = legacy();
        break;
    case kEndiannessStandard:
        rc = standard();
        break;
    default:
        GLogger::Error(
            (std::string(caller) + "  m_endiannessMechanism is not set to valid value").c_str());
        return ReportError(GC_ERR_INVALID_ID, "m_endiannessMechanism is not set to a valid value");
    }
    return rc == GC_ERR_SUCCESS ? GC_ERR_SUCCESS : ChainError(rc);
}

int RemoteDeviceGev::ReadPort(unsigned long address, void* buffer, unsigned long* size) {
    if (const int rc = CheckPortAccess(address, buffer, size)) {
        return rc;
    }
    return ByMechanism(
        "RemoteDeviceGev::ReadPort", [&] { return ReadPortLegacy(address, buffer, size); },
        [&] { return ReadPortStandard(address, buffer, size); });
}

int RemoteDeviceGev::WritePort(unsigned long address, const void* buffer, unsigned long* size) {
    if (const int rc = CheckPortAccess(address, buffer, size)) {
        return rc;
    }
    return ByMechanism(
        "RemoteDeviceGev::WritePort", [&] { return WritePortLegacy(address, buffer, size); },
        [&] { return WritePortStandard(address, buffer, size); });
}

int RemoteDeviceGev::ReadPortStandard(unsigned long address, void* buffer, unsigned long* size) {
    char* out = static_cast<char*>(buffer);
    const unsigned long total = *size;
    for (unsigned long offset = 0; offset < total; offset += kMaxMemChunk) {
        const unsigned long length = std::min(kMaxMemChunk, total - offset);
        if (int rc = m_pHal->ReadMem(m_hDevice, static_cast<unsigned>(address + offset),
                                     out + offset, length)) {
            return ChainError(rc);
        }
    }
    return GC_ERR_SUCCESS;
}

int RemoteDeviceGev::WritePortStandard(unsigned long address, const void* buffer,
                                       unsigned long* size) {
    const char* in = static_cast<const char*>(buffer);
    const unsigned long total = *size;
    for (unsigned long offset = 0; offset < total; offset += kMaxMemChunk) {
        const unsigned long length = std::min(kMaxMemChunk, total - offset);
        if (int rc = m_pHal->WriteMem(m_hDevice, static_cast<unsigned>(address + offset),
                                      in + offset, length)) {
            return ChainError(rc);
        }
    }
    return GC_ERR_SUCCESS;
}

int RemoteDeviceGev::ReadPortLegacy(unsigned long address, void* buffer, unsigned long* size) {
    if (buffer == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "pBuffer==nullptr");
    }
    if (size == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piSize==nullptr");
    }
    if (*size != 4) {
        return ReadPortStandard(address, buffer, size);
    }
    unsigned value = 0;
    if (int rc = m_pHal->ReadReg(m_hDevice, static_cast<unsigned>(address), value)) {
        return ChainError(rc);
    }
    if (SwapsRegisterValues()) {
        value = Swap32(value);
    }
    std::memcpy(buffer, &value, sizeof value);
    return GC_ERR_SUCCESS;
}

int RemoteDeviceGev::WritePortLegacy(unsigned long address, const void* buffer,
                                     unsigned long* size) {
    if (buffer == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "pBuffer==nullptr");
    }
    if (size == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piSize==nullptr");
    }
    if (*size == 4) {
        unsigned value = 0;
        std::memcpy(&value, buffer, sizeof value);
        if (SwapsRegisterValues()) {
            value = Swap32(value);
        }
        if (int rc = m_pHal->WriteReg(m_hDevice, static_cast<unsigned>(address), value)) {
            return ChainError(rc);
        }
        return GC_ERR_SUCCESS;
    }
    if ((m_gvcpCapabilities & kCapWriteMem) != 0) {
        return WritePortStandard(address, buffer, size);
    }
    // Without WRITEMEM the camera takes the words as a register block, in
    // wire order as they stand in the buffer; trailing bytes short of a
    // word are not written.
    const std::size_t words = *size / 4;
    const unsigned char* in = static_cast<const unsigned char*>(buffer);
    unsigned values[kMaxWriteRegBlock];
    for (std::size_t done = 0; done < words;) {
        const std::size_t count = std::min(kMaxWriteRegBlock, words - done);
        std::memcpy(values, in + done * 4, count * 4);
        if (int rc = m_pHal->WriteRegBlock(m_hDevice, static_cast<unsigned>(address + done * 4),
                                           values, count)) {
            return ChainError(rc);
        }
        done += count;
    }
    return GC_ERR_SUCCESS;
}

int RemoteDeviceGev::ReadPortURL(IHALGev* hal, void* hDevice, unsigned address, char* url,
                                 unsigned long* size) {
    if (size == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piSize==nullptr");
    }
    char text[kMaxMemChunk];
    if (int rc = hal->ReadMem(hDevice, address, text, sizeof text)) {
        return ChainError(rc);
    }
    const unsigned long length = strnlen(text, sizeof text);
    const unsigned long needed = length + 2;
    if (url != nullptr) {
        if (*size < needed) {
            const unsigned long given = *size;
            *size = needed;
            return ReportError(GC_ERR_BUFFER_TOO_SMALL, "*piSize=" + std::to_string(given) +
                                                            "size=" + std::to_string(needed) +
                                                            ". iSize must be >= size");
        }
        std::memcpy(url, text, length);
        url[length] = '\0';
        url[length + 1] = '\0';
    }
    *size = needed;
    return GC_ERR_SUCCESS;
}

int RemoteDeviceGev::GetPortURL(char* url, unsigned long* size) const {
    int rc = ReadPortURL(m_pHal, m_hDevice, sk_addrFirstUrl, url, size);
    if (rc != GC_ERR_SUCCESS && rc != GC_ERR_BUFFER_TOO_SMALL) {
        rc = ReadPortURL(m_pHal, m_hDevice, sk_addrSecondUrl, url, size);
    }
    if (rc != GC_ERR_SUCCESS) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int RemoteDeviceGev::GetPortInfo(int cmd, int* type, void* buffer, unsigned long* size) {
    return BaseModule::GetPortInfo(cmd, type, buffer, size);
}

int RemoteDeviceGev::GetNumPortURLs(unsigned int* count) {
    if (count == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piNumURLs==nullptr");
    }
    if ((m_gvcpCapabilities & kCapManifest) == 0) {
        m_numManifestEntries = 0;
        m_manifestRead = true;
        *count = 0;
        return GC_ERR_SUCCESS;
    }
    unsigned head[2] = {0, 0};
    if (int rc = m_pHal->ReadRegBlock(m_hDevice, sk_addrManifestTable, head, 2)) {
        return ChainError(rc);
    }
    m_manifestHead[0] = head[0];
    m_manifestHead[1] = head[1];
    // Six bits cannot count past the 63 entries the table has room for.
    const unsigned entries = head[0] >> 26;
    for (unsigned i = 0; i < entries; ++i) {
        unsigned entry[2] = {0, 0};
        if (int rc = m_pHal->ReadRegBlock(m_hDevice, sk_addrManifestTable + 8 + 8 * i, entry, 2)) {
            return ChainError(rc);
        }
        m_manifestEntries[i][0] = entry[0];
        m_manifestEntries[i][1] = entry[1];
    }
    m_numManifestEntries = entries;
    m_manifestRead = true;
    *count = entries;
    return GC_ERR_SUCCESS;
}

int RemoteDeviceGev::GetPortURLInfo(unsigned int index, int cmd, int* type, void* buffer,
                                    unsigned long* size) {
    // Consumers that ask for URL 0 straight away, without counting first,
    // get the answer a count would have given them.
    if (!m_manifestRead) {
        unsigned int count = 0;
        if (int rc = GetNumPortURLs(&count)) {
            return ChainError(rc);
        }
    }
    if (index >= m_numManifestEntries) {
        return ReportError(GC_ERR_INVALID_INDEX, "iURLIndex is out of range");
    }
    if (type == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piType==nullptr");
    }
    const std::uint32_t word0 = m_manifestEntries[index][0];
    const std::uint32_t word1 = m_manifestEntries[index][1];
    const InfoUtility info;
    int rc = GC_ERR_SUCCESS;
    switch (cmd) {
    case URL_INFO_URL:
        rc = ReadPortURL(m_pHal, m_hDevice, word1, static_cast<char*>(buffer), size);
        if (rc == GC_ERR_SUCCESS) {
            *type = INFO_DATATYPE_STRING;
        }
        break;
    case URL_INFO_SCHEMA_VER_MAJOR:
        rc = info.SetInfo(Bits(word0, 8, 13), type, buffer, size, false);
        break;
    case URL_INFO_SCHEMA_VER_MINOR:
        rc = info.SetInfo(Bits(word0, 2, 7), type, buffer, size, false);
        break;
    case URL_INFO_FILE_VER_MAJOR:
        rc = info.SetInfo(Bits(word0, 26, 31), type, buffer, size, false);
        break;
    case URL_INFO_FILE_VER_MINOR:
        rc = info.SetInfo(Bits(word0, 20, 25), type, buffer, size, false);
        break;
    case URL_INFO_FILE_VER_SUBMINOR:
        rc = info.SetInfo(Bits(word0, 14, 19), type, buffer, size, false);
        break;
    case URL_INFO_FILE_SHA1_HASH:
        return ReportError(GC_ERR_NOT_IMPLEMENTED,
                           "URL_INFO_CMD URL_INFO_FILE_SHA1_HASH is not implemented");
    case URL_INFO_FILE_REGISTER_ADDRESS:
        rc = info.SetInfo(static_cast<unsigned long>(word1), type, buffer, size, false);
        break;
    case URL_INFO_FILE_SIZE:
        return ReportError(GC_ERR_NOT_IMPLEMENTED,
                           "URL_INFO_CMD URL_INFO_FILE_SIZE is not implemented");
    case URL_INFO_SCHEME:
        rc = info.SetInfo(static_cast<int>(URL_SCHEME_LOCAL), type, buffer, size, false);
        break;
    case URL_INFO_FILENAME:
        return ReportError(GC_ERR_NOT_IMPLEMENTED,
                           "URL_INFO_CMD URL_INFO_FILENAME is not implemented");
    default:
        return ReportError(GC_ERR_INVALID_INDEX, kUrlInfoCommands);
    }
    if (rc != GC_ERR_SUCCESS) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int RemoteDeviceGev::RegisterEvent(int, void**) {
    return ReportNotAvailable(__func__, __LINE__);
}

int RemoteDeviceGev::UnregisterEvent(int) {
    return ReportNotAvailable(__func__, __LINE__);
}

int RemoteDeviceGev::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) {
    return ReportNotAvailable(__func__, __LINE__);
}

int RemoteDeviceGev::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) {
    return ReportNotAvailable(__func__, __LINE__);
}

} // namespace GenTL
