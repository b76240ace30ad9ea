// The register and memory transactions of HALGev against a scripted peer on
// 127.0.0.1: what no simulated camera sends (pending acks of zero, floods of
// stale or garbled acks, acks of the wrong length or code), the timeout
// count across transactions, and a send that fails. The bytes on the wire,
// padding, retries at the timeout and status mapping are checked against
// simulated cameras in tests/netns/hal.
#include <gtest/gtest.h>

#include <cstring>

#include "GenTL_KESTA.h"
#include "GvcpTestPeer.h"
#include "api/Error.h"
#include "hal/HALGev.h"

namespace GenTL {
namespace {

using namespace testing_gvcp;

constexpr int kSocketTimeoutMs = 100;

class HALGevTransactionTest : public ::testing::Test {
protected:
    HALGevTransactionTest() : m_hal("/nonexistent/KestaGentl.cfg") {}

    void Start(ScriptedPeer::Script script, std::uint64_t timeoutLimit = 4) {
        m_peer.reset(new ScriptedPeer(std::move(script)));
        m_device = MakeLoopbackDevice(m_peer->Port(), kSocketTimeoutMs, timeoutLimit);
        ErrorCache::GetErrorCache()->Clear();
    }
    void TearDown() override {
        if (m_device != nullptr) {
            m_hal.CloseDevice(ToOpaque(m_device));
        }
        m_peer.reset();
    }
    void* Device() { return ToOpaque(m_device); }
    int CurrentTimeout() {
        int former = 0;
        m_device->socket->SetTimeout(kSocketTimeoutMs, former);
        return former;
    }

    HALGev m_hal;
    std::unique_ptr<ScriptedPeer> m_peer;
    DeviceHandle* m_device = nullptr;
};

/// A peer that answers every register read with value and every write as
/// done, echoing the request id.
ScriptedPeer::Script GoodRegisters(std::uint32_t value) {
    return [value](const Bytes& request, int) -> std::vector<Reply> {
        const std::uint16_t id = RequestIdOf(request);
        switch (gvcp::GetU16(request.data(), request.size(), 2)) {
        case gvcp::kReadRegCmd: {
            const std::uint16_t length = gvcp::GetU16(request.data(), request.size(), 4);
            Bytes values;
            for (std::uint16_t i = 0; i < length / 4; ++i) {
                const Bytes word = Word(value + i);
                values.insert(values.end(), word.begin(), word.end());
            }
            return {{Ack(0, gvcp::kReadRegAck, length, id, values)}};
        }
        case gvcp::kWriteRegCmd:
            return {{Ack(0, gvcp::kWriteRegAck, 4, id, Word(1))}};
        default:
            return {};
        }
    };
}

TEST_F(HALGevTransactionTest, BlockCountsBeyondTheCommandBufferAreRefused) {
    Start(GoodRegisters(1));
    std::vector<unsigned> values(137);
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal.ReadRegBlock(Device(), 0, values.data(), 136));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, m_hal.ReadRegBlock(Device(), 0, values.data(), 137));
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal.WriteRegBlock(Device(), 0, values.data(), 68));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, m_hal.WriteRegBlock(Device(), 0, values.data(), 69));
    EXPECT_EQ(2, m_peer->Count());
}

// The simulated camera takes a command with bytes to spare; a stricter one may not.
TEST_F(HALGevTransactionTest, MemoryCommandsCarryNoByteTooMany) {
    Start([](const Bytes&, int) { return std::vector<Reply>{}; });
    m_hal.SetGvcpRetries(0);
    char data[5] = {};
    EXPECT_EQ(GC_ERR_TIMEOUT, m_hal.ReadMem(Device(), 0x40, data, sizeof data));
    EXPECT_EQ(GC_ERR_TIMEOUT, m_hal.WriteMem(Device(), 0x40, data, sizeof data));
    const std::vector<Bytes> sent = m_peer->Received();
    ASSERT_EQ(2u, sent.size());
    EXPECT_EQ(16u, sent[0].size());
    EXPECT_EQ(8u, gvcp::GetU16(sent[0].data(), sent[0].size(), 14)) << "the padded count";
    EXPECT_EQ(12u + 8u, sent[1].size());
}

TEST_F(HALGevTransactionTest, TimeoutsCountAcrossTransactionsUntilAnyDatagram) {
    // Two timeouts per transaction with one retry; an answer resets the count.
    Start(
        [](const Bytes& request, int index) -> std::vector<Reply> {
            if (index == 4) {
                return {{Ack(0, gvcp::kReadRegAck, 4, RequestIdOf(request), Word(1))}};
            }
            return {};
        },
        3);
    m_hal.SetGvcpRetries(1);
    unsigned value = 0;
    EXPECT_EQ(GC_ERR_TIMEOUT, m_hal.ReadReg(Device(), 0, value));
    bool connected = false;
    m_hal.IsConnected(Device(), connected);
    EXPECT_TRUE(connected);
    EXPECT_EQ(GC_ERR_TIMEOUT, m_hal.ReadReg(Device(), 0, value));
    m_hal.IsConnected(Device(), connected);
    EXPECT_FALSE(connected);
    // A good ack does not raise it again, but resets the count.
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal.ReadReg(Device(), 0, value));
    m_hal.IsConnected(Device(), connected);
    EXPECT_FALSE(connected);
    EXPECT_EQ(0u, m_device->timeoutCount);
}

TEST_F(HALGevTransactionTest, StaleAcksAreWaitedPastWithoutResend) {
    Start([](const Bytes& request, int) -> std::vector<Reply> {
        const std::uint16_t id = RequestIdOf(request);
        std::vector<Reply> replies;
        // A flood of late answers to earlier requests, some of them garbled.
        for (int i = 0; i < 200; ++i) {
            replies.push_back(
                {Ack(0, gvcp::kReadRegAck, 4, static_cast<std::uint16_t>(id - 1), Word(0xBAD))});
        }
        replies.push_back({Bytes{0x00, 0x01, 0x02}});
        replies.push_back({Ack(0, gvcp::kReadRegAck, 4, id, Word(0x600D))});
        return replies;
    });
    m_hal.SetGvcpRetries(0);
    m_device->requestId = 9;
    unsigned value = 0;
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal.ReadReg(Device(), 0x20, value));
    EXPECT_EQ(0x600Du, value);
    EXPECT_EQ(1, m_peer->Count());
}

TEST_F(HALGevTransactionTest, StaleAckAloneEndsInANormalTimeout) {
    Start([](const Bytes& request, int) -> std::vector<Reply> {
        return {{Ack(0, gvcp::kReadRegAck, 4, static_cast<std::uint16_t>(RequestIdOf(request) + 5),
                     Word(1))}};
    });
    m_hal.SetGvcpRetries(1);
    unsigned value = 0;
    EXPECT_EQ(GC_ERR_TIMEOUT, m_hal.ReadReg(Device(), 0x20, value));
    EXPECT_EQ(2, m_peer->Count());
}

TEST_F(HALGevTransactionTest, WriteRegBlockEndsAtOnceOnAnAckOfAnotherId) {
    Start([](const Bytes& request, int) -> std::vector<Reply> {
        return {{Ack(0x8006, gvcp::kWriteRegAck, 4,
                     static_cast<std::uint16_t>(RequestIdOf(request) + 1), Word(0))},
                {Ack(0, gvcp::kWriteRegAck, 4, RequestIdOf(request), Word(1)), 50}};
    });
    const unsigned values[1] = {1};
    EXPECT_EQ(GC_ERR_ACCESS_DENIED, m_hal.WriteRegBlock(Device(), 0x10, values, 1));
}

TEST_F(HALGevTransactionTest, AckWithTheRightIdIsJudgedByStatusAndLength) {
    struct Case {
        bool read;
        std::uint16_t ackCode, status, length;
        int expected;
    };
    const Case cases[] = {
        // ReadReg judges its length the other way round from WriteReg.
        {true, gvcp::kReadRegAck, 0x8003, 4, GC_ERR_INVALID_BUFFER},
        {true, gvcp::kReadRegAck, 0x8003, 0, GC_ERR_INVALID_ADDRESS},
        {true, gvcp::kReadRegAck, 0, 8, GC_ERR_SUCCESS},
        {true, gvcp::kReadRegAck, 0x8016, 0, GC_ERR_TIMEOUT},
        {true, gvcp::kWriteRegAck, 0, 4, -9998}, // wrong ack code
        {false, gvcp::kWriteRegAck, 0x8006, 4, GC_ERR_ACCESS_DENIED},
        {false, gvcp::kWriteRegAck, 0x8006, 0, GC_ERR_INVALID_BUFFER},
        {false, gvcp::kWriteRegAck, 0, 0, GC_ERR_INVALID_BUFFER},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.read << " " << c.status << " " << c.length);
        Start([c](const Bytes& request, int) -> std::vector<Reply> {
            return {{Ack(c.status, c.ackCode, c.length, RequestIdOf(request), Bytes(8, 0x11))}};
        });
        m_hal.SetGvcpRetries(1);
        unsigned value = 0x1234;
        const int rc =
            c.read ? m_hal.ReadReg(Device(), 0x30, value) : m_hal.WriteReg(Device(), 0x30, 1);
        EXPECT_EQ(c.expected, rc);
        EXPECT_EQ(0x1234u, value) << "an ack of the wrong length delivers nothing";
        // Only a timeout status is resent.
        EXPECT_EQ(c.expected == GC_ERR_TIMEOUT ? 2 : 1, m_peer->Count());
        m_hal.CloseDevice(ToOpaque(m_device));
        m_device = nullptr;
    }
}

TEST_F(HALGevTransactionTest, ShortLongAndGarbledAcksNeverReadPastTheBuffer) {
    // Short: 3 bytes; long: 4000 bytes of noise with a good-looking header;
    // garbled: a pending ack code with the wrong id.
    Start([](const Bytes& request, int index) -> std::vector<Reply> {
        const std::uint16_t id = RequestIdOf(request);
        switch (index) {
        case 0:
            return {{Bytes{0xFF, 0xFF, 0xFF}}};
        case 1: {
            Bytes huge = Ack(0, gvcp::kReadMemAck, 0xFFFF, id);
            huge.resize(4000, 0x5A);
            return {{huge}};
        }
        default:
            return {{PendingAck(static_cast<std::uint16_t>(id + 1), 150)}};
        }
    });
    m_hal.SetGvcpRetries(0);
    unsigned value = 0;
    EXPECT_EQ(GC_ERR_TIMEOUT, m_hal.ReadReg(Device(), 0, value));
    char data[16] = {};
    EXPECT_EQ(GC_ERR_INVALID_BUFFER, m_hal.ReadMem(Device(), 0, data, sizeof data));
    // A pending ack for another request still sets the promised timeout, and
    // it is put back when the attempt ends.
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(GC_ERR_TIMEOUT, m_hal.WriteReg(Device(), 0, 1));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(140));
    EXPECT_EQ(kSocketTimeoutMs, CurrentTimeout());
}

TEST_F(HALGevTransactionTest, SendFailureMarksTheDeviceDisconnected) {
    Start(GoodRegisters(1));
    m_hal.CloseSocket(Device());
    EXPECT_EQ(GC_ERR_IO, m_hal.WriteReg(Device(), 0x10, 1));
    bool connected = true;
    m_hal.IsConnected(Device(), connected);
    EXPECT_FALSE(connected);
    unsigned value = 0;
    EXPECT_EQ(GC_ERR_IO, m_hal.ReadReg(Device(), 0x10, value));
    EXPECT_EQ(0, m_peer->Count());
}

} // namespace
} // namespace GenTL
