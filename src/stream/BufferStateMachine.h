#pragma once
/**
 * BufferStateMachine: the life of every buffer of one data stream, from
 * its announce to its revoke.
 *
 * It keeps the announced list and three FIFO queues of handles:
 *
 *   BS_ANNOUNCE --QueueBufferToInput--> BS_INPUT --PopNextBuffer--> BS_FILL
 *   BS_FILL --QueueBufferToOutput--> BS_OUTPUT --WaitOnNewBuffer--> BS_USER
 *   BS_USER / BS_FILL --QueueBufferToInput--> BS_INPUT
 *   BS_OUTPUT --RequeOldestBufferIfNeeded(OldestFirstOverwrite)--> BS_INPUT
 *   any --FlushQueue--> as the flush mode says;  BS_ANNOUNCE --RevokeBuffer--> gone
 *
 * Who calls what:
 *  - the data stream forwards announce, queue, flush and revoke of the
 *    consumer (AnnounceBuffer, QueueBufferToInput, FlushQueue, RevokeBuffer);
 *  - a grab loop, once per block: RequeOldestBufferIfNeeded(mode), then
 *    BufferStateMachineGev::PopNextBuffer to take a buffer (BS_FILL), and at
 *    the block's end QueueBufferToOutput (delivered) or QueueBufferToInput
 *    (dropped). In NewestOnly mode it first flushes ACQ_QUEUE_OUTPUT_TO_INPUT
 *    when the output queue is not empty, so only the newest block waits;
 *  - the new-buffer event blocks in WaitOnNewBuffer; KillWaitForNewBuffer
 *    ends one such wait from any thread.
 *
 * Every operation returns a GC_ERR_* code (0 on success) and records its
 * refusals for GCGetLastError, unless told otherwise. A refused operation
 * changes nothing. Allocation failures throw.
 *
 * Locks: each queue and the announced list has its own mutex; wherever
 * several are held they are taken in the order announced, input, fill,
 * output, and a buffer's m_mutex always comes last. Every move from one
 * queue to another happens with both queue locks held, so a buffer is never
 * seen between two queues. All operations are safe from any thread.
 *
 * Callers hold no buffer's m_mutex when they call in here (the operations
 * take the buffer mutexes themselves, innermost): a completion step that
 * has locked its buffer unlocks it before QueueBufferToOutput,
 * QueueBufferToInput or the NewestOnly flush, or a consumer that re-queues
 * that buffer at the same moment deadlocks with it.
 */
#include <atomic>
#include <cstdint>
#include <deque>
#include <vector>

#include <boost/asio/io_service.hpp>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>

#include "api/ProtectedSet.h"

namespace GenTL {

class Buffer;
struct GenTLHandle;

/// STREAM_INFO_BUFFER_HANDLING_MODE values; the stream keeps the mode and
/// passes it to the operations that depend on it.
enum BufferHandlingMode : long {
    OldestFirst = 0,          ///< deliver every block in order; starve when full
    OldestFirstOverwrite = 1, ///< when starved, refill the oldest undelivered block
    NewestOnly = 2,           ///< deliver only the newest block; older ones are refilled
};

class BufferStateMachine {
public:
    BufferStateMachine();
    /// Deletes every announced buffer, its handle and the memory it owns.
    /// Handles still held by the consumer become invalid.
    virtual ~BufferStateMachine();

    BufferStateMachine(const BufferStateMachine&) = delete;
    BufferStateMachine& operator=(const BufferStateMachine&) = delete;

    // --- announce and revoke -------------------------------------------

    /**
     * Announces the consumer's memory of `size` bytes and stores the new
     * buffer's handle in *handle (state BS_ANNOUNCE, appended to the
     * announced list). With a timerService the buffer gets its two block
     * timers on it; the service must outlive the buffer (its revoke, or the
     * state machine). Refusals: null memory -1015, null handle -1006, size 0
     * -1009, memory announced already -1004.
     */
    int AnnounceBuffer(void* memory, unsigned long size, void* userData, void** handle,
                       boost::asio::io_service* timerService);
    /// AnnounceBuffer with zeroed memory of the state machine's own (freed
    /// at revoke). Only a null handle is refused; size 0 is allowed.
    int AllocAndAnnounceBuffer(unsigned long size, void* userData, void** handle,
                               boost::asio::io_service* timerService);
    /**
     * Withdraws a buffer in BS_ANNOUNCE and deletes it and its handle.
     * Consumer memory goes back through *memory (null otherwise, when the
     * buffer's own memory is freed); the user pointer through *userData.
     * Either pointer may be null. Refusals: null handle -1009, invalid
     * handle its CheckHandle code, not a buffer -1006, other state -1022,
     * not announced here -1006. The consumer memory is released for a new
     * announce before the state test, so even a refused revoke frees it.
     */
    int RevokeBuffer(void* handle, void** memory, void** userData);

    // --- queue moves -----------------------------------------------------

    /**
     * BS_ANNOUNCE, BS_USER or BS_FILL to the back of the input queue (a
     * BS_FILL buffer leaves the fill queue). Refusals: null handle or no
     * buffer behind it -1006, any other state -1013.
     */
    virtual int QueueBufferToInput(void* handle);
    /**
     * BS_FILL to the back of the output queue, and wakes one waiter. A
     * BS_FILL buffer that is not in the fill queue (a dummy copy) stays
     * where it is without an error. Refusals: null handle or no buffer
     * -1006, other state -1013.
     */
    int QueueBufferToOutput(GenTLHandle* handle);
    /**
     * Once per block, ahead of PopNextBuffer. In OldestFirstOverwrite mode
     * (1) with both the input and the fill queue empty, moves the oldest
     * output buffer back to the input queue. Always returns 0.
     */
    int RequeOldestBufferIfNeeded(long mode);
    /**
     * ACQ_QUEUE_* flush. Refusals: INPUT_TO_OUTPUT unless handlingMode is
     * OldestFirst, OUTPUT_TO_INPUT unless it is NewestOnly (-1009);
     * ALL_TO_INPUT, ALL_DISCARD and FILL_DISCARD while grabbing (-1022).
     * An unknown mode does nothing and returns 0.
     */
    int FlushQueue(int flushMode, long handlingMode, bool grabbing);

    // --- consumer side -----------------------------------------------------

    /**
     * Takes the oldest output buffer into BS_USER and stores its handle in
     * *handle (null on failure). Waits up to timeoutMs milliseconds;
     * GENTL_INFINITE waits for good. A pending kill wins over a ready
     * buffer: -1012, once per kill. Time-out -1011; a timeout above the
     * signed 64-bit range (other than GENTL_INFINITE) -1009.
     */
    int WaitOnNewBuffer(void** handle, unsigned long timeoutMs);
    /// Ends the current WaitOnNewBuffer, or the next one if nobody waits.
    /// Always returns 0.
    int KillWaitForNewBuffer();

    // --- queries -----------------------------------------------------------

    unsigned long GetAnnouncedBufferQueueSize() const;
    virtual unsigned long GetInputBufferQueueSize() const;
    unsigned long GetOutputBufferQueueSize() const;
    unsigned long GetFillBufferQueueSize() const;
    /// Input plus fill queue.
    unsigned long GetQueuedBufferCount() const;
    /// The handle at `index` of the announced list; null for an empty list
    /// or an index above the count. An index equal to the count throws
    /// std::out_of_range.
    GenTLHandle* GetBufferIDFromIndex(unsigned int index) const;
    /// Size of the first announced buffer, which stands for all buffers of
    /// an acquisition; 0 with none announced.
    unsigned long GetSizeOfFirstAnnouncedBuffer() const;

protected:
    // State entries: each sets the state and resets the fields that the
    // state starts from. The caller holds the buffer's m_mutex.
    static void PrepBufferForAnnounceState(Buffer* buffer);
    static void PrepBufferForInputState(Buffer* buffer);
    static void PrepBufferForOutputState(Buffer* buffer);
    static void PrepBufferForFillState(Buffer* buffer);
    static void PrepBufferForUserState(Buffer* buffer);

    /// BS_INPUT at the back of the input queue, signalled; the caller holds
    /// m_inputMutex if inputLocked.
    void MoveBufferToInputState(GenTLHandle* handle, bool inputLocked);
    /// Appends a new buffer to the announced list in BS_ANNOUNCE.
    void MoveBufferToAnnounceState(GenTLHandle* handle);

    /// Moves every buffer of `from` to the back of `to` in order, entering
    /// each into its new state with `prep` and signalling `arrived` once per
    /// buffer; the caller holds both queues' mutexes.
    static void MoveQueue(std::deque<GenTLHandle*>& from, std::deque<GenTLHandle*>& to,
                          void (*prep)(Buffer*), boost::condition_variable& arrived);

    void MoveAllBuffersFromInputToOutput();
    void MoveAllBuffersFromOutputToDiscard();
    void MoveAllBuffersFromOutputToInput();
    void MoveAllBuffersFromFillToOutput();
    void MoveAllBuffersFromFillToDiscard();
    void MoveUnqueuedBuffersToInput();
    void MoveAllBuffersToInput();
    void MoveAllBuffersToDiscard();

    /// Creates, registers and announces a buffer on memory; shared by both
    /// announce forms.
    int AnnounceNewBuffer(std::uint8_t* memory, unsigned long size, void* userData, bool userOwned,
                          void** handle, boost::asio::io_service* timerService);

    ProtectedSet<void*> m_userBuffers; ///< consumer memory announced here

    mutable boost::mutex m_announcedMutex;
    std::vector<GenTLHandle*> m_announcedBuffers; ///< every buffer, in announce order

    mutable boost::mutex m_inputMutex;
    std::deque<GenTLHandle*> m_inputQueue;
    boost::condition_variable m_inputAvailable; ///< one signal per buffer queued

    mutable boost::mutex m_outputMutex;
    std::deque<GenTLHandle*> m_outputQueue;
    boost::condition_variable m_outputAvailable; ///< one signal per buffer, and kills

    mutable boost::mutex m_fillMutex;
    std::deque<GenTLHandle*> m_fillQueue;

    std::atomic<bool> m_killWait{false}; ///< a kill waits for WaitOnNewBuffer
};

} // namespace GenTL
