// RemoteDeviceGev against a camera in memory: the URL registers, the
// manifest table and the refusals. (Chunking, the port's endianness and the
// legacy register path are tested against the simulated camera, in
// tests/netns.)
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CachedError.h"
#include "FakeHALGev.h"
#include "GenTL_KESTA.h"
#include "modules/DeviceRemoteGev.h"

namespace {

using GenTL::RemoteDeviceGev;
using kesta::test::CachedError;
using kesta::test::FakeHALGev;

constexpr unsigned kCapWriteMem = 1u << 1;
constexpr unsigned kCapManifest = 1u << 26;

class RemoteDevice : public ::testing::Test {
protected:
    std::unique_ptr<RemoteDeviceGev> Make(unsigned capabilities = kCapWriteMem,
                                          long mechanism = RemoteDeviceGev::kEndiannessStandard,
                                          long access = DEVICE_ACCESS_STATUS_READWRITE) {
        auto port = std::make_unique<RemoteDeviceGev>(&m_hal, m_device, capabilities, mechanism,
                                                      GenTL::PortInfo{}, access);
        m_hal.ClearCalls();
        CachedError::Clear();
        return port;
    }
    void SetUrl(unsigned address, const std::string& text) {
        std::vector<char> field(512, 0);
        std::memcpy(field.data(), text.data(), text.size());
        m_hal.SetBytes(address, field.data(), field.size());
    }

    FakeHALGev m_hal;
    void* m_device = reinterpret_cast<void*>(0x1);
};

TEST_F(RemoteDevice, RefusalsCarryTheirCodesAndTexts) {
    char buffer[8];
    unsigned long size = 4;
    auto port = Make();
    EXPECT_EQ(port->WritePort(0, nullptr, &size), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(port->WritePort(0, buffer, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(port->ReadPort(0, nullptr, &size), GC_ERR_INVALID_PARAMETER);

    auto unknown = Make(kCapWriteMem, 1, DEVICE_ACCESS_STATUS_UNKNOWN);
    EXPECT_EQ(unknown->WritePort(0, buffer, &size), GC_ERR_ABORT);
    EXPECT_EQ(unknown->ReadPort(0, buffer, &size), GC_ERR_ABORT);
    unknown->SetAccessStatus(DEVICE_ACCESS_STATUS_READONLY);
    EXPECT_EQ(unknown->ReadPort(0, buffer, &size), GC_ERR_SUCCESS);

    // GVCP addresses have 32 bits: nothing is cut short or wrapped around.
    m_hal.ClearCalls();
    EXPECT_EQ(port->ReadPort(0x100000000UL, buffer, &size), GC_ERR_INVALID_ADDRESS);
    EXPECT_EQ(port->WritePort(0xFFFFFFFEUL, buffer, &size), GC_ERR_INVALID_ADDRESS);
    size = 2;
    EXPECT_EQ(port->ReadPort(0xFFFFFFFEUL, buffer, &size), GC_ERR_SUCCESS);
    size = 4;

    m_hal.ClearCalls();
    port->SetEndianessMechanism(7);
    EXPECT_EQ(port->ReadPort(0, buffer, &size), GC_ERR_INVALID_ID);
    EXPECT_EQ(port->WritePort(0, buffer, &size), GC_ERR_INVALID_ID);
    EXPECT_TRUE(m_hal.Calls().empty());

    S_PORT_REGISTER_STACK_ENTRY entry{};
    unsigned long count = 1;
    EXPECT_EQ(port->ReadPortStacked(&entry, &count), GC_ERR_NOT_AVAILABLE);
}

TEST_F(RemoteDevice, PortUrlRefusesAShortBufferAndFallsBackToTheSecondRegister) {
    const std::string url = "Local:camera.zip;10000000;4D2";
    SetUrl(GenTL::sk_addrFirstUrl, url);
    SetUrl(GenTL::sk_addrSecondUrl, "Local:second.xml;20000000;10");
    auto port = Make();

    // Too small: refused, and the second register is not tried.
    std::vector<char> text(64, 'x');
    unsigned long size = url.size() + 1;
    EXPECT_EQ(port->GetPortURL(text.data(), &size), GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, url.size() + 2);
    const CachedError e = CachedError::Take();
    EXPECT_NE(e.count, 0u);
    EXPECT_EQ(m_hal.CallsTo("ReadMem").size(), 1u);

    // An unreadable first URL falls back to the second.
    m_hal.Fail(GenTL::sk_addrFirstUrl);
    size = text.size();
    ASSERT_EQ(port->GetPortURL(text.data(), &size), GC_ERR_SUCCESS);
    EXPECT_EQ(std::string(text.data()), "Local:second.xml;20000000;10");
}

TEST_F(RemoteDevice, ManifestEntriesGiveUrlsAndVersions) {
    SetUrl(0x0200, "Local:first.xml;100000;10");
    SetUrl(0xA000, "Local:second.zip;200000;20");
    // Head: two entries. Entry 0: file 1.2.3, schema 1.1; entry 1: file 3.0.0, schema 1.0.
    m_hal.SetReg(GenTL::sk_addrManifestTable, 2u << 26);
    m_hal.SetReg(GenTL::sk_addrManifestTable + 8,
                 1u << 26 | 2u << 20 | 3u << 14 | 1u << 8 | 1u << 2);
    m_hal.SetReg(GenTL::sk_addrManifestTable + 12, 0x0200);
    m_hal.SetReg(GenTL::sk_addrManifestTable + 16, 3u << 26 | 1u << 8);
    m_hal.SetReg(GenTL::sk_addrManifestTable + 20, 0xA000);

    auto none = Make(kCapWriteMem);
    unsigned count = 99;
    ASSERT_EQ(none->GetNumPortURLs(&count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 0u);
    EXPECT_TRUE(m_hal.Calls().empty()); // no manifest capability: not even asked

    auto port = Make(kCapWriteMem | kCapManifest);
    ASSERT_EQ(port->GetNumPortURLs(&count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(m_hal.CallsTo("ReadRegBlock").size(), 3u);

    auto number = [&](unsigned index, int cmd) {
        int type = 0;
        long value = 0; // wide enough for both the 32- and the 64-bit answers
        unsigned long size = sizeof value;
        EXPECT_EQ(port->GetPortURLInfo(index, cmd, &type, &value, &size), GC_ERR_SUCCESS);
        return size == 4 ? static_cast<long>(static_cast<int>(value)) : value;
    };
    EXPECT_EQ(number(0, URL_INFO_FILE_VER_SUBMINOR), 3);
    EXPECT_EQ(number(1, URL_INFO_SCHEMA_VER_MINOR), 0);
    EXPECT_EQ(number(1, URL_INFO_FILE_REGISTER_ADDRESS), 0xA000);

    char text[64] = {};
    int type = 0;
    unsigned long size = sizeof text;
    ASSERT_EQ(port->GetPortURLInfo(1, URL_INFO_URL, &type, text, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(std::string(text), "Local:second.zip;200000;20");

    EXPECT_EQ(port->GetPortURLInfo(2, URL_INFO_URL, &type, text, &size), GC_ERR_INVALID_INDEX);
    EXPECT_EQ(port->GetPortURLInfo(0, URL_INFO_URL, nullptr, text, &size),
              GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(port->GetPortURLInfo(0, 42, &type, text, &size), GC_ERR_INVALID_INDEX);

    unsigned* nothing = nullptr;
    EXPECT_EQ(port->GetNumPortURLs(nothing), GC_ERR_INVALID_PARAMETER);
}

} // namespace
