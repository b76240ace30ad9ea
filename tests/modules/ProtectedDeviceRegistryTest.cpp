#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "CachedError.h"
#include "GenTL_KESTA.h"
#include "modules/ProtectedDeviceRegistry.h"

namespace {

using GenTL::ProtectedDeviceRegistry;
using kesta::test::CachedError;

void* H(long n) {
    return reinterpret_cast<void*>(n);
}

class Registry : public ::testing::Test {
protected:
    void SetUp() override { CachedError::Clear(); }
    void TearDown() override { GenTL::ErrorCache::ReleaseErrorCache(); }
    ProtectedDeviceRegistry registry;
};

TEST_F(Registry, InterfacesAreAddedOnceAndListedSorted) {
    EXPECT_EQ(registry.AddInterfaceEntry("bb0000000002", H(2)), 0);
    EXPECT_EQ(registry.AddInterfaceEntry("aa0000000001", H(1)), 0);
    EXPECT_EQ(registry.AllInterfaceIDs(),
              (std::vector<std::string>{"aa0000000001", "bb0000000002"}));
    EXPECT_TRUE(registry.IsInterfaceAlreadyOpen("aa0000000001"));

    EXPECT_EQ(registry.AddInterfaceEntry("aa0000000001", H(3)), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(CachedError::Take().Text(), "interface ID=aa0000000001 is already open");
    EXPECT_EQ(registry.PeekInterfaceEntry("aa0000000001").handle, H(1));
}

TEST_F(Registry, DevicesNeedAnOpenInterfaceAndAreOpenOnceAcrossInterfaces) {
    EXPECT_EQ(registry.AddDeviceEntry("nowhere", "CAM1", H(10)), GC_ERR_INVALID_ID);
    EXPECT_EQ(CachedError::Take().Text(),
              "interface ID=nowhere not found in the registry of opened interfaces");
    EXPECT_TRUE(registry.AllDeviceIDs().empty());

    ASSERT_EQ(registry.AddInterfaceEntry("if1", H(1)), 0);
    ASSERT_EQ(registry.AddInterfaceEntry("if2", H(2)), 0);
    ASSERT_EQ(registry.AddDeviceEntry("if1", "CAM2", H(20)), 0);
    ASSERT_EQ(registry.AddDeviceEntry("if1", "CAM1", H(10)), 0);
    EXPECT_EQ(registry.AddDeviceEntry("if2", "CAM1", H(11)), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(CachedError::Take().Text(), "device ID=CAM1 is already open");

    EXPECT_EQ(registry.AllDeviceIDs(), (std::vector<std::string>{"CAM1", "CAM2"}));
    const auto entry = registry.PeekDeviceEntry("CAM1");
    EXPECT_EQ(entry.interfaceId, "if1");
    EXPECT_EQ(entry.handle, H(10));
    const auto if1 = registry.PeekInterfaceEntry("if1");
    ASSERT_EQ(if1.devices.size(), 2u);
    EXPECT_EQ(if1.devices[0].first, "CAM2"); // order of adding
    EXPECT_EQ(if1.devices[1].second, H(10));
    EXPECT_TRUE(registry.PeekInterfaceEntry("if2").devices.empty());
}

TEST_F(Registry, PopsEraseWhatPeeksOnlyCopy) {
    ASSERT_EQ(registry.AddInterfaceEntry("if1", H(1)), 0);
    ASSERT_EQ(registry.AddDeviceEntry("if1", "A", H(10)), 0);
    ASSERT_EQ(registry.AddDeviceEntry("if1", "B", H(11)), 0);
    ASSERT_EQ(registry.AddDeviceEntry("if1", "C", H(12)), 0);

    // A device pop leaves both places, the later devices moving down.
    EXPECT_EQ(registry.PopDeviceEntry("B").handle, H(11));
    EXPECT_FALSE(registry.IsDeviceAlreadyOpen("B"));
    auto devices = registry.PeekInterfaceEntry("if1").devices;
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_EQ(devices[0].first, "A");
    EXPECT_EQ(devices[1].first, "C");
    EXPECT_EQ(registry.PopDeviceEntry("B").handle, nullptr);
    ASSERT_EQ(registry.AddDeviceEntry("if1", "B", H(13)), 0); // open again after the close

    // An interface pop leaves its devices in the device map.
    const auto popped = registry.PopInterfaceEntry("if1");
    EXPECT_EQ(popped.handle, H(1));
    EXPECT_EQ(popped.devices.size(), 3u);
    EXPECT_TRUE(registry.AllInterfaceIDs().empty());
    EXPECT_EQ(registry.AllDeviceIDs(), (std::vector<std::string>{"A", "B", "C"}));
    EXPECT_EQ(registry.AddDeviceEntry("if1", "D", H(14)), GC_ERR_INVALID_ID);

    // A walk over a snapshot may pop as it goes.
    for (const std::string& id : registry.AllDeviceIDs()) {
        EXPECT_NE(registry.PeekDeviceEntry(id).handle, nullptr);
        registry.PopDeviceEntry(id);
    }
    EXPECT_TRUE(registry.AllDeviceIDs().empty());
}

TEST_F(Registry, ConcurrentAddsOfOneDeviceLetExactlyOneIn) {
    ASSERT_EQ(registry.AddInterfaceEntry("if1", H(1)), 0);
    ASSERT_EQ(registry.AddInterfaceEntry("if2", H(2)), 0);
    constexpr int kRounds = 200;
    for (int round = 0; round < kRounds; ++round) {
        const std::string id = "CAM" + std::to_string(round);
        int results[2] = {-1, -1};
        std::thread a([&] { results[0] = registry.AddDeviceEntry("if1", id, H(100)); });
        std::thread b([&] { results[1] = registry.AddDeviceEntry("if2", id, H(200)); });
        a.join();
        b.join();
        EXPECT_EQ((results[0] == 0) + (results[1] == 0), 1) << id;
        const auto entry = registry.PeekDeviceEntry(id);
        EXPECT_EQ(entry.handle, entry.interfaceId == "if1" ? H(100) : H(200));
    }
    EXPECT_EQ(registry.AllDeviceIDs().size(), static_cast<std::size_t>(kRounds));
    GenTL::ErrorCache::ReleaseErrorCache();
}

} // namespace
