#include "api/PortableUtil.h"

#include <cstdio>
#include <cstring>

namespace GenTL {

int memcpy_portable(void* dst, unsigned long /*dstSize*/, const void* src, unsigned long count) {
    std::memcpy(dst, src, count);
    return 0;
}

int itoa_portable(int value, char* dst, unsigned long size, int /*radix*/) {
    return std::snprintf(dst, size, "%d", value);
}

unsigned long strnlen_portable(const char* s, unsigned long max) {
    return ::strnlen(s, max);
}

} // namespace GenTL
