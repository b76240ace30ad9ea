#pragma once
// A module's own port of the loaded producer (system, interface, device,
// stream) as a consumer's GenApi engine uses it: the XML found through its
// URL "local:NAME;ADDR;LEN[?...]" and read whole in one port read, and the
// 8-byte little-endian number and 512-byte string registers.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include "CtiLibrary.h"

namespace kesta_device {

struct PortXml {
    std::string fileName;
    std::uint64_t address = 0;
    std::vector<char> bytes;
    pugi::xml_document doc;
    pugi::xml_node root; ///< RegisterDescription

    /// Reads and parses; fails the test (use ASSERT_NO_FATAL_FAILURE).
    void Load(kesta::test::CtiLibrary& lib, void* port) {
        INFO_DATATYPE type = -1;
        size_t size = 0;
        ASSERT_EQ(lib.GCGetPortURLInfo(port, 0, URL_INFO_URL, &type, nullptr, &size),
                  GC_ERR_SUCCESS);
        std::vector<char> text(size + 1, '\0');
        ASSERT_EQ(lib.GCGetPortURLInfo(port, 0, URL_INFO_URL, &type, text.data(), &size),
                  GC_ERR_SUCCESS);
        EXPECT_EQ(type, INFO_DATATYPE_STRING);
        const std::string url = text.data();
        const std::string scheme = "local:";
        const size_t first = url.find(';');
        const size_t second = url.find(';', first + 1);
        ASSERT_TRUE(url.rfind(scheme, 0) == 0 && second != std::string::npos) << url;
        fileName = url.substr(scheme.size(), first - scheme.size());
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

    /// The address of a register node, or of the register behind a feature.
    std::uint64_t AddressOf(const std::string& name) const {
        pugi::xml_node node = root.find_child_by_attribute("Name", name.c_str());
        if (node.child("pValue")) {
            node = root.find_child_by_attribute("Name", node.child("pValue").text().as_string());
        }
        EXPECT_TRUE(node.child("Address")) << "no register for " << name;
        return std::stoull(node.child("Address").text().as_string("0"), nullptr, 0);
    }
};

/// PORT_INFO_PORTNAME of the port.
inline std::string PortName(kesta::test::CtiLibrary& lib, void* port) {
    INFO_DATATYPE type = -1;
    char name[128] = {};
    size_t size = sizeof name;
    EXPECT_EQ(lib.GCGetPortInfo(port, PORT_INFO_PORTNAME, &type, name, &size), GC_ERR_SUCCESS);
    return name;
}

/// A number register, read at 8 bytes.
inline std::uint64_t ReadNumber(kesta::test::CtiLibrary& lib, void* port, std::uint64_t address) {
    std::uint64_t value = 0;
    size_t size = sizeof value;
    EXPECT_EQ(lib.GCReadPort(port, address, &value, &size), GC_ERR_SUCCESS)
        << std::hex << "0x" << address << " " << lib.TakeLastError().text;
    return value;
}

inline GC_ERROR WriteNumber(kesta::test::CtiLibrary& lib, void* port, std::uint64_t address,
                            std::uint64_t value) {
    size_t size = sizeof value;
    return lib.GCWritePort(port, address, &value, &size);
}

/// A string register, read at its 512 bytes.
inline std::string ReadText(kesta::test::CtiLibrary& lib, void* port, std::uint64_t address) {
    char text[512];
    std::memset(text, 0x55, sizeof text);
    size_t size = sizeof text;
    EXPECT_EQ(lib.GCReadPort(port, address, text, &size), GC_ERR_SUCCESS)
        << std::hex << "0x" << address << " " << lib.TakeLastError().text;
    return std::string(text, strnlen(text, sizeof text));
}

} // namespace kesta_device
