#include "stream/DataStreamGevTCP.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include <boost/chrono.hpp>
#include <boost/thread/locks.hpp>
#include <boost/thread/thread.hpp>

#include "api/Error.h"
#include "api/GLogger.h"
#include "api/GenTLHandle.h"
#include "modules/ThreadPriority.h"
#include "stream/Buffer.h"
#include "stream/BufferStateMachineGev.h"
#include "stream/HALGvspTCP.h"
#include "stream/PayloadType.h"
#include "stream/StreamStartParams.h"

namespace GenTL {

namespace {

const char* const kNotOpen = "DataStream is not open";

/// The wait of one read; between reads the thread can be interrupted.
constexpr unsigned long kReadTimeoutMs = 200;
/// Largest single read, within the layer's int lengths.
constexpr std::uint64_t kMaxReadBytes = 1u << 30;
/// Chunk in which payload that does not fit is read and dropped.
constexpr std::size_t kDrainBytes = 64 * 1024;

int RefuseByName(int code) {
    return ReportError(code, Error::GetErrCodeName(code));
}

std::uint64_t BigEndian(const unsigned char* bytes, int count) {
    std::uint64_t value = 0;
    for (int i = 0; i < count; ++i) {
        value = value << 8 | bytes[i];
    }
    return value;
}

/// The grab thread's private buffer for frames that find the input queue
/// empty: never announced, as large as the first announced buffer, with the
/// same 60 bytes in front of its base.
class DummyBuffer {
public:
    explicit DummyBuffer(std::uint64_t size)
        : m_memory(new std::uint8_t[std::max<std::uint64_t>(size, kTcpFrameHeaderSize)]()) {
        m_buffer.base = m_memory.get() + kTcpFrameHeaderSize;
        m_buffer.size = size;
        void* handle = nullptr;
        AllocateHandle(&handle, static_cast<IBuffer*>(&m_buffer));
        m_handle = static_cast<GenTLHandle*>(handle);
    }
    ~DummyBuffer() { DeleteHandle(m_handle); }
    DummyBuffer(const DummyBuffer&) = delete;
    DummyBuffer& operator=(const DummyBuffer&) = delete;

    GenTLHandle* Handle() const { return m_handle; }

private:
    std::unique_ptr<std::uint8_t[]> m_memory;
    Buffer m_buffer;
    GenTLHandle* m_handle = nullptr;
};

} // namespace

DataStreamGevTCP::DataStreamGevTCP(IHALGev* hal, void* hDevice, void* parentDevice,
                                   unsigned int index, int mode)
    : DataStreamGev(hal, hDevice, parentDevice, index, mode), m_hDeviceTcp(hDevice) {
    m_pBufferStateMachine = new BufferStateMachineGev();
}

DataStreamGevTCP::~DataStreamGevTCP() {
    if (m_grabThread.joinable()) {
        m_grabThread.interrupt();
        m_grabThread.join();
    }
    isGrabbing = false;
    KillWaitForNewBuffer();
    // The state machine frees the memory that it allocated from the
    // announced address.
    const unsigned long count = m_pBufferStateMachine->GetAnnouncedBufferQueueSize();
    for (unsigned int i = 0; i < count; ++i) {
        ShiftBase(m_pBufferStateMachine->GetBufferIDFromIndex(i),
                  -static_cast<long>(kTcpFrameHeaderSize));
    }
    delete m_pHalGvsp;
    m_pHalGvsp = nullptr;
}

void DataStreamGevTCP::ShiftBase(void* hBuffer, long delta) {
    if (Buffer* b = CastHandleToBufferPtr(hBuffer)) {
        boost::lock_guard<boost::mutex> lock(b->m_mutex);
        b->base = reinterpret_cast<std::uint8_t*>(reinterpret_cast<std::uintptr_t>(b->base) +
                                                  static_cast<std::uintptr_t>(delta));
    }
}

IHALGvsp* DataStreamGevTCP::GvspLayer() const {
    return m_pHalGvsp;
}

int DataStreamGevTCP::Open(IHALGvsp* hal) {
    if (isOpen) {
        return ReportError(GC_ERR_RESOURCE_IN_USE, "DataStreamGevTCP is already open");
    }
    if (hal != nullptr) {
        auto* tcp = dynamic_cast<IHALGvspTCP*>(hal);
        if (tcp == nullptr) {
            return ReportError(GC_ERR_INVALID_PARAMETER, "hal is not a GVSP layer over TCP");
        }
        m_pHalGvsp = tcp;
    } else {
        m_pHalGvsp = new HALGvspTCP();
    }
    isOpen = true;
    return GC_ERR_SUCCESS;
}

int DataStreamGevTCP::Close() {
    if (!isOpen || isGrabbing) {
        return ReportError(GC_ERR_RESOURCE_IN_USE,
                           isOpen ? "the acquisition engine is grabbing" : kNotOpen);
    }
    isOpen = false;
    delete m_pHalGvsp;
    m_pHalGvsp = nullptr;
    return GC_ERR_SUCCESS;
}

int DataStreamGevTCP::AnnounceBuffer(void* memory, unsigned long size, void* userData,
                                     void** phBuffer) {
    if (int rc = AnnounceChecked(true, memory, size, userData, phBuffer, nullptr)) {
        return rc;
    }
    ShiftBase(*phBuffer, static_cast<long>(kTcpFrameHeaderSize));
    return GC_ERR_SUCCESS;
}

int DataStreamGevTCP::AllocAndAnnounceBuffer(unsigned long size, void* userData, void** phBuffer) {
    if (int rc = AnnounceChecked(false, nullptr, size + kTcpFrameHeaderSize, userData, phBuffer,
                                 nullptr)) {
        return rc;
    }
    ShiftBase(*phBuffer, static_cast<long>(kTcpFrameHeaderSize));
    return GC_ERR_SUCCESS;
}

int DataStreamGevTCP::RevokeBuffer(void* hBuffer, void** memory, void** userData) {
    if (int rc = CheckOpen(kNotOpen)) {
        return rc;
    }
    if (isGrabbing) {
        return ReportError(GC_ERR_BUSY, kRevokeWhileGrabbing);
    }
    if (hBuffer == nullptr || CheckHandle(hBuffer) != GC_ERR_SUCCESS ||
        CastHandleToBufferPtr(hBuffer) == nullptr) {
        return DataStream::RevokeBuffer(hBuffer, memory, userData);
    }
    ShiftBase(hBuffer, -static_cast<long>(kTcpFrameHeaderSize));
    if (int rc = DataStream::RevokeBuffer(hBuffer, memory, userData)) {
        // A buffer that is still announced keeps its header room. The handle
        // is only compared here: a revoke that got further has freed it.
        const unsigned long count = m_pBufferStateMachine->GetAnnouncedBufferQueueSize();
        for (unsigned int i = 0; i < count; ++i) {
            if (m_pBufferStateMachine->GetBufferIDFromIndex(i) == hBuffer) {
                ShiftBase(hBuffer, static_cast<long>(kTcpFrameHeaderSize));
                break;
            }
        }
        return rc;
    }
    return GC_ERR_SUCCESS;
}

int DataStreamGevTCP::GetBufferInfo(void* hBuffer, int cmd, int* type, void* buffer,
                                    unsigned long* size) const {
    if (int rc = CheckOpen(kNotOpen)) {
        return rc;
    }
    if (cmd == BUFFER_INFO_SIZE && CheckHandle(hBuffer) == GC_ERR_SUCCESS) {
        if (Buffer* b = CastHandleToBufferPtr(hBuffer)) {
            unsigned long bytes = 0;
            bool image = false;
            {
                boost::lock_guard<boost::mutex> lock(b->m_mutex);
                image = (b->payloadType & ~static_cast<std::uint64_t>(GVSP_PAYLOAD_CHUNK_FLAG)) ==
                        PAYLOAD_TYPE_IMAGE;
                bytes = b->size >= kTcpFrameHeaderSize ? b->size - kTcpFrameHeaderSize : 0;
            }
            if (image) {
                const int rc = m_infoUtility.SetInfo(bytes, type, buffer, size, false);
                return rc == GC_ERR_SUCCESS ? rc : ChainError(rc);
            }
        }
    }
    return DataStream::GetBufferInfo(hBuffer, cmd, type, buffer, size);
}

int DataStreamGevTCP::StartAcquisition(int flags, unsigned long count) {
    if (int rc = CheckStartArguments(flags, count, false)) {
        return rc;
    }
    StreamInfo& s = m_streamInfo;
    numDelivered = 0;
    numUnderrun = 0;
    isGrabbing = true;
    numStarted = m_pBufferStateMachine->GetInputBufferQueueSize();
    s.missedImageCount = 0;
    s.missedPacketCount = 0;

    bool extendedId = false;
    if (int rc = m_pHalGvsp->ConfigureExtendedId(
            m_pHalGev, m_hDeviceTcp, flags == ACQ_START_FLAGS_GVSP_LEGACY_ID, extendedId)) {
        return ChainError(rc);
    }
    s.extendedId = extendedId;

    StreamStartParams params;
    params.packetResendEnable = s.packetResendEnable;
    params.autoNegotiatePacketSize = s.autoNegotiatePacketSize;
    params.multicastEnable = s.multicastEnable;
    params.interPacketExpiry = s.interPacketExpiry;
    params.accessMode = accessMode;
    params.maxResendRequestsPerImage = s.maxResendRequestsPerImage;
    if (int rc = m_pHalGvsp->Start(m_pHalGev, m_hDeviceTcp, params)) {
        return ChainError(rc);
    }
    m_grabThread = boost::thread(&DataStreamGevTCP::GrabThread, this);
    return GC_ERR_SUCCESS;
}

int DataStreamGevTCP::StopAcquisition(int flags) {
    if (!isOpen) {
        return RefuseByName(GC_ERR_INVALID_HANDLE);
    }
    if (!isGrabbing) {
        return RefuseByName(GC_ERR_RESOURCE_IN_USE);
    }
    if (flags == ACQ_STOP_FLAGS_KILL) {
        return ReportNotImplemented();
    }
    if (flags != ACQ_STOP_FLAGS_DEFAULT) {
        return RefuseByName(GC_ERR_INVALID_INDEX);
    }
    if (m_grabThread.joinable()) {
        m_grabThread.interrupt();
        m_grabThread.join();
    }
    // As on the UDP stream: a waiter for the next frame does not outlive the
    // acquisition.
    m_pHalGvsp->SetNextLeaderArrived();
    isGrabbing = false;
    m_pHalGvsp->Stop(m_pHalGev, m_hDeviceTcp, m_streamInfo.packetSize, accessMode);
    numStarted = 0;
    m_pBufferStateMachine->FlushQueue(ACQ_QUEUE_FILL_DISCARD, bufferHandlingMode, false);
    return GC_ERR_SUCCESS;
}

int DataStreamGevTCP::SetNextLeaderArrived() {
    if (int rc = CheckOpen(kNotOpen)) {
        return rc;
    }
    return m_pHalGvsp->SetNextLeaderArrived();
}

// --- the grab thread ---------------------------------------------------------

/// The 60-byte header in front of every frame, big-endian: the payload size,
/// then the extended GVSP header and the leader, of which only the block id
/// and the leader's fields are read.
struct DataStreamGevTCP::FrameHeader {
    std::uint64_t payloadBytes = 0;
    std::uint64_t blockId = 0;
    std::uint16_t payloadType = 0;
    std::uint64_t timestamp = 0;
    std::uint64_t pixelFormat = 0;
    std::uint64_t width = 0;
    std::uint64_t height = 0;
    std::uint64_t xOffset = 0;
    std::uint64_t yOffset = 0;
    std::uint64_t xPadding = 0;
    std::uint64_t yPadding = 0;

    FrameHeader() = default;
    explicit FrameHeader(const char* header) {
        const auto* b = reinterpret_cast<const unsigned char*>(header);
        payloadBytes = BigEndian(b, 4);
        blockId = BigEndian(b + 12, 8);
        payloadType = static_cast<std::uint16_t>(BigEndian(b + 26, 2));
        timestamp = BigEndian(b + 28, 8);
        pixelFormat = BigEndian(b + 36, 4);
        width = BigEndian(b + 40, 4);
        height = BigEndian(b + 44, 4);
        xOffset = BigEndian(b + 48, 4);
        yOffset = BigEndian(b + 52, 4);
        xPadding = BigEndian(b + 56, 2);
        yPadding = BigEndian(b + 58, 2);
    }
};

void DataStreamGevTCP::GrabThread() {
    ThreadPriority::ApplyThreadPrioritySetting(ThreadPriority::m_priorityGrabThread);
    GLogger::Info("DataStreamGevTCP::GrabThread(): Starting");
    auto& buffers = dynamic_cast<BufferStateMachineGev&>(*m_pBufferStateMachine);
    StreamInfo& info = m_streamInfo;
    // The dummy of the first buffer's size, which here includes the header.
    DummyBuffer dummy(m_pBufferStateMachine->GetSizeOfFirstAnnouncedBuffer());
    m_spareHeader.assign(kTcpFrameHeaderSize, 0);
    m_drain.assign(kDrainBytes, 0);
    info.nextBlockId = 1;
    info.lastBlockId = 0;
    bool dummyInUse = false;
    bool connectionLost = false;
    Buffer* current = nullptr;
    try {
        for (;;) {
            boost::this_thread::interruption_point();
            if (connectionLost) {
                // Every further read would fail at once: wait for the stop
                // instead of counting a missed image per spin.
                boost::this_thread::sleep_for(boost::chrono::milliseconds(kReadTimeoutMs));
                continue;
            }
            buffers.RequeOldestBufferIfNeeded(bufferHandlingMode);
            GenTLHandle* handle = buffers.PopNextBuffer(dummy.Handle(), dummyInUse);
            boost::this_thread::interruption_point();
            current = CastHandleToBufferPtr(handle);
            {
                boost::lock_guard<boost::mutex> lock(current->m_mutex);
                current->dataSize = current->size;
            }
            FrameHeader header;
            std::uint64_t payloadBytes = 0;
            if (ReceiveFrame(*current, header, payloadBytes) != GC_ERR_SUCCESS) {
                // The frame is lost, and the buffer stays in the fill queue
                // for the stop to discard.
                ++info.missedImageCount;
                connectionLost = true;
                GLogger::Error("DataStreamGevTCP::GrabThread(): the connection to the camera "
                               "failed; no more frames until the stream is stopped");
                continue;
            }
            info.payloadType = header.payloadType;
            {
                boost::lock_guard<boost::mutex> lock(current->m_mutex);
                Buffer& b = *current;
                b.payloadType = header.payloadType;
                b.width = header.width;
                b.height = header.height;
                b.xOffset = header.xOffset;
                b.yOffset = header.yOffset;
                b.pixelFormat = header.pixelFormat;
                b.timestamp = header.timestamp;
                b.xPadding = header.xPadding;
                b.yPadding = header.yPadding;
                b.dataSize = header.payloadBytes;
                b.frameId = header.blockId;
                b.receivedBytes = static_cast<std::uint32_t>(payloadBytes);
                b.dataLargerThanBuffer = payloadBytes < header.payloadBytes;
            }
            handle = buffers.CopyDummyToInputIfAvailable(dummy.Handle(), handle, dummyInUse,
                                                         numUnderrun, kTcpFrameHeaderSize);
            if (dummyInUse) {
                ++info.missedImageCount;
                continue;
            }
            current = CastHandleToBufferPtr(handle);
            Finish(*current);
            if (bufferHandlingMode == NewestOnly) {
                // Only this mode has something to flush; the others would
                // just refuse.
                buffers.FlushQueue(ACQ_QUEUE_OUTPUT_TO_INPUT, bufferHandlingMode, isGrabbing);
            }
            buffers.QueueBufferToOutput(handle);
            boost::this_thread::interruption_point();
        }
    } catch (const boost::thread_interrupted&) {
        if (current != nullptr) {
            boost::lock_guard<boost::mutex> lock(current->m_mutex);
            current->isAcquiring = false;
        }
    }
}

int DataStreamGevTCP::ReceiveFrame(Buffer& buffer, FrameHeader& header,
                                   std::uint64_t& payloadBytes) {
    // A buffer announced smaller than a header has no room in front of its
    // base: its header goes aside, and no payload fits.
    const bool room = buffer.size >= kTcpFrameHeaderSize;
    char headerCopy[kTcpFrameHeaderSize];
    char* headerPlace =
        room ? reinterpret_cast<char*>(buffer.base) - kTcpFrameHeaderSize : m_spareHeader.data();
    if (int rc = ReadExactly(headerPlace, kTcpFrameHeaderSize, headerCopy)) {
        return rc;
    }
    header = FrameHeader(headerCopy);
    // The header, not the buffer, tells where the frame ends: a frame of
    // another length than the buffer must neither run past the buffer nor
    // take bytes of the next frame.
    const std::uint64_t capacity = room ? buffer.size - kTcpFrameHeaderSize : 0;
    payloadBytes = std::min(header.payloadBytes, capacity);
    if (int rc = ReadExactly(reinterpret_cast<char*>(buffer.base), payloadBytes, nullptr)) {
        return rc;
    }
    for (std::uint64_t left = header.payloadBytes - payloadBytes; left > 0;) {
        const std::uint64_t part = std::min<std::uint64_t>(left, m_drain.size());
        if (int rc = ReadExactly(m_drain.data(), part, nullptr)) {
            return rc;
        }
        left -= part;
    }
    return GC_ERR_SUCCESS;
}

int DataStreamGevTCP::ReadExactly(char* data, std::uint64_t length, char* header) {
    std::uint64_t done = 0;
    bool begins = header != nullptr;
    while (done < length) {
        boost::this_thread::interruption_point();
        const auto wanted = static_cast<int>(std::min(length - done, kMaxReadBytes));
        int headerReceived = 0;
        int received = 0;
        // A time-out keeps what came: the next read goes on from there, so
        // that the stream stays in step with its frames.
        const int rc = m_pHalGvsp->GetNextPacket(begins ? header : nullptr, begins ? wanted : 0,
                                                 headerReceived, data + done, wanted, received,
                                                 kReadTimeoutMs);
        if (received > 0) {
            done += std::min(static_cast<std::uint64_t>(received), length - done);
            begins = false;
        }
        if (rc != GC_ERR_SUCCESS && rc != GC_ERR_TIMEOUT) {
            return rc;
        }
    }
    if (header != nullptr) {
        std::memcpy(header, data, static_cast<std::size_t>(length));
    }
    return GC_ERR_SUCCESS;
}

void DataStreamGevTCP::Finish(Buffer& b) {
    StreamInfo& info = m_streamInfo;
    boost::lock_guard<boost::mutex> lock(b.m_mutex);
    b.isNewData = true;
    b.isQueued = false;
    b.sizeFilled = b.receivedBytes;
    b.imagePresent = false;
    const std::uint64_t bitsPerLine = GetBitsPerPixel(b.pixelFormat) * b.width;
    b.deliveredImageHeight = bitsPerLine == 0 ? 0 : b.sizeFilled * 8 / bitsPerLine;
    SwitchPayloadType(info.payloadType, &b);
    if (b.sizeFilled == b.dataSize) {
        b.isIncomplete = false;
    } else {
        ++info.totalIncompleteImageCount;
    }
    if (b.missingPackets < 1) {
        b.missingPackets = 0;
    }
    info.missedPacketCount += static_cast<std::uint64_t>(b.missingPackets);
}

} // namespace GenTL
