#include "FeatureMap.h"

#include <cmath>
#include <cstring>

namespace kesta::gentl {

namespace {

const char* KindName(FeatureRegister::Kind kind) {
    switch (kind) {
    case FeatureRegister::Kind::Integer:
        return "an integer";
    case FeatureRegister::Kind::Float:
        return "a float";
    case FeatureRegister::Kind::Boolean:
        return "a boolean";
    case FeatureRegister::Kind::Enumeration:
        return "an enumeration";
    case FeatureRegister::Kind::Command:
        return "a command";
    case FeatureRegister::Kind::String:
        return "a string";
    }
    return "?";
}

std::uint64_t Mask(std::uint32_t bits) {
    return bits >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
}

/// Sign-extends the low `bits` bits of value.
std::int64_t SignExtend(std::uint64_t value, std::uint32_t bits) {
    if (bits >= 64) {
        return static_cast<std::int64_t>(value);
    }
    const std::uint64_t sign = std::uint64_t{1} << (bits - 1);
    return static_cast<std::int64_t>((value ^ sign) - sign);
}

} // namespace

bool FeatureMap::Resolve(const std::string& name, FeatureRegister::Kind kind, FeatureRegister& reg,
                         std::string& error) const {
    if (!m_resolver.Resolve(name, reg, error)) {
        return false;
    }
    // Integer and float features may stand on each other's registers; the
    // other kinds must be what the caller asks for.
    const bool numeric =
        (kind == FeatureRegister::Kind::Integer || kind == FeatureRegister::Kind::Float) &&
        (reg.kind == FeatureRegister::Kind::Integer || reg.kind == FeatureRegister::Kind::Float);
    if (reg.kind != kind && !numeric) {
        error = "feature " + name + " is " + KindName(reg.kind) + ", not " + KindName(kind);
        return false;
    }
    return true;
}

bool FeatureMap::ReadRaw(const FeatureRegister& reg, std::uint64_t& raw, std::string& error) {
    if (!reg.readable) {
        error = "feature " + reg.feature + " is write-only";
        return false;
    }
    unsigned char bytes[8] = {};
    if (!m_access.Read(reg.address, bytes, reg.length, error)) {
        return false;
    }
    raw = 0;
    for (std::uint32_t i = 0; i < reg.length; ++i) {
        const std::uint32_t at = reg.bigEndian ? i : reg.length - 1 - i;
        raw = raw << 8 | bytes[at];
    }
    return true;
}

bool FeatureMap::WriteRaw(const FeatureRegister& reg, std::uint64_t raw, std::string& error) {
    if (!reg.writable) {
        error = "feature " + reg.feature + " is read-only";
        return false;
    }
    unsigned char bytes[8] = {};
    for (std::uint32_t i = 0; i < reg.length; ++i) {
        const std::uint32_t at = reg.bigEndian ? reg.length - 1 - i : i;
        bytes[at] = static_cast<unsigned char>(raw >> (8 * i));
    }
    return m_access.Write(reg.address, bytes, reg.length, error);
}

bool FeatureMap::ReadNumber(const FeatureRegister& reg, std::int64_t& value, std::string& error) {
    if (reg.constant) {
        value = reg.constantValue;
        return true;
    }
    std::uint64_t raw = 0;
    if (!ReadRaw(reg, raw, error)) {
        return false;
    }
    const std::uint32_t bits = reg.width != 0 ? reg.width : 8 * reg.length;
    const std::uint64_t field = (raw >> reg.shift) & Mask(bits);
    value = reg.isSigned ? SignExtend(field, bits) : static_cast<std::int64_t>(field);
    return true;
}

bool FeatureMap::WriteNumber(const FeatureRegister& reg, std::int64_t value, std::string& error) {
    const std::uint32_t bits = reg.width != 0 ? reg.width : 8 * reg.length;
    const bool fits = reg.isSigned ? bits >= 64 || (value >= -(std::int64_t{1} << (bits - 1)) &&
                                                    value < (std::int64_t{1} << (bits - 1)))
                                   : value >= 0 && static_cast<std::uint64_t>(value) <= Mask(bits);
    if (!fits) {
        error = "feature " + reg.feature + ": " + std::to_string(value) + " does not fit in " +
                std::to_string(bits) + " bits";
        return false;
    }
    std::uint64_t raw = 0;
    if (reg.width != 0) {
        // A bit field shares its register: keep the other bits as they are.
        if (!ReadRaw(reg, raw, error)) {
            return false;
        }
        raw &= ~(Mask(bits) << reg.shift);
    }
    raw |= (static_cast<std::uint64_t>(value) & Mask(bits)) << reg.shift;
    return WriteRaw(reg, raw, error);
}

bool FeatureMap::GetInteger(const std::string& name, std::int64_t& value, std::string& error) {
    FeatureRegister reg;
    if (!Resolve(name, FeatureRegister::Kind::Integer, reg, error)) {
        return false;
    }
    if (reg.isFloat) {
        double f = 0;
        if (!GetFloat(name, f, error)) {
            return false;
        }
        value = static_cast<std::int64_t>(std::llround(f));
        return true;
    }
    return ReadNumber(reg, value, error);
}

bool FeatureMap::SetInteger(const std::string& name, std::int64_t value, std::string& error) {
    FeatureRegister reg;
    if (!Resolve(name, FeatureRegister::Kind::Integer, reg, error)) {
        return false;
    }
    if (reg.isFloat) {
        return SetFloat(name, static_cast<double>(value), error);
    }
    return WriteNumber(reg, value, error);
}

bool FeatureMap::GetFloat(const std::string& name, double& value, std::string& error) {
    FeatureRegister reg;
    if (!Resolve(name, FeatureRegister::Kind::Float, reg, error)) {
        return false;
    }
    if (!reg.isFloat) {
        std::int64_t n = 0;
        if (!ReadNumber(reg, n, error)) {
            return false;
        }
        value = static_cast<double>(n);
        return true;
    }
    std::uint64_t raw = 0;
    if (!ReadRaw(reg, raw, error)) {
        return false;
    }
    if (reg.length == 4) {
        const std::uint32_t bits = static_cast<std::uint32_t>(raw);
        float f = 0;
        std::memcpy(&f, &bits, sizeof f);
        value = f;
    } else if (reg.length == 8) {
        std::memcpy(&value, &raw, sizeof value);
    } else {
        error =
            "feature " + name + ": a float register of " + std::to_string(reg.length) + " bytes";
        return false;
    }
    return true;
}

bool FeatureMap::SetFloat(const std::string& name, double value, std::string& error) {
    FeatureRegister reg;
    if (!Resolve(name, FeatureRegister::Kind::Float, reg, error)) {
        return false;
    }
    if (!reg.isFloat) {
        return WriteNumber(reg, static_cast<std::int64_t>(std::llround(value)), error);
    }
    std::uint64_t raw = 0;
    if (reg.length == 4) {
        const float f = static_cast<float>(value);
        std::uint32_t bits = 0;
        std::memcpy(&bits, &f, sizeof bits);
        raw = bits;
    } else if (reg.length == 8) {
        std::memcpy(&raw, &value, sizeof raw);
    } else {
        error =
            "feature " + name + ": a float register of " + std::to_string(reg.length) + " bytes";
        return false;
    }
    return WriteRaw(reg, raw, error);
}

bool FeatureMap::SetBoolean(const std::string& name, bool value, std::string& error) {
    FeatureRegister reg;
    if (!Resolve(name, FeatureRegister::Kind::Boolean, reg, error)) {
        return false;
    }
    return WriteNumber(reg, value ? reg.onValue : reg.offValue, error);
}

bool FeatureMap::GetBoolean(const std::string& name, bool& value, std::string& error) {
    FeatureRegister reg;
    std::int64_t number = 0;
    if (!Resolve(name, FeatureRegister::Kind::Boolean, reg, error) ||
        !ReadNumber(reg, number, error)) {
        return false;
    }
    value = number == reg.onValue;
    return true;
}

bool FeatureMap::SetEnumeration(const std::string& name, const std::string& entry,
                                std::string& error) {
    FeatureRegister reg;
    if (!Resolve(name, FeatureRegister::Kind::Enumeration, reg, error)) {
        return false;
    }
    const auto it = reg.entries.find(entry);
    if (it == reg.entries.end()) {
        error = "feature " + name + " has no entry " + entry + "; it has:";
        for (const auto& [entryName, value] : reg.entries) {
            error += " " + entryName;
        }
        return false;
    }
    return WriteNumber(reg, it->second, error);
}

bool FeatureMap::GetEnumeration(const std::string& name, std::string& entry, std::string& error) {
    FeatureRegister reg;
    std::int64_t value = 0;
    if (!Resolve(name, FeatureRegister::Kind::Enumeration, reg, error) ||
        !ReadNumber(reg, value, error)) {
        return false;
    }
    for (const auto& [entryName, entryValue] : reg.entries) {
        if (entryValue == value) {
            entry = entryName;
            return true;
        }
    }
    error = "feature " + name + " holds " + std::to_string(value) + ", which no entry names";
    return false;
}

bool FeatureMap::Execute(const std::string& name, std::string& error) {
    FeatureRegister reg;
    if (!Resolve(name, FeatureRegister::Kind::Command, reg, error)) {
        return false;
    }
    return WriteNumber(reg, reg.commandValue, error);
}

bool FeatureMap::GetString(const std::string& name, std::string& value, std::string& error) {
    FeatureRegister reg;
    if (!Resolve(name, FeatureRegister::Kind::String, reg, error)) {
        return false;
    }
    if (!reg.readable) {
        error = "feature " + name + " is write-only";
        return false;
    }
    std::string bytes(reg.length, '\0');
    if (!m_access.Read(reg.address, bytes.data(), bytes.size(), error)) {
        return false;
    }
    value = bytes.c_str();
    return true;
}

} // namespace kesta::gentl
