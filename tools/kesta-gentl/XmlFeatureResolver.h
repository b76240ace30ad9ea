#pragma once
// Finds where a camera (or a producer's module) keeps a feature: from the
// feature's node in the GenApi XML, through the nodes that only pass a value
// on, to the register node and its address, length, byte order and bit
// field, or to the constant the node holds. This is not a GenApi engine: a
// value that a formula computes, a register whose address another node
// gives, or a node kind the tool does not know is refused with a message
// that says which node stopped the walk.
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kesta::gentl {

/// Where one feature lives in the camera's register space.
struct FeatureRegister {
    enum class Kind { Integer, Float, Boolean, Enumeration, Command, String };

    Kind kind = Kind::Integer;
    std::string feature;      ///< the name asked for
    std::string registerNode; ///< the register node the walk ended at
    std::uint64_t address = 0;
    std::uint32_t length = 4; ///< bytes (up to 8, a StringReg's up to 64 KiB)
    bool bigEndian = false;   ///< the register's byte order
    bool isSigned = false;    ///< the register holds a signed integer
    bool isFloat = false;     ///< the register holds an IEEE float (FloatReg)
    bool readable = true;     ///< AccessMode RO, RW
    bool writable = true;     ///< AccessMode WO, RW
    /// Bit field of the register's value, counted from its least significant
    /// bit; the whole register when width is 0.
    std::uint32_t shift = 0;
    std::uint32_t width = 0;
    /// Enumeration: entry to value, by the entry's Symbolic (else its name).
    std::map<std::string, std::int64_t> entries;
    std::int64_t commandValue = 1; ///< Command
    std::int64_t onValue = 1;      ///< Boolean
    std::int64_t offValue = 0;     ///< Boolean
    /// The node holds its value itself (a Value element): no register.
    bool constant = false;
    std::int64_t constantValue = 0;
    /// The first Representation on the way (IPV4Address, MACAddress, ...).
    std::string representation;
};

/// What a feature browser needs of a node besides its value.
struct FeatureNode {
    std::string kind;                  ///< element name: Category, Integer, StringReg, ...
    std::vector<std::string> features; ///< Category: its pFeature, in order
    std::vector<std::string> selected; ///< pSelected, in order
    std::string isImplemented;         ///< pIsImplemented node, or empty
    std::string isAvailable;           ///< pIsAvailable node, or empty
    /// Integer: the bounds, each a number or the name of the node that has it.
    std::string min;
    std::string max;
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

    /// The node's kind, category members, selected features, availability
    /// nodes and bounds. False if there is no such node.
    bool Describe(const std::string& name, FeatureNode& out) const;

private:
    struct Nodes;
    std::unique_ptr<Nodes> m_nodes;
};

} // namespace kesta::gentl
