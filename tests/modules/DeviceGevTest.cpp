// DeviceGev over a camera in memory: what Open writes for each flag and
// capability (the switchover key included), how a failing step is undone,
// the access status it sets, and the events it serves. (Claiming and
// releasing a camera, rivals, unknown flags, a switchover by a rival and a
// silent camera are tested in tests/netns.)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "CachedError.h"
#include "FakeHALGev.h"
#include "GenTL_KESTA.h"
#include "modules/DeviceGev.h"
#include "registers/ModuleXml.h"

namespace {

using GenTL::DeviceGev;
using kesta::test::CachedError;
using kesta::test::FakeHALGev;

constexpr unsigned kCcp = 0x0A00;
constexpr unsigned kHeartbeat = 0x0938;
constexpr unsigned kCapability = 0x0934;
constexpr unsigned kGvcpConfig = 0x0954;
constexpr unsigned kPendingTimeout = 0x0958;
constexpr unsigned kCapPendingAck = 1u << 5;

class DeviceGevTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_hal.SetReg(kHeartbeat, 3000);
        m_hal.SetReg(kCapability, kCapPendingAck | (1u << 1));
        m_hal.SetReg(kPendingTimeout, 750);
        m_hal.SetReg(0x093C, 0);
        m_hal.SetReg(0x0940, 1000000000);
        m_hal.cameras["FAKE0001"] = {"FakeModel", "FakeVendor", "FAKE0001"};
        m_hDevice = &m_hal.cameras["FAKE0001"];
        m_device = std::make_unique<DeviceGev>(&m_hal, "FAKE0001", nullptr, m_hDevice);
        CachedError::Clear();
    }
    void TearDown() override {
        if (m_opened) {
            m_device->Close();
        }
    }
    int Open(int flags) {
        const int rc = m_device->Open(flags, m_hIface);
        m_opened = rc == GC_ERR_SUCCESS;
        return rc;
    }
    long Number(int cmd) {
        int type = 0;
        long value = 0;
        unsigned long size = sizeof value;
        EXPECT_EQ(m_device->GetInfo(cmd, &type, &value, &size), GC_ERR_SUCCESS) << cmd;
        return size == 4 ? static_cast<int>(value) : value;
    }

    bool Flag(int cmd) {
        int type = 0;
        bool value = false;
        unsigned long size = 1;
        EXPECT_EQ(m_device->GetInfo(cmd, &type, &value, &size), GC_ERR_SUCCESS) << cmd;
        return value;
    }

    FakeHALGev m_hal;
    void* m_hDevice = nullptr;
    void* m_hIface = reinterpret_cast<void*>(0x2);
    std::unique_ptr<DeviceGev> m_device;
    bool m_opened = false;
};

// The other facts are read by the device tests of tests/netns.
TEST_F(DeviceGevTest, IpConfigurationFlagsComeEachFromItsOwnField) {
    FakeHALGev::Camera& camera = m_hal.cameras["FAKE0001"];
    camera.dhcp = camera.lla = true, camera.persistentIp = false;
    EXPECT_TRUE(Flag(DEVICE_INFO_GEV_CONFIG_DHCP));
    EXPECT_FALSE(Flag(DEVICE_INFO_GEV_CONFIG_PERSISTENT_IP));
    EXPECT_TRUE(Flag(DEVICE_INFO_GEV_CONFIG_LLA));
}

TEST_F(DeviceGevTest, OpenFollowsTheFlagAndTheCamerasCapabilities) {
    // Exclusive sets both low bits; no pending acks without the capability;
    // an unreadable pending timeout means 200 ms.
    m_hal.SetReg(kCapability, 0);
    m_hal.Fail(kPendingTimeout);
    ASSERT_EQ(Open(DEVICE_ACCESS_EXCLUSIVE), GC_ERR_SUCCESS);
    ASSERT_EQ(m_hal.WritesTo(kCcp).size(), 1u);
    EXPECT_EQ(m_hal.WritesTo(kCcp)[0].value & 0xFFu, 3u);
    EXPECT_TRUE(m_hal.WritesTo(kGvcpConfig).empty());
    EXPECT_EQ(m_hal.deviceTimeoutMs, 200);
}

TEST_F(DeviceGevTest, SwitchoverKeyGoesIntoTheHighHalfOfTheClaim) {
    unsigned short key = 0xBEEF;
    ASSERT_EQ(m_device->SetCcpSwitchoverKey(&key), GC_ERR_SUCCESS);
    ASSERT_EQ(Open(DEVICE_ACCESS_CONTROL), GC_ERR_SUCCESS);
    EXPECT_EQ(m_hal.WritesTo(kCcp)[0].value, 0xBEEF0006u);
    unsigned short kept = 0;
    ASSERT_EQ(m_device->GetCcpSwitchoverKey(&kept), GC_ERR_SUCCESS);
    EXPECT_EQ(kept, 0xBEEF);
}

TEST_F(DeviceGevTest, AFailingStepOfOpenUndoesEverything) {
    m_hal.Fail(kCcp, GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(Open(DEVICE_ACCESS_CONTROL), GC_ERR_ACCESS_DENIED);
    unsigned count = 9;
    ASSERT_EQ(m_device->GetNumDataStreams(&count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 0u);
    EXPECT_TRUE(m_hal.WritesTo(kHeartbeat).empty());
    EXPECT_EQ(m_hal.closeDeviceCalls, 0); // the handle stays the caller's

    // A step after the heartbeat started stops it again.
    FakeHALGev hal;
    hal.SetReg(kHeartbeat, 200);
    hal.Fail(kCapability);
    DeviceGev device(&hal, "FAKE0001", nullptr, m_hDevice);
    EXPECT_EQ(device.Open(DEVICE_ACCESS_CONTROL, m_hIface), GC_ERR_TIMEOUT);
    const std::size_t beats = hal.WritesTo(kHeartbeat).size();
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    EXPECT_EQ(hal.WritesTo(kHeartbeat).size(), beats);
}

TEST_F(DeviceGevTest, SetInfoWritesThePrivilegeAndTheMechanism) {
    ASSERT_EQ(Open(DEVICE_ACCESS_READONLY), GC_ERR_SUCCESS);
    long value = DEVICE_ACCESS_STATUS_READWRITE;
    ASSERT_EQ(m_device->SetInfo(DEVICE_INFO_ACCESS_STATUS, INFO_DATATYPE_INT64, &value, 8),
              GC_ERR_SUCCESS);
    EXPECT_EQ(m_hal.WritesTo(kCcp).back().value, 2u);
    value = DEVICE_ACCESS_STATUS_READONLY;
    ASSERT_EQ(m_device->SetInfo(DEVICE_INFO_ACCESS_STATUS, INFO_DATATYPE_INT64, &value, 8),
              GC_ERR_SUCCESS);
    EXPECT_EQ(m_hal.WritesTo(kCcp).back().value, 0u);
    const std::size_t writes = m_hal.WritesTo(kCcp).size();
    value = 9;
    ASSERT_EQ(m_device->SetInfo(DEVICE_INFO_ACCESS_STATUS, INFO_DATATYPE_INT64, &value, 8),
              GC_ERR_SUCCESS);
    EXPECT_EQ(m_hal.WritesTo(kCcp).size(), writes);
    EXPECT_EQ(Number(DEVICE_INFO_ACCESS_STATUS), DEVICE_ACCESS_STATUS_UNKNOWN);

    EXPECT_EQ(m_device->SetInfo(DEVICE_INFO_VENDOR, INFO_DATATYPE_INT64, &value, 8),
              GC_ERR_NOT_IMPLEMENTED);
}

TEST_F(DeviceGevTest, OnlyTheRemoteDeviceEventIsServedAndItsChannelStartsClosed) {
    ASSERT_EQ(Open(DEVICE_ACCESS_READONLY), GC_ERR_SUCCESS);
    EXPECT_EQ(m_device->UnregisterEvent(EVENT_NEW_BUFFER), GC_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(m_device->UnregisterEvent(EVENT_REMOTE_DEVICE), GC_ERR_NOT_INITIALIZED);
}

} // namespace
