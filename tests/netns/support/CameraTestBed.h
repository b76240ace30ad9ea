#pragma once
// Shared test bed of the network tests that load the producer: the guard
// that every test runs in the host namespace of run-with-camera (opening the
// System broadcasts on every adapter), a fixture that opens the System and
// the interface that found the camera, the GVCP commands the camera
// receives, and a rival application on the second host.
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "GvcpClient.h"
#include "NetnsSupport.h"
#ifdef KESTA_CTI_PATH
#include "CtiTest.h"
#endif

namespace kesta_device {

using kesta_netns::Env;
using kesta_netns::EnvList;

/// Whether the calling thread is in the namespace `name`.
inline bool InNamespace(const std::string& name) {
    struct stat own {};
    struct stat named {};
    return ::stat("/proc/thread-self/ns/net", &own) == 0 &&
           ::stat(("/var/run/netns/" + name).c_str(), &named) == 0 && own.st_dev == named.st_dev &&
           own.st_ino == named.st_ino;
}

/// Why this process must not open the System here; empty inside the
/// harness's host namespace, where no address but the test bed's is up (the
/// ports of its bridge carry none).
inline std::string NotInTestBed() {
    const std::string host = Env("KESTA_NETNS_HOST");
    if (host.empty()) {
        return "needs the namespaces of run-with-camera";
    }
    if (!InNamespace(host)) {
        return "not inside the namespace " + host;
    }
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return "getifaddrs failed";
    }
    std::string foreign;
    for (ifaddrs* i = list; i != nullptr; i = i->ifa_next) {
        const std::string name = i->ifa_name;
        const bool ipv4 = i->ifa_addr != nullptr && i->ifa_addr->sa_family == AF_INET;
        if (ipv4 && !(i->ifa_flags & IFF_LOOPBACK) && name != Env("KESTA_NETNS_HOST_IF")) {
            foreign = name;
        }
    }
    freeifaddrs(list);
    return foreign.empty() ? "" : "a foreign link is up here: " + foreign;
}

/// A GVCP command as the camera received it.
struct Command {
    kesta_netns::Clock::time_point at;
    std::uint16_t code = 0;
    std::uint32_t address = 0; ///< first address of the payload
    std::uint32_t word = 0;    ///< second word: the value of WRITEREG, the count of READMEM
    std::size_t payload = 0;   ///< bytes behind the header
};

/// The GVCP commands among captured datagrams, optionally of one code only.
inline std::vector<Command> Commands(const std::vector<kesta_netns::Captured>& packets,
                                     std::uint16_t code = 0) {
    std::vector<Command> out;
    for (const auto& p : packets) {
        if (p.payload.size() < 8 || p.payload[0] != 0x42) {
            continue;
        }
        Command c;
        c.at = p.at;
        c.code = kesta_netns::Be16(&p.payload[2]);
        c.payload = p.payload.size() - 8;
        if (p.payload.size() >= 12) {
            c.address = kesta_netns::Be32(&p.payload[8]);
        }
        if (p.payload.size() >= 16) {
            c.word = kesta_netns::Be32(&p.payload[12]);
        }
        if (code == 0 || c.code == code) {
            out.push_back(c);
        }
    }
    return out;
}

constexpr std::uint16_t kReadReg = 0x0080;
constexpr std::uint16_t kWriteReg = 0x0082;
constexpr std::uint16_t kReadMem = 0x0084;
constexpr std::uint16_t kWriteMem = 0x0086;
constexpr std::uint16_t kStatusAccessDenied = 0x8006;

/// Another application on the second host, or this host's own GVCP client
/// beside the producer, talking to camera `i`.
inline kesta_netns::GvcpClient Rival(std::size_t i = 0) {
    return kesta_netns::GvcpClient(kesta_netns::ParseIp(EnvList("KESTA_CAMERA_IPS").at(i)),
                                   kesta_netns::ParseIp(Env("KESTA_NETNS_HOST2_IP")),
                                   Env("KESTA_NETNS_HOST2"));
}
inline kesta_netns::GvcpClient HostClient(std::size_t i = 0) {
    return kesta_netns::GvcpClient(kesta_netns::ParseIp(EnvList("KESTA_CAMERA_IPS").at(i)),
                                   kesta_netns::ParseIp(Env("KESTA_NETNS_HOST_IP")));
}

#ifdef KESTA_CTI_PATH
/// The texts of the calling thread's error stack, innermost first, without
/// their stamps ("<function>():<line>: <text>").
inline std::vector<std::string> ErrorTexts(kesta::test::CtiLibrary& lib) {
    std::vector<std::string> texts;
    for (const auto& record : lib.TakeLastError().Records()) {
        const auto call = record.message.find("():");
        const auto text = call == std::string::npos ? call : record.message.find(": ", call + 3);
        texts.push_back(text == std::string::npos ? record.message
                                                  : record.message.substr(text + 2));
    }
    std::reverse(texts.begin(), texts.end());
    return texts;
}

/// A loaded producer with its System open and the interface that found the
/// test bed's cameras; a camera (the first, unless the test sets m_serial)
/// and its stream 0 open on demand.
/// TearDown closes all of it as a consumer does: a System left open is kept
/// allocated by GCCloseLib for good.
class CameraTest : public kesta::test::CtiTest {
protected:
    static constexpr std::uint64_t kDiscoveryMs = 500;

    void SetUp() override {
        const std::string why = NotInTestBed();
        if (!why.empty()) {
            GTEST_SKIP() << why;
        }
        CtiTest::SetUp();
        ASSERT_EQ(Init(), GC_ERR_SUCCESS);
        m_serial = EnvList("KESTA_CAMERA_SERIALS").at(0);
        ASSERT_EQ(Lib().TLOpen(&m_system), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
        std::uint32_t count = 0;
        ASSERT_EQ(Lib().TLGetNumInterfaces(m_system, &count), GC_ERR_SUCCESS);
        // The test bed's link is the only one besides loopback: the camera is
        // on whichever interface finds it.
        for (std::uint32_t i = 0; i < count && m_iface == nullptr; ++i) {
            char id[64] = {};
            std::size_t size = sizeof id;
            ASSERT_EQ(Lib().TLGetInterfaceID(m_system, i, id, &size), GC_ERR_SUCCESS);
            IF_HANDLE hIface = nullptr;
            if (Lib().TLOpenInterface(m_system, id, &hIface) != GC_ERR_SUCCESS) {
                Lib().TakeLastError();
                continue;
            }
            std::uint32_t devices = 0;
            if (Lib().IFUpdateDeviceList(hIface, nullptr, kDiscoveryMs) == GC_ERR_SUCCESS &&
                Lib().IFGetNumDevices(hIface, &devices) == GC_ERR_SUCCESS && devices > 0) {
                m_iface = hIface;
            } else {
                Lib().IFClose(hIface);
            }
        }
        ASSERT_NE(m_iface, nullptr) << "no interface found the camera";
    }

    void TearDown() override {
        if (m_stream != nullptr) {
            Lib().DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT);
            Lib().TakeLastError();
            EXPECT_EQ(Lib().DSClose(m_stream), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
        }
        if (m_device != nullptr) {
            EXPECT_EQ(Lib().DevClose(m_device), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
        }
        if (m_iface != nullptr) {
            EXPECT_EQ(Lib().IFClose(m_iface), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
        }
        if (m_system != nullptr) {
            EXPECT_EQ(Lib().TLClose(m_system), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
        }
        CtiTest::TearDown();
    }

    /// Opens the first camera into m_device and its stream 0 into m_stream.
    void OpenStream(DEVICE_ACCESS_FLAGS flags = DEVICE_ACCESS_CONTROL) {
        ASSERT_EQ(Lib().IFOpenDevice(m_iface, m_serial.c_str(), flags, &m_device), GC_ERR_SUCCESS)
            << Lib().TakeLastError().text;
        ASSERT_EQ(Lib().DevOpenDataStream(m_device, "0", &m_stream), GC_ERR_SUCCESS)
            << Lib().TakeLastError().text;
    }

    /// A camera register through a remote port (m_device's by default),
    /// big-endian on the wire.
    std::uint32_t ReadCamera(std::uint64_t address, PORT_HANDLE port = nullptr) {
        unsigned char bytes[4] = {};
        std::size_t size = 4;
        EXPECT_EQ(Lib().GCReadPort(port ? port : Port(m_device), address, bytes, &size),
                  GC_ERR_SUCCESS)
            << std::hex << address << " " << Lib().TakeLastError().text;
        return kesta_netns::Be32(bytes);
    }
    GC_ERROR WriteCamera(std::uint64_t address, std::uint32_t value, PORT_HANDLE port = nullptr) {
        const unsigned char bytes[4] = {
            static_cast<unsigned char>(value >> 24), static_cast<unsigned char>(value >> 16),
            static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
        std::size_t size = 4;
        return Lib().GCWritePort(port ? port : Port(m_device), address, bytes, &size);
    }
    template <typename T> T StreamInfo(STREAM_INFO_CMD cmd) {
        INFO_DATATYPE type = 0;
        T value{};
        std::size_t size = sizeof value;
        EXPECT_EQ(Lib().DSGetInfo(m_stream, cmd, &type, &value, &size), GC_ERR_SUCCESS) << cmd;
        return value;
    }
    PORT_HANDLE Port(DEV_HANDLE hDevice) {
        PORT_HANDLE port = nullptr;
        EXPECT_EQ(Lib().DevGetPort(hDevice, &port), GC_ERR_SUCCESS);
        return port;
    }

    std::string m_serial;
    TL_HANDLE m_system = nullptr;
    IF_HANDLE m_iface = nullptr;
    DEV_HANDLE m_device = nullptr;
    DS_HANDLE m_stream = nullptr;
};
#endif

} // namespace kesta_device
