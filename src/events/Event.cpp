#include "events/Event.h"

#include <string>

#include "api/Error.h"

namespace GenTL {

namespace {

const char* const kEventInfoCmds =
    "iInfoCmd must be one of :\nGenTL::EVENT_EVENT_TYPE, GenTL::EVENT_NUM_IN_QUEUE, "
    "GenTL::EVENT_NUM_FIRED, \nGenTL::EVENT_SIZE_MAX, GenTL::EVENT_INFO_DATA_SIZE_MAX";

} // namespace

Event::Event(int type, std::uint64_t max) : eventType(type), sizeMax(max) {}

Event::~Event() = default;

int Event::ReadPort(unsigned long, void*, unsigned long*) {
    return ReportNotImplemented();
}
int Event::WritePort(unsigned long, const void*, unsigned long*) {
    return ReportNotImplemented();
}
int Event::GetPortURL(char*, unsigned long*) const {
    return ReportNotImplemented();
}
int Event::GetPortInfo(int, int*, void*, unsigned long*) {
    return ReportNotImplemented();
}
int Event::RegisterEvent(int, void**) {
    return ReportNotImplemented();
}
int Event::UnregisterEvent(int) {
    return ReportNotImplemented();
}
int Event::GetNumPortURLs(unsigned int*) {
    return ReportNotImplemented();
}
int Event::GetPortURLInfo(unsigned int, int, int*, void*, unsigned long*) {
    return ReportNotImplemented();
}
int Event::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) {
    return ReportNotImplemented();
}
int Event::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) {
    return ReportNotImplemented();
}

int Event::GetData(void*, unsigned long*, unsigned long) {
    return ReportNotImplemented();
}

int Event::GetDataInfo(const void*, unsigned long, int, int*, void*, unsigned long*) const {
    return ReportNotImplemented();
}

int Event::GetInfo(int cmd, int* type, void* buffer, unsigned long* size) {
    int rc = GC_ERR_SUCCESS;
    switch (cmd) {
    case EVENT_EVENT_TYPE:
        rc = m_infoUtility.SetInfo(static_cast<int>(eventType), type, buffer, size, false);
        break;
    case EVENT_NUM_IN_QUEUE:
        rc = m_infoUtility.SetInfo(static_cast<unsigned long>(numInQueue), type, buffer, size,
                                   false);
        break;
    case EVENT_NUM_FIRED:
        rc = m_infoUtility.SetInfo(static_cast<unsigned long>(numFired), type, buffer, size, false);
        break;
    case EVENT_SIZE_MAX:
        rc = m_infoUtility.SetInfo(static_cast<unsigned long>(sizeMax), type, buffer, size, false);
        break;
    case EVENT_INFO_DATA_SIZE_MAX:
        rc = m_infoUtility.SetInfo(static_cast<unsigned long>(infoDataSizeMax), type, buffer, size,
                                   false);
        break;
    default:
        return ReportError(GC_ERR_INVALID_INDEX, kEventInfoCmds);
    }
    return rc == GC_ERR_SUCCESS ? rc : ChainError(rc);
}

int Event::Flush() const {
    return ReportNotImplemented();
}

int Event::Kill() const {
    return ReportNotImplemented();
}

int Event::AnswerDataInfo(const void* data, unsigned long dataSize, int cmd, int* type, void* out,
                          unsigned long* outSize) const {
    if (data == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "pInBuffer==nullptr");
    }
    if (dataSize == 0) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "iInSize==0");
    }
    if (outSize == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piOutSize==nullptr");
    }
    if (type == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piType==nullptr");
    }
    int rc = GC_ERR_SUCCESS;
    switch (cmd) {
    case EVENT_DATA_ID:
        rc = m_infoUtility.SetInfo(std::string("New Buffer Event"), type, out, outSize, false);
        break;
    case EVENT_DATA_VALUE:
        rc = m_infoUtility.SetInfo(std::string("No buffer data value"), type, out, outSize, false);
        break;
    case EVENT_DATA_NUMID:
        return ReportError(GC_ERR_NOT_AVAILABLE, "EVENT_DATA_NUMID is not available");
    default:
        return ReportError(
            GC_ERR_INVALID_INDEX,
            "iInfoCmd must be one of :\nGenTL::EVENT_DATA_ID, GenTL::EVENT_DATA_VALUE");
    }
    return rc == GC_ERR_SUCCESS ? rc : ChainError(rc);
}

std::string EventRefusalText(const EventRefusal& refusal) {
    const char* name = "";
    switch (refusal.type) {
    case EVENT_ERROR:
        name = "EVENT_ERROR";
        break;
    case EVENT_NEW_BUFFER:
        name = "EVENT_NEW_BUFFER";
        break;
    case EVENT_FEATURE_INVALIDATE:
        name = "EVENT_FEATURE_INVALIDATE";
        break;
    case EVENT_FEATURE_CHANGE:
        name = "EVENT_FEATURE_CHANGE";
        break;
    case EVENT_REMOTE_DEVICE:
        name = "EVENT_REMOTE_DEVICE";
        break;
    case EVENT_MODULE:
        name = "EVENT_MODULE";
        break;
    default:
        break;
    }
    return std::string("the EVENT_TYPE ") + name + " is not " + refusal.word;
}

} // namespace GenTL
