// The message channel's wire layer against a scripted camera: what Start
// and Stop write for each kind of application (the network tests see the
// unicast one on a real link), and the firewall datagram.
#include <arpa/inet.h>

#include <gtest/gtest.h>

#include "../stream/StreamTestSupport.h"
#include "events/HALGvmc.h"

namespace {

constexpr unsigned kMcp = 0x0B00, kMcda = 0x0B10, kCaps = 0x0930;
constexpr unsigned kGroup = 0xEF0B0B0B; // 239.11.11.11
constexpr unsigned kListenerPort = 50000;

TEST(HALGvmc, EachApplicationAimsTheCameraAsItMay) {
    const struct {
        const char* what;
        bool multicast;
        int access;
        unsigned caps;
        int result;
        std::vector<unsigned> mcda; ///< values written, each followed by MCP
        std::size_t firewall;       ///< datagrams to the camera's source port
    } rows[] = {
        {"unicast", false, DEVICE_ACCESS_CONTROL, 0x80000000u, 0, {INADDR_LOOPBACK}, 1},
        {"no source port", false, DEVICE_ACCESS_EXCLUSIVE, 0, 0, {INADDR_LOOPBACK}, 0},
        {"unicast read-only",
         false,
         DEVICE_ACCESS_READONLY,
         0x80000000u,
         GC_ERR_RESOURCE_IN_USE,
         {},
         0},
        {"multicast", true, DEVICE_ACCESS_CONTROL, 0x80000000u, 0, {kGroup}, 1},
        {"multicast listener", true, DEVICE_ACCESS_READONLY, 0x80000000u, 0, {}, 1},
    };
    for (const auto& row : rows) {
        StreamTest::FakeStreamLink link;
        kesta::test::FakeHALGev hal;
        hal.cameras["cam"].ip = INADDR_LOOPBACK;
        auto socket = std::make_shared<StreamTest::FakeStreamSocket>(link);
        GenTL::HALGvmc layer(socket);
        GenTL::DeviceHandle device; // the stand-in socket binds on loopback
        device.socket.reset(new GenTL::CommSocket());
        hal.SetReg(kCaps, row.caps);
        hal.SetReg(kMcp, kListenerPort); // a controlling application's port

        void* hDevice = GenTL::ToOpaque(&device);
        EXPECT_EQ(layer.Start(&hal, hDevice, row.multicast, row.access), row.result) << row.what;
        EXPECT_EQ(hal.Values(kMcda), row.mcda) << row.what;
        EXPECT_EQ(hal.WritesTo(kMcp).size(), row.mcda.size()) << row.what;
        EXPECT_EQ(socket->sent, row.firewall) << row.what;
        EXPECT_EQ(link.socketOpen, row.result == 0) << row.what;
        if (row.multicast) {
            EXPECT_EQ(socket->joinedGroup, kGroup) << row.what;
            EXPECT_EQ(socket->listenerPort, row.mcda.empty() ? kListenerPort : 0) << row.what;
        }
        hal.ClearCalls();
        EXPECT_EQ(layer.Stop(&hal, hDevice, row.access), 0) << row.what;
        const bool control = row.access != DEVICE_ACCESS_READONLY;
        EXPECT_EQ(hal.Values(kMcp), std::vector<unsigned>(control ? 1 : 0, 0)) << row.what;
        EXPECT_FALSE(link.socketOpen) << row.what;
    }
}

} // namespace
