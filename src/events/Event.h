#pragma once
/**
 * Event: the base of the two event objects, NewBufferEvent and
 * RemoteDeviceEvent.
 *
 * An event holds no data of its own: it is a view of a queue that its owner
 * keeps (a data stream's output queue, a message channel's output queue).
 * The owner makes it in RegisterEvent, hands out its handle, and deletes it
 * in UnregisterEvent or with itself. The event has no port: every port,
 * URL and nested-event operation is not implemented. GetData, GetDataInfo,
 * Flush and Kill are not implemented here; the two kinds give them bodies.
 *
 * No lock of its own: the owner's queue is what is shared. numFired is
 * counted without a lock, for a consumer that reads from one thread.
 */
#include <cstddef>
#include <cstdint>
#include <string>

#include "GenTL_KESTA.h"
#include "api/GenTLHandle.h"
#include "api/InfoUtility.h"
#include "events/IEvent.h"
#include "modules/BaseModule.h"

namespace GenTL {

class Event : public IEvent, public BaseModule {
public:
    /// eventType is an EVENT_TYPE; sizeMax the largest datum of GetData.
    Event(int eventType, std::uint64_t sizeMax);
    ~Event() override;

    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    // Not implemented, all ten.
    int ReadPort(unsigned long address, void* buffer, unsigned long* size) override;
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override;
    int GetPortURL(char* url, unsigned long* size) const override;
    int GetPortInfo(int cmd, int* type, void* buffer, unsigned long* size) override;
    int RegisterEvent(int type, void** event) override;
    int UnregisterEvent(int type) override;
    int GetNumPortURLs(unsigned int* count) override;
    int GetPortURLInfo(unsigned int index, int cmd, int* type, void* buffer,
                       unsigned long* size) override;
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;

    /// Not implemented.
    int GetData(void* buffer, unsigned long* size, unsigned long timeout) override;
    /// Not implemented.
    int GetDataInfo(const void* data, unsigned long dataSize, int cmd, int* type, void* out,
                    unsigned long* outSize) const override;
    /**
     * EVENT_EVENT_TYPE (int32), EVENT_NUM_IN_QUEUE, EVENT_NUM_FIRED,
     * EVENT_SIZE_MAX, EVENT_INFO_DATA_SIZE_MAX (size). Another command is
     * GC_ERR_INVALID_INDEX. The kinds refresh numInQueue first.
     */
    int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) override;
    /// Not implemented.
    int Flush() const override;
    /// Not implemented.
    int Kill() const override;

    std::uint64_t NumFired() const { return numFired; }

protected:
    /**
     * The data info answer that both kinds give (the texts are those of the
     * new-buffer event for both): EVENT_DATA_ID "New Buffer Event",
     * EVENT_DATA_VALUE "No buffer data value", EVENT_DATA_NUMID not
     * available, others GC_ERR_INVALID_INDEX. A null data is
     * GC_ERR_INVALID_HANDLE; a zero dataSize, null type or outSize
     * GC_ERR_INVALID_PARAMETER. The datum's bytes are not read.
     */
    int AnswerDataInfo(const void* data, unsigned long dataSize, int cmd, int* type, void* out,
                       unsigned long* outSize) const;

    std::int32_t eventType;
    std::uint64_t numInQueue = 0;
    std::uint64_t numFired = 0;
    std::uint64_t sizeMax;
    std::uint64_t infoDataSizeMax = 256;
    InfoUtility m_infoUtility;
};

/// Gives an event just made by its owner a handle and stores both in the
/// owner's slots. On failure the event is deleted, the slots stay empty, and
/// the handle table's code is returned for the owner to chain.
template <class E, class Slot> int AdoptEvent(E* created, Slot*& event, void*& handle, void** out) {
    void* allocated = nullptr;
    if (const int rc = AllocateHandle(&allocated, static_cast<IEvent*>(created))) {
        delete created;
        return rc;
    }
    event = created;
    handle = allocated;
    *out = allocated;
    return GC_ERR_SUCCESS;
}

/// How an owner refuses an event type it does not keep: the code and the
/// last word of "the EVENT_TYPE <name> is not <word>".
struct EventRefusal {
    int type;
    int code;
    const char* word;
};

/// The refusal text of `refusal`.
std::string EventRefusalText(const EventRefusal& refusal);

/// The refusal of `type` in `table`, or null when the table has none.
template <std::size_t N>
const EventRefusal* FindEventRefusal(const EventRefusal (&table)[N], int type) {
    for (const EventRefusal& refusal : table) {
        if (refusal.type == type) {
            return &refusal;
        }
    }
    return nullptr;
}

/// Deletes the owner's event and its handle and empties both slots; the
/// handle table's code is returned for the owner to chain.
template <class Slot> int ReleaseEvent(Slot*& event, void*& handle) {
    delete event;
    event = nullptr;
    void* released = handle;
    handle = nullptr;
    return DeleteHandle(released);
}

} // namespace GenTL
