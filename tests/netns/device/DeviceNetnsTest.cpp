// The device module as a consumer sees it, through the exported functions of
// the loaded producer, beside simulated cameras: who may open a camera and
// how, the heartbeat that keeps control, a camera that falls silent, and the
// camera's own port with its URLs. A rival application on the second host
// and a capture of the camera's GVCP traffic check what went over the wire.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "CameraTestBed.h"

namespace {

using namespace std::chrono_literals;
using kesta_device::Command;
using kesta_device::Commands;
using kesta_device::Env;
using kesta_device::EnvList;
using kesta_netns::Clock;

constexpr unsigned kCcp = 0x0A00;
constexpr unsigned kHeartbeatTimeout = 0x0938;
constexpr unsigned kSwitchoverKey = 0x095C;
constexpr unsigned kXmlAddress = 0x00100000;
constexpr unsigned kWidth = 0x10000;

long HostOrderIp(const std::string& text) {
    return static_cast<long>(kesta_netns::ParseIp(text));
}

std::string SimXml() {
    std::ifstream in(KESTA_SIM_XML, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class DeviceTest : public kesta_device::CameraTest {
protected:
    void SetUp() override {
        CameraTest::SetUp();
        m_bed = gevtest::TestBed::fromEnvironment();
    }

    /// IFOpenDevice of the test bed's first camera; null on failure.
    DEV_HANDLE Open(DEVICE_ACCESS_FLAGS flags, GC_ERROR expected = GC_ERR_SUCCESS) {
        DEV_HANDLE hDevice = nullptr;
        const GC_ERROR rc = Lib().IFOpenDevice(m_iface, m_serial.c_str(), flags, &hDevice);
        EXPECT_EQ(rc, expected) << Lib().TakeLastError().text;
        return rc == GC_ERR_SUCCESS ? hDevice : nullptr;
    }
    PORT_HANDLE Port(DEV_HANDLE hDevice) {
        PORT_HANDLE port = nullptr;
        EXPECT_EQ(Lib().DevGetPort(hDevice, &port), GC_ERR_SUCCESS);
        return port;
    }

    /// The texts of the calling thread's error stack, innermost first,
    /// without their stamps.
    std::vector<std::string> Messages() {
        std::vector<std::string> texts;
        for (const auto& record : Lib().TakeLastError().Records()) {
            // "<function>():<line>: <text>"
            const auto call = record.message.find("():");
            const auto text =
                call == std::string::npos ? call : record.message.find(": ", call + 3);
            texts.push_back(text == std::string::npos ? record.message
                                                      : record.message.substr(text + 2));
        }
        std::reverse(texts.begin(), texts.end());
        return texts;
    }

    template <typename T> T Info(DEV_HANDLE hDevice, DEVICE_INFO_CMD cmd) {
        INFO_DATATYPE type = 0;
        T value{};
        size_t size = sizeof value;
        EXPECT_EQ(Lib().DevGetInfo(hDevice, cmd, &type, &value, &size), GC_ERR_SUCCESS)
            << cmd << Lib().TakeLastError().text;
        return value;
    }
    std::string Text(DEV_HANDLE hDevice, DEVICE_INFO_CMD cmd) {
        INFO_DATATYPE type = 0;
        char text[256] = {};
        size_t size = sizeof text;
        EXPECT_EQ(Lib().DevGetInfo(hDevice, cmd, &type, text, &size), GC_ERR_SUCCESS) << cmd;
        return text;
    }
    /// A camera register through the remote port (big-endian on the wire).
    uint32_t ReadRegister(PORT_HANDLE port, uint64_t address) {
        unsigned char bytes[4] = {};
        size_t size = 4;
        EXPECT_EQ(Lib().GCReadPort(port, address, bytes, &size), GC_ERR_SUCCESS)
            << Lib().TakeLastError().text;
        return gevtest::be32(bytes);
    }
    GC_ERROR WriteRegister(PORT_HANDLE port, uint64_t address, uint32_t value) {
        const unsigned char bytes[4] = {
            static_cast<unsigned char>(value >> 24), static_cast<unsigned char>(value >> 16),
            static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
        size_t size = 4;
        return Lib().GCWritePort(port, address, bytes, &size);
    }
    /// The privilege register as the host's own GVCP client reads it.
    uint32_t CcpSeenFromHost() {
        gevtest::GvcpClient client(m_bed.cameraIps.at(0), m_bed.hostIp);
        uint32_t value = 0xFFFFFFFF;
        EXPECT_EQ(client.readReg(kCcp, value), 0);
        return value;
    }

    gevtest::TestBed m_bed;
};

// --- Access ------------------------------------------------------------------

using Access = DeviceTest;

TEST_F(Access, ControlClaimsTheCameraAndCloseGivesItBack) {
    DEV_HANDLE hDevice = Open(DEVICE_ACCESS_CONTROL);
    ASSERT_NE(hDevice, nullptr);
    EXPECT_EQ(Info<int32_t>(hDevice, DEVICE_INFO_ACCESS_STATUS), DEVICE_ACCESS_STATUS_READWRITE);
    EXPECT_TRUE(Info<bool>(hDevice, DEVICE_INFO_IS_CONNECTED));

    auto rival = kesta_device::Rival();
    uint32_t ccp = 0;
    ASSERT_EQ(rival.readReg(kCcp, ccp), 0);
    EXPECT_EQ(ccp, 6u); // control, switchover allowed
    // Control leaves switchover open: only a rival with the camera's key
    // (0x095C, never set here, so 0) could take over; a wrong key is refused.
    EXPECT_EQ(rival.claim(0x12340002u), kesta_device::kStatusAccessDenied);
    uint32_t width = 0;
    EXPECT_EQ(rival.writeReg(kWidth, 320), kesta_device::kStatusAccessDenied);
    EXPECT_EQ(rival.readReg(kWidth, width), 0); // a controlled camera still answers reads

    // A second open of the same camera is refused while it is open.
    DEV_HANDLE twice = nullptr;
    EXPECT_EQ(Lib().IFOpenDevice(m_iface, m_serial.c_str(), DEVICE_ACCESS_READONLY, &twice),
              GC_ERR_RESOURCE_IN_USE);
    Lib().TakeLastError();

    ASSERT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);
    EXPECT_EQ(CcpSeenFromHost(), 0u);
    EXPECT_EQ(rival.claim(2), 0); // free for others now
    rival.release();
}

TEST_F(Access, ExclusiveShutsOthersOut) {
    DEV_HANDLE hDevice = Open(DEVICE_ACCESS_EXCLUSIVE);
    ASSERT_NE(hDevice, nullptr);
    auto rival = kesta_device::Rival();
    uint32_t ccp = 0;
    EXPECT_EQ(rival.readReg(kCcp, ccp), kesta_device::kStatusAccessDenied);
    EXPECT_EQ(ReadRegister(Port(hDevice), kCcp) & 3u, 3u);
    ASSERT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);
    ASSERT_EQ(rival.readReg(kCcp, ccp), 0);
    EXPECT_EQ(ccp, 0u);
}

TEST_F(Access, CameraHeldByAnotherHostRefusesControlButCanBeRead) {
    auto rival = kesta_device::Rival();
    ASSERT_EQ(rival.claim(2), 0);

    EXPECT_EQ(Open(DEVICE_ACCESS_CONTROL, GC_ERR_ACCESS_DENIED), nullptr);
    const std::vector<std::string> messages = Messages();
    ASSERT_GE(messages.size(), 2u);
    EXPECT_NE(
        std::find(messages.begin(), messages.end(), "failed to write to CCP (0x0A00) register"),
        messages.end())
        << ::testing::PrintToString(messages);

    DEV_HANDLE hDevice = Open(DEVICE_ACCESS_READONLY);
    ASSERT_NE(hDevice, nullptr);
    EXPECT_EQ(Info<int32_t>(hDevice, DEVICE_INFO_ACCESS_STATUS), DEVICE_ACCESS_STATUS_READONLY);
    EXPECT_FALSE(Info<bool>(hDevice, DEVICE_INFO_IS_CONNECTED)); // no heartbeat, not claimed
    PORT_HANDLE port = Port(hDevice);
    EXPECT_EQ(ReadRegister(port, kCcp), 2u); // the rival's control
    EXPECT_EQ(WriteRegister(port, kWidth, 320), GC_ERR_ACCESS_DENIED);
    Lib().TakeLastError();
    ASSERT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);

    uint32_t ccp = 0;
    ASSERT_EQ(rival.readReg(kCcp, ccp), 0);
    EXPECT_EQ(ccp, 2u); // a read-only close gives back nothing it did not take
    rival.release();
}

TEST_F(Access, ExclusiveRivalKeepsEvenReadersOut) {
    auto rival = kesta_device::Rival();
    ASSERT_EQ(rival.claim(1), 0);
    EXPECT_EQ(Open(DEVICE_ACCESS_READONLY, GC_ERR_ACCESS_DENIED), nullptr);
    const std::vector<std::string> messages = Messages();
    EXPECT_NE(std::find(messages.begin(), messages.end(),
                        "failed to read GVCP Capability (0x0934) register"),
              messages.end())
        << ::testing::PrintToString(messages);
    rival.release();
}

TEST_F(Access, SwitchoverKeyLetsARivalTakeOver) {
    DEV_HANDLE hDevice = Open(DEVICE_ACCESS_CONTROL);
    ASSERT_NE(hDevice, nullptr);
    PORT_HANDLE port = Port(hDevice);
    ASSERT_EQ(WriteRegister(port, kSwitchoverKey, 0xBEEF), GC_ERR_SUCCESS)
        << Lib().TakeLastError().text;

    auto rival = kesta_device::Rival();
    EXPECT_EQ(rival.claim(0x12340002u), kesta_device::kStatusAccessDenied); // wrong key
    EXPECT_EQ(rival.claim(0xBEEF0002u), 0);                                 // right key
    uint32_t ccp = 0;
    ASSERT_EQ(rival.readReg(kCcp, ccp), 0);
    EXPECT_EQ(ccp, 2u);

    // The producer no longer holds the camera: its release is refused, yet
    // DevClose ends the module.
    EXPECT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);
    ASSERT_EQ(rival.readReg(kCcp, ccp), 0);
    EXPECT_EQ(ccp, 2u);
    rival.release();
}

TEST_F(Access, UnknownFlagIsRefusedAndWritesNothing) {
    EXPECT_EQ(Open(5, GC_ERR_INVALID_PARAMETER), nullptr);
    const std::vector<std::string> messages = Messages();
    ASSERT_FALSE(messages.empty());
    EXPECT_EQ(messages.front(), "device can be opened with one of the following flags only:\n"
                                "GenTL::DEVICE_ACCESS_UNKNOWN, GenTL::DEVICE_ACCESS_NONE, \n"
                                "GenTL::DEVICE_ACCESS_READONLY, GenTL::DEVICE_ACCESS_CONTROL, \n"
                                "GenTL::DEVICE_ACCESS_EXCLUSIVE");
    EXPECT_EQ(CcpSeenFromHost(), 0u);
}

// --- Heartbeat ---------------------------------------------------------------

using Heartbeat = DeviceTest;

TEST_F(Heartbeat, KeepsControlPastTheTimeout) {
    // The camera runs with a heartbeat timeout of 1 s.
    DEV_HANDLE hDevice = Open(DEVICE_ACCESS_CONTROL);
    ASSERT_NE(hDevice, nullptr);
    std::this_thread::sleep_for(2500ms); // nothing but the heartbeat talks to the camera
    auto rival = kesta_device::Rival();
    // Had the camera dropped the producer, any key would do now.
    EXPECT_EQ(rival.claim(0x12340002u), kesta_device::kStatusAccessDenied);
    EXPECT_EQ(ReadRegister(Port(hDevice), kCcp), 6u);
    EXPECT_TRUE(Info<bool>(hDevice, DEVICE_INFO_IS_CONNECTED));
    ASSERT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);
}

TEST_F(Heartbeat, FollowsAChangedTimeout) {
    const std::string cameraNetns = EnvList("KESTA_CAMERA_NETNS").at(0);
    kesta_netns::Sniffer sniffer(cameraNetns, 3956);
    ASSERT_TRUE(sniffer.Ok());
    DEV_HANDLE hDevice = Open(DEVICE_ACCESS_CONTROL);
    ASSERT_NE(hDevice, nullptr);
    PORT_HANDLE port = Port(hDevice);
    std::this_thread::sleep_for(1800ms);
    // 600 ms: cameras take no timeout below 500 ms.
    ASSERT_EQ(WriteRegister(port, kHeartbeatTimeout, 600), GC_ERR_SUCCESS);
    std::this_thread::sleep_for(2000ms);
    ASSERT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);

    std::vector<Command> beats;
    for (const Command& c : Commands(sniffer.Packets(), kesta_device::kWriteReg)) {
        if (c.address == kHeartbeatTimeout) {
            beats.push_back(c);
        }
    }
    std::vector<Command> slow, fast;
    for (const Command& c : beats) {
        (c.word == 1000 ? slow : fast).push_back(c);
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
        std::vector<kesta_netns::Clock::duration> gaps;
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
    const auto deadline = kesta_netns::Clock::now() + 2s;
    while (releases.empty() && kesta_netns::Clock::now() < deadline) {
        std::this_thread::sleep_for(10ms);
        for (const Command& c : Commands(sniffer.Packets(), kesta_device::kWriteReg)) {
            if (c.address == kCcp && (c.word & 3u) == 0) {
                releases.push_back(c);
            }
        }
    }
    ASSERT_EQ(releases.size(), 1u);
    EXPECT_LT(beats.back().at, releases.front().at);
}

// --- A camera that falls silent ------------------------------------------------

using Silent = DeviceTest;

TEST_F(Silent, ConnectedInfoTurnsFalseAndCloseStillEnds) {
    // The camera stops answering a few seconds after its start.
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
    const auto start = Clock::now();
    EXPECT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);
    EXPECT_LT(Clock::now() - start, 10s);
}

// --- A camera whose registers lie ---------------------------------------------------

using Lying = DeviceTest;

/// Run with 0x0938 and 0x0958 reading 0, the ack of 0x064C lost and that of
/// SCPS cut to its header.
TEST_F(Lying, HeartbeatTimeoutOfZeroIsServedAtASanePace) {
    kesta_netns::Sniffer sniffer(EnvList("KESTA_CAMERA_NETNS").at(0), 3956);
    ASSERT_TRUE(sniffer.Ok());
    DEV_HANDLE hDevice = Open(DEVICE_ACCESS_CONTROL);
    ASSERT_NE(hDevice, nullptr);
    std::this_thread::sleep_for(1000ms);
    ASSERT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);
    const auto writes = Commands(sniffer.Packets(), kesta_device::kWriteReg);
    const auto beats = std::count_if(writes.begin(), writes.end(), [](const Command& c) {
        return c.address == kHeartbeatTimeout;
    });
    EXPECT_GE(beats, 1);
    EXPECT_LE(beats, 40) << "a heartbeat at the pace of its transactions";
}

TEST_F(Lying, LostAckEndsAlthoughThePendingTimeoutReadsZero) {
    DEV_HANDLE hDevice = Open(DEVICE_ACCESS_CONTROL);
    ASSERT_NE(hDevice, nullptr);
    PORT_HANDLE port = Port(hDevice);
    unsigned char bytes[4] = {};
    size_t size = sizeof bytes;
    EXPECT_NE(
        kesta_netns::EndsWithin(30s, [&] { return Lib().GCReadPort(port, 0x064C, bytes, &size); }),
        GC_ERR_SUCCESS);
    ASSERT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);
}

TEST_F(Lying, PacketSizeReadWithoutAValueStopsTheStart) {
    OpenStream();
    BUFFER_HANDLE buffer = nullptr;
    ASSERT_EQ(Lib().DSAllocAndAnnounceBuffer(m_stream, 640 * 480, nullptr, &buffer),
              GC_ERR_SUCCESS);
    ASSERT_EQ(Lib().DSQueueBuffer(m_stream, buffer), GC_ERR_SUCCESS);
    EXPECT_NE(Lib().DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE),
              GC_ERR_SUCCESS);
    Lib().TakeLastError();
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
    auto number = [&](URL_INFO_CMD cmd) {
        INFO_DATATYPE type = 0;
        uint64_t value = 0;
        size_t n = sizeof value;
        EXPECT_EQ(Lib().GCGetPortURLInfo(port, 0, cmd, &type, &value, &n), GC_ERR_SUCCESS) << cmd;
        return value;
    };
    EXPECT_EQ(number(URL_INFO_FILE_VER_MAJOR), 1u);
    EXPECT_EQ(number(URL_INFO_FILE_VER_MINOR), 0u);
    EXPECT_EQ(number(URL_INFO_SCHEMA_VER_MAJOR), 1u);
    EXPECT_EQ(number(URL_INFO_SCHEMA_VER_MINOR), 1u);
    EXPECT_EQ(number(URL_INFO_FILE_REGISTER_ADDRESS), 0x200u);
    EXPECT_EQ(number(URL_INFO_SCHEME), static_cast<uint64_t>(URL_SCHEME_LOCAL));
    INFO_DATATYPE type = 0;
    char entry[128] = {};
    size = sizeof entry;
    ASSERT_EQ(Lib().GCGetPortURLInfo(port, 0, URL_INFO_URL, &type, entry, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(type, INFO_DATATYPE_STRING);
    EXPECT_EQ(std::string(entry), url);
    size = sizeof entry;
    EXPECT_EQ(Lib().GCGetPortURLInfo(port, 0, URL_INFO_FILE_SHA1_HASH, &type, entry, &size),
              GC_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(Messages().front(), "URL_INFO_CMD URL_INFO_FILE_SHA1_HASH is not implemented");
    EXPECT_EQ(Lib().GCGetPortURLInfo(port, 1, URL_INFO_URL, &type, entry, &size),
              GC_ERR_INVALID_INDEX);
    Lib().TakeLastError();

    // The port's own facts are the producer's, not the camera's; the device
    // module's port beside it.
    char fact[64] = {};
    const std::pair<PORT_INFO_CMD, const char*> facts[] = {{PORT_INFO_ID, "Unknown ID"},
                                                           {PORT_INFO_VENDOR, "Kesta Optic Works"},
                                                           {PORT_INFO_MODEL, "GenTL Producer"},
                                                           {PORT_INFO_MODULE, "Device"},
                                                           {PORT_INFO_PORTNAME, "Device"}};
    for (const auto& f : facts) {
        size = sizeof fact;
        ASSERT_EQ(Lib().GCGetPortInfo(port, f.first, &type, fact, &size), GC_ERR_SUCCESS);
        EXPECT_STREQ(fact, f.second) << f.first;
    }
    size = sizeof fact;
    ASSERT_EQ(Lib().GCGetPortInfo(hDevice, PORT_INFO_MODULE, &type, fact, &size), GC_ERR_SUCCESS);
    EXPECT_STREQ(fact, "TLDevice");
    char own[256] = {};
    size = sizeof own;
    ASSERT_EQ(Lib().GCGetPortURL(hDevice, own, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(size, std::strlen(own) + 1) << own;
    ASSERT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);
}

// URL 0 asked for before any count answers as after one; on a camera without
// a manifest (KESTA_SIM_NO_MANIFEST=1, --disable manifest) there is no URL 0
// either way, and the port's own URL still names the description.
TEST_F(RemotePort, UrlInfoBeforeAndAfterACount) {
    const bool manifest = Env("KESTA_SIM_NO_MANIFEST").empty();
    DEV_HANDLE hDevice = Open(DEVICE_ACCESS_READONLY);
    ASSERT_NE(hDevice, nullptr);
    PORT_HANDLE port = Port(hDevice);
    auto urlInfo = [&] {
        INFO_DATATYPE type = 0;
        char entry[128] = {};
        size_t size = sizeof entry;
        const GC_ERROR rc = Lib().GCGetPortURLInfo(port, 0, URL_INFO_URL, &type, entry, &size);
        Lib().TakeLastError();
        return std::make_pair(rc, std::string(entry));
    };
    const auto before = urlInfo();
    uint32_t urls = 99;
    ASSERT_EQ(Lib().GCGetNumPortURLs(port, &urls), GC_ERR_SUCCESS);
    EXPECT_EQ(urlInfo(), before);
    EXPECT_EQ(urls, manifest ? 1u : 0u);
    EXPECT_EQ(before.first, manifest ? GC_ERR_SUCCESS : GC_ERR_INVALID_INDEX);
    char url[128] = {};
    size_t size = sizeof url;
    ASSERT_EQ(Lib().GCGetPortURL(port, url, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(std::string(url).rfind("Local:KestaSimCamera.xml;100000;", 0), 0u) << url;
    if (manifest) {
        EXPECT_EQ(before.second, url);
    }
    ASSERT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);
}

TEST_F(RemotePort, MemoryAccessIsSplitInto536ByteCommands) {
    const std::string cameraNetns = EnvList("KESTA_CAMERA_NETNS").at(0);
    kesta_netns::Sniffer sniffer(cameraNetns, 3956);
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
    std::vector<Command> reads;
    for (const Command& c :
         Commands({packets.begin() + before, packets.end()}, kesta_device::kReadMem)) {
        reads.push_back(c);
    }
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
    EXPECT_EQ(ReadRegister(port, kWidth), 320u);
    EXPECT_EQ(ReadRegister(port, kWidth + 4), 240u);
    ASSERT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);
}

TEST_F(RemotePort, DeviceFactsAndRefusalTexts) {
    DEV_HANDLE hDevice = Open(DEVICE_ACCESS_CONTROL);
    ASSERT_NE(hDevice, nullptr);
    EXPECT_EQ(Text(hDevice, DEVICE_INFO_ID), m_serial);
    EXPECT_EQ(Text(hDevice, DEVICE_INFO_VENDOR), "Kesta Sim Works");
    EXPECT_EQ(Info<int64_t>(hDevice, DEVICE_INFO_GEV_IP_ADDRESS),
              HostOrderIp(Env("KESTA_CAMERA_IP")));
    EXPECT_EQ(Info<int64_t>(hDevice, DEVICE_INFO_GEV_SUBNET_MASK),
              HostOrderIp(Env("KESTA_NETNS_NETMASK")));
    EXPECT_EQ(static_cast<uint64_t>(Info<int64_t>(hDevice, DEVICE_INFO_GEV_MAC_ADDRESS)),
              kesta_netns::ParseMac(EnvList("KESTA_CAMERA_MACS").at(0)));

    uint32_t streams = 0;
    ASSERT_EQ(Lib().DevGetNumDataStreams(hDevice, &streams), GC_ERR_SUCCESS);
    EXPECT_EQ(streams, 2u);
    IF_HANDLE parent = nullptr;
    ASSERT_EQ(Lib().DevGetParentIF(hDevice, &parent), GC_ERR_SUCCESS);
    EXPECT_EQ(parent, m_iface);

    EXPECT_EQ(Lib().DevGetPort(hDevice, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(Messages().front(), "phRemoteDevice==nullptr");
    PORT_HANDLE port = Port(hDevice);
    size_t size = 4;
    EXPECT_EQ(Lib().GCWritePort(port, kWidth, nullptr, &size), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(Messages().front(), "pBuffer==nullptr");
    EXPECT_EQ(Lib().GCWritePort(port, kWidth, &size, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(Messages().front(), "piSize==nullptr");
    void* event = nullptr;
    EXPECT_EQ(Lib().GCRegisterEvent(port, EVENT_REMOTE_DEVICE, &event), GC_ERR_NOT_AVAILABLE);
    Lib().TakeLastError();
    EXPECT_EQ(Lib().GCRegisterEvent(hDevice, EVENT_NEW_BUFFER, &event), GC_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(Messages().front(), "only EVENT_REMOTE_DEVICE is implemented");
    // A register the camera does not have.
    unsigned char bytes[4] = {};
    size = 4;
    EXPECT_NE(Lib().GCReadPort(port, 0x00FFFFF0, bytes, &size), GC_ERR_SUCCESS);
    EXPECT_GE(Messages().size(), 2u);
    ASSERT_EQ(Lib().DevClose(hDevice), GC_ERR_SUCCESS);
}

} // namespace
