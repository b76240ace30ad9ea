#pragma once
// Finds where a camera keeps a feature: from the feature's node in the
// camera's GenApi XML, through the nodes that only pass a value on, to the
// register node and its address, length, byte order and bit field. This is
// not a GenApi engine: a value that a formula computes, a register whose
// address another node gives, or a node kind the tool does not know is
// refused with a message that says which node stopped the walk.
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kesta::gentl {

/// Where one feature lives in the camera's register space.
struct FeatureRegister {
    enum class Kind { Integer, Float, Boolean, Enumeration, Command };

    Kind kind = Kind::Integer;
    std::string feature;      ///< the name asked for
    std::string registerNode; ///< the register node the walk ended at
    std::uint64_t address = 0;
    std::uint32_t length = 4; ///< bytes
    bool bigEndian = false;   ///< the register's byte order
    bool isSigned = false;    ///< the register holds a signed integer
    bool isFloat = false;     ///< the register holds an IEEE float (FloatReg)
    bool readable = true;     ///< AccessMode RO, RW
    bool writable = true;     ///< AccessMode WO, RW
    /// Bit field of the register's value, counted from its least significant
    /// bit; the whole register when width is 0.
    std::uint32_t shift = 0;
    std::uint32_t width = 0;
    std::map<std::string, std::int64_t> entries; ///< Enumeration: entry name to value
    std::int64_t commandValue = 1;               ///< Command
    std::int64_t onValue = 1;                    ///< Boolean
    std::int64_t offValue = 0;                   ///< Boolean
};

class XmlFeatureResolver {
public:
    XmlFeatureResolver();
    ~XmlFeatureResolver();
    XmlFeatureResolver(const XmlFeatureResolver&) = delete;
    XmlFeatureResolver& operator=(const XmlFeatureResolver&) = delete;

    /// Parses the XML text (not zipped). False with the parser's reason.
    bool Load(const char* data, std::size_t size, std::string& error);

    /// True if the XML has a node of that name.
    bool Has(const std::string& name) const;

    /// Walks from the feature's node to its register. False with a message
    /// naming the node that ends the walk.
    bool Resolve(const std::string& feature, FeatureRegister& out, std::string& error) const;

private:
    struct Nodes;
    std::unique_ptr<Nodes> m_nodes;
};

} // namespace kesta::gentl
