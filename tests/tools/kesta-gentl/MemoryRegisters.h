#pragma once
// A register space in memory, byte by byte, for the tests of the feature
// walk: what a port would be to FeatureMap.
#include <cstdint>
#include <map>
#include <string>

#include "FeatureMap.h"

namespace kesta::gentl {

class MemoryRegisters : public RegisterAccess {
public:
    bool Read(std::uint64_t address, void* data, std::size_t size, std::string&) override {
        for (std::size_t i = 0; i < size; ++i) {
            static_cast<std::uint8_t*>(data)[i] = bytes[address + i];
        }
        return true;
    }
    bool Write(std::uint64_t address, const void* data, std::size_t size, std::string&) override {
        ++writes;
        for (std::size_t i = 0; i < size; ++i) {
            bytes[address + i] = static_cast<const std::uint8_t*>(data)[i];
        }
        return true;
    }
    std::uint32_t BigEndian32(std::uint64_t address) {
        return std::uint32_t{bytes[address]} << 24 | std::uint32_t{bytes[address + 1]} << 16 |
               std::uint32_t{bytes[address + 2]} << 8 | bytes[address + 3];
    }

    std::map<std::uint64_t, std::uint8_t> bytes;
    int writes = 0;
};

} // namespace kesta::gentl
