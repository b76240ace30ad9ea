#include "stream/Buffer.h"

#include <cstring>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/GenTLHandle.h"

namespace GenTL {

Buffer::Buffer() = default;

Buffer::~Buffer() {
    DestroyTimers();
    FreePacketBitmap();
}

Buffer& Buffer::operator=(const Buffer& other) {
    if (this == &other) {
        return *this;
    }
    if (other.userOwned || other.base == nullptr) {
        base = other.base;
    } else {
        base = new std::uint8_t[other.size];
        std::memcpy(base, other.base, other.size);
    }
    size = other.size;
    userData = other.userData;
    isNewData = other.isNewData;
    isQueued = other.isQueued;
    isAcquiring = other.isAcquiring;
    isIncomplete = other.isIncomplete;
    tlType = other.tlType;
    sizeFilled = other.sizeFilled;
    width = other.width;
    height = other.height;
    xOffset = other.xOffset;
    yOffset = other.yOffset;
    xPadding = other.xPadding;
    yPadding = other.yPadding;
    frameId = other.frameId;
    imagePresent = other.imagePresent;
    imageOffset = other.imageOffset;
    payloadType = other.payloadType;
    pixelFormat = other.pixelFormat;
    pixelFormatNamespace = other.pixelFormatNamespace;
    deliveredImageHeight = other.deliveredImageHeight;
    deliveredChunkPayloadSize = other.deliveredChunkPayloadSize;
    chunkLayoutId = other.chunkLayoutId;
    filename = other.filename;
    pixelEndianness = other.pixelEndianness;
    dataSize = other.dataSize;
    timestamp = other.timestamp;
    dataLargerThanBuffer = other.dataLargerThanBuffer;
    containsChunkData = other.containsChunkData;
    userOwned = other.userOwned;
    index = other.index;
    state = other.state.load();
    receivedBytes = other.receivedBytes;
    nextPacketDone = other.nextPacketDone;
    bufferExpired = other.bufferExpired;
    bufferExpiryDone = other.bufferExpiryDone;
    packetSeen = other.packetSeen;
    nextExpectedPacket = other.nextExpectedPacket;
    resendCount = other.resendCount;
    trailerSeen = other.trailerSeen;
    leaderSeen = other.leaderSeen;
    trailerSizeY = other.trailerSizeY;
    return *this;
}

int Buffer::ReadPort(unsigned long, void*, unsigned long*) {
    return ReportNotImplemented();
}
int Buffer::WritePort(unsigned long, const void*, unsigned long*) {
    return ReportNotImplemented();
}
int Buffer::GetPortURL(char*, unsigned long*) const {
    return ReportNotImplemented();
}
int Buffer::GetPortInfo(int, int*, void*, unsigned long*) {
    return ReportNotImplemented();
}
int Buffer::RegisterEvent(int, void**) {
    return ReportNotImplemented();
}
int Buffer::UnregisterEvent(int) {
    return ReportNotImplemented();
}
int Buffer::GetNumPortURLs(unsigned int*) {
    return ReportNotImplemented();
}
int Buffer::GetPortURLInfo(unsigned int, int, int*, void*, unsigned long*) {
    return ReportNotImplemented();
}
int Buffer::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) {
    return ReportNotImplemented();
}
int Buffer::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) {
    return ReportNotImplemented();
}

void Buffer::AllocatePacketBitmap(std::uint32_t bytes) {
    FreePacketBitmap();
    if (bytes == 0) {
        return;
    }
    packetBitmap = new std::uint8_t[bytes]();
    packetBitmapSize = bytes;
}

void Buffer::FreePacketBitmap() {
    delete[] packetBitmap;
    packetBitmap = nullptr;
    packetBitmapSize = 0;
}

bool Buffer::IsPacketSeen(std::uint32_t packetId) const {
    const std::uint32_t byte = packetId / 8;
    if (packetBitmap == nullptr || byte >= packetBitmapSize) {
        return false;
    }
    return (packetBitmap[byte] & (0x80U >> (packetId % 8))) != 0;
}

void Buffer::MarkPacketSeen(std::uint32_t packetId) {
    const std::uint32_t byte = packetId / 8;
    if (packetBitmap == nullptr || byte >= packetBitmapSize) {
        return;
    }
    packetBitmap[byte] = static_cast<std::uint8_t>(packetBitmap[byte] | (0x80U >> (packetId % 8)));
}

void Buffer::CreateTimers(boost::asio::io_service& service) {
    DestroyTimers();
    nextPacketTimer = new boost::asio::deadline_timer(service);
    bufferExpiryTimer = new boost::asio::deadline_timer(service);
}

void Buffer::DestroyTimers() {
    delete nextPacketTimer;
    nextPacketTimer = nullptr;
    delete bufferExpiryTimer;
    bufferExpiryTimer = nullptr;
}

Buffer* CastHandleToBufferPtr(void* handle) {
    if (handle == nullptr || CheckHandle(handle) != GC_ERR_SUCCESS) {
        return nullptr;
    }
    // One cast from the module: this runs per packet and active block.
    return dynamic_cast<Buffer*>(static_cast<GenTLHandle*>(handle)->module);
}

} // namespace GenTL
