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

namespace {

constexpr uint64_t kXmlAddress = 0xF0F00000;
constexpr uint64_t kMode = 0x0400;
constexpr uint64_t kIsGrabbing = 0x1200;
constexpr uint64_t kMulticast = 0x2400;
constexpr uint64_t kAccumTime = 0x2502;
constexpr uint64_t kFps = 0x2503;
constexpr uint64_t kPreset = 0x2510;

/// A register node of the XML.
struct Node {
    std::string name;
    uint64_t address;
};

class StreamRegisters : public kesta_device::CameraTest {
protected:
    void SetUp() override {
        CameraTest::SetUp();
        if (m_iface != nullptr) {
            // The simulator takes register writes only from its controller.
            OpenStream(DEVICE_ACCESS_CONTROL);
        }
    }

    /// The URL as URL_INFO_URL gives it.
    std::string Url() {
        INFO_DATATYPE type = -1;
        size_t size = 0;
        EXPECT_EQ(Lib().GCGetPortURLInfo(m_stream, 0, URL_INFO_URL, &type, nullptr, &size),
                  GC_ERR_SUCCESS);
        std::vector<char> url(size);
        EXPECT_EQ(Lib().GCGetPortURLInfo(m_stream, 0, URL_INFO_URL, &type, url.data(), &size),
                  GC_ERR_SUCCESS);
        EXPECT_EQ(type, INFO_DATATYPE_STRING);
        return std::string(url.data(), strnlen(url.data(), url.size()));
    }

    /// The XML, found as a consumer finds it: "local:name;ADDR;LEN[?...]",
    /// then exactly LEN bytes at ADDR in one port read.
    void LoadXml() {
        const std::string url = Url();
        const std::string scheme = "local:";
        ASSERT_EQ(url.compare(0, scheme.size(), scheme), 0) << url;
        const size_t first = url.find(';');
        const size_t second = url.find(';', first + 1);
        ASSERT_NE(second, std::string::npos) << url;
        m_fileName = url.substr(scheme.size(), first - scheme.size());
        const uint64_t address =
            std::stoull(url.substr(first + 1, second - first - 1), nullptr, 16);
        const size_t length = std::stoull(url.substr(second + 1), nullptr, 16);
        ASSERT_EQ(address, kXmlAddress);
        ASSERT_GT(length, 0u);
        m_xml.assign(length, '\0');
        size_t size = length;
        ASSERT_EQ(Lib().GCReadPort(m_stream, address, m_xml.data(), &size), GC_ERR_SUCCESS)
            << Lib().TakeLastError().text;
        const pugi::xml_parse_result parsed = m_doc.load_buffer(m_xml.data(), m_xml.size());
        ASSERT_TRUE(parsed) << parsed.description() << " at " << parsed.offset;
        m_root = m_doc.child("RegisterDescription");
        ASSERT_TRUE(m_root);
        for (pugi::xml_node node : m_root.children()) {
            if (node.child("Address")) {
                m_nodes.push_back(
                    {node.attribute("Name").as_string(),
                     std::stoull(node.child("Address").text().as_string(), nullptr, 0)});
            }
        }
    }
    /// The register behind a feature of the XML.
    uint64_t AddressOf(const char* feature) {
        const std::string reg =
            m_root.find_child_by_attribute("Name", feature).child("pValue").text().as_string();
        for (const Node& n : m_nodes) {
            if (n.name == reg) {
                return n.address;
            }
        }
        ADD_FAILURE() << "no register for " << feature;
        return 0;
    }

    int Write(uint64_t address, uint64_t value) {
        size_t size = sizeof value;
        return Lib().GCWritePort(m_stream, address, &value, &size);
    }
    int WriteRate(double rate) {
        size_t size = sizeof rate;
        return Lib().GCWritePort(m_stream, kFps, &rate, &size);
    }
    uint64_t Read(uint64_t address) {
        uint64_t value = 0;
        size_t size = sizeof value;
        EXPECT_EQ(Lib().GCReadPort(m_stream, address, &value, &size), GC_ERR_SUCCESS)
            << std::hex << address << " " << Lib().TakeLastError().text;
        return value;
    }
    std::string PortName() {
        INFO_DATATYPE type = -1;
        char name[128] = {};
        size_t size = sizeof name;
        EXPECT_EQ(Lib().GCGetPortInfo(m_stream, PORT_INFO_PORTNAME, &type, name, &size),
                  GC_ERR_SUCCESS);
        return name;
    }

    std::string m_fileName;
    std::vector<char> m_xml;
    pugi::xml_document m_doc;
    pugi::xml_node m_root;
    std::vector<Node> m_nodes;
};

TEST_F(StreamRegisters, UrlLeadsToTheXmlOnThePort) {
    uint32_t urls = 0;
    ASSERT_EQ(Lib().GCGetNumPortURLs(m_stream, &urls), GC_ERR_SUCCESS);
    EXPECT_EQ(urls, 1u);
    ASSERT_NO_FATAL_FAILURE(LoadXml());
    EXPECT_EQ(m_fileName, "SFNC_GenTLDataStream_Reference_Version_1_0_0_Schema_1_1.xml");
    const std::string end = "</RegisterDescription>\n";
    EXPECT_EQ(std::string(m_xml.end() - end.size(), m_xml.end()), end);
    const pugi::xml_node port = m_root.child("Port");
    ASSERT_TRUE(port);
    EXPECT_EQ(port.attribute("Name").as_string(), PortName());
    EXPECT_EQ(PortName(), "StreamPort");

    // Any size at the XML's address gets the whole file at once.
    std::vector<char> more(m_xml.size() + 100, '\x55');
    size_t size = more.size();
    ASSERT_EQ(Lib().GCReadPort(m_stream, kXmlAddress, more.data(), &size), GC_ERR_SUCCESS);
    EXPECT_TRUE(std::equal(m_xml.begin(), m_xml.end(), more.begin()));
}

TEST_F(StreamRegisters, SettingsOfTheGrabLoopsThroughTheirFeatures) {
    ASSERT_NO_FATAL_FAILURE(LoadXml());
    const uint64_t resend = AddressOf("StreamPacketResendEnable");
    ASSERT_EQ(Write(resend, 0), GC_ERR_SUCCESS);
    EXPECT_FALSE(StreamInfo<bool8_t>(STREAM_INFO_PACKET_RESEND_ENABLE));
    ASSERT_EQ(Write(resend, 1), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
    EXPECT_TRUE(StreamInfo<bool8_t>(STREAM_INFO_PACKET_RESEND_ENABLE));
    EXPECT_EQ(Read(resend) & 0xFF, 1u);

    const uint64_t autoSize = AddressOf("StreamAutoNegotiatePacketSize");
    ASSERT_EQ(Write(autoSize, 0), GC_ERR_SUCCESS);
    EXPECT_FALSE(StreamInfo<bool8_t>(STREAM_INFO_AUTO_PACKET_SIZE_ENABLE));
    ASSERT_EQ(Write(autoSize, 1), GC_ERR_SUCCESS);
    EXPECT_TRUE(StreamInfo<bool8_t>(STREAM_INFO_AUTO_PACKET_SIZE_ENABLE));

    ASSERT_EQ(Write(AddressOf("StreamBufferHandlingMode"), 2), GC_ERR_SUCCESS);
    EXPECT_EQ(StreamInfo<int64_t>(STREAM_INFO_BUFFER_HANDLING_MODE), 2);
    EXPECT_EQ(Write(kMode, 3), GC_ERR_INVALID_INDEX);
    EXPECT_EQ(Read(kMode), 2u);

    ASSERT_EQ(Write(AddressOf("StreamMaxNumResendRequestsPerImage"), 17), GC_ERR_SUCCESS);
    EXPECT_EQ(StreamInfo<uint32_t>(STREAM_INFO_MAX_RESEND_REQUESTS), 17u);
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
    EXPECT_TRUE(StreamInfo<bool8_t>(STREAM_INFO_MULTICAST_ENABLE));

    ASSERT_EQ(Lib().DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS);
    ASSERT_EQ(Write(kMulticast, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(Write(kMode, 1), GC_ERR_SUCCESS);
    EXPECT_EQ(StreamInfo<int64_t>(STREAM_INFO_BUFFER_HANDLING_MODE), 1);
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
