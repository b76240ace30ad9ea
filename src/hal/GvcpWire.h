#pragma once
/**
 * GVCP on the wire: the 8-byte command and ack headers, the codes in use,
 * and big-endian field access.
 *
 * Every accessor takes the buffer and its size and never reads or writes
 * outside it: a field that does not fit reads as 0 and is not written.
 * Datagrams are received into fixed, zeroed buffers, so a short datagram
 * simply leaves the tail of the buffer as it stood.
 */
#include <cstddef>
#include <cstdint>
#include <string>

namespace GenTL {
namespace gvcp {

/// UDP port of the control channel on the device.
constexpr unsigned short kPort = 3956;
constexpr std::size_t kHeaderSize = 8;
constexpr std::uint8_t kKey = 0x42;

constexpr std::uint8_t kFlagAckRequired = 0x01;
constexpr std::uint8_t kFlagExtendedId = 0x10;
/// Discovery and ForceIP: acknowledge required and the ack may be a broadcast.
constexpr std::uint8_t kFlagAckBroadcast = 0x11;
constexpr std::uint8_t kFlagScheduledAction = 0x80;

enum Code : std::uint16_t {
    kDiscoveryCmd = 0x0002,
    kDiscoveryAck = 0x0003,
    kForceIpCmd = 0x0004,
    kForceIpAck = 0x0005,
    kPacketResendCmd = 0x0040,
    kReadRegCmd = 0x0080,
    kReadRegAck = 0x0081,
    kWriteRegCmd = 0x0082,
    kWriteRegAck = 0x0083,
    kReadMemCmd = 0x0084,
    kReadMemAck = 0x0085,
    kWriteMemCmd = 0x0086,
    kWriteMemAck = 0x0087,
    kPendingAck = 0x0089,
    kActionCmd = 0x0100,
    kActionAck = 0x0101,
};

/// Largest data area of a memory access, and of a block command's payload.
constexpr std::size_t kMaxMemLength = 536;
constexpr std::size_t kMaxBlockPayload = 544;

/// Size of the payload that follows the header of a discovery ack.
constexpr std::size_t kDiscoveryPayloadSize = 248;

std::uint16_t GetU16(const std::uint8_t* buffer, std::size_t size, std::size_t offset);
std::uint32_t GetU32(const std::uint8_t* buffer, std::size_t size, std::size_t offset);
void PutU16(std::uint8_t* buffer, std::size_t size, std::size_t offset, std::uint16_t value);
void PutU32(std::uint8_t* buffer, std::size_t size, std::size_t offset, std::uint32_t value);

/// Text that starts at offset and ends at the first zero byte, or at the end
/// of the buffer when there is none.
std::string GetString(const std::uint8_t* buffer, std::size_t size, std::size_t offset);

/// Writes key, flags, command, length and request id into the first 8 bytes.
void PutCommandHeader(std::uint8_t* buffer, std::size_t size, std::uint8_t flags,
                      std::uint16_t command, std::uint16_t length, std::uint16_t requestId);

/// The four words of an ack header.
struct AckHeader {
    std::uint16_t status = 0;
    std::uint16_t ackCode = 0;
    std::uint16_t length = 0;
    std::uint16_t ackId = 0;

    static AckHeader Parse(const std::uint8_t* buffer, std::size_t size);
};

/// Rounds a byte count up to a multiple of 4.
constexpr std::size_t Padded(std::size_t length) {
    return (length + 3) & ~std::size_t(3);
}

/// GenTL error code for a GVCP status; unknown values give GC_ERR_ERROR.
int ToGCError(std::uint16_t status);

} // namespace gvcp
} // namespace GenTL
