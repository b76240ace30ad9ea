#pragma once
// A GenApi node map over one of the producer's ports, run by Aravis's GenApi
// engine (ArvGc): every register access of the engine becomes a GCReadPort or
// GCWritePort on that port, so formulas, converters, selectors and
// availability are evaluated as any GenApi consumer evaluates them. It serves
// the camera's port (DevGetPort) and the producer's own modules (system,
// interface, device and stream handles) alike. The description is the one the
// port's URL names; a zip archive is unpacked first.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Producer.h"

struct _ArvGc;

namespace kesta::gentl {

class NodeMap {
public:
    NodeMap(Producer& producer, PORT_HANDLE port);
    ~NodeMap();
    NodeMap(const NodeMap&) = delete;
    NodeMap& operator=(const NodeMap&) = delete;

    /// Reads the description that the port's URL names and builds the node
    /// map. False with the reason printed to stderr.
    bool Load();
    /// Builds the node map from a description at hand (a file's bytes, a zip
    /// archive or XML). False with the reason in error.
    bool Load(const std::vector<char>& description, std::string& error);

    /// The URL the description came from (empty when given by Load(bytes)).
    const std::string& Url() const { return m_url; }
    /// The engine's document, for a walk over the nodes.
    _ArvGc* Engine() const { return m_gc; }

    bool Has(const std::string& name) const;
    bool GetInteger(const std::string& name, std::int64_t& value, std::string& error);
    bool SetInteger(const std::string& name, std::int64_t value, std::string& error);
    bool GetFloat(const std::string& name, double& value, std::string& error);
    bool SetFloat(const std::string& name, double value, std::string& error);
    bool SetBoolean(const std::string& name, bool value, std::string& error);
    /// An enumeration's entry (its symbolic name), or a string feature's text.
    bool GetString(const std::string& name, std::string& value, std::string& error);
    bool Execute(const std::string& name, std::string& error);
    /**
     * Sets a feature from text as its kind reads it: an enumeration's entry
     * name (a missing one is named with the entries there are), an integer
     * (decimal or 0x), a float, a boolean (on/off, true/false, 1/0), a string;
     * a command is executed whatever the text.
     */
    bool SetFromText(const std::string& name, const std::string& text, std::string& error);

    /// Stands for the engine's device: the port's reads and writes.
    struct Port;

private:
    bool Build(const std::string& xml, std::string& error);

    std::unique_ptr<Port> m_port;
    std::string m_url;
    std::string m_xml;
    void* m_device = nullptr; ///< the engine's device object over m_port
    _ArvGc* m_gc = nullptr;
};

/**
 * An enumeration entry by its symbolic name: the node's name without the
 * "EnumEntry_<enumeration>_" prefix that descriptions give their entries
 * (the engine keeps no Symbolic element), or the node's name as it is.
 */
std::string Symbolic(const std::string& enumeration, const std::string& entry);

/**
 * The GenApi XML in a description: the description itself, or the first
 * .xml file of a zip archive (told by its signature, not its name). False
 * with the reason in error.
 */
bool UnpackDescription(const std::vector<char>& description, std::string& xml, std::string& error);

/// NAME=VALUE[,NAME=VALUE...] in order; false for an empty name or a
/// missing '='.
bool ParseAssignments(const std::string& text,
                      std::vector<std::pair<std::string, std::string>>& assignments);

} // namespace kesta::gentl
