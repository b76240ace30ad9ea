// The remote port's two endianness mechanisms against a simulated camera.
// The mechanism is set through the device module's SetInfo, which no
// exported function reaches yet, so this program drives the library's own
// classes (HALGev, DeviceGev) in-process; the wire is real. It runs on two
// cameras of the control layer's test bed: 0 with WRITEMEM, 6 without.
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "CameraTestBed.h"
#include "GenTL_KESTA.h"
#include "HalApplication.h"
#include "api/GenTLHandle.h"
#include "hal/HALGev.h"
#include "modules/DeviceGev.h"
#include "modules/IBaseModule.h"

namespace {

using namespace std::chrono_literals;
using kesta_device::Command;
using kesta_device::Commands;
using kesta_device::EnvList;

constexpr unsigned kCcp = 0x0A00;
constexpr unsigned kWidth = 0x10000;

class Legacy : public ::testing::TestWithParam<std::size_t> {
protected:
    void SetUp() override {
        const std::string why = kesta_device::NotInTestBed();
        if (!why.empty()) {
            GTEST_SKIP() << why;
        }
        m_sniffer = std::make_unique<kesta_netns::Sniffer>(
            EnvList("KESTA_CAMERA_NETNS").at(GetParam()), 3956);
        ASSERT_TRUE(m_sniffer->Ok());
        const std::string serial = EnvList("KESTA_CAMERA_SERIALS").at(GetParam());
        m_app.reset(new kesta_netns::HalApplication(
            kesta_netns::ParseIp(kesta_device::Env("KESTA_NETNS_HOST_IP"))));
        m_app->Discover(500);
        void* hDevice = nullptr;
        // The module closes the device it is given.
        GenTL::HALGev* hal = m_app->Hal();
        ASSERT_EQ(hal->OpenDevice(m_app->Adapter(), serial, &hDevice), GC_ERR_SUCCESS);
        unsigned capabilities = 0;
        ASSERT_EQ(hal->ReadReg(hDevice, 0x0934, capabilities), GC_ERR_SUCCESS);
        m_writeMem = (capabilities & 0x2) != 0;
        m_device = std::make_unique<GenTL::DeviceGev>(hal, serial, nullptr, hDevice);
        // The streams want a parent; no handle of an interface exists here.
        ASSERT_EQ(m_device->Open(DEVICE_ACCESS_CONTROL, hal), GC_ERR_SUCCESS);
        long legacy = 0;
        ASSERT_EQ(m_device->SetInfo(GenTL::DeviceGev::kInfoEndiannessMechanism, INFO_DATATYPE_INT64,
                                    &legacy, sizeof legacy),
                  GC_ERR_SUCCESS);
        void* hPort = nullptr;
        ASSERT_EQ(m_device->GetPort(&hPort), GC_ERR_SUCCESS);
        m_port = GenTL::CastHandle(hPort);
    }
    void TearDown() override {
        if (m_device) {
            m_device->Close();
            m_device.reset();
        }
        m_app.reset();
    }
    /// The commands the camera received since the last call.
    std::vector<Command> Received() {
        std::this_thread::sleep_for(100ms);
        const auto packets = m_sniffer->Packets();
        std::vector<Command> all = Commands({packets.begin() + m_seen, packets.end()});
        m_seen = packets.size();
        std::vector<Command> out;
        for (const Command& c : all) {
            if (c.address != 0x0938) { // the heartbeat talks beside the test
                out.push_back(c);
            }
        }
        return out;
    }

    std::unique_ptr<kesta_netns::HalApplication> m_app;
    std::unique_ptr<GenTL::DeviceGev> m_device;
    GenTL::IBaseModule* m_port = nullptr;
    std::unique_ptr<kesta_netns::Sniffer> m_sniffer;
    std::size_t m_seen = 0;
    bool m_writeMem = false;
};

TEST_P(Legacy, AccessesGoOutInTheWireOrderOfABigEndianCamera) {
    Received();
    unsigned char bytes[4] = {};
    unsigned long size = 4;
    ASSERT_EQ(m_port->ReadPort(kCcp, bytes, &size), GC_ERR_SUCCESS);
    // The camera's device mode says big-endian: the value is swapped back
    // into the order it had on the wire.
    EXPECT_EQ(kesta_netns::Be32(bytes), 6u);
    const unsigned char width[4] = {0, 0, 0x01, 0x80}; // 384
    ASSERT_EQ(m_port->WritePort(kWidth, width, &size), GC_ERR_SUCCESS);
    std::vector<Command> commands = Received();
    ASSERT_EQ(commands.size(), 2u);
    EXPECT_EQ(commands[0].code, kesta_device::kReadReg);
    EXPECT_EQ(commands[1].code, kesta_device::kWriteReg);
    EXPECT_EQ(commands[1].word, 384u);

    // Longer accesses take memory, or register blocks without WRITEMEM.
    std::vector<char> data(1200);
    size = data.size();
    ASSERT_EQ(m_port->ReadPort(0x00100000, data.data(), &size), GC_ERR_SUCCESS);
    commands = Received();
    ASSERT_EQ(commands.size(), 3u);
    for (const Command& c : commands) {
        EXPECT_EQ(c.code, kesta_device::kReadMem);
    }
    EXPECT_EQ(commands[2].word & 0xFFFFu, 128u);

    const unsigned char geometry[8] = {0, 0, 1, 0x40, 0, 0, 0, 0xF0};
    size = sizeof geometry;
    ASSERT_EQ(m_port->WritePort(kWidth, geometry, &size), GC_ERR_SUCCESS);
    commands = Received();
    ASSERT_EQ(commands.size(), 1u);
    // With WRITEMEM the camera gets memory; without it, one WRITEREG of two pairs.
    if (m_writeMem) {
        EXPECT_EQ(commands[0].code, kesta_device::kWriteMem);
    } else {
        EXPECT_EQ(commands[0].code, kesta_device::kWriteReg);
        EXPECT_EQ(commands[0].payload, 16u);
    }
    unsigned char back[8] = {};
    size = sizeof back;
    long standard = 1;
    ASSERT_EQ(m_device->SetInfo(GenTL::DeviceGev::kInfoEndiannessMechanism, INFO_DATATYPE_INT64,
                                &standard, sizeof standard),
              GC_ERR_SUCCESS);
    ASSERT_EQ(m_port->ReadPort(kWidth, back, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(kesta_netns::Be32(back), 320u);
    EXPECT_EQ(kesta_netns::Be32(back + 4), 240u);
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutWriteMem, Legacy, ::testing::Values(0, 6));

} // namespace
