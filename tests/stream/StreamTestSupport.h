#pragma once
// Shared fixtures of the stream tests, with no traffic at all:
//  - a state machine with a few announced buffers;
//  - Packet: a GVSP datagram in either header form;
//  - FakeStreamSocket: the stream socket. Its unicast open binds on
//    127.0.0.1 (so that it has a real local address and port); multicast
//    opens and sends are only recorded, and it receives what the link holds;
//  - StreamBed: one camera behind the fake control layer, whose test packet
//    (a write of SCPS with the fire bit) reaches the link when it fits the
//    link's MTU, and the GVSP layer under test;
//  - FakeGvsp: the GVSP layer's side of a stream, scripted.
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <gtest/gtest.h>

#include "CachedError.h"
#include "FakeHALGev.h"
#include "GenTL_KESTA.h"
#include "api/GenTLHandle.h"
#include "hal/DeviceHandle.h"
#include "hal/SocketHelper.h"
#include "stream/Buffer.h"
#include "stream/BufferStateMachineGev.h"
#include "stream/HALGvspUDP.h"
#include "stream/IHALGvspUDP.h"

namespace StreamTest {

using kesta::test::CachedError;
using kesta::test::ErrorCacheTest;

inline GenTL::Buffer* BufferOf(void* handle) {
    return GenTL::CastHandleToBufferPtr(handle);
}

inline int StateOf(void* handle) {
    return BufferOf(handle)->state;
}

/// A state machine with `count` buffers of its own memory, announced.
class StateMachineTest : public ErrorCacheTest {
public:
    void Announce(int count, unsigned long size = 64) {
        for (int i = 0; i < count; ++i) {
            void* handle = nullptr;
            ASSERT_EQ(sm.AllocAndAnnounceBuffer(size, reinterpret_cast<void*>(0x1000 + i), &handle,
                                                nullptr),
                      GC_ERR_SUCCESS);
            handles.push_back(handle);
        }
    }
    void QueueAll() {
        for (void* h : handles) {
            ASSERT_EQ(sm.QueueBufferToInput(h), GC_ERR_SUCCESS);
        }
    }
    /// One block as a grab loop runs it: take a buffer, stamp the block id,
    /// deliver it under the handling mode. False when starved.
    bool ProduceBlock(std::uint64_t blockId, long mode) {
        sm.RequeOldestBufferIfNeeded(mode);
        bool dummyInUse = false;
        GenTL::GenTLHandle* h = sm.PopNextBuffer(nullptr, dummyInUse);
        if (h == nullptr) {
            return false;
        }
        {
            GenTL::Buffer* b = BufferOf(h);
            boost::lock_guard<boost::mutex> lock(b->m_mutex);
            b->frameId = blockId;
            b->isNewData = true;
        }
        if (mode == GenTL::NewestOnly && sm.GetOutputBufferQueueSize() > 0) {
            sm.FlushQueue(ACQ_QUEUE_OUTPUT_TO_INPUT, mode, true);
        }
        EXPECT_EQ(sm.QueueBufferToOutput(h), GC_ERR_SUCCESS);
        return true;
    }

    GenTL::BufferStateMachineGev sm;
    std::vector<void*> handles;
};

/// One GVSP datagram, built big-endian field by field.
class Packet {
public:
    Packet(bool extended, std::uint8_t format, std::uint64_t blockId, std::uint32_t packetId,
           std::uint16_t status = 0) {
        Put16(status);
        if (extended) {
            Put16(0);
            Put32(0x80000000U | (std::uint32_t{format} << 24));
            Put64(blockId);
            Put32(packetId);
        } else {
            Put16(static_cast<std::uint16_t>(blockId));
            Put32((std::uint32_t{format} << 24) | (packetId & 0xFFFFFF));
        }
    }
    Packet& Put16(std::uint16_t v) { return PutBytes(v, 2); }
    Packet& Put32(std::uint32_t v) { return PutBytes(v, 4); }
    Packet& Put64(std::uint64_t v) { return PutBytes(v, 8); }
    Packet& Fill(std::size_t n, std::uint8_t value) {
        bytes.insert(bytes.end(), n, value);
        return *this;
    }
    const char* data() const { return reinterpret_cast<const char*>(bytes.data()); }
    unsigned long size() const { return bytes.size(); }

    std::vector<std::uint8_t> bytes;

private:
    Packet& PutBytes(std::uint64_t v, int n) {
        for (int i = n - 1; i >= 0; --i) {
            bytes.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
        }
        return *this;
    }
};

/// Datagrams that the camera sent towards the stream socket: their sizes.
struct FakeStreamLink {
    unsigned mtu = 1500;
    bool socketOpen = false;
    std::deque<unsigned> pending;
};

class FakeStreamSocket : public GenTL::OverlappedSocket {
public:
    explicit FakeStreamSocket(FakeStreamLink& link) : m_link(link) {}

    int OpenAndBindSocket(sockaddr_in local) override {
        local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const int rc = GenTL::OverlappedSocket::OpenAndBindSocket(local);
        m_link.socketOpen = rc == GC_ERR_SUCCESS;
        return rc;
    }
    int OpenAndBindSocketForMulticast(sockaddr_in, int group) override {
        joinedGroup = static_cast<std::uint32_t>(group);
        m_link.socketOpen = true;
        return GC_ERR_SUCCESS;
    }
    int OpenAndBindSocketForMulticastListening(sockaddr_in, int group,
                                               unsigned short port) override {
        joinedGroup = static_cast<std::uint32_t>(group);
        listenerPort = port;
        m_link.socketOpen = true;
        return GC_ERR_SUCCESS;
    }
    int Send(const char*, int, sockaddr_in) override {
        ++sent;
        return GC_ERR_SUCCESS;
    }
    int GetNextResult(char*, int length, int& received, int timeoutMs) override {
        timeouts.push_back(timeoutMs);
        lengths.push_back(length);
        if (m_link.pending.empty()) {
            return GC_ERR_TIMEOUT;
        }
        received = static_cast<int>(m_link.pending.front());
        m_link.pending.pop_front();
        return GC_ERR_SUCCESS;
    }
    int AcceptOnlyFrom(in_addr) override { return GC_ERR_SUCCESS; }
    int Close() override {
        m_link.socketOpen = false;
        m_link.pending.clear();
        return GenTL::OverlappedSocket::Close();
    }

    std::size_t sent = 0; // the firewall openings of the message channel
    std::uint32_t joinedGroup = 0;
    unsigned short listenerPort = 0;
    std::vector<int> timeouts;
    std::vector<int> lengths;

private:
    FakeStreamLink& m_link;
};

/// A GigE Vision 2.0 camera with SCSP and extended ids, 1 GHz ticks, a
/// 1500-byte packet size and its stream source port at 40000.
inline void SetUpCamera(kesta::test::FakeHALGev& hal) {
    hal.SetReg(0x0000, 0x00020000);
    hal.SetReg(0x092C, 0xC0000000);
    hal.SetReg(0x0940, 1000000000);
    hal.SetReg(0x0D04, 1500);
    hal.SetReg(0x0D1C, 40000);
    hal.cameras["cam"].ip = 0xC0A8D50A; // 192.168.213.10, never used as a destination
}

/// The GVSP layer's side of a stream, scripted: records the start and
/// counts leader signals; no packet ever arrives.
class FakeGvsp : public GenTL::IHALGvspUDP {
public:
    int Start(GenTL::IHALGev*, void*, GenTL::StreamStartParams& params) override {
        started = params;
        params.packetSize = 1500;
        params.interPacketExpiry = 45;
        params.bufferExpiry = 90;
        params.resendRetries = 2;
        return startResult;
    }
    int Stop(GenTL::IHALGev*, void*, unsigned, int) override {
        ++stops;
        return GC_ERR_SUCCESS;
    }
    int ConfigureExtendedId(GenTL::IHALGev*, void*, bool legacy, bool& extendedId) override {
        extendedId = !legacy;
        return GC_ERR_SUCCESS;
    }
    int WaitForNextLeader(unsigned long) override { return GC_ERR_TIMEOUT; }
    int ResetWaitForNextLeader() override { return GC_ERR_SUCCESS; }
    int GetNextPacket(char*, int, int&, unsigned long) override { return GC_ERR_TIMEOUT; }
    int GetNextPacket(char*, int, int&, char*, int, int&, unsigned long) override {
        return GC_ERR_TIMEOUT;
    }
    int SetNextLeaderArrived() override {
        ++leaderSignals;
        return GC_ERR_SUCCESS;
    }

    int stops = 0;
    int leaderSignals = 0;
    int startResult = GC_ERR_SUCCESS;
    GenTL::StreamStartParams started;
};

/// One camera behind the fakes, a device handle and the layer under test.
class StreamBed : public ErrorCacheTest {
protected:
    StreamBed() : socket(std::make_shared<FakeStreamSocket>(link)), layer(socket) {
        SetUpCamera(hal);
        hal.onWrite = [this](unsigned address, unsigned& value) {
            if (address == 0x0D04 && (value & 0x80000000u) != 0 && link.socketOpen &&
                (value & 0xFFFF) <= link.mtu) {
                link.pending.push_back(value & 0xFFFF);
            }
            value = address == 0x0D04 ? value & 0x7FFFFFFFu : value;
        };
        // The layer takes the adapter's address from the device's control
        // socket; an unopened one will do, as the stand-in binds on loopback.
        device.socket.reset(new GenTL::CommSocket());
    }
    ~StreamBed() override { socket->Close(); }

    void* Device() { return GenTL::ToOpaque(&device); }

    /// Parameters of a controlling application's unicast stream.
    static GenTL::StreamStartParams Unicast(bool autoNegotiate = false) {
        GenTL::StreamStartParams params;
        params.accessMode = DEVICE_ACCESS_CONTROL;
        params.autoNegotiatePacketSize = autoNegotiate;
        return params;
    }

    FakeStreamLink link;
    kesta::test::FakeHALGev hal;
    std::shared_ptr<FakeStreamSocket> socket;
    GenTL::HALGvspUDP layer;
    GenTL::DeviceHandle device;
};

} // namespace StreamTest
