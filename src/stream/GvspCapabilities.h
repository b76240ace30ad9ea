#pragma once
/**
 * The camera's stream channel facts as the GVSP layers use them: the GVSP
 * capability word (bootstrap register 0x092C) and the addresses of the
 * registers of stream channel 0 that the layers read and write.
 */
#include <cstdint>

namespace GenTL {

/// GigE Vision version; the high 16 bits are the major version.
constexpr unsigned sk_addrGevVersion = 0x0000;
/// GVSP capability word (GvspCapabilities).
constexpr unsigned sk_addrGvspCaps = 0x092C;
/// Timestamp tick frequency, high and low word.
constexpr unsigned sk_addrTickFrequencyHigh = 0x093C;
constexpr unsigned sk_addrTickFrequencyLow = 0x0940;
/// GVSP configuration word; bit 30 enables extended block and packet ids.
constexpr unsigned sk_addrGvspCofig = 0x0960;
/// Stream channel 0: port, packet size, packet delay (ticks), destination
/// address, source port (low 16 bits).
constexpr unsigned sk_addrScp = 0x0D00;
constexpr unsigned sk_addrScps = 0x0D04;
constexpr unsigned sk_addrScpd = 0x0D08;
constexpr unsigned sk_addrScda = 0x0D18;
constexpr unsigned sk_addrScsp = 0x0D1C;

/// SCPS bits: fire one test packet; the camera must not fragment.
constexpr std::uint32_t sk_scpsFireTestPacket = 0x80000000u;
constexpr std::uint32_t sk_scpsDoNotFragment = 0x40000000u;
constexpr std::uint32_t sk_scpsSizeMask = 0x0000FFFFu;

/// Bit 30 of the GVSP configuration word.
constexpr std::uint32_t sk_gvspConfigExtendedId = 0x40000000u;

/// The camera's GVSP capability word. 0 stands for "not read yet" where a
/// cache holds it.
struct GvspCapabilities {
    std::uint32_t word = 0;

    /// Bit 31: the camera has the SCSP register, so the host can open its
    /// firewall towards the stream's source port.
    bool HasSourcePort() const { return (word & 0x80000000u) != 0; }
    /// Bit 30: the camera can send 64-bit block ids and 32-bit packet ids.
    bool CanExtendedId() const { return (word & 0x40000000u) != 0; }
};

} // namespace GenTL
