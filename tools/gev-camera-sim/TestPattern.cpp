#include "TestPattern.h"

#include <cstring>

namespace gevsim {

TestPattern::TestPattern(Kind kind, uint32_t width, uint32_t bytesPerPixel)
    : m_kind(kind), m_width(width ? width : 1), m_bytesPerPixel(bytesPerPixel ? bytesPerPixel : 1) {
}

uint8_t TestPattern::stampByte(uint64_t blockId, size_t offset) {
    if (offset < 8)
        return static_cast<uint8_t>(blockId >> (56 - 8 * offset));
    const uint64_t i = offset;
    return static_cast<uint8_t>(i * 7 + (i >> 8) * 3 + (i >> 16) + blockId * 13);
}

void TestPattern::fill(uint64_t blockId, size_t offset, uint8_t* dst, size_t length) const {
    switch (m_kind) {
    case BlockStamp:
        for (size_t k = 0; k < length; ++k)
            dst[k] = stampByte(blockId, offset + k);
        break;
    case GreyHorizontalRamp:
        for (size_t k = 0; k < length; ++k) {
            const size_t pixel = (offset + k) / m_bytesPerPixel;
            dst[k] = static_cast<uint8_t>(pixel % m_width);
        }
        break;
    case Off:
    default:
        std::memset(dst, 0, length);
        break;
    }
}

} // namespace gevsim
