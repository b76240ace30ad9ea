#include "hal/GvcpWire.h"

#include <cstring>

#include "GenTL_KESTA.h"

namespace GenTL {
namespace gvcp {

namespace {

bool Fits(std::size_t size, std::size_t offset, std::size_t width) {
    return offset <= size && width <= size - offset;
}

} // namespace

std::uint16_t GetU16(const std::uint8_t* buffer, std::size_t size, std::size_t offset) {
    if (!Fits(size, offset, 2)) {
        return 0;
    }
    return static_cast<std::uint16_t>((buffer[offset] << 8) | buffer[offset + 1]);
}

std::uint32_t GetU32(const std::uint8_t* buffer, std::size_t size, std::size_t offset) {
    if (!Fits(size, offset, 4)) {
        return 0;
    }
    return (std::uint32_t(buffer[offset]) << 24) | (std::uint32_t(buffer[offset + 1]) << 16) |
           (std::uint32_t(buffer[offset + 2]) << 8) | std::uint32_t(buffer[offset + 3]);
}

void PutU16(std::uint8_t* buffer, std::size_t size, std::size_t offset, std::uint16_t value) {
    if (!Fits(size, offset, 2)) {
        return;
    }
    buffer[offset] = static_cast<std::uint8_t>(value >> 8);
    buffer[offset + 1] = static_cast<std::uint8_t>(value);
}

void PutU32(std::uint8_t* buffer, std::size_t size, std::size_t offset, std::uint32_t value) {
    if (!Fits(size, offset, 4)) {
        return;
    }
    buffer[offset] = static_cast<std::uint8_t>(value >> 24);
    buffer[offset + 1] = static_cast<std::uint8_t>(value >> 16);
    buffer[offset + 2] = static_cast<std::uint8_t>(value >> 8);
    buffer[offset + 3] = static_cast<std::uint8_t>(value);
}

std::string GetString(const std::uint8_t* buffer, std::size_t size, std::size_t offset) {
    if (offset >= size) {
        return std::string();
    }
    const char* start = reinterpret_cast<const char*>(buffer + offset);
    const void* zero = std::memchr(start, 0, size - offset);
    const std::size_t length =
        zero ? static_cast<std::size_t>(static_cast<const char*>(zero) - start) : size - offset;
    return std::string(start, length);
}

void PutCommandHeader(std::uint8_t* buffer, std::size_t size, std::uint8_t flags,
                      std::uint16_t command, std::uint16_t length, std::uint16_t requestId) {
    if (size < kHeaderSize) {
        return;
    }
    buffer[0] = kKey;
    buffer[1] = flags;
    PutU16(buffer, size, 2, command);
    PutU16(buffer, size, 4, length);
    PutU16(buffer, size, 6, requestId);
}

AckHeader AckHeader::Parse(const std::uint8_t* buffer, std::size_t size) {
    AckHeader header;
    header.status = GetU16(buffer, size, 0);
    header.ackCode = GetU16(buffer, size, 2);
    header.length = GetU16(buffer, size, 4);
    header.ackId = GetU16(buffer, size, 6);
    return header;
}

int ToGCError(std::uint16_t status) {
    switch (status) {
    case 0x0000:
        return GC_ERR_SUCCESS;
    case 0x0100:
        return GC_ERR_CUSTOM_ID;
    case 0x8001:
        return GC_ERR_NOT_IMPLEMENTED;
    case 0x8002:
        return GC_ERR_INVALID_PARAMETER;
    case 0x8003:
        return GC_ERR_INVALID_ADDRESS;
    case 0x8004:
        return GC_ERR_ACCESS_DENIED;
    case 0x8005:
        return GC_ERR_INVALID_ADDRESS;
    case 0x8006:
        return GC_ERR_ACCESS_DENIED;
    case 0x8007:
        return GC_ERR_BUSY;
    case 0x8008:
    case 0x8009:
    case 0x800A:
        return GC_ERR_CUSTOM_ID;
    case 0x800B:
        return GC_ERR_NO_DATA;
    case 0x800C:
        return GC_ERR_NOT_AVAILABLE;
    case 0x800D:
        return GC_ERR_CUSTOM_ID;
    case 0x800E:
        return GC_ERR_INVALID_PARAMETER;
    case 0x800F:
        return GC_ERR_ERROR;
    case 0x8010:
        return GC_ERR_NOT_AVAILABLE;
    case 0x8011:
    case 0x8012:
        return GC_ERR_OUT_OF_MEMORY;
    case 0x8013:
        return GC_ERR_CUSTOM_ID;
    case 0x8014:
        return GC_ERR_NOT_AVAILABLE;
    case 0x8015:
        return GC_ERR_BUFFER_TOO_SMALL;
    case 0x8016:
        return GC_ERR_TIMEOUT;
    default:
        return GC_ERR_ERROR;
    }
}

} // namespace gvcp
} // namespace GenTL
