// The device module as a consumer sees it, through the exported functions of
// the loaded producer, beside simulated cameras: who may open a camera and
// how, the heartbeat that keeps control, a camera that falls silent, and the
// camera's own port with its URLs. A rival application on the second host
// and a capture of the camera's GVCP traffic check what went over the wire.
#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "CameraTestBed.h"

namespace {

using namespace std::chrono_literals;
using kesta_device::Command;
using kesta_device::Commands;
using kesta_device::Env;
using kesta_device::EnvList;
using kesta_device::kStatusAccessDenied;
using kesta_netns::Clock;

constexpr unsigned kCcp = 0x0A00;
constexpr unsigned kHeartbeatTimeout = 0x0938;
constexpr unsigned kSwitchoverKey = 0x095C;
constexpr unsigned kXmlAddress = 0x00100000;
constexpr unsigned kWidth = 0x10000;

std::string SimXml() {
    std::ifstream in(KESTA_SIM_XML, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class DeviceTest : public kesta_device::CameraTest {
protected:
    /// IFOpenDevice of m_serial; null on failure.
    DEV_HANDLE Open(DEVICE_ACCESS_FLAGS flags, GC_ERROR expected = GC_ERR_SUCCESS) {
        DEV_HANDLE hDevice = nullptr;
        const GC_ERROR rc = Lib().IFOpenDevice(m_iface, m_serial.c_str(), flags, &hDevice);
        EXPECT_EQ(rc, expected) << Lib().TakeLastError().text;
        return rc == GC_ERR_SUCCESS ? hDevice : nullptr;
    }

    std::vector<std::string> Messages() { return kesta_device::ErrorTexts(Lib()); }

    template <typename T> T Info(DEV_HANDLE hDevice, DEVICE_INFO_CMD cmd) {
        INFO_DATATYPE type = 0;
        T value{};
        size_t size = sizeof value;
        EXPECT_EQ(Lib().DevGetInfo(hDevice, cmd, &type, &value, &size), GC_ERR_SUCCESS)
            << cmd << Lib().TakeLastError().text;
        return value;
    }
    /// The privilege register as this host's own GVCP client reads it.
    uint32_t CcpSeenFromHost() {
        uint32_t value = 0xFFFFFFFF;
        EXPECT_EQ(kesta_device::HostClient().ReadReg(kCcp, value), 0);
        return value;
    }
};

// --- Access ------------------------------------------------------------------

using Access = DeviceTest;

TEST_F(Access, ControlAndExclusiveClaimTheCameraAndCloseGivesItBack) {
    auto rival = kesta_device::Rival();
    for (const DEVICE_ACCESS_FLAGS flags : {DEVICE_ACCESS_CONTROL, DEVICE_ACCESS_EXCLUSIVE}) {
        SCOPED_TRACE(flags);
        DEV_HANDLE hDevice = Open(flags);
        ASSERT_NE(hDevice, nullptr);
        EXPECT_EQ(Info<int32_t>(hDevice, DEVICE_INFO_ACCESS_STATUS),
                  DEVICE_ACCESS_STATUS_READWRITE);
        EXPECT_TRUE(Info<bool>(hDevice, DEVICE_INFO_IS_CONNECTED));
        uint32_t ccp = 0;
        if (flags == DEVICE_ACCESS_CONTROL) {
            ASSERT_EQ(rival.ReadReg(kCcp, ccp), 0); // a controlled camera still answers reads
            EXPECT_EQ(ccp, 6u);                     // control, switchover allowed
            // Only a rival with the camera's key (never set here, so 0) could
            // take over; a wrong key is refused, and so are its writes.
            EXPECT_EQ(rival.Claim(0x12340002u), kStatusAccessDenied);
            EXPECT_EQ(rival.WriteReg(kWidth, 320), kStatusAccessDenied);
        } else {
            EXPECT_EQ(rival.ReadReg(kCcp, ccp), kStatusAccessDenied);
            EXPECT_EQ(ReadCamera(kCcp, Port(hDevice)) & 3u, 3u);
        }
        // A second open of the same camera is refused while it is open.
        DEV_HANDLE twice = nullptr;
        EXPECT_EQ(Lib().IFOpenDevice(m_iface, m_serial.c_str(), DEVICE_ACCESS_READONLY, &twice),
                  GC_ERR_RESOURCE_IN_USE);
        Lib().TakeLastError();
        ASSERT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);
        EXPECT_EQ(CcpSeenFromHost(), 0u);
    }
    EXPECT_EQ(rival.Claim(2), 0); // free for others now
    rival.Release();
}

TEST_F(Access, ARivalsClaimDecidesWhatMayOpen) {
    struct Case {
        uint32_t rivalCcp;
        DEVICE_ACCESS_FLAGS flags;
        GC_ERROR rc;
        const char* failedStep;
    };
    const Case cases[] = {
        {2, DEVICE_ACCESS_CONTROL, GC_ERR_ACCESS_DENIED,
         "failed to write to CCP (0x0A00) register"},
        {1, DEVICE_ACCESS_READONLY, GC_ERR_ACCESS_DENIED,
         "failed to read GVCP Capability (0x0934) register"},
        {2, DEVICE_ACCESS_READONLY, GC_ERR_SUCCESS, nullptr},
    };
    auto rival = kesta_device::Rival();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.rivalCcp * 10 + c.flags);
        ASSERT_EQ(rival.Claim(c.rivalCcp), 0);
        DEV_HANDLE hDevice = Open(c.flags, c.rc);
        if (c.failedStep != nullptr) {
            const std::vector<std::string> messages = Messages();
            EXPECT_NE(std::find(messages.begin(), messages.end(), c.failedStep), messages.end())
                << ::testing::PrintToString(messages);
        } else {
            ASSERT_NE(hDevice, nullptr);
            EXPECT_EQ(Info<int32_t>(hDevice, DEVICE_INFO_ACCESS_STATUS),
                      DEVICE_ACCESS_STATUS_READONLY);
            EXPECT_FALSE(Info<bool>(hDevice, DEVICE_INFO_IS_CONNECTED)); // not claimed
            EXPECT_EQ(ReadCamera(kCcp, Port(hDevice)), 2u);              // the rival's control
            EXPECT_EQ(WriteCamera(kWidth, 320, Port(hDevice)), GC_ERR_ACCESS_DENIED);
            Lib().TakeLastError();
            ASSERT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);
            uint32_t ccp = 0;
            ASSERT_EQ(rival.ReadReg(kCcp, ccp), 0);
            EXPECT_EQ(ccp, 2u); // a read-only close gives back nothing it did not take
        }
        rival.Release();
    }
}

TEST_F(Access, SwitchoverKeyLetsARivalTakeOver) {
    DEV_HANDLE hDevice = Open(DEVICE_ACCESS_CONTROL);
    ASSERT_NE(hDevice, nullptr);
    ASSERT_EQ(WriteCamera(kSwitchoverKey, 0xBEEF, Port(hDevice)), GC_ERR_SUCCESS)
        << Lib().TakeLastError().text;
    auto rival = kesta_device::Rival();
    EXPECT_EQ(rival.Claim(0x12340002u), kStatusAccessDenied); // wrong key
    EXPECT_EQ(rival.Claim(0xBEEF0002u), 0);                   // right key
    // The producer no longer holds the camera: its release is refused, yet
    // DevClose ends the module.
    EXPECT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);
    uint32_t ccp = 0;
    ASSERT_EQ(rival.ReadReg(kCcp, ccp), 0);
    EXPECT_EQ(ccp, 2u);
    rival.Release();
}

TEST_F(Access, UnknownFlagIsRefusedAndWritesNothing) {
    EXPECT_EQ(Open(5, GC_ERR_INVALID_PARAMETER), nullptr);
    EXPECT_EQ(CcpSeenFromHost(), 0u);
}

// --- Heartbeat ---------------------------------------------------------------

using Heartbeat = DeviceTest;

/// On the test bed's third camera, which runs with a heartbeat timeout of 1 s.
TEST_F(Heartbeat, KeepsControlAndFollowsAChangedTimeout) {
    m_serial = EnvList("KESTA_CAMERA_SERIALS").at(2);
    kesta_netns::Sniffer sniffer(EnvList("KESTA_CAMERA_NETNS").at(2), 3956);
    ASSERT_TRUE(sniffer.Ok());
    DEV_HANDLE hDevice = Open(DEVICE_ACCESS_CONTROL);
    ASSERT_NE(hDevice, nullptr);
    std::this_thread::sleep_for(1800ms); // nothing but the heartbeat talks to the camera
    // Had the camera dropped the producer, any key would do now.
    EXPECT_EQ(kesta_device::Rival(2).Claim(0x12340002u), kStatusAccessDenied);
    EXPECT_EQ(ReadCamera(kCcp, Port(hDevice)), 6u);
    EXPECT_TRUE(Info<bool>(hDevice, DEVICE_INFO_IS_CONNECTED));
    // 600 ms: cameras take no timeout below 500 ms.
    ASSERT_EQ(WriteCamera(kHeartbeatTimeout, 600, Port(hDevice)), GC_ERR_SUCCESS);
    std::this_thread::sleep_for(2000ms);
    ASSERT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);

    std::vector<Command> slow, fast;
    for (const Command& c : Commands(sniffer.Packets(), kesta_device::kWriteReg)) {
        if (c.address == kHeartbeatTimeout) {
            (c.word == 1000 ? slow : fast).push_back(c);
        }
    }
    ASSERT_GE(slow.size(), 3u);
    ASSERT_GE(fast.size(), 5u);
    for (const Command& c : fast) {
        EXPECT_EQ(c.word, 600u);
    }
    // The first fast write is the test's own and the next one ends a sleep
    // begun with the old period: only the later gaps show the new period.
    // A loaded machine delays beats but never hastens them, so each gap has a
    // firm lower bound and the median a loose upper one.
    const auto medianGap = [](const std::vector<Command>& writes, std::size_t from) {
        std::vector<Clock::duration> gaps;
        for (std::size_t i = from; i < writes.size(); ++i) {
            const auto gap = writes[i].at - writes[i - 1].at;
            EXPECT_GE(gap, writes[i].word == 1000 ? 450ms : 250ms);
            gaps.push_back(gap);
        }
        std::nth_element(gaps.begin(), gaps.begin() + gaps.size() / 2, gaps.end());
        return gaps[gaps.size() / 2];
    };
    EXPECT_LE(medianGap(slow, 1), 700ms);
    EXPECT_LE(medianGap(fast, 2), 450ms);
    // No beat after the release, which the capture may show a moment late.
    std::vector<Command> releases;
    const auto deadline = Clock::now() + 2s;
    while (releases.empty() && Clock::now() < deadline) {
        std::this_thread::sleep_for(10ms);
        for (const Command& c : Commands(sniffer.Packets(), kesta_device::kWriteReg)) {
            if (c.address == kCcp && (c.word & 3u) == 0) {
                releases.push_back(c);
            }
        }
    }
    ASSERT_EQ(releases.size(), 1u);
    EXPECT_LT(fast.back().at, releases.front().at);
}

// --- A camera that falls silent (its own CTest entry) ----------------------------

using Silent = DeviceTest;

TEST_F(Silent, RetriesRepeatTheBytesThenConnectedTurnsFalseAndCloseStillEnds) {
    kesta_netns::Sniffer sniffer(EnvList("KESTA_CAMERA_NETNS").at(0), 3956);
    ASSERT_TRUE(sniffer.Ok());
    DEV_HANDLE hDevice = Open(DEVICE_ACCESS_CONTROL);
    ASSERT_NE(hDevice, nullptr);
    EXPECT_TRUE(Info<bool>(hDevice, DEVICE_INFO_IS_CONNECTED));
    const auto end = Clock::now() + 20s;
    bool connected = true;
    while (connected && Clock::now() < end) {
        std::this_thread::sleep_for(200ms);
        connected = Info<bool>(hDevice, DEVICE_INFO_IS_CONNECTED);
    }
    EXPECT_FALSE(connected);

    // The heartbeat's unanswered read went out four times (3 retries by
    // default), the same bytes each time, one timeout (200 ms) apart.
    std::vector<kesta_netns::Captured> tries;
    for (const auto& p : sniffer.Packets()) {
        if (!tries.empty() && p.payload != tries.back().payload) {
            tries.clear();
        }
        tries.push_back(p);
        if (tries.size() == 4) {
            break;
        }
    }
    ASSERT_EQ(tries.size(), 4u) << "no command went out four times in a row";
    for (std::size_t i = 1; i < tries.size(); ++i) {
        const auto gap =
            std::chrono::duration_cast<std::chrono::milliseconds>(tries[i].at - tries[i - 1].at);
        EXPECT_GE(gap.count(), 190);
    }
    const auto start = Clock::now();
    EXPECT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);
    EXPECT_LT(Clock::now() - start, 10s);
}

// --- The camera's port -----------------------------------------------------------

using RemotePort = DeviceTest;

TEST_F(RemotePort, UrlAndManifestOfTheCamera) {
    DEV_HANDLE hDevice = Open(DEVICE_ACCESS_READONLY);
    ASSERT_NE(hDevice, nullptr);
    PORT_HANDLE port = Port(hDevice);
    char hex[16] = {};
    std::snprintf(hex, sizeof hex, "%zX", SimXml().size());
    const std::string url = std::string("Local:KestaSimCamera.xml;100000;") + hex;

    size_t size = 0;
    ASSERT_EQ(Lib().GCGetPortURL(port, nullptr, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(size, url.size() + 2);
    std::vector<char> text(size, 'x');
    ASSERT_EQ(Lib().GCGetPortURL(port, text.data(), &size), GC_ERR_SUCCESS);
    EXPECT_EQ(std::string(text.data()), url);
    EXPECT_EQ(text[url.size() + 1], '\0');

    uint32_t urls = 0;
    ASSERT_EQ(Lib().GCGetNumPortURLs(port, &urls), GC_ERR_SUCCESS);
    ASSERT_EQ(urls, 1u);
    const std::pair<URL_INFO_CMD, uint64_t> numbers[] = {{URL_INFO_FILE_VER_MAJOR, 1},
                                                         {URL_INFO_FILE_VER_MINOR, 0},
                                                         {URL_INFO_SCHEMA_VER_MAJOR, 1},
                                                         {URL_INFO_SCHEMA_VER_MINOR, 1},
                                                         {URL_INFO_FILE_REGISTER_ADDRESS, 0x200},
                                                         {URL_INFO_SCHEME, URL_SCHEME_LOCAL}};
    INFO_DATATYPE type = 0;
    for (const auto& [cmd, expected] : numbers) {
        uint64_t value = 0;
        size = sizeof value;
        EXPECT_EQ(Lib().GCGetPortURLInfo(port, 0, cmd, &type, &value, &size), GC_ERR_SUCCESS);
        EXPECT_EQ(value, expected) << cmd;
    }
    char entry[128] = {};
    size = sizeof entry;
    ASSERT_EQ(Lib().GCGetPortURLInfo(port, 0, URL_INFO_URL, &type, entry, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(type, INFO_DATATYPE_STRING);
    EXPECT_EQ(std::string(entry), url);
    size = sizeof entry;
    EXPECT_EQ(Lib().GCGetPortURLInfo(port, 0, URL_INFO_FILE_SHA1_HASH, &type, entry, &size),
              GC_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(Lib().GCGetPortURLInfo(port, 1, URL_INFO_URL, &type, entry, &size),
              GC_ERR_INVALID_INDEX);
    Lib().TakeLastError();

    // The port's own facts, and the device module's port beside it.
    char fact[64] = {};
    size = sizeof fact;
    ASSERT_EQ(Lib().GCGetPortInfo(port, PORT_INFO_MODULE, &type, fact, &size), GC_ERR_SUCCESS);
    EXPECT_STREQ(fact, "Device");
    size = sizeof fact;
    ASSERT_EQ(Lib().GCGetPortInfo(hDevice, PORT_INFO_MODULE, &type, fact, &size), GC_ERR_SUCCESS);
    EXPECT_STREQ(fact, "TLDevice");
    size = 0;
    ASSERT_EQ(Lib().GCGetPortURL(hDevice, nullptr, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(size, std::string("local:SFNC_GenTLDevice_Reference_Version_1_0_0_Schema_1_1.xml;"
                                "F0F00000;7A1D?SchemaVersion=1.0.0")
                            .size() +
                        1);
    ASSERT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);
}

TEST_F(RemotePort, MemoryAccessIsSplitInto536ByteCommands) {
    kesta_netns::Sniffer sniffer(EnvList("KESTA_CAMERA_NETNS").at(0), 3956);
    ASSERT_TRUE(sniffer.Ok());
    DEV_HANDLE hDevice = Open(DEVICE_ACCESS_CONTROL);
    ASSERT_NE(hDevice, nullptr);
    PORT_HANDLE port = Port(hDevice);
    const std::string xml = SimXml();
    ASSERT_GE(xml.size(), 1200u);

    const auto before = sniffer.Packets().size();
    std::vector<char> data(1200);
    size_t size = data.size();
    ASSERT_EQ(Lib().GCReadPort(port, kXmlAddress, data.data(), &size), GC_ERR_SUCCESS);
    EXPECT_EQ(size, data.size());
    EXPECT_EQ(std::string(data.data(), data.size()), xml.substr(0, data.size()));
    size = 536;
    ASSERT_EQ(Lib().GCReadPort(port, kXmlAddress, data.data(), &size), GC_ERR_SUCCESS);
    std::this_thread::sleep_for(100ms);

    const auto packets = sniffer.Packets();
    const std::vector<Command> reads =
        Commands({packets.begin() + before, packets.end()}, kesta_device::kReadMem);
    ASSERT_EQ(reads.size(), 4u);
    const uint32_t counts[] = {536, 536, 128, 536};
    const uint32_t addresses[] = {kXmlAddress, kXmlAddress + 536, kXmlAddress + 1072, kXmlAddress};
    for (std::size_t i = 0; i < reads.size(); ++i) {
        EXPECT_EQ(reads[i].address, addresses[i]) << i;
        EXPECT_EQ(reads[i].word & 0xFFFFu, counts[i]) << i; // reserved half, then the count
    }

    // A write goes out as memory too, and reads back.
    const unsigned char geometry[8] = {0, 0, 1, 0x40, 0, 0, 0, 0xF0}; // 320 x 240
    size = sizeof geometry;
    ASSERT_EQ(Lib().GCWritePort(port, kWidth, geometry, &size), GC_ERR_SUCCESS)
        << Lib().TakeLastError().text;
    EXPECT_EQ(ReadCamera(kWidth, port), 320u);
    EXPECT_EQ(ReadCamera(kWidth + 4, port), 240u);
    ASSERT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);
}

TEST_F(RemotePort, DeviceFactsAndRefusals) {
    m_serial = EnvList("KESTA_CAMERA_SERIALS").at(1);
    DEV_HANDLE hDevice = Open(DEVICE_ACCESS_CONTROL);
    ASSERT_NE(hDevice, nullptr);
    INFO_DATATYPE type = 0;
    char text[64] = {};
    size_t size = sizeof text;
    ASSERT_EQ(Lib().DevGetInfo(hDevice, DEVICE_INFO_VENDOR, &type, text, &size), GC_ERR_SUCCESS);
    EXPECT_STREQ(text, "Kesta Sim Works");
    EXPECT_EQ(Info<int64_t>(hDevice, DEVICE_INFO_GEV_IP_ADDRESS),
              kesta_netns::ParseIp(EnvList("KESTA_CAMERA_IPS").at(1)));
    EXPECT_EQ(Info<int64_t>(hDevice, DEVICE_INFO_GEV_SUBNET_MASK),
              kesta_netns::ParseIp(Env("KESTA_NETNS_NETMASK")));
    EXPECT_EQ(static_cast<uint64_t>(Info<int64_t>(hDevice, DEVICE_INFO_GEV_MAC_ADDRESS)),
              kesta_netns::ParseMac(EnvList("KESTA_CAMERA_MACS").at(1)));

    uint32_t streams = 0;
    ASSERT_EQ(Lib().DevGetNumDataStreams(hDevice, &streams), GC_ERR_SUCCESS);
    EXPECT_EQ(streams, 2u);
    IF_HANDLE parent = nullptr;
    ASSERT_EQ(Lib().DevGetParentIF(hDevice, &parent), GC_ERR_SUCCESS);
    EXPECT_EQ(parent, m_iface);

    EXPECT_EQ(Lib().DevGetPort(hDevice, nullptr), GC_ERR_INVALID_PARAMETER);
    PORT_HANDLE port = Port(hDevice);
    size = 4;
    EXPECT_EQ(Lib().GCWritePort(port, kWidth, nullptr, &size), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(Lib().GCWritePort(port, kWidth, &size, nullptr), GC_ERR_INVALID_PARAMETER);
    void* event = nullptr;
    EXPECT_EQ(Lib().GCRegisterEvent(port, EVENT_REMOTE_DEVICE, &event), GC_ERR_NOT_AVAILABLE);
    EXPECT_EQ(Lib().GCRegisterEvent(hDevice, EVENT_NEW_BUFFER, &event), GC_ERR_NOT_IMPLEMENTED);
    // A register the camera does not have: the camera's refusal under the
    // module's own record.
    unsigned char bytes[4] = {};
    size = 4;
    Lib().TakeLastError();
    EXPECT_NE(Lib().GCReadPort(port, 0x00FFFFF0, bytes, &size), GC_ERR_SUCCESS);
    EXPECT_GE(Messages().size(), 2u);
    ASSERT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);
}

} // namespace
