#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CachedError.h"
#include "modules/BaseModule.h"

namespace {

using kesta::test::CachedError;

const char kTemplate[] = "local:Some_Module.xml;F0F00000;%X?SchemaVersion=1.0.0";
const std::string kFormatted = "local:Some_Module.xml;F0F00000;AFA0?SchemaVersion=1.0.0";

// A module with a URL and a register space of 64 bytes, for the base's
// answers that call back into the concrete module.
class PortModule : public GenTL::BaseModule {
public:
    explicit PortModule(unsigned long extra)
        : BaseModule("an id", "AModule", "APort"), m_extra(extra) {}

    int ReadPort(unsigned long address, void* buffer, unsigned long* size) override {
        if (address + *size > sizeof(m_space)) {
            return ReportError(GC_ERR_INVALID_ADDRESS, "out of space");
        }
        std::memcpy(buffer, m_space + address, *size);
        return 0;
    }
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override {
        if (address + *size > sizeof(m_space)) {
            return ReportError(GC_ERR_INVALID_ADDRESS, "out of space");
        }
        std::memcpy(m_space + address, buffer, *size);
        return 0;
    }
    int GetPortURL(char* url, unsigned long* size) const override {
        return BaseModule::GetPortURL(kTemplate, 0xAFA0, m_extra, url, size);
    }
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* e, unsigned long* n) override {
        return ReadPortEntries(e, n);
    }
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* e, unsigned long* n) override {
        return WritePortEntries(e, n);
    }

    unsigned char m_space[64] = {};

private:
    unsigned long m_extra;
};

using BaseModuleTest = kesta::test::ErrorCacheTest;

TEST_F(BaseModuleTest, PortUrlSizeRuleAddsTheModulesTrailingZeros) {
    for (unsigned long extra : {GenTL::kPortUrlExtraOne, GenTL::kPortUrlExtraTwo}) {
        PortModule m(extra);
        const unsigned long needed = kFormatted.size() + extra;
        unsigned long size = 0;
        ASSERT_EQ(m.GetPortURL(nullptr, &size), 0);
        EXPECT_EQ(size, needed);

        std::vector<char> url(needed + 4, 'x');
        size = needed - 1;
        EXPECT_EQ(m.GetPortURL(url.data(), &size), GC_ERR_BUFFER_TOO_SMALL);
        EXPECT_EQ(size, needed - 1);
        EXPECT_EQ(url[0], 'x');

        size = url.size();
        ASSERT_EQ(m.GetPortURL(url.data(), &size), 0);
        EXPECT_EQ(size, needed);
        EXPECT_EQ(std::string(url.data()), kFormatted);
        for (unsigned long i = kFormatted.size(); i < needed; ++i) {
            EXPECT_EQ(url[i], '\0');
        }
        EXPECT_EQ(url[needed], 'x'); // nothing written past the size
    }
    PortModule m(GenTL::kPortUrlExtraTwo);
    EXPECT_EQ(m.GetPortURL(nullptr, nullptr), GC_ERR_INVALID_PARAMETER);
}

TEST_F(BaseModuleTest, StackedAccessRunsEntriesInOrderUntilTheFirstFailure) {
    PortModule m(GenTL::kPortUrlExtraTwo);
    unsigned int a = 0x11223344, b = 0x55667788, c = 0x99AABBCC;
    std::vector<S_PORT_REGISTER_STACK_ENTRY> writes = {
        {0, &a, 4}, {60, &b, 8 /* runs past the space */}, {8, &c, 4}};
    unsigned long n = writes.size();
    EXPECT_EQ(m.WritePortStacked(writes.data(), &n), GC_ERR_INVALID_ADDRESS);
    EXPECT_EQ(CachedError::Take().count, 2u);
    unsigned int first = 0, third = 0;
    std::memcpy(&first, m.m_space, 4);
    std::memcpy(&third, m.m_space + 8, 4);
    EXPECT_EQ(first, a);
    EXPECT_EQ(third, 0u); // later entries are not touched

    writes[1].Size = 4;
    ASSERT_EQ(m.WritePortStacked(writes.data(), &n), 0);
    unsigned int r[3] = {};
    std::vector<S_PORT_REGISTER_STACK_ENTRY> reads = {{8, &r[0], 4}, {0, &r[1], 4}, {60, &r[2], 4}};
    ASSERT_EQ(m.ReadPortStacked(reads.data(), &n), 0);
    EXPECT_EQ(r[0], c);
    EXPECT_EQ(r[1], a);
    EXPECT_EQ(r[2], b);

    EXPECT_EQ(m.ReadPortStacked(nullptr, &n), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(m.WritePortStacked(reads.data(), nullptr), GC_ERR_INVALID_PARAMETER);
}

} // namespace
