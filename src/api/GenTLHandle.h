#pragma once
/**
 * Handles: the record behind every opaque pointer that crosses the exported
 * interface. One record form serves all module kinds; the kind of a handle
 * is found by a dynamic cast of its module to the interface that a function
 * expects, so a handle of the wrong kind passes CheckHandle and fails the
 * cast.
 */
#include <cstdint>

namespace GenTL {

class IBaseModule;
class IBuffer;

/// Mark of a live handle ("ATSEK" in memory, low byte first).
constexpr std::uint64_t kHandleMagic = 0x4B45535441ULL;

/// The two words behind a handle. The record does not own its module.
struct GenTLHandle {
    std::uint64_t magic; ///< kHandleMagic while alive, 0 once deleted
    IBaseModule* module; ///< the IBaseModule within the module's interface
};

/**
 * Allocates a record for module and stores it in *phHandle. Pass the
 * IBaseModule part of the module's interface (ISystem, IInterface, ...), not
 * that of its BaseModule, so that the frames' dynamic casts find the
 * interface. Returns 0; an allocation failure throws.
 */
int AllocateHandle(void** phHandle, IBaseModule* module);

/**
 * Tells a live handle from garbage by its first word. Null records
 * GC_ERR_INVALID_HANDLE "failed to cast handle to a GenTLHandle*", a wrong
 * mark "received a non-GenTL handle" (both unstamped). Reads 8 bytes at h:
 * a pointer to unreadable memory crashes the caller.
 */
int CheckHandle(void* h);

/// The module of a handle. The caller must have checked h: a handle that
/// fails CheckHandle aborts the process.
IBaseModule* CastHandle(void* h);
/// CastHandle under the name of the type.
IBaseModule* CastHandleToIBasePtr(void* h);
/// CastHandleToIBasePtr, then a dynamic cast to IBuffer; null if not a buffer.
IBuffer* CastHandleToIBufferPtr(void* h);

/**
 * Zeroes the mark and frees the record; the module is left alone. Null
 * records a stamped GC_ERR_INVALID_HANDLE, a foreign pointer an unstamped
 * one, and neither frees anything.
 */
int DeleteHandle(void* h);

/**
 * Leaves a live handle without its module: the owner deletes a module whose
 * handle the consumer still holds (a stream whose device was closed first).
 * The frames then refuse the handle with GC_ERR_INVALID_HANDLE instead of
 * reaching freed memory. Records nothing; a non-handle is left alone.
 */
void DetachHandle(void* h);

/// True for a live handle whose module was detached.
bool IsDetachedHandle(void* h);

} // namespace GenTL
