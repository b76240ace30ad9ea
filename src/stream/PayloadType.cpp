#include "stream/PayloadType.h"

#include "GenTL_KESTA.h"
#include "stream/Buffer.h"

namespace GenTL {

unsigned long GetBitsPerPixel(unsigned long pixelFormat) {
    return (pixelFormat & 0xFFFFFFFF00FF0000UL) >> 16;
}

bool IsSpecialPixelFormat(unsigned long pixelFormat) {
    return (pixelFormat >= 0x81080B00UL && pixelFormat <= 0x81080B03UL) ||
           (pixelFormat >= 0x82180A01UL && pixelFormat <= 0x82180A04UL) ||
           pixelFormat == 0x81080A00UL;
}

bool IsGvspImagePayload(unsigned long gvspType) {
    return (gvspType & ~static_cast<unsigned long>(GVSP_PAYLOAD_CHUNK_FLAG)) == GVSP_PAYLOAD_IMAGE;
}

bool IsImagePayloadType(unsigned long payloadType) {
    return payloadType == PAYLOAD_TYPE_SPECIAL_IMAGE ||
           payloadType == PAYLOAD_TYPE_SPECIAL_IMAGE_WITH_CHUNKS || IsGvspImagePayload(payloadType);
}

bool IsChunkPayloadType(unsigned long payloadType) {
    return payloadType == PAYLOAD_TYPE_SPECIAL_IMAGE_WITH_CHUNKS ||
           payloadType == PAYLOAD_TYPE_CHUNK_DATA || payloadType == GVSP_PAYLOAD_IMAGE_WITH_CHUNKS;
}

int SwitchPayloadType(unsigned long gvspType, Buffer* buffer) {
    if (buffer == nullptr) {
        return 0;
    }
    const bool special = IsSpecialPixelFormat(buffer->pixelFormat);
    switch (gvspType) {
    case GVSP_PAYLOAD_IMAGE:
        buffer->payloadType =
            special ? PAYLOAD_TYPE_SPECIAL_IMAGE : std::uint64_t{PAYLOAD_TYPE_IMAGE};
        buffer->imagePresent = true;
        break;
    case GVSP_PAYLOAD_RAW_DATA:
        buffer->payloadType = PAYLOAD_TYPE_RAW_DATA;
        buffer->imagePresent = true;
        break;
    case GVSP_PAYLOAD_FILE:
        buffer->payloadType = PAYLOAD_TYPE_FILE;
        break;
    case GVSP_PAYLOAD_CHUNK_DATA:
        buffer->payloadType = PAYLOAD_TYPE_CHUNK_DATA;
        buffer->imagePresent = true;
        buffer->containsChunkData = true;
        break;
    case GVSP_PAYLOAD_JPEG:
        buffer->payloadType = PAYLOAD_TYPE_JPEG;
        buffer->imagePresent = true;
        break;
    case GVSP_PAYLOAD_JPEG2000:
        buffer->payloadType = PAYLOAD_TYPE_JPEG2000;
        buffer->imagePresent = true;
        break;
    case GVSP_PAYLOAD_H264:
        buffer->payloadType = PAYLOAD_TYPE_H264;
        break;
    case GVSP_PAYLOAD_MULTI_ZONE_IMAGE:
        buffer->payloadType = PAYLOAD_TYPE_MULTI_PART;
        buffer->imagePresent = true;
        break;
    case GVSP_PAYLOAD_IMAGE_WITH_CHUNKS:
        buffer->payloadType = special ? PAYLOAD_TYPE_SPECIAL_IMAGE_WITH_CHUNKS
                                      : std::uint64_t{GVSP_PAYLOAD_IMAGE_WITH_CHUNKS};
        buffer->imagePresent = true;
        buffer->containsChunkData = true;
        break;
    default:
        // Unknown standard types read as unknown; the device-specific range
        // keeps a type of its own.
        buffer->payloadType = gvspType >= GVSP_PAYLOAD_DEVICE_SPECIFIC
                                  ? PAYLOAD_TYPE_DEVICE_SPECIFIC
                                  : PAYLOAD_TYPE_UNKNOWN;
        buffer->imagePresent = false;
        break;
    }
    return 0;
}

} // namespace GenTL
