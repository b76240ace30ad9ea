// The modules' GenApi views through the exported functions of the loaded
// producer, as a consumer's GenApi engine uses them, beside simulated
// cameras: each port's XML found through its URL, the registers against the
// info commands, the system's interface selector and the interface's device
// selector, the settings that the grab loops take, the refusals of the four
// spaces, and ForceIP and action commands through the registers as the
// cameras saw them. Register widths
// and the tables against the XML are the unit tests' part (tests/registers).
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "CameraTestBed.h"
#include "ModulePort.h"

namespace {

using kesta_device::EnvList;
using kesta_device::ReadText;
using kesta_netns::Env;
using kesta_netns::ParseIp;

constexpr uint64_t kXml = 0xF0F00000;
// Interface space.
constexpr uint64_t kDeviceUpdateList = 0x1000;
constexpr uint64_t kDeviceSelector = 0x1100;
constexpr uint64_t kDeviceSelectorMax = 0x1103;
constexpr uint64_t kForceIp = 0x2100;
constexpr uint64_t kForceIpAddress = 0x2200;
constexpr uint64_t kForceSubnetMask = 0x2300;
// Device space.
constexpr uint64_t kStreamSelector = 0x1800;
constexpr uint64_t kStreamId = 0x1900;
constexpr uint64_t kActionFire = 0x4000;
constexpr uint64_t kActionDeviceKey = 0x4200;
constexpr uint64_t kActionGroupKey = 0x4300;
constexpr uint64_t kActionGroupMask = 0x4400;
// Stream space.
constexpr uint64_t kMode = 0x0400;
constexpr uint64_t kIsGrabbing = 0x1200;
// The simulated camera's action keys, its count of the actions it acted on,
// and of those it received.
constexpr uint32_t kCameraDeviceKey = 0x090C;
constexpr uint32_t kCameraGroupKey = 0x9800;
constexpr uint32_t kCameraGroupMask = 0x9804;
constexpr uint32_t kCameraActionCount = 0x10030;
constexpr uint32_t kActionsReceived = 0x10100;

/// The four ports on demand, and the system's XML; the process works in a
/// directory of the test's own (the library writes persist.json there).
class ModuleRegisters : public kesta_device::CameraTest {
protected:
    void SetUp() override {
        CameraTest::SetUp();
        if (!IsSkipped() && !HasFatalFailure()) {
            ASSERT_NO_FATAL_FAILURE(m_systemXml.Load(Lib(), m_system));
        }
    }
    uint64_t Read(void* port, uint64_t address) {
        return kesta_device::ReadNumber(Lib(), port, address);
    }
    GC_ERROR Write(void* port, uint64_t address, uint64_t value) {
        return kesta_device::WriteNumber(Lib(), port, address, value);
    }
    /// A system feature's register.
    uint64_t At(const char* feature) { return m_systemXml.AddressOf(feature); }
    /// The bytes an info command gives, a string in 512, a number in 8.
    std::vector<unsigned char> Info(void* port, int cmd, const char* id = nullptr) {
        INFO_DATATYPE type = -1;
        std::vector<unsigned char> info(512, 0);
        size_t size = info.size();
        const GC_ERROR rc =
            id != nullptr      ? Lib().IFGetDeviceInfo(port, id, cmd, &type, info.data(), &size)
            : port == m_system ? Lib().TLGetInfo(port, cmd, &type, info.data(), &size)
            : port == m_iface  ? Lib().IFGetInfo(port, cmd, &type, info.data(), &size)
                               : Lib().DevGetInfo(port, cmd, &type, info.data(), &size);
        EXPECT_EQ(rc, GC_ERR_SUCCESS) << cmd;
        info.resize(type == INFO_DATATYPE_STRING ? 512 : 8);
        return info;
    }
    /// Expects the register to hold these bytes, and no more.
    void ExpectRegisterHolds(void* port, uint64_t address,
                             const std::vector<unsigned char>& bytes) {
        std::vector<unsigned char> reg(bytes.size(), 0xAA);
        size_t size = reg.size();
        ASSERT_EQ(Lib().GCReadPort(port, address, reg.data(), &size), GC_ERR_SUCCESS)
            << std::hex << address << " " << Lib().TakeLastError().text;
        EXPECT_EQ(reg, bytes) << "0x" << std::hex << address;
    }
    /// The action commands camera i received, as a client of this host reads it.
    uint32_t Received(std::size_t camera) {
        return kesta_device::HostClient(camera).Reg(kActionsReceived);
    }

    kesta_device::TemporaryWorkingDirectory m_dir;
    kesta_device::PortXml m_systemXml;
};

TEST_F(ModuleRegisters, EachPortServesItsXmlWhole) {
    ASSERT_NO_FATAL_FAILURE(OpenStream());
    const std::pair<void*, const char*> modules[] = {{m_system, "System"},
                                                     {m_iface, "Interface"},
                                                     {m_device, "Device"},
                                                     {m_stream, "DataStream"}};
    for (const auto& [port, module] : modules) {
        SCOPED_TRACE(module);
        uint32_t urls = 0;
        ASSERT_EQ(Lib().GCGetNumPortURLs(port, &urls), GC_ERR_SUCCESS);
        EXPECT_EQ(urls, 1u);
        kesta_device::PortXml xml;
        ASSERT_NO_FATAL_FAILURE(xml.Load(Lib(), port));
        EXPECT_EQ(xml.fileName,
                  std::string("SFNC_GenTL") + module + "_Reference_Version_1_0_0_Schema_1_1.xml");
        EXPECT_EQ(xml.address, kXml);
        const std::string end = "</RegisterDescription>\n";
        EXPECT_EQ(std::string(xml.bytes.end() - end.size(), xml.bytes.end()), end);
        EXPECT_EQ(xml.root.child("Port").attribute("Name").as_string(),
                  kesta_device::PortName(Lib(), port));
    }
    EXPECT_EQ(kesta_device::PortName(Lib(), m_stream), "StreamPort");
}

TEST_F(ModuleRegisters, RegistersAnswerAsTheInfoCommands) {
    ASSERT_NO_FATAL_FAILURE(OpenStream());
    const std::pair<const char*, int> system[] = {
        {"TLID", TL_INFO_ID},           {"TLVendorName", TL_INFO_VENDOR},
        {"TLModelName", TL_INFO_MODEL}, {"TLVersion", TL_INFO_VERSION},
        {"TLFileName", TL_INFO_NAME},   {"TLDisplayName", TL_INFO_DISPLAYNAME},
        {"TLPath", TL_INFO_PATHNAME}};
    for (const auto& [feature, cmd] : system) {
        ExpectRegisterHolds(m_system, At(feature), Info(m_system, cmd));
    }
    const std::tuple<void*, uint64_t, int> rows[] = {
        {m_iface, 0x0100, INTERFACE_INFO_ID},
        {m_iface, 0x0200, INTERFACE_INFO_DISPLAYNAME},
        {m_iface, 0x0600, INTERFACE_INFO_GEV_MAC_ADDRESS},
        {m_iface, 0x0800, INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS},
        {m_iface, 0x0900, INTERFACE_INFO_GEV_SUBNET_MASK},
        {m_device, 0x0100, DEVICE_INFO_ID},
        {m_device, 0x0200, DEVICE_INFO_SERIAL_NUMBER},
        {m_device, 0x0300, DEVICE_INFO_USER_DEFINED_NAME},
        {m_device, 0x0400, DEVICE_INFO_VENDOR},
        {m_device, 0x0500, DEVICE_INFO_MODEL},
        {m_device, 0x0700, DEVICE_INFO_VERSION},
        {m_device, 0x1000, DEVICE_INFO_DISPLAYNAME},
        {m_device, 0x1100, DEVICE_INFO_ACCESS_STATUS},
        {m_device, 0x1200, 1001}, // endianness mechanism
        {m_device, 0x1400, DEVICE_INFO_GEV_IP_ADDRESS},
        {m_device, 0x1500, DEVICE_INFO_GEV_SUBNET_MASK},
        {m_device, 0x1600, DEVICE_INFO_GEV_MAC_ADDRESS},
    };
    for (const auto& [port, address, cmd] : rows) {
        ExpectRegisterHolds(port, address, Info(port, cmd));
    }
    // The stream list: the selected id, and the action values unwritten.
    EXPECT_EQ(ReadText(Lib(), m_device, kStreamId), "0");
    ASSERT_EQ(Write(m_device, kStreamSelector, 1), GC_ERR_SUCCESS);
    EXPECT_EQ(ReadText(Lib(), m_device, kStreamId), "1");
    EXPECT_EQ(Read(m_device, kActionGroupKey), 0u);
}

TEST_F(ModuleRegisters, SelectorsWalkTheInterfacesAndTheDevices) {
    uint32_t count = 0;
    ASSERT_EQ(Lib().TLGetNumInterfaces(m_system, &count), GC_ERR_SUCCESS);
    EXPECT_EQ(Read(m_system, At("InterfaceSelector_Max_Reg")), count - 1);
    for (uint32_t i = 0; i < count; ++i) {
        ASSERT_EQ(Write(m_system, At("InterfaceSelector"), i), GC_ERR_SUCCESS);
        EXPECT_EQ(Read(m_system, At("InterfaceSelector")), i);
        EXPECT_EQ(Read(m_system, At("InterfaceID_Available_Reg")), 1u);
        char listed[512] = {};
        size_t size = sizeof listed;
        ASSERT_EQ(Lib().TLGetInterfaceID(m_system, i, listed, &size), GC_ERR_SUCCESS);
        const std::string id = ReadText(Lib(), m_system, At("InterfaceID"));
        EXPECT_EQ(id, listed);
        // The id is the key of the interface's other facts.
        for (const auto& [cmd, expected] :
             {std::pair<int, std::string>{INTERFACE_INFO_DISPLAYNAME,
                                          "GigE Interface ( MAC:" + id + " )"},
              {INTERFACE_INFO_TLTYPE, "GEV"}}) {
            char text[512] = {};
            INFO_DATATYPE type = -1;
            size = sizeof text;
            ASSERT_EQ(Lib().TLGetInterfaceInfo(m_system, id.c_str(), cmd, &type, text, &size),
                      GC_ERR_SUCCESS);
            EXPECT_EQ(text, expected);
        }
    }
    EXPECT_EQ(Write(m_system, At("InterfaceSelector"), count), GC_ERR_INVALID_INDEX);
    EXPECT_EQ(Read(m_system, At("InterfaceSelector")), count - 1);

    ASSERT_EQ(Lib().IFGetNumDevices(m_iface, &count), GC_ERR_SUCCESS);
    ASSERT_EQ(count, EnvList("KESTA_CAMERA_SERIALS").size()) << "the discovery missed a camera";
    EXPECT_EQ(Read(m_iface, kDeviceSelectorMax), count - 1);
    const std::pair<uint64_t, int> rows[] = {
        {0x1200, DEVICE_INFO_ID},
        {0x1300, DEVICE_INFO_VENDOR},
        {0x1400, DEVICE_INFO_MODEL},
        {0x1600, DEVICE_INFO_SERIAL_NUMBER},
        {0x1700, DEVICE_INFO_USER_DEFINED_NAME},
        {0x1800, DEVICE_INFO_GEV_IP_ADDRESS},
        {0x1900, DEVICE_INFO_GEV_SUBNET_MASK},
        {0x2000, DEVICE_INFO_GEV_MAC_ADDRESS},
    };
    for (uint32_t i = 0; i < count; ++i) {
        char id[256] = {};
        size_t size = sizeof id;
        ASSERT_EQ(Lib().IFGetDeviceID(m_iface, i, id, &size), GC_ERR_SUCCESS);
        ASSERT_EQ(Write(m_iface, kDeviceSelector, i), GC_ERR_SUCCESS);
        SCOPED_TRACE(id);
        for (const auto& [address, cmd] : rows) {
            ExpectRegisterHolds(m_iface, address, Info(m_iface, cmd, id));
            EXPECT_EQ(Read(m_iface, address + 1), 1u) << std::hex << address;
        }
    }
    EXPECT_EQ(Write(m_iface, kDeviceSelector, count), GC_ERR_INVALID_INDEX);
    EXPECT_EQ(Read(m_iface, kDeviceSelector), count - 1);
    // DeviceUpdateList discovers for 100 ms: a loaded machine may miss a
    // camera once, not every time.
    uint32_t found = 0;
    for (int attempt = 0; attempt < 10 && found != count; ++attempt) {
        ASSERT_EQ(Write(m_iface, kDeviceUpdateList, 1), GC_ERR_SUCCESS);
        ASSERT_EQ(Lib().IFGetNumDevices(m_iface, &found), GC_ERR_SUCCESS);
    }
    EXPECT_EQ(found, count);
}

TEST_F(ModuleRegisters, SettingsOfTheGrabLoopsAndTheFrameGenerator) {
    ASSERT_NO_FATAL_FAILURE(OpenStream());
    kesta_device::PortXml xml;
    ASSERT_NO_FATAL_FAILURE(xml.Load(Lib(), m_stream));
    const uint64_t resend = xml.AddressOf("StreamPacketResendEnable");
    const uint64_t autoSize = xml.AddressOf("StreamAutoNegotiatePacketSize");
    for (const uint64_t on : {0, 1}) {
        ASSERT_EQ(Write(m_stream, resend, on), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
        EXPECT_EQ(StreamInfo<bool8_t>(STREAM_INFO_PACKET_RESEND_ENABLE), on);
        EXPECT_EQ(Read(m_stream, resend) & 0xFF, on);
        ASSERT_EQ(Write(m_stream, autoSize, on), GC_ERR_SUCCESS);
        EXPECT_EQ(StreamInfo<bool8_t>(STREAM_INFO_AUTO_PACKET_SIZE_ENABLE), on);
    }
    ASSERT_EQ(Write(m_stream, xml.AddressOf("StreamBufferHandlingMode"), 2), GC_ERR_SUCCESS);
    EXPECT_EQ(StreamInfo<int64_t>(STREAM_INFO_BUFFER_HANDLING_MODE), 2);
    EXPECT_EQ(Write(m_stream, kMode, 3), GC_ERR_INVALID_INDEX);
    EXPECT_EQ(Read(m_stream, kMode), 2u);
    ASSERT_EQ(Write(m_stream, xml.AddressOf("StreamMaxNumResendRequestsPerImage"), 17),
              GC_ERR_SUCCESS);
    EXPECT_EQ(StreamInfo<uint32_t>(STREAM_INFO_MAX_RESEND_REQUESTS), 17u);
}

TEST_F(ModuleRegisters, RefusalsOfTheFourSpaces) {
    ASSERT_NO_FATAL_FAILURE(OpenStream());
    void* const tl = m_system;
    void* const in = m_iface;
    void* const dev = m_device;
    void* const ds = m_stream;
    const struct {
        void* port;
        bool write;
        uint64_t address;
        size_t size;
        uint64_t value;
        GC_ERROR code;
    } rows[] = {
        // No register there, or inside one: exact addresses only.
        {tl, false, 0x0101, 8, 0, GC_ERR_INVALID_ADDRESS},
        {tl, false, At("TLID") + 4, 8, 0, GC_ERR_INVALID_ADDRESS},
        {dev, true, kXml + 1, 8, 0, GC_ERR_INVALID_ADDRESS},
        // Against the access of the register.
        {tl, true, At("TLID"), 8, 0, GC_ERR_ACCESS_DENIED},
        {tl, true, kXml, 8, 0, GC_ERR_ACCESS_DENIED},
        {dev, false, kActionFire, 8, 0, GC_ERR_ACCESS_DENIED},
        {ds, true, kIsGrabbing, 8, 0, GC_ERR_ACCESS_DENIED},
        // Buffers too small for the value.
        {tl, false, At("TLVendorName"), 8, 0, GC_ERR_BUFFER_TOO_SMALL},
        {tl, true, At("InterfaceSelector"), 4, 0, GC_ERR_BUFFER_TOO_SMALL},
        {dev, true, kActionGroupKey, 2, 0, GC_ERR_BUFFER_TOO_SMALL},
        // Values, and what this transport or this state does not have.
        {tl, true, At("ThreadSelection"), 8, 3, GC_ERR_INVALID_VALUE},
        {tl, true, At("ThreadPriority"), 8, 4, GC_ERR_INVALID_VALUE},
        {tl, false, At("GevInterfaceMACAddress"), 8, 0, GC_ERR_NOT_AVAILABLE},
        {tl, false, At("DriverVersion"), 256, 0, GC_ERR_NOT_IMPLEMENTED},
        {tl, true, At("LwfDriverLogLevel"), 8, 400, GC_ERR_NOT_IMPLEMENTED},
        {in, false, 0x0400, 8, 0, GC_ERR_NOT_IMPLEMENTED},
        {in, false, 0x0500, 8, 0, GC_ERR_NOT_IMPLEMENTED},
        {dev, false, 0x1700, 8, 0, GC_ERR_NOT_IMPLEMENTED},
        {in, true, kForceIp, 8, 0, GC_ERR_INVALID_PARAMETER}, // no address to give
        {dev, true, kStreamSelector, 8, 2, GC_ERR_INVALID_INDEX},
    };
    for (const auto& row : rows) {
        std::vector<char> data(512, '\0');
        std::memcpy(data.data(), &row.value, sizeof row.value);
        size_t size = row.size;
        const GC_ERROR rc = row.write ? Lib().GCWritePort(row.port, row.address, data.data(), &size)
                                      : Lib().GCReadPort(row.port, row.address, data.data(), &size);
        EXPECT_EQ(rc, row.code) << row.port << " 0x" << std::hex << row.address;
        EXPECT_EQ(Lib().TakeLastError().code, row.code);
    }
    uint64_t value = 0;
    size_t size = sizeof value;
    EXPECT_EQ(Lib().GCReadPort(dev, kStreamSelector, &value, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(Lib().GCWritePort(ds, kMode, nullptr, &size), GC_ERR_INVALID_PARAMETER);
    // What the refused writes would have changed is as it was, but a stream
    // index past the list, which is kept: StreamID refuses then.
    EXPECT_EQ(Read(tl, At("InterfaceSelector")), 0u);
    EXPECT_EQ(Read(tl, At("ThreadSelection")), 0u);
    EXPECT_EQ(Read(in, kDeviceSelector), 0u);
    EXPECT_EQ(Read(ds, kMode), 0u);
    EXPECT_EQ(Read(dev, kStreamSelector), 2u);
    char id[512];
    size = sizeof id;
    EXPECT_EQ(Lib().GCReadPort(dev, kStreamId, id, &size), GC_ERR_INVALID_INDEX);
}

TEST_F(ModuleRegisters, UnicastActionCommandReachesTheCamera) {
    ASSERT_NO_FATAL_FAILURE(OpenStream());
    const std::pair<uint32_t, uint32_t> keys[] = {
        {kCameraDeviceKey, 0x11223344}, {kCameraGroupKey, 0x55}, {kCameraGroupMask, 0x0F}};
    for (const auto& [address, value] : keys) {
        ASSERT_EQ(WriteCamera(address, value), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
    }
    ASSERT_EQ(Write(m_device, kActionDeviceKey, 0x11223344), GC_ERR_SUCCESS);
    ASSERT_EQ(Write(m_device, kActionGroupKey, 0x55), GC_ERR_SUCCESS);
    ASSERT_EQ(Write(m_device, kActionGroupMask, 0x01), GC_ERR_SUCCESS);
    EXPECT_EQ(Read(m_device, kActionDeviceKey), 0x11223344u);
    EXPECT_EQ(Write(m_device, kActionFire, 1), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
    EXPECT_EQ(ReadCamera(kCameraActionCount), 1u);
}

// Camera 1 moves to another address and back.
TEST_F(ModuleRegisters, ForceIpThroughTheRegistersMovesTheSelectedCamera) {
    const std::string serial = EnvList("KESTA_CAMERA_SERIALS").at(1);
    for (const std::string& ip : {std::string("192.168.213.77"), EnvList("KESTA_CAMERA_IPS")[1]}) {
        uint32_t count = 0;
        ASSERT_EQ(Lib().IFGetNumDevices(m_iface, &count), GC_ERR_SUCCESS);
        bool selected = false;
        for (uint32_t i = 0; i < count && !selected; ++i) {
            ASSERT_EQ(Write(m_iface, kDeviceSelector, i), GC_ERR_SUCCESS);
            selected = ReadText(Lib(), m_iface, 0x1200) == serial;
        }
        ASSERT_TRUE(selected) << serial << " not listed";
        ASSERT_EQ(Write(m_iface, kForceIpAddress, ParseIp(ip)), GC_ERR_SUCCESS);
        ASSERT_EQ(Write(m_iface, kForceSubnetMask, ParseIp(Env("KESTA_NETNS_NETMASK"))),
                  GC_ERR_SUCCESS);
        ASSERT_EQ(Write(m_iface, kForceIp, 1), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
        ASSERT_EQ(Lib().IFUpdateDeviceList(m_iface, nullptr, kDiscoveryMs), GC_ERR_SUCCESS);
        long moved = 0;
        INFO_DATATYPE type = -1;
        size_t size = sizeof moved;
        ASSERT_EQ(Lib().IFGetDeviceInfo(m_iface, serial.c_str(), DEVICE_INFO_GEV_IP_ADDRESS, &type,
                                        &moved, &size),
                  GC_ERR_SUCCESS);
        EXPECT_EQ(static_cast<uint32_t>(moved), ParseIp(ip));
    }
}

// --- Broadcast action commands through the system's port -----------------------

// The CLI's action command (cli/kesta-gentl-features) reaches every camera
// through the system's features; none leaves an adapter that is down.
TEST_F(ModuleRegisters, BroadcastActionLeavesNoAdapterThatIsDown) {
    const uint32_t before[] = {Received(0), Received(1)};
    // Only in this namespace, which the fixture made sure of.
    const std::string link = "ip link set " + Env("KESTA_NETNS_HOST_IF");
    ASSERT_EQ(std::system((link + " down").c_str()), 0);
    const std::pair<const char*, uint64_t> values[] = {{"ActionCommandDeviceKey", 1},
                                                       {"ActionCommandGroupKey", 1},
                                                       {"ActionCommandGroupMask", 1},
                                                       {"ActionCommandTargetIP", 0xFFFFFFFF},
                                                       {"ActionCommandFireCommand", 1}};
    GC_ERROR rc = GC_ERR_SUCCESS;
    for (const auto& [feature, value] : values) {
        rc = rc != GC_ERR_SUCCESS ? rc : Write(m_system, At(feature), value);
    }
    EXPECT_EQ(std::system((link + " up").c_str()), 0);
    // Taking the link down dropped the test bed's multicast route.
    std::system(("ip route replace 224.0.0.0/4 dev " + Env("KESTA_NETNS_HOST_IF")).c_str());
    EXPECT_EQ(rc, GC_ERR_SUCCESS) << "nothing to send through is no failure";
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(Received(0), before[0]);
    EXPECT_EQ(Received(1), before[1]);
}

} // namespace
