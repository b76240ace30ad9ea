// The control layer against simulated cameras and scripted peers, inside the
// network namespaces of tests/netns/run-with-camera. The cameras of the test
// bed differ (see ../CMakeLists.txt): 0 to 2 are plain, 3 delays its acks, 4
// sends every second ack with a wrong id, 5 every second with a refusal, 7
// is hostile.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>

#include "GenTL_KESTA.h"
#include "HalApplication.h"
#include "hal/AdapterHandle.h"
#include "hal/DeviceHandle.h"
#include "hal/GvcpWire.h"
#include "hal/HALGev.h"
#include "hal/SocketHelper.h"

namespace GenTL {
namespace {

using namespace kesta_netns;

constexpr unsigned sk_addrVersion = 0x0000;
constexpr unsigned sk_addrTickHigh = 0x093C;
constexpr unsigned sk_addrGvcpConfig = 0x0954;
constexpr unsigned sk_addrXmlFile = 0x00100000;
constexpr long kDiscoveryMs = 400;

std::string Serial(std::size_t i) {
    return EnvList("KESTA_CAMERA_SERIALS").at(i);
}

/// The host side of the test bed, through HALGev: the adapter of the test
/// link, opened.
class HalBed : public ::testing::Test {
protected:
    void SetUp() override {
        if (Env("KESTA_NETNS_HOST").empty()) {
            GTEST_SKIP() << "needs the namespaces of run-with-camera";
        }
        m_app.reset(new HalApplication(ParseIp(Env("KESTA_NETNS_HOST_IP"))));
        m_hal = m_app->Hal();
        m_adapter = m_app->Adapter();
        ASSERT_NE(nullptr, m_adapter);
    }
    std::vector<DiscoveredDevice> Discover() { return m_app->Discover(kDiscoveryMs); }
    void* OpenCamera(const std::string& serial, bool control = true) {
        void* device = m_app->OpenCamera(serial, control);
        EXPECT_NE(nullptr, device) << serial;
        return device;
    }

    std::unique_ptr<HalApplication> m_app;
    HALGev* m_hal = nullptr;
    void* m_adapter = nullptr;
};

// --- Several cameras ---------------------------------------------------------------

using Cameras = HalBed;

TEST_F(Cameras, DiscoveryFindsEveryCameraAndAsksUnicastAddressesAfterTheBroadcast) {
    const std::vector<std::string> ips = EnvList("KESTA_CAMERA_IPS");
    const std::vector<std::string> serials = EnvList("KESTA_CAMERA_SERIALS");
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal->AddUnicastDiscoveryDevice(m_adapter, htonl(ParseIp(ips[0]))));
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal->AddUnicastDiscoveryDevice(m_adapter, htonl(ParseIp(ips[1]))));
    // Nobody there: logged and passed over, after one timeout.
    EXPECT_EQ(GC_ERR_SUCCESS,
              m_hal->AddUnicastDiscoveryDevice(m_adapter, htonl(ParseIp("192.168.213.99"))));
    unsigned list[8] = {};
    unsigned size = 8;
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal->GetUnicastDiscoveryDevices(m_adapter, list, &size));
    EXPECT_EQ(3u, size);

    const auto start = Clock::now();
    std::vector<DiscoveredDevice> devices = Discover();
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(2 * kDiscoveryMs - 20));
    EXPECT_EQ(serials.size() + 2, devices.size()) << "unicast answers come on top";

    AdapterHandle* adapter = AsAdapter(m_adapter);
    std::set<std::string> unicast;
    for (const DeviceData& row : adapter->deviceList) {
        if (row.unicastDiscovered) {
            unicast.insert(row.id);
        }
    }
    EXPECT_EQ((std::set<std::string>{serials[0], serials[1]}), unicast);

    // Only the broadcast part is left once the list is cleared: every
    // camera, with its facts, after the whole timeout.
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal->RemoveUnicastDiscoveryDevice(m_adapter, 0xFFFFFFFF));
    const auto broadcast = Clock::now();
    devices = Discover();
    EXPECT_GE(Clock::now() - broadcast, std::chrono::milliseconds(kDiscoveryMs - 20));
    ASSERT_EQ(serials.size(), devices.size());
    for (std::size_t i = 0; i < serials.size(); ++i) {
        SCOPED_TRACE(serials[i]);
        const auto found =
            std::find_if(devices.begin(), devices.end(),
                         [&](const DiscoveredDevice& d) { return std::get<0>(d) == serials[i]; });
        ASSERT_NE(devices.end(), found);
        EXPECT_EQ(ParseIp(ips[i]), ntohl(std::get<1>(*found)));
    }
}

/// Bytes of the camera's XML file, which the simulator serves at 0x100000.
Bytes XmlFile() {
    std::ifstream in(std::string(KESTA_SOURCE_DIR) + "/tools/gev-camera-sim/KestaSimCamera.xml",
                     std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST_F(Cameras, MemoryReadsOfAnyLengthAndTheCamerasRefusal) {
    const Bytes xml = XmlFile();
    ASSERT_GT(xml.size(), 2000u);
    Discover();
    void* device = OpenCamera(Serial(0));
    ASSERT_NE(nullptr, device);
    // Lengths that are no multiple of 4 are padded on the wire and cut here.
    for (std::size_t length : {1u, 3u, 4u, 5u, 533u, 536u}) {
        SCOPED_TRACE(length);
        Bytes data(length + 4, 0xA5);
        EXPECT_EQ(GC_ERR_SUCCESS, m_hal->ReadMem(device, sk_addrXmlFile + 8,
                                                 reinterpret_cast<char*>(data.data()), length));
        EXPECT_TRUE(
            std::equal(xml.begin() + 8, xml.begin() + 8 + static_cast<long>(length), data.begin()));
        EXPECT_EQ(Bytes(4, 0xA5), Bytes(data.end() - 4, data.end()));
    }
    // Read-only memory: the camera's status comes back mapped.
    char big[536] = {};
    EXPECT_EQ(GC_ERR_ACCESS_DENIED, m_hal->WriteMem(device, sk_addrXmlFile, big, 536));
}

TEST_F(Cameras, ResendAndActionCommandsReachTheCameraByteForByte) {
    Discover();
    void* device = OpenCamera(Serial(0));
    ASSERT_NE(nullptr, device);
    // The keys of the actions below, so that the camera answers them.
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal->WriteReg(device, 0x090C, 0xA1A2A3A4));
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal->WriteReg(device, 0x9800, 0xB1B2B3B4));
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal->WriteReg(device, 0x9804, 0xFFFFFFFF));
    DeviceHandle* handle = AsDevice(device);
    handle->requestId = 0x1233;
    // Made after the acknowledged writes: it sees only what follows.
    Sniffer sniffer(EnvList("KESTA_CAMERA_NETNS").at(0), 3956);
    ASSERT_TRUE(sniffer.Ok());

    EXPECT_EQ(GC_ERR_SUCCESS, m_hal->SendPacketResend(device, 0x1122334455667788ul, 5, 9, false));
    EXPECT_EQ(GC_ERR_SUCCESS,
              m_hal->SendPacketResend(device, 0x1122334455667788ul, 0x10, 0x20, true));
    EXPECT_EQ(GC_ERR_SUCCESS,
              m_hal->SendActionCommand(device, 0xA1A2A3A4, 0xB1B2B3B4, 0xC1C2C3C4, 0));
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal->SendActionCommand(device, 0xA1A2A3A4, 0xB1B2B3B4, 0xC1C2C3C4,
                                                       0x0102030405060708ul));

    const std::vector<Captured> packets = sniffer.WaitFor(4, 3000);
    ASSERT_EQ(4u, packets.size());
    EXPECT_EQ(Bytes({0x42, 0x00, 0x00, 0x40, 0x00, 0x0C, 0x12, 0x34, 0x00, 0x00,
                     0x77, 0x88, 0,    0,    0,    5,    0,    0,    0,    9}),
              packets[0].payload);
    EXPECT_EQ(
        Bytes({0x42, 0x10, 0x00, 0x40, 0x00, 0x14, 0x12, 0x35, 0,    0,    0,    0,    0,    0,
               0,    0x10, 0,    0,    0,    0x20, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}),
        packets[1].payload);
    EXPECT_EQ(Bytes({0x42, 0x01, 0x01, 0x00, 0x00, 0x00, 0x12, 0x36, 0xA1, 0xA2,
                     0xA3, 0xA4, 0xB1, 0xB2, 0xB3, 0xB4, 0xC1, 0xC2, 0xC3, 0xC4}),
              packets[2].payload);
    EXPECT_EQ(
        Bytes({0x42, 0x81, 0x01, 0x00, 0x00, 0x00, 0x12, 0x37, 0xA1, 0xA2, 0xA3, 0xA4, 0xB1, 0xB2,
               0xB3, 0xB4, 0xC1, 0xC2, 0xC3, 0xC4, 1,    2,    3,    4,    5,    6,    7,    8}),
        packets[3].payload);
    for (const Captured& packet : packets) {
        EXPECT_EQ(ParseIp(Env("KESTA_NETNS_HOST_IP")), packet.sourceIp);
    }
}

TEST_F(Cameras, TwoAddressesOnOneAdapterAreTwoAdapters) {
    const std::string link = Env("KESTA_NETNS_HOST_IF");
    ASSERT_EQ(0, std::system(("ip addr add 192.168.213.3/24 dev " + link).c_str()));
    ASSERT_EQ(0, std::system(("ip addr add 192.168.213.4/24 dev " + link).c_str()));
    std::vector<std::string> ids;
    ASSERT_EQ(GC_ERR_SUCCESS, m_hal->GetInterfaces(ids));
    std::string first;
    m_hal->GetInterfaceId(m_adapter, first);
    EXPECT_EQ(m_app->AdapterId(), first);
    const std::string base = first.substr(0, 12);
    std::vector<std::string> ours;
    for (const std::string& id : ids) {
        if (id.compare(0, 12, base) == 0) {
            ours.push_back(id);
        }
    }
    EXPECT_EQ((std::vector<std::string>{base, base + ":1", base + ":2"}), ours);

    // The second address discovers the same cameras on its own socket.
    {
        HalApplication second(ParseIp("192.168.213.3"));
        EXPECT_EQ(base + ":1", second.AdapterId());
        EXPECT_GE(second.Discover(kDiscoveryMs).size(), EnvList("KESTA_CAMERA_SERIALS").size());
    }
    std::system(("ip addr del 192.168.213.3/24 dev " + link).c_str());
    std::system(("ip addr del 192.168.213.4/24 dev " + link).c_str());
}

// --- Time-outs and retries as the wire sees them --------------------------------------

using SlowCamera = HalBed;

/// Camera 3 sends every ack 300 ms late.
TEST_F(SlowCamera, PendingAcksAvoidResendsOnceEnabled) {
    Discover();
    void* device = OpenCamera(Serial(3), true);
    ASSERT_NE(nullptr, device);
    // Without pending acks the 200 ms timeout resends once, and the ack of
    // the first send answers (same request id); the late second ack is
    // waited past by the next transaction.
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal->WriteReg(device, sk_addrGvcpConfig, 0x2));

    Sniffer sniffer(EnvList("KESTA_CAMERA_NETNS").at(3), 3956);
    unsigned value = 0;
    const auto start = Clock::now();
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal->ReadReg(device, sk_addrGvcpConfig, value));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(290)) << "the ack came late";
    EXPECT_EQ(0x2u, value & 0x2);
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal->ReadReg(device, sk_addrVersion, value));
    EXPECT_EQ(0x00020000u, value);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(2u, sniffer.Packets().size()) << "one send per transaction";
    int former = 0;
    AsDevice(device)->socket->SetTimeout(200, former);
    EXPECT_EQ(200, former) << "the pending wait is put back";
}

using FaultyAcks = HalBed;

/// Camera 4 sends every second ack with the next id: waited past, the
/// resend answers. Camera 5 sends every second with the status 0x8006,
/// which comes back mapped.
TEST_F(FaultyAcks, WrongIdsAreWaitedPastAndStatusesComeBackMapped) {
    Discover();
    for (const std::size_t camera : {4u, 5u}) {
        SCOPED_TRACE(camera);
        void* device = OpenCamera(Serial(camera), false);
        ASSERT_NE(nullptr, device);
        Sniffer sniffer(EnvList("KESTA_CAMERA_NETNS").at(camera), 3956);
        int good = 0;
        int denied = 0;
        for (int i = 0; i < 4; ++i) {
            unsigned value = 0;
            const int rc = m_hal->ReadReg(device, sk_addrVersion, value);
            good += rc == GC_ERR_SUCCESS && value == 0x00020000u ? 1 : 0;
            denied += rc == GC_ERR_ACCESS_DENIED ? 1 : 0;
        }
        EXPECT_EQ(camera == 4 ? 4 : 2, good);
        EXPECT_EQ(camera == 4 ? 0 : 2, denied);
        // Each wrong id costs a resend. The sniffer's thread may lag behind.
        const std::size_t sends = camera == 4 ? 5u : 4u;
        EXPECT_GE(sniffer.WaitFor(sends, 2000).size(), sends);
    }
}

// --- A hostile camera --------------------------------------------------------------

/// Camera 7 aims each hostile ack rule at an address of its own, so that
/// the rest of it answers as it should.
using Hostile = HalBed;

TEST_F(Hostile, TransactionsEndAndTakeOnlyTheCamerasOwnCompleteAcks) {
    Discover();
    void* device = OpenCamera(Serial(7), false);
    ASSERT_NE(nullptr, device);
    const std::pair<const char*, unsigned> cases[] = {
        {"a pending ack promising 0 ms, and no ack", 0x064C},
        {"pending acks without end", 0x065C},
        {"acks of an older id, faster than the timeout, without end", 0x066C},
    };
    for (const auto& [what, address] : cases) {
        SCOPED_TRACE(what);
        unsigned value = 0x5555;
        EXPECT_EQ(GC_ERR_TIMEOUT, EndsWithin(std::chrono::seconds(40), [&, address = address] {
                      return m_hal->ReadReg(device, address, value);
                  }));
        EXPECT_EQ(0x5555u, value);
        // The camera answers the next command as it should.
        EXPECT_EQ(GC_ERR_SUCCESS, m_hal->ReadReg(device, sk_addrVersion + 8, value));
    }

    // Forged first: from another address, and from the camera's address but
    // another port.
    unsigned value = 0;
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal->ReadReg(device, sk_addrVersion, value));
    EXPECT_EQ(0x00020000u, value);
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal->ReadReg(device, sk_addrVersion + 4, value));
    EXPECT_EQ(0x80000001u, value);

    // Cut under their headers: no value, two of four words, 8 of 16 bytes.
    value = 0x5555;
    EXPECT_EQ(GC_ERR_INVALID_BUFFER, m_hal->ReadReg(device, sk_addrTickHigh + 4, value));
    EXPECT_EQ(0x5555u, value);
    unsigned block[2] = {0x5555, 0x5555};
    EXPECT_EQ(GC_ERR_INVALID_BUFFER, m_hal->ReadRegBlock(device, sk_addrTickHigh, block, 2));
    EXPECT_EQ(0x5555u, block[1]);
    Bytes data(16, 0x55);
    EXPECT_EQ(GC_ERR_INVALID_BUFFER,
              m_hal->ReadMem(device, sk_addrXmlFile, reinterpret_cast<char*>(data.data()), 16));
    EXPECT_EQ(Bytes(16, 0x55), data);
}

// --- Answers no camera would send ---------------------------------------------------

using ScriptedAnswers = HalBed;

Bytes DiscoveryAck(std::uint16_t id, std::uint8_t fill, std::size_t size) {
    Bytes ack(size, fill);
    if (size >= 8) {
        gvcp::PutU16(ack.data(), ack.size(), 0, 0);
        gvcp::PutU16(ack.data(), ack.size(), 2, gvcp::kDiscoveryAck);
        gvcp::PutU16(ack.data(), ack.size(), 4, 248);
        gvcp::PutU16(ack.data(), ack.size(), 6, id);
    }
    return ack;
}

/// The second host plays a hostile device beside the cameras.
TEST_F(ScriptedAnswers, UnterminatedShortAndFloodingDiscoveryAnswersAreBounded) {
    const std::string peerNs = Env("KESTA_NETNS_HOST2");
    ASSERT_FALSE(peerNs.empty());
    NetnsPeer peer(peerNs, [](const Bytes& request) -> std::vector<Bytes> {
        const std::uint16_t id = gvcp::GetU16(request.data(), request.size(), 6);
        if (gvcp::GetU16(request.data(), request.size(), 2) != gvcp::kDiscoveryCmd) {
            return {Bytes{0x01}};
        }
        std::vector<Bytes> replies;
        // Every byte 'A': no zero anywhere, strings run to the end.
        replies.push_back(DiscoveryAck(id, 'A', 256));
        // Empty, a header alone, short, long, one byte: no payload, no device.
        replies.push_back(Bytes{});
        replies.push_back(DiscoveryAck(id, 'H', 8));
        replies.push_back(DiscoveryAck(id, 'B', 12));
        replies.push_back(DiscoveryAck(id, 'C', 1400));
        replies.push_back(Bytes{0x00});
        for (int i = 0; i < 100; ++i) {
            replies.push_back(DiscoveryAck(static_cast<std::uint16_t>(id + i), 'D', 256));
        }
        return replies;
    });
    ASSERT_TRUE(peer.Ok());
    const std::size_t cameras = EnvList("KESTA_CAMERA_SERIALS").size();
    const std::vector<DiscoveredDevice> devices = Discover();
    ASSERT_EQ(cameras + 103u, devices.size());
    EXPECT_EQ(1, std::count_if(devices.begin(), devices.end(),
                               [](const DiscoveredDevice& d) {
                                   return std::get<0>(d) == std::string(32, 'A');
                               }))
        << "the serial runs into the user name and stops at the end of the answer; nothing is "
           "read beyond what arrived";
    std::string text;
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal->GetUserDefinedName(m_adapter, std::string(32, 'A'), text));
    EXPECT_EQ(std::string(16, 'A'), text) << "bounded by the payload";
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal->GetVendorName(m_adapter, std::string(32, 'A'), text));
    EXPECT_EQ(std::string(248 - 0x48, 'A'), text);

    // The peer also holds the unicast role: its answers are taken as they come.
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal->AddUnicastDiscoveryDevice(
                                  m_adapter, htonl(ParseIp(Env("KESTA_NETNS_HOST2_IP")))));
    EXPECT_EQ(cameras + 104u, Discover().size()) << "one answer taken per unicast address";
}

TEST_F(ScriptedAnswers, ForceIpJudgesTheAck) {
    const std::string peerNs = Env("KESTA_NETNS_HOST2");
    NetnsPeer peer(peerNs, [](const Bytes& request) -> std::vector<Bytes> {
        const std::uint16_t id = gvcp::GetU16(request.data(), request.size(), 6);
        Bytes pending(12, 0);
        gvcp::PutU16(pending.data(), 12, 2, gvcp::kPendingAck);
        gvcp::PutU16(pending.data(), 12, 6, id);
        gvcp::PutU16(pending.data(), 12, 10, 100);
        Bytes wrong(8, 0);
        gvcp::PutU16(wrong.data(), 8, 0, 0x8006);
        gvcp::PutU16(wrong.data(), 8, 2, gvcp::kForceIpAck);
        gvcp::PutU16(wrong.data(), 8, 6, id);
        return {pending, wrong};
    });
    ASSERT_TRUE(peer.Ok());
    // The pending ack is waited past; an ack that carries a refusal is invalid.
    EXPECT_EQ(GC_ERR_INVALID_VALUE, m_hal->ForceIP(m_adapter, 0x0200, 1, ParseIp("192.168.213.9"),
                                                   ParseIp("255.255.255.0"), 0));
}

} // namespace
} // namespace GenTL
