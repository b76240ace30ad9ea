#pragma once
/**
 * Block ids of a stream. A stream counts its blocks in one of two id
 * spaces, told by `extended`: 16-bit ids (1 to 65535) or 64-bit ids (1 to
 * 2^64 - 1). Id 0 is never valid and is skipped when the counter wraps.
 * All three functions are pure and cannot fail.
 */

namespace GenTL {

/// Result of CompareBlockIds.
enum BlockIdOrder : int {
    BLOCK_ID_SAME = 0,   ///< the ids are equal
    BLOCK_ID_AHEAD = 1,  ///< received lies ahead of reference (a newer block)
    BLOCK_ID_BEHIND = 2, ///< received lies behind reference (a late block)
};

/**
 * Where `received` lies relative to `reference`: 0 equal, 1 ahead, 2 behind.
 * An id counts as behind when it is within half the id space before the
 * reference, and as ahead otherwise, so that a wrap of the counter reads as
 * progress.
 */
int CompareBlockIds(unsigned long received, unsigned long reference, bool extended);

/// The id that follows `id`: 65535 (16-bit) or all ones (64-bit) wrap to 1.
/// A 16-bit id above 65535 also gives 1.
unsigned long IncrementBlockId(unsigned long id, bool extended);

/**
 * How many ids lie from `older` to `newer`, counting across a wrap of the
 * counter without counting the invalid id 0: DiffBlockId(1, 65535, false)
 * is 1.
 */
unsigned long DiffBlockId(unsigned long newer, unsigned long older, bool extended);

} // namespace GenTL
