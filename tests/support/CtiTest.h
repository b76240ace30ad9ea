#pragma once
// GoogleTest fixture over a freshly loaded producer: SetUp loads it, and
// TearDown calls GCCloseLib (result ignored: the test may have closed it
// already) before unloading, so that no state leaks into the next test.
#include <memory>

#include <gtest/gtest.h>

#include "CtiLibrary.h"

namespace kesta::test {

class CtiTest : public ::testing::Test {
protected:
    void SetUp() override { m_lib = std::make_unique<CtiLibrary>(); }
    void TearDown() override {
        if (m_lib) {
            m_lib->GCCloseLib();
            m_lib.reset();
        }
    }
    CtiLibrary& Lib() { return *m_lib; }
    /// GCInitLib, asserted by the caller: ASSERT_EQ(Init(), GC_ERR_SUCCESS).
    GC_ERROR Init() { return m_lib->GCInitLib(); }

private:
    std::unique_ptr<CtiLibrary> m_lib;
};

} // namespace kesta::test
