// The interface's and the device's GenApi views through the exported
// functions of the loaded producer, beside simulated cameras: the XML of
// each port, the registers against the info commands, the device selector
// over several cameras, ForceIP and a unicast action command through the
// registers, and the refusals of the register spaces.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CameraTestBed.h"
#include "ModulePort.h"

namespace {

using kesta_device::ReadNumber;
using kesta_device::ReadText;
using kesta_device::WriteNumber;

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
// The simulated camera's action registers and its count of accepted ones.
constexpr uint64_t kCameraActionDeviceKey = 0x090C;
constexpr uint64_t kCameraActionGroupKey = 0x9800;
constexpr uint64_t kCameraActionGroupMask = 0x9804;
constexpr uint64_t kCameraActionCount = 0x10030;

/// The camera opened on demand; the process works in a directory of the
/// test's own.
class ModuleRegisters : public kesta_device::CameraTest {
protected:
    void OpenDevice() {
        ASSERT_EQ(Lib().IFOpenDevice(m_iface, m_serial.c_str(), DEVICE_ACCESS_CONTROL, &m_device),
                  GC_ERR_SUCCESS)
            << Lib().TakeLastError().text;
    }
    /// A camera register through the remote port, big-endian on the wire.
    void WriteCamera(uint64_t address, uint32_t value) {
        PORT_HANDLE port = nullptr;
        ASSERT_EQ(Lib().DevGetPort(m_device, &port), GC_ERR_SUCCESS);
        const unsigned char bytes[4] = {
            static_cast<unsigned char>(value >> 24), static_cast<unsigned char>(value >> 16),
            static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
        size_t size = sizeof bytes;
        ASSERT_EQ(Lib().GCWritePort(port, address, bytes, &size), GC_ERR_SUCCESS)
            << Lib().TakeLastError().text;
    }
    uint64_t Read(void* port, uint64_t address) { return ReadNumber(Lib(), port, address); }
    GC_ERROR Write(void* port, uint64_t address, uint64_t value) {
        return WriteNumber(Lib(), port, address, value);
    }

    kesta_device::TemporaryWorkingDirectory m_dir;
};

TEST_F(ModuleRegisters, EachPortServesItsXmlWhole) {
    ASSERT_NO_FATAL_FAILURE(OpenDevice());
    const struct {
        void* port;
        const char* file;
    } modules[] = {
        {m_iface, "SFNC_GenTLInterface_Reference_Version_1_0_0_Schema_1_1.xml"},
        {m_device, "SFNC_GenTLDevice_Reference_Version_1_0_0_Schema_1_1.xml"},
    };
    for (const auto& m : modules) {
        SCOPED_TRACE(m.file);
        kesta_device::PortXml xml;
        ASSERT_NO_FATAL_FAILURE(kesta_device::LoadPortXml(Lib(), m.port, xml));
        EXPECT_EQ(xml.fileName, m.file);
        const std::string end = "</RegisterDescription>\n";
        EXPECT_EQ(std::string(xml.bytes.end() - end.size(), xml.bytes.end()), end);
        EXPECT_EQ(xml.root.child("Port").attribute("Name").as_string(),
                  kesta_device::PortName(Lib(), m.port));
        // Any larger size gets the same whole file.
        std::vector<char> more(xml.bytes.size() + 64, '\x55');
        size_t size = more.size();
        ASSERT_EQ(Lib().GCReadPort(m.port, kXml, more.data(), &size), GC_ERR_SUCCESS);
        EXPECT_TRUE(std::equal(xml.bytes.begin(), xml.bytes.end(), more.begin()));
    }
}

/// Expects the register at address to give the bytes that an info command
/// gave, in the same order: a string in 512 bytes, a number zero-extended
/// to the register's 8.
void ExpectRegisterIsInfo(kesta::test::CtiLibrary& lib, void* port, uint64_t address,
                          INFO_DATATYPE type, std::vector<unsigned char> info) {
    info.resize(type == INFO_DATATYPE_STRING ? 512 : 8);
    std::vector<unsigned char> reg(info.size(), 0xAA);
    size_t size = reg.size();
    ASSERT_EQ(lib.GCReadPort(port, address, reg.data(), &size), GC_ERR_SUCCESS)
        << std::hex << address << " " << lib.TakeLastError().text;
    EXPECT_EQ(reg, info) << "0x" << std::hex << address;
}

TEST_F(ModuleRegisters, RegistersAnswerAsTheInfoCommands) {
    ASSERT_NO_FATAL_FAILURE(OpenDevice());
    const struct {
        bool iface;
        uint64_t address;
        int cmd;
    } rows[] = {
        {true, 0x0100, INTERFACE_INFO_ID},
        {true, 0x0200, INTERFACE_INFO_DISPLAYNAME},
        {true, 0x0600, INTERFACE_INFO_GEV_MAC_ADDRESS},
        {true, 0x0800, INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS},
        {true, 0x0900, INTERFACE_INFO_GEV_SUBNET_MASK},
        {false, 0x0100, DEVICE_INFO_ID},
        {false, 0x0200, DEVICE_INFO_SERIAL_NUMBER},
        {false, 0x0300, DEVICE_INFO_USER_DEFINED_NAME},
        {false, 0x0400, DEVICE_INFO_VENDOR},
        {false, 0x0500, DEVICE_INFO_MODEL},
        {false, 0x0700, DEVICE_INFO_VERSION},
        {false, 0x1000, DEVICE_INFO_DISPLAYNAME},
        {false, 0x1100, DEVICE_INFO_ACCESS_STATUS},
        {false, 0x1200, 1001}, // endianness mechanism
        {false, 0x1400, DEVICE_INFO_GEV_IP_ADDRESS},
        {false, 0x1500, DEVICE_INFO_GEV_SUBNET_MASK},
        {false, 0x1600, DEVICE_INFO_GEV_MAC_ADDRESS},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.iface ? "interface" : "device");
        void* port = row.iface ? m_iface : m_device;
        INFO_DATATYPE type = -1;
        std::vector<unsigned char> info(512, 0);
        size_t size = info.size();
        ASSERT_EQ(row.iface ? Lib().IFGetInfo(port, row.cmd, &type, info.data(), &size)
                            : Lib().DevGetInfo(port, row.cmd, &type, info.data(), &size),
                  GC_ERR_SUCCESS);
        ExpectRegisterIsInfo(Lib(), port, row.address, type, info);
    }
    // The stream list: the selected id, and the action values unwritten.
    EXPECT_EQ(ReadText(Lib(), m_device, kStreamId), "0");
    ASSERT_EQ(Write(m_device, kStreamSelector, 1), GC_ERR_SUCCESS);
    EXPECT_EQ(ReadText(Lib(), m_device, kStreamId), "1");
    EXPECT_EQ(Read(m_device, kActionGroupKey), 0u);
}

TEST_F(ModuleRegisters, UnicastActionCommandReachesTheCamera) {
    ASSERT_NO_FATAL_FAILURE(OpenDevice());
    ASSERT_NO_FATAL_FAILURE(WriteCamera(kCameraActionDeviceKey, 0x11223344));
    ASSERT_NO_FATAL_FAILURE(WriteCamera(kCameraActionGroupKey, 0x55));
    ASSERT_NO_FATAL_FAILURE(WriteCamera(kCameraActionGroupMask, 0x0F));
    ASSERT_EQ(Write(m_device, kActionDeviceKey, 0x11223344), GC_ERR_SUCCESS);
    ASSERT_EQ(Write(m_device, kActionGroupKey, 0x55), GC_ERR_SUCCESS);
    ASSERT_EQ(Write(m_device, kActionGroupMask, 0x01), GC_ERR_SUCCESS);
    EXPECT_EQ(Read(m_device, kActionDeviceKey), 0x11223344u);

    EXPECT_EQ(Write(m_device, kActionFire, 1), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
    EXPECT_EQ(CameraRegister(kCameraActionCount), 1u);
}

TEST_F(ModuleRegisters, RefusalsOfBothSpaces) {
    ASSERT_NO_FATAL_FAILURE(OpenDevice());
    enum Op { kRead, kWrite };
    const struct {
        bool iface;
        Op op;
        uint64_t address;
        size_t size;
        GC_ERROR expected;
    } rows[] = {
        // No register there: exact addresses only.
        {true, kRead, 0x0101, 8, GC_ERR_INVALID_ADDRESS},
        {false, kRead, 0x0600, 8, GC_ERR_INVALID_ADDRESS},
        {false, kWrite, kXml + 1, 8, GC_ERR_INVALID_ADDRESS},
        // Against the access of the register.
        {true, kWrite, 0x0100, 8, GC_ERR_ACCESS_DENIED},
        {true, kWrite, 0x1500, 8, GC_ERR_ACCESS_DENIED},
        {true, kRead, kDeviceUpdateList, 8, GC_ERR_ACCESS_DENIED},
        {true, kWrite, kXml, 8, GC_ERR_ACCESS_DENIED},
        {false, kWrite, 0x0900, 8, GC_ERR_ACCESS_DENIED},
        {false, kRead, kActionFire, 8, GC_ERR_ACCESS_DENIED},
        // Buffer too small for the value.
        {false, kRead, 0x5000, 1, GC_ERR_BUFFER_TOO_SMALL},
        {false, kWrite, kActionGroupKey, 2, GC_ERR_BUFFER_TOO_SMALL},
        {true, kWrite, kDeviceSelector, 4, GC_ERR_BUFFER_TOO_SMALL},
        // Not implemented on this transport.
        {true, kRead, 0x0400, 8, GC_ERR_NOT_IMPLEMENTED},
        {true, kRead, 0x0500, 8, GC_ERR_NOT_IMPLEMENTED},
        {false, kRead, 0x1700, 8, GC_ERR_NOT_IMPLEMENTED},
        // ForceIP without an address to give.
        {true, kWrite, kForceIp, 8, GC_ERR_INVALID_PARAMETER},
    };
    for (const auto& row : rows) {
        void* port = row.iface ? m_iface : m_device;
        uint64_t value = 0;
        size_t size = row.size;
        const GC_ERROR rc = row.op == kRead ? Lib().GCReadPort(port, row.address, &value, &size)
                                            : Lib().GCWritePort(port, row.address, &value, &size);
        EXPECT_EQ(rc, row.expected)
            << (row.iface ? "interface" : "device") << " 0x" << std::hex << row.address;
        EXPECT_EQ(Lib().TakeLastError().code, row.expected);
    }
    uint64_t value = 0;
    EXPECT_EQ(Lib().GCReadPort(m_device, kStreamSelector, &value, nullptr),
              GC_ERR_INVALID_PARAMETER);
    // A stream index past the list is refused, and kept: StreamID refuses too.
    EXPECT_EQ(Write(m_device, kStreamSelector, 2), GC_ERR_INVALID_INDEX);
    EXPECT_EQ(Read(m_device, kStreamSelector), 2u);
    char id[512];
    size_t size = sizeof id;
    EXPECT_EQ(Lib().GCReadPort(m_device, kStreamId, id, &size), GC_ERR_INVALID_INDEX);
    // The device selector keeps its value on a refusal.
    EXPECT_EQ(Write(m_iface, kDeviceSelector, 1), GC_ERR_INVALID_INDEX);
    EXPECT_EQ(Read(m_iface, kDeviceSelector), 0u);
}

/// With several cameras on the link.
using SeveralCameraRegisters = ModuleRegisters;

TEST_F(SeveralCameraRegisters, DeviceSelectorWalksTheList) {
    uint32_t count = 0;
    ASSERT_EQ(Lib().IFGetNumDevices(m_iface, &count), GC_ERR_SUCCESS);
    const auto expected = kesta_device::EnvList("KESTA_CAMERA_SERIALS").size();
    ASSERT_EQ(count, expected) << "the discovery missed a camera";
    EXPECT_EQ(Read(m_iface, kDeviceSelectorMax), count - 1);

    const struct {
        uint64_t address;
        int cmd;
    } rows[] = {
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
        size_t idSize = sizeof id;
        ASSERT_EQ(Lib().IFGetDeviceID(m_iface, i, id, &idSize), GC_ERR_SUCCESS);
        ASSERT_EQ(Write(m_iface, kDeviceSelector, i), GC_ERR_SUCCESS);
        SCOPED_TRACE(id);
        for (const auto& row : rows) {
            INFO_DATATYPE type = -1;
            std::vector<unsigned char> info(512, 0);
            size_t size = info.size();
            ASSERT_EQ(Lib().IFGetDeviceInfo(m_iface, id, row.cmd, &type, info.data(), &size),
                      GC_ERR_SUCCESS);
            ExpectRegisterIsInfo(Lib(), m_iface, row.address, type, info);
            EXPECT_EQ(Read(m_iface, row.address + 1), 1u) << std::hex << row.address;
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

TEST_F(SeveralCameraRegisters, ForceIpThroughTheRegistersMovesTheSelectedCamera) {
    const std::string serial = kesta_device::EnvList("KESTA_CAMERA_SERIALS").back();
    uint32_t count = 0;
    ASSERT_EQ(Lib().IFGetNumDevices(m_iface, &count), GC_ERR_SUCCESS);
    uint32_t index = count;
    for (uint32_t i = 0; i < count; ++i) {
        ASSERT_EQ(Write(m_iface, kDeviceSelector, i), GC_ERR_SUCCESS);
        if (ReadText(Lib(), m_iface, 0x1200) == serial) {
            index = i;
            break;
        }
    }
    ASSERT_LT(index, count) << serial << " not listed";
    const uint32_t moved = kesta_netns::ParseIp("192.168.213.77");
    ASSERT_EQ(Write(m_iface, kForceIpAddress, moved), GC_ERR_SUCCESS);
    ASSERT_EQ(Write(m_iface, kForceSubnetMask, kesta_netns::ParseIp("255.255.255.0")),
              GC_ERR_SUCCESS);
    ASSERT_EQ(Write(m_iface, kForceIp, 1), GC_ERR_SUCCESS) << Lib().TakeLastError().text;

    ASSERT_EQ(Lib().IFUpdateDeviceList(m_iface, nullptr, kDiscoveryMs), GC_ERR_SUCCESS);
    long ip = 0;
    INFO_DATATYPE type = -1;
    size_t size = sizeof ip;
    ASSERT_EQ(Lib().IFGetDeviceInfo(m_iface, serial.c_str(), DEVICE_INFO_GEV_IP_ADDRESS, &type, &ip,
                                    &size),
              GC_ERR_SUCCESS);
    EXPECT_EQ(static_cast<uint32_t>(ip), moved);
}

} // namespace
