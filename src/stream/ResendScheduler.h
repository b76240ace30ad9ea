#pragma once
/**
 * ResendScheduler: the packet resend requests of a grabbing UDP stream.
 *
 * A request asks the camera again for a range of packets of one block. It
 * lives in its buffer's m_resendRequests and in the stream's pending list,
 * and has a repeat timer on the resend timer service:
 *
 *   OpenRequest            PACKETRESEND_CMD now, again every
 *                          resendRequestTimeout ms while retries last
 *   SettleLatePacket       a packet of the range came: once all of it is
 *                          in, the request is freed
 *   ClearResendRequestList the block ends: all its requests are freed
 *
 * Locks: callers hold the stream's activeBlocksMutex and the buffer's
 * m_mutex (ClearResendRequestList needs only the buffer's); the scheduler
 * takes m_resendRequestsMutex, then a request's m_mutex or the pending
 * list's mutex. The repeat handler runs on the resend timer thread and
 * takes activeBlocksMutex first, so it never meets a request that is being
 * freed.
 */
#include <cstdint>

#include <boost/system/error_code.hpp>

namespace GenTL {

class Buffer;
class IHALGev;
class PacketResendRequest;
struct GrabContext;

class ResendScheduler {
public:
    explicit ResendScheduler(GrabContext& context);
    ResendScheduler(const ResendScheduler&) = delete;
    ResendScheduler& operator=(const ResendScheduler&) = delete;

    /// Asks the camera for packets first..last of a block; the result is
    /// ignored (there is no reply). Nothing happens with a null hal.
    static void FirePacketResend(void* device, IHALGev* hal, unsigned long blockId,
                                 unsigned int first, unsigned int last, bool extended);

    /**
     * Opens a request for packets first..last of blockId, of which
     * `remaining` are awaited: lists it, sends it, and arms its repeat
     * timer. Caller holds activeBlocksMutex and buffer->m_mutex.
     */
    void OpenRequest(Buffer* buffer, std::uint64_t blockId, std::uint32_t first, std::uint32_t last,
                     std::uint32_t remaining);
    /**
     * A late packet of the buffer's block: the first request whose range
     * holds packetId counts it; a request with nothing left to wait for is
     * freed. No request holding it is no fault. Caller holds
     * activeBlocksMutex and buffer->m_mutex.
     */
    void SettleLatePacket(Buffer* buffer, std::uint32_t packetId);
    /// Frees every request of the buffer (timers cancelled, pending list
    /// updated). Caller holds buffer->m_mutex.
    void ClearResendRequestList(Buffer* buffer);

    /// Repeat timer of a request; runs on the resend timer thread.
    void PacketResendRequestTimerExpiryHandler(const boost::system::error_code& error,
                                               PacketResendRequest* request);

private:
    /// Removes the request from the pending list; false if it was not there.
    bool RemovePending(PacketResendRequest* request);
    void ArmTimer(PacketResendRequest* request);

    GrabContext& m_context;
};

} // namespace GenTL
