// The six register and memory transactions of HALGev against a scripted
// peer on 127.0.0.1: bytes on the wire, retries, pending and stale acks,
// status and length judgement, and what a hostile peer can send. Plain
// pending acks and status mapping are also checked in the namespace tests.
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

std::string LastErrorText() {
    Error e;
    if (ErrorCache::GetErrorCache()->Peak(e) != GC_ERR_SUCCESS) {
        return std::string();
    }
    return e.Message();
}

/// The text after the "<function>():<line>: " stamp.
std::string Unstamped(const std::string& text) {
    const std::size_t at = text.find(": ");
    return at == std::string::npos ? text : text.substr(at + 2);
}

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

TEST_F(HALGevTransactionTest, RegisterCommandsGoOutByteForByte) {
    Start(GoodRegisters(0xCAFE0000));
    m_device->requestId = 7;
    unsigned value = 0;
    ASSERT_EQ(GC_ERR_SUCCESS, m_hal.ReadReg(Device(), 0x0A00, value));
    EXPECT_EQ(0xCAFE0000u, value);
    ASSERT_EQ(GC_ERR_SUCCESS, m_hal.WriteReg(Device(), 0x0938, 0x01020304));

    unsigned block[3] = {};
    ASSERT_EQ(GC_ERR_SUCCESS, m_hal.ReadRegBlock(Device(), 0x100, block, 3));
    EXPECT_EQ(0xCAFE0000u, block[0]);
    EXPECT_EQ(0xCAFE0002u, block[2]);
    // Block writes take values already in wire order.
    const unsigned wire[2] = {htonl(0x11223344), htonl(0x55667788)};
    ASSERT_EQ(GC_ERR_SUCCESS, m_hal.WriteRegBlock(Device(), 0x200, wire, 2));

    const std::vector<Bytes> sent = m_peer->Received();
    ASSERT_EQ(4u, sent.size());
    EXPECT_EQ(Bytes({0x42, 0x01, 0x00, 0x80, 0x00, 0x04, 0x00, 0x08, 0x00, 0x00, 0x0A, 0x00}),
              sent[0]);
    EXPECT_EQ(Bytes({0x42, 0x01, 0x00, 0x82, 0x00, 0x08, 0x00, 0x09, 0x00, 0x00, 0x09, 0x38, 0x01,
                     0x02, 0x03, 0x04}),
              sent[1]);
    EXPECT_EQ(Bytes({0x42, 0x01, 0x00, 0x80, 0x00, 0x0C, 0x00, 0x0A, 0,    0,
                     0x01, 0x00, 0,    0,    0x01, 0x04, 0,    0,    0x01, 0x08}),
              sent[2]);
    EXPECT_EQ(Bytes({0x42, 0x01, 0x00, 0x82, 0x00, 0x10, 0x00, 0x0B, 0,    0,    0x02, 0x00,
                     0x11, 0x22, 0x33, 0x44, 0,    0,    0x02, 0x04, 0x55, 0x66, 0x77, 0x88}),
              sent[3]);
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

/// A memory peer over a 1024-byte area.
ScriptedPeer::Script MemoryPeer(std::shared_ptr<Bytes> memory) {
    return [memory](const Bytes& request, int) -> std::vector<Reply> {
        const std::uint16_t id = RequestIdOf(request);
        const std::uint32_t address = gvcp::GetU32(request.data(), request.size(), 8);
        if (gvcp::GetU16(request.data(), request.size(), 2) == gvcp::kReadMemCmd) {
            const std::uint16_t count = gvcp::GetU16(request.data(), request.size(), 14);
            Bytes payload = Word(address);
            payload.insert(payload.end(), memory->begin() + address,
                           memory->begin() + address + count);
            return {
                {Ack(0, gvcp::kReadMemAck, static_cast<std::uint16_t>(count + 4), id, payload)}};
        }
        const std::size_t count = request.size() - 12;
        std::copy(request.begin() + 12, request.end(), memory->begin() + address);
        Bytes payload(4, 0);
        gvcp::PutU16(payload.data(), 4, 2, static_cast<std::uint16_t>(count));
        return {{Ack(0, gvcp::kWriteMemAck, 4, id, payload)}};
    };
}

TEST_F(HALGevTransactionTest, MemoryRoundTripsPaddedAndBounded) {
    auto memory = std::make_shared<Bytes>(1024, 0xEE);
    Start(MemoryPeer(memory));
    for (std::size_t length : {1u, 5u, 536u}) {
        SCOPED_TRACE(length);
        Bytes data(length);
        for (std::size_t i = 0; i < length; ++i) {
            data[i] = static_cast<std::uint8_t>(i * 7 + length);
        }
        ASSERT_EQ(
            GC_ERR_SUCCESS,
            m_hal.WriteMem(Device(), 0x40, reinterpret_cast<const char*>(data.data()), length));
        const Bytes written = m_peer->Received().back();
        ASSERT_EQ(12 + gvcp::Padded(length), written.size());
        EXPECT_EQ(gvcp::Padded(length) + 4, gvcp::GetU16(written.data(), written.size(), 4));
        for (std::size_t i = length; i < gvcp::Padded(length); ++i) {
            EXPECT_EQ(0, written[12 + i]) << "padding is zero";
        }

        // A guard after the caller's bytes must stay untouched.
        Bytes back(length + 4, 0xA5);
        ASSERT_EQ(GC_ERR_SUCCESS,
                  m_hal.ReadMem(Device(), 0x40, reinterpret_cast<char*>(back.data()), length));
        EXPECT_TRUE(std::equal(data.begin(), data.end(), back.begin()));
        EXPECT_EQ(Bytes(4, 0xA5), Bytes(back.begin() + length, back.end()));
        const Bytes asked = m_peer->Received().back();
        EXPECT_EQ(16u, asked.size());
        EXPECT_EQ(gvcp::Padded(length), gvcp::GetU16(asked.data(), asked.size(), 14));
    }
    // Beyond 536 bytes nothing is sent.
    const int sent = m_peer->Count();
    Bytes data(537);
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER,
              m_hal.ReadMem(Device(), 0, reinterpret_cast<char*>(data.data()), 537));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER,
              m_hal.WriteMem(Device(), 0, reinterpret_cast<const char*>(data.data()), 537));
    EXPECT_EQ(sent, m_peer->Count());
}

TEST_F(HALGevTransactionTest, SilentDeviceIsAskedAgainReportedThenDisconnected) {
    HalLogCapture log;
    Start([](const Bytes&, int) { return std::vector<Reply>{}; }, 4);
    m_hal.SetGvcpRetries(3);
    unsigned value = 0x5555;
    EXPECT_EQ(GC_ERR_TIMEOUT, m_hal.ReadReg(Device(), 0x0A00, value));
    EXPECT_EQ(0x5555u, value);
    EXPECT_EQ(4, m_peer->Count());
    EXPECT_EQ("GenTL::HALGev::ReadReg Ack is invalid: -1019 : ", Unstamped(LastErrorText()));
    EXPECT_EQ(0u, LastErrorText().find("ReadReg():"));
    EXPECT_EQ(4, log.CountOf("GenTL::HALGev::ReadReg Receive Failed: -1011"));

    // Four timeouts in a row reach the limit of retries + 1.
    bool connected = true;
    EXPECT_EQ(GC_ERR_SUCCESS, m_hal.IsConnected(Device(), connected));
    EXPECT_FALSE(connected);
    EXPECT_EQ(4u, m_device->timeoutCount);
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
    HalLogCapture log;
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
    EXPECT_TRUE(log.Has("GenTL::HALGev::ReadReg Ack is invalid: reqID Sent: 10, reqID Recv: 9"));
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
    EXPECT_EQ("GenTL::HALGev::ReadReg Ack is invalid: -1019 : address: 0x20, ACK = 0x81, status = "
              "0x0, ack_id = 0x7, length = 0x4",
              Unstamped(LastErrorText()));
}

TEST_F(HALGevTransactionTest, WriteRegBlockEndsAtOnceOnAnAckOfAnotherId) {
    Start([](const Bytes& request, int) -> std::vector<Reply> {
        return {{Ack(0x8006, gvcp::kWriteRegAck, 4,
                     static_cast<std::uint16_t>(RequestIdOf(request) + 1), Word(0))},
                {Ack(0, gvcp::kWriteRegAck, 4, RequestIdOf(request), Word(1)), 50}};
    });
    const unsigned values[1] = {1};
    EXPECT_EQ(GC_ERR_ACCESS_DENIED, m_hal.WriteRegBlock(Device(), 0x10, values, 1));
    EXPECT_EQ(0u, LastErrorText().find("WriteRegBlock():"));
    EXPECT_NE(std::string::npos,
              LastErrorText().find("GenTL::HALGev::WriteRegBlock is invalid: -1019 : "));
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
    HalLogCapture log;
    Start(GoodRegisters(1));
    m_hal.CloseSocket(Device());
    EXPECT_EQ(GC_ERR_IO, m_hal.WriteReg(Device(), 0x10, 1));
    bool connected = true;
    m_hal.IsConnected(Device(), connected);
    EXPECT_FALSE(connected);
    EXPECT_EQ(1, log.CountOf("GenTL::HALGev::WriteReg Send Failed: -1010"));
    EXPECT_EQ("GenTL::HALGev::WriteReg Ack is invalid: -1019 : ", Unstamped(LastErrorText()));
    unsigned value = 0;
    EXPECT_EQ(GC_ERR_IO, m_hal.ReadReg(Device(), 0x10, value));
    EXPECT_EQ(0, m_peer->Count());
}

TEST_F(HALGevTransactionTest, NullHandlesAreRefused) {
    unsigned value = 0;
    char data[4] = {};
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_hal.WriteReg(nullptr, 0, 0));
    EXPECT_EQ("failed to cast hDevice to DeviceHandle*", Unstamped(LastErrorText()));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_hal.ReadRegBlock(nullptr, 0, &value, 1));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, m_hal.ReadMem(nullptr, 0, data, 4));
}

TEST_F(HALGevTransactionTest, OneTransactionAtATimePerDevice) {
    Start(GoodRegisters(3));
    std::vector<std::thread> threads;
    std::atomic<int> failures{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 50; ++i) {
                unsigned value = 0;
                if (m_hal.ReadReg(Device(), 0, value) != GC_ERR_SUCCESS || value != 3) {
                    ++failures;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, failures.load());
    EXPECT_EQ(200, m_peer->Count());
}

} // namespace
} // namespace GenTL
