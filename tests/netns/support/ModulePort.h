#pragma once
// A module's own port as a consumer's GenApi engine uses it: the XML found
// through the URL and read whole in one port read, and the 8-byte
// little-endian number and 512-byte string registers of the modules'
// register spaces.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include "CtiLibrary.h"

namespace kesta_device {

/// The XML of a module's port, as its URL "local:name;ADDR;LEN[?...]" tells.
struct PortXml {
    std::string fileName;
    std::vector<char> bytes;
    pugi::xml_document doc;
    pugi::xml_node root;
};

/// URL_INFO_URL of the port's one URL.
inline std::string PortUrl(kesta::test::CtiLibrary& lib, void* port) {
    INFO_DATATYPE type = -1;
    size_t size = 0;
    EXPECT_EQ(lib.GCGetPortURLInfo(port, 0, URL_INFO_URL, &type, nullptr, &size), GC_ERR_SUCCESS);
    std::vector<char> url(size + 1);
    EXPECT_EQ(lib.GCGetPortURLInfo(port, 0, URL_INFO_URL, &type, url.data(), &size),
              GC_ERR_SUCCESS);
    return url.data();
}

/// Reads exactly LEN bytes at ADDR of the URL in one port read and parses them.
inline void LoadPortXml(kesta::test::CtiLibrary& lib, void* port, PortXml& xml) {
    const std::string url = PortUrl(lib, port);
    const std::string scheme = "local:";
    ASSERT_EQ(url.compare(0, scheme.size(), scheme), 0) << url;
    const size_t first = url.find(';');
    const size_t second = url.find(';', first + 1);
    ASSERT_NE(second, std::string::npos) << url;
    xml.fileName = url.substr(scheme.size(), first - scheme.size());
    const uint64_t address = std::stoull(url.substr(first + 1, second - first - 1), nullptr, 16);
    const size_t length = std::stoull(url.substr(second + 1), nullptr, 16);
    ASSERT_EQ(address, 0xF0F00000u);
    ASSERT_GT(length, 0u);
    xml.bytes.assign(length, '\0');
    size_t size = length;
    ASSERT_EQ(lib.GCReadPort(port, address, xml.bytes.data(), &size), GC_ERR_SUCCESS)
        << lib.TakeLastError().text;
    const pugi::xml_parse_result parsed = xml.doc.load_buffer(xml.bytes.data(), xml.bytes.size());
    ASSERT_TRUE(parsed) << parsed.description() << " at " << parsed.offset;
    xml.root = xml.doc.child("RegisterDescription");
    ASSERT_TRUE(xml.root);
}

/// PORT_INFO_PORTNAME of the port.
inline std::string PortName(kesta::test::CtiLibrary& lib, void* port) {
    INFO_DATATYPE type = -1;
    char name[128] = {};
    size_t size = sizeof name;
    EXPECT_EQ(lib.GCGetPortInfo(port, PORT_INFO_PORTNAME, &type, name, &size), GC_ERR_SUCCESS);
    return name;
}

/// A number register, read at its 8 bytes; a failure is the test's.
inline uint64_t ReadNumber(kesta::test::CtiLibrary& lib, void* port, uint64_t address) {
    uint64_t value = 0;
    size_t size = sizeof value;
    EXPECT_EQ(lib.GCReadPort(port, address, &value, &size), GC_ERR_SUCCESS)
        << std::hex << "0x" << address << " " << lib.TakeLastError().text;
    return value;
}

inline GC_ERROR WriteNumber(kesta::test::CtiLibrary& lib, void* port, uint64_t address,
                            uint64_t value) {
    size_t size = sizeof value;
    return lib.GCWritePort(port, address, &value, &size);
}

/// A string register, read at its 512 bytes.
inline std::string ReadText(kesta::test::CtiLibrary& lib, void* port, uint64_t address) {
    char text[512];
    std::memset(text, 0x55, sizeof text);
    size_t size = sizeof text;
    EXPECT_EQ(lib.GCReadPort(port, address, text, &size), GC_ERR_SUCCESS)
        << std::hex << "0x" << address << " " << lib.TakeLastError().text;
    return std::string(text, strnlen(text, sizeof text));
}

} // namespace kesta_device
