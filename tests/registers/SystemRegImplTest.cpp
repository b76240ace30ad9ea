// The system's registers where the namespace tests cannot take them: an
// interface list that shrinks under the selector or empties, refreshed
// through InterfaceUpdateList, and a refresh that fails.
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "../modules/FakeHALGev.h"
#include "GenTL_KESTA.h"
#include "modules/System.h"

namespace {

constexpr unsigned long kUpdateList = 0x1600;
constexpr unsigned long kSelector = 0x1700;
constexpr unsigned long kSelectorMax = 0x1703;
constexpr unsigned long kInterfaceId = 0x1800;
constexpr unsigned long kIdAvailable = 0x1801;

class SystemRegImplTest : public ::testing::Test {
protected:
    void SetUp() override {
        hal = new kesta::test::FakeHALGev();
        hal->interfaces = {"0a1b2c3d4e5f", "00aabbccddee", "00aabbccddee:1"};
        system = new GenTL::System(hal);
        ASSERT_EQ(system->Open(), GC_ERR_SUCCESS);
    }
    void TearDown() override {
        delete system;
        delete hal;
    }

    int Write(unsigned long address, std::uint64_t value) {
        unsigned long size = sizeof value;
        return system->WritePort(address, &value, &size);
    }
    std::uint64_t Read(unsigned long address) {
        std::uint64_t value = ~0ULL;
        unsigned long size = sizeof value;
        EXPECT_EQ(system->ReadPort(address, &value, &size), GC_ERR_SUCCESS) << address;
        return value;
    }
    int Update(std::vector<std::string> interfaces) {
        hal->interfaces = std::move(interfaces);
        return Write(kUpdateList, 1);
    }

    kesta::test::FakeHALGev* hal = nullptr;
    GenTL::System* system = nullptr;
};

TEST_F(SystemRegImplTest, TheSelectorOutlivesItsInterfaceUntilSetAnew) {
    ASSERT_EQ(Write(kSelector, 2), GC_ERR_SUCCESS);
    ASSERT_EQ(Update({"0a1b2c3d4e5f"}), GC_ERR_SUCCESS);
    EXPECT_EQ(Read(kSelector), 2u);
    EXPECT_EQ(Read(kSelectorMax), 0u);
    EXPECT_EQ(Read(kIdAvailable), 0u);
    char id[512] = {};
    unsigned long size = sizeof id;
    EXPECT_EQ(system->ReadPort(kInterfaceId, id, &size), GC_ERR_INVALID_INDEX);

    ASSERT_EQ(Update({}), GC_ERR_SUCCESS);
    EXPECT_EQ(Read(kSelectorMax), 0u);
    EXPECT_EQ(Write(kSelector, 0), GC_ERR_INVALID_INDEX);

    hal->getInterfacesResult = GC_ERR_IO;
    EXPECT_EQ(Update({"0a1b2c3d4e5f"}), GC_ERR_IO);
}

} // namespace
