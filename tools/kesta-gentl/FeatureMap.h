#pragma once
// Camera features by name: the resolver says where each lives, and the
// values go through a register access (the camera's remote port in the tool,
// memory in the tests), encoded as the register wants them: its length and
// byte order, its bit field (read, changed, written back), IEEE floats in 4
// or 8 bytes.
#include <cstdint>
#include <string>

#include "XmlFeatureResolver.h"

namespace kesta::gentl {

/// Bytes at addresses of the camera. False with the reason in error.
class RegisterAccess {
public:
    virtual ~RegisterAccess() = default;
    virtual bool Read(std::uint64_t address, void* data, std::size_t size, std::string& error) = 0;
    virtual bool Write(std::uint64_t address, const void* data, std::size_t size,
                       std::string& error) = 0;
};

class FeatureMap {
public:
    FeatureMap(const XmlFeatureResolver& resolver, RegisterAccess& access)
        : m_resolver(resolver), m_access(access) {}

    bool Has(const std::string& name) const { return m_resolver.Has(name); }

    bool GetInteger(const std::string& name, std::int64_t& value, std::string& error);
    bool SetInteger(const std::string& name, std::int64_t value, std::string& error);
    bool GetFloat(const std::string& name, double& value, std::string& error);
    bool SetFloat(const std::string& name, double value, std::string& error);
    bool SetBoolean(const std::string& name, bool value, std::string& error);
    /// True when the register holds the feature's OnValue.
    bool GetBoolean(const std::string& name, bool& value, std::string& error);
    /// Writes the value of the enumeration entry of that name.
    bool SetEnumeration(const std::string& name, const std::string& entry, std::string& error);
    /// The name of the entry whose value the register holds.
    bool GetEnumeration(const std::string& name, std::string& entry, std::string& error);
    /// Writes the command's value.
    bool Execute(const std::string& name, std::string& error);
    /// A string register's text, up to its first zero byte.
    bool GetString(const std::string& name, std::string& value, std::string& error);

private:
    bool Resolve(const std::string& name, FeatureRegister::Kind kind, FeatureRegister& reg,
                 std::string& error) const;
    /// The register's whole value (bit field not applied), as the unsigned
    /// number its bytes stand for.
    bool ReadRaw(const FeatureRegister& reg, std::uint64_t& raw, std::string& error);
    bool WriteRaw(const FeatureRegister& reg, std::uint64_t raw, std::string& error);
    bool ReadNumber(const FeatureRegister& reg, std::int64_t& value, std::string& error);
    bool WriteNumber(const FeatureRegister& reg, std::int64_t value, std::string& error);

    const XmlFeatureResolver& m_resolver;
    RegisterAccess& m_access;
};

} // namespace kesta::gentl
