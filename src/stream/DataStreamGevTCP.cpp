#include "stream/DataStreamGevTCP.h"

#include <boost/chrono.hpp>
#include <boost/thread/locks.hpp>
#include <boost/thread/thread.hpp>

#include "api/Error.h"
#include "api/GLogger.h"
#include "api/GenTLHandle.h"
#include "modules/ThreadPriority.h"
#include "stream/Buffer.h"
#include "stream/BufferStateMachineGev.h"
#include "stream/IHALGvsp.h"
#include "stream/PayloadType.h"
#include "stream/StreamStartParams.h"

namespace GenTL {

namespace {

const char* const kNotOpen = "DataStream is not open";

constexpr int kIdleSliceMs = 100;

int RefuseByName(int code) {
    return ReportError(code, Error::GetErrCodeName(code));
}

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

int DataStreamGevTCP::Open(IHALGvsp* hal) {
    if (isOpen) {
        return ReportError(GC_ERR_RESOURCE_IN_USE, "DataStreamGevTCP is already open");
    }
    if (hal == nullptr) {
        return ReportError(GC_ERR_NOT_IMPLEMENTED, "GVSP over TCP is not available in this build");
    }
    m_pHalGvsp = hal;
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
    isGrabbing = false;
    m_pHalGvsp->Stop(m_pHalGev, m_hDeviceTcp, m_streamInfo.packetSize, accessMode);
    numStarted = 0;
    m_pBufferStateMachine->FlushQueue(ACQ_QUEUE_FILL_DISCARD, bufferHandlingMode, false);
    return GC_ERR_SUCCESS;
}

// The frame receive loop is not part of this module yet: the thread holds
// the acquisition open until StopAcquisition interrupts it.
void DataStreamGevTCP::GrabThread() {
    ThreadPriority::ApplyThreadPrioritySetting(ThreadPriority::m_priorityGrabThread);
    GLogger::Info("DataStreamGevTCP::GrabThread(): Starting");
    for (;;) {
        boost::this_thread::sleep_for(boost::chrono::milliseconds(kIdleSliceMs));
    }
}

} // namespace GenTL
