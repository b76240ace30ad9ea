// Facts of devices and adapters, adapter ids, connection, the settings file
// and the action command's ack, on records made by hand and on loopback.
// Discovery itself (the unicast list included), and answers no camera would
// send, run in tests/netns/hal.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "GenTL_KESTA.h"
#include "GvcpTestPeer.h"
#include "api/Error.h"
#include "hal/AdapterHandle.h"
#include "hal/AdapterTable.h"
#include "hal/DiscoveryCollector.h"
#include "hal/HALGev.h"

namespace GenTL {
namespace {

using namespace testing_gvcp;

/// A discovery answer as a camera at 127.0.0.1 would send it.
Bytes DiscoveryAnswer() {
    Bytes ack = Ack(0, gvcp::kDiscoveryAck, 248, 2, Bytes(248, 0));
    std::uint8_t* p = ack.data() + 8;
    const std::size_t n = 248;
    gvcp::PutU16(p, n, 0x0A, 0x024B);
    gvcp::PutU32(p, n, 0x0C, 0x5300000A);
    gvcp::PutU32(p, n, 0x14, 0x00000005); // persistent IP and LLA
    gvcp::PutU32(p, n, 0x24, 0x7F000001);
    gvcp::PutU32(p, n, 0x34, 0xFF000000);
    gvcp::PutU32(p, n, 0x44, 0x7F0000FE);
    std::memset(p + 0x48, 'V', 32); // no zero: runs into the model name
    std::memcpy(p + 0x68, "Model", 5);
    std::memcpy(p + 0x88, "1.0", 3);
    std::memcpy(p + 0xD8, "SER1", 4);
    std::memset(p + 0xE8, 'U', 16); // no zero up to the end of the payload
    return ack;
}

class HALGevFactsTest : public ::testing::Test {
protected:
    HALGevFactsTest() : m_hal("/nonexistent/KestaGentl.cfg") {
        m_adapter = new AdapterHandle();
        m_adapter->localAddress.sin_family = AF_INET;
        m_adapter->localAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        m_adapter->adapterId = m_adapter->id = "024b53000001";
        const Bytes answer = DiscoveryAnswer();
        m_adapter->deviceList.push_back(
            MakeDeviceData(m_adapter->localAddress, answer.data(), answer.size(), false));
        m_device = new DeviceHandle();
        m_device->discoveryPayload = m_adapter->deviceList[0].discoveryPayload;
    }
    ~HALGevFactsTest() override {
        m_hal.CloseDevice(ToOpaque(m_device));
        m_hal.CloseInterface(ToOpaque(m_adapter));
    }
    void* Adapter() { return ToOpaque(m_adapter); }
    void* Device() { return ToOpaque(m_device); }

    HALGev m_hal;
    AdapterHandle* m_adapter;
    DeviceHandle* m_device;
};

TEST_F(HALGevFactsTest, DeviceFactsByHandleAndById) {
    EXPECT_EQ("SER1", m_adapter->deviceList[0].id);
    std::string text;
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal.GetVendorName(Device(), text));
    EXPECT_EQ(std::string(32, 'V') + "Model", text);
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal.GetUserDefinedName(Adapter(), "SER1", text));
    EXPECT_EQ(std::string(16, 'U'), text);

    long value = 0;
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal.GetDevMACAddress(Device(), value));
    EXPECT_EQ(0x024B5300000Al, value);
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal.GetDevMACAddress(Adapter(), "SER1", value));
    EXPECT_EQ(0x024B5300000Al, value);
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal.GetDevSubnetMask(Adapter(), "SER1", value));
    EXPECT_EQ(0xFF000000l, value);

    // 0x00000005 on the wire: by handle the first byte's bits (all clear on
    // a little-endian machine), by id the number's bits.
    bool on = true;
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal.GetDevIpConfigPersistentIp(Device(), on));
    EXPECT_FALSE(on);
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal.GetDevIpConfigDHCP(Device(), on));
    EXPECT_FALSE(on);
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal.GetDevIpConfigPersistentIp(Adapter(), "SER1", on));
    EXPECT_TRUE(on);
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal.GetDevIpConfigDHCP(Adapter(), "SER1", on));
    EXPECT_FALSE(on);

    EXPECT_EQ(GC_ERR_INVALID_ID, m_hal.GetModelName(Adapter(), "SER", text));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_hal.GetModelName(nullptr, text));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_hal.GetDevIPAddress(nullptr, "SER1", value));
}

TEST(AdapterTableTest, FurtherAddressesOfOneAdapterGetSuffixes) {
    std::vector<AdapterData> table;
    const auto add = [&table](const std::string& base) {
        AdapterData row;
        row.id = AdapterTable::NextId(table, base);
        table.push_back(row);
        return row.id;
    };
    EXPECT_EQ("aabbccddeeff", add("aabbccddeeff"));
    EXPECT_EQ("001122334455", add("001122334455"));
    EXPECT_EQ("aabbccddeeff:1", add("aabbccddeeff"));
    EXPECT_EQ("aabbccddeeff:2", add("aabbccddeeff"));
    const unsigned char mac[6] = {0x02, 0x4B, 0x53, 0x00, 0xAB, 0xFF};
    EXPECT_EQ("024b5300abff", AdapterTable::HexMac(mac));
}

TEST_F(HALGevFactsTest, OpenDeviceAimsAtTheDiscoveredAddressAndTakesOverRequestIds) {
    m_adapter->requestId = 500;
    m_hal.SetGvcpRetries(5);
    void* device = nullptr;
    ASSERT_EQ(GC_ERR_SUCCESS, m_hal.OpenDevice(Adapter(), "SER1", &device));
    DeviceHandle* opened = AsDevice(device);
    EXPECT_EQ("SER1", opened->id);
    EXPECT_EQ(500u, opened->requestId);
    EXPECT_EQ(6u, opened->timeoutLimit);
    EXPECT_FALSE(opened->connected);
    unsigned short port = 0;
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal.GetDevPort(device, port));
    EXPECT_EQ(3956, port);
    EXPECT_EQ(htonl(INADDR_LOOPBACK), opened->socket->RemoteAddress().sin_addr.s_addr);
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal.CloseDevice(device));

    EXPECT_EQ(GC_ERR_INVALID_ID, m_hal.OpenDevice(Adapter(), "SER2", &device));
    // The tick frequency of a device that is not open is not delivered.
    unsigned long frequency = 7;
    EXPECT_EQ(GC_ERR_IO, m_hal.GetTimestampTickFrequency(Adapter(), "SER1", frequency));
    EXPECT_EQ(7u, frequency);
    EXPECT_EQ(GC_ERR_INVALID_ID, m_hal.GetTimestampTickFrequency(Adapter(), "nope", frequency));
}

TEST(HALGevSettingsTest, TimeoutFromTheFileOutranksTheDevice) {
    const std::string path = "/tmp/kesta-hal-settings-" + std::to_string(::getpid()) + ".cfg";
    std::ofstream(path) << "gvcp.timeout 300\ngvcp.maxRetries 2\n";
    HALGev hal(path);
    std::remove(path.c_str());
    unsigned long retries = 0;
    hal.GetGvcpRetries(retries);
    EXPECT_EQ(2u, retries);

    ScriptedPeer peer([](const Bytes&, int) { return std::vector<Reply>{}; });
    DeviceHandle* device = MakeLoopbackDevice(peer.Port(), 300, 3);
    EXPECT_EQ(GC_ERR_SUCCESS, hal.SetDeviceTimeout(ToOpaque(device), 50));
    int former = 0;
    device->socket->SetTimeout(300, former);
    EXPECT_EQ(300, former);
    hal.CloseDevice(ToOpaque(device));

    HALGev plain("/nonexistent/KestaGentl.cfg");
    device = MakeLoopbackDevice(peer.Port(), 200, 3);
    EXPECT_EQ(GC_ERR_SUCCESS, plain.SetDeviceTimeout(ToOpaque(device), 1000));
    device->socket->SetTimeout(200, former);
    EXPECT_EQ(1000, former);
    plain.CloseDevice(ToOpaque(device));
}

TEST(HALGevOneShotTest, ActionCommandAckIsJudgedAndTheSocketKeeps2s) {
    ScriptedPeer peer([](const Bytes& request, int index) -> std::vector<Reply> {
        const std::uint16_t id = RequestIdOf(request);
        if (index == 0) {
            return {{PendingAck(id, 300)}, {Ack(0, gvcp::kActionAck, 0, id)}};
        }
        return {{Ack(0x8002, gvcp::kActionAck, 0, id)}};
    });
    HALGev hal("/nonexistent/KestaGentl.cfg");
    DeviceHandle* device = MakeLoopbackDevice(peer.Port(), 100, 4);
    EXPECT_EQ(GC_ERR_SUCCESS, hal.SendActionCommand(ToOpaque(device), 1, 2, 3, 0));
    int former = 0;
    device->socket->SetTimeout(100, former);
    EXPECT_EQ(2000, former);
    EXPECT_EQ(GC_ERR_INVALID_VALUE, hal.SendActionCommand(ToOpaque(device), 1, 2, 3, 0));
    const std::vector<Bytes> sent = peer.Received();
    ASSERT_EQ(2u, sent.size());
    EXPECT_EQ(20u, sent[0].size());
    hal.CloseDevice(ToOpaque(device));
}

} // namespace
} // namespace GenTL
