#include "stream/DataStreamGevUDP.h"

#include <string>

#include <boost/thread/thread.hpp>

#include "api/Error.h"
#include "api/GLogger.h"
#include "api/localization.h"
#include "hal/IHALGev.h"
#include "modules/ThreadPriority.h"
#include "stream/BufferStateMachineGev.h"
#include "stream/GrabContext.h"
#include "stream/GrabThreadNoCopy.h"
#include "stream/GrabThreadResend.h"
#include "stream/HALGvspUDP.h"
#include "stream/StreamStartParams.h"

namespace GenTL {

namespace {

const char* const kNotOpen = "DataStream is not open";

// GVCP capability bit of PACKETRESEND_CMD.
constexpr unsigned kCapPacketResend = 1U << 2;

} // namespace

DataStreamGevUDP::DataStreamGevUDP(IHALGev* hal, void* hDevice, void* parentDevice,
                                   unsigned int index, int mode)
    : DataStreamGev(hal, hDevice, parentDevice, index, mode) {
    m_pBufferStateMachine = new BufferStateMachineGev();
}

DataStreamGevUDP::~DataStreamGevUDP() {
    if (m_grabThread.joinable()) {
        m_grabThread.interrupt();
        m_grabThread.join();
    }
    m_pHalGev = nullptr;
    if (m_pHalGvsp != nullptr) {
        m_pHalGvsp->SetNextLeaderArrived();
        delete m_pHalGvsp;
        m_pHalGvsp = nullptr;
    }
    isGrabbing = false;
    KillWaitForNewBuffer();
    boost::lock_guard<boost::mutex> lock(m_pendingResendsMutex);
    m_pendingResends.clear();
    m_pendingResendCount = 0;
}

int DataStreamGevUDP::Open(IHALGvsp* hal) {
    if (isOpen) {
        return ReportError(GC_ERR_RESOURCE_IN_USE, "DataStreamGevUDP is already open");
    }
    if (hal != nullptr) {
        auto* udp = dynamic_cast<IHALGvspUDP*>(hal);
        if (udp == nullptr) {
            return ReportError(GC_ERR_INVALID_PARAMETER, "hal is not a GVSP layer over UDP");
        }
        m_pHalGvsp = udp;
    } else {
        m_pHalGvsp = new HALGvspUDP();
    }
    isOpen = true;
    return GC_ERR_SUCCESS;
}

int DataStreamGevUDP::Close() {
    if (!isOpen || isGrabbing) {
        return ReportError(GC_ERR_RESOURCE_IN_USE,
                           isOpen ? "the acquisition engine is grabbing" : kNotOpen);
    }
    isOpen = false;
    delete m_pHalGvsp;
    m_pHalGvsp = nullptr;
    return GC_ERR_SUCCESS;
}

int DataStreamGevUDP::AnnounceBuffer(void* memory, unsigned long size, void* userData,
                                     void** phBuffer) {
    return AnnounceChecked(true, memory, size, userData, phBuffer, &m_bufferTimerService);
}

int DataStreamGevUDP::AllocAndAnnounceBuffer(unsigned long size, void* userData, void** phBuffer) {
    return AnnounceChecked(false, nullptr, size, userData, phBuffer, &m_bufferTimerService);
}

int DataStreamGevUDP::StartAcquisition(int flags, unsigned long count) {
    if (int rc = CheckStartArguments(flags, count, true)) {
        return rc;
    }
    StreamInfo& s = m_streamInfo;
    s.missedImageCount = 0;
    s.missedPacketCount = 0;

    bool extendedId = false;
    if (int rc = m_pHalGvsp->ConfigureExtendedId(
            m_pHalGev, m_hDevice, flags == ACQ_START_FLAGS_GVSP_LEGACY_ID, extendedId)) {
        return ChainError(rc);
    }
    s.extendedId = extendedId;

    unsigned caps = 0;
    if (m_pHalGev->ReadReg(m_hDevice, sk_addrGvcpCaps, caps) != GC_ERR_SUCCESS) {
        GLogger::Error(
            loc::al("GenTL::HALGvspUDP::GetCameraPacketResendSupport ReadReg sk_addrGvcpCaps = {0}",
                    std::to_string(sk_addrGvcpCaps).c_str())
                .c_str());
        s.packetResendEnable = false;
    } else if ((caps & kCapPacketResend) == 0) {
        GLogger::Info("GenTL::HALGvspUDP::GetCameraPacketResendSupport PACKETRESEND_CMD is not "
                      "supported");
        s.packetResendEnable = false;
    }

    StreamStartParams params;
    params.packetSize = s.packetSize;
    params.autoNegotiatePacketSize = s.autoNegotiatePacketSize;
    params.extendedId = s.extendedId;
    params.bufferSize = m_pBufferStateMachine->GetSizeOfFirstAnnouncedBuffer();
    params.packetResendEnable = s.packetResendEnable;
    params.interPacketExpiry = s.interPacketExpiry;
    params.maxResendRequestsPerImage = s.maxResendRequestsPerImage;
    params.multicastEnable = s.multicastEnable;
    params.accessMode = accessMode;
    params.retryWindowFrames = retryWindowFrames;
    params.frameRate = frameRate;
    params.first = m_resendFirst;
    params.second = m_resendSecond;
    if (int rc = m_pHalGvsp->Start(m_pHalGev, m_hDevice, params)) {
        return ChainError(rc);
    }

    numDelivered = 0;
    numUnderrun = 0;
    isGrabbing = true;
    numStarted = m_pBufferStateMachine->GetInputBufferQueueSize();
    s.packetSize = params.packetSize;
    s.interPacketExpiry = params.interPacketExpiry;
    s.resendRetries = params.resendRetries;
    s.bufferExpiry = params.bufferExpiry;
    m_bufferTimerService.restart();
    m_resendTimerService.restart();
    m_grabThread = s.packetResendEnable ? boost::thread(&DataStreamGevUDP::GrabThreadResend, this)
                                        : boost::thread(&DataStreamGevUDP::GrabThreadNoCopy, this);
    return GC_ERR_SUCCESS;
}

int DataStreamGevUDP::StopAcquisition(int flags) {
    if (!isOpen) {
        return ReportError(GC_ERR_INVALID_HANDLE, kNotOpen);
    }
    if (!isGrabbing) {
        return ReportError(GC_ERR_RESOURCE_IN_USE, "acquisition engine was not started");
    }
    if (flags == ACQ_STOP_FLAGS_KILL) {
        return ReportNotImplemented();
    }
    if (flags != ACQ_STOP_FLAGS_DEFAULT) {
        return ReportError(GC_ERR_INVALID_INDEX, "iStopFlags must be ACQ_STOP_FLAGS_DEFAULT");
    }
    running = false;
    m_grabThread.interrupt();
    m_grabThread.join();
    m_pHalGvsp->SetNextLeaderArrived();
    isGrabbing = false;
    m_pHalGvsp->Stop(m_pHalGev, m_hDevice, m_streamInfo.packetSize, accessMode);
    numStarted = 0;
    m_pBufferStateMachine->FlushQueue(ACQ_QUEUE_FILL_DISCARD, bufferHandlingMode, false);
    ClearActiveBlocks();
    return GC_ERR_SUCCESS;
}

int DataStreamGevUDP::SetupResendRetryParams(unsigned long windowFrames, double rate,
                                             const char* first, const char* second, int width,
                                             int height) {
    if (int rc = CheckOpen(kNotOpen)) {
        return rc;
    }
    retryWindowFrames = windowFrames;
    frameRate = rate;
    m_resendFirst = first != nullptr ? first : "";
    m_resendSecond = second != nullptr ? second : "";
    overrideWidth = width;
    overrideHeight = height;
    return GC_ERR_SUCCESS;
}

// The receive loops live in their own classes and work on this stream's
// state through a GrabContext.

IHALGvsp* DataStreamGevUDP::GvspLayer() const {
    return m_pHalGvsp;
}

GrabContext DataStreamGevUDP::MakeGrabContext() {
    return GrabContext{m_streamInfo,
                       static_cast<BufferStateMachineGev&>(*m_pBufferStateMachine),
                       *m_pHalGvsp,
                       m_pHalGev,
                       m_hDevice,
                       m_activeBlocks,
                       m_activeBlockCount,
                       m_activeBlocksMutex,
                       m_pendingResends,
                       m_pendingResendCount,
                       m_pendingResendsMutex,
                       running,
                       bufferHandlingMode,
                       numUnderrun,
                       m_bufferTimerService,
                       m_resendTimerService,
                       overrideWidth,
                       overrideHeight};
}

void DataStreamGevUDP::GrabThreadResend() {
    GrabContext context = MakeGrabContext();
    ::GenTL::GrabThreadResend(context).Run();
}

void DataStreamGevUDP::GrabThreadNoCopy() {
    GrabContext context = MakeGrabContext();
    ::GenTL::GrabThreadNoCopy(context).Run();
}

} // namespace GenTL
