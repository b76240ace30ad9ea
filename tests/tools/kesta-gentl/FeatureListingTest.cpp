// The listing of a module's features over a description of the test's own:
// categories in order, strings and constants, a selector stepped through its
// values with its features under each (and not again), put back afterwards,
// and features that are not implemented or not available.
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "FeatureListing.h"
#include "MemoryRegisters.h"

namespace {

using namespace kesta::gentl;

const char kXml[] = R"(<?xml version="1.0" encoding="utf-8"?>
<RegisterDescription ModelName="Test" VendorName="Test">
  <Category Name="Root"><pFeature>Info</pFeature><pFeature>Selection</pFeature></Category>
  <Category Name="Info"><pFeature>Name</pFeature><pFeature>Type</pFeature></Category>
  <Category Name="Selection">
    <pFeature>Selector</pFeature><pFeature>Id</pFeature><pFeature>Update</pFeature>
    <pFeature>Log</pFeature>
  </Category>
  <StringReg Name="Name">
    <Address>0x100</Address><Length>16</Length><AccessMode>RO</AccessMode><pPort>P</pPort>
  </StringReg>
  <Enumeration Name="Type">
    <EnumEntry Name="EnumEntry_Type_GigE"><Value>0</Value><Symbolic>GigEVision</Symbolic></EnumEntry>
    <Value>0</Value>
  </Enumeration>
  <Integer Name="Selector">
    <pValue>SelectorReg</pValue><Min>0</Min><pMax>MaxReg</pMax>
    <pSelected>Id</pSelected><pSelected>Address</pSelected>
  </Integer>
  <IntReg Name="SelectorReg">
    <Address>0x200</Address><Length>8</Length><AccessMode>RW</AccessMode><pPort>P</pPort>
    <Endianess>LittleEndian</Endianess>
  </IntReg>
  <IntReg Name="MaxReg">
    <Address>0x208</Address><Length>8</Length><AccessMode>RO</AccessMode><pPort>P</pPort>
    <Endianess>LittleEndian</Endianess>
  </IntReg>
  <StringReg Name="Id">
    <Address>0x300</Address><Length>8</Length><AccessMode>RO</AccessMode><pPort>P</pPort>
  </StringReg>
  <Integer Name="Address"><pIsAvailable>Zero</pIsAvailable><pValue>Zero</pValue></Integer>
  <Command Name="Update"><pValue>Zero</pValue><CommandValue>1</CommandValue></Command>
  <Integer Name="Log"><pIsImplemented>Zero</pIsImplemented><pValue>Zero</pValue></Integer>
  <IntReg Name="Zero">
    <Address>0x400</Address><Length>8</Length><AccessMode>RW</AccessMode><pPort>P</pPort>
    <Endianess>LittleEndian</Endianess>
  </IntReg>
  <Port Name="P"/>
</RegisterDescription>
)";

/// Memory whose Id register tells the selected index, as a module's would.
class SelectedMemory : public MemoryRegisters {
public:
    bool Read(std::uint64_t address, void* data, std::size_t size, std::string& e) override {
        if (address == 0x300) {
            bytes[0x300] = 'i';
            bytes[0x301] = static_cast<std::uint8_t>('0' + bytes[0x200]);
        }
        return MemoryRegisters::Read(address, data, size, e);
    }
};

TEST(FeatureListing, StepsSelectorsAndTellsWhatIsNotThere) {
    XmlFeatureResolver resolver;
    std::string error;
    ASSERT_TRUE(resolver.Load(kXml, sizeof kXml - 1, error)) << error;
    SelectedMemory memory;
    for (char c : std::string("kesta")) {
        memory.bytes[0x100 + memory.bytes.size()] = static_cast<std::uint8_t>(c);
    }
    memory.bytes[0x208] = 1; // two values to select
    FeatureMap features(resolver, memory);
    std::ostringstream out;
    EXPECT_TRUE(ListFeatures(resolver, features, out));
    EXPECT_EQ(out.str(), "Info\n"
                         "  Name = kesta\n"
                         "  Type = GigEVision\n"
                         "Selection\n"
                         "  Selector = 0 (0 to 1)\n"
                         "    [Selector = 0]\n"
                         "      Id = i0\n"
                         "      Address (not available)\n"
                         "    [Selector = 1]\n"
                         "      Id = i1\n"
                         "      Address (not available)\n"
                         "  Update (command)\n"
                         "  Log (not implemented)\n");
    EXPECT_EQ(memory.bytes[0x200], 0) << "the selector is put back";
}

} // namespace
