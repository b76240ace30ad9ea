// The exported frames over modules of every kind, in process against the
// static library: what a module of the wrong kind gets, and what the close
// functions delete when the module fails. Calls with handles of the right
// kind (the port functions of every module kind included) run in tests/netns.

#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CtiLibrary.h"
#include "FakeModules.h"
#include "GenTL_KESTA.h"
#include "api/GenTL.h"
#include "api/GenTLHandle.h"

namespace {

using kesta::test::ErrorRecord;
using kesta::test::FakeBuffer;
using kesta::test::FakeDataStream;
using kesta::test::FakeDevice;
using kesta::test::FakeInterface;
using kesta::test::FakeSystem;
using kesta::test::LastError;

class Frame : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(GCInitLib(), GC_ERR_SUCCESS); }
    void TearDown() override {
        for (void* h : m_handles) {
            GenTL::DeleteHandle(h);
        }
        GCCloseLib();
    }

    // A handle on module, deleted at the end of the test unless Forget()
    // says that a close took it.
    void* Handle(GenTL::IBaseModule* module) {
        void* h = nullptr;
        EXPECT_EQ(GenTL::AllocateHandle(&h, module), GC_ERR_SUCCESS);
        m_handles.insert(h);
        return h;
    }
    void Forget(void* h) { m_handles.erase(h); }

    static std::vector<ErrorRecord> TakeRecords(GC_ERROR* code = nullptr) {
        LastError e;
        size_t size = 0;
        e.result = GCGetLastError(&e.code, nullptr, &size);
        std::vector<char> text(size + 1);
        e.result = GCGetLastError(&e.code, text.data(), &size);
        e.text = text.data();
        if (code != nullptr) {
            *code = e.code;
        }
        return e.Records();
    }

private:
    std::set<void*> m_handles;
};

// Handles of the wrong kind

TEST_F(Frame, AHandleOfTheWrongKindReachesNoModule) {
    FakeSystem system;
    FakeInterface iface;
    FakeDevice device;
    FakeDataStream stream;
    void* hTL = Handle(&system);
    void* hIface = Handle(&iface);
    void* hDev = Handle(&device);
    void* hDS = Handle(&stream);
    int32_t type = 0;
    size_t size = 0;
    EXPECT_EQ(DevGetInfo(hIface, DEVICE_INFO_ID, &type, nullptr, &size), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(EventGetInfo(hDS, EVENT_NUM_FIRED, &type, nullptr, &size), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(DSGetInfo(hDev, STREAM_INFO_ID, &type, nullptr, &size), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(GenTL::DSSetupResendRetryParams(hDev, 3, 25.0, "a", "b", 0, 0),
              GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(IFGetInfo(hDev, INTERFACE_INFO_ID, &type, nullptr, &size), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(TLGetInfo(hDev, TL_INFO_ID, &type, nullptr, &size), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(GenTL::IFForceIp(hTL, 1, 2, 3, 4), GC_ERR_INVALID_HANDLE);
    // Close functions leave a handle of another kind open.
    EXPECT_EQ(IFClose(hTL), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(DSClose(hDev), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(GenTL::CheckHandle(hDev), GC_ERR_SUCCESS);
    EXPECT_EQ(GenTL::CheckHandle(hTL), GC_ERR_SUCCESS);
    EXPECT_TRUE(system.calls.empty() && iface.calls.empty() && device.calls.empty() &&
                stream.calls.empty());
}

TEST_F(Frame, StreamAndBufferCallsTestBothHandles) {
    FakeDataStream stream;
    FakeBuffer buffer;
    FakeDevice device;
    void* hDS = Handle(&stream);
    void* hBuf = Handle(&buffer);
    void* hDev = Handle(&device);
    int32_t type = 0;
    size_t size = 0;

    // The operation receives the buffer's handle, not its module.
    EXPECT_EQ(DSQueueBuffer(hDS, hBuf), GC_ERR_SUCCESS);
    EXPECT_EQ(stream.bufferGiven, hBuf);
    stream.bufferGiven = nullptr;
    EXPECT_EQ(DSGetBufferInfo(hDS, hBuf, BUFFER_INFO_SIZE, &type, nullptr, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(stream.bufferGiven, hBuf);

    EXPECT_EQ(DSQueueBuffer(hDS, nullptr), GC_ERR_INVALID_HANDLE);

    // A live handle of another kind as the buffer, or as the stream.
    EXPECT_EQ(DSQueueBuffer(hDS, hDev), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(DSGetBufferInfo(hBuf, hBuf, BUFFER_INFO_SIZE, &type, nullptr, &size),
              GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(stream.calls, (std::vector<std::string>{"QueueBuffer", "GetBufferInfo"}));
}

// The close functions

TEST_F(Frame, IFCloseDeletesAFailingInterfaceAndTellsOfIt) {
    bool destroyed = false;
    auto* failing = new FakeInterface;
    failing->destroyed = &destroyed;
    failing->result = GC_ERR_IO;
    failing->report = true;
    void* h = Handle(failing);
    EXPECT_EQ(IFClose(h), GC_ERR_IO);
    Forget(h);
    EXPECT_TRUE(destroyed);
    const auto records = TakeRecords();
    ASSERT_EQ(records.size(), 3u); // the module's, the code's and the frame's own line
    EXPECT_EQ(records[0].code, GC_ERR_IO);
}

TEST_F(Frame, DevCloseDeletesEvenAfterAFailedCloseAndDSCloseLeavesTheStream) {
    bool deviceGone = false;
    auto* device = new FakeDevice;
    device->destroyed = &deviceGone;
    device->result = GC_ERR_IO;
    void* h = Handle(device);
    EXPECT_EQ(DevClose(h), GC_ERR_SUCCESS); // the handle's deletion answers
    Forget(h);
    EXPECT_TRUE(deviceGone);

    bool streamGone = false;
    FakeDataStream stream;
    stream.destroyed = &streamGone;
    h = Handle(&stream);
    EXPECT_EQ(DSClose(h), GC_ERR_SUCCESS);
    Forget(h);
    EXPECT_FALSE(streamGone); // its device owns it
    EXPECT_EQ(stream.calls, (std::vector<std::string>{"Close"}));
    stream.destroyed = nullptr;
}

TEST_F(Frame, TLCloseNeedsAnOpenSystemAndClearsTheFlagFirst) {
    FakeInterface iface;
    EXPECT_EQ(TLClose(Handle(&iface)), GC_ERR_INVALID_HANDLE);
    bool destroyed = false;
    auto* system = new FakeSystem;
    system->destroyed = &destroyed;
    void* hTL = Handle(system);
    EXPECT_EQ(TLClose(hTL), GC_ERR_INVALID_HANDLE);
    EXPECT_FALSE(destroyed);

    // As if TLOpen had succeeded; the system's close fails.
    GenTL::g_isSystemOpen = true;
    system->result = GC_ERR_IO;
    EXPECT_EQ(TLClose(hTL), GC_ERR_IO);
    Forget(hTL);
    EXPECT_TRUE(destroyed);
    EXPECT_FALSE(GenTL::g_isSystemOpen);
}

} // namespace
