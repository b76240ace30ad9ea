#include "PortRegisters.h"

#include <cstdio>
#include <sstream>

namespace kesta::gentl {

std::string PortRegisters::Failure(const char* what, std::uint64_t address, GC_ERROR code) const {
    char at[24];
    std::snprintf(at, sizeof at, "0x%llX", static_cast<unsigned long long>(address));
    std::ostringstream text;
    m_producer.Report(text, std::string(what) + "(" + at + ")", code);
    std::string message = text.str();
    while (!message.empty() && message.back() == '\n') {
        message.pop_back();
    }
    return message;
}

bool PortRegisters::Read(std::uint64_t address, void* data, std::size_t size, std::string& error) {
    size_t done = size;
    if (GC_ERROR rc = m_producer.GCReadPort(m_port, address, data, &done)) {
        error = Failure("GCReadPort", address, rc);
        return false;
    }
    return true;
}

bool PortRegisters::Write(std::uint64_t address, const void* data, std::size_t size,
                          std::string& error) {
    size_t done = size;
    if (GC_ERROR rc = m_producer.GCWritePort(m_port, address, data, &done)) {
        error = Failure("GCWritePort", address, rc);
        return false;
    }
    return true;
}

} // namespace kesta::gentl
