#include "ControlPrivilege.h"
#include "GevConstants.h"

#include <gtest/gtest.h>

namespace gevsim {
namespace {

using Clock = ControlPrivilege::Clock;
const Endpoint kA{0x0A000001, 5000};
const Endpoint kB{0x0A000002, 5000};
const Endpoint kA2{0x0A000001, 5001}; // same host, another application

TEST(ControlPrivilege, FirstComerTakesControlOthersAreRefused) {
    ControlPrivilege p(true);
    bool lost = false;
    const auto now = Clock::now();
    EXPECT_TRUE(p.mayRead(kB));
    EXPECT_FALSE(p.mayWrite(kA));
    ASSERT_EQ(p.write(kA, 2, 0, now, lost), 0);
    EXPECT_TRUE(p.mayWrite(kA));
    EXPECT_FALSE(p.mayWrite(kA2));
    EXPECT_TRUE(p.mayRead(kB));
    EXPECT_EQ(p.write(kB, 2, 0, now, lost), status::kAccessDenied);
    ASSERT_EQ(p.write(kA, 1, 0, now, lost), 0); // now exclusive
    EXPECT_FALSE(p.mayRead(kB));
    ASSERT_EQ(p.write(kA, 0, 0, now, lost), 0);
    EXPECT_TRUE(lost);
    EXPECT_FALSE(p.hasPrimary());
}

TEST(ControlPrivilege, SwitchoverNeedsEnableKeyAndNoExclusivity) {
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

TEST(ControlPrivilege, HeartbeatExpiresOnlyAfterSilence) {
    ControlPrivilege p(true);
    bool lost = false;
    const auto t0 = Clock::now();
    ASSERT_EQ(p.write(kA, 2, 0, t0, lost), 0);
    p.touch(kB, t0 + std::chrono::milliseconds(900)); // not the primary
    p.touch(kA, t0 + std::chrono::milliseconds(600));
    EXPECT_FALSE(p.expire(t0 + std::chrono::milliseconds(1500), 1000));
    EXPECT_TRUE(p.expire(t0 + std::chrono::milliseconds(1601), 1000));
    EXPECT_FALSE(p.hasPrimary());
    EXPECT_EQ(p.value(), 0u);
}

} // namespace
} // namespace gevsim
