#pragma once
/**
 * BufferUtility: comparisons of buffers, for tests and diagnostics; nothing
 * in the stream path calls them. Each comparison takes buffers in five
 * forms: references, pointers, and the IBuffer, IBaseModule and handle a
 * buffer is reached by; a form that does not lead to a Buffer compares
 * false.
 */
#include <string>

namespace GenTL {

class Buffer;
class IBaseModule;
class IBuffer;
struct GenTLHandle;

class BufferUtility {
public:
    /// "BS_ANNOUNCE" ... "BS_FILL", "BS_UNKNOWN" for 0 to 5, else
    /// "STATUS IS IN ENUM".
    static std::string getStateAsStr(int state);

    /// Whether the metadata and bookkeeping agree (all but base, the
    /// mutexes, the bitmap and the resend requests).
    static bool areEqualMemebers(const Buffer& a, const Buffer& b);
    static bool areEqualMemebers(const Buffer* a, const Buffer* b);
    static bool areEqualMemebers(const IBuffer* a, const IBuffer* b);
    static bool areEqualMemebers(const IBaseModule* a, const IBaseModule* b);
    static bool areEqualMemebers(const GenTLHandle* a, const GenTLHandle* b);

    /// Whether size and sizeFilled agree, a's dataSize equals b's sizeFilled,
    /// the delivered chunk sizes agree and the `size` bytes of memory are
    /// equal (the same memory, or size 0, counts as equal unread).
    static bool areEqualDataArray(const Buffer& a, const Buffer& b);
    static bool areEqualDataArray(const Buffer* a, const Buffer* b);
    static bool areEqualDataArray(const IBuffer* a, const IBuffer* b);
    static bool areEqualDataArray(const IBaseModule* a, const IBaseModule* b);
    static bool areEqualDataArray(const GenTLHandle* a, const GenTLHandle* b);

    /// areEqualMemebers and areEqualDataArray.
    static bool areEqual(const Buffer& a, const Buffer& b);
    static bool areEqual(const Buffer* a, const Buffer* b);
    static bool areEqual(const IBuffer* a, const IBuffer* b);
    static bool areEqual(const IBaseModule* a, const IBaseModule* b);
    static bool areEqual(const GenTLHandle* a, const GenTLHandle* b);
};

} // namespace GenTL
