#pragma once
/**
 * String and memory helpers with one signature on every platform. The
 * callers check sizes themselves.
 */
namespace GenTL {

/// Copies count bytes to dst and returns 0; dstSize is not consulted.
int memcpy_portable(void* dst, unsigned long dstSize, const void* src, unsigned long count);

/// Writes value in decimal to dst (radix is ignored) and returns the
/// number of characters of the text. At most size bytes are written.
int itoa_portable(int value, char* dst, unsigned long size, int radix);

/// Length of s, at most max.
unsigned long strnlen_portable(const char* s, unsigned long max);

} // namespace GenTL
