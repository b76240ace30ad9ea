#include "stream/BufferUtility.h"

#include <cstring>

#include "GenTL_KESTA.h"
#include "api/GenTLHandle.h"
#include "stream/Buffer.h"

namespace GenTL {

namespace {

const Buffer* ToBuffer(const IBuffer* b) {
    return dynamic_cast<const Buffer*>(b);
}
const Buffer* ToBuffer(const IBaseModule* b) {
    return dynamic_cast<const Buffer*>(b);
}
const Buffer* ToBuffer(const GenTLHandle* h) {
    if (h == nullptr || CheckHandle(const_cast<GenTLHandle*>(h)) != GC_ERR_SUCCESS) {
        return nullptr;
    }
    return dynamic_cast<const Buffer*>(h->module);
}

// Forwards a comparison of two buffer forms to the reference form.
template <typename Form, typename Compare>
bool Forward(const Form* a, const Form* b, Compare compare) {
    const Buffer* left = ToBuffer(a);
    const Buffer* right = ToBuffer(b);
    return left != nullptr && right != nullptr && compare(*left, *right);
}

template <typename Compare> bool Forward(const Buffer* a, const Buffer* b, Compare compare) {
    return a != nullptr && b != nullptr && compare(*a, *b);
}

} // namespace

std::string BufferUtility::getStateAsStr(int state) {
    switch (state) {
    case BS_ANNOUNCE:
        return "BS_ANNOUNCE";
    case BS_INPUT:
        return "BS_INPUT";
    case BS_OUTPUT:
        return "BS_OUTPUT";
    case BS_USER:
        return "BS_USER";
    case BS_FILL:
        return "BS_FILL";
    case BS_UNKNOWN:
        return "BS_UNKNOWN";
    default:
        return "STATUS IS IN ENUM";
    }
}

bool BufferUtility::areEqualMemebers(const Buffer& a, const Buffer& b) {
    return a.size == b.size && a.userData == b.userData && a.isNewData == b.isNewData &&
           a.isQueued == b.isQueued && a.isAcquiring == b.isAcquiring &&
           a.isIncomplete == b.isIncomplete && a.tlType == b.tlType &&
           a.sizeFilled == b.sizeFilled && a.width == b.width && a.height == b.height &&
           a.xOffset == b.xOffset && a.yOffset == b.yOffset && a.xPadding == b.xPadding &&
           a.yPadding == b.yPadding && a.frameId == b.frameId && a.imagePresent == b.imagePresent &&
           a.imageOffset == b.imageOffset && a.payloadType == b.payloadType &&
           a.pixelFormat == b.pixelFormat && a.pixelFormatNamespace == b.pixelFormatNamespace &&
           a.deliveredImageHeight == b.deliveredImageHeight &&
           a.deliveredChunkPayloadSize == b.deliveredChunkPayloadSize &&
           a.chunkLayoutId == b.chunkLayoutId && a.filename == b.filename &&
           a.pixelEndianness == b.pixelEndianness && a.dataSize == b.dataSize &&
           a.timestamp == b.timestamp && a.dataLargerThanBuffer == b.dataLargerThanBuffer &&
           a.containsChunkData == b.containsChunkData && a.userOwned == b.userOwned &&
           a.index == b.index && a.state.load() == b.state.load() &&
           a.receivedBytes == b.receivedBytes && a.nextPacketTimer == b.nextPacketTimer &&
           a.nextPacketDone == b.nextPacketDone && a.nextExpectedPacket == b.nextExpectedPacket &&
           a.resendCount == b.resendCount && a.trailerSeen == b.trailerSeen &&
           a.leaderSeen == b.leaderSeen && a.trailerSizeY == b.trailerSizeY &&
           a.missingPackets == b.missingPackets;
}

bool BufferUtility::areEqualDataArray(const Buffer& a, const Buffer& b) {
    if (a.size != b.size || a.sizeFilled != b.sizeFilled || a.dataSize != b.sizeFilled ||
        a.deliveredChunkPayloadSize != b.deliveredChunkPayloadSize) {
        return false;
    }
    if (a.base == b.base || a.size == 0) {
        return true;
    }
    if (a.base == nullptr || b.base == nullptr) {
        return false;
    }
    return std::memcmp(a.base, b.base, a.size) == 0;
}

bool BufferUtility::areEqual(const Buffer& a, const Buffer& b) {
    return areEqualMemebers(a, b) && areEqualDataArray(a, b);
}

#define KESTA_FORWARD_FORMS(name)                                                                  \
    bool BufferUtility::name(const Buffer* a, const Buffer* b) {                                   \
        return Forward(a, b, [](const Buffer& l, const Buffer& r) { return name(l, r); });         \
    }                                                                                              \
    bool BufferUtility::name(const IBuffer* a, const IBuffer* b) {                                 \
        return Forward(a, b, [](const Buffer& l, const Buffer& r) { return name(l, r); });         \
    }                                                                                              \
    bool BufferUtility::name(const IBaseModule* a, const IBaseModule* b) {                         \
        return Forward(a, b, [](const Buffer& l, const Buffer& r) { return name(l, r); });         \
    }                                                                                              \
    bool BufferUtility::name(const GenTLHandle* a, const GenTLHandle* b) {                         \
        return Forward(a, b, [](const Buffer& l, const Buffer& r) { return name(l, r); });         \
    }

KESTA_FORWARD_FORMS(areEqualMemebers)
KESTA_FORWARD_FORMS(areEqualDataArray)
KESTA_FORWARD_FORMS(areEqual)

#undef KESTA_FORWARD_FORMS

} // namespace GenTL
