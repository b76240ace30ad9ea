// The exported frames over modules of every kind, in process against the
// static library: which operation a call reaches, what a module of the
// wrong kind gets, what the frames add to the error stack, and what the
// close functions delete.

#include <regex>
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

    static bool Stamped(const std::string& message, const std::string& function,
                        const std::string& text) {
        return std::regex_match(message, std::regex(function + "\\(\\):[0-9]+: ([\\s\\S]*)")) &&
               message.substr(message.find(": ") + 2) == text;
    }

private:
    std::set<void*> m_handles;
};

// Dispatch: which module operation each family reaches

TEST_F(Frame, PortFunctionsReachTheOwnPortOfEveryModuleKind) {
    FakeSystem system;
    FakeInterface iface;
    FakeDevice device;
    FakeDataStream stream;
    FakeBuffer buffer;
    const std::vector<std::pair<GenTL::IBaseModule*, std::vector<std::string>*>> modules = {
        {&system, &system.calls},
        {&iface, &iface.calls},
        {&device, &device.calls},
        {&stream, &stream.calls},
        {&buffer, &buffer.calls}};
    for (const auto& [module, calls] : modules) {
        void* h = Handle(module);
        size_t size = 4;
        char data[4] = {};
        int32_t type = 0;
        uint32_t count = 0;
        void* out = nullptr;
        PORT_REGISTER_STACK_ENTRY entry{0, data, sizeof(data)};
        size_t entries = 1;
        EXPECT_EQ(GCReadPort(h, 0x100, data, &size), GC_ERR_SUCCESS);
        EXPECT_EQ(GCWritePort(h, 0x100, data, &size), GC_ERR_SUCCESS);
        EXPECT_EQ(GCGetPortURL(h, nullptr, &size), GC_ERR_SUCCESS);
        EXPECT_EQ(GCGetPortInfo(h, PORT_INFO_ID, &type, nullptr, &size), GC_ERR_SUCCESS);
        EXPECT_EQ(GCRegisterEvent(h, EVENT_NEW_BUFFER, &out), GC_ERR_SUCCESS);
        EXPECT_EQ(GCUnregisterEvent(h, EVENT_NEW_BUFFER), GC_ERR_SUCCESS);
        EXPECT_EQ(GCGetNumPortURLs(h, &count), GC_ERR_SUCCESS);
        EXPECT_EQ(GCGetPortURLInfo(h, 0, URL_INFO_URL, &type, nullptr, &size), GC_ERR_SUCCESS);
        EXPECT_EQ(GCReadPortStacked(h, &entry, &entries), GC_ERR_SUCCESS);
        EXPECT_EQ(GCWritePortStacked(h, &entry, &entries), GC_ERR_SUCCESS);
        EXPECT_EQ(*calls, (std::vector<std::string>{
                              "ReadPort", "WritePort", "GetPortURL", "GetPortInfo", "RegisterEvent",
                              "UnregisterEvent", "GetNumPortURLs", "GetPortURLInfo",
                              "ReadPortStacked", "WritePortStacked"}));
    }
}

TEST_F(Frame, FamiliesReachTheirOperationsAndPassTheirArguments) {
    FakeSystem system;
    FakeInterface iface;
    void* hTL = Handle(&system);
    void* hIface = Handle(&iface);
    void* out = nullptr;

    EXPECT_EQ(TLOpenInterface(hTL, "00aabbccddee", &out), GC_ERR_SUCCESS);
    EXPECT_EQ(system.parentGiven, hTL);

    EXPECT_EQ(IFOpenDevice(hIface, "SN1", DEVICE_ACCESS_CONTROL, &out), GC_ERR_SUCCESS);
    EXPECT_EQ(iface.flagsGiven, DEVICE_ACCESS_CONTROL);
    EXPECT_EQ(iface.parentGiven, hIface);

    // The module's bool comes back as the caller's bool8_t; null stays null.
    bool8_t changed = 0;
    iface.changedAnswer = true;
    EXPECT_EQ(IFUpdateDeviceList(hIface, &changed, 100), GC_ERR_SUCCESS);
    EXPECT_EQ(changed, 1);
    iface.changedAnswer = false;
    EXPECT_EQ(IFUpdateDeviceList(hIface, &changed, 100), GC_ERR_SUCCESS);
    EXPECT_EQ(changed, 0);
    EXPECT_EQ(IFUpdateDeviceList(hIface, nullptr, 100), GC_ERR_SUCCESS);
    EXPECT_TRUE(iface.changedWasNull);
}

// Handles of the wrong kind

TEST_F(Frame, FrameARefusesAWrongKindWithTheBareText) {
    FakeInterface iface;
    FakeDevice device;
    FakeDataStream stream;
    void* hIface = Handle(&iface);
    void* hDev = Handle(&device);
    void* hDS = Handle(&stream);
    int32_t type = 0;
    size_t size = 0;

    EXPECT_EQ(DevGetInfo(hIface, DEVICE_INFO_ID, &type, nullptr, &size), GC_ERR_INVALID_HANDLE);
    auto records = TakeRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].message, "Invalid Handle");

    EXPECT_EQ(EventGetInfo(hDS, EVENT_NUM_FIRED, &type, nullptr, &size), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(DSGetInfo(hDev, STREAM_INFO_ID, &type, nullptr, &size), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(GenTL::DSSetupResendRetryParams(hDev, 3, 25.0, "a", "b", 0, 0),
              GC_ERR_INVALID_HANDLE);

    // A device handle given to DSClose passes the handle test, fails the
    // cast, and stays open.
    EXPECT_EQ(DSClose(hDev), GC_ERR_INVALID_HANDLE);
    EXPECT_TRUE(device.calls.empty());
    EXPECT_EQ(GenTL::CheckHandle(hDev), GC_ERR_SUCCESS);
    EXPECT_TRUE(iface.calls.empty());
    EXPECT_TRUE(stream.calls.empty());
}

TEST_F(Frame, FrameBRefusesAWrongKindWithAStampedCastText) {
    FakeSystem system;
    FakeDevice device;
    void* hTL = Handle(&system);
    void* hDev = Handle(&device);
    int32_t type = 0;
    size_t size = 0;

    EXPECT_EQ(IFGetInfo(hDev, INTERFACE_INFO_ID, &type, nullptr, &size), GC_ERR_INVALID_HANDLE);
    auto records = TakeRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_TRUE(Stamped(records[0].message, "IFGetInfo", "failed to cast hIface to IInterface*"))
        << records[0].message;

    EXPECT_EQ(TLGetInfo(hDev, TL_INFO_ID, &type, nullptr, &size), GC_ERR_INVALID_HANDLE);
    records = TakeRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_TRUE(Stamped(records[0].message, "TLGetInfo", "failed to cast hTL to ISystem*"));

    EXPECT_EQ(GenTL::IFForceIp(hTL, 1, 2, 3, 4), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(IFClose(hTL), GC_ERR_INVALID_HANDLE);
    EXPECT_TRUE(system.calls.empty());
    EXPECT_TRUE(device.calls.empty());
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
    auto records = TakeRecords();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_TRUE(
        Stamped(records[0].message, "DSQueueBuffer", "GenTL::GC_ERR_INVALID_HANDLE(-1006)"));
    EXPECT_EQ(records[1].message, "failed to cast handle to a GenTLHandle*");

    // A live handle of another kind as the buffer, or as the stream.
    EXPECT_EQ(DSQueueBuffer(hDS, hDev), GC_ERR_INVALID_HANDLE);
    records = TakeRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].message, "Invalid Handle");
    EXPECT_EQ(DSGetBufferInfo(hBuf, hBuf, BUFFER_INFO_SIZE, &type, nullptr, &size),
              GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(stream.calls, (std::vector<std::string>{"QueueBuffer", "GetBufferInfo"}));
}

// What the frames add to a module's failure

TEST_F(Frame, FrameAPassesAModuleFailureAsItIsAndFrameBChainsIt) {
    FakeDevice device;
    FakeInterface iface;
    device.result = GC_ERR_INVALID_INDEX;
    iface.result = GC_ERR_NOT_AVAILABLE;
    device.report = iface.report = true;
    int32_t type = 0;
    size_t size = 0;
    EXPECT_EQ(DevGetInfo(Handle(&device), 77, &type, nullptr, &size), GC_ERR_INVALID_INDEX);
    auto records = TakeRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_TRUE(Stamped(records[0].message, "Call", "fake GetInfo failed"));

    GC_ERROR code = 0;
    EXPECT_EQ(IFGetInfo(Handle(&iface), INTERFACE_INFO_ID, &type, nullptr, &size),
              GC_ERR_NOT_AVAILABLE);
    records = TakeRecords(&code);
    EXPECT_EQ(code, GC_ERR_NOT_AVAILABLE);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_TRUE(Stamped(records[0].message, "IFGetInfo", "GenTL::GC_ERR_NOT_AVAILABLE(-1014)"));
    EXPECT_TRUE(Stamped(records[1].message, "Call", "fake GetInfo failed"));
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
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].code, GC_ERR_IO);
    EXPECT_TRUE(Stamped(records[0].message, "IFClose",
                        "The interface became in unknown state; call "
                        "GenTL::TLOpenInterface() to reinitialize the interface"));
    EXPECT_TRUE(Stamped(records[1].message, "IFClose", "GenTL::GC_ERR_IO(-1010)"));
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
    void* hIface = Handle(&iface);
    EXPECT_EQ(TLClose(hIface), GC_ERR_INVALID_HANDLE);
    auto records = TakeRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].message, "failed to cast hTL to ISystem*");

    bool destroyed = false;
    auto* system = new FakeSystem;
    system->destroyed = &destroyed;
    void* hTL = Handle(system);
    EXPECT_EQ(TLClose(hTL), GC_ERR_INVALID_HANDLE);
    records = TakeRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_TRUE(Stamped(records[0].message, "TLClose",
                        "GenTL::TLOpen() must be called before calling GenTL::TLClose()"));
    EXPECT_FALSE(destroyed);

    // As if TLOpen had succeeded; the system's close fails.
    GenTL::g_isSystemOpen = true;
    system->result = GC_ERR_IO;
    EXPECT_EQ(TLClose(hTL), GC_ERR_IO);
    Forget(hTL);
    EXPECT_TRUE(destroyed);
    EXPECT_FALSE(GenTL::g_isSystemOpen);
    records = TakeRecords();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_TRUE(Stamped(records[0].message, "TLClose",
                        "The system became in unknown state; call GenTL::GCInitLib() to "
                        "reinitialize the library"));
}

} // namespace
