#pragma once
// FeatureMap's register access over a GenTL port: GCReadPort and
// GCWritePort, with the library's error stack as the reason of a failure.
#include "FeatureMap.h"
#include "Producer.h"

namespace kesta::gentl {

class PortRegisters : public RegisterAccess {
public:
    PortRegisters(Producer& producer, PORT_HANDLE port) : m_producer(producer), m_port(port) {}

    bool Read(std::uint64_t address, void* data, std::size_t size, std::string& error) override;
    bool Write(std::uint64_t address, const void* data, std::size_t size,
               std::string& error) override;

private:
    std::string Failure(const char* what, std::uint64_t address, GC_ERROR code) const;

    Producer& m_producer;
    PORT_HANDLE m_port;
};

} // namespace kesta::gentl
