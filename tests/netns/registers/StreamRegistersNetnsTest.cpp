// The stream's GenApi view as a consumer's GenApi engine uses it, through
// the exported functions of the loaded producer, on stream 0 of a simulated
// camera: the URL and the XML read from the port, the settings that the grab
// loops take, the frame generator, the refusals while the stream runs, and
// addresses the space does not serve. Register widths and the full refusal
// tables are the unit tests' part (tests/registers).
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include "CameraTestBed.h"
#include "ModulePort.h"

namespace {

constexpr uint64_t kXmlAddress = 0xF0F00000;
constexpr uint64_t kMode = 0x0400;
constexpr uint64_t kIsGrabbing = 0x1200;
constexpr uint64_t kMulticast = 0x2400;
constexpr uint64_t kAccumTime = 0x2502;
constexpr uint64_t kFps = 0x2503;
constexpr uint64_t kPreset = 0x2510;

class StreamRegisters : public kesta_device::CameraTest {
protected:
    void SetUp() override {
        CameraTest::SetUp();
        if (m_iface != nullptr) {
            // The simulator takes register writes only from its controller.
            OpenStream(DEVICE_ACCESS_CONTROL);
        }
    }

    void LoadXml() { ASSERT_NO_FATAL_FAILURE(kesta_device::LoadPortXml(Lib(), m_stream, m_xml)); }
    /// The register behind a feature of the XML.
    uint64_t AddressOf(const char* feature) {
        const pugi::xml_node root = m_xml.root;
        const std::string reg =
            root.find_child_by_attribute("Name", feature).child("pValue").text().as_string();
        const pugi::xml_node node = root.find_child_by_attribute("Name", reg.c_str());
        EXPECT_TRUE(node.child("Address")) << "no register for " << feature;
        return std::stoull(node.child("Address").text().as_string("0"), nullptr, 0);
    }

    int Write(uint64_t address, uint64_t value) {
        return kesta_device::WriteNumber(Lib(), m_stream, address, value);
    }
    int WriteRate(double rate) {
        size_t size = sizeof rate;
        return Lib().GCWritePort(m_stream, kFps, &rate, &size);
    }
    uint64_t Read(uint64_t address) { return kesta_device::ReadNumber(Lib(), m_stream, address); }
    template <typename T> T Info(STREAM_INFO_CMD cmd) {
        INFO_DATATYPE type = -1;
        T value{};
        size_t size = sizeof value;
        EXPECT_EQ(Lib().DSGetInfo(m_stream, cmd, &type, &value, &size), GC_ERR_SUCCESS) << cmd;
        return value;
    }

    kesta_device::PortXml m_xml;
};

TEST_F(StreamRegisters, UrlLeadsToTheXmlOnThePort) {
    uint32_t urls = 0;
    ASSERT_EQ(Lib().GCGetNumPortURLs(m_stream, &urls), GC_ERR_SUCCESS);
    EXPECT_EQ(urls, 1u);
    ASSERT_NO_FATAL_FAILURE(LoadXml());
    EXPECT_EQ(m_xml.fileName, "SFNC_GenTLDataStream_Reference_Version_1_0_0_Schema_1_1.xml");
    const std::string end = "</RegisterDescription>\n";
    EXPECT_EQ(std::string(m_xml.bytes.end() - end.size(), m_xml.bytes.end()), end);
    EXPECT_EQ(m_xml.root.child("Port").attribute("Name").as_string(),
              kesta_device::PortName(Lib(), m_stream));
    EXPECT_EQ(kesta_device::PortName(Lib(), m_stream), "StreamPort");

    // Any size at the XML's address gets the whole file at once.
    std::vector<char> more(m_xml.bytes.size() + 100, '\x55');
    size_t size = more.size();
    ASSERT_EQ(Lib().GCReadPort(m_stream, kXmlAddress, more.data(), &size), GC_ERR_SUCCESS);
    EXPECT_TRUE(std::equal(m_xml.bytes.begin(), m_xml.bytes.end(), more.begin()));
}

TEST_F(StreamRegisters, SettingsOfTheGrabLoopsThroughTheirFeatures) {
    ASSERT_NO_FATAL_FAILURE(LoadXml());
    const uint64_t resend = AddressOf("StreamPacketResendEnable");
    ASSERT_EQ(Write(resend, 0), GC_ERR_SUCCESS);
    EXPECT_FALSE(Info<bool8_t>(STREAM_INFO_PACKET_RESEND_ENABLE));
    ASSERT_EQ(Write(resend, 1), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
    EXPECT_TRUE(Info<bool8_t>(STREAM_INFO_PACKET_RESEND_ENABLE));
    EXPECT_EQ(Read(resend) & 0xFF, 1u);

    const uint64_t autoSize = AddressOf("StreamAutoNegotiatePacketSize");
    ASSERT_EQ(Write(autoSize, 0), GC_ERR_SUCCESS);
    EXPECT_FALSE(Info<bool8_t>(STREAM_INFO_AUTO_PACKET_SIZE_ENABLE));
    ASSERT_EQ(Write(autoSize, 1), GC_ERR_SUCCESS);
    EXPECT_TRUE(Info<bool8_t>(STREAM_INFO_AUTO_PACKET_SIZE_ENABLE));

    ASSERT_EQ(Write(AddressOf("StreamBufferHandlingMode"), 2), GC_ERR_SUCCESS);
    EXPECT_EQ(Info<int64_t>(STREAM_INFO_BUFFER_HANDLING_MODE), 2);
    EXPECT_EQ(Write(kMode, 3), GC_ERR_INVALID_INDEX);
    EXPECT_EQ(Read(kMode), 2u);

    ASSERT_EQ(Write(AddressOf("StreamMaxNumResendRequestsPerImage"), 17), GC_ERR_SUCCESS);
    EXPECT_EQ(Info<uint32_t>(STREAM_INFO_MAX_RESEND_REQUESTS), 17u);
}

TEST_F(StreamRegisters, FrameGeneratorTiesTimeRateAndPreset) {
    // A fixed preset is the time; the rate leaves it alone.
    ASSERT_EQ(Write(kPreset, 1000), GC_ERR_SUCCESS);
    EXPECT_EQ(Read(kAccumTime), 1000u);
    ASSERT_EQ(WriteRate(50.0), GC_ERR_SUCCESS);
    EXPECT_EQ(Read(kAccumTime), 1000u);
    // Auto: the time follows the rate.
    ASSERT_EQ(Write(kPreset, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(Read(kAccumTime), 20000u);
    ASSERT_EQ(WriteRate(25.0), GC_ERR_SUCCESS);
    EXPECT_EQ(Read(kAccumTime), 40000u);
    // A time of its own makes the preset custom.
    ASSERT_EQ(Write(kAccumTime, 5000), GC_ERR_SUCCESS);
    EXPECT_EQ(Read(kAccumTime), 5000u);
    EXPECT_EQ(Read(kPreset), 100000000u);
    // A preset that no entry names is taken as a time.
    ASSERT_EQ(Write(kPreset, 12345), GC_ERR_SUCCESS);
    EXPECT_EQ(Read(kPreset), 12345u);
    EXPECT_EQ(Read(kAccumTime), 12345u);
}

TEST_F(StreamRegisters, RunningStreamRefusesWritesButMulticast) {
    BUFFER_HANDLE buffer = nullptr;
    ASSERT_EQ(Lib().DSAllocAndAnnounceBuffer(m_stream, 4096, nullptr, &buffer), GC_ERR_SUCCESS);
    ASSERT_EQ(Lib().DSQueueBuffer(m_stream, buffer), GC_ERR_SUCCESS);
    ASSERT_EQ(Lib().DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE),
              GC_ERR_SUCCESS)
        << Lib().TakeLastError().text;
    EXPECT_EQ(Read(kIsGrabbing) & 0xFF, 1u);
    EXPECT_EQ(Write(kMode, 1), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(Lib().TakeLastError().code, GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(WriteRate(10.0), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(Read(kMode), 0u);
    EXPECT_EQ(Write(kMulticast, 1), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
    EXPECT_TRUE(Info<bool8_t>(STREAM_INFO_MULTICAST_ENABLE));

    ASSERT_EQ(Lib().DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS);
    ASSERT_EQ(Write(kMulticast, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(Write(kMode, 1), GC_ERR_SUCCESS);
    EXPECT_EQ(Info<int64_t>(STREAM_INFO_BUFFER_HANDLING_MODE), 1);
}

TEST_F(StreamRegisters, AddressesTheSpaceDoesNotServe) {
    uint64_t value = 1;
    size_t size = sizeof value;
    // Unknown, or inside a register: no range decoding.
    for (uint64_t address : {uint64_t{0x2200}, uint64_t{0x0101}, kXmlAddress + 1}) {
        EXPECT_EQ(Lib().GCReadPort(m_stream, address, &value, &size), GC_ERR_INVALID_ADDRESS)
            << std::hex << address;
        EXPECT_EQ(Lib().GCWritePort(m_stream, address, &value, &size), GC_ERR_INVALID_ADDRESS)
            << std::hex << address;
    }
    // Read-only registers and the XML refuse writes.
    for (uint64_t address : {kIsGrabbing, kXmlAddress}) {
        EXPECT_EQ(Lib().GCWritePort(m_stream, address, &value, &size), GC_ERR_ACCESS_DENIED)
            << std::hex << address;
    }
    EXPECT_EQ(Lib().GCReadPort(m_stream, kMode, &value, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(Lib().GCWritePort(m_stream, kMode, nullptr, &size), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(Read(kMode), 0u);
}

} // namespace
