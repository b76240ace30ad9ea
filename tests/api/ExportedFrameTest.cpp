// The exported functions as a consumer reaches them: the built .cti loaded
// with dlopen(), functions found by name. No module exists here, so these
// cases cover the lifecycle, the refusals of the frame and the error
// stack text.

#include <array>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "CtiTest.h"

namespace {

using kesta::test::CtiTest;
using kesta::test::LastError;

// A pointer that is not a handle: 16 readable zero bytes.
struct alignas(8) ForeignBlock {
    unsigned char bytes[16] = {};
};

// One call of each handle-taking family on h, by name; run them one at a
// time to look at each call's record.
struct FamilyCall {
    std::string name;
    std::function<GC_ERROR()> call;
};

std::vector<FamilyCall> EveryFamily(kesta::test::CtiLibrary& lib, void* h) {
    // The outputs live as long as the library: the calls may run later.
    static size_t size;
    static int32_t type;
    static char buffer[8];
    static bool8_t changed;
    size = sizeof(buffer);
    auto* l = &lib;
    return {
        {"GCReadPort", [=] { return l->GCReadPort(h, 0, buffer, &size); }},
        {"GCGetPortInfo", [=] { return l->GCGetPortInfo(h, PORT_INFO_ID, &type, buffer, &size); }},
        {"EventGetInfo", [=] { return l->EventGetInfo(h, EVENT_NUM_FIRED, &type, buffer, &size); }},
        {"EventKill", [=] { return l->EventKill(h); }},
        {"TLClose", [=] { return l->TLClose(h); }},
        {"TLUpdateInterfaceList", [=] { return l->TLUpdateInterfaceList(h, &changed, 100); }},
        {"IFClose", [=] { return l->IFClose(h); }},
        {"IFGetInfo", [=] { return l->IFGetInfo(h, INTERFACE_INFO_ID, &type, buffer, &size); }},
        {"DevClose", [=] { return l->DevClose(h); }},
        {"DevGetInfo", [=] { return l->DevGetInfo(h, DEVICE_INFO_ID, &type, buffer, &size); }},
        {"DSClose", [=] { return l->DSClose(h); }},
        {"DSGetInfo", [=] { return l->DSGetInfo(h, STREAM_INFO_ID, &type, buffer, &size); }},
        {"DSStartAcquisition",
         [=] { return l->DSStartAcquisition(h, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE); }},
        {"IFForceIp", [=] { return l->IFForceIp(h, 0x001122334455ULL, 1, 2, 0); }},
        {"DSWaitForNextLeader", [=] { return l->DSWaitForNextLeader(h, 0); }},
    };
}

// Lifecycle and the initialized test

using Lifecycle = CtiTest;

TEST_F(Lifecycle, EveryFunctionRefusesBeforeInitAndLeavesAStampedRecord) {
    size_t size = 0;
    int32_t type = 0;
    GC_ERROR code = 0;
    // The initialized test comes before any argument test.
    EXPECT_EQ(Lib().GCGetInfo(TL_INFO_ID, nullptr, nullptr, nullptr), GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ(Lib().GCGetLastError(&code, nullptr, &size), GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ(Lib().GCGetLastError(nullptr, nullptr, nullptr), GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ(Lib().TLOpen(nullptr), GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ(Lib().GCCloseLib(), GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ(Lib().DSQueueBuffer(nullptr, nullptr), GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ(Lib().DSGetBufferInfo(nullptr, nullptr, BUFFER_INFO_BASE, &type, nullptr, &size),
              GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ(Lib().DSSetupResendRetryParams(nullptr, 0, 0.0, "", "", 0, 0),
              GC_ERR_NOT_INITIALIZED);
    for (const FamilyCall& f : EveryFamily(Lib(), nullptr)) {
        EXPECT_EQ(f.call(), GC_ERR_NOT_INITIALIZED) << f.name;
    }

    // GCInitLib keeps the calling thread's record: the last refusal.
    ASSERT_EQ(Init(), GC_ERR_SUCCESS);
    const LastError e = Lib().TakeLastError();
    ASSERT_EQ(e.result, GC_ERR_SUCCESS);
    EXPECT_EQ(e.code, GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ(e.Records().size(), 1u);
}

TEST_F(Lifecycle, InitIsRefusedTwiceAndCloseTwice) {
    ASSERT_EQ(Init(), GC_ERR_SUCCESS);
    EXPECT_EQ(Init(), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(Lib().TakeLastError().Records().size(), 1u);

    EXPECT_EQ(Lib().GCCloseLib(), GC_ERR_SUCCESS); // it stayed initialized
    EXPECT_EQ(Lib().GCCloseLib(), GC_ERR_NOT_INITIALIZED);

    // A new life: the second close's record lives in a fresh cache.
    ASSERT_EQ(Init(), GC_ERR_SUCCESS);
    const LastError e = Lib().TakeLastError();
    EXPECT_EQ(e.code, GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ(e.Records().size(), 1u);
}

// Handle refusals

using HandleRefusal = CtiTest;

TEST_F(HandleRefusal, NullAndForeignPointersGiveTwoRecordsInEveryFamily) {
    ASSERT_EQ(Init(), GC_ERR_SUCCESS);
    ForeignBlock foreign;
    const std::pair<void*, const char*> handles[] = {
        {nullptr, "failed to cast handle to a GenTLHandle*"},
        {&foreign, "received a non-GenTL handle"}};
    for (const auto& [h, why] : handles) {
        for (const FamilyCall& f : EveryFamily(Lib(), h)) {
            EXPECT_EQ(f.call(), GC_ERR_INVALID_HANDLE) << f.name;
            const auto records = Lib().TakeLastError().Records();
            ASSERT_EQ(records.size(), 2u) << f.name;
            EXPECT_EQ(records[0].name, "GenTL::GC_ERR_INVALID_HANDLE(-1006)") << f.name;
            EXPECT_EQ(records[0].message.rfind(f.name + "():", 0), 0u) << records[0].message;
            EXPECT_EQ(records[1].message, why) << f.name;
        }
    }
    // The block was not touched (no close freed or zeroed anything).
    for (unsigned char byte : foreign.bytes) {
        EXPECT_EQ(byte, 0);
    }
    // The stream is tested before the buffer.
    int32_t type = 0;
    size_t size = 0;
    EXPECT_EQ(Lib().DSGetBufferInfo(nullptr, &foreign, BUFFER_INFO_SIZE, &type, nullptr, &size),
              GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(Lib().TakeLastError().Records().at(1).message,
              "failed to cast handle to a GenTLHandle*");

    // This extension answers a failed handle test in the bare form.
    EXPECT_EQ(Lib().DSSetupResendRetryParams(&foreign, 3, 25.0, "a", "b", 640, 480),
              GC_ERR_INVALID_HANDLE);
    const auto records = Lib().TakeLastError().Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].message, "Invalid Handle");
}

// GCGetLastError

using LastErrorText = CtiTest;

TEST_F(LastErrorText, StackIsConsumedOnlyWhenDelivered) {
    ASSERT_EQ(Init(), GC_ERR_SUCCESS);
    ASSERT_EQ(Lib().GCGetInfo(TL_INFO_CUSTOM_ID, nullptr, nullptr, nullptr), GC_ERR_INVALID_INDEX);

    GC_ERROR code = 0;
    size_t size = 0;
    ASSERT_EQ(Lib().GCGetLastError(&code, nullptr, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(code, GC_ERR_INVALID_INDEX);
    const size_t needed = size;
    std::vector<char> text(needed + 8, 'x');

    size = needed - 1;
    EXPECT_EQ(Lib().GCGetLastError(&code, text.data(), &size), GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, needed - 1);

    size = needed;
    ASSERT_EQ(Lib().GCGetLastError(&code, text.data(), &size), GC_ERR_SUCCESS);
    EXPECT_EQ(size, needed);
    EXPECT_EQ(std::string(text.data()).size() + 1, needed);
    EXPECT_EQ(std::string(text.data()).rfind("Error Stack:\n  -1017 ", 0), 0u);

    // Delivered once: the thread's stack is gone, "No Error" stands in.
    size = 0;
    ASSERT_EQ(Lib().GCGetLastError(&code, nullptr, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(code, GC_ERR_SUCCESS);
    EXPECT_EQ(size, 9u);
    std::fill(text.begin(), text.end(), 'x');
    size = text.size();
    ASSERT_EQ(Lib().GCGetLastError(&code, text.data(), &size), GC_ERR_SUCCESS);
    EXPECT_STREQ(text.data(), "No Error");
    EXPECT_EQ(text.back(), '\0'); // the whole buffer given was cleared past the text
    EXPECT_EQ(Lib().GCGetLastError(nullptr, text.data(), &size), GC_ERR_INVALID_PARAMETER);
}

TEST_F(LastErrorText, EachThreadSeesOnlyItsOwnStack) {
    ASSERT_EQ(Init(), GC_ERR_SUCCESS);
    constexpr int kThreads = 4;
    constexpr int kRounds = 50;
    std::array<int, kThreads> mismatches{};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this, t, &mismatches] {
            // Each thread fails in its own way and must read back just that.
            const TL_INFO_CMD cmd = 100 + t;
            for (int round = 0; round < kRounds; ++round) {
                size_t size = 0;
                if (t % 2 == 0) {
                    Lib().GCGetInfo(cmd, nullptr, nullptr, &size);
                } else {
                    Lib().GCReadPort(nullptr, 0, nullptr, &size);
                }
                const LastError e = Lib().TakeLastError();
                const GC_ERROR expected = t % 2 == 0 ? GC_ERR_INVALID_INDEX : GC_ERR_INVALID_HANDLE;
                if (e.code != expected || e.Records().size() != (t % 2 == 0 ? 1u : 2u)) {
                    ++mismatches[t];
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(mismatches[t], 0) << "thread " << t;
    }
}

} // namespace
