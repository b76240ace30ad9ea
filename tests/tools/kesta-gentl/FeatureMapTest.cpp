// The walk from a feature to its register and the encoding of values, on an
// XML of the test's own over a camera kept in memory: the node kinds and
// byte orders the simulated camera's XML does not have (the grab of
// tests/netns/cli sets and reads its integers, enumerations and floats).
#include <cstring>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "FeatureMap.h"
#include "XmlFeatureResolver.h"

namespace {

using namespace kesta::gentl;

const char kXml[] = R"(<?xml version="1.0" encoding="utf-8"?>
<RegisterDescription ModelName="Test" VendorName="Test">
  <Integer Name="Width"><pValue>WidthReg</pValue></Integer>
  <IntReg Name="WidthReg">
    <Address>0x10000</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>
    <Sign>Unsigned</Sign><Endianess>BigEndian</Endianess>
  </IntReg>
  <Group Comment="nodes inside a group">
    <Integer Name="Height"><pValue>HeightConv</pValue></Integer>
  </Group>
  <IntConverter Name="HeightConv">
    <pValue>HeightKnife</pValue><FormulaTo>FROM</FormulaTo><FormulaFrom>TO</FormulaFrom>
  </IntConverter>
  <IntSwissKnife Name="HeightKnife">
    <pVariable Name="H">HeightReg</pVariable><Formula>H</Formula>
  </IntSwissKnife>
  <IntReg Name="HeightReg">
    <Address>0x20000</Address><Address>0x4</Address><Length>2</Length><AccessMode>RW</AccessMode>
    <pPort>Device</pPort>
  </IntReg>
  <Integer Name="OffsetX"><pValue>OffsetKnife</pValue></Integer>
  <IntSwissKnife Name="OffsetKnife">
    <pVariable Name="A">WidthReg</pVariable><Formula>A*2</Formula>
  </IntSwissKnife>
  <Integer Name="PacketSize"><pValue>PacketSizeReg</pValue></Integer>
  <MaskedIntReg Name="PacketSizeReg">
    <Address>0x0D04</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>
    <LSB>31</LSB><MSB>16</MSB><Endianess>BigEndian</Endianess>
  </MaskedIntReg>
  <Boolean Name="FireTest"><pValue>FireTestReg</pValue><OnValue>1</OnValue><OffValue>0</OffValue></Boolean>
  <MaskedIntReg Name="FireTestReg">
    <Address>0x0D04</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>
    <Bit>0</Bit><Endianess>BigEndian</Endianess>
  </MaskedIntReg>
  <Integer Name="Gain"><pValue>GainEntry</pValue></Integer>
  <StructReg Comment="bits of 0x3000">
    <Address>0x3000</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>
    <Endianess>LittleEndian</Endianess>
    <StructEntry Name="GainEntry"><LSB>4</LSB><MSB>11</MSB><Sign>Signed</Sign></StructEntry>
  </StructReg>
  <Float Name="Exposure"><pValue>ExposureReg</pValue></Float>
  <FloatReg Name="ExposureReg">
    <Address>0x4000</Address><Length>8</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>
  </FloatReg>
  <Command Name="AcquisitionStart"><pValue>StartReg</pValue><CommandValue>1</CommandValue></Command>
  <IntReg Name="StartReg">
    <Address>0x10014</Address><Length>4</Length><AccessMode>WO</AccessMode><pPort>Device</pPort>
    <Endianess>BigEndian</Endianess>
  </IntReg>
  <Integer Name="PayloadSize"><pValue>PayloadReg</pValue></Integer>
  <IntReg Name="PayloadReg">
    <Address>0x1000C</Address><Length>4</Length><AccessMode>RO</AccessMode><pPort>Device</pPort>
    <Endianess>BigEndian</Endianess>
  </IntReg>
  <Integer Name="Constant"><Value>5</Value></Integer>
  <Integer Name="Indexed"><pValue>IndexedReg</pValue></Integer>
  <IntReg Name="IndexedReg">
    <pAddress>Width</pAddress><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>
  </IntReg>
  <Integer Name="LoopA"><pValue>LoopB</pValue></Integer>
  <Integer Name="LoopB"><pValue>LoopA</pValue></Integer>
  <Integer Name="Dangling"><pValue>Nowhere</pValue></Integer>
  <Port Name="Device"/>
</RegisterDescription>
)";

/// A camera's register space in memory, byte by byte.
class MemoryRegisters : public RegisterAccess {
public:
    bool Read(std::uint64_t address, void* data, std::size_t size, std::string&) override {
        for (std::size_t i = 0; i < size; ++i) {
            static_cast<std::uint8_t*>(data)[i] = bytes[address + i];
        }
        return true;
    }
    bool Write(std::uint64_t address, const void* data, std::size_t size, std::string&) override {
        for (std::size_t i = 0; i < size; ++i) {
            bytes[address + i] = static_cast<const std::uint8_t*>(data)[i];
        }
        return true;
    }
    std::uint32_t BigEndian32(std::uint64_t address) {
        return std::uint32_t{bytes[address]} << 24 | std::uint32_t{bytes[address + 1]} << 16 |
               std::uint32_t{bytes[address + 2]} << 8 | bytes[address + 3];
    }

    std::map<std::uint64_t, std::uint8_t> bytes;
};

class FeatureMapTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        ASSERT_TRUE(resolver.Load(kXml, sizeof kXml - 1, error)) << error;
    }

    XmlFeatureResolver resolver;
    MemoryRegisters memory;
    FeatureMap features{resolver, memory};
    std::string error;
};

TEST_F(FeatureMapTest, RefusesWhatNeedsAGenApiEngineAndSaysWhere) {
    const std::pair<const char*, const char*> refusals[] = {
        {"OffsetX", "IntSwissKnife OffsetKnife computes"},
        {"Constant", "Integer Constant is a constant"},
        {"Indexed", "IntReg IndexedReg takes its address from another node"},
        {"LoopA", "a loop"},
        {"Dangling", "node Nowhere is named but not described"},
        {"NoSuchFeature", "no such node"},
    };
    for (const auto& [name, why] : refusals) {
        FeatureRegister reg;
        error.clear();
        EXPECT_FALSE(resolver.Resolve(name, reg, error)) << name;
        EXPECT_NE(error.find(why), std::string::npos) << name << ": " << error;
    }
    std::string broken = "<RegisterDescription><Integer Name='W'>";
    EXPECT_FALSE(XmlFeatureResolver().Load(broken.data(), broken.size(), error));
}

TEST_F(FeatureMapTest, ValuesAreEncodedAsTheRegisterWants) {
    ASSERT_TRUE(features.SetInteger("Height", 0x1234, error)) << error;
    EXPECT_EQ(memory.bytes[0x20004], 0x34); // little-endian, 2 bytes
    EXPECT_EQ(memory.bytes[0x20005], 0x12);
    EXPECT_EQ(memory.bytes.count(0x20006), 0u);
    EXPECT_FALSE(features.SetInteger("Height", 0x10000, error)); // does not fit in 16 bits
    EXPECT_NE(error.find("does not fit"), std::string::npos);

    double rate = 0;
    ASSERT_TRUE(features.SetFloat("Exposure", 1234.5, error));
    ASSERT_TRUE(features.GetFloat("Exposure", rate, error));
    EXPECT_EQ(rate, 1234.5);

    ASSERT_TRUE(features.Execute("AcquisitionStart", error));
    EXPECT_EQ(memory.BigEndian32(0x10014), 1u);
    std::int64_t value = 0;
    EXPECT_FALSE(
        features.GetInteger("AcquisitionStart", value, error)); // a command, not an integer
    EXPECT_FALSE(features.SetInteger("PayloadSize", 1, error));
    EXPECT_NE(error.find("read-only"), std::string::npos);
}

TEST_F(FeatureMapTest, BitFieldsKeepTheirNeighbours) {
    memory.bytes[0x0D04] = 0x40; // do-not-fragment and a size already there
    memory.bytes[0x0D05] = 0x00;
    memory.bytes[0x0D06] = 0x05;
    memory.bytes[0x0D07] = 0xDC;
    std::int64_t size = 0;
    ASSERT_TRUE(features.GetInteger("PacketSize", size, error));
    EXPECT_EQ(size, 1500);
    ASSERT_TRUE(features.SetInteger("PacketSize", 9000, error));
    EXPECT_EQ(memory.BigEndian32(0x0D04), 0x40002328u);
    ASSERT_TRUE(features.SetBoolean("FireTest", true, error));
    EXPECT_EQ(memory.BigEndian32(0x0D04), 0xC0002328u);

    memory.bytes[0x3000] = 0x0F; // low nibble belongs to someone else
    ASSERT_TRUE(features.SetInteger("Gain", -2, error)) << error;
    EXPECT_EQ(memory.bytes[0x3000], 0xEF);
    EXPECT_EQ(memory.bytes[0x3001], 0x0F);
    ASSERT_TRUE(features.GetInteger("Gain", size, error));
    EXPECT_EQ(size, -2);
    EXPECT_FALSE(features.SetInteger("Gain", 128, error)); // signed 8 bits end at 127
}

} // namespace
