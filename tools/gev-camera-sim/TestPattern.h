// The image content. The default pattern stamps the block id into the first
// eight bytes and derives every other byte from its offset and the block id,
// so a receiver can check each byte of a block, resent or not, on its own.
#pragma once

#include <cstddef>
#include <cstdint>

namespace gevsim {

class TestPattern {
public:
    enum Kind : uint32_t { BlockStamp = 0, GreyHorizontalRamp = 1, Off = 2 };

    TestPattern(Kind kind, uint32_t width, uint32_t bytesPerPixel);

    // Writes bytes [offset, offset + length) of block blockId.
    void fill(uint64_t blockId, size_t offset, uint8_t* dst, size_t length) const;

    // The BlockStamp byte at an offset, for receivers that verify.
    static uint8_t stampByte(uint64_t blockId, size_t offset);

private:
    Kind m_kind;
    uint32_t m_width;
    uint32_t m_bytesPerPixel;
};

} // namespace gevsim
