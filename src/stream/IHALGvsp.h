#pragma once
/**
 * IHALGvsp: the wire layer between a data stream and the camera's stream
 * channel 0. It owns the receive side of the channel and does what must
 * happen on the wire before the first block and after the last one.
 *
 * One acquisition, as the data stream drives it:
 *
 *   bool extendedId = false;
 *   gvsp->ConfigureExtendedId(hal, hDevice, legacyIds, extendedId);
 *   StreamStartParams params;            // inputs filled by the stream
 *   params.extendedId = extendedId;
 *   gvsp->Start(hal, hDevice, params);   // packetSize, expiries filled in
 *   ... grab thread receives through the transport's own interface
 *       (IHALGvspUDP::GetNextPacket), and signals leaders ...
 *   gvsp->Stop(hal, hDevice, params.packetSize, params.accessMode);
 *
 * The leader wait: a consumer thread blocks in WaitForNextLeader until the
 * grab thread reports the first packet of a block (SetNextLeaderArrived of
 * the transport's interface). Each arrival frees one wait; Start clears a
 * pending arrival.
 *
 * Every operation returns 0 or a GC_ERR_* code and leaves a failure in the
 * calling thread's error cache. The control layer is always passed with the
 * device handle it takes.
 */
#include <cstdint>

#include "stream/GvspCapabilities.h"
#include "stream/StreamStartParams.h"

namespace GenTL {

class IHALGev;

class IHALGvsp {
public:
    virtual ~IHALGvsp() = default;

    /// Sets the camera's channel up towards this host (or the multicast
    /// group), opens the receive side and fills the out members of params.
    virtual int Start(IHALGev* hal, void* device, StreamStartParams& params) = 0;
    /// Tells a camera under control to stop sending (SCP 0) and closes the
    /// receive side. packetSize is not used.
    virtual int Stop(IHALGev* hal, void* device, unsigned int packetSize, int accessMode) = 0;
    /**
     * Decides between 16-bit and 64-bit block ids and configures the camera
     * for it. legacyRequested is the stream's ACQ_START_FLAGS_GVSP_LEGACY_ID.
     * A camera that can send extended ids always gets them switched on, and
     * extendedId is then what the camera's configuration reads back, even
     * when legacy ids were asked for.
     */
    virtual int ConfigureExtendedId(IHALGev* hal, void* device, bool legacyRequested,
                                    bool& extendedId) = 0;
    /**
     * Waits for the next block's first packet. timeoutMs is at most
     * 0xFFFFFFFF, or all ones (64 bits) for no limit; other values are
     * GC_ERR_INVALID_PARAMETER. No arrival in time: GC_ERR_TIMEOUT. A
     * successful wait consumes the arrival.
     */
    virtual int WaitForNextLeader(unsigned long timeoutMs) = 0;
    /// Forgets an arrival that no wait has taken yet.
    virtual int ResetWaitForNextLeader() = 0;
};

/**
 * The extended-id decision of both GVSP layers, with the layer's caches of
 * the GigE Vision version and the capability word (0: read it now).
 *
 * Cameras of version 1 get legacy ids unless they are capable; version 2 and
 * later get extended ids unless they are capable and legacy ids are asked
 * for. A capable camera then has its configuration bit set, and extendedId
 * is the bit as read back.
 */
int ConfigureExtendedIdHelper(IHALGev* hal, void* device, bool legacyRequested, bool& extendedId,
                              std::uint32_t& gevVersion, GvspCapabilities& capabilities);

} // namespace GenTL
