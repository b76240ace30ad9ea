#pragma once
// Stand-ins for the GVSP layer's tests, with no traffic at all:
//  - FakeGvcpForStream: a control layer with one camera's registers in a
//    map, a log of register writes, failures on demand, and the camera's
//    test packet: a write of SCPS with the fire bit hands a packet of that
//    size to the link when it fits the link's MTU;
//  - FakeStreamSocket: the stream socket. Its unicast open binds on
//    127.0.0.1 (so that it has a real local address and port, and sends
//    nothing); multicast opens, sends and receives are only recorded or
//    served from the link.
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <gtest/gtest.h>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "hal/DeviceHandle.h"
#include "hal/HALGev.h"
#include "hal/SocketHelper.h"
#include "stream/HALGvspUDP.h"
#include "stream/IHALGvspUDP.h"

namespace kesta::test {

/// Datagrams that the camera sent towards the stream socket: their sizes.
struct FakeStreamLink {
    unsigned mtu = 1500;
    bool socketOpen = false;
    std::deque<unsigned> pending;
};

class FakeStreamSocket : public GenTL::OverlappedSocket {
public:
    explicit FakeStreamSocket(FakeStreamLink& link) : m_link(link) {}

    struct Sent {
        std::vector<char> data;
        sockaddr_in to;
    };

    int OpenAndBindSocket(sockaddr_in local) override {
        ++unicastOpens;
        local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (failOpen != GC_ERR_SUCCESS) {
            return failOpen;
        }
        const int rc = GenTL::OverlappedSocket::OpenAndBindSocket(local);
        m_link.socketOpen = rc == GC_ERR_SUCCESS;
        return rc;
    }
    int OpenAndBindSocketForMulticast(sockaddr_in, int group) override {
        ++multicastOpens;
        joinedGroup = static_cast<std::uint32_t>(group);
        m_link.socketOpen = true;
        return GC_ERR_SUCCESS;
    }
    int OpenAndBindSocketForMulticastListening(sockaddr_in, int group,
                                               unsigned short port) override {
        ++listenerOpens;
        joinedGroup = static_cast<std::uint32_t>(group);
        listenerPort = port;
        m_link.socketOpen = true;
        return GC_ERR_SUCCESS;
    }
    int Send(const char* data, int length, sockaddr_in to) override {
        sent.push_back({std::vector<char>(data, data + length), to});
        return failSend;
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
    int Close() override {
        ++closes;
        m_link.socketOpen = false;
        m_link.pending.clear();
        return GenTL::OverlappedSocket::Close();
    }

    int unicastOpens = 0, multicastOpens = 0, listenerOpens = 0, closes = 0;
    int failOpen = GC_ERR_SUCCESS;
    int failSend = GC_ERR_SUCCESS;
    std::uint32_t joinedGroup = 0;
    unsigned short listenerPort = 0;
    std::vector<Sent> sent;
    std::vector<int> timeouts;
    std::vector<int> lengths;

private:
    FakeStreamLink& m_link;
};

/// The real control layer with the register accesses replaced; nothing else
/// of it is used by the GVSP layer.
class FakeGvcpForStream : public GenTL::HALGev {
public:
    struct Access {
        bool write;
        unsigned address;
        unsigned value;
    };

    explicit FakeGvcpForStream(FakeStreamLink& link)
        : GenTL::HALGev("/nonexistent/KestaGentl.cfg"), m_link(link) {
        // A GigE Vision 2.0 camera with SCSP and extended ids, 1 GHz ticks.
        regs[0x0000] = 0x00020000;
        regs[0x092C] = 0xC0000000;
        regs[0x093C] = 0;
        regs[0x0940] = 1000000000;
        regs[0x0D04] = 1500;
        regs[0x0D1C] = 40000;
    }

    std::map<unsigned, unsigned> regs;
    /// Reads or writes of an address fail with the code.
    std::map<unsigned, int> readFailures, writeFailures;
    /// Writes of these addresses succeed and change nothing.
    std::map<unsigned, bool> pinned;
    long deviceIp = 0xC0A8D50A; // 192.168.213.10, never used as a destination
    mutable std::vector<Access> log;

    std::vector<unsigned> WritesTo(unsigned address) const {
        std::vector<unsigned> values;
        for (const Access& a : log) {
            if (a.write && a.address == address) {
                values.push_back(a.value);
            }
        }
        return values;
    }
    std::size_t Writes() const {
        std::size_t n = 0;
        for (const Access& a : log) {
            n += a.write ? 1 : 0;
        }
        return n;
    }
    std::size_t ReadsOf(unsigned address) const {
        std::size_t n = 0;
        for (const Access& a : log) {
            n += !a.write && a.address == address ? 1 : 0;
        }
        return n;
    }

    int ReadReg(void*, unsigned address, unsigned& value) const override {
        log.push_back({false, address, 0});
        const auto failure = readFailures.find(address);
        if (failure != readFailures.end()) {
            return failure->second;
        }
        const auto it = regs.find(address);
        value = it == regs.end() ? 0 : it->second;
        return GC_ERR_SUCCESS;
    }
    int WriteReg(void*, unsigned address, unsigned value) const override {
        log.push_back({true, address, value});
        const auto failure = writeFailures.find(address);
        if (failure != writeFailures.end()) {
            return failure->second;
        }
        auto* self = const_cast<FakeGvcpForStream*>(this);
        if (address == 0x0D04 && (value & 0x80000000u) != 0 && m_link.socketOpen &&
            (value & 0xFFFF) <= m_link.mtu) {
            self->m_link.pending.push_back(value & 0xFFFF);
        }
        if (pinned.count(address) == 0) {
            self->regs[address] = address == 0x0D04 ? value & 0x7FFFFFFFu : value;
        }
        return GC_ERR_SUCCESS;
    }
    int GetDevIPAddress(void*, long& ip) const override {
        ip = deviceIp;
        return GC_ERR_SUCCESS;
    }

    using GenTL::HALGev::GetDevIPAddress;

private:
    FakeStreamLink& m_link;
};

/// The GVSP layer's side of a stream, scripted: records the start and
/// counts leader signals; no packet ever arrives.
class FakeGvsp : public GenTL::IHALGvspUDP {
public:
    int Start(GenTL::IHALGev*, void*, GenTL::StreamStartParams& params) override {
        ++starts;
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
        legacyAsked = legacy;
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

    int starts = 0;
    int stops = 0;
    int leaderSignals = 0;
    int startResult = GC_ERR_SUCCESS;
    bool legacyAsked = false;
    GenTL::StreamStartParams started;
};

/// One camera behind the fakes, a device handle and the layer under test.
class StreamBed : public ::testing::Test {
protected:
    StreamBed() : hal(link), socket(std::make_shared<FakeStreamSocket>(link)), layer(socket) {
        // The layer takes the adapter's address from the device's control
        // socket; an unopened one will do, as the stand-in binds on loopback.
        device.socket.reset(new GenTL::CommSocket());
        GenTL::ErrorCache::GetErrorCache()->Clear();
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

    /// Newest text of the calling thread's error, and the whole stack.
    static GenTL::Error CachedError() {
        GenTL::Error e;
        GenTL::ErrorCache::GetErrorCache()->Peak(e);
        return e;
    }
    static std::string StackText() {
        GenTL::Error e = CachedError();
        std::string all;
        int code = 0;
        std::string name, text;
        while (e.PopError(code, name, text) == GC_ERR_SUCCESS) {
            all += std::to_string(code) + " " + text + "\n";
        }
        return all;
    }

    FakeStreamLink link;
    FakeGvcpForStream hal;
    std::shared_ptr<FakeStreamSocket> socket;
    GenTL::HALGvspUDP layer;
    GenTL::DeviceHandle device;
};

} // namespace kesta::test
