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
