#include "FeatureListing.h"

#include <arv.h>

#include <cstdio>
#include <set>
#include <string>

namespace kesta::gentl {

namespace {

std::string Integer(ArvGcInteger* node, gint64 value) {
    char text[64];
    const auto u = static_cast<unsigned long long>(value);
    switch (arv_gc_integer_get_representation(node)) {
    case ARV_GC_REPRESENTATION_HEX_NUMBER:
        std::snprintf(text, sizeof text, "0x%llX", u);
        break;
    case ARV_GC_REPRESENTATION_IPV4_ADDRESS:
        std::snprintf(text, sizeof text, "%llu.%llu.%llu.%llu", u >> 24 & 0xFF, u >> 16 & 0xFF,
                      u >> 8 & 0xFF, u & 0xFF);
        break;
    case ARV_GC_REPRESENTATION_MAC_ADDRESS:
        std::snprintf(text, sizeof text, "%02llx:%02llx:%02llx:%02llx:%02llx:%02llx",
                      u >> 40 & 0xFF, u >> 32 & 0xFF, u >> 24 & 0xFF, u >> 16 & 0xFF, u >> 8 & 0xFF,
                      u & 0xFF);
        break;
    default:
        std::snprintf(text, sizeof text, "%lld", static_cast<long long>(value));
        break;
    }
    const char* unit = arv_gc_integer_get_unit(node);
    return unit != nullptr && *unit != '\0' ? std::string(text) + " " + unit : text;
}

/// The node's value as text; empty for a node that has none to show (a
/// command, a write-only feature). Sets failure when the read fails.
std::string Value(ArvGcNode* node, GError** failure) {
    if (ARV_IS_GC_ENUMERATION(node)) {
        const char* entry = arv_gc_enumeration_get_string_value(ARV_GC_ENUMERATION(node), failure);
        const char* name = arv_gc_feature_node_get_name(ARV_GC_FEATURE_NODE(node));
        return "'" + Symbolic(name, entry != nullptr ? entry : "") + "'";
    }
    if (ARV_IS_GC_STRING(node)) {
        const char* text = arv_gc_string_get_value(ARV_GC_STRING(node), failure);
        return std::string("'") + (text != nullptr ? text : "") + "'";
    }
    if (ARV_IS_GC_INTEGER(node)) {
        const gint64 value = arv_gc_integer_get_value(ARV_GC_INTEGER(node), failure);
        return Integer(ARV_GC_INTEGER(node), value);
    }
    if (ARV_IS_GC_FLOAT(node)) {
        char text[48];
        std::snprintf(text, sizeof text, "%g", arv_gc_float_get_value(ARV_GC_FLOAT(node), failure));
        const char* unit = arv_gc_float_get_unit(ARV_GC_FLOAT(node));
        return unit != nullptr && *unit != '\0' ? std::string(text) + " " + unit : text;
    }
    if (ARV_IS_GC_BOOLEAN(node)) {
        return arv_gc_boolean_get_value(ARV_GC_BOOLEAN(node), failure) ? "true" : "false";
    }
    return "";
}

/// The first line of a failure's message, which is freed.
std::string FirstLine(GError* failure) {
    std::string message = failure->message;
    g_error_free(failure);
    return message.substr(0, message.find('\n'));
}

class Lister {
public:
    Lister(ArvGc* gc, std::ostream& out) : m_gc(gc), m_out(out) {}

    /// Lists name and, for a category, its features; false if a read failed.
    bool List(const char* name, int level) {
        ArvGcNode* node = arv_gc_get_node(m_gc, name);
        if (!ARV_IS_GC_FEATURE_NODE(node)) {
            Line(level, "?", name) << " (no such node)\n";
            return false;
        }
        auto* feature = ARV_GC_FEATURE_NODE(node);
        const char* kind = arv_dom_node_get_node_name(ARV_DOM_NODE(node));
        GError* failure = nullptr;
        const bool implemented = arv_gc_feature_node_is_implemented(feature, &failure);
        const bool available = failure == nullptr && implemented &&
                               arv_gc_feature_node_is_available(feature, &failure);
        if (failure != nullptr) {
            Line(level, kind, name) << " (error: " << FirstLine(failure) << ")\n";
            return false;
        }
        if (ARV_IS_GC_CATEGORY(node)) {
            Line(level, kind, name) << (implemented ? "" : " (not implemented)") << "\n";
            bool ok = true;
            // A category that lists itself, directly or not, is walked once.
            if (implemented && m_categories.insert(name).second) {
                for (const GSList* f = arv_gc_category_get_features(ARV_GC_CATEGORY(node));
                     f != nullptr; f = f->next) {
                    ok = List(static_cast<const char*>(f->data), level + 1) && ok;
                }
            }
            return ok;
        }
        if (!implemented || !available) {
            Line(level, kind, name)
                << (implemented ? " (not available)" : " (not implemented)") << "\n";
            return true;
        }
        const ArvGcAccessMode access = arv_gc_feature_node_get_actual_access_mode(feature);
        const std::string value = access == ARV_GC_ACCESS_MODE_WO ? "" : Value(node, &failure);
        if (failure != nullptr) {
            Line(level, kind, name) << " (error: " << FirstLine(failure) << ")\n";
            return false;
        }
        const bool selector =
            ARV_IS_GC_SELECTOR(node) && arv_gc_selector_is_selector(ARV_GC_SELECTOR(node));
        Line(level, kind, name) << (value.empty() ? "" : " = " + value) << " ("
                                << arv_gc_access_mode_to_string(access) << ")"
                                << (selector ? " (selector)" : "") << "\n";
        return true;
    }

private:
    std::ostream& Line(int level, const char* kind, const char* name) {
        char head[160];
        std::snprintf(head, sizeof head, "%*s%-12s: '", 4 * level, "", kind);
        return m_out << head << name << "'";
    }

    ArvGc* m_gc;
    std::ostream& m_out;
    std::set<std::string> m_categories;
};

} // namespace

bool ListFeatures(NodeMap& features, std::ostream& out) {
    if (features.Engine() == nullptr || !features.Has("Root")) {
        out << "the description has no Root category\n";
        return false;
    }
    return Lister(features.Engine(), out).List("Root", 0);
}

} // namespace kesta::gentl
