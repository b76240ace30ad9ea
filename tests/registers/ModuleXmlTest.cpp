// The modules' embedded GenApi descriptions, one row of kModules each: a
// register description of the module's own port whose references all name
// nodes, and in step with the
// module's register table both ways (what the table serves is in the XML at
// its address, width and access; what the XML names is served). Then what
// the stream's XML must tell beyond its map.
#include <cctype>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include "GenTL_KESTA.h"
#include "modules/BaseModule.h"
#include "modules/System.h"
#include "registers/DeviceReg.h"
#include "registers/InterfaceReg.h"
#include "registers/ModuleXml.h"
#include "registers/StreamReg.h"
#include "registers/SystemReg.h"
#include "stream/DataStreamGevUDP.h"

namespace {

/// A row of a register table, whatever the module.
struct Row {
    unsigned long address;
    unsigned long length;
    const char* access;
};

template <class Reg> std::vector<Row> RowsOf() {
    std::vector<Row> rows;
    for (const auto& row : Reg::Registers()) {
        rows.push_back({row.address, row.length,
                        row.set == nullptr   ? "RO"
                        : row.get == nullptr ? "WO"
                                             : "RW"});
    }
    return rows;
}

struct Module {
    const char* name;
    const GenTL::ModuleXml* xml;
    std::string (*portName)();
    std::vector<Row> (*rows)();
};

const Module kModules[] = {
    {"Stream", &GenTL::g_streamXml,
     [] {
         int parent = 0;
         return GenTL::DataStreamGevUDP(nullptr, nullptr, &parent, 0, DEVICE_ACCESS_CONTROL)
             .GetPortInfoRecord()
             .portName;
     },
     RowsOf<GenTL::StreamReg>},
    {"System", &GenTL::g_systemXml, [] { return GenTL::System().GetPortInfoRecord().portName; },
     RowsOf<GenTL::SystemReg>},
    // Their modules need an open adapter or camera: the network tests compare
    // these port names with PORT_INFO_PORTNAME.
    {"Interface", &GenTL::g_interfaceXml, [] { return std::string("InterfacePort"); },
     RowsOf<GenTL::InterfaceReg>},
    {"Device", &GenTL::g_deviceXml, [] { return std::string("DevicePort"); },
     RowsOf<GenTL::DeviceReg>},
};

void PrintTo(const Module& module, std::ostream* out) {
    *out << module.name;
}

struct XmlRegister {
    std::string name;
    unsigned long length;
    std::string access;
};

pugi::xml_node Parse(const GenTL::ModuleXml& xml, pugi::xml_document& doc) {
    const pugi::xml_parse_result parsed = doc.load_buffer(xml.data, xml.size);
    EXPECT_TRUE(parsed) << parsed.description() << " at " << parsed.offset;
    return doc.child("RegisterDescription");
}

/// Every node with an Address, by address.
std::map<unsigned long, XmlRegister> Registers(pugi::xml_node root) {
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

class ModuleXml : public ::testing::TestWithParam<Module> {
protected:
    void SetUp() override {
        root = Parse(*GetParam().xml, doc);
        ASSERT_TRUE(root);
    }

    pugi::xml_document doc;
    pugi::xml_node root;
};

TEST_P(ModuleXml, DescribesTheModulesPortWithNoDanglingReference) {
    const std::string portName = GetParam().portName();
    std::vector<std::string> ports;
    std::set<std::string> names;
    for (pugi::xml_node node : root.children()) {
        names.insert(node.attribute("Name").as_string());
        if (std::string(node.name()) == "Port") {
            ports.push_back(node.attribute("Name").as_string());
        }
    }
    EXPECT_EQ(ports, std::vector<std::string>{portName});
    for (pugi::xml_node node : root.children()) {
        const std::string name = node.attribute("Name").as_string();
        if (node.child("pPort")) {
            EXPECT_EQ(node.child("pPort").text().as_string(), portName) << name;
        }
        for (pugi::xml_node ref : node.children()) {
            const std::string kind = ref.name();
            if (kind.size() > 1 && kind[0] == 'p' && std::isupper(kind[1])) {
                EXPECT_EQ(names.count(ref.text().as_string()), 1u)
                    << name << " " << kind << " names " << ref.text().as_string();
            }
        }
    }
}

TEST_P(ModuleXml, RegistersMatchTheTable) {
    const std::map<unsigned long, XmlRegister> xml = Registers(root);
    const std::vector<Row> table = GetParam().rows();
    std::set<unsigned long> served;
    for (const Row& row : table) {
        served.insert(row.address);
        if (row.address == GenTL::kModuleXmlAddress) {
            continue; // the description itself, read whole through the URL
        }
        const auto it = xml.find(row.address);
        ASSERT_NE(it, xml.end()) << "no XML register at 0x" << std::hex << row.address;
        EXPECT_EQ(it->second.length, row.length) << it->second.name;
        EXPECT_EQ(it->second.access, row.access) << it->second.name;
    }
    for (const auto& [address, r] : xml) {
        EXPECT_EQ(served.count(address), 1u)
            << r.name << " at 0x" << std::hex << address << " is not served";
    }
    EXPECT_EQ(xml.size() + 1, table.size());
}

INSTANTIATE_TEST_SUITE_P(Modules, ModuleXml, ::testing::ValuesIn(kModules),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(StreamXml, WritableFeaturesLockWhileGrabbing) {
    pugi::xml_document doc;
    const pugi::xml_node root = Parse(GenTL::g_streamXml, doc);
    std::set<std::string> writable;
    for (const auto& [address, r] : Registers(root)) {
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
