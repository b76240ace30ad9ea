#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CachedError.h"
#include "FakeHALGev.h"
#include "GenTL_KESTA.h"
#include "api/GenTLHandle.h"
#include "modules/IDevice.h"
#include "modules/InterfaceGev.h"
#include "modules/ProtectedDeviceRegistry.h"

namespace {

using GenTL::DiscoveredDevice;
using GenTL::g_openedDevicesRegistry;
using kesta::test::CachedError;
using kesta::test::FakeHALGev;

constexpr char kAdapterId[] = "0a1b2c3d4e5f";

class InterfaceGevTest : public ::testing::Test {
protected:
    void SetUp() override {
        CachedError::Clear();
        hal.cameras["SN1"].serial = "SN1";
        hal.cameras["SN2"].serial = "SN2";
        hal.cameras["SN2"].model = "Kamera 2";
        hal.discovered = {DiscoveredDevice{"SN1", 0x0200000A}, DiscoveredDevice{"SN2", 0x0300000A}};
        void* adapter = nullptr;
        ASSERT_EQ(hal.OpenInterface(kAdapterId, &adapter), 0);
        iface = new GenTL::InterfaceGev(&hal, parent, adapter);
    }
    void TearDown() override {
        delete iface;
        g_openedDevicesRegistry.PopInterfaceEntry(kAdapterId);
        GenTL::ErrorCache::ReleaseErrorCache();
    }

    FakeHALGev hal;
    void* parent = reinterpret_cast<void*>(0x5157);
    GenTL::InterfaceGev* iface = nullptr;
};

TEST_F(InterfaceGevTest, DeviceListChangesBySetOfIdAndAddress) {
    unsigned int count = 7;
    ASSERT_EQ(iface->GetNumDevices(&count), 0);
    EXPECT_EQ(count, 0u); // empty until the first update

    bool changed = false;
    EXPECT_EQ(iface->UpdateDeviceList(&changed, 0), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(hal.getDevicesCalls, 0); // nothing sent

    ASSERT_EQ(iface->UpdateDeviceList(&changed, 250), 0);
    EXPECT_TRUE(changed);
    EXPECT_EQ(hal.lastTimeoutMs, 250);
    ASSERT_EQ(iface->GetNumDevices(&count), 0);
    EXPECT_EQ(count, 2u);

    hal.discovered = {DiscoveredDevice{"SN2", 0x0300000A}, DiscoveredDevice{"SN1", 0x0200000A}};
    ASSERT_EQ(iface->UpdateDeviceList(&changed, 100), 0);
    EXPECT_FALSE(changed); // another order of answers
    EXPECT_EQ(std::get<0>(iface->GetDeviceList()[0]), "SN2");

    hal.discovered[1] = DiscoveredDevice{"SN1", 0x0400000A};
    ASSERT_EQ(iface->UpdateDeviceList(&changed, 100), 0);
    EXPECT_TRUE(changed); // a new address is a change

    hal.getDevicesResult = GC_ERR_IO;
    hal.discovered.clear();
    changed = false;
    EXPECT_EQ(iface->UpdateDeviceList(&changed, 100), GC_ERR_IO);
    EXPECT_FALSE(changed);
    EXPECT_EQ(iface->GetDeviceList().size(), 2u); // the old list stands
    EXPECT_EQ(iface->GetNumDevices(nullptr), GC_ERR_INVALID_PARAMETER);
}

TEST_F(InterfaceGevTest, DeviceIdAndDisplayNameAfterAnUpdate) {
    ASSERT_EQ(iface->UpdateDeviceList(nullptr, 100), 0);
    char text[32] = {};
    unsigned long size = sizeof(text);
    ASSERT_EQ(iface->GetDeviceID(1, text, &size), 0);
    EXPECT_STREQ(text, "SN2");
    int type = 0;
    size = sizeof(text);
    ASSERT_EQ(iface->GetDeviceInfo("SN2", DEVICE_INFO_DISPLAYNAME, &type, text, &size), 0);
    EXPECT_STREQ(text, "Kamera 2 ( SN2 ) ");
}

TEST_F(InterfaceGevTest, OpenDeviceRefusalsLeaveNothingBehind) {
    void* hDevice = nullptr;
    ASSERT_EQ(iface->UpdateDeviceList(nullptr, 100), 0);
    EXPECT_EQ(iface->OpenDevice(nullptr, DEVICE_ACCESS_CONTROL, &hDevice, nullptr),
              GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(iface->OpenDevice("SN1", DEVICE_ACCESS_CONTROL, nullptr, nullptr),
              GC_ERR_INVALID_PARAMETER);

    // The registry's word counts, whoever opened the camera.
    ASSERT_EQ(g_openedDevicesRegistry.AddInterfaceEntry(kAdapterId, parent), 0);
    ASSERT_EQ(g_openedDevicesRegistry.AddDeviceEntry(kAdapterId, "SN1", parent), 0);
    EXPECT_EQ(iface->OpenDevice("SN1", DEVICE_ACCESS_CONTROL, &hDevice, nullptr),
              GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(hal.openDeviceCalls, 0);
    g_openedDevicesRegistry.PopDeviceEntry("SN1");

    hal.openDeviceResult = GC_ERR_IO;
    EXPECT_EQ(iface->OpenDevice("SN1", DEVICE_ACCESS_CONTROL, &hDevice, nullptr), GC_ERR_IO);
    EXPECT_EQ(CachedError::Take().count, 2u);
    EXPECT_EQ(hDevice, nullptr);
    EXPECT_TRUE(g_openedDevicesRegistry.AllDeviceIDs().empty());
}

TEST_F(InterfaceGevTest, ForceIpSplitsTheMacAndRefusesZeros) {
    EXPECT_EQ(iface->ForceIp(0, 1, 1, 1), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(iface->ForceIp(1, 0, 1, 1), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(iface->ForceIp(1, 1, 0, 1), GC_ERR_INVALID_PARAMETER);
    EXPECT_TRUE(hal.forceIpCalls.empty());

    ASSERT_EQ(iface->ForceIp(0xFFFF0A1B2C3D4E5FUL, 0xC0A80164, 0xFFFFFF00, 0), 0);
    ASSERT_EQ(hal.forceIpCalls.size(), 1u);
    EXPECT_EQ(hal.forceIpCalls[0].macHigh, 0x0A1B);
    EXPECT_EQ(hal.forceIpCalls[0].macLow, 0x2C3D4E5Fu);
    EXPECT_EQ(hal.forceIpCalls[0].ip, 0xC0A80164u);
    EXPECT_EQ(hal.forceIpCalls[0].gateway, 0u);
    hal.forceIpResult = GC_ERR_TIMEOUT;
    EXPECT_EQ(iface->ForceIp(1, 1, 1, 1), GC_ERR_TIMEOUT);
}

TEST_F(InterfaceGevTest, CloseEndsTheAdapterAndTheRegistryEntryEvenWhenTheAdapterFails) {
    ASSERT_EQ(g_openedDevicesRegistry.AddInterfaceEntry(kAdapterId, parent), 0);
    hal.closeInterfaceResult = GC_ERR_IO;
    EXPECT_EQ(iface->Close(), GC_ERR_IO);
    EXPECT_FALSE(hal.adapters[0]->open);
    EXPECT_FALSE(g_openedDevicesRegistry.IsInterfaceAlreadyOpen(kAdapterId));
}

} // namespace
