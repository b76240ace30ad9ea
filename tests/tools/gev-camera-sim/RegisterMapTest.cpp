#include "RegisterMap.h"
#include "GevConstants.h"

#include <gtest/gtest.h>

namespace gevsim {
namespace {

class RegisterMapTest : public ::testing::Test {
protected:
    void SetUp() override {
        map.addRegister(0x100, 0x11223344, RegisterMap::Access::ReadOnly);
        map.addRegister(0x104, 5, RegisterMap::Access::ReadWrite);
        map.addRegister(0x108, 6, RegisterMap::Access::WriteOnly);
        map.addString(0x200, 8, "a much too long text", RegisterMap::Access::ReadWrite);
    }
    RegisterMap map;
};

TEST_F(RegisterMapTest, ReadsSpanAdjacentAreasButNotGaps) {
    uint8_t b[12];
    ASSERT_EQ(map.read(0x100, b, 12), 0);
    EXPECT_EQ(b[0], 0x11);
    EXPECT_EQ(b[7], 5);
    EXPECT_EQ(b[11], 0); // write-only reads as zero
    EXPECT_EQ(map.read(0x104, b, 12), status::kInvalidAddress);
    EXPECT_EQ(map.read(0x0FC, b, 4), status::kInvalidAddress);
    EXPECT_EQ(map.read(0x102, b, 4), status::kBadAlignment);
    EXPECT_EQ(map.read(0xFFFFFFFC, b, 8), status::kInvalidAddress);
}

TEST_F(RegisterMapTest, WriteRightsAreChecked) {
    EXPECT_EQ(map.checkWrite(0x100, 4), status::kWriteProtect);
    EXPECT_EQ(map.checkWrite(0x104, 8), 0);
    EXPECT_EQ(map.checkWrite(0x104, 12), status::kInvalidAddress);
    EXPECT_TRUE(map.isRegister(0x104));
    EXPECT_FALSE(map.isRegister(0x204));
}

TEST_F(RegisterMapTest, StringsStayTerminatedInsideTheirArea) {
    uint8_t b[8];
    ASSERT_EQ(map.read(0x200, b, 8), 0);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(b)), "a much ");
    map.setString(0x200, "ok");
    ASSERT_EQ(map.read(0x200, b, 8), 0);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(b)), "ok");
    EXPECT_EQ(b[7], 0);
}

} // namespace
} // namespace gevsim
