#include "stream/DataStreamGev.h"

#include <string>

#include <boost/thread/locks.hpp>

#include "api/Error.h"
#include "hal/IHALGev.h"
#include "registers/ModuleXml.h"
#include "registers/StreamRegImpl.h"
#include "stream/BufferStateMachine.h"
#include "stream/IHALGvsp.h"

namespace GenTL {

namespace {

const char* const kNotOpen = "DataStream is not open";

} // namespace

#define KESTA_CHECK_OPEN()                                                                         \
    do {                                                                                           \
        if (int openRc = CheckOpen(kNotOpen)) {                                                    \
            return openRc;                                                                         \
        }                                                                                          \
    } while (false)

DataStreamGev::DataStreamGev(IHALGev* hal, void* hDevice, void* parentDevice, unsigned int index,
                             int mode)
    : DataStream(hDevice, parentDevice, index), m_pHalGev(hal), accessMode(mode) {}

DataStreamGev::~DataStreamGev() {
    if (m_grabThread.joinable()) {
        m_grabThread.interrupt();
        m_grabThread.join();
    }
}

int DataStreamGev::CheckOpen(const char* text) const {
    if (!IsOpen()) {
        return ReportError(GC_ERR_INVALID_HANDLE, text);
    }
    return GC_ERR_SUCCESS;
}

// --- port ------------------------------------------------------------------

int DataStreamGev::ReadPort(unsigned long address, void* buffer, unsigned long* size) {
    KESTA_CHECK_OPEN();
    StreamRegImpl registers(this);
    return registers.DispatchRead(address, buffer, size);
}

int DataStreamGev::WritePort(unsigned long address, const void* buffer, unsigned long* size) {
    KESTA_CHECK_OPEN();
    StreamRegImpl registers(this);
    return registers.DispatchWrite(address, buffer, size);
}

int DataStreamGev::GetPortURL(char* url, unsigned long* size) const {
    KESTA_CHECK_OPEN();
    if (int rc = BaseModule::GetPortURL(kDataStreamUrlTemplate, g_streamXml.size, kPortUrlExtraOne,
                                        url, size)) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int DataStreamGev::GetPortInfo(int cmd, int* type, void* buffer, unsigned long* size) {
    KESTA_CHECK_OPEN();
    return DataStream::GetPortInfo(cmd, type, buffer, size);
}

int DataStreamGev::RegisterEvent(int type, void** event) {
    KESTA_CHECK_OPEN();
    return DataStream::RegisterEvent(type, event);
}

int DataStreamGev::UnregisterEvent(int type) {
    KESTA_CHECK_OPEN();
    return DataStream::UnregisterEvent(type);
}

int DataStreamGev::GetNumPortURLs(unsigned int* count) {
    KESTA_CHECK_OPEN();
    return DataStream::GetNumPortURLs(count);
}

int DataStreamGev::GetPortURLInfo(unsigned int index, int cmd, int* type, void* buffer,
                                  unsigned long* size) {
    KESTA_CHECK_OPEN();
    return DataStream::GetPortURLInfo(index, cmd, type, buffer, size);
}

int DataStreamGev::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) {
    KESTA_CHECK_OPEN();
    return DataStream::ReadPortStacked(entries, count);
}

int DataStreamGev::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) {
    KESTA_CHECK_OPEN();
    return DataStream::WritePortStacked(entries, count);
}

// --- stream ----------------------------------------------------------------

int DataStreamGev::Open(IHALGvsp*) {
    return ReportNotImplemented();
}

int DataStreamGev::Close() {
    return ReportNotImplemented();
}

int DataStreamGev::AnnounceBuffer(void*, unsigned long, void*, void**) {
    return ReportNotImplemented();
}

int DataStreamGev::AllocAndAnnounceBuffer(unsigned long, void*, void**) {
    return ReportNotImplemented();
}

int DataStreamGev::AnnounceChecked(bool userMemory, void* memory, unsigned long size,
                                   void* userData, void** phBuffer,
                                   boost::asio::io_service* timerService) {
    KESTA_CHECK_OPEN();
    if (userMemory && memory == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "pBuffer==nullptr");
    }
    if (phBuffer == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "phBuffer==nullptr");
    }
    if (isGrabbing) {
        return ReportError(GC_ERR_BUSY, "acquisition engine is already grabbing");
    }
    const int rc =
        userMemory
            ? m_pBufferStateMachine->AnnounceBuffer(memory, size, userData, phBuffer, timerService)
            : m_pBufferStateMachine->AllocAndAnnounceBuffer(size, userData, phBuffer, timerService);
    return rc == GC_ERR_SUCCESS ? rc : ChainError(rc);
}

int DataStreamGev::QueueBuffer(void* hBuffer) {
    KESTA_CHECK_OPEN();
    if (hBuffer == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "hBuffer==nullptr");
    }
    if (int rc = m_pBufferStateMachine->QueueBufferToInput(hBuffer)) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int DataStreamGev::RevokeBuffer(void* hBuffer, void** memory, void** userData) {
    KESTA_CHECK_OPEN();
    if (isGrabbing) {
        return ReportError(GC_ERR_BUSY, kRevokeWhileGrabbing);
    }
    return DataStream::RevokeBuffer(hBuffer, memory, userData);
}

int DataStreamGev::FlushQueue(int operation) {
    if (int rc = CheckOpen("the data stream is not open")) {
        return rc;
    }
    if (int rc = m_pBufferStateMachine->FlushQueue(operation, bufferHandlingMode, isGrabbing)) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int DataStreamGev::GetInfo(int cmd, int* type, void* buffer, unsigned long* size) const {
    KESTA_CHECK_OPEN();
    const StreamInfo& s = m_streamInfo;
    const InfoUtility& info = m_infoUtility;
    using U64 = unsigned long;
    int rc = GC_ERR_SUCCESS;
    switch (cmd) {
    case STREAM_INFO_BUFFER_HANDLING_MODE:
        rc = info.SetInfo(bufferHandlingMode, type, buffer, size, false);
        break;
    case STREAM_INFO_MISSED_IMAGE_COUNT:
        rc = info.SetInfo(static_cast<U64>(s.missedImageCount), type, buffer, size, false);
        break;
    case STREAM_INFO_MISSED_PACKET_COUNT:
        rc = info.SetInfo(static_cast<U64>(s.missedPacketCount), type, buffer, size, false);
        break;
    case STREAM_INFO_TOTAL_MISSED_IMAGE_COUNT:
        rc = info.SetInfo(static_cast<U64>(s.totalMissedImageCount), type, buffer, size, false);
        break;
    case STREAM_INFO_TOTAL_INCOMPLETE_IMAGE_COUNT:
        rc = info.SetInfo(static_cast<U64>(s.totalIncompleteImageCount), type, buffer, size, false);
        break;
    case STREAM_INFO_PACKET_RESEND_ENABLE:
        rc = info.SetInfo(s.packetResendEnable, type, buffer, size, false);
        break;
    case STREAM_INFO_AUTO_PACKET_SIZE_ENABLE:
        rc = info.SetInfo(s.autoNegotiatePacketSize, type, buffer, size, false);
        break;
    case STREAM_INFO_MAX_RESEND_REQUESTS:
        rc = info.SetInfo(static_cast<unsigned int>(s.maxResendRequestsPerImage), type, buffer,
                          size, false);
        break;
    case STREAM_INFO_MULTICAST_ENABLE:
        rc = info.SetInfo(s.multicastEnable, type, buffer, size, false);
        break;
    case STREAM_INFO_EVS_OUTPUT_FORMAT:
        rc = info.SetInfo(static_cast<long>(s.evsOutputFormat), type, buffer, size, false);
        break;
    case STREAM_INFO_EVS_BIT_DEPTH:
        rc = info.SetInfo(static_cast<long>(s.evsBitDepth), type, buffer, size, false);
        break;
    case STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME:
        rc = info.SetInfo(static_cast<unsigned int>(s.frameGeneratorAccumTime), type, buffer, size,
                          false);
        break;
    case STREAM_INFO_FRAME_GENERATOR_FPS:
        rc = info.SetInfo(s.frameGeneratorFps, type, buffer, size, false);
        break;
    case STREAM_INFO_EVS_COLOR_THEME:
        rc = info.SetInfo(static_cast<long>(s.evsColorTheme), type, buffer, size, false);
        break;
    case STREAM_INFO_EVS_EVENT_RATE:
        rc = info.SetInfo(s.evsEventRate, type, buffer, size, false);
        break;
    case STREAM_INFO_EVS_GVSP_FRAME_RATE:
        rc = info.SetInfo(s.evsGvspFrameRate, type, buffer, size, false);
        break;
    case STREAM_INFO_EVS_LINK_THROUGHPUT:
        rc = info.SetInfo(s.evsLinkThroughput, type, buffer, size, false);
        break;
    case STREAM_INFO_EVS_EVENT_BUFFER_POOL_SIZE:
        rc = info.SetInfo(static_cast<U64>(s.evsEventBufferPoolSize), type, buffer, size, false);
        break;
    case STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME_PRESET:
        rc = info.SetInfo(static_cast<unsigned int>(s.frameGeneratorAccumTimePreset), type, buffer,
                          size, false);
        break;
    case 1024:
        rc = info.SetInfo(static_cast<unsigned int>(s.evsSetting1024), type, buffer, size, false);
        break;
    default:
        return DataStream::GetInfo(cmd, type, buffer, size);
    }
    return rc == GC_ERR_SUCCESS ? rc : ChainError(rc);
}

int DataStreamGev::SetInfo(int cmd, int type, const void* buffer, unsigned long size) {
    KESTA_CHECK_OPEN();
    StreamInfo& s = m_streamInfo;
    const InfoUtility& info = m_infoUtility;
    int rc = GC_ERR_SUCCESS;
    switch (cmd) {
    case STREAM_INFO_BUFFER_HANDLING_MODE: {
        long mode = 0;
        rc = info.GetInfo(type, buffer, size, mode, false);
        if (rc == GC_ERR_SUCCESS) {
            if (mode < OldestFirst || mode > NewestOnly) {
                return ReportError(GC_ERR_INVALID_INDEX,
                                   "STREAM_INFO_BUFFER_HANDLING_MODE must be 0, 1 or 2");
            }
            bufferHandlingMode = mode;
        }
        break;
    }
    case STREAM_INFO_PACKET_RESEND_ENABLE:
        rc = info.GetInfo(type, buffer, size, s.packetResendEnable, false);
        break;
    case STREAM_INFO_AUTO_PACKET_SIZE_ENABLE:
        rc = info.GetInfo(type, buffer, size, s.autoNegotiatePacketSize, false);
        break;
    case STREAM_INFO_MAX_RESEND_REQUESTS: {
        unsigned int value = 0;
        rc = info.GetInfo(type, buffer, size, value, false);
        if (rc == GC_ERR_SUCCESS) {
            s.maxResendRequestsPerImage = value;
        }
        break;
    }
    case STREAM_INFO_MULTICAST_ENABLE:
        rc = info.GetInfo(type, buffer, size, s.multicastEnable, false);
        break;
    case STREAM_INFO_EVS_OUTPUT_FORMAT:
    case STREAM_INFO_EVS_BIT_DEPTH:
    case STREAM_INFO_EVS_COLOR_THEME: {
        long value = 0;
        rc = info.GetInfo(type, buffer, size, value, false);
        if (rc == GC_ERR_SUCCESS) {
            (cmd == STREAM_INFO_EVS_OUTPUT_FORMAT ? s.evsOutputFormat
             : cmd == STREAM_INFO_EVS_BIT_DEPTH   ? s.evsBitDepth
                                                  : s.evsColorTheme) = value;
        }
        break;
    }
    case STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME:
    case STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME_PRESET:
    case 1024: {
        unsigned int value = 0;
        rc = info.GetInfo(type, buffer, size, value, false);
        if (rc == GC_ERR_SUCCESS) {
            (cmd == STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME ? s.frameGeneratorAccumTime
             : cmd == 1024                                 ? s.evsSetting1024
                           : s.frameGeneratorAccumTimePreset) = value;
        }
        break;
    }
    case STREAM_INFO_FRAME_GENERATOR_FPS:
        rc = info.GetInfo(type, buffer, size, s.frameGeneratorFps, false);
        break;
    case STREAM_INFO_EVS_EVENT_BUFFER_POOL_SIZE: {
        unsigned long value = 0;
        rc = info.GetInfo(type, buffer, size, value, false);
        if (rc == GC_ERR_SUCCESS) {
            s.evsEventBufferPoolSize = value;
        }
        break;
    }
    default:
        return ReportNotImplemented();
    }
    return rc == GC_ERR_SUCCESS ? rc : ChainError(rc);
}

int DataStreamGev::GetBufferID(unsigned int index, void** phBuffer) const {
    KESTA_CHECK_OPEN();
    return DataStream::GetBufferID(index, phBuffer);
}

int DataStreamGev::GetBufferInfo(void* hBuffer, int cmd, int* type, void* buffer,
                                 unsigned long* size) const {
    KESTA_CHECK_OPEN();
    return DataStream::GetBufferInfo(hBuffer, cmd, type, buffer, size);
}

int DataStreamGev::StartAcquisition(int, unsigned long) {
    return ReportNotImplemented();
}

int DataStreamGev::StopAcquisition(int) {
    return ReportNotImplemented();
}

int DataStreamGev::GetBufferChunkData(void*, S_SINGLE_CHUNK_DATA*, unsigned long*) {
    KESTA_CHECK_OPEN();
    return ReportNotImplemented();
}

int DataStreamGev::GetParentDev(void** phDevice) const {
    KESTA_CHECK_OPEN();
    return DataStream::GetParentDev(phDevice);
}

bool DataStreamGev::IsOpen() const {
    return isOpen;
}

std::uint64_t DataStreamGev::ReadPayloadSize() const {
    unsigned value = 0;
    if (m_pHalGev == nullptr || m_pHalGev->ReadReg(m_hDevice, sk_addrPayloadSize, value) != 0) {
        return 0;
    }
    return value;
}

int DataStreamGev::CheckStartArguments(int flags, unsigned long count, bool withTexts) const {
    auto refuse = [withTexts](int code, const std::string& text) {
        return ReportError(code, withTexts ? text : Error::GetErrCodeName(code));
    };
    if (!IsOpen()) {
        return refuse(GC_ERR_INVALID_HANDLE, kNotOpen);
    }
    if (isGrabbing) {
        return refuse(GC_ERR_RESOURCE_IN_USE, "the acquisition engine is already grabbing");
    }
    if (m_pBufferStateMachine->GetAnnouncedBufferQueueSize() < bufAnnounceMin) {
        return refuse(GC_ERR_INVALID_BUFFER,
                      "the announced buffers is less then the min allowed. min allowed is " +
                          std::to_string(bufAnnounceMin));
    }
    if (count == 0) {
        return refuse(GC_ERR_INVALID_PARAMETER, "iNumToAcquire must be > 0");
    }
    if (flags != ACQ_START_FLAGS_DEFAULT && flags != ACQ_START_FLAGS_GVSP_LEGACY_ID) {
        return refuse(GC_ERR_INVALID_INDEX, "iStartFlags must be one of: ACQ_START_FLAGS_DEFAULT, "
                                            "ACQ_START_FLAGS_GVSP_LEGACY_ID");
    }
    return GC_ERR_SUCCESS;
}

void DataStreamGev::ClearActiveBlocks() {
    boost::lock_guard<boost::mutex> lock(m_activeBlocksMutex);
    m_activeBlocks.clear();
    m_activeBlockCount = 0;
}

int DataStreamGev::WaitForNextLeader(unsigned long timeout) {
    if (int rc = CheckOpen(kNotOpen)) {
        return rc;
    }
    if (int rc = GvspLayer()->WaitForNextLeader(timeout)) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int DataStreamGev::ResetWaitForNextLeader() {
    if (int rc = CheckOpen(kNotOpen)) {
        return rc;
    }
    return GvspLayer()->ResetWaitForNextLeader();
}

} // namespace GenTL
