#include "stream/GvspParser.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstring>
#include <string>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/GLogger.h"
#include "api/localization.h"
#include "stream/Buffer.h"
#include "stream/PayloadType.h"
#include "stream/StreamInfo.h"

namespace GenTL {

namespace {

std::uint16_t Read16(const std::uint8_t* p) {
    return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}

std::uint32_t Read32(const std::uint8_t* p) {
    return (static_cast<std::uint32_t>(p[0]) << 24) | (static_cast<std::uint32_t>(p[1]) << 16) |
           (static_cast<std::uint32_t>(p[2]) << 8) | static_cast<std::uint32_t>(p[3]);
}

std::uint64_t Read64(const std::uint8_t* p) {
    return (static_cast<std::uint64_t>(Read32(p)) << 32) | Read32(p + 4);
}

const std::uint8_t* Bytes(const char* packet) {
    return reinterpret_cast<const std::uint8_t*>(packet);
}

std::uint64_t HostClockNs() {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                          std::chrono::system_clock::now().time_since_epoch())
                                          .count());
}

// missingPackets counts down per accepted packet; a flood of packets must
// not run it past its lowest value.
void TakeOneMissing(Buffer* buffer) {
    if (buffer->missingPackets > INT_MIN) {
        --buffer->missingPackets;
    }
}

int Refuse(int code, const std::string& text) {
    GLogger::Error(text.c_str());
    return ReportError(code, text);
}

// A packet that ends before the fields its step reads.
int RefuseShort(const char* step, unsigned long received, unsigned long needed) {
    return Refuse(GC_ERR_INVALID_BUFFER,
                  loc::al("{0} packet too short: {1} bytes, {2} needed", step,
                          std::to_string(received).c_str(), std::to_string(needed).c_str()));
}

// a * b * c into `product`; false when the result does not fit in 64 bits.
bool MultiplyFits(std::uint64_t a, std::uint64_t b, std::uint64_t c, std::uint64_t& product) {
    constexpr std::uint64_t kMax = ~std::uint64_t{0};
    if ((b != 0 && a > kMax / b) || (c != 0 && a * b > kMax / c)) {
        return false;
    }
    product = a * b * c;
    return true;
}

// A geometry whose bits overflow would wrap to a size that has nothing to do
// with the block, and a block of that size could pass for complete.
int RefuseGeometry(const char* step, std::uint64_t width, std::uint64_t height,
                   std::uint64_t bitsPerPixel) {
    return Refuse(GC_ERR_INVALID_PARAMETER,
                  loc::al("{0} image size {1} x {2} x {3} bits does not fit in 64 bits", step,
                          std::to_string(width).c_str(), std::to_string(height).c_str(),
                          std::to_string(bitsPerPixel).c_str()));
}

// Leader offsets from where the data begins.
constexpr unsigned long kLeaderPayloadTypeOffset = 2;
constexpr unsigned long kLeaderTimestampOffset = 4;
constexpr unsigned long kLeaderChunkEnd = kLeaderTimestampOffset + 8;
constexpr unsigned long kLeaderImageEnd = kLeaderTimestampOffset + sizeof(ImageLeaderSpecificData);

// Trailer offsets from where the data begins.
constexpr unsigned long kTrailerSizeYOffset = 4;
constexpr unsigned long kTrailerChunkLengthOffset = 8;
constexpr unsigned long kTrailerLayoutIdOffset = 12;

} // namespace

int GetPktHeaderInfo(const char* packet, int size, int received, ParsedGvspHeader& header) {
    if (packet == nullptr || size == 0 || received == 0) {
        GLogger::Error("anonymous::GetPktHeaderInfo pPacket == nullptr");
        return ReportError(GC_ERR_INVALID_BUFFER,
                           "anonymous::GetPktHeaderInfo pPacket == nullptr !");
    }
    const long readable = std::min<long>(size, received);
    if (readable < static_cast<long>(kGvspHeaderSize)) {
        return RefuseShort("anonymous::GetPktHeaderInfo", readable < 0 ? 0 : readable,
                           kGvspHeaderSize);
    }
    const std::uint8_t* p = Bytes(packet);
    const std::uint32_t word = Read32(p + 4);
    const bool extended = (word & 0x80000000U) != 0;
    if (extended && readable < static_cast<long>(kGvspExtendedHeaderSize)) {
        return RefuseShort("anonymous::GetPktHeaderInfo", readable, kGvspExtendedHeaderSize);
    }
    header.status = Read16(p);
    header.rawBlockId = Read16(p + 2);
    header.extendedId = extended;
    header.packetFormat = static_cast<std::uint8_t>((word >> 24) & 0x0F);
    if (extended) {
        header.blockId = Read64(p + 8);
        header.packetId = Read32(p + 16);
    } else {
        header.blockId = header.rawBlockId;
        header.packetId = word & 0x00FFFFFFU;
    }
    return GC_ERR_SUCCESS;
}

int ParseImageLeaderData(const ImageLeaderSpecificData* data, Buffer* buffer) {
    const std::uint32_t pixelFormat = Read32(data->pixelFormat);
    const std::uint32_t width = Read32(data->sizeX);
    const std::uint32_t height = Read32(data->sizeY);
    std::uint64_t bits = 0;
    if (!MultiplyFits(width, height, GetBitsPerPixel(pixelFormat), bits)) {
        return RefuseGeometry("anonymous::ParseImageLeaderData", width, height,
                              GetBitsPerPixel(pixelFormat));
    }
    buffer->timestamp = Read64(data->timestamp);
    buffer->pixelFormat = pixelFormat;
    buffer->width = width;
    buffer->height = height;
    buffer->xOffset = Read32(data->offsetX);
    buffer->yOffset = Read32(data->offsetY);
    buffer->xPadding = Read16(data->paddingX);
    buffer->yPadding = Read16(data->paddingY);
    buffer->deliveredImageHeight = buffer->height;
    buffer->dataSize = bits / 8;
    return GC_ERR_SUCCESS;
}

int ParseGVSPLeader(StreamInfo& info, const char* packet, unsigned long received, Buffer* buffer,
                    const ParsedGvspHeader& header) {
    const unsigned long data = header.DataOffset();
    if (received < data + kLeaderPayloadTypeOffset + 2) {
        return RefuseShort("anonymous::ParseGVSPLeader", received,
                           data + kLeaderPayloadTypeOffset + 2);
    }
    const std::uint8_t* p = Bytes(packet) + data;
    const std::uint16_t type = Read16(p + kLeaderPayloadTypeOffset);
    if (IsGvspImagePayload(type)) {
        if (received < data + kLeaderImageEnd) {
            return RefuseShort("anonymous::ParseGVSPLeader", received, data + kLeaderImageEnd);
        }
        ImageLeaderSpecificData fields;
        std::memcpy(&fields, p + kLeaderTimestampOffset, sizeof(fields));
        if (const int rc = ParseImageLeaderData(&fields, buffer)) {
            return rc;
        }
    } else if (type == GVSP_PAYLOAD_CHUNK_DATA) {
        if (received < data + kLeaderChunkEnd) {
            return RefuseShort("anonymous::ParseGVSPLeader", received, data + kLeaderChunkEnd);
        }
        buffer->timestamp = Read64(p + kLeaderTimestampOffset);
    } else {
        const char* text = header.extendedId
                               ? "anonymous::ParseGVSPLeaderResend payload type not supported: {0}"
                               : "anonymous::ParseLeader payload type not supported: {0}";
        return Refuse(GC_ERR_NOT_IMPLEMENTED, loc::al(text, std::to_string(type).c_str()));
    }
    // A camera without a clock still gives ordered buffers.
    if (buffer->timestamp == 0) {
        buffer->timestamp = HostClockNs();
    }
    info.payloadType = type;
    buffer->leaderSeen = true;
    TakeOneMissing(buffer);
    return GC_ERR_SUCCESS;
}

int ParseGVSPTrailer(StreamInfo& info, const char* packet, unsigned long received, Buffer* buffer,
                     bool& blockComplete, const ParsedGvspHeader& header) {
    const unsigned long data = header.DataOffset();
    const std::uint16_t type = info.payloadType;
    unsigned long needed = 0;
    if (type == GVSP_PAYLOAD_IMAGE || type == GVSP_PAYLOAD_CHUNK_DATA) {
        needed = data + kTrailerChunkLengthOffset;
    } else if (type == GVSP_PAYLOAD_IMAGE_WITH_CHUNKS) {
        needed = data + kTrailerLayoutIdOffset + 4;
    } else {
        return Refuse(GC_ERR_NOT_IMPLEMENTED,
                      loc::al("ParseGVSPTrailer():  Payload type [{0}] not supported",
                              std::to_string(type).c_str()));
    }
    if (received < needed) {
        return RefuseShort("ParseGVSPTrailer():", received, needed);
    }
    const std::uint8_t* p = Bytes(packet) + data;
    auto checkHeight = [buffer](std::uint64_t sizeY) {
        if (sizeY != buffer->height) {
            GLogger::Error(
                loc::al("ParseGVSPTrailer():  Packet size_y [{0}] != Buffer height [{1}]",
                        std::to_string(sizeY).c_str(), std::to_string(buffer->height).c_str())
                    .c_str());
        }
    };
    if (type == GVSP_PAYLOAD_IMAGE) {
        const std::uint32_t sizeY = Read32(p + kTrailerSizeYOffset);
        const std::uint64_t bitsPerPixel = GetBitsPerPixel(buffer->pixelFormat);
        std::uint64_t bits = 0;
        if (!MultiplyFits(sizeY, buffer->width, bitsPerPixel, bits)) {
            return RefuseGeometry("ParseGVSPTrailer():", buffer->width, sizeY, bitsPerPixel);
        }
        buffer->trailerSizeY = sizeY;
        checkHeight(sizeY);
        if (sizeY != 0) {
            buffer->dataSize = bits / 8;
        }
    } else if (type == GVSP_PAYLOAD_IMAGE_WITH_CHUNKS) {
        const std::uint32_t sizeY = Read32(p + kTrailerSizeYOffset);
        buffer->trailerSizeY = sizeY;
        buffer->deliveredChunkPayloadSize = Read32(p + kTrailerChunkLengthOffset);
        buffer->dataSize = buffer->deliveredChunkPayloadSize;
        buffer->chunkLayoutId = Read32(p + kTrailerLayoutIdOffset);
        buffer->containsChunkData = true;
        checkHeight(sizeY);
    } else {
        // Chunk data: the length stands where an image has size_y.
        buffer->deliveredChunkPayloadSize = Read32(p + kTrailerSizeYOffset);
        buffer->dataSize = buffer->deliveredChunkPayloadSize;
        buffer->containsChunkData = true;
    }
    // Without resend nothing more is awaited after the trailer.
    if (!info.packetResendEnable) {
        blockComplete = true;
    }
    buffer->trailerSeen = true;
    TakeOneMissing(buffer);
    return GC_ERR_SUCCESS;
}

int ParseGVSPPayload(StreamInfo& info, const char* packet, unsigned long received, Buffer* buffer,
                     const ParsedGvspHeader& header) {
    if (!buffer->dataLargerThanBuffer) {
        const std::uint16_t type = info.payloadType;
        if (!IsGvspImagePayload(type) && type != GVSP_PAYLOAD_CHUNK_DATA) {
            return Refuse(GC_ERR_NOT_IMPLEMENTED,
                          loc::al("ParseGVSPPayload(): Payload type [{0}] not supported",
                                  std::to_string(type).c_str()));
        }
        const std::int64_t data = header.DataOffset();
        const std::int64_t chunk =
            static_cast<std::int64_t>(info.packetSize) - kIpUdpHeaderSize - data;
        // The place is worked out in 64 bits: cut to 32, an id far beyond the
        // block would land on another packet's place.
        const std::int64_t offset = chunk * (std::int64_t{header.packetId} - 1);
        if (header.packetId == 0 || offset < 0 ||
            static_cast<std::uint64_t>(offset) > buffer->dataSize) {
            return Refuse(GC_ERR_INVALID_PARAMETER,
                          loc::al("ParseGVSPPayload(): Destination offset invalid for Bid:Pid "
                                  "[{0}]:[{1}]",
                                  std::to_string(header.blockId).c_str(),
                                  std::to_string(header.packetId).c_str()));
        }
        // More data than one packet's share would run into the next packet's
        // place: such a packet is not what the camera was set to send.
        const std::int64_t carried = static_cast<std::int64_t>(received) - data;
        if (carried > chunk) {
            return Refuse(GC_ERR_INVALID_PARAMETER,
                          loc::al("ParseGVSPPayload(): Packet longer than its share for Bid:Pid "
                                  "[{0}]:[{1}]",
                                  std::to_string(header.blockId).c_str(),
                                  std::to_string(header.packetId).c_str()));
        }
        const std::uint64_t place = static_cast<std::uint64_t>(offset);
        std::uint64_t length = received > static_cast<std::uint64_t>(data) ? received - data : 0;
        const std::uint64_t room = buffer->size > place ? buffer->size - place : 0;
        if (length > room) {
            length = room;
            buffer->dataLargerThanBuffer = true;
        }
        if (length > 0 && buffer->base != nullptr) {
            std::memcpy(buffer->base + place, packet + data, length);
        }
        buffer->receivedBytes += static_cast<std::uint32_t>(length);
        TakeOneMissing(buffer);
    }
    buffer->MarkPacketSeen(header.packetId);
    ++buffer->receivedPackets;
    const std::uint32_t next = header.packetId + 1;
    if (buffer->nextExpectedPacket < next) {
        buffer->nextExpectedPacket = next;
    }
    return GC_ERR_SUCCESS;
}

bool PacketIdFitsFormat(const ParsedGvspHeader& header) {
    switch (header.packetFormat) {
    case GVSP_PACKET_LEADER:
        return header.packetId == 0;
    case GVSP_PACKET_TRAILER:
    case GVSP_PACKET_PAYLOAD:
        return header.packetId != 0;
    default:
        return false;
    }
}

std::uint64_t BlockDataLimit(const Buffer& buffer, std::uint16_t payloadType) {
    return buffer.leaderSeen && payloadType == GVSP_PAYLOAD_IMAGE ? buffer.dataSize : buffer.size;
}

bool DataPacketFitsBlock(std::uint32_t packetId, std::uint64_t dataBytes, std::uint64_t chunk,
                         const Buffer& buffer, std::uint16_t payloadType) {
    // Ids are at most 32 bits and a share at most 16: the place fits in 64.
    return packetId != 0 && dataBytes <= chunk &&
           (packetId - 1) * chunk < BlockDataLimit(buffer, payloadType);
}

} // namespace GenTL
