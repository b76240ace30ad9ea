// Camera events as a consumer receives them: GCRegisterEvent(EVENT_REMOTE_DEVICE)
// on a device and EventGetData, beside a simulated camera that fires events
// on a register write. Captures on both ends of the link tell what went over
// the wire: the event packets as the host received them, and the GVCP
// commands and the firewall datagram as the camera received them.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "CameraTestBed.h"

namespace {

using namespace std::chrono_literals;
using kesta_device::Commands;
using kesta_device::EnvList;
using kesta_netns::Bytes;

constexpr std::uint32_t kCcp = 0x0A00, kMcp = 0x0B00, kMcda = 0x0B10, kMcsp = 0x0B1C;
// The simulated camera's own event features.
constexpr std::uint32_t kEventFire = 0x10044, kEventDataSize = 0x1004C;
constexpr std::uint16_t kCameraEventId = 0x9001;

class Events : public kesta_device::CameraTest {
protected:
    void Register() {
        ASSERT_EQ(Lib().IFOpenDevice(m_iface, m_serial.c_str(), DEVICE_ACCESS_CONTROL, &m_device),
                  GC_ERR_SUCCESS);
        ASSERT_EQ(Lib().GCRegisterEvent(m_device, EVENT_REMOTE_DEVICE, &m_event), GC_ERR_SUCCESS)
            << Lib().TakeLastError().text;
    }
    /// A camera register through the remote port; EventFire N sends N events.
    void SetCamera(std::uint32_t address, std::uint32_t value) {
        ASSERT_EQ(WriteCamera(address, value), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
    }
    /// The next event packet, or empty with rc set.
    Bytes Next(GC_ERROR& rc, std::uint64_t timeoutMs = 3000) {
        Bytes packet(576);
        size_t size = packet.size();
        rc = Lib().EventGetData(m_event, packet.data(), &size, timeoutMs);
        packet.resize(rc == GC_ERR_SUCCESS ? size : 0);
        return packet;
    }
    std::uint64_t Info(EVENT_INFO_CMD cmd) {
        INFO_DATATYPE type = 0;
        std::uint64_t value = 0;
        size_t size = sizeof value;
        EXPECT_EQ(Lib().EventGetInfo(m_event, cmd, &type, &value, &size), GC_ERR_SUCCESS) << cmd;
        return value;
    }
    /// EVENT_NUM_IN_QUEUE once it has stopped growing.
    std::uint64_t SettledQueue() {
        std::uint64_t last = 0;
        for (int i = 0; i < 50; ++i) {
            std::this_thread::sleep_for(100ms);
            const std::uint64_t now = Info(EVENT_NUM_IN_QUEUE);
            if (now > 0 && now == last) {
                break;
            }
            last = now;
        }
        return last;
    }
    /// The camera's register as another application on the host reads it.
    std::uint32_t SeenByCamera(std::uint32_t address) {
        return kesta_device::HostClient().Reg(address);
    }
    /// A consumer thread waiting without limit; its result lands in waited.
    std::thread Consumer(std::atomic<GC_ERROR>& waited) {
        return std::thread([this, &waited] {
            GC_ERROR rc = GC_ERR_SUCCESS;
            Next(rc, GENTL_INFINITE);
            waited = rc;
        });
    }

    const std::uint32_t m_hostIp = kesta_netns::ParseIp(kesta_device::Env("KESTA_NETNS_HOST_IP"));
    EVENT_HANDLE m_event = nullptr;
};

TEST_F(Events, ABurstLargerThanTheQueueArrivesByteForByteAndInOrder) {
    Register();
    kesta_netns::Sniffer capture(kesta_device::Env("KESTA_NETNS_HOST"),
                                 static_cast<std::uint16_t>(ReadCamera(kMcp)));
    ASSERT_TRUE(capture.Ok());
    SetCamera(kEventDataSize, 40);
    constexpr std::size_t kBurst = 100;
    SetCamera(kEventFire, kBurst);
    // The producer holds part of the burst, the socket the rest.
    const std::uint64_t queued = SettledQueue();
    EXPECT_GT(queued, 0u);
    EXPECT_LT(queued, kBurst);

    const auto sent = capture.WaitFor(kBurst, 3000);
    ASSERT_EQ(sent.size(), kBurst);
    std::vector<std::uint16_t> commands;
    for (std::size_t i = 0; i < kBurst; ++i) {
        GC_ERROR rc = GC_ERR_ERROR;
        const Bytes packet = Next(rc);
        ASSERT_EQ(rc, GC_ERR_SUCCESS) << i << Lib().TakeLastError().text;
        ASSERT_EQ(packet, sent[i].payload) << "event " << i;
        commands.push_back(kesta_netns::Be16(&packet[2]));
    }
    // EVENT_CMD, and EVENTDATA_CMD with its 40 bytes.
    EXPECT_EQ(std::count(commands.begin(), commands.end(), 0x00C2), 50);
    EXPECT_EQ(Info(EVENT_SIZE_MAX), 576u);
    EXPECT_EQ(Info(EVENT_NUM_FIRED), kBurst);
    EXPECT_EQ(Info(EVENT_NUM_IN_QUEUE), 0u);
}

TEST_F(Events, OnlyTheCamerasEventPacketsAreDelivered) {
    Register();
    const auto mcp = static_cast<std::uint16_t>(ReadCamera(kMcp));
    const kesta_netns::UdpSocket fromCamera(kesta_netns::ParseIp(EnvList("KESTA_CAMERA_IPS").at(0)),
                                            EnvList("KESTA_CAMERA_NETNS").at(0));
    const kesta_netns::UdpSocket fromElsewhere(m_hostIp);
    const auto event = [](std::uint16_t command, std::size_t size) {
        Bytes d(size, 0);
        kesta_netns::PutBe32(d, 0, 0x42000000u | command);
        kesta_netns::PutBe32(d, 4, static_cast<std::uint32_t>(size - 8) << 16);
        kesta_netns::PutBe32(d, 8, 0x0BAD); // event id
        return d;
    };
    const struct {
        const char* what;
        const kesta_netns::UdpSocket& from;
        Bytes datagram;
    } rows[] = {
        {"another command", fromCamera, event(0x00C1, 24)},
        {"too short for a command", fromCamera, Bytes{0x42, 0x00, 0x00}},
        {"longer than any event packet", fromCamera, event(0x00C2, 600)},
        {"an event from another address", fromElsewhere, event(0x00C0, 24)},
    };
    for (const auto& row : rows) {
        ASSERT_TRUE(row.from.Send(m_hostIp, mcp, row.datagram)) << row.what;
        SetCamera(kEventFire, 1); // behind the stray datagram on the link
        GC_ERROR rc = GC_ERR_ERROR;
        const Bytes packet = Next(rc);
        ASSERT_GE(packet.size(), 12u) << row.what << Lib().TakeLastError().text;
        EXPECT_EQ(kesta_netns::Be16(&packet[10]), kCameraEventId) << row.what;
        Next(rc, 200);
        EXPECT_EQ(rc, GC_ERR_TIMEOUT) << row.what;
    }
    Lib().TakeLastError();
}

// Camera 1 sends every second event packet 600 bytes long: no consumer gets
// those, the others come through.
TEST_F(Events, OversizedPacketsOfTheCameraAreDropped) {
    UseCamera(1);
    Register();
    SetCamera(kEventFire, 4);
    GC_ERROR rc = GC_ERR_ERROR;
    for (int i = 0; i < 2; ++i) {
        EXPECT_LE(Next(rc).size(), 576u);
        EXPECT_EQ(rc, GC_ERR_SUCCESS) << i;
    }
    Next(rc, 300);
    EXPECT_EQ(rc, GC_ERR_TIMEOUT);
}

TEST_F(Events, TheCameraSeesWhereToSendAndAStopBeforeTheRelease) {
    const std::string cameraNetns = EnvList("KESTA_CAMERA_NETNS").at(0);
    kesta_netns::Sniffer gvcp(cameraNetns, 3956);
    Register();
    kesta_netns::Sniffer firewall(cameraNetns, static_cast<std::uint16_t>(ReadCamera(kMcsp)));
    ASSERT_TRUE(gvcp.Ok() && firewall.Ok());
    // Opened after the registration: the firewall datagram went before it.
    ASSERT_EQ(Lib().GCUnregisterEvent(m_device, EVENT_REMOTE_DEVICE), GC_ERR_SUCCESS);
    EXPECT_EQ(SeenByCamera(kMcp), 0u);
    ASSERT_EQ(Lib().GCRegisterEvent(m_device, EVENT_REMOTE_DEVICE, &m_event), GC_ERR_SUCCESS);
    const std::uint32_t port = SeenByCamera(kMcp);
    EXPECT_EQ(SeenByCamera(kMcda), m_hostIp);
    const auto opened = firewall.WaitFor(1, 1000);
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_EQ(opened[0].sourceIp, m_hostIp);
    EXPECT_EQ(opened[0].sourcePort, port);
    EXPECT_EQ(opened[0].payload, Bytes(4, 0));

    // Closing the device ends the consumer's wait and stops the camera's
    // channel before control goes.
    std::atomic<GC_ERROR> waited{GC_ERR_SUCCESS};
    std::thread consumer = Consumer(waited);
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(Lib().DevClose(m_device), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
    m_device = nullptr;
    consumer.join();
    EXPECT_EQ(waited.load(), GC_ERR_ABORT);
    std::this_thread::sleep_for(200ms);                    // the capture may lag a moment
    using Write = std::pair<std::uint32_t, std::uint32_t>; // address, value (not CCP's)
    std::vector<Write> writes;
    for (const auto& c : Commands(gvcp.Packets(), kesta_device::kWriteReg)) {
        if (c.address == kMcp || c.address == kMcda || c.address == kCcp) {
            writes.emplace_back(c.address, c.address == kCcp ? 0 : c.word);
        }
    }
    ASSERT_EQ(writes.size(), 8u);
    // Claim; first registration and its end; second one; close; release.
    // clang-format off
    const std::vector<Write> expected = {
        {kCcp, 0}, {kMcda, m_hostIp}, {kMcp, writes[2].second}, {kMcp, 0},
        {kMcda, m_hostIp}, {kMcp, port}, {kMcp, 0}, {kCcp, 0}};
    // clang-format on
    EXPECT_EQ(writes, expected);

    // A read-only application may not aim the camera's channel.
    ASSERT_EQ(Lib().IFOpenDevice(m_iface, m_serial.c_str(), DEVICE_ACCESS_READONLY, &m_device),
              GC_ERR_SUCCESS);
    EXPECT_EQ(Lib().GCRegisterEvent(m_device, EVENT_REMOTE_DEVICE, &m_event),
              GC_ERR_RESOURCE_IN_USE);
    Lib().TakeLastError();
}

} // namespace
