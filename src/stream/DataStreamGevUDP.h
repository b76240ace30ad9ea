#pragma once
/**
 * DataStreamGevUDP: stream 0 of a GigE Vision device, GVSP over UDP with
 * packet resend where the camera offers it.
 *
 *   Open(hal)            the GVSP layer (its own HALGvspUDP when null)
 *   StartAcquisition     extended ids, resend capability, IHALGvsp::Start,
 *                        then the grab thread (GrabThreadResend when
 *                        STREAM_INFO_PACKET_RESEND_ENABLE holds after the
 *                        capability test, else GrabThreadNoCopy)
 *   StopAcquisition(0)   interrupts and joins the thread, frees leader
 *                        waiters, IHALGvsp::Stop, discards the fill queue
 *   Close                only while idle
 *
 * A grab thread receives with m_pHalGvsp (IHALGvspUDP::GetNextPacket),
 * reports leaders with SetNextLeaderArrived, and leaves when interrupted.
 * `running` tells the timer handlers that they may still work: the thread
 * sets it once its timers run, StopAcquisition clears it first.
 */
#include <atomic>
#include <cstdint>
#include <list>
#include <string>

#include <boost/thread/mutex.hpp>

#include "stream/DataStreamGev.h"
#include "stream/GrabContext.h"

namespace GenTL {

class IHALGvspUDP;
class PacketResendRequest;

class DataStreamGevUDP : public DataStreamGev {
public:
    /// Builds the stream's BufferStateMachineGev.
    DataStreamGevUDP(IHALGev* hal, void* hDevice, void* parentDevice, unsigned int index,
                     int accessMode);
    /// Ends the grab thread, frees leader waiters and deletes the GVSP layer.
    ~DataStreamGevUDP() override;

    /// Already open: GC_ERR_RESOURCE_IN_USE. hal must be an IHALGvspUDP;
    /// the stream owns it from here on.
    int Open(IHALGvsp* hal) override;
    /// Open and idle: deletes the GVSP layer. Otherwise GC_ERR_RESOURCE_IN_USE.
    int Close() override;
    /// Announces the consumer's memory; the buffer gets its block timers.
    int AnnounceBuffer(void* memory, unsigned long size, void* userData, void** phBuffer) override;
    int AllocAndAnnounceBuffer(unsigned long size, void* userData, void** phBuffer) override;
    /**
     * Starts the acquisition; count only has to be above 0 (the engine runs
     * until stopped). flags ACQ_START_FLAGS_DEFAULT or
     * ACQ_START_FLAGS_GVSP_LEGACY_ID. A camera without packet resend turns
     * STREAM_INFO_PACKET_RESEND_ENABLE off for good.
     */
    int StartAcquisition(int flags, unsigned long count) override;
    /// flags 0 only; ACQ_STOP_FLAGS_KILL is not implemented.
    int StopAcquisition(int flags) override;
    /// Stores the resend window for the next start, and the geometry that
    /// the completion of variable-size blocks uses.
    int SetupResendRetryParams(unsigned long retryWindowFrames, double frameRate, const char* first,
                               const char* second, int width, int height) override;

protected:
    IHALGvsp* GvspLayer() const override;
    /// The stream's state as the receive loops work on it.
    GrabContext MakeGrabContext();
    /// Grab thread with packet resend.
    void GrabThreadResend();
    /// Grab thread without resend, receiving data packets in place.
    void GrabThreadNoCopy();

    std::atomic<bool> running{false};
    IHALGvspUDP* m_pHalGvsp = nullptr;
    std::uint64_t retryWindowFrames = 0;
    double frameRate = 0.0;
    std::string m_resendFirst;
    std::string m_resendSecond;
    std::int32_t overrideWidth = 0;
    std::int32_t overrideHeight = 0;
    /// Resend requests whose timer may still fire; with its length.
    std::list<PacketResendRequest*> m_pendingResends;
    std::uint64_t m_pendingResendCount = 0;
    boost::mutex m_pendingResendsMutex;
};

} // namespace GenTL
