#include "stream/BlockId.h"

#include <cstdint>

namespace GenTL {

namespace {

constexpr unsigned long kMaxShortId = 0xFFFF;
constexpr unsigned long kHalfShortSpace = 32767;
constexpr std::uint64_t kHalfLongSpace = 0x7FFFFFFFFFFFFFFFULL;

} // namespace

int CompareBlockIds(unsigned long received, unsigned long reference, bool extended) {
    if (received == reference) {
        return BLOCK_ID_SAME;
    }
    if (extended) {
        const std::uint64_t behindBy =
            static_cast<std::uint64_t>(reference) - static_cast<std::uint64_t>(received);
        return behindBy < kHalfLongSpace ? BLOCK_ID_BEHIND : BLOCK_ID_AHEAD;
    }
    // Unsigned arithmetic: ids outside the 16-bit range wrap like the
    // counter itself and never trap.
    const unsigned long behindBy =
        received <= reference ? reference - received : reference + kMaxShortId - received;
    return behindBy < kHalfShortSpace ? BLOCK_ID_BEHIND : BLOCK_ID_AHEAD;
}

unsigned long IncrementBlockId(unsigned long id, bool extended) {
    if (extended) {
        return id < ~0UL ? id + 1 : 1;
    }
    return id < kMaxShortId ? id + 1 : 1;
}

unsigned long DiffBlockId(unsigned long newer, unsigned long older, bool extended) {
    if (newer >= older) {
        return newer - older;
    }
    return extended ? newer - older - 1 : newer - older + kMaxShortId;
}

} // namespace GenTL
