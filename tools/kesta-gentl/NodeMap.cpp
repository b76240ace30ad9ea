#include "NodeMap.h"

#include <arv.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <sstream>

#include "CameraXml.h"
#include "Options.h"

namespace kesta::gentl {

struct NodeMap::Port {
    Producer& producer;
    PORT_HANDLE handle;
    const std::string* xml;
    ArvGc* gc = nullptr;

    /// The failed call and the library's error stack, as a GError.
    gboolean Fail(const char* what, guint64 address, guint32 size, GC_ERROR code, GError** error) {
        char call[80];
        std::snprintf(call, sizeof call, "%s(0x%llX, %u bytes)", what,
                      static_cast<unsigned long long>(address), size);
        std::ostringstream text;
        producer.Report(text, call, code);
        std::string message = text.str();
        while (!message.empty() && message.back() == '\n') {
            message.pop_back();
        }
        g_set_error_literal(error, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_TRANSFER_ERROR,
                            message.c_str());
        return FALSE;
    }
    gboolean Read(guint64 address, guint32 size, void* buffer, GError** error) {
        size_t done = size;
        const GC_ERROR rc = producer.GCReadPort(handle, address, buffer, &done);
        return rc == GC_ERR_SUCCESS ? TRUE : Fail("GCReadPort", address, size, rc, error);
    }
    gboolean Write(guint64 address, guint32 size, const void* buffer, GError** error) {
        size_t done = size;
        const GC_ERROR rc = producer.GCWritePort(handle, address, buffer, &done);
        return rc == GC_ERR_SUCCESS ? TRUE : Fail("GCWritePort", address, size, rc, error);
    }
};

namespace {

// The engine's device class, derived from ArvDevice: memory and register
// accesses go to the port, and the engine and its XML are the node map's.
struct PortDevice {
    ArvDevice parent;
    NodeMap::Port* port;
};

NodeMap::Port& PortOf(ArvDevice* device) {
    return *reinterpret_cast<PortDevice*>(device)->port;
}

gboolean ReadMemory(ArvDevice* device, guint64 address, guint32 size, void* buffer,
                    GError** error) {
    return PortOf(device).Read(address, size, buffer, error);
}

gboolean WriteMemory(ArvDevice* device, guint64 address, guint32 size, void* buffer,
                     GError** error) {
    return PortOf(device).Write(address, size, buffer, error);
}

// Single registers (the engine's way for 4-byte registers of descriptions
// older than schema 1.1) are big-endian, as a GigE Vision camera keeps them.
gboolean ReadRegister(ArvDevice* device, guint64 address, guint32* value, GError** error) {
    guint32 raw = 0;
    if (!PortOf(device).Read(address, sizeof raw, &raw, error)) {
        return FALSE;
    }
    *value = GUINT32_FROM_BE(raw);
    return TRUE;
}

gboolean WriteRegister(ArvDevice* device, guint64 address, guint32 value, GError** error) {
    const guint32 raw = GUINT32_TO_BE(value);
    return PortOf(device).Write(address, sizeof raw, &raw, error);
}

const char* GetGenicamXml(ArvDevice* device, size_t* size) {
    const std::string& xml = *PortOf(device).xml;
    *size = xml.size();
    return xml.c_str();
}

ArvGc* GetGenicam(ArvDevice* device) {
    return PortOf(device).gc;
}

void PortDeviceClassInit(gpointer klass, gpointer) {
    auto* device = static_cast<ArvDeviceClass*>(klass);
    device->read_memory = ReadMemory;
    device->write_memory = WriteMemory;
    device->read_register = ReadRegister;
    device->write_register = WriteRegister;
    device->get_genicam_xml = GetGenicamXml;
    device->get_genicam = GetGenicam;
}

GType PortDeviceType() {
    static const GType type = g_type_register_static_simple(
        ARV_TYPE_DEVICE, "KestaGenTLPortDevice", sizeof(ArvDeviceClass), PortDeviceClassInit,
        sizeof(PortDevice), nullptr, static_cast<GTypeFlags>(0));
    return type;
}

/// Takes the message of a GError (and frees it); true if there was none.
bool Take(GError* failure, std::string& error) {
    if (failure == nullptr) {
        return true;
    }
    error = failure->message;
    g_error_free(failure);
    return false;
}

bool EndsWithXml(const char* name) {
    std::string lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower.size() >= 4 && lower.compare(lower.size() - 4, 4, ".xml") == 0;
}

} // namespace

bool UnpackDescription(const std::vector<char>& description, std::string& xml, std::string& error) {
    static const char kZipSignature[] = {'P', 'K', 3, 4};
    if (description.size() < sizeof kZipSignature ||
        !std::equal(kZipSignature, kZipSignature + sizeof kZipSignature, description.begin())) {
        xml.assign(description.begin(), description.end());
        return true;
    }
    ArvZip* zip = arv_zip_new(description.data(), description.size());
    const char* name = nullptr;
    for (const GSList* f = arv_zip_get_file_list(zip); f != nullptr; f = f->next) {
        const char* candidate = arv_zip_file_get_name(static_cast<ArvZipFile*>(f->data));
        if (name == nullptr || (EndsWithXml(candidate) && !EndsWithXml(name))) {
            name = candidate;
        }
    }
    size_t size = 0;
    void* data = name == nullptr ? nullptr : arv_zip_get_file(zip, name, &size);
    if (data == nullptr) {
        error = name == nullptr ? "the description is a zip archive without files"
                                : std::string("cannot unpack ") + name + " from the description";
    } else {
        xml.assign(static_cast<const char*>(data), size);
        g_free(data);
    }
    arv_zip_free(zip);
    return data != nullptr;
}

std::string Symbolic(const std::string& enumeration, const std::string& entry) {
    const std::string prefix = "EnumEntry_" + enumeration + "_";
    return entry.size() > prefix.size() && entry.compare(0, prefix.size(), prefix) == 0
               ? entry.substr(prefix.size())
               : entry;
}

bool ParseAssignments(const std::string& text,
                      std::vector<std::pair<std::string, std::string>>& assignments) {
    for (std::size_t at = 0; !text.empty() && at != std::string::npos;) {
        const auto comma = text.find(',', at);
        const std::string pair = text.substr(at, comma == std::string::npos ? comma : comma - at);
        const auto equals = pair.find('=');
        if (equals == 0 || equals == std::string::npos) {
            return false;
        }
        assignments.emplace_back(pair.substr(0, equals), pair.substr(equals + 1));
        at = comma == std::string::npos ? comma : comma + 1;
    }
    return true;
}

NodeMap::NodeMap(Producer& producer, PORT_HANDLE port) : m_port(new Port{producer, port, &m_xml}) {}

NodeMap::~NodeMap() {
    // The document refers to its device: it goes first.
    if (m_gc != nullptr) {
        g_object_unref(m_gc);
    }
    if (m_device != nullptr) {
        g_object_unref(m_device);
    }
}

bool NodeMap::Load() {
    CameraXml description;
    if (!ReadCameraXml(m_port->producer, m_port->handle, description)) {
        return false;
    }
    m_url = description.url;
    std::string error;
    if (!Load(description.data, error)) {
        std::cerr << "the description of " << m_url << ": " << error << "\n";
        return false;
    }
    return true;
}

bool NodeMap::Load(const std::vector<char>& description, std::string& error) {
    std::string xml;
    return UnpackDescription(description, xml, error) && Build(xml, error);
}

bool NodeMap::Build(const std::string& xml, std::string& error) {
    if (m_gc != nullptr) {
        error = "the node map is built already";
        return false;
    }
    m_xml = xml;
    auto* device = static_cast<PortDevice*>(g_object_new(PortDeviceType(), nullptr));
    device->port = m_port.get();
    m_device = device;
    m_gc = arv_gc_new(ARV_DEVICE(device), m_xml.data(), m_xml.size());
    if (m_gc == nullptr || arv_gc_get_node(m_gc, "Root") == nullptr) {
        error = "not a GenApi description with a Root category";
        return false;
    }
    m_port->gc = m_gc;
    // Every value is read from the port when asked for, and a value out of
    // range or a write to a read-only feature is refused before the port.
    arv_gc_set_register_cache_policy(m_gc, ARV_REGISTER_CACHE_POLICY_DISABLE);
    arv_gc_set_range_check_policy(m_gc, ARV_RANGE_CHECK_POLICY_ENABLE);
    arv_gc_set_access_check_policy(m_gc, ARV_ACCESS_CHECK_POLICY_ENABLE);
    return true;
}

bool NodeMap::Has(const std::string& name) const {
    return m_gc != nullptr && ARV_IS_GC_FEATURE_NODE(arv_gc_get_node(m_gc, name.c_str()));
}

namespace {

/// The node of that name if it is of the kind asked for (checked by test).
template <typename Test>
ArvGcNode* Node(ArvGc* gc, const std::string& name, Test test, const char* kind,
                std::string& error) {
    ArvGcNode* node = gc == nullptr ? nullptr : arv_gc_get_node(gc, name.c_str());
    if (node == nullptr || !ARV_IS_GC_FEATURE_NODE(node)) {
        error = "no feature " + name;
        return nullptr;
    }
    if (!test(node)) {
        error = "feature " + name + " is not " + kind;
        return nullptr;
    }
    return node;
}

bool IsInteger(ArvGcNode* n) {
    return ARV_IS_GC_INTEGER(n);
}
bool IsFloat(ArvGcNode* n) {
    return ARV_IS_GC_FLOAT(n);
}
bool IsBoolean(ArvGcNode* n) {
    return ARV_IS_GC_BOOLEAN(n);
}
bool IsCommand(ArvGcNode* n) {
    return ARV_IS_GC_COMMAND(n);
}
bool IsText(ArvGcNode* n) {
    return ARV_IS_GC_ENUMERATION(n) || ARV_IS_GC_STRING(n);
}

} // namespace

bool NodeMap::GetInteger(const std::string& name, std::int64_t& value, std::string& error) {
    ArvGcNode* node = Node(m_gc, name, IsInteger, "an integer", error);
    GError* failure = nullptr;
    if (node != nullptr) {
        value = arv_gc_integer_get_value(ARV_GC_INTEGER(node), &failure);
    }
    return node != nullptr && Take(failure, error);
}

bool NodeMap::SetInteger(const std::string& name, std::int64_t value, std::string& error) {
    ArvGcNode* node = Node(m_gc, name, IsInteger, "an integer", error);
    GError* failure = nullptr;
    if (node != nullptr) {
        arv_gc_integer_set_value(ARV_GC_INTEGER(node), value, &failure);
    }
    return node != nullptr && Take(failure, error);
}

bool NodeMap::GetFloat(const std::string& name, double& value, std::string& error) {
    ArvGcNode* node = Node(m_gc, name, IsFloat, "a float", error);
    GError* failure = nullptr;
    if (node != nullptr) {
        value = arv_gc_float_get_value(ARV_GC_FLOAT(node), &failure);
    }
    return node != nullptr && Take(failure, error);
}

bool NodeMap::SetFloat(const std::string& name, double value, std::string& error) {
    ArvGcNode* node = Node(m_gc, name, IsFloat, "a float", error);
    GError* failure = nullptr;
    if (node != nullptr) {
        arv_gc_float_set_value(ARV_GC_FLOAT(node), value, &failure);
    }
    return node != nullptr && Take(failure, error);
}

bool NodeMap::SetBoolean(const std::string& name, bool value, std::string& error) {
    ArvGcNode* node = Node(m_gc, name, IsBoolean, "a boolean", error);
    GError* failure = nullptr;
    if (node != nullptr) {
        arv_gc_boolean_set_value(ARV_GC_BOOLEAN(node), value, &failure);
    }
    return node != nullptr && Take(failure, error);
}

bool NodeMap::GetString(const std::string& name, std::string& value, std::string& error) {
    ArvGcNode* node = Node(m_gc, name, IsText, "an enumeration or a string", error);
    GError* failure = nullptr;
    const char* text = nullptr;
    if (node != nullptr) {
        text = ARV_IS_GC_ENUMERATION(node)
                   ? arv_gc_enumeration_get_string_value(ARV_GC_ENUMERATION(node), &failure)
                   : arv_gc_string_get_value(ARV_GC_STRING(node), &failure);
    }
    if (node == nullptr || !Take(failure, error)) {
        return false;
    }
    value = text == nullptr ? "" : text;
    if (ARV_IS_GC_ENUMERATION(node)) {
        value = Symbolic(name, value);
    }
    return true;
}

bool NodeMap::Execute(const std::string& name, std::string& error) {
    ArvGcNode* node = Node(m_gc, name, IsCommand, "a command", error);
    GError* failure = nullptr;
    if (node != nullptr) {
        arv_gc_command_execute(ARV_GC_COMMAND(node), &failure);
    }
    return node != nullptr && Take(failure, error);
}

bool NodeMap::SetFromText(const std::string& name, const std::string& text, std::string& error) {
    ArvGcNode* node = Node(
        m_gc, name, [](ArvGcNode*) { return true; }, "", error);
    if (node == nullptr) {
        return false;
    }
    if (ARV_IS_GC_COMMAND(node)) {
        return Execute(name, error);
    }
    if (ARV_IS_GC_ENUMERATION(node)) {
        std::map<std::string, std::string> entries; // symbolic name to node name
        std::string entry;
        for (const GSList* e = arv_gc_enumeration_get_entries(ARV_GC_ENUMERATION(node));
             e != nullptr; e = e->next) {
            const std::string entryNode =
                arv_gc_feature_node_get_name(ARV_GC_FEATURE_NODE(e->data));
            entries[Symbolic(name, entryNode)] = entryNode;
            entry = entryNode == text ? entryNode : entry;
        }
        if (entry.empty() && entries.count(text) == 0) {
            error = "feature " + name + " has no entry " + text + "; it has:";
            for (const auto& symbolic : entries) {
                error += " " + symbolic.first;
            }
            return false;
        }
        entry = entry.empty() ? entries[text] : entry;
        GError* failure = nullptr;
        arv_gc_enumeration_set_string_value(ARV_GC_ENUMERATION(node), entry.c_str(), &failure);
        return Take(failure, error);
    }
    if (ARV_IS_GC_BOOLEAN(node)) {
        const bool on = text == "on" || text == "true" || text == "1";
        if (!on && text != "off" && text != "false" && text != "0") {
            error = "feature " + name + " takes on or off, not " + text;
            return false;
        }
        return SetBoolean(name, on, error);
    }
    if (ARV_IS_GC_INTEGER(node)) {
        const bool negative = !text.empty() && text[0] == '-';
        std::uint64_t number = 0;
        if (!ParseNumber(negative ? text.substr(1) : text, number)) {
            error = "feature " + name + " takes an integer, not " + text;
            return false;
        }
        const auto value = static_cast<std::int64_t>(number);
        return SetInteger(name, negative ? -value : value, error);
    }
    if (ARV_IS_GC_FLOAT(node)) {
        char* end = nullptr;
        const double value = std::strtod(text.c_str(), &end);
        if (text.empty() || *end != '\0') {
            error = "feature " + name + " takes a number, not " + text;
            return false;
        }
        return SetFloat(name, value, error);
    }
    if (ARV_IS_GC_STRING(node)) {
        GError* failure = nullptr;
        arv_gc_string_set_value(ARV_GC_STRING(node), text.c_str(), &failure);
        return Take(failure, error);
    }
    error = "feature " + name + " has no value to set";
    return false;
}

} // namespace kesta::gentl
