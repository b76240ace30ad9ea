#include "XmlFeatureResolver.h"

#include <pugixml.hpp>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace kesta::gentl {

namespace {

/// Longest chain of value-passing nodes followed before giving up (a loop).
constexpr int kMaxHops = 16;
/// Longest string register read.
constexpr std::int64_t kMaxStringLength = 64 * 1024;

std::string Trim(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) {
        return "";
    }
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

std::string ChildText(pugi::xml_node node, const char* name) {
    return Trim(node.child(name).text().as_string());
}

/// A number as GenApi writes it: decimal, or 0x hexadecimal, signed.
bool ParseInteger(const std::string& text, std::int64_t& value) {
    if (text.empty()) {
        return false;
    }
    errno = 0;
    char* end = nullptr;
    const bool negative = text[0] == '-';
    const std::string digits = negative || text[0] == '+' ? text.substr(1) : text;
    const unsigned long long v = std::strtoull(digits.c_str(), &end, 0);
    if (errno != 0 || end == digits.c_str() || *end != '\0' || digits[0] == '-') {
        return false;
    }
    value = negative ? -static_cast<std::int64_t>(v) : static_cast<std::int64_t>(v);
    return true;
}

bool IsRegister(const std::string& kind) {
    return kind == "IntReg" || kind == "MaskedIntReg" || kind == "FloatReg" ||
           kind == "StructEntry" || kind == "StringReg";
}

} // namespace

struct XmlFeatureResolver::Nodes {
    pugi::xml_document document;
    std::map<std::string, pugi::xml_node> byName;

    void Index(pugi::xml_node parent) {
        for (pugi::xml_node node : parent.children()) {
            if (node.type() != pugi::node_element) {
                continue;
            }
            const std::string kind = node.name();
            if (kind == "Group") { // a grouping of nodes, no node itself
                Index(node);
                continue;
            }
            if (const char* name = node.attribute("Name").as_string(nullptr)) {
                byName.emplace(name, node);
            }
            if (kind == "StructReg") { // its entries are nodes of their own
                for (pugi::xml_node entry : node.children("StructEntry")) {
                    if (const char* name = entry.attribute("Name").as_string(nullptr)) {
                        byName.emplace(name, entry);
                    }
                }
            }
        }
    }
};

XmlFeatureResolver::XmlFeatureResolver() : m_nodes(std::make_unique<Nodes>()) {}
XmlFeatureResolver::~XmlFeatureResolver() = default;

bool XmlFeatureResolver::Load(const char* data, std::size_t size, std::string& error) {
    auto nodes = std::make_unique<Nodes>();
    const pugi::xml_parse_result result = nodes->document.load_buffer(data, size);
    if (!result) {
        error = std::string("the camera's XML does not parse: ") + result.description() +
                " at byte " + std::to_string(result.offset);
        return false;
    }
    const pugi::xml_node root = nodes->document.child("RegisterDescription");
    if (!root) {
        error = "the camera's XML has no RegisterDescription";
        return false;
    }
    nodes->Index(root);
    m_nodes = std::move(nodes);
    return true;
}

bool XmlFeatureResolver::Has(const std::string& name) const {
    return m_nodes->byName.count(name) != 0;
}

bool XmlFeatureResolver::Resolve(const std::string& feature, FeatureRegister& out,
                                 std::string& error) const {
    FeatureRegister found;
    found.feature = feature;
    bool kindKnown = false;
    std::string name = feature;
    const auto fail = [&](const std::string& why) {
        error = "feature " + feature + ": " + why;
        return false;
    };

    for (int hop = 0; hop < kMaxHops; ++hop) {
        const auto it = m_nodes->byName.find(name);
        if (it == m_nodes->byName.end()) {
            return fail(name == feature ? "the camera's XML has no such node"
                                        : "node " + name + " is named but not described");
        }
        const pugi::xml_node node = it->second;
        const std::string kind = node.name();
        const std::string where = kind + " " + name;

        if (IsRegister(kind)) {
            // A StructEntry takes address, length and byte order from its StructReg.
            const pugi::xml_node reg = kind == "StructEntry" ? node.parent() : node;
            if (reg.child("pAddress") || reg.child("IntSwissKnife") || reg.child("pIndex") ||
                node.child("pIndex")) {
                return fail(where + " takes its address from another node, which needs a "
                                    "GenApi engine");
            }
            std::uint64_t address = 0;
            bool anyAddress = false;
            for (pugi::xml_node a : reg.children("Address")) {
                std::int64_t part = 0;
                if (!ParseInteger(Trim(a.text().as_string()), part)) {
                    return fail(where + " has an unreadable Address");
                }
                address += static_cast<std::uint64_t>(part); // several Address elements add up
                anyAddress = true;
            }
            const bool text = kind == "StringReg";
            const std::int64_t longest = text ? kMaxStringLength : 8;
            std::int64_t length = 0;
            if (!anyAddress || !ParseInteger(ChildText(reg, "Length"), length) || length < 1 ||
                length > longest) {
                return fail(where + " has no address or a length outside 1 to " +
                            std::to_string(longest) + " bytes");
            }
            found.registerNode = name;
            found.address = address;
            found.length = static_cast<std::uint32_t>(length);
            found.bigEndian = ChildText(reg, "Endianess") == "BigEndian";
            std::string sign = ChildText(node, "Sign");
            if (sign.empty()) {
                sign = ChildText(reg, "Sign");
            }
            found.isSigned = sign == "Signed";
            found.isFloat = kind == "FloatReg";
            std::string access = ChildText(node, "AccessMode");
            if (access.empty()) {
                access = ChildText(reg, "AccessMode");
            }
            if (access.empty()) {
                access = "RO";
            }
            found.readable = access != "WO";
            found.writable = access != "RO";
            if (kind == "MaskedIntReg" || kind == "StructEntry") {
                std::int64_t lsb = 0;
                std::int64_t msb = 0;
                if (ParseInteger(ChildText(node, "Bit"), lsb)) {
                    msb = lsb;
                } else if (!ParseInteger(ChildText(node, "LSB"), lsb) ||
                           !ParseInteger(ChildText(node, "MSB"), msb)) {
                    return fail(where + " has neither Bit nor LSB and MSB");
                }
                const std::int64_t bits = 8 * length;
                if (lsb < 0 || msb < 0 || lsb >= bits || msb >= bits) {
                    return fail(where + " names bits outside its register");
                }
                // Big-endian registers count bit 0 from the most significant end.
                const std::int64_t low = found.bigEndian ? bits - 1 - lsb : lsb;
                const std::int64_t high = found.bigEndian ? bits - 1 - msb : msb;
                if (high < low) {
                    return fail(where + " has LSB and MSB the wrong way round");
                }
                found.shift = static_cast<std::uint32_t>(low);
                found.width = static_cast<std::uint32_t>(high - low + 1);
            }
            if (text) {
                found.kind = FeatureRegister::Kind::String;
            } else if (!kindKnown) {
                found.kind =
                    found.isFloat ? FeatureRegister::Kind::Float : FeatureRegister::Kind::Integer;
            }
            if (found.representation.empty()) {
                found.representation = ChildText(node, "Representation");
            }
            out = found;
            return true;
        }

        std::string next;
        if (kind == "Integer" || kind == "Float" || kind == "Boolean" || kind == "Enumeration" ||
            kind == "Command") {
            if (!kindKnown) {
                kindKnown = true;
                if (kind == "Integer") {
                    found.kind = FeatureRegister::Kind::Integer;
                } else if (kind == "Float") {
                    found.kind = FeatureRegister::Kind::Float;
                } else if (kind == "Boolean") {
                    found.kind = FeatureRegister::Kind::Boolean;
                    ParseInteger(ChildText(node, "OnValue"), found.onValue);
                    ParseInteger(ChildText(node, "OffValue"), found.offValue);
                } else if (kind == "Enumeration") {
                    found.kind = FeatureRegister::Kind::Enumeration;
                    for (pugi::xml_node entry : node.children("EnumEntry")) {
                        std::int64_t value = 0;
                        std::string symbolic = ChildText(entry, "Symbolic");
                        if (symbolic.empty()) {
                            symbolic = entry.attribute("Name").as_string();
                        }
                        if (ParseInteger(ChildText(entry, "Value"), value)) {
                            found.entries[symbolic] = value;
                        }
                    }
                } else {
                    found.kind = FeatureRegister::Kind::Command;
                    if (node.child("pCommandValue")) {
                        return fail(where + " takes its command value from another node");
                    }
                    if (node.child("CommandValue") &&
                        !ParseInteger(ChildText(node, "CommandValue"), found.commandValue)) {
                        return fail(where + " has an unreadable CommandValue");
                    }
                }
            }
            if (found.representation.empty()) {
                found.representation = ChildText(node, "Representation");
            }
            next = ChildText(node, "pValue");
            if (next.empty() && node.child("Value") && kind != "Float" && kind != "Command") {
                if (!ParseInteger(ChildText(node, "Value"), found.constantValue)) {
                    return fail(where + " has an unreadable Value");
                }
                found.constant = true;
                found.writable = false;
                out = found;
                return true;
            }
            if (next.empty()) {
                return fail(where + (node.child("Value") ? " is a constant, not a register"
                                                         : " has no pValue"));
            }
        } else if (kind == "Converter" || kind == "IntConverter") {
            // Only a converter that passes the value through unchanged is followed.
            if (ChildText(node, "FormulaTo") != "FROM" || ChildText(node, "FormulaFrom") != "TO") {
                return fail(where + " converts with a formula, which needs a GenApi engine");
            }
            next = ChildText(node, "pValue");
        } else if (kind == "IntSwissKnife" || kind == "SwissKnife") {
            // Followed only when the formula is one variable standing alone.
            const pugi::xml_node variable = node.child("pVariable");
            if (!variable || variable.next_sibling("pVariable") ||
                ChildText(node, "Formula") != variable.attribute("Name").as_string()) {
                return fail(where + " computes its value with a formula, which needs a GenApi "
                                    "engine");
            }
            next = Trim(variable.text().as_string());
        } else {
            return fail(where + " is a node kind this tool does not follow");
        }
        if (next.empty()) {
            return fail(where + " names no next node");
        }
        name = next;
    }
    return fail("more than " + std::to_string(kMaxHops) +
                " nodes from feature to register (a loop?)");
}

bool XmlFeatureResolver::Describe(const std::string& name, FeatureNode& out) const {
    const auto it = m_nodes->byName.find(name);
    if (it == m_nodes->byName.end()) {
        return false;
    }
    const pugi::xml_node node = it->second;
    const auto texts = [&](const char* child) {
        std::vector<std::string> list;
        for (pugi::xml_node n : node.children(child)) {
            list.push_back(Trim(n.text().as_string()));
        }
        return list;
    };
    out = FeatureNode{};
    out.kind = node.name();
    out.features = texts("pFeature");
    out.selected = texts("pSelected");
    out.isImplemented = ChildText(node, "pIsImplemented");
    out.isAvailable = ChildText(node, "pIsAvailable");
    out.min = node.child("pMin") ? ChildText(node, "pMin") : ChildText(node, "Min");
    out.max = node.child("pMax") ? ChildText(node, "pMax") : ChildText(node, "Max");
    return true;
}

} // namespace kesta::gentl
