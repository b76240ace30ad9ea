// Switchover rules of the control privilege; claiming, exclusivity and
// heartbeat expiry run against the simulator in tests/netns.
#include "ControlPrivilege.h"
#include "GevConstants.h"

#include <gtest/gtest.h>

namespace gevsim {
namespace {

using Clock = ControlPrivilege::Clock;
const Endpoint kA{0x0A000001, 5000};
const Endpoint kB{0x0A000002, 5000};

TEST(ControlPrivilege, SwitchoverNeedsEnableKeyAndTheCapability) {
    const auto now = Clock::now();
    bool lost = false;
    ControlPrivilege p(true);
    ASSERT_EQ(p.write(kA, 6, 0, now, lost), 0);
    EXPECT_EQ(p.write(kB, 0x00070002, 0x0008, now, lost), status::kAccessDenied);
    ASSERT_EQ(p.write(kB, 0x00080002, 0x0008, now, lost), 0);
    EXPECT_TRUE(lost);
    EXPECT_EQ(p.primary().ip, kB.ip);
    EXPECT_EQ(p.value(), 2u); // the key is not kept in the register

    ControlPrivilege noCapability(false);
    ASSERT_EQ(noCapability.write(kA, 6, 0, now, lost), 0);
    EXPECT_EQ(noCapability.value(), 2u);
    EXPECT_EQ(noCapability.write(kB, 0x00080002, 0x0008, now, lost), status::kAccessDenied);
}

} // namespace
} // namespace gevsim
