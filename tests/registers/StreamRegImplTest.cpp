// The stream's registers on a stream object with no camera: the port of a
// closed stream, every setter's refusal while grabbing, the frame generator
// arithmetic at its edges, and the two inter-packet expiry slots that no
// address reaches.
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "registers/ModuleXml.h"
#include "registers/StreamRegImpl.h"
#include "stream/DataStreamGevUDP.h"

namespace {

constexpr unsigned long kMode = 0x0400;
constexpr unsigned long kMulticast = 0x2400;
constexpr unsigned long kAccumTime = 0x2502;
constexpr unsigned long kFps = 0x2503;
constexpr unsigned long kPreset = 0x2510;
constexpr std::uint64_t kCustom = 100000000;

int g_parent; // stands for the device

/// A UDP stream marked open, whose grabbing flag the test sets by hand.
class BareStream : public GenTL::DataStreamGevUDP {
public:
    BareStream() : DataStreamGevUDP(nullptr, nullptr, &g_parent, 0, DEVICE_ACCESS_CONTROL) {}
    void SetOpen(bool open) { isOpen = open; }
    void SetGrabbing(bool grabbing) { isGrabbing = grabbing; }
};

class StreamRegImplTest : public ::testing::Test {
protected:
    void SetUp() override {
        GenTL::ErrorCache::GetErrorCache()->Clear();
        stream.SetOpen(true);
    }
    void TearDown() override { GenTL::ErrorCache::ReleaseErrorCache(); }

    template <typename T> int Write(unsigned long address, T value) {
        std::uint64_t bytes = 0;
        std::memcpy(&bytes, &value, sizeof value);
        unsigned long size = sizeof bytes;
        return stream.WritePort(address, &bytes, &size);
    }
    std::uint64_t Read(unsigned long address) {
        std::uint64_t bytes = 0;
        unsigned long size = sizeof bytes;
        EXPECT_EQ(stream.ReadPort(address, &bytes, &size), GC_ERR_SUCCESS) << std::hex << address;
        return bytes;
    }
    std::string LastText() {
        GenTL::Error e;
        return GenTL::ErrorCache::GetErrorCache()->Peak(e) == GC_ERR_SUCCESS ? e.Message() : "";
    }

    BareStream stream;
};

TEST_F(StreamRegImplTest, ClosedStreamRefusesItsPort) {
    stream.SetOpen(false);
    std::uint64_t value = 0;
    unsigned long size = sizeof value;
    EXPECT_EQ(stream.ReadPort(kMode, &value, &size), GC_ERR_INVALID_HANDLE);
    EXPECT_NE(LastText().find("DataStream is not open"), std::string::npos);
    EXPECT_EQ(stream.WritePort(kMode, &value, &size), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(stream.GetPortURL(nullptr, &size), GC_ERR_INVALID_HANDLE);
}

TEST_F(StreamRegImplTest, EverySetterButMulticastRefusesWhileGrabbing) {
    stream.SetGrabbing(true);
    for (const auto& row : GenTL::StreamReg::Registers()) {
        if (row.set == nullptr) {
            continue;
        }
        const std::uint64_t before = Read(row.address);
        const int rc = Write(row.address, std::uint64_t{1});
        if (row.address == kMulticast) {
            EXPECT_EQ(rc, GC_ERR_SUCCESS);
            EXPECT_EQ(Read(row.address), 1u);
        } else {
            EXPECT_EQ(rc, GC_ERR_RESOURCE_IN_USE) << std::hex << row.address;
            EXPECT_EQ(Read(row.address), before) << std::hex << row.address;
        }
    }
    EXPECT_EQ(Write(kMode, std::int64_t{2}), GC_ERR_RESOURCE_IN_USE);
    EXPECT_NE(LastText().find("StreamRegImpl::SetStreamBufferHandlingMode_Reg failed, unable to "
                              "set buffer handling mode while streaming"),
              std::string::npos)
        << LastText();

    stream.SetGrabbing(false);
    EXPECT_EQ(Write(kMode, std::int64_t{2}), GC_ERR_SUCCESS);
    EXPECT_EQ(Read(kMode), 2u);
    // The stream still judges the value.
    EXPECT_EQ(Write(kMode, std::int64_t{3}), GC_ERR_INVALID_INDEX);
}

TEST_F(StreamRegImplTest, FrameGeneratorEdges) {
    // Custom keeps the time that the old preset stood for.
    ASSERT_EQ(Write(kPreset, std::uint64_t{1000}), GC_ERR_SUCCESS);
    ASSERT_EQ(Write(kPreset, kCustom), GC_ERR_SUCCESS);
    EXPECT_EQ(Read(kPreset), kCustom);
    EXPECT_EQ(Read(kAccumTime), 1000u);

    // Auto with a rate of 0: the largest 32-bit time.
    ASSERT_EQ(Write(kFps, 0.0), GC_ERR_SUCCESS);
    ASSERT_EQ(Write(kPreset, std::uint64_t{0}), GC_ERR_SUCCESS);
    EXPECT_EQ(Read(kAccumTime), std::numeric_limits<std::uint32_t>::max());
    // A rate whose time has a fraction is truncated; a negative one gives 0,
    // one whose time reaches 2^32 the largest time.
    ASSERT_EQ(Write(kFps, -4.0), GC_ERR_SUCCESS);
    EXPECT_EQ(Read(kAccumTime), 0u);
    ASSERT_EQ(Write(kFps, 1000000.0 / 4294967296.0), GC_ERR_SUCCESS);
    EXPECT_EQ(Read(kAccumTime), std::numeric_limits<std::uint32_t>::max());
    ASSERT_EQ(Write(kFps, 3.0), GC_ERR_SUCCESS);
    EXPECT_EQ(Read(kAccumTime), 333333u);
    // A rate too short to be a double is refused by the stream, and the
    // time stays.
    const std::uint32_t shortRate = 7;
    unsigned long four = sizeof shortRate;
    EXPECT_NE(stream.WritePort(kFps, &shortRate, &four), GC_ERR_SUCCESS);
    EXPECT_EQ(Read(kAccumTime), 333333u);
    // A preset of exactly four bytes is a time as well.
    const std::uint32_t preset = 2500;
    ASSERT_EQ(stream.WritePort(kPreset, &preset, &four), GC_ERR_SUCCESS);
    EXPECT_EQ(Read(kAccumTime), 2500u);
}

TEST_F(StreamRegImplTest, InterPacketExpiryHasSlotsButNoAddress) {
    GenTL::StreamRegImpl registers(&stream);
    std::uint64_t value = 0;
    unsigned long size = sizeof value;
    EXPECT_EQ(registers.GetStreamInterPacketExpiry_Reg(&value, &size), GC_ERR_INVALID_INDEX);
    EXPECT_EQ(registers.SetStreamInterPacketExpiry_Reg(&value, &size), GC_ERR_NOT_IMPLEMENTED);
    stream.SetGrabbing(true);
    EXPECT_EQ(registers.SetStreamInterPacketExpiry_Reg(&value, &size), GC_ERR_RESOURCE_IN_USE);
    EXPECT_NE(LastText().find("unable to modify inter-packet expiry time while streaming"),
              std::string::npos);
    EXPECT_EQ(stream.ReadPort(0x2200, &value, &size), GC_ERR_INVALID_ADDRESS);
}

TEST_F(StreamRegImplTest, XmlReadIsBoundedByTheRequest) {
    std::string head(16, '\xAA');
    unsigned long size = 5;
    ASSERT_EQ(stream.ReadPort(GenTL::kModuleXmlAddress, head.data(), &size), GC_ERR_SUCCESS);
    EXPECT_EQ(head.substr(0, 5), "<?xml");
    EXPECT_EQ(head[5], '\xAA');
}

} // namespace
