// The register dispatch over a small register class of its own: exact
// address matching across the whole table, the refusals by accessor, and
// the argument checks that leave the registers alone.
#include <cstdint>
#include <cstring>

#include <gtest/gtest.h>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "registers/RegisterTable.h"

namespace {

using GenTL::RegisterRow;
using GenTL::RegisterTable;

/// Three kinds of register: read-write, read-only, write-only; each access
/// is counted, the value kept as 8 bytes.
class ToyReg {
public:
    int GetValue(void* buffer, unsigned long* size) {
        ++reads;
        std::memcpy(buffer, &value, sizeof value);
        *size = sizeof value;
        return GC_ERR_SUCCESS;
    }
    int SetValue(const void* buffer, unsigned long*) {
        ++writes;
        std::memcpy(&value, buffer, sizeof value);
        return GC_ERR_SUCCESS;
    }
    int GetConstant(void* buffer, unsigned long* size) {
        ++reads;
        const std::uint64_t constant = 7;
        std::memcpy(buffer, &constant, sizeof constant);
        *size = sizeof constant;
        return GC_ERR_SUCCESS;
    }
    int Fire(const void*, unsigned long*) {
        ++writes;
        return GC_ERR_SUCCESS;
    }

    std::uint64_t value = 0;
    int reads = 0;
    int writes = 0;
};

constexpr RegisterRow<ToyReg> kRows[] = {
    {0x0100, 8, &ToyReg::GetValue, &ToyReg::SetValue},
    {0x0101, 8, &ToyReg::GetConstant, nullptr},
    {0x0200, 8, nullptr, &ToyReg::Fire},
    {0x0300, 8, &ToyReg::GetConstant, nullptr},
    {0x2500, 8, &ToyReg::GetValue, &ToyReg::SetValue},
    {0xF0F00000, 0, &ToyReg::GetConstant, nullptr},
};
static_assert(GenTL::IsAscending(kRows));
constexpr RegisterRow<ToyReg> kUnsorted[] = {{0x0200, 8, nullptr, nullptr},
                                             {0x0100, 8, nullptr, nullptr}};
static_assert(!GenTL::IsAscending(kUnsorted));

constexpr RegisterTable<ToyReg> kTable(kRows);

class RegisterTableTest : public ::testing::Test {
protected:
    void SetUp() override { GenTL::ErrorCache::GetErrorCache()->Clear(); }
    void TearDown() override { GenTL::ErrorCache::ReleaseErrorCache(); }

    int LastCode() {
        GenTL::Error e;
        return GenTL::ErrorCache::GetErrorCache()->Peak(e) == GC_ERR_SUCCESS ? e.Code() : 0;
    }

    ToyReg reg;
};

TEST_F(RegisterTableTest, EveryRowIsFoundAtItsAddressOnly) {
    for (const auto& row : kTable) {
        EXPECT_EQ(kTable.Find(row.address), &row) << std::hex << row.address;
    }
    for (unsigned long between : {0x0UL, 0x00FFUL, 0x0102UL, 0x0104UL, 0x01FFUL, 0x2501UL,
                                  0xF0EFFFFFUL, 0xF0F00001UL, 0xFFFFFFFFFFFFFFFFUL}) {
        EXPECT_EQ(kTable.Find(between), nullptr) << std::hex << between;
    }
}

TEST_F(RegisterTableTest, ReadsAndWritesReachTheAccessors) {
    std::uint64_t in = 0x1122334455667788ULL;
    unsigned long size = 8;
    ASSERT_EQ(kTable.Write(reg, 0x2500, &in, &size), GC_ERR_SUCCESS);
    std::uint64_t out = 0;
    ASSERT_EQ(kTable.Read(reg, 0x0100, &out, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(out, in);
    ASSERT_EQ(kTable.Read(reg, 0x0300, &out, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(out, 7u);
    ASSERT_EQ(kTable.Write(reg, 0x0200, &in, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(reg.reads, 2);
    EXPECT_EQ(reg.writes, 2);
}

TEST_F(RegisterTableTest, RefusalsTouchNoRegister) {
    std::uint64_t value = 5;
    unsigned long size = 8;
    // An address inside a register, or none at all.
    EXPECT_EQ(kTable.Read(reg, 0x0104, &value, &size), GC_ERR_INVALID_ADDRESS);
    EXPECT_EQ(kTable.Write(reg, 0x0104, &value, &size), GC_ERR_INVALID_ADDRESS);
    EXPECT_EQ(LastCode(), GC_ERR_INVALID_ADDRESS);
    // No setter, no getter: refused bare.
    EXPECT_EQ(kTable.Write(reg, 0x0101, &value, &size), GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(kTable.Write(reg, 0xF0F00000, &value, &size), GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(kTable.Read(reg, 0x0200, &value, &size), GC_ERR_ACCESS_DENIED);
    GenTL::Error e;
    ASSERT_EQ(GenTL::ErrorCache::GetErrorCache()->Peak(e), GC_ERR_SUCCESS);
    EXPECT_EQ(e.Code(), GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(e.Message().find("():"), std::string::npos) << e.Message();
    // Null arguments, before any lookup.
    EXPECT_EQ(kTable.Read(reg, 0x0100, nullptr, &size), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(kTable.Read(reg, 0x0100, &value, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(kTable.Write(reg, 0x0100, nullptr, &size), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(kTable.Write(reg, 0x0100, &value, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(kTable.Read(reg, 0x7777, &value, nullptr), GC_ERR_INVALID_PARAMETER);

    EXPECT_EQ(reg.reads + reg.writes, 0);
    EXPECT_EQ(reg.value, 0u);
    EXPECT_EQ(value, 5u);
    EXPECT_EQ(size, 8u);
}

} // namespace
