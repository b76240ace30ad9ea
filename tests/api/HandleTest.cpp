// What a pointer that is no handle meets (live handles are used everywhere
// else), and the library's file name.

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/FileUtility.h"
#include "api/GenTLHandle.h"

namespace {

using GenTL::Error;
using GenTL::ErrorCache;

class HandleTest : public ::testing::Test {
protected:
    void SetUp() override { ErrorCache::GetErrorCache()->Clear(); }
    void TearDown() override { ErrorCache::ReleaseErrorCache(); }
    static Error Recorded() {
        Error e;
        ErrorCache::GetErrorCache()->Peak(e);
        return e;
    }
};

TEST_F(HandleTest, DeleteHandleFreesOnlyHandles) {
    EXPECT_EQ(GenTL::DeleteHandle(nullptr), GC_ERR_INVALID_HANDLE);
    const std::string text = Recorded().Message();
    EXPECT_EQ(text.rfind("DeleteHandle():", 0), 0u) << text;
    EXPECT_NE(text.find(": failed to cast hHandle to a GenTLHandle*; hHandle was not freed"),
              std::string::npos);

    // A foreign block stays as it was (and allocated: the sanitizer would
    // report a bad free otherwise).
    auto* foreign = new unsigned char[16]();
    EXPECT_EQ(GenTL::DeleteHandle(foreign), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(Recorded().Message(), "received a non-GenTLHandle*; hHandle was not freed");
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(foreign[i], 0);
    }
    delete[] foreign;

    // Not aligned, as a foreign pointer may be.
    alignas(8) unsigned char block[24] = {};
    EXPECT_EQ(GenTL::CheckHandle(block + 1), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(Recorded().Message(), "received a non-GenTL handle");
}

TEST(FileUtilityTest, FileNameIsTakenFromTheWordLibgentlOn) {
    EXPECT_EQ(GenTL::GetGenTLFileName("/opt/x/libgentl.so.1"), "libgentl.so.1");
    EXPECT_EQ(GenTL::GetGenTLFileName("/opt/libgentl/libgentl_gev.so"), "libgentl/libgentl_gev.so");
    EXPECT_EQ(GenTL::GetGenTLFileName("/usr/lib/GenTL_KESTA.cti"), "libgentl.so");
    EXPECT_EQ(GenTL::GetGenTLFileName(""), "libgentl.so");
    // In a static build the path is that of the program holding GCInitLib.
    EXPECT_NE(GenTL::GetGenTLFilePath(), "undefined");
}

} // namespace
