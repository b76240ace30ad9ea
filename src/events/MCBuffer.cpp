#include "events/MCBuffer.h"

#include <algorithm>

namespace GenTL {

MCBuffer::MCBuffer(std::uint64_t bytes, void* user)
    : data(new std::uint8_t[bytes]()), size(bytes), userData(user) {}

MCBuffer::~MCBuffer() {
    delete[] data;
}

MCBuffer& MCBuffer::operator=(const MCBuffer& other) {
    if (this == &other) {
        return *this;
    }
    auto* copy = new std::uint8_t[other.size];
    std::copy(other.data, other.data + other.size, copy);
    delete[] data;
    data = copy;
    size = other.size;
    userData = other.userData;
    timestamp = other.timestamp;
    filled = other.filled;
    return *this;
}

int MCBuffer::ReadPort(unsigned long, void*, unsigned long*) {
    return ReportNotImplemented();
}
int MCBuffer::WritePort(unsigned long, const void*, unsigned long*) {
    return ReportNotImplemented();
}
int MCBuffer::GetPortURL(char*, unsigned long*) const {
    return ReportNotImplemented();
}
int MCBuffer::GetPortInfo(int, int*, void*, unsigned long*) {
    return ReportNotImplemented();
}
int MCBuffer::RegisterEvent(int, void**) {
    return ReportNotImplemented();
}
int MCBuffer::UnregisterEvent(int) {
    return ReportNotImplemented();
}
int MCBuffer::GetNumPortURLs(unsigned int*) {
    return ReportNotImplemented();
}
int MCBuffer::GetPortURLInfo(unsigned int, int, int*, void*, unsigned long*) {
    return ReportNotImplemented();
}
int MCBuffer::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) {
    return ReportNotImplemented();
}
int MCBuffer::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) {
    return ReportNotImplemented();
}

} // namespace GenTL
