#pragma once
/**
 * RemoteDeviceGev: the port of the camera itself, the handle that
 * DevGetPort hands out. A node map reads and writes the camera's registers
 * and memory through it and finds the camera's XML through its URLs.
 *
 * Port accesses of any length become GVCP transactions on the device's
 * handle. Two ways exist, chosen by the endianness mechanism that the
 * device module sets (DeviceGev::SetInfo, command 1001):
 *   - standard (1): READMEM / WRITEMEM in chunks of 536 bytes, the bytes as
 *     they stand on the wire;
 *   - legacy (0): a 4-byte access is one register transaction whose value is
 *     byte-swapped when the device mode register (0x0004) says big-endian;
 *     a longer write on a camera without WRITEMEM is a WRITEREG block; all
 *     else takes the standard way.
 * A chunked access is not atomic against other threads and stops at its
 * first failed chunk, leaving what was done done.
 *
 * URLs: GetPortURL reads the first URL register (0x0200), falling back to
 * the second (0x0400). GetNumPortURLs / GetPortURLInfo read the manifest
 * table (0x9000) of cameras that have one. The URL texts are handed out as
 * the camera wrote them.
 */
#include <atomic>
#include <cstdint>

#include "modules/BaseModule.h"

namespace GenTL {

class IHALGev;

/// The camera's GVCP capability register (0x0934) as read.
using GvcpCapabilities = std::uint32_t;

constexpr unsigned sk_addrDeviceMode = 0x0004;
constexpr unsigned sk_addrFirstUrl = 0x0200;
constexpr unsigned sk_addrSecondUrl = 0x0400;
constexpr unsigned sk_addrScps = 0x0D04;
constexpr unsigned sk_addrManifestTable = 0x9000;

class RemoteDeviceGev : public BaseModule {
public:
    static constexpr long kEndiannessLegacy = 0;
    static constexpr long kEndiannessStandard = 1;
    /// The largest READMEM / WRITEMEM of one transaction.
    static constexpr unsigned long kMaxMemChunk = 536;
    static constexpr unsigned kMaxManifestEntries = 63;

    /**
     * Takes the port facts of info, with the producer's id ("Unknown ID"),
     * vendor, model, transport layer and version, and "Device" as module
     * and port name; then reads two registers: the device mode (0x0004; 0 if unreadable)
     * and the stream channel's big-endian bit (bit 29 of 0x0D04), which sets
     * the port's endianness facts. Neither read can fail the construction.
     */
    RemoteDeviceGev(IHALGev* hal, void* hDevice, GvcpCapabilities capabilities, long endianness,
                    PortInfo info, long accessStatus);
    ~RemoteDeviceGev() override;

    /// *size bytes at address. Null arguments: GC_ERR_INVALID_PARAMETER;
    /// unknown access status: GC_ERR_ABORT; an access past 0xFFFFFFFF:
    /// GC_ERR_INVALID_ADDRESS; a mechanism other than 0 or 1:
    /// GC_ERR_INVALID_ID.
    int ReadPort(unsigned long address, void* buffer, unsigned long* size) override;
    /// As ReadPort, writing.
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override;
    /// The first URL the camera has, with two zero bytes behind the text.
    int GetPortURL(char* url, unsigned long* size) const override;
    int GetPortInfo(int cmd, int* type, void* buffer, unsigned long* size) override;
    /// The manifest's entry count; 0 without the manifest capability.
    int GetNumPortURLs(unsigned int* count) override;
    /// A fact of manifest entry index (below the count GetNumPortURLs found);
    /// the manifest is read first if no count has been asked for yet.
    int GetPortURLInfo(unsigned int index, int cmd, int* type, void* buffer,
                       unsigned long* size) override;
    /// GC_ERR_NOT_AVAILABLE.
    int RegisterEvent(int type, void** event) override;
    /// GC_ERR_NOT_AVAILABLE.
    int UnregisterEvent(int type) override;
    /// GC_ERR_NOT_AVAILABLE.
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;
    /// GC_ERR_NOT_AVAILABLE.
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;

    /// Takes effect at the next access.
    void SetEndianessMechanism(long mechanism);
    /// DEVICE_ACCESS_STATUS_*; unknown (0) refuses every access.
    void SetAccessStatus(long status);

    int ReadPortLegacy(unsigned long address, void* buffer, unsigned long* size);
    int ReadPortStandard(unsigned long address, void* buffer, unsigned long* size);
    int WritePortLegacy(unsigned long address, const void* buffer, unsigned long* size);
    int WritePortStandard(unsigned long address, const void* buffer, unsigned long* size);

    /**
     * Reads the URL text in the 536 bytes at address into url with two zero
     * bytes behind it; *size becomes the text's length + 2 in any case. A
     * null url asks for that size; a smaller *size fails with
     * GC_ERR_BUFFER_TOO_SMALL.
     */
    static int ReadPortURL(IHALGev* hal, void* hDevice, unsigned address, char* url,
                           unsigned long* size);

private:
    /// The refusals shared by reads and writes of the port.
    int CheckPortAccess(unsigned long address, const void* buffer, const unsigned long* size) const;
    /// Runs the access of the mechanism set; an unset one is refused.
    template <class Legacy, class Standard>
    int ByMechanism(const char* caller, Legacy legacy, Standard standard) const;

    /// The device mode register's top bit: the camera is big-endian.
    bool SwapsRegisterValues() const;

    void* m_hDevice;
    IHALGev* m_pHal;
    GvcpCapabilities m_gvcpCapabilities;
    /// Set by the device module's thread, read by any accessing one.
    std::atomic<long> m_endiannessMechanism;
    std::uint32_t m_manifestHead[2] = {0, 0};
    std::uint32_t m_manifestEntries[kMaxManifestEntries][2] = {};
    unsigned m_numManifestEntries = 0;
    bool m_manifestRead = false; ///< GetNumPortURLs has succeeded once
    std::uint32_t m_deviceMode = 0;
    std::atomic<long> m_accessStatus;
};

} // namespace GenTL
