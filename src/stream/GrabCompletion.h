#pragma once
/**
 * GrabCompletion: the end of blocks for both UDP grab loops: the two timer
 * threads, the two timers of each block, and the delivery of finished
 * blocks in the order in which they began.
 *
 * Each block in progress has two timers on the block timer service:
 *  - the next-packet timer ticks every interPacketExpiry ms; a tick that
 *    saw no packet since the last one, after the block has expired, ends
 *    the block's timers; a silent tick before that asks the camera for the
 *    rest of the block (when resend is on and the block's budget lasts);
 *  - the buffer-expiry timer fires once, bufferExpiry ms after the block's
 *    first packet, with the same resend.
 *
 * CheckAndCompleteExpiredBuffers walks the active list from the front and
 * delivers (BS_OUTPUT) or drops (back to BS_INPUT, when the leader never
 * came) each finished block, and stops at the first one still collecting,
 * so blocks reach the consumer in order. It runs on the grab thread and on
 * the block timer thread.
 *
 * A grab loop calls StartTimerThreads at its start and StopTimerThreads on
 * its way out; both timer services may then be restarted for the next
 * acquisition, and no handler of this one is left queued.
 */
#include <boost/asio/io_service.hpp>
#include <boost/system/error_code.hpp>

namespace GenTL {

class Buffer;
class ResendScheduler;
struct GrabContext;

class GrabCompletion {
public:
    GrabCompletion(GrabContext& context, ResendScheduler& resends);
    GrabCompletion(const GrabCompletion&) = delete;
    GrabCompletion& operator=(const GrabCompletion&) = delete;

    /// Starts the block timer thread and the resend timer thread.
    void StartTimerThreads();
    /**
     * Stops both services, joins the resend timer thread and then the block
     * timer thread, and runs what they left queued (with `running` false
     * every handler returns at once).
     */
    void StopTimerThreads();

    /// (Re)starts both timers of a block from now. Caller holds m_mutex.
    void ArmBlockTimers(Buffer* buffer);
    /// Cancels both timers of a block and marks them done. Caller holds
    /// m_mutex.
    static void CancelBlockTimers(Buffer* buffer);

    void NextPacketTimerEventHandler(const boost::system::error_code& error, Buffer* buffer);
    void BufferExpiryTimerEventHandler(const boost::system::error_code& error, Buffer* buffer);

    /// Delivers or drops the finished blocks at the front of the active
    /// list. Caller holds no lock of the stream or of a buffer.
    void CheckAndCompleteExpiredBuffers();

    /// Body of both timer threads: runs the service until it is stopped.
    static void InterPacketTimerWorkerThread(boost::asio::io_service* service);
    static void ResendRequestPacketTimerWorkerThread(boost::asio::io_service* service);

private:
    /// The resend of a block gone quiet, from its first packet not seen to
    /// the end. Caller holds the buffer's m_mutex.
    void FireQuietBlockResend(Buffer* buffer, const char* message);
    void ArmNextPacketTimer(Buffer* buffer);
    /// Whether the block is finished; may set missingPackets to 0.
    bool IsFinished(Buffer* buffer) const;
    /// Metadata and counters of a block that is delivered.
    void FinishDelivered(Buffer* buffer);

    GrabContext& m_context;
    ResendScheduler& m_resends;
};

} // namespace GenTL
