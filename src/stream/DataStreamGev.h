#pragma once
/**
 * DataStreamGev: the GigE Vision layer of a data stream, shared by the UDP
 * stream (index 0) and the TCP stream (index 1).
 *
 * Every operation first asks IsOpen(): a closed stream refuses with
 * GC_ERR_INVALID_HANDLE "DataStream is not open". It adds the GigE Vision
 * settings (STREAM_INFO_BUFFER_HANDLING_MODE and the 1001-1024 commands,
 * SetInfo), STREAM_INFO_PAYLOAD_SIZE from the camera, the queue and flush
 * operations, and what the grab threads share: the StreamInfo record, the
 * list of blocks in progress, the grab thread object.
 *
 * Open, Close, the announces and the acquisition belong to the transport
 * leaves; here they are not implemented.
 *
 * A grab thread (a leaf's member function, started by StartAcquisition)
 * works on:
 *   - m_pBufferStateMachine, down-cast to BufferStateMachineGev for
 *     PopNextBuffer and CopyDummyToInputIfAvailable; QueueBufferToOutput
 *     and RequeOldestBufferIfNeeded(bufferHandlingMode);
 *   - m_streamInfo (packetSize, expiries, extendedId, counters) as
 *     StartAcquisition has filled it;
 *   - m_activeBlocks under m_activeBlocksMutex;
 *   - numUnderrun, and the two timer services of DataStream;
 * and ends at boost::thread interruption, which StopAcquisition sends.
 */
#include <cstdint>
#include <list>

#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>

#include "stream/DataStream.h"
#include "stream/StreamInfo.h"

namespace GenTL {

class IHALGev;
struct GenTLHandle;

/// Camera register that STREAM_INFO_PAYLOAD_SIZE reads.
constexpr unsigned sk_addrPayloadSize = 0x10200000;
/// Camera register of the GVCP capabilities; bit 2 is packet resend.
constexpr unsigned sk_addrGvcpCaps = 0x0934;
/// Refusal of a revoke while grabbing, beside the announce's "acquisition
/// engine is already grabbing".
constexpr const char* kRevokeWhileGrabbing = "acquisition engine is grabbing";

class DataStreamGev : public DataStream {
public:
    /// accessMode is the device's DEVICE_ACCESS_* flag of its open.
    DataStreamGev(IHALGev* hal, void* hDevice, void* parentDevice, unsigned int index,
                  int accessMode);
    ~DataStreamGev() override;

    // Port: after the open check. ReadPort and WritePort serve the stream's
    // register space (a StreamRegImpl per call); the URL's length is that of
    // the embedded XML. The rest as DataStream.
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

    /// Not implemented: a leaf opens.
    int Open(IHALGvsp* hal) override;
    /// Not implemented: a leaf closes.
    int Close() override;
    int AnnounceBuffer(void* memory, unsigned long size, void* userData, void** phBuffer) override;
    int AllocAndAnnounceBuffer(unsigned long size, void* userData, void** phBuffer) override;
    /// The buffer (BS_ANNOUNCE, BS_USER or BS_FILL) to the input queue;
    /// also while grabbing. A null handle is GC_ERR_INVALID_PARAMETER.
    int QueueBuffer(void* hBuffer) override;
    /// Only while idle: the grab threads hold buffers by pointer until
    /// StopAcquisition has joined them, so a grabbing stream refuses with
    /// GC_ERR_BUSY kRevokeWhileGrabbing.
    int RevokeBuffer(void* hBuffer, void** memory, void** userData) override;
    /// ACQ_QUEUE_* flush with the stream's handling mode and grab state.
    int FlushQueue(int operation) override;
    /// DataStream's commands, and 1001 to 1024 (1009 excluded).
    int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) const override;
    int GetBufferID(unsigned int index, void** phBuffer) const override;
    int GetBufferInfo(void* hBuffer, int cmd, int* type, void* buffer,
                      unsigned long* size) const override;
    int StartAcquisition(int flags, unsigned long count) override;
    int StopAcquisition(int flags) override;
    int GetBufferChunkData(void* hBuffer, S_SINGLE_CHUNK_DATA* chunks,
                           unsigned long* count) override;
    int GetParentDev(void** phDevice) const override;
    bool IsOpen() const override;
    /**
     * The settable commands: 1001 buffer handling mode (int64, 0 to 2, else
     * GC_ERR_INVALID_INDEX), 1006, 1008, 1011 (bool8), 1010 (uint32), and
     * the EVS settings 1014-1018, 1022-1024 in their GetInfo types. The
     * value's type must match (GC_ERR_INVALID_PARAMETER). Other commands
     * are not implemented.
     */
    int SetInfo(int cmd, int type, const void* buffer, unsigned long size) override;
    /// The GVSP layer's leader wait, once the stream is open.
    int WaitForNextLeader(unsigned long timeout) override;
    int ResetWaitForNextLeader() override;

    const StreamInfo& GetStreamInfo() const { return m_streamInfo; }

protected:
    /// The GVSP layer of the transport.
    virtual IHALGvsp* GvspLayer() const = 0;
    /// GC_ERR_INVALID_HANDLE with text unless open; 0 when open.
    int CheckOpen(const char* text) const;
    /// Camera register sk_addrPayloadSize; 0 when the read fails.
    std::uint64_t ReadPayloadSize() const override;
    /**
     * The checks of the announces (open, memory when userMemory, handle,
     * not grabbing), then the state machine's announce with timerService
     * (null: the buffer gets no timers).
     */
    int AnnounceChecked(bool userMemory, void* memory, unsigned long size, void* userData,
                        void** phBuffer, boost::asio::io_service* timerService);
    /**
     * The start checks shared by both leaves, in order: open, not grabbing,
     * enough announced buffers, count above 0, known flags. withTexts false
     * refuses with the codes' names only.
     */
    int CheckStartArguments(int flags, unsigned long count, bool withTexts) const;
    /// Empties the list of blocks in progress.
    void ClearActiveBlocks();

    IHALGev* m_pHalGev;
    boost::thread m_grabThread;
    StreamInfo m_streamInfo;
    bool isOpen = false;
    /// Buffers of the blocks in progress, oldest first; with its length.
    std::list<GenTLHandle*> m_activeBlocks;
    std::uint64_t m_activeBlockCount = 0;
    boost::mutex m_activeBlocksMutex;
    std::int32_t accessMode;
};

} // namespace GenTL
