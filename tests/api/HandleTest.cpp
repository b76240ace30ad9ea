// Handles, the protected set, and the library file name.

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "FakeModules.h"
#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/FileUtility.h"
#include "api/GenTLHandle.h"
#include "api/ProtectedSet.h"

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

TEST_F(HandleTest, AHandleLivesFromAllocationToDeletion) {
    kesta::test::FakeBuffer buffer;
    void* h = nullptr;
    ASSERT_EQ(GenTL::AllocateHandle(&h, &buffer), GC_ERR_SUCCESS);
    ASSERT_NE(h, nullptr);
    // The mark reads "ATSEK" in memory, low byte first.
    EXPECT_EQ(std::memcmp(h, "ATSEK\0\0\0", 8), 0);
    EXPECT_EQ(GenTL::CheckHandle(h), GC_ERR_SUCCESS);
    EXPECT_EQ(ErrorCache::GetErrorCache()->Count(), 0);
    EXPECT_EQ(GenTL::CastHandle(h), &buffer);
    EXPECT_EQ(GenTL::CastHandleToIBufferPtr(h), &buffer);
    EXPECT_EQ(GenTL::DeleteHandle(h), GC_ERR_SUCCESS);

    kesta::test::FakeDevice device;
    ASSERT_EQ(GenTL::AllocateHandle(&h, &device), GC_ERR_SUCCESS);
    EXPECT_EQ(GenTL::CastHandleToIBufferPtr(h), nullptr);
    EXPECT_EQ(GenTL::DeleteHandle(h), GC_ERR_SUCCESS);
}

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

TEST_F(HandleTest, ProtectedSetRefusesDoublesAndStrangers) {
    GenTL::ProtectedSet<void*> set;
    int a = 0, b = 0, c = 0;
    EXPECT_EQ(set.AddToSet(&a), GC_ERR_SUCCESS);
    EXPECT_EQ(set.AddToSet(&b), GC_ERR_SUCCESS);
    EXPECT_EQ(set.AddToSet(&c), GC_ERR_SUCCESS);

    EXPECT_EQ(set.AddToSet(&b), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(Recorded().Message(), "The Resource is in use");

    EXPECT_EQ(set.RemoveFromSet(&b), GC_ERR_SUCCESS);
    EXPECT_EQ(set.RemoveFromSet(&b), GC_ERR_RESOURCE_IN_USE);
    // The others stay members, and b can come back.
    EXPECT_EQ(set.AddToSet(&c), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(set.AddToSet(&b), GC_ERR_SUCCESS);
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
