#include "api/GenTLHandle.h"

#include <cstdlib>
#include <cstring>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "modules/IBaseModule.h"
#include "stream/IBuffer.h"

namespace GenTL {

namespace {

// A foreign pointer need not be aligned for a 64-bit load.
std::uint64_t FirstWord(const void* h) {
    std::uint64_t word = 0;
    std::memcpy(&word, h, sizeof(word));
    return word;
}

} // namespace

int AllocateHandle(void** phHandle, IBaseModule* module) {
    *phHandle = new GenTLHandle{kHandleMagic, module};
    return GC_ERR_SUCCESS;
}

int CheckHandle(void* h) {
    if (h == nullptr) {
        CacheError(
            Error::GenerateError(GC_ERR_INVALID_HANDLE, "failed to cast handle to a GenTLHandle*"));
        return GC_ERR_INVALID_HANDLE;
    }
    if (FirstWord(h) == kHandleMagic) {
        return GC_ERR_SUCCESS;
    }
    CacheError(Error::GenerateError(GC_ERR_INVALID_HANDLE, "received a non-GenTL handle"));
    return GC_ERR_INVALID_HANDLE;
}

IBaseModule* CastHandle(void* h) {
    if (CheckHandle(h) != GC_ERR_SUCCESS) {
        // Every caller checks first: reaching this is a programming fault.
        std::abort();
    }
    return static_cast<GenTLHandle*>(h)->module;
}

IBaseModule* CastHandleToIBasePtr(void* h) {
    return CastHandle(h);
}

IBuffer* CastHandleToIBufferPtr(void* h) {
    IBaseModule* base = CastHandleToIBasePtr(h);
    return base != nullptr ? dynamic_cast<IBuffer*>(base) : nullptr;
}

int DeleteHandle(void* h) {
    if (h == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE,
                           "failed to cast hHandle to a GenTLHandle*; hHandle was not freed");
    }
    if (FirstWord(h) == kHandleMagic) {
        auto* record = static_cast<GenTLHandle*>(h);
        record->magic = 0;
        delete record;
        return GC_ERR_SUCCESS;
    }
    CacheError(Error::GenerateError(GC_ERR_INVALID_HANDLE,
                                    "received a non-GenTLHandle*; hHandle was not freed"));
    return GC_ERR_INVALID_HANDLE;
}

void DetachHandle(void* h) {
    if (h != nullptr && FirstWord(h) == kHandleMagic) {
        static_cast<GenTLHandle*>(h)->module = nullptr;
    }
}

bool IsDetachedHandle(void* h) {
    return h != nullptr && FirstWord(h) == kHandleMagic &&
           static_cast<GenTLHandle*>(h)->module == nullptr;
}

} // namespace GenTL
