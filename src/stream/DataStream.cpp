#include "stream/DataStream.h"

#include <stdexcept>
#include <string>

#include <boost/thread/locks.hpp>

#include "api/Error.h"
#include "api/GLogger.h"
#include "api/GenTLHandle.h"
#include "events/NewBufferEvent.h"
#include "stream/Buffer.h"
#include "stream/BufferStateMachine.h"
#include "stream/PayloadType.h"

namespace GenTL {

namespace {

const char* const kParentNull = "DataStream parent device is null";

const char* const kStreamInfoCmds =
    "STREAM_INFO_CMD must be one of :\nGenTL::STREAM_INFO_ID, GenTL::STREAM_INFO_NUM_DELIVERED, "
    "GenTL::STREAM_INFO_NUM_UNDERRUN, \nGenTL::STREAM_INFO_NUM_ANNOUNCED, "
    "GenTL::STREAM_INFO_NUM_QUEUED, GenTL::STREAM_INFO_NUM_AWAIT_DELIVERY, "
    "\nGenTL::STREAM_INFO_NUM_STARTED, GenTL::STREAM_INFO_PAYLOAD_SIZE, "
    "GenTL::STREAM_INFO_IS_GRABBING, \nGenTL::STREAM_INFO_DEFINES_PAYLOADSIZE, "
    "GenTL::STREAM_INFO_TLTYPE, GenTL::STREAM_INFO_NUM_CHUNKS_MAX, "
    "\nGenTL::STREAM_INFO_BUF_ANNOUNCE_MIN, GenTL::STREAM_INFO_BUF_ALIGNMENT, "
    "\nGenTL::STREAM_INFO_BUFFER_HANDLING_MODE, GenTL::STREAM_INFO_MISSED_IMAGE_COUNT, "
    "GenTL::STREAM_INFO_MISSED_PACKET_COUNT, \nGenTL::STREAM_INFO_TOTAL_MISSED_IMAGE_COUNT, "
    "GenTL::STREAM_INFO_TOTAL_INCOMPLETE_IMAGE_COUNT, \nGenTL::STREAM_INFO_PACKET_RESEND_ENABLE, "
    "GenTL::STREAM_INFO_AUTO_PACKET_SIZE_ENABLE, GenTL::STREAM_INFO_MAX_RESEND_REQUESTS, "
    "\nGenTL::STREAM_INFO_MULTICAST_ENABLE";

const char* const kEventTypes =
    "EVENT_TYPE must be one of :\nGenTL::EVENT_NEW_BUFFER, GenTL::EVENT_ERROR, "
    "GenTL::EVENT_MODULE, \nGenTL::EVENT_FEATURE_INVALIDATE, GenTL::EVENT_FEATURE_CHANGE, "
    "GenTL::EVENT_REMOTE_DEVICE";

// The event types a data stream does not keep, as registering and
// unregistering refuse them.
const EventRefusal kRegisterRefusals[] = {
    {EVENT_ERROR, GC_ERR_NOT_IMPLEMENTED, "implemented"},
    {EVENT_FEATURE_INVALIDATE, GC_ERR_NOT_AVAILABLE, "available"},
    {EVENT_FEATURE_CHANGE, GC_ERR_NOT_AVAILABLE, "available"},
    {EVENT_REMOTE_DEVICE, GC_ERR_NOT_AVAILABLE, "available"},
    {EVENT_MODULE, GC_ERR_NOT_IMPLEMENTED, "implemented"},
};
const EventRefusal kUnregisterRefusals[] = {
    {EVENT_ERROR, GC_ERR_NOT_IMPLEMENTED, "implemented"},
    {EVENT_FEATURE_INVALIDATE, GC_ERR_NOT_AVAILABLE, "implemented"},
    {EVENT_FEATURE_CHANGE, GC_ERR_NOT_AVAILABLE, "implemented"},
    {EVENT_REMOTE_DEVICE, GC_ERR_NOT_AVAILABLE, "implemented"},
    {EVENT_MODULE, GC_ERR_NOT_IMPLEMENTED, "implemented"},
};

// The refusal of a buffer fact that the buffer's payload type lacks. The
// text is the one consumers of this producer match on.
const char* const kNotAvailableForPayload = "URL_INFO_CMD URL_INFO_FILE_VER_MAJOR is not available";

std::string IndexText(unsigned int index) {
    return std::to_string(index);
}

} // namespace

DataStream::DataStream(void* hDevice, void* parentDevice, unsigned int index)
    : BaseModule(IndexText(index), "TLDataStream", "StreamPort"), m_hDevice(hDevice),
      m_parentDevice(parentDevice), m_index(index) {
    if (parentDevice == nullptr) {
        GLogger::Error(kParentNull);
        ReportError(GC_ERR_INVALID_HANDLE, kParentNull);
        throw std::logic_error(kParentNull);
    }
}

DataStream::~DataStream() {
    if (m_pNewBufferEvent != nullptr) {
        delete m_pNewBufferEvent;
        m_pNewBufferEvent = nullptr;
        DeleteHandle(m_hNewBufferEvent);
        m_hNewBufferEvent = nullptr;
    }
    delete m_pBufferStateMachine;
    m_pBufferStateMachine = nullptr;
}

// --- port ------------------------------------------------------------------

int DataStream::ReadPort(unsigned long address, void* buffer, unsigned long* size) {
    return BaseModule::ReadPort(address, buffer, size);
}

int DataStream::WritePort(unsigned long address, const void* buffer, unsigned long* size) {
    return BaseModule::WritePort(address, buffer, size);
}

int DataStream::GetPortURL(char* url, unsigned long* size) const {
    if (int rc = BaseModule::GetPortURL(kDataStreamUrlTemplate, kDataStreamXmlLength,
                                        kPortUrlExtraOne, url, size)) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int DataStream::GetPortInfo(int cmd, int* type, void* buffer, unsigned long* size) {
    return BaseModule::GetPortInfo(cmd, type, buffer, size);
}

int DataStream::RegisterEvent(int type, void** event) {
    if (event == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "phEvent == nullptr");
    }
    if (type == EVENT_NEW_BUFFER) {
        if (m_pNewBufferEvent != nullptr) {
            return ReportError(GC_ERR_RESOURCE_IN_USE,
                               "an event is already registered for the data stream");
        }
        if (const int rc =
                AdoptEvent(new NewBufferEvent(this), m_pNewBufferEvent, m_hNewBufferEvent, event)) {
            return ChainError(rc);
        }
        return GC_ERR_SUCCESS;
    }
    if (const EventRefusal* refusal = FindEventRefusal(kRegisterRefusals, type)) {
        return ReportError(refusal->code, EventRefusalText(*refusal));
    }
    return ReportError(GC_ERR_INVALID_INDEX, kEventTypes);
}

int DataStream::UnregisterEvent(int type) {
    if (type == EVENT_NEW_BUFFER) {
        if (m_pNewBufferEvent == nullptr) {
            return ReportError(GC_ERR_NOT_INITIALIZED,
                               "m_pNewBufferEvent == nullptr when EVENT_TYPE is EVENT_NEW_BUFFER");
        }
        if (const int rc = ReleaseEvent(m_pNewBufferEvent, m_hNewBufferEvent)) {
            return ChainError(rc);
        }
        return GC_ERR_SUCCESS;
    }
    if (const EventRefusal* refusal = FindEventRefusal(kUnregisterRefusals, type)) {
        return ReportError(refusal->code, EventRefusalText(*refusal));
    }
    return ReportError(GC_ERR_INVALID_INDEX, kEventTypes);
}

int DataStream::GetNumPortURLs(unsigned int* count) {
    return GetOneNumPortURLs(count);
}

int DataStream::GetPortURLInfo(unsigned int index, int cmd, int* type, void* buffer,
                               unsigned long* size) {
    return BaseModule::GetPortURLInfo(index, cmd, type, buffer, size);
}

int DataStream::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) {
    return ReportNotImplemented();
}

int DataStream::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) {
    return ReportNotImplemented();
}

// --- stream ----------------------------------------------------------------

int DataStream::Open(IHALGvsp*) {
    return GC_ERR_SUCCESS;
}

int DataStream::Close() {
    return GC_ERR_SUCCESS;
}

int DataStream::AnnounceBuffer(void*, unsigned long, void*, void**) {
    return ReportNotImplemented();
}

int DataStream::AllocAndAnnounceBuffer(unsigned long, void*, void**) {
    return ReportNotImplemented();
}

int DataStream::QueueBuffer(void*) {
    return ReportNotImplemented();
}

int DataStream::RevokeBuffer(void* hBuffer, void** memory, void** userData) {
    if (hBuffer != nullptr) {
        if (int rc = CheckHandle(hBuffer)) {
            GLogger::Error("GenTL::DataStreamGev::RevokeBuffer(): Buffer handle is not valid "
                           "GenTL handle");
            return ChainError(rc);
        }
    }
    if (int rc = m_pBufferStateMachine->RevokeBuffer(hBuffer, memory, userData)) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int DataStream::FlushQueue(int) {
    return ReportNotImplemented();
}

int DataStream::GetInfo(int cmd, int* type, void* buffer, unsigned long* size) const {
    const BufferStateMachine& sm = *m_pBufferStateMachine;
    int rc = GC_ERR_SUCCESS;
    switch (cmd) {
    case STREAM_INFO_ID:
        rc = m_infoUtility.SetInfo(m_portInfo.id, type, buffer, size, false);
        break;
    case STREAM_INFO_NUM_DELIVERED:
        rc = m_infoUtility.SetInfo(static_cast<unsigned long>(numDelivered.load()), type, buffer,
                                   size, false);
        break;
    case STREAM_INFO_NUM_UNDERRUN:
        rc = m_infoUtility.SetInfo(numUnderrun, type, buffer, size, false);
        break;
    case STREAM_INFO_NUM_ANNOUNCED:
        rc = m_infoUtility.SetInfo(sm.GetAnnouncedBufferQueueSize(), type, buffer, size, false);
        break;
    case STREAM_INFO_NUM_QUEUED:
        rc = m_infoUtility.SetInfo(sm.GetQueuedBufferCount(), type, buffer, size, false);
        break;
    case STREAM_INFO_NUM_AWAIT_DELIVERY:
        rc = m_infoUtility.SetInfo(sm.GetOutputBufferQueueSize(), type, buffer, size, false);
        break;
    case STREAM_INFO_NUM_STARTED:
        rc = m_infoUtility.SetInfo(static_cast<unsigned long>(numStarted), type, buffer, size,
                                   false);
        break;
    case STREAM_INFO_PAYLOAD_SIZE:
        rc = m_infoUtility.SetInfo(static_cast<unsigned long>(ReadPayloadSize()), type, buffer,
                                   size, false);
        break;
    case STREAM_INFO_IS_GRABBING:
        rc = m_infoUtility.SetInfo(isGrabbing.load(), type, buffer, size, false);
        break;
    case STREAM_INFO_DEFINES_PAYLOADSIZE:
        rc = m_infoUtility.SetInfo(definesPayloadSize, type, buffer, size, false);
        break;
    case STREAM_INFO_TLTYPE:
        rc = m_infoUtility.SetInfo(m_tlType, type, buffer, size, false);
        break;
    case STREAM_INFO_NUM_CHUNKS_MAX:
        rc = m_infoUtility.SetInfo(static_cast<unsigned long>(numChunksMax), type, buffer, size,
                                   false);
        break;
    case STREAM_INFO_BUF_ANNOUNCE_MIN:
        rc = m_infoUtility.SetInfo(static_cast<unsigned long>(bufAnnounceMin), type, buffer, size,
                                   false);
        break;
    case STREAM_INFO_BUF_ALIGNMENT:
        rc = m_infoUtility.SetInfo(static_cast<unsigned long>(bufAlignment), type, buffer, size,
                                   false);
        break;
    default:
        return ReportError(GC_ERR_INVALID_INDEX, kStreamInfoCmds);
    }
    return rc == GC_ERR_SUCCESS ? rc : ChainError(rc);
}

int DataStream::GetBufferID(unsigned int index, void** phBuffer) const {
    if (phBuffer == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "phBuffer==nullptr");
    }
    if (index >= m_pBufferStateMachine->GetAnnouncedBufferQueueSize()) {
        return ReportError(GC_ERR_INVALID_INDEX, "iIndex >= number of announced buffers");
    }
    // A revoke from another thread may shorten the list meanwhile; the
    // state machine's range check then throws, which is a misuse.
    *phBuffer = m_pBufferStateMachine->GetBufferIDFromIndex(index);
    return GC_ERR_SUCCESS;
}

int DataStream::GetBufferInfo(void* hBuffer, int cmd, int* type, void* buffer,
                              unsigned long* size) const {
    if (int rc = CheckHandle(hBuffer)) {
        GLogger::Error("GenTL::DataStream::GetBufferInfo Buffer handle is not valid GenTL handle");
        return ChainError(rc);
    }
    IBuffer* ibuffer = CastHandleToIBufferPtr(hBuffer);
    Buffer* b = dynamic_cast<Buffer*>(ibuffer);
    if (ibuffer == nullptr || b == nullptr) {
        GLogger::Error("GenTL::DataStream::GetBufferInfo Buffer handle is of wrong type");
        return ReportError(GC_ERR_INVALID_HANDLE, "pIBuffer==nullptr || pBuf==nullptr");
    }

    boost::lock_guard<boost::mutex> lock(b->m_mutex);
    const bool image = IsImagePayloadType(b->payloadType);
    const bool chunks = IsChunkPayloadType(b->payloadType);
    const InfoUtility& info = m_infoUtility;
    using U64 = unsigned long;
    int rc = GC_ERR_SUCCESS;
    switch (cmd) {
    case BUFFER_INFO_BASE:
        rc = info.SetInfo(reinterpret_cast<char*>(b->base), type, buffer, size, false);
        break;
    case BUFFER_INFO_SIZE:
        rc = info.SetInfo(static_cast<U64>(b->size), type, buffer, size, false);
        break;
    case BUFFER_INFO_USER_PTR:
        rc = info.SetInfo(static_cast<char*>(b->userData), type, buffer, size, false);
        break;
    case BUFFER_INFO_TIMESTAMP:
    case BUFFER_INFO_TIMESTAMP_NS:
        rc = info.SetInfo(static_cast<U64>(b->timestamp), type, buffer, size, false);
        break;
    case BUFFER_INFO_NEW_DATA:
        rc = info.SetInfo(b->isNewData, type, buffer, size, false);
        if (rc == GC_ERR_SUCCESS && buffer != nullptr) {
            b->isNewData = false;
        }
        break;
    case BUFFER_INFO_IS_QUEUED:
        rc = info.SetInfo(b->isQueued, type, buffer, size, false);
        break;
    case BUFFER_INFO_IS_ACQUIRING:
        rc = info.SetInfo(b->isAcquiring, type, buffer, size, false);
        break;
    case BUFFER_INFO_IS_INCOMPLETE:
        rc = info.SetInfo(b->isIncomplete, type, buffer, size, false);
        break;
    case BUFFER_INFO_TLTYPE:
        rc = info.SetInfo(m_tlType, type, buffer, size, false);
        break;
    case BUFFER_INFO_SIZE_FILLED:
        rc = info.SetInfo(static_cast<U64>(b->sizeFilled), type, buffer, size, false);
        break;
    case BUFFER_INFO_FRAMEID:
        rc = info.SetInfo(static_cast<U64>(b->frameId), type, buffer, size, false);
        break;
    case BUFFER_INFO_IMAGEPRESENT:
        rc = info.SetInfo(b->imagePresent, type, buffer, size, false);
        break;
    case BUFFER_INFO_PAYLOADTYPE:
        rc = info.SetInfo(static_cast<U64>(b->payloadType), type, buffer, size, false);
        break;
    case BUFFER_INFO_DATA_SIZE:
        rc = info.SetInfo(static_cast<U64>(b->dataSize), type, buffer, size, false);
        break;
    case BUFFER_INFO_DATA_LARGER_THAN_BUFFER:
        rc = info.SetInfo(b->dataLargerThanBuffer, type, buffer, size, false);
        break;
    case BUFFER_INFO_CONTAINS_CHUNKDATA:
        rc = info.SetInfo(b->containsChunkData, type, buffer, size, false);
        break;
    case BUFFER_INFO_WIDTH:
    case BUFFER_INFO_HEIGHT:
    case BUFFER_INFO_XOFFSET:
    case BUFFER_INFO_YOFFSET:
    case BUFFER_INFO_XPADDING:
    case BUFFER_INFO_YPADDING:
    case BUFFER_INFO_IMAGEOFFSET:
    case BUFFER_INFO_PIXELFORMAT:
    case BUFFER_INFO_PIXELFORMAT_NAMESPACE:
    case BUFFER_INFO_DELIVERED_IMAGEHEIGHT:
    case BUFFER_INFO_PIXEL_ENDIANNESS: {
        if (!image) {
            return ReportError(GC_ERR_NOT_AVAILABLE, kNotAvailableForPayload);
        }
        U64 value = 0;
        switch (cmd) {
        case BUFFER_INFO_WIDTH:
            value = b->width;
            break;
        case BUFFER_INFO_HEIGHT:
            value = b->height;
            break;
        case BUFFER_INFO_XOFFSET:
            value = b->xOffset;
            break;
        case BUFFER_INFO_YOFFSET:
            value = b->yOffset;
            break;
        case BUFFER_INFO_XPADDING:
            value = b->xPadding;
            break;
        case BUFFER_INFO_YPADDING:
            value = b->yPadding;
            break;
        case BUFFER_INFO_IMAGEOFFSET:
            value = b->imageOffset;
            break;
        case BUFFER_INFO_PIXELFORMAT:
            value = b->pixelFormat;
            break;
        case BUFFER_INFO_PIXELFORMAT_NAMESPACE:
            value = b->pixelFormatNamespace;
            break;
        case BUFFER_INFO_DELIVERED_IMAGEHEIGHT:
            value = b->deliveredImageHeight;
            break;
        default:
            break;
        }
        rc = cmd == BUFFER_INFO_PIXEL_ENDIANNESS
                 ? info.SetInfo(static_cast<int>(b->pixelEndianness), type, buffer, size, false)
                 : info.SetInfo(value, type, buffer, size, false);
        break;
    }
    case BUFFER_INFO_DELIVERED_CHUNKPAYLOADSIZE:
    case BUFFER_INFO_CHUNKLAYOUTID:
        if (!chunks) {
            return ReportError(GC_ERR_NOT_AVAILABLE, kNotAvailableForPayload);
        }
        rc = info.SetInfo(static_cast<U64>(cmd == BUFFER_INFO_CHUNKLAYOUTID
                                               ? b->chunkLayoutId
                                               : b->deliveredChunkPayloadSize),
                          type, buffer, size, false);
        break;
    case BUFFER_INFO_FILENAME:
        if (b->payloadType != PAYLOAD_TYPE_FILE) {
            return ReportError(GC_ERR_NOT_AVAILABLE, kNotAvailableForPayload);
        }
        rc = info.SetInfo(b->filename, type, buffer, size, false);
        break;
    default:
        return ReportError(GC_ERR_INVALID_INDEX, "iInfoCmd is not a BUFFER_INFO_CMD of 0 to 30");
    }
    return rc == GC_ERR_SUCCESS ? rc : ChainError(rc);
}

int DataStream::StartAcquisition(int, unsigned long) {
    return ReportNotImplemented();
}

int DataStream::StopAcquisition(int) {
    return ReportNotImplemented();
}

int DataStream::GetBufferChunkData(void*, S_SINGLE_CHUNK_DATA*, unsigned long*) {
    return ReportNotImplemented();
}

int DataStream::GetParentDev(void** phDevice) const {
    if (phDevice == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "phDevice==nullptr");
    }
    *phDevice = m_parentDevice;
    return GC_ERR_SUCCESS;
}

bool DataStream::IsOpen() const {
    return false;
}

int DataStream::WaitForNextLeader(unsigned long) {
    return ReportNotImplemented();
}

int DataStream::ResetWaitForNextLeader() {
    return ReportNotImplemented();
}

int DataStream::SetupResendRetryParams(unsigned long, double, const char*, const char*, int, int) {
    return ReportNotImplemented();
}

int DataStream::SetInfo(int, int, const void*, unsigned long) {
    return ReportNotImplemented();
}

int DataStream::WaitOnNewBuffer(void** phBuffer, unsigned long timeoutMs) {
    if (int rc = m_pBufferStateMachine->WaitOnNewBuffer(phBuffer, timeoutMs)) {
        return rc;
    }
    ++numDelivered;
    return GC_ERR_SUCCESS;
}

int DataStream::KillWaitForNewBuffer() {
    return m_pBufferStateMachine->KillWaitForNewBuffer();
}

std::uint64_t DataStream::ReadPayloadSize() const {
    return payloadSize;
}

} // namespace GenTL
