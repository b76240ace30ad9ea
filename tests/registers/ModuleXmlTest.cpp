// The modules' embedded GenApi descriptions, one table row each: the very
// bytes of the source file, one port that every register uses, every node
// that a feature points to present, and the register table in step with the
// XML both ways (address, width, access).
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include "modules/BaseModule.h"
#include "registers/DeviceReg.h"
#include "registers/InterfaceReg.h"
#include "registers/ModuleXml.h"
#include "registers/StreamReg.h"

namespace {

/// A row of a register table, whatever its class.
struct Row {
    unsigned long address;
    unsigned long length;
    const char* access;
};

template <class Reg> std::vector<Row> RowsOf(const GenTL::RegisterTable<Reg>& table) {
    std::vector<Row> rows;
    for (const auto& r : table) {
        rows.push_back({r.address, r.length,
                        r.set == nullptr   ? "RO"
                        : r.get == nullptr ? "WO"
                                           : "RW"});
    }
    return rows;
}

struct Module {
    const char* name;
    const char* file;
    const GenTL::ModuleXml* xml;
    std::vector<Row> (*rows)();
};

const Module kModules[] = {
    {"Interface", "SFNC_GenTLInterface_Reference_Version_1_0_0_Schema_1_1.xml",
     &GenTL::g_interfaceXml, [] { return RowsOf(GenTL::InterfaceReg::Registers()); }},
    {"Device", "SFNC_GenTLDevice_Reference_Version_1_0_0_Schema_1_1.xml", &GenTL::g_deviceXml,
     [] { return RowsOf(GenTL::DeviceReg::Registers()); }},
    {"DataStream", "SFNC_GenTLDataStream_Reference_Version_1_0_0_Schema_1_1.xml",
     &GenTL::g_streamXml, [] { return RowsOf(GenTL::StreamReg::Registers()); }},
};

class ModuleXml : public ::testing::TestWithParam<Module> {
protected:
    void SetUp() override {
        const GenTL::ModuleXml& xml = *GetParam().xml;
        text.assign(reinterpret_cast<const char*>(xml.data), xml.size);
        const pugi::xml_parse_result parsed = doc.load_buffer(text.data(), text.size());
        ASSERT_TRUE(parsed) << parsed.description() << " at " << parsed.offset;
        root = doc.child("RegisterDescription");
        ASSERT_TRUE(root);
    }

    std::string text;
    pugi::xml_document doc;
    pugi::xml_node root;
};

TEST_P(ModuleXml, IsTheSourceFileWithOnePort) {
    std::ifstream in(std::string(KESTA_SOURCE_DIR "/src/registers/") + GetParam().file,
                     std::ios::binary);
    ASSERT_TRUE(in);
    std::ostringstream file;
    file << in.rdbuf();
    EXPECT_EQ(text, file.str());
    EXPECT_EQ(GetParam().xml->data[GetParam().xml->size], 0);
    EXPECT_STREQ(root.attribute("SchemaMinorVersion").as_string(), "1");
    EXPECT_STREQ(root.attribute("ModelName").as_string(), "SFNC_Camera");
    EXPECT_STREQ(root.attribute("VendorName").as_string(), "Generic");

    ASSERT_EQ(std::distance(root.children("Port").begin(), root.children("Port").end()), 1);
    const std::string port = root.child("Port").attribute("Name").as_string();
    std::map<std::string, int> names;
    for (pugi::xml_node node : root.children()) {
        ++names[node.attribute("Name").as_string()];
        if (node.child("Address")) {
            EXPECT_EQ(node.child("pPort").text().as_string(), port)
                << node.attribute("Name").as_string();
        }
    }
    // Every reference names a node of the file, and no name is given twice.
    for (pugi::xpath_node ref : root.select_nodes(".//*[starts-with(local-name(), 'p')]")) {
        const std::string target = ref.node().text().as_string();
        EXPECT_EQ(names[target], 1) << ref.node().name() << " -> " << target;
    }
}

TEST_P(ModuleXml, RegistersMatchTheTable) {
    std::map<unsigned long, Row> xml;
    for (pugi::xml_node node : root.children()) {
        if (!node.child("Address")) {
            continue;
        }
        const unsigned long at = std::stoul(node.child("Address").text().as_string(), nullptr, 0);
        const Row r{at, std::stoul(node.child("Length").text().as_string(), nullptr, 0),
                    node.child("AccessMode").text().as_string()};
        EXPECT_TRUE(xml.emplace(at, r).second) << "two registers at 0x" << std::hex << at;
    }
    const std::vector<Row> table = GetParam().rows();
    for (const Row& row : table) {
        if (row.address == GenTL::kModuleXmlAddress) {
            continue; // the description itself, read whole through the URL
        }
        const auto it = xml.find(row.address);
        ASSERT_NE(it, xml.end()) << "no XML register at 0x" << std::hex << row.address;
        EXPECT_EQ(it->second.length, row.length) << std::hex << row.address;
        EXPECT_STREQ(it->second.access, row.access) << std::hex << row.address;
    }
    EXPECT_EQ(xml.size() + 1, table.size()) << "registers of the XML that are not served";
}

INSTANTIATE_TEST_SUITE_P(Modules, ModuleXml, ::testing::ValuesIn(kModules),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
