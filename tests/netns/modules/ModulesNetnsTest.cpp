// The upper module tree as a consumer sees it: system, interfaces and the
// device list, through the exported functions of the loaded producer,
// beside simulated cameras. Every test opens the System, which lists the
// adapters and discovers by broadcast: each first makes sure that it runs
// in the host namespace of run-with-camera, whose only link is the test bed.
#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CameraTestBed.h"
#include "CtiTest.h"

// Present in builds with the leak checker only.
extern "C" void __lsan_disable() __attribute__((weak));
extern "C" void __lsan_enable() __attribute__((weak));

namespace {

using kesta::test::CtiTest;
using kesta::test::LastError;

constexpr uint64_t kDiscoveryMs = 500;

using kesta_device::Env;
using kesta_device::EnvList;
using kesta_device::NotInTestBed;

/// The library's id of the test bed's link: its MAC in lower-case hex.
std::string TestBedInterfaceId() {
    std::ifstream in("/sys/class/net/" + Env("KESTA_NETNS_HOST_IF") + "/address");
    std::string mac;
    std::getline(in, mac);
    mac.erase(std::remove(mac.begin(), mac.end(), ':'), mac.end());
    return mac;
}

long HostOrderIp(const std::string& text) {
    return static_cast<long>(kesta_netns::ParseIp(text));
}

class TestBed : public CtiTest {
protected:
    void SetUp() override {
        const std::string why = NotInTestBed();
        if (!why.empty()) {
            GTEST_SKIP() << why;
        }
        CtiTest::SetUp();
        ASSERT_EQ(Init(), GC_ERR_SUCCESS);
        m_ifaceId = TestBedInterfaceId();
        ASSERT_FALSE(m_ifaceId.empty());
    }

    /// TLOpen, asserted.
    TL_HANDLE OpenSystem() {
        TL_HANDLE hTL = nullptr;
        EXPECT_EQ(Lib().TLOpen(&hTL), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
        return hTL;
    }
    /// TLOpen of a system that the test leaves to GCCloseLib, which keeps it
    /// allocated for good: the leak checker is told to pass over it.
    TL_HANDLE OpenSystemLeftAllocated() {
        if (__lsan_disable != nullptr) {
            __lsan_disable();
        }
        TL_HANDLE hTL = OpenSystem();
        if (__lsan_enable != nullptr) {
            __lsan_enable();
        }
        return hTL;
    }
    IF_HANDLE OpenTestBedInterface(TL_HANDLE hTL) {
        IF_HANDLE hIface = nullptr;
        EXPECT_EQ(Lib().TLOpenInterface(hTL, m_ifaceId.c_str(), &hIface), GC_ERR_SUCCESS)
            << Lib().TakeLastError().text;
        return hIface;
    }

    template <typename Call> std::string Text(Call call) {
        INFO_DATATYPE type = -1;
        size_t size = 0;
        EXPECT_EQ(call(&type, nullptr, &size), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
        EXPECT_EQ(type, INFO_DATATYPE_STRING);
        std::string text(size, '?');
        EXPECT_EQ(call(&type, text.data(), &size), GC_ERR_SUCCESS);
        return text.substr(0, text.find('\0'));
    }
    template <typename T, typename Call> T Value(Call call) {
        INFO_DATATYPE type = -1;
        T value{};
        size_t size = sizeof(value);
        EXPECT_EQ(call(&type, &value, &size), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
        return value;
    }

    std::string DeviceText(IF_HANDLE hIface, const std::string& id, DEVICE_INFO_CMD cmd) {
        return Text([&](auto t, auto b, auto s) {
            return Lib().IFGetDeviceInfo(hIface, id.c_str(), cmd, t, b, s);
        });
    }
    int64_t DeviceValue(IF_HANDLE hIface, const std::string& id, DEVICE_INFO_CMD cmd) {
        return Value<int64_t>([&](auto t, auto b, auto s) {
            return Lib().IFGetDeviceInfo(hIface, id.c_str(), cmd, t, b, s);
        });
    }
    int64_t InterfaceValue(IF_HANDLE hIface, INTERFACE_INFO_CMD cmd) {
        return Value<int64_t>(
            [&](auto t, auto b, auto s) { return Lib().IFGetInfo(hIface, cmd, t, b, s); });
    }

    std::vector<std::string> DeviceIds(IF_HANDLE hIface) {
        uint32_t count = 0;
        EXPECT_EQ(Lib().IFGetNumDevices(hIface, &count), GC_ERR_SUCCESS);
        std::vector<std::string> ids;
        for (uint32_t i = 0; i < count; ++i) {
            char id[64] = {};
            size_t size = sizeof(id);
            EXPECT_EQ(Lib().IFGetDeviceID(hIface, i, id, &size), GC_ERR_SUCCESS);
            ids.push_back(id);
        }
        std::sort(ids.begin(), ids.end());
        return ids;
    }

    std::vector<std::string> Messages() { return kesta_device::ErrorTexts(Lib()); }

    std::string m_ifaceId;
};

// --- The first camera ----------------------------------------------------------

using OneCamera = TestBed;

TEST_F(OneCamera, SystemAndInterfaceFactsPortsAndRefusals) {
    TL_HANDLE hTL = OpenSystem();
    ASSERT_NE(hTL, nullptr);
    EXPECT_EQ(
        Text([&](auto t, auto b, auto s) { return Lib().TLGetInfo(hTL, TL_INFO_ID, t, b, s); }),
        "KESTA_GenTL_1_5");

    uint32_t count = 0;
    ASSERT_EQ(Lib().TLGetNumInterfaces(hTL, &count), GC_ERR_SUCCESS);
    std::vector<std::string> ids;
    for (uint32_t i = 0; i < count; ++i) {
        char id[64] = {};
        size_t size = sizeof(id);
        ASSERT_EQ(Lib().TLGetInterfaceID(hTL, i, id, &size), GC_ERR_SUCCESS);
        ids.push_back(id);
    }
    EXPECT_NE(std::find(ids.begin(), ids.end(), m_ifaceId), ids.end());
    EXPECT_EQ(Text([&](auto t, auto b, auto s) {
                  return Lib().TLGetInterfaceInfo(hTL, m_ifaceId.c_str(),
                                                  INTERFACE_INFO_DISPLAYNAME, t, b, s);
              }),
              "GigE Interface ( MAC:" + m_ifaceId + " )");
    INFO_DATATYPE type = 0;
    int64_t value = 0;
    size_t size = sizeof(value);
    EXPECT_EQ(Lib().TLGetInterfaceInfo(hTL, m_ifaceId.c_str(), INTERFACE_INFO_GEV_MAC_ADDRESS,
                                       &type, &value, &size),
              GC_ERR_NOT_AVAILABLE);
    EXPECT_EQ(Messages(),
              (std::vector<std::string>{"the info is not available until the interface is open via "
                                        "GenTL::TLOpenInterface()",
                                        "GenTL::GC_ERR_NOT_AVAILABLE(-1014)"}));

    IF_HANDLE hIface = OpenTestBedInterface(hTL);
    ASSERT_NE(hIface, nullptr);
    EXPECT_EQ(Text([&](auto t, auto b, auto s) {
                  return Lib().IFGetInfo(hIface, INTERFACE_INFO_ID, t, b, s);
              }),
              m_ifaceId);
    EXPECT_EQ(InterfaceValue(hIface, INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS),
              HostOrderIp(Env("KESTA_NETNS_HOST_IP")));
    EXPECT_EQ(InterfaceValue(hIface, INTERFACE_INFO_GEV_SUBNET_MASK),
              HostOrderIp(Env("KESTA_NETNS_NETMASK")));
    EXPECT_EQ(InterfaceValue(hIface, INTERFACE_INFO_GEV_MAC_ADDRESS),
              std::stol(m_ifaceId, nullptr, 16));
    TL_HANDLE parent = nullptr;
    ASSERT_EQ(Lib().IFGetParentTL(hIface, &parent), GC_ERR_SUCCESS);
    EXPECT_EQ(parent, hTL);

    // Ports: the module names, and URL sizes two above the text.
    EXPECT_EQ(Text([&](auto t, auto b, auto s) {
                  return Lib().GCGetPortInfo(hIface, PORT_INFO_PORTNAME, t, b, s);
              }),
              "InterfacePort");
    for (auto [handle, url] :
         {std::pair<void*, std::string>{hTL, "local:SFNC_GenTLSystem_Reference_Version_1_0_0_"
                                             "Schema_1_1.xml;F0F00000;AF9F?SchemaVersion=1.0.0"},
          std::pair<void*, std::string>{hIface, "local:SFNC_GenTLInterface_Reference_Version_1_"
                                                "0_0_Schema_1_1.xml;F0F00000;7AD5?SchemaVersion="
                                                "1.0.0"}}) {
        size = 0;
        ASSERT_EQ(Lib().GCGetPortURL(handle, nullptr, &size), GC_ERR_SUCCESS);
        EXPECT_EQ(size, url.size() + 2);
        std::vector<char> text(size);
        ASSERT_EQ(Lib().GCGetPortURL(handle, text.data(), &size), GC_ERR_SUCCESS);
        EXPECT_EQ(std::string(text.data()), url);
    }

    // Refusals reach the consumer word for word.
    TL_HANDLE second = nullptr;
    EXPECT_EQ(Lib().TLOpen(&second), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(Messages(), (std::vector<std::string>{
                              "every call to GenTL::TLOpen() must be matched with a call to "
                              "GenTL::TLClose() before calling GenTL::TLOpen() again"}));

    IF_HANDLE again = nullptr;
    EXPECT_EQ(Lib().TLOpenInterface(hTL, m_ifaceId.c_str(), &again), GC_ERR_RESOURCE_IN_USE);
    const std::vector<std::string> messages = Messages();
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[0], "interface ID=" + m_ifaceId + " is already open");
    EXPECT_EQ(messages[2], "GenTL::GC_ERR_RESOURCE_IN_USE(-1004)");
    EXPECT_EQ(Lib().TLOpenInterface(hTL, "0123456789ab", &again), GC_ERR_INVALID_ID);
    const std::string notFound = Messages().at(0);
    EXPECT_EQ(notFound.rfind("interface ID=0123456789ab not found in the list of interfaces.\n"
                             "\t\t\t\t\t  The list of interfaces has the following interface(s):\n",
                             0),
              0u);
    EXPECT_NE(notFound.find("\t\t\t\t\t\t" + m_ifaceId + "\n"), std::string::npos);

    // The device list of the interface opened first, before and after an update.
    bool8_t changed = 0;
    EXPECT_EQ(Lib().IFUpdateDeviceList(hIface, &changed, 0), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(Messages(), (std::vector<std::string>{"input iTimeout==0",
                                                    "GenTL::GC_ERR_INVALID_PARAMETER(-1009)"}));
    count = 1;
    ASSERT_EQ(Lib().IFGetNumDevices(hIface, &count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 0u);
    DEV_HANDLE hDevice = nullptr;
    EXPECT_EQ(Lib().IFOpenDevice(hIface, "KSIM0000", DEVICE_ACCESS_CONTROL, &hDevice),
              GC_ERR_INVALID_ID);
    EXPECT_EQ(Messages().at(0),
              "GenTL::InterfaceGev::OpenDevice device ID=KSIM0000 not found in the list of "
              "devices.\n\t\t\t\t\t  The list of devices is empty. No devices is connected this "
              "interface.");

    ASSERT_EQ(Lib().IFUpdateDeviceList(hIface, &changed, kDiscoveryMs), GC_ERR_SUCCESS)
        << Lib().TakeLastError().text;
    EXPECT_TRUE(changed);
    EXPECT_EQ(DeviceIds(hIface), EnvList("KESTA_CAMERA_SERIALS"));
    EXPECT_EQ(Lib().IFOpenDevice(hIface, "KSIM0099", DEVICE_ACCESS_CONTROL, &hDevice),
              GC_ERR_INVALID_ID);
    // The list, in the order the cameras answered.
    const std::string listed = Messages().at(0);
    std::string expected = "GenTL::InterfaceGev::OpenDevice device ID=KSIM0099 not found in the "
                           "list of devices.\n\t\t\t\t\t  The list of devices has the "
                           "following device(s):\n";
    EXPECT_EQ(listed.rfind(expected, 0), 0u) << listed;
    for (const std::string& serial : EnvList("KESTA_CAMERA_SERIALS")) {
        expected += "\t\t\t\t\t\t" + serial + "\n";
        EXPECT_NE(listed.find("\t" + serial + "\n"), std::string::npos) << serial;
    }
    EXPECT_EQ(listed.size(), expected.size());
    char id[4];
    size = sizeof(id);
    EXPECT_EQ(Lib().IFGetDeviceID(hIface, 0, id, &size), GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(Messages().at(0), "*piSize=4idSize=9. *piSize must be >= idSize");
    EXPECT_EQ(Lib().IFGetDeviceInfo(hIface, "KSIM0000", DEVICE_INFO_IS_CONNECTED, nullptr, nullptr,
                                    &size),
              GC_ERR_NOT_AVAILABLE);
    EXPECT_EQ(Messages().at(0), "GenTL::DEVICE_INFO_IS_CONNECTED is not implemented");
    EXPECT_EQ(Lib().TLClose(hTL), GC_ERR_SUCCESS);
}

TEST_F(OneCamera, DeviceOpensOnceAndTheLibraryClosesItWhenLeftOpen) {
    TL_HANDLE hTL = OpenSystemLeftAllocated();
    IF_HANDLE hIface = OpenTestBedInterface(hTL);
    ASSERT_NE(hIface, nullptr);
    ASSERT_EQ(Lib().IFUpdateDeviceList(hIface, nullptr, kDiscoveryMs), GC_ERR_SUCCESS);
    const std::string serial = EnvList("KESTA_CAMERA_SERIALS").at(0);
    auto accessStatus = [&] {
        return Value<int32_t>([&](auto t, auto b, auto s) {
            return Lib().IFGetDeviceInfo(hIface, serial.c_str(), DEVICE_INFO_ACCESS_STATUS, t, b,
                                         s);
        });
    };
    // The trial claims the camera and gives it back.
    EXPECT_EQ(accessStatus(), DEVICE_ACCESS_STATUS_READWRITE);

    DEV_HANDLE hDevice = nullptr;
    ASSERT_EQ(Lib().IFOpenDevice(hIface, serial.c_str(), DEVICE_ACCESS_CONTROL, &hDevice),
              GC_ERR_SUCCESS)
        << Lib().TakeLastError().text;
    IF_HANDLE parent = nullptr;
    ASSERT_EQ(Lib().DevGetParentIF(hDevice, &parent), GC_ERR_SUCCESS);
    EXPECT_EQ(parent, hIface);

    DEV_HANDLE second = nullptr;
    EXPECT_EQ(Lib().IFOpenDevice(hIface, serial.c_str(), DEVICE_ACCESS_READONLY, &second),
              GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(Messages(), (std::vector<std::string>{"device ID=" + serial + " is already open",
                                                    "GenTL::GC_ERR_RESOURCE_IN_USE(-1004)"}));
    EXPECT_EQ(accessStatus(), DEVICE_ACCESS_STATUS_UNKNOWN); // both trials refused

    ASSERT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);
    ASSERT_EQ(Lib().IFOpenDevice(hIface, serial.c_str(), DEVICE_ACCESS_CONTROL, &hDevice),
              GC_ERR_SUCCESS)
        << Lib().TakeLastError().text;

    // Left open with its interface and system: the library closes the device
    // (so the camera is free again) and the interface, which opens again.
    ASSERT_EQ(Lib().GCCloseLib(), GC_ERR_SUCCESS);
    ASSERT_EQ(Init(), GC_ERR_SUCCESS);
    hTL = OpenSystem();
    hIface = OpenTestBedInterface(hTL);
    ASSERT_NE(hIface, nullptr);
    ASSERT_EQ(Lib().IFUpdateDeviceList(hIface, nullptr, kDiscoveryMs), GC_ERR_SUCCESS);
    ASSERT_EQ(Lib().IFOpenDevice(hIface, serial.c_str(), DEVICE_ACCESS_CONTROL, &hDevice),
              GC_ERR_SUCCESS)
        << Lib().TakeLastError().text;
    // TLClose closes the device that is still open.
    EXPECT_EQ(Lib().TLClose(hTL), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
    hTL = OpenSystem();
    hIface = OpenTestBedInterface(hTL);
    ASSERT_EQ(Lib().IFUpdateDeviceList(hIface, nullptr, kDiscoveryMs), GC_ERR_SUCCESS);
    EXPECT_EQ(accessStatus(), DEVICE_ACCESS_STATUS_READWRITE);
    EXPECT_EQ(Lib().TLClose(hTL), GC_ERR_SUCCESS);
}

// --- Several cameras ---------------------------------------------------------

using SeveralCameras = TestBed;

TEST_F(SeveralCameras, EveryCameraIsListedWithItsFactsAndOpensOnce) {
    TL_HANDLE hTL = OpenSystem();
    IF_HANDLE hIface = OpenTestBedInterface(hTL);
    ASSERT_NE(hIface, nullptr);
    const std::vector<std::string> serials = EnvList("KESTA_CAMERA_SERIALS");
    const std::vector<std::string> ips = EnvList("KESTA_CAMERA_IPS");
    ASSERT_EQ(serials.size(), 3u);

    bool8_t changed = 0;
    ASSERT_EQ(Lib().IFUpdateDeviceList(hIface, &changed, kDiscoveryMs), GC_ERR_SUCCESS)
        << Lib().TakeLastError().text;
    EXPECT_TRUE(changed);
    std::vector<std::string> sorted = serials;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(DeviceIds(hIface), sorted);
    // The same cameras again, answering in whatever order: no change.
    changed = 1;
    ASSERT_EQ(Lib().IFUpdateDeviceList(hIface, &changed, kDiscoveryMs), GC_ERR_SUCCESS);
    EXPECT_FALSE(changed);

    std::vector<DEV_HANDLE> devices;
    for (size_t i = 0; i < serials.size(); ++i) {
        SCOPED_TRACE(serials[i]);
        EXPECT_EQ(DeviceText(hIface, serials[i], DEVICE_INFO_TLTYPE), "GEV");
        const std::string model = DeviceText(hIface, serials[i], DEVICE_INFO_MODEL);
        EXPECT_FALSE(model.empty());
        EXPECT_EQ(DeviceText(hIface, serials[i], DEVICE_INFO_DISPLAYNAME),
                  model + " ( " + serials[i] + " ) ");
        EXPECT_EQ(DeviceValue(hIface, serials[i], DEVICE_INFO_GEV_IP_ADDRESS), HostOrderIp(ips[i]));
        EXPECT_EQ(DeviceValue(hIface, serials[i], DEVICE_INFO_GEV_SUBNET_MASK),
                  HostOrderIp(Env("KESTA_NETNS_NETMASK")));

        DEV_HANDLE hDevice = nullptr;
        ASSERT_EQ(Lib().IFOpenDevice(hIface, serials[i].c_str(), DEVICE_ACCESS_CONTROL, &hDevice),
                  GC_ERR_SUCCESS)
            << Lib().TakeLastError().text;
        EXPECT_EQ(Text([&](auto t, auto b, auto s) {
                      return Lib().DevGetInfo(hDevice, DEVICE_INFO_ID, t, b, s);
                  }),
                  serials[i]);
        devices.push_back(hDevice);
    }
    // Each is registered under its own id: all are refused a second time,
    // and one that is closed opens again.
    for (const std::string& serial : serials) {
        DEV_HANDLE again = nullptr;
        EXPECT_EQ(Lib().IFOpenDevice(hIface, serial.c_str(), DEVICE_ACCESS_CONTROL, &again),
                  GC_ERR_RESOURCE_IN_USE);
    }
    ASSERT_EQ(Lib().DevClose(devices[1]), GC_ERR_SUCCESS);
    DEV_HANDLE reopened = nullptr;
    EXPECT_EQ(Lib().IFOpenDevice(hIface, serials[1].c_str(), DEVICE_ACCESS_READONLY, &reopened),
              GC_ERR_SUCCESS);
    // The system closes its interface and the three devices.
    EXPECT_EQ(Lib().TLClose(hTL), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
}

} // namespace
