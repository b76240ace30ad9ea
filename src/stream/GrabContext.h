#pragma once
/**
 * GrabContext: what the UDP grab loops of one stream work on, as references
 * into the stream that runs them (DataStreamGevUDP), so that the loops and
 * their helpers can also run over a state machine and GVSP layer of a test.
 *
 * All references must outlive the grab thread. The loop reads the settings
 * of `info` as StartAcquisition left them, and writes its counters and
 * nextBlockId; `running` is cleared by the stream before it interrupts the
 * thread, which tells the timer handlers to do nothing from then on.
 */
#include <atomic>
#include <cstdint>
#include <list>

#include <boost/asio/io_service.hpp>
#include <boost/thread/mutex.hpp>

namespace GenTL {

class BufferStateMachineGev;
class IHALGev;
class IHALGvspUDP;
class PacketResendRequest;
class StreamInfo;
struct GenTLHandle;

struct GrabContext {
    StreamInfo& info;
    BufferStateMachineGev& buffers;
    IHALGvspUDP& gvsp;
    IHALGev* hal; ///< control layer for packet resend; null sends nothing
    void* device; ///< the camera, for the control layer
    /// Buffers of the blocks in progress, oldest first, with the length.
    std::list<GenTLHandle*>& activeBlocks;
    std::uint64_t& activeBlockCount;
    boost::mutex& activeBlocksMutex;
    /// Resend requests whose timer may still fire, with the length.
    std::list<PacketResendRequest*>& pendingResends;
    std::uint64_t& pendingResendCount;
    boost::mutex& pendingResendsMutex;
    std::atomic<bool>& running;
    const long& bufferHandlingMode;              ///< a BufferHandlingMode
    unsigned long& numUnderrun;                  ///< STREAM_INFO_NUM_UNDERRUN
    boost::asio::io_service& blockTimerService;  ///< the buffers' two timers
    boost::asio::io_service& resendTimerService; ///< one timer per request
    std::int32_t overrideWidth;                  ///< geometry given to variable-size blocks,
    std::int32_t overrideHeight;                 ///< used when both are not 0
};

} // namespace GenTL
