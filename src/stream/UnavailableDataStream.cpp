#include "stream/UnavailableDataStream.h"

#include <string>

#include "api/Error.h"

namespace GenTL {

namespace {

const char* const kRefusal = "data streams are not available in this build";

} // namespace

#define KESTA_REFUSE() ReportError(GC_ERR_NOT_IMPLEMENTED, kRefusal)

UnavailableDataStream::UnavailableDataStream(IHALGev*, void*, void*, unsigned int index, int)
    : BaseModule(std::to_string(index), "TLDataStream", "StreamPort") {}

UnavailableDataStream::~UnavailableDataStream() = default;

int UnavailableDataStream::ReadPort(unsigned long, void*, unsigned long*) {
    return KESTA_REFUSE();
}
int UnavailableDataStream::WritePort(unsigned long, const void*, unsigned long*) {
    return KESTA_REFUSE();
}
int UnavailableDataStream::GetPortURL(char*, unsigned long*) const {
    return KESTA_REFUSE();
}
int UnavailableDataStream::GetPortInfo(int, int*, void*, unsigned long*) {
    return KESTA_REFUSE();
}
int UnavailableDataStream::RegisterEvent(int, void**) {
    return KESTA_REFUSE();
}
int UnavailableDataStream::UnregisterEvent(int) {
    return KESTA_REFUSE();
}
int UnavailableDataStream::GetNumPortURLs(unsigned int*) {
    return KESTA_REFUSE();
}
int UnavailableDataStream::GetPortURLInfo(unsigned int, int, int*, void*, unsigned long*) {
    return KESTA_REFUSE();
}
int UnavailableDataStream::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) {
    return KESTA_REFUSE();
}
int UnavailableDataStream::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) {
    return KESTA_REFUSE();
}
int UnavailableDataStream::Open(IHALGvsp*) {
    return KESTA_REFUSE();
}
int UnavailableDataStream::Close() {
    return KESTA_REFUSE();
}
int UnavailableDataStream::AnnounceBuffer(void*, unsigned long, void*, void**) {
    return KESTA_REFUSE();
}
int UnavailableDataStream::AllocAndAnnounceBuffer(unsigned long, void*, void**) {
    return KESTA_REFUSE();
}
int UnavailableDataStream::QueueBuffer(void*) {
    return KESTA_REFUSE();
}
int UnavailableDataStream::RevokeBuffer(void*, void**, void**) {
    return KESTA_REFUSE();
}
int UnavailableDataStream::FlushQueue(int) {
    return KESTA_REFUSE();
}
int UnavailableDataStream::GetInfo(int, int*, void*, unsigned long*) const {
    return KESTA_REFUSE();
}
int UnavailableDataStream::GetBufferID(unsigned int, void**) const {
    return KESTA_REFUSE();
}
int UnavailableDataStream::GetBufferInfo(void*, int, int*, void*, unsigned long*) const {
    return KESTA_REFUSE();
}
int UnavailableDataStream::StartAcquisition(int, unsigned long) {
    return KESTA_REFUSE();
}
int UnavailableDataStream::StopAcquisition(int) {
    return KESTA_REFUSE();
}
int UnavailableDataStream::GetBufferChunkData(void*, S_SINGLE_CHUNK_DATA*, unsigned long*) {
    return KESTA_REFUSE();
}
int UnavailableDataStream::GetParentDev(void**) const {
    return KESTA_REFUSE();
}
bool UnavailableDataStream::IsOpen() const {
    return false;
}
int UnavailableDataStream::WaitForNextLeader(unsigned long) {
    return KESTA_REFUSE();
}
int UnavailableDataStream::ResetWaitForNextLeader() {
    return KESTA_REFUSE();
}
int UnavailableDataStream::SetupResendRetryParams(unsigned long, double, const char*, const char*,
                                                  int, int) {
    return KESTA_REFUSE();
}

} // namespace GenTL
