#include "events/UnavailableMessageChannel.h"

#include <string>

#include "api/Error.h"

namespace GenTL {

namespace {

const char* const kRefusal = "message channels are not available in this build";

} // namespace

#define KESTA_REFUSE() ReportError(GC_ERR_NOT_IMPLEMENTED, kRefusal)

UnavailableMessageChannel::UnavailableMessageChannel(IHALGev*, void*, unsigned int channelId, int)
    : BaseModule(std::to_string(channelId), "TLMessageChannel", "Unknown Port Name") {}

UnavailableMessageChannel::~UnavailableMessageChannel() = default;

int UnavailableMessageChannel::ReadPort(unsigned long, void*, unsigned long*) {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::WritePort(unsigned long, const void*, unsigned long*) {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::GetPortURL(char*, unsigned long*) const {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::GetPortInfo(int, int*, void*, unsigned long*) {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::RegisterEvent(int, void**) {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::UnregisterEvent(int) {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::GetNumPortURLs(unsigned int*) {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::GetPortURLInfo(unsigned int, int, int*, void*, unsigned long*) {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::Open(IHALGvmc*, bool) {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::Close() {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::AllocAndAnnounceBuffer(unsigned long, void*, void**) {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::QueueBuffer(void*) {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::RevokeBuffer(void*, void**) {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::GetBufferID(unsigned int, void**) const {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::GetBufferInfo(void*, int, int*, void*, unsigned long*) {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::StartListening() {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::StopListening() {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::Flush() {
    return KESTA_REFUSE();
}
bool UnavailableMessageChannel::IsOpen() const {
    return false;
}
int UnavailableMessageChannel::GetInfo(int, int*, void*, unsigned long*) const {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::WaitOnNewBuffer(void**, unsigned long) {
    return KESTA_REFUSE();
}
int UnavailableMessageChannel::KillWaitForNewBuffer() {
    return KESTA_REFUSE();
}

} // namespace GenTL
