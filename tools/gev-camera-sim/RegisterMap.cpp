#include "RegisterMap.h"

#include "GevConstants.h"
#include "Wire.h"

#include <algorithm>
#include <cstring>

namespace gevsim {

void RegisterMap::addRegister(uint32_t address, uint32_t value, Access access) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Area a{std::vector<uint8_t>(4), access, true};
    put32(a.bytes, 0, value);
    m_areas[address] = std::move(a);
}

void RegisterMap::addMemory(uint32_t address, size_t size, Access access) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_areas[address] = Area{std::vector<uint8_t>(size), access, false};
}

void RegisterMap::addString(uint32_t address, size_t size, const std::string& text, Access access) {
    addMemory(address, size, access);
    setString(address, text);
}

const RegisterMap::Area* RegisterMap::find(uint32_t address, size_t& offset) const {
    auto it = m_areas.upper_bound(address);
    if (it == m_areas.begin())
        return nullptr;
    --it;
    offset = address - it->first;
    if (offset >= it->second.bytes.size())
        return nullptr;
    return &it->second;
}

RegisterMap::Area* RegisterMap::find(uint32_t address, size_t& offset) {
    return const_cast<Area*>(static_cast<const RegisterMap*>(this)->find(address, offset));
}

uint16_t RegisterMap::read(uint32_t address, uint8_t* dst, size_t length) const {
    if (address % 4 != 0)
        return status::kBadAlignment;
    std::lock_guard<std::mutex> lock(m_mutex);
    // A read may run over several adjacent areas, but not over a gap.
    size_t done = 0;
    while (done < length) {
        const uint64_t at = static_cast<uint64_t>(address) + done;
        if (at > 0xFFFFFFFFull)
            return status::kInvalidAddress;
        size_t offset = 0;
        const Area* a = find(static_cast<uint32_t>(at), offset);
        if (!a)
            return status::kInvalidAddress;
        const size_t n = std::min(length - done, a->bytes.size() - offset);
        if (a->access == Access::WriteOnly)
            std::memset(dst + done, 0, n);
        else
            std::memcpy(dst + done, a->bytes.data() + offset, n);
        done += n;
    }
    return status::kSuccess;
}

uint16_t RegisterMap::checkWrite(uint32_t address, size_t length) const {
    if (address % 4 != 0)
        return status::kBadAlignment;
    std::lock_guard<std::mutex> lock(m_mutex);
    size_t done = 0;
    while (done < length) {
        const uint64_t at = static_cast<uint64_t>(address) + done;
        if (at > 0xFFFFFFFFull)
            return status::kInvalidAddress;
        size_t offset = 0;
        const Area* a = find(static_cast<uint32_t>(at), offset);
        if (!a)
            return status::kInvalidAddress;
        if (a->access == Access::ReadOnly)
            return status::kWriteProtect;
        done += std::min(length - done, a->bytes.size() - offset);
    }
    return status::kSuccess;
}

bool RegisterMap::isRegister(uint32_t address) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    size_t offset = 0;
    const Area* a = find(address, offset);
    return a && a->isRegister && offset == 0;
}

uint32_t RegisterMap::get(uint32_t address) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    size_t offset = 0;
    const Area* a = find(address, offset);
    if (!a)
        return 0;
    return get32(a->bytes.data(), a->bytes.size(), offset);
}

void RegisterMap::set(uint32_t address, uint32_t value) {
    uint8_t b[4] = {static_cast<uint8_t>(value >> 24), static_cast<uint8_t>(value >> 16),
                    static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
    setBytes(address, b, 4);
}

void RegisterMap::setBytes(uint32_t address, const uint8_t* src, size_t length) {
    std::lock_guard<std::mutex> lock(m_mutex);
    size_t done = 0;
    while (done < length) {
        size_t offset = 0;
        Area* a = find(static_cast<uint32_t>(address + done), offset);
        if (!a)
            return;
        const size_t n = std::min(length - done, a->bytes.size() - offset);
        std::memcpy(a->bytes.data() + offset, src + done, n);
        done += n;
    }
}

void RegisterMap::setString(uint32_t address, const std::string& text) {
    std::lock_guard<std::mutex> lock(m_mutex);
    size_t offset = 0;
    Area* a = find(address, offset);
    if (!a)
        return;
    // Always leave a terminating zero inside the area.
    std::fill(a->bytes.begin() + offset, a->bytes.end(), 0);
    const size_t room = a->bytes.size() - offset;
    const size_t n = std::min(text.size(), room > 0 ? room - 1 : 0);
    std::memcpy(a->bytes.data() + offset, text.data(), n);
}

} // namespace gevsim
