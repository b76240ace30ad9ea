// The stream's embedded GenApi description: the very bytes of the file in
// the source tree, and in step with the register table both ways (what the
// table serves is in the XML at its address, width and access; what the XML
// names is served). Its port is read through the library in tests/netns.
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include "GenTL_KESTA.h"
#include "modules/BaseModule.h"
#include "registers/ModuleXml.h"
#include "registers/StreamReg.h"

namespace {

using GenTL::g_streamXml;

const char* const kSourceFile =
    KESTA_SOURCE_DIR "/src/registers/SFNC_GenTLDataStream_Reference_Version_1_0_0_Schema_1_1.xml";

std::string Embedded() {
    return std::string(reinterpret_cast<const char*>(g_streamXml.data), g_streamXml.size);
}

struct XmlRegister {
    std::string name;
    unsigned long length;
    std::string access;
};

class StreamXml : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string text = Embedded();
        const pugi::xml_parse_result parsed = doc.load_buffer(text.data(), text.size());
        ASSERT_TRUE(parsed) << parsed.description() << " at " << parsed.offset;
        root = doc.child("RegisterDescription");
        ASSERT_TRUE(root);
    }

    /// Every node with an Address, by address.
    std::map<unsigned long, XmlRegister> Registers() {
        std::map<unsigned long, XmlRegister> found;
        for (pugi::xml_node node : root.children()) {
            pugi::xml_node address = node.child("Address");
            if (!address) {
                continue;
            }
            const unsigned long at = std::stoul(address.text().as_string(), nullptr, 0);
            XmlRegister r{node.attribute("Name").as_string(),
                          std::stoul(node.child("Length").text().as_string(), nullptr, 0),
                          node.child("AccessMode").text().as_string()};
            EXPECT_TRUE(found.emplace(at, r).second) << "two registers at 0x" << std::hex << at;
        }
        return found;
    }

    pugi::xml_document doc;
    pugi::xml_node root;
};

TEST_F(StreamXml, EmbeddedBytesAreTheSourceFile) {
    std::ifstream in(kSourceFile, std::ios::binary);
    ASSERT_TRUE(in) << kSourceFile;
    std::ostringstream file;
    file << in.rdbuf();
    EXPECT_EQ(Embedded(), file.str());
    EXPECT_EQ(g_streamXml.data[g_streamXml.size], 0);
}

TEST_F(StreamXml, RegistersMatchTheTable) {
    const std::map<unsigned long, XmlRegister> xml = Registers();
    const auto& table = GenTL::StreamReg::Registers();
    for (const auto& row : table) {
        if (row.address == GenTL::kModuleXmlAddress) {
            continue; // the description itself, read whole through the URL
        }
        const auto it = xml.find(row.address);
        ASSERT_NE(it, xml.end()) << "no XML register at 0x" << std::hex << row.address;
        EXPECT_EQ(it->second.length, row.length) << it->second.name;
        const char* access = row.set == nullptr ? "RO" : row.get == nullptr ? "WO" : "RW";
        EXPECT_EQ(it->second.access, access) << it->second.name;
    }
    for (const auto& [address, r] : xml) {
        EXPECT_NE(table.Find(address), nullptr)
            << r.name << " at 0x" << std::hex << address << " is not served";
    }
    EXPECT_EQ(xml.size() + 1, table.size());
}

TEST_F(StreamXml, WritableFeaturesLockWhileGrabbing) {
    std::set<std::string> writable;
    for (const auto& [address, r] : Registers()) {
        if (r.access != "RO") {
            writable.insert(r.name);
        }
    }
    int features = 0;
    for (pugi::xml_node node : root.children()) {
        const std::string target = node.child("pValue").text().as_string();
        if (writable.count(target) != 0) {
            ++features;
            EXPECT_STREQ(node.child("pIsLocked").text().as_string(), "StreamIsGrabbing_Reg")
                << node.attribute("Name").as_string();
        }
    }
    EXPECT_EQ(features, static_cast<int>(writable.size()));
}

} // namespace
