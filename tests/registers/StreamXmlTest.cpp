// The stream's embedded GenApi description: a register description of the
// stream's own port whose writable features lock while grabbing. Its bytes
// and its agreement with the register table are ModuleXmlTest's.
#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include "GenTL_KESTA.h"
#include "modules/BaseModule.h"
#include "registers/ModuleXml.h"
#include "registers/StreamReg.h"
#include "stream/DataStreamGevUDP.h"

namespace {

using GenTL::g_streamXml;

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

TEST_F(StreamXml, DescribesTheStreamPort) {
    EXPECT_STREQ(root.attribute("SchemaMajorVersion").as_string(), "1");
    EXPECT_STREQ(root.attribute("SchemaMinorVersion").as_string(), "1");
    EXPECT_STREQ(root.attribute("ModelName").as_string(), "SFNC_Camera");
    EXPECT_STREQ(root.attribute("VendorName").as_string(), "Generic");

    int parent = 0;
    GenTL::DataStreamGevUDP stream(nullptr, nullptr, &parent, 0, DEVICE_ACCESS_CONTROL);
    const std::string portName = stream.GetPortInfoRecord().portName;
    int ports = 0;
    for (pugi::xml_node port : root.children("Port")) {
        EXPECT_EQ(port.attribute("Name").as_string(), portName);
        ++ports;
    }
    EXPECT_EQ(ports, 1);
    for (pugi::xml_node node : root.children()) {
        if (node.child("pPort")) {
            EXPECT_EQ(node.child("pPort").text().as_string(), portName)
                << node.attribute("Name").as_string();
        }
    }

    std::vector<std::string> top;
    for (pugi::xml_node f :
         root.find_child_by_attribute("Category", "Name", "Root").children("pFeature")) {
        top.push_back(f.text().as_string());
    }
    EXPECT_EQ(top, (std::vector<std::string>{"StreamInformation", "BufferHandlingControl",
                                             "EvsFeatures"}));
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
