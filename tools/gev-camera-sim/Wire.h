// Big-endian field access for GVCP and GVSP buffers. Every accessor checks
// the bounds of the buffer it is given, so a short datagram reads as zeros
// instead of past its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace gevsim {

inline uint16_t get16(const uint8_t* p, size_t size, size_t off) {
    if (off + 2 > size)
        return 0;
    return static_cast<uint16_t>(p[off] << 8 | p[off + 1]);
}

inline uint32_t get32(const uint8_t* p, size_t size, size_t off) {
    if (off + 4 > size)
        return 0;
    return static_cast<uint32_t>(p[off]) << 24 | static_cast<uint32_t>(p[off + 1]) << 16 |
           static_cast<uint32_t>(p[off + 2]) << 8 | p[off + 3];
}

inline uint64_t get64(const uint8_t* p, size_t size, size_t off) {
    return static_cast<uint64_t>(get32(p, size, off)) << 32 | get32(p, size, off + 4);
}

inline void put16(std::vector<uint8_t>& b, size_t off, uint16_t v) {
    if (b.size() < off + 2)
        b.resize(off + 2);
    b[off] = static_cast<uint8_t>(v >> 8);
    b[off + 1] = static_cast<uint8_t>(v);
}

inline void put32(std::vector<uint8_t>& b, size_t off, uint32_t v) {
    if (b.size() < off + 4)
        b.resize(off + 4);
    for (int i = 0; i < 4; ++i)
        b[off + i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}

inline void put64(std::vector<uint8_t>& b, size_t off, uint64_t v) {
    put32(b, off, static_cast<uint32_t>(v >> 32));
    put32(b, off + 4, static_cast<uint32_t>(v));
}

} // namespace gevsim
