#pragma once
/**
 * DataStream: the transport-independent base of a data stream module (the
 * DS object behind a stream handle).
 *
 * It keeps the stream's buffers in a BufferStateMachine (built by the leaf
 * class, owned here), the consumer-visible counters and settings, and the
 * one new-buffer event. It answers everything that needs no transport:
 * STREAM_INFO_ID .. STREAM_INFO_BUF_ALIGNMENT, BUFFER_INFO_*, the buffer ids,
 * the revoke, the event registration and the wait for a finished buffer.
 * Operations that need a transport refuse with GC_ERR_NOT_IMPLEMENTED here;
 * DataStreamGev and its UDP and TCP leaves give them their bodies.
 *
 * The port: ReadPort and WritePort keep the defaults of BaseModule until the
 * stream has a register space; GetPortURL names the stream's XML.
 *
 * The consumer's wait for a finished buffer (through NewBufferEvent):
 *
 *   void* hBuffer = nullptr;
 *   stream->WaitOnNewBuffer(&hBuffer, timeoutMs);   // BS_OUTPUT -> BS_USER
 *   ... DSGetBufferInfo, then DSQueueBuffer(hBuffer) gives it back ...
 *
 * KillWaitForNewBuffer ends one such wait from any thread (or the next one).
 */
#include <atomic>
#include <cstdint>
#include <string>

#include <boost/asio/io_service.hpp>

#include "api/InfoUtility.h"
#include "modules/BaseModule.h"
#include "stream/IDataStream.h"

namespace GenTL {

class BufferStateMachine;
class IEvent;

/// URL template of the stream's XML on its own port, and the XML's length.
constexpr const char* kDataStreamUrlTemplate =
    "local:SFNC_GenTLDataStream_Reference_Version_1_0_0_Schema_1_1.xml;F0F00000;%X?"
    "SchemaVersion=1.0.0";
constexpr unsigned long kDataStreamXmlLength = 47098;

class DataStream : public IDataStream, public BaseModule {
public:
    /**
     * Module "TLDataStream", port "StreamPort", id the index in decimal,
     * transport type "GEV". A null parentDevice is refused: it reports
     * GC_ERR_INVALID_HANDLE "DataStream parent device is null" and throws
     * std::logic_error with that text.
     */
    DataStream(void* hDevice, void* parentDevice, unsigned int index);
    /// Deletes a registered new-buffer event (and its handle) and the state
    /// machine with every buffer. Leaf destructors end the grab thread first.
    ~DataStream() override;

    DataStream(const DataStream&) = delete;
    DataStream& operator=(const DataStream&) = delete;

    // --- port ---------------------------------------------------------------
    /// BaseModule defaults until the stream has a register space.
    int ReadPort(unsigned long address, void* buffer, unsigned long* size) override;
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override;
    /// kDataStreamUrlTemplate with the XML length; size is the text plus one.
    int GetPortURL(char* url, unsigned long* size) const override;
    int GetPortInfo(int cmd, int* type, void* buffer, unsigned long* size) override;
    /**
     * Only EVENT_NEW_BUFFER makes an event (one per stream; a second one is
     * GC_ERR_RESOURCE_IN_USE). EVENT_ERROR and EVENT_MODULE are not
     * implemented, the feature and remote-device events not available,
     * other types GC_ERR_INVALID_INDEX. A null event is refused first.
     */
    int RegisterEvent(int type, void** event) override;
    /// Deletes the new-buffer event and its handle; the other types refuse
    /// as in RegisterEvent.
    int UnregisterEvent(int type) override;
    /// One URL.
    int GetNumPortURLs(unsigned int* count) override;
    int GetPortURLInfo(unsigned int index, int cmd, int* type, void* buffer,
                       unsigned long* size) override;
    /// Not implemented.
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;
    /// Not implemented.
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;

    // --- stream -------------------------------------------------------------
    /// Returns 0: a transport class opens.
    int Open(IHALGvsp* hal) override;
    /// Returns 0.
    int Close() override;
    int AnnounceBuffer(void* memory, unsigned long size, void* userData, void** phBuffer) override;
    int AllocAndAnnounceBuffer(unsigned long size, void* userData, void** phBuffer) override;
    int QueueBuffer(void* hBuffer) override;
    /// The state machine's revoke; an invalid handle is logged first.
    int RevokeBuffer(void* hBuffer, void** memory, void** userData) override;
    int FlushQueue(int operation) override;
    /// STREAM_INFO_ID .. STREAM_INFO_BUF_ALIGNMENT; another command fails
    /// with GC_ERR_INVALID_INDEX.
    int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) const override;
    /// Handle of announced buffer number index; index at or above the count
    /// is GC_ERR_INVALID_INDEX.
    int GetBufferID(unsigned int index, void** phBuffer) const override;
    /**
     * BUFFER_INFO_BASE .. BUFFER_INFO_CONTAINS_CHUNKDATA from the buffer's
     * fields, under its mutex. Geometry and pixel facts need an image
     * payload type, chunk facts a chunk type, the file name a file payload:
     * otherwise GC_ERR_NOT_AVAILABLE. Reading BUFFER_INFO_NEW_DATA clears
     * the flag.
     */
    int GetBufferInfo(void* hBuffer, int cmd, int* type, void* buffer,
                      unsigned long* size) const override;
    int StartAcquisition(int flags, unsigned long count) override;
    int StopAcquisition(int flags) override;
    int GetBufferChunkData(void* hBuffer, S_SINGLE_CHUNK_DATA* chunks,
                           unsigned long* count) override;
    /// The parent given to the constructor; null out is GC_ERR_INVALID_PARAMETER.
    int GetParentDev(void** phDevice) const override;
    /// False: only a transport class can be open.
    bool IsOpen() const override;
    int WaitForNextLeader(unsigned long timeout) override;
    int ResetWaitForNextLeader() override;
    int SetupResendRetryParams(unsigned long retryWindowFrames, double frameRate, const char* first,
                               const char* second, int width, int height) override;

    /// Writes a settable STREAM_INFO_* value; not implemented here.
    virtual int SetInfo(int cmd, int type, const void* buffer, unsigned long size);

    /**
     * Waits up to timeoutMs for the oldest finished buffer, moves it to
     * BS_USER and hands out its handle; counts STREAM_INFO_NUM_DELIVERED.
     * Failures as BufferStateMachine::WaitOnNewBuffer (-1011, -1012, -1009).
     */
    int WaitOnNewBuffer(void** phBuffer, unsigned long timeoutMs);
    /// Ends the current WaitOnNewBuffer, or the next one. Returns 0.
    int KillWaitForNewBuffer();

    /// The consumer's handle of the open stream, null while closed; the
    /// device detaches it when it deletes the stream first.
    void SetHandle(void* h) { m_hSelf = h; }
    void* GetHandle() const { return m_hSelf; }

    BufferStateMachine* GetBufferStateMachine() const { return m_pBufferStateMachine; }
    /// The registered new-buffer event, or null.
    IEvent* GetNewBufferEvent() const { return m_pNewBufferEvent; }

protected:
    /// STREAM_INFO_PAYLOAD_SIZE; the base answers its stored value.
    virtual std::uint64_t ReadPayloadSize() const;

    void* m_hDevice;
    void* m_parentDevice;
    unsigned int m_index;
    std::string m_tlType = "GEV";
    BufferStateMachine* m_pBufferStateMachine = nullptr;

    std::atomic<std::uint64_t> numDelivered{0};
    /// Written by the grab thread (CopyDummyToInputIfAvailable takes it by reference).
    unsigned long numUnderrun = 0;
    std::uint64_t numStarted = 0;
    std::uint64_t payloadSize = 0;
    std::atomic<bool> isGrabbing{false};
    bool definesPayloadSize = false;
    std::uint64_t numChunksMax = 0;
    std::uint64_t bufAnnounceMin = 1;
    std::uint64_t bufAlignment = 1;
    /// A BufferHandlingMode: 0 OldestFirst, 1 OldestFirstOverwrite, 2 NewestOnly.
    long bufferHandlingMode = 0;

    IEvent* m_pNewBufferEvent = nullptr;
    void* m_hNewBufferEvent = nullptr;
    void* m_hSelf = nullptr;

    /// Runs the buffers' block timers while grabbing.
    boost::asio::io_service m_bufferTimerService;
    /// Runs the resend requests' timers while grabbing.
    boost::asio::io_service m_resendTimerService;

    InfoUtility m_infoUtility;
};

} // namespace GenTL
