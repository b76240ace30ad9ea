#pragma once
/**
 * MessageChannel: the transport-independent base of a device's message
 * channel, with the shape of a data stream: announced MCBuffers, an input
 * queue of empty ones, an output queue of received messages, and the one
 * EVENT_REMOTE_DEVICE event that hands the messages out.
 *
 * A transport class (MessageChannelGev) opens the channel and runs the
 * receive thread, which works on the protected queues:
 *
 *   take an empty buffer:  TakeInputBuffer(timeoutMs)   (waits on input)
 *   ... receive one packet into MCBuffer::data, set filled ...
 *   hand it out:           PutOutputBuffer(handle)      (signals output)
 *
 * The consumer's side is RemoteDeviceEvent::GetData: WaitOnNewBuffer, copy
 * the message, QueueBuffer again in the same call.
 *
 * Here the operations that need a transport (StartListening, StopListening
 * and the whole port) refuse: "only GEV message channels are supported".
 * Open and Close do nothing; IsOpen is false.
 *
 * Locks: each queue has its own mutex and no code holds both; the announced
 * list is under the module's recursive mutex. The GetInfo queue counts are
 * read without a lock and may be stale.
 */
#include <atomic>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/locks.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/recursive_mutex.hpp>

#include "api/InfoUtility.h"
#include "events/IMessageChannel.h"
#include "modules/BaseModule.h"

namespace GenTL {

class IEvent;

class MessageChannel : public IMessageChannel, public BaseModule {
public:
    /// Default port facts; all numbers 0, no transport type text.
    MessageChannel();
    /// Ends the waits in WaitOnNewBuffer, then deletes a registered event
    /// and its handle, and every buffer that is still announced with its
    /// handle.
    ~MessageChannel() override;

    MessageChannel(const MessageChannel&) = delete;
    MessageChannel& operator=(const MessageChannel&) = delete;

    // --- port: "only GEV message channels are supported" ---------------------
    int ReadPort(unsigned long address, void* buffer, unsigned long* size) override;
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override;
    int GetPortURL(char* url, unsigned long* size) const override;
    int GetPortInfo(int cmd, int* type, void* buffer, unsigned long* size) override;
    /**
     * EVENT_REMOTE_DEVICE makes the channel's one RemoteDeviceEvent (a
     * second is GC_ERR_RESOURCE_IN_USE); the other known types are not
     * implemented, unknown ones GC_ERR_INVALID_INDEX. Null event first:
     * GC_ERR_INVALID_PARAMETER.
     */
    int RegisterEvent(int type, void** event) override;
    /// EVENT_REMOTE_DEVICE ends the waits on the event and deletes it;
    /// EVENT_NEW_BUFFER and the feature events are not available,
    /// EVENT_ERROR and EVENT_MODULE not implemented.
    int UnregisterEvent(int type) override;
    int GetNumPortURLs(unsigned int* count) override;
    int GetPortURLInfo(unsigned int index, int cmd, int* type, void* buffer,
                       unsigned long* size) override;
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;

    // --- channel -------------------------------------------------------------
    /// Does nothing, returns 0.
    int Open(IHALGvmc* hal, bool multicast) override;
    /// Does nothing, returns 0.
    int Close() override;
    /**
     * A new MCBuffer of size bytes, announced but not queued. Null handle
     * out: GC_ERR_INVALID_PARAMETER; while listening GC_ERR_BUSY.
     */
    int AllocAndAnnounceBuffer(unsigned long size, void* userData, void** phBuffer) override;
    /// Back of the input queue with filled 0, one waiter signalled.
    /// Handles that are no MCBuffer: GC_ERR_INVALID_HANDLE.
    int QueueBuffer(void* hBuffer) override;
    /**
     * Deletes an announced buffer that is in neither queue (else
     * GC_ERR_BUSY) and its handle; hands out its user pointer.
     */
    int RevokeBuffer(void* hBuffer, void** userData) override;
    int GetBufferID(unsigned int index, void** phBuffer) const override;
    /// BUFFER_INFO_BASE, SIZE, USER_PTR, TIMESTAMP, SIZE_FILLED (0 to 4).
    int GetBufferInfo(void* hBuffer, int cmd, int* type, void* buffer,
                      unsigned long* size) override;
    int StartListening() override;
    int StopListening() override;
    /// Empties both queues; the buffers stay announced, unqueued.
    int Flush() override;
    bool IsOpen() const override;
    /// MC_INFO_ID .. MC_INFO_BUF_ALIGNMENT.
    int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) const override;
    /**
     * Takes the oldest received message's buffer. A message that is ready
     * is taken at once; otherwise waits (GENTL_INFINITE: no limit; other
     * values with the top bit set are GC_ERR_INVALID_PARAMETER), and a
     * kill during the wait ends it with GC_ERR_ABORT, and so does the end
     * of the event (EndWaits). Time-out: GC_ERR_TIMEOUT. Counts
     * MC_INFO_NUM_DELIVERED.
     */
    int WaitOnNewBuffer(void** phBuffer, unsigned long timeoutMs) override;
    /// Ends the current wait, or the next one that has to wait.
    int KillWaitForNewBuffer() override;

    /// Output queue length under its mutex.
    std::uint64_t GetOutputQueueSize() const;

protected:
    /**
     * For the receive thread: the oldest input buffer's handle, waiting up
     * to timeoutMs for one to be queued; null when none came. Interruptible
     * (boost::thread interruption).
     */
    void* TakeInputBuffer(unsigned long timeoutMs);
    /// For the receive thread: a filled buffer to the back of the output
    /// queue; signals one waiter.
    void PutOutputBuffer(void* hBuffer);
    /// For the receive thread: a buffer it took and did not fill goes back
    /// to the front of the input queue, keeping its place.
    void ReturnInputBuffer(void* hBuffer);
    /**
     * Ends every wait in WaitOnNewBuffer with GC_ERR_ABORT and returns once
     * the waiting threads have left it, so that the event and the queues
     * may go. Later waits fail at once until ResumeWaits.
     */
    void EndWaits();
    /// Lets WaitOnNewBuffer wait again after EndWaits.
    void ResumeWaits();

    /// WaitOnNewBuffer's wait, with the output lock held.
    int WaitLocked(boost::unique_lock<boost::mutex>& lock, void** phBuffer,
                   unsigned long timeoutMs);

    mutable boost::recursive_mutex m_moduleMutex; ///< guards m_announcedBuffers
    std::vector<void*> m_announcedBuffers;

    mutable boost::mutex m_inputMutex;
    std::deque<void*> m_inputQueue;
    boost::condition_variable m_inputCondition;

    mutable boost::mutex m_outputMutex;
    std::deque<void*> m_outputQueue;
    boost::condition_variable m_outputCondition;

    IEvent* m_pRemoteDeviceEvent = nullptr;
    void* m_hRemoteDeviceEvent = nullptr;

    std::atomic<std::uint64_t> m_numDelivered{0};
    std::uint64_t m_numUnderrun = 0;
    std::uint64_t m_numStarted = 0;
    std::uint64_t m_payloadSize = 0;
    std::atomic<bool> m_isGrabbing{false};
    std::uint64_t m_bufAnnounceMin = 0;
    std::uint64_t m_bufAlignment = 0;
    std::string m_tlType;
    std::atomic<bool> m_killWait{false};
    /// Under m_outputMutex: threads inside WaitOnNewBuffer, and whether
    /// EndWaits sends them away.
    int m_waiters = 0;
    bool m_waitsEnded = false;

    InfoUtility m_infoUtility;
};

} // namespace GenTL
