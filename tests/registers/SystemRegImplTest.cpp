// The system's registers where the namespace tests cannot take them: an
// interface list that shrinks under the selector or empties, refreshed
// through InterfaceUpdateList, and a refresh that fails.
#include <cstdint>

#include <gtest/gtest.h>

#include "FakeHALGev.h"
#include "GenTL_KESTA.h"
#include "modules/System.h"

namespace {

TEST(SystemRegImpl, TheSelectorOutlivesItsInterfaceUntilSetAnew) {
    constexpr unsigned long kUpdateList = 0x1600, kSelector = 0x1700, kMax = 0x1703, kId = 0x1800,
                            kIdAvailable = 0x1801;
    kesta::test::FakeHALGev::Log log;
    kesta::test::FakeHALGev hal;
    hal.log = &log;
    hal.interfaces = {"0a1b2c3d4e5f", "00aabbccddee", "00aabbccddee:1"};
    GenTL::System system(&hal);
    ASSERT_EQ(system.Open(), GC_ERR_SUCCESS);
    std::uint64_t value = 2;
    unsigned long size = 8;
    const auto write = [&](unsigned long address, std::uint64_t v) {
        value = v;
        return system.WritePort(address, &value, &size);
    };
    const auto read = [&](unsigned long address) {
        EXPECT_EQ(system.ReadPort(address, &value, &size), GC_ERR_SUCCESS) << address;
        return value;
    };
    ASSERT_EQ(write(kSelector, 2), GC_ERR_SUCCESS);
    hal.interfaces = {"0a1b2c3d4e5f"};
    ASSERT_EQ(write(kUpdateList, 1), GC_ERR_SUCCESS);
    EXPECT_EQ(read(kSelector), 2u);
    EXPECT_EQ(read(kMax), 0u);
    EXPECT_EQ(read(kIdAvailable), 0u);
    char id[512] = {};
    unsigned long idSize = sizeof id;
    EXPECT_EQ(system.ReadPort(kId, id, &idSize), GC_ERR_INVALID_INDEX);

    hal.interfaces.clear();
    ASSERT_EQ(write(kUpdateList, 1), GC_ERR_SUCCESS);
    EXPECT_EQ(read(kMax), 0u);
    EXPECT_EQ(write(kSelector, 0), GC_ERR_INVALID_INDEX);
    hal.getInterfacesResult = GC_ERR_IO;
    EXPECT_EQ(write(kUpdateList, 1), GC_ERR_IO);
}

} // namespace
