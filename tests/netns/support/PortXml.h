#pragma once
// The GenApi XML of a module's port, found as a consumer's GenApi engine
// finds it: URL_INFO_URL "local:NAME;ADDR;LEN[?...]", then exactly LEN
// bytes at ADDR in one GCReadPort. Works on any port handle of the loaded
// producer (system, interface, device, stream).
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include "CtiLibrary.h"

namespace kesta::test {

struct PortXml {
    std::string url;
    std::uint64_t address = 0;
    std::vector<char> bytes;
    pugi::xml_document doc;
    pugi::xml_node root; ///< RegisterDescription

    /// Reads and parses; fails the test (use ASSERT_NO_FATAL_FAILURE).
    void Load(CtiLibrary& lib, void* port) {
        INFO_DATATYPE type = -1;
        size_t size = 0;
        ASSERT_EQ(lib.GCGetPortURLInfo(port, 0, URL_INFO_URL, &type, nullptr, &size),
                  GC_ERR_SUCCESS);
        std::vector<char> text(size + 1, '\0');
        ASSERT_EQ(lib.GCGetPortURLInfo(port, 0, URL_INFO_URL, &type, text.data(), &size),
                  GC_ERR_SUCCESS);
        EXPECT_EQ(type, INFO_DATATYPE_STRING);
        url = text.data();
        const std::string scheme = "local:";
        const size_t first = url.find(';');
        const size_t second = url.find(';', first + 1);
        ASSERT_TRUE(url.rfind(scheme, 0) == 0 && second != std::string::npos) << url;
        address = std::stoull(url.substr(first + 1, second - first - 1), nullptr, 16);
        bytes.assign(std::stoull(url.substr(second + 1), nullptr, 16), '\0');
        size = bytes.size();
        ASSERT_EQ(lib.GCReadPort(port, address, bytes.data(), &size), GC_ERR_SUCCESS)
            << lib.TakeLastError().text;
        const pugi::xml_parse_result parsed = doc.load_buffer(bytes.data(), bytes.size());
        ASSERT_TRUE(parsed) << parsed.description() << " at " << parsed.offset;
        root = doc.child("RegisterDescription");
        ASSERT_TRUE(root);
    }

    /// The node of that name.
    pugi::xml_node Node(const std::string& name) const {
        return root.find_child_by_attribute("Name", name.c_str());
    }

    /// The address of a register node, or of the register behind a feature.
    std::uint64_t AddressOf(const std::string& name) const {
        pugi::xml_node node = Node(name);
        if (node.child("pValue")) {
            node = Node(node.child("pValue").text().as_string());
        }
        EXPECT_TRUE(node.child("Address")) << "no register for " << name;
        return std::stoull(node.child("Address").text().as_string("0"), nullptr, 0);
    }
};

} // namespace kesta::test
