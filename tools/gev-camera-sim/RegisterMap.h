// The camera's address space: 32-bit registers and byte areas (strings, the
// XML file), each with its access rights. It stores bytes only; what a write
// means is the Camera's business.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace gevsim {

class RegisterMap {
public:
    enum class Access { ReadOnly, ReadWrite, WriteOnly };

    void addRegister(uint32_t address, uint32_t value, Access access);
    void addMemory(uint32_t address, size_t size, Access access);
    void addString(uint32_t address, size_t size, const std::string& text, Access access);

    // Protocol access: a GVCP status code, 0 on success.
    uint16_t read(uint32_t address, uint8_t* dst, size_t length) const;
    uint16_t checkWrite(uint32_t address, size_t length) const;
    bool isRegister(uint32_t address) const;

    // Camera-side access without rights checks.
    uint32_t get(uint32_t address) const;
    void set(uint32_t address, uint32_t value);
    void setBytes(uint32_t address, const uint8_t* src, size_t length);
    void setString(uint32_t address, const std::string& text);

private:
    struct Area {
        std::vector<uint8_t> bytes;
        Access access;
        bool isRegister;
    };
    // The area holding address, and the offset into it; null if none.
    const Area* find(uint32_t address, size_t& offset) const;
    Area* find(uint32_t address, size_t& offset);

    std::map<uint32_t, Area> m_areas;
    mutable std::mutex m_mutex;
};

} // namespace gevsim
