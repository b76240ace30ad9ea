#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CachedError.h"
#include "FakeHALGev.h"
#include "GenTL_KESTA.h"
#include "api/GenTLHandle.h"
#include "modules/InterfaceGev.h"
#include "modules/ProtectedDeviceRegistry.h"
#include "modules/System.h"

namespace {

using GenTL::g_openedDevicesRegistry;
using kesta::test::CachedError;
using kesta::test::FakeHALGev;

// A System over the fake control layer, inside an initialized library (its
// Close calls the exported IFClose and DevClose).
class SystemTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(GCInitLib(), GC_ERR_SUCCESS);
        hal = new FakeHALGev();
        hal->log = &log;
        hal->interfaces = {"0a1b2c3d4e5f", "00aabbccddee", "00aabbccddee:1"};
        system = new GenTL::System(hal);
    }
    void TearDown() override {
        delete system;
        if (!log.destroyed) {
            delete hal;
        }
        GCCloseLib();
        EXPECT_TRUE(g_openedDevicesRegistry.AllInterfaceIDs().empty());
        EXPECT_TRUE(g_openedDevicesRegistry.AllDeviceIDs().empty());
    }

    std::string InterfaceID(unsigned index) {
        unsigned long size = 0;
        EXPECT_EQ(system->GetInterfaceID(index, nullptr, &size), 0);
        std::string id(size, '?');
        EXPECT_EQ(system->GetInterfaceID(index, id.data(), &size), 0);
        EXPECT_EQ(id.back(), '\0');
        return id.substr(0, size - 1);
    }
    std::string InterfaceInfo(const std::string& id, int cmd) {
        int type = 0;
        unsigned long size = 0;
        EXPECT_EQ(system->GetInterfaceInfo(id.c_str(), cmd, &type, nullptr, &size), 0);
        EXPECT_EQ(type, INFO_DATATYPE_STRING);
        std::string text(size, '?');
        EXPECT_EQ(system->GetInterfaceInfo(id.c_str(), cmd, &type, text.data(), &size), 0);
        return text.substr(0, size - 1);
    }

    FakeHALGev* hal = nullptr;
    FakeHALGev::Log log;
    GenTL::System* system = nullptr;
};

TEST_F(SystemTest, DisplayNameIsTheProducers) {
    int type = 0;
    char text[64] = {};
    unsigned long size = sizeof text;
    ASSERT_EQ(system->GetInfo(TL_INFO_DISPLAYNAME, &type, text, &size), GC_ERR_SUCCESS);
    EXPECT_STREQ(text, "Kesta Optic Works GenTL Module");
}

TEST_F(SystemTest, AFailedOpenDeletesTheControlLayerAndChainsTheCause) {
    hal->getInterfacesResult = GC_ERR_IO;
    EXPECT_EQ(system->Open(), GC_ERR_IO);
    EXPECT_TRUE(log.destroyed);
    const CachedError e = CachedError::Take();
    EXPECT_EQ(e.count, 3u); // the layer's text, UpdateInterfaceList's line, Open's line
    EXPECT_EQ(e.message.rfind("Open():", 0), 0u) << e.message;
}

TEST_F(SystemTest, UpdateInterfaceListTellsChangesOfTheSetNotOfTheOrder) {
    ASSERT_EQ(system->Open(), 0);
    bool changed = true;
    hal->interfaces = {"00aabbccddee:1", "0a1b2c3d4e5f", "00aabbccddee"};
    ASSERT_EQ(system->UpdateInterfaceList(&changed, 100), 0);
    EXPECT_FALSE(changed);
    EXPECT_EQ(InterfaceID(0), "00aabbccddee:1"); // the new order is kept all the same

    hal->interfaces.pop_back();
    ASSERT_EQ(system->UpdateInterfaceList(&changed, 100), 0);
    EXPECT_TRUE(changed);
    hal->interfaces = {"00aabbccddee:1", "0a1b2c3d4e5f", "111111111111"};
    changed = false;
    ASSERT_EQ(system->UpdateInterfaceList(&changed, 100), 0);
    EXPECT_TRUE(changed); // same length, another member
    ASSERT_EQ(system->UpdateInterfaceList(nullptr, 100), 0);

    const int calls = hal->getInterfacesCalls;
    EXPECT_EQ(system->UpdateInterfaceList(&changed, 0), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(hal->getInterfacesCalls, calls);

    hal->getInterfacesResult = GC_ERR_IO;
    hal->interfaces = {};
    changed = false;
    EXPECT_EQ(system->UpdateInterfaceList(&changed, 100), GC_ERR_IO);
    EXPECT_FALSE(changed);
    unsigned int count = 0;
    ASSERT_EQ(system->GetNumInterfaces(&count), 0);
    EXPECT_EQ(count, 3u); // the old list stands
    EXPECT_EQ(system->Close(), 0);
}

TEST_F(SystemTest, OpenInterfaceRefusalsNameTheKnownInterfaces) {
    ASSERT_EQ(system->Open(), 0);
    void* hIface = nullptr;
    EXPECT_EQ(system->OpenInterface(nullptr, nullptr, &hIface), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(system->OpenInterface("0a1b2c3d4e5f", nullptr, nullptr), GC_ERR_INVALID_PARAMETER);

    hal->openInterfaceResult = GC_ERR_INVALID_ID;
    EXPECT_EQ(system->OpenInterface("0a1b2c3d4e5f", nullptr, &hIface), GC_ERR_INVALID_ID);
    EXPECT_EQ(CachedError::Take().count, 2u);
    EXPECT_TRUE(g_openedDevicesRegistry.AllInterfaceIDs().empty());

    hal->interfaces.clear();
    ASSERT_EQ(system->UpdateInterfaceList(nullptr, 1), 0);
    EXPECT_EQ(system->OpenInterface("0a1b2c3d4e5f", nullptr, &hIface), GC_ERR_INVALID_ID);
    EXPECT_EQ(system->Close(), 0);
}

TEST_F(SystemTest, CloseGoesOnPastAnInterfaceThatFailsToClose) {
    ASSERT_EQ(system->Open(), 0);
    void* a = nullptr;
    void* b = nullptr;
    ASSERT_EQ(system->OpenInterface("00aabbccddee", nullptr, &a), 0);
    ASSERT_EQ(system->OpenInterface("0a1b2c3d4e5f", nullptr, &b), 0);
    hal->closeInterfaceResult = GC_ERR_IO;
    EXPECT_EQ(system->Close(), GC_ERR_IO);
    EXPECT_EQ(log.closedAdapters.size(), 2u);
    // Both closes left their notes on the stack, the last line being Close's.
    const CachedError e = CachedError::Take();
    EXPECT_EQ(e.message.rfind("Close():", 0), 0u) << e.message;
    EXPECT_GE(e.count, 6u);
    EXPECT_TRUE(g_openedDevicesRegistry.AllInterfaceIDs().empty());
}

TEST_F(SystemTest, InitLibDropsInterfaceEntriesOfAnEarlierLifeUnclosed) {
    ASSERT_EQ(GCCloseLib(), GC_ERR_SUCCESS);
    // Not a live handle: closing it would be refused, so reaching it would fail.
    std::uint64_t stale[2] = {};
    ASSERT_EQ(g_openedDevicesRegistry.AddInterfaceEntry("stale", stale), 0);
    ASSERT_EQ(GCInitLib(), GC_ERR_SUCCESS);
    EXPECT_TRUE(g_openedDevicesRegistry.AllInterfaceIDs().empty());
    EXPECT_EQ(CachedError::Take().count, 0u);
}

} // namespace
