#pragma once
/**
 * IEvent: a registered event, a view of a queue that its owner (a data
 * stream or a message channel) keeps.
 */
#include "modules/IBaseModule.h"

namespace GenTL {

class IEvent : public IBaseModule {
public:
    /// Waits up to timeout milliseconds for the next datum and copies it
    /// into buffer; a null buffer asks for the size in *size.
    virtual int GetData(void* buffer, unsigned long* size, unsigned long timeout) = 0;
    /// An EVENT_DATA_* fact of a datum that GetData delivered.
    virtual int GetDataInfo(const void* data, unsigned long dataSize, int cmd, int* type, void* out,
                            unsigned long* outSize) const = 0;
    /// An EVENT_* info fact, through the info triple.
    virtual int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) = 0;
    /// Discards the data waiting in the owner's queue.
    virtual int Flush() const = 0;
    /// Ends one wait in GetData (or the next one, if none waits).
    virtual int Kill() const = 0;
};

} // namespace GenTL
