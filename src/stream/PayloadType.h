#pragma once
/**
 * Pixel format and payload type helpers. Cameras send GVSP payload types
 * in the leader; the consumer reads GenTL payload types from the buffer.
 * SwitchPayloadType turns one into the other on a finished buffer.
 */
#include <cstdint>

namespace GenTL {

class Buffer;

/// GVSP payload types that the leader may carry.
enum GvspPayloadType : std::uint32_t {
    GVSP_PAYLOAD_IMAGE = 1,
    GVSP_PAYLOAD_RAW_DATA = 2,
    GVSP_PAYLOAD_FILE = 3,
    GVSP_PAYLOAD_CHUNK_DATA = 4,
    GVSP_PAYLOAD_EXTENDED_CHUNK_DATA = 5,
    GVSP_PAYLOAD_JPEG = 6,
    GVSP_PAYLOAD_JPEG2000 = 7,
    GVSP_PAYLOAD_H264 = 8,
    GVSP_PAYLOAD_MULTI_ZONE_IMAGE = 9,
    GVSP_PAYLOAD_IMAGE_WITH_CHUNKS = 0x4001,
    GVSP_PAYLOAD_CHUNK_FLAG = 0x4000,     ///< "with chunks" bit of a type
    GVSP_PAYLOAD_DEVICE_SPECIFIC = 0x8000 ///< first device-specific type
};

/// GenTL payload types of this producer beyond the public PAYLOAD_TYPE_*
/// list: an image in one of the producer's special pixel formats, without
/// and with chunks.
constexpr std::uint64_t PAYLOAD_TYPE_SPECIAL_IMAGE = 1001;
constexpr std::uint64_t PAYLOAD_TYPE_SPECIAL_IMAGE_WITH_CHUNKS = 1002;

/// Bits per pixel of a pixel format code: bits 16 to 23 (and any bits
/// above 31, which a 32-bit code does not have).
unsigned long GetBitsPerPixel(unsigned long pixelFormat);

/// Whether pixelFormat is one of the producer's custom formats that are
/// delivered as PAYLOAD_TYPE_SPECIAL_IMAGE(_WITH_CHUNKS).
bool IsSpecialPixelFormat(unsigned long pixelFormat);

/// Whether a GVSP payload type, with the chunk flag masked off, is an image.
bool IsGvspImagePayload(unsigned long gvspType);

/// Whether a GenTL payload type carries image geometry (1, 1001, 1002, or a
/// type that is 1 with the chunk flag masked off).
bool IsImagePayloadType(unsigned long payloadType);

/// Whether a GenTL payload type carries chunks (1002, 4, 16385).
bool IsChunkPayloadType(unsigned long payloadType);

/**
 * Turns the GVSP payload type into the GenTL one on the buffer: sets
 * payloadType, and imagePresent and containsChunkData where the type tells.
 * Reads the buffer's pixelFormat for the special formats. A file or H.264
 * payload leaves imagePresent as it was, and 16385 (image with chunks) stays
 * 16385 unless the format is special. Always returns 0. The caller holds the
 * buffer's m_mutex.
 */
int SwitchPayloadType(unsigned long gvspType, Buffer* buffer);

} // namespace GenTL
