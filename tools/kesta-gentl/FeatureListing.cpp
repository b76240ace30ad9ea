#include "FeatureListing.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "InfoValue.h"

namespace kesta::gentl {

namespace {

/// Values a selector is stepped through at most.
constexpr std::int64_t kMaxSelectorValues = 256;

std::string FirstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

class Lister {
public:
    Lister(const XmlFeatureResolver& resolver, FeatureMap& features, std::ostream& out)
        : m_resolver(resolver), m_features(features), m_out(out) {}

    bool Run() {
        FeatureNode root;
        if (!m_resolver.Describe("Root", root) || root.kind != "Category") {
            m_out << "the XML has no Root category\n";
            return false;
        }
        m_visited.insert("Root");
        for (const std::string& name : root.features) {
            Show(name, 0);
        }
        return m_ok;
    }

private:
    void Indent(int depth) { m_out << std::string(2 * static_cast<std::size_t>(depth), ' '); }

    void Show(const std::string& name, int depth) {
        if (m_underSelector.count(name) != 0) {
            return;
        }
        FeatureNode node;
        if (!m_resolver.Describe(name, node)) {
            Indent(depth);
            m_out << name << ": not described\n";
            m_ok = false;
            return;
        }
        if (node.kind == "Category") {
            if (!m_visited.insert(name).second) {
                return; // a category reached twice, or a loop
            }
            Indent(depth);
            m_out << name << "\n";
            for (const std::string& member : node.features) {
                Show(member, depth + 1);
            }
            return;
        }
        Indent(depth);
        m_out << name;
        if (Reads0(node.isImplemented)) {
            m_out << " (not implemented)\n";
            return;
        }
        if (Reads0(node.isAvailable)) {
            m_out << " (not available)\n";
            return;
        }
        FeatureRegister reg;
        std::string error;
        if (!m_resolver.Resolve(name, reg, error)) {
            Failed(error);
            return;
        }
        if (reg.kind == FeatureRegister::Kind::Command) {
            m_out << " (command)\n";
            return;
        }
        std::string value;
        if (!reg.readable) {
            m_out << " (write-only)\n";
        } else if (!Value(name, reg, value, error)) {
            Failed(error);
            return;
        } else {
            m_out << " = " << value;
        }
        if (!node.selected.empty() && reg.readable && reg.writable) {
            StepSelector(name, node, reg, depth);
        } else if (reg.readable) {
            m_out << "\n";
        }
    }

    void Failed(const std::string& error) {
        m_out << ": " << FirstLine(error) << "\n";
        m_ok = false;
    }

    /// A node (pIsImplemented, pIsAvailable) that reads 0; a failed read
    /// counts as not 0, so that the feature itself shows what is wrong.
    bool Reads0(const std::string& node) {
        std::int64_t value = 1;
        std::string error;
        return !node.empty() && m_features.GetInteger(node, value, error) && value == 0;
    }

    bool Value(const std::string& name, const FeatureRegister& reg, std::string& text,
               std::string& error) {
        std::int64_t number = 0;
        switch (reg.kind) {
        case FeatureRegister::Kind::String:
            return m_features.GetString(name, text, error);
        case FeatureRegister::Kind::Enumeration:
            return m_features.GetEnumeration(name, text, error);
        case FeatureRegister::Kind::Float: {
            double value = 0;
            if (!m_features.GetFloat(name, value, error)) {
                return false;
            }
            char buffer[32];
            std::snprintf(buffer, sizeof buffer, "%g", value);
            text = buffer;
            return true;
        }
        case FeatureRegister::Kind::Boolean: {
            bool on = false;
            if (!m_features.GetBoolean(name, on, error)) {
                return false;
            }
            text = on ? "true" : "false";
            return true;
        }
        default:
            if (!m_features.GetInteger(name, number, error)) {
                return false;
            }
            text = FormatNumber(number, reg.representation);
            return true;
        }
    }

    static std::string FormatNumber(std::int64_t number, const std::string& representation) {
        if (representation == "IPV4Address") {
            return FormatIp(number);
        }
        if (representation == "MACAddress") {
            return FormatMac(number);
        }
        if (representation == "HexNumber") {
            char buffer[24];
            std::snprintf(buffer, sizeof buffer, "0x%llX", static_cast<unsigned long long>(number));
            return buffer;
        }
        return std::to_string(number);
    }

    /// A bound: a number, or the node that has it.
    bool Bound(const std::string& text, std::int64_t& value) {
        if (text.empty()) {
            return false;
        }
        char* end = nullptr;
        value = std::strtoll(text.c_str(), &end, 0);
        if (*end == '\0') {
            return true;
        }
        std::string error;
        return m_features.GetInteger(text, value, error);
    }

    /// Shows the selected features for each value of the selector, whose
    /// line is written up to its value; puts the selector back.
    void StepSelector(const std::string& name, const FeatureNode& node, const FeatureRegister& reg,
                      int depth) {
        const bool enumeration = reg.kind == FeatureRegister::Kind::Enumeration;
        // Labels of the values in order (entry names, or numbers), and the
        // current one to put back.
        std::vector<std::pair<std::int64_t, std::string>> steps;
        std::string current;
        std::string error;
        if (enumeration) {
            if (!m_features.GetEnumeration(name, current, error)) {
                m_out << "\n";
                return;
            }
            for (const auto& [entry, value] : reg.entries) {
                steps.emplace_back(value, entry);
            }
            std::sort(steps.begin(), steps.end());
            m_out << "\n";
        } else {
            std::int64_t min = 0;
            std::int64_t max = 0;
            std::int64_t value = 0;
            if (!Bound(node.min, min) || !Bound(node.max, max) || max < min ||
                max - min >= kMaxSelectorValues || !m_features.GetInteger(name, value, error)) {
                m_out << "\n"; // not stepped: its features show on their own
                return;
            }
            current = std::to_string(value);
            m_out << " (" << min << " to " << max << ")\n";
            for (std::int64_t v = min; v <= max; ++v) {
                steps.emplace_back(v, std::to_string(v));
            }
        }
        const auto select = [&](const std::string& label) {
            return enumeration ? m_features.SetEnumeration(name, label, error)
                               : m_features.SetInteger(name, std::stoll(label), error);
        };
        for (const std::string& selected : node.selected) {
            m_underSelector.insert(selected);
        }
        for (const auto& step : steps) {
            Indent(depth + 1);
            m_out << "[" << name << " = " << step.second << "]\n";
            if (!select(step.second)) {
                Indent(depth + 2);
                m_out << "cannot select: " << FirstLine(error) << "\n";
                m_ok = false;
                continue;
            }
            for (const std::string& selected : node.selected) {
                m_underSelector.erase(selected);
                Show(selected, depth + 2);
                m_underSelector.insert(selected);
            }
        }
        if (!select(current)) {
            m_out << name << " not put back: " << FirstLine(error) << "\n";
            m_ok = false;
        }
    }

    const XmlFeatureResolver& m_resolver;
    FeatureMap& m_features;
    std::ostream& m_out;
    bool m_ok = true;
    std::set<std::string> m_visited;
    /// Features shown under their selector, and not on their own.
    std::set<std::string> m_underSelector;
};

} // namespace

bool ListFeatures(const XmlFeatureResolver& resolver, FeatureMap& features, std::ostream& out) {
    return Lister(resolver, features, out).Run();
}

} // namespace kesta::gentl
