#include "GvcpServer.h"

#include "GevConstants.h"
#include "Log.h"
#include "Wire.h"

#include <algorithm>
#include <cstdio>
#include <poll.h>

namespace gevsim {

namespace {
constexpr uint16_t kMaxRegisters = (kGvcpMaxDatagram - 8) / 4;

bool sameSubnet(uint32_t a, uint32_t b, uint32_t mask) {
    return (a & mask) == (b & mask);
}

std::string hex(uint32_t v) {
    char s[16];
    std::snprintf(s, sizeof s, "0x%X", v);
    return s;
}
} // namespace

GvcpServer::GvcpServer(std::string name, GvcpHandler& handler, FaultInjector& faults)
    : m_name(std::move(name)), m_handler(handler), m_faults(faults) {}

GvcpServer::~GvcpServer() {
    shutdown();
}

bool GvcpServer::open(std::string& error) {
    // The unicast socket is bound to the camera's address; broadcasts reach
    // every camera of the process through the shared wildcard socket.
    if (!m_unicast.open(m_handler.ip(), kGvcpPort, true, error) ||
        !m_broadcast.open(0, kGvcpPort, true, error))
        return false;
    for (const AckRule& r : m_faults.ackRules()) {
        m_forgers.emplace_back();
        if (r.kind != AckRule::Kind::Forge)
            continue;
        m_forgers.back() = std::make_unique<UdpSocket>();
        if (!m_forgers.back()->open(r.fromIp, r.fromPort, true, error, true))
            return false;
    }
    m_running = true;
    m_thread = std::thread(&GvcpServer::run, this);
    return true;
}

bool GvcpServer::rebind(std::string& error) {
    return m_unicast.open(m_handler.ip(), kGvcpPort, true, error);
}

void GvcpServer::shutdown() {
    m_running = false;
    if (m_thread.joinable())
        m_thread.join();
    m_unicast.close();
    m_broadcast.close();
}

void GvcpServer::run() {
    uint8_t buffer[2048];
    while (m_running) {
        m_handler.tick();
        pollfd p[2] = {{m_unicast.fd(), POLLIN, 0}, {m_broadcast.fd(), POLLIN, 0}};
        if (::poll(p, 2, 10) <= 0)
            continue;
        for (int i = 0; i < 2; ++i) {
            if (!(p[i].revents & POLLIN))
                continue;
            UdpSocket& s = i == 0 ? m_unicast : m_broadcast;
            Endpoint from;
            const long n = s.receive(buffer, sizeof buffer, from.ip, from.port, 0);
            if (n > 0)
                handle(buffer, static_cast<size_t>(n), from, i == 1);
        }
    }
}

void GvcpServer::ackHeader(std::vector<uint8_t>& ack, uint16_t status, uint16_t code,
                           uint16_t length, uint16_t id) {
    ack.assign(8, 0);
    put16(ack, 0, status);
    put16(ack, 2, code);
    put16(ack, 4, length);
    put16(ack, 6, id);
}

void GvcpServer::reply(const Endpoint& to, const std::vector<uint8_t>& ack, bool broadcastAllowed) {
    // A host outside the camera's subnet cannot be reached by unicast; it
    // gets the answer by broadcast when it allowed one.
    const bool reachable = sameSubnet(to.ip, m_handler.ip(), m_handler.netmask());
    if (!reachable && broadcastAllowed)
        m_broadcast.sendTo(0xFFFFFFFF, to.port, ack.data(), ack.size());
    else
        m_unicast.sendTo(to.ip, to.port, ack.data(), ack.size());
}

void GvcpServer::handle(const uint8_t* d, size_t n, const Endpoint& from, bool viaBroadcast) {
    if (n < 8 || d[0] != kGvcpKey || m_handler.silent())
        return;
    const uint8_t flags = d[1];
    const uint16_t command = get16(d, n, 2);
    const uint16_t id = get16(d, n, 6);
    const bool ackRequired = (flags & flag::kAckRequired) != 0;
    Log::write(2, m_name,
               "command " + hex(command) + " id " + std::to_string(id) + " from " +
                   ipToString(from.ip) + ":" + std::to_string(from.port));
    std::vector<uint8_t> ack;

    switch (command) {
    case cmd::kDiscovery: {
        std::vector<uint8_t> payload;
        m_handler.discoveryPayload(payload);
        ackHeader(ack, status::kSuccess, cmd::kDiscoveryAck, static_cast<uint16_t>(payload.size()),
                  id);
        ack.insert(ack.end(), payload.begin(), payload.end());
        Log::write(1, m_name, "discovery from " + ipToString(from.ip));
        reply(from, ack, (flags & flag::kBroadcastAck) != 0);
        return;
    }
    case cmd::kForceIp: {
        if (n < 64)
            return;
        const uint64_t mac = static_cast<uint64_t>(get16(d, n, 10)) << 32 | get32(d, n, 12);
        if (!m_handler.forceIp(mac, get32(d, n, 28), get32(d, n, 44), get32(d, n, 60)))
            return;
        std::string error;
        if (!rebind(error))
            Log::write(0, m_name, "rebind after ForceIP failed: " + error);
        if (ackRequired) {
            ackHeader(ack, status::kSuccess, cmd::kForceIpAck, 0, id);
            reply(from, ack, (flags & flag::kBroadcastAck) != 0);
        }
        return;
    }
    case cmd::kAction: {
        // The length field is not trusted here: some hosts write 0.
        if (n < 20 || !(m_handler.gvcpCapability() & gvcpcap::kAction))
            return;
        ActionCommand action;
        action.deviceKey = get32(d, n, 8);
        action.groupKey = get32(d, n, 12);
        action.groupMask = get32(d, n, 16);
        action.scheduled = (flags & flag::kScheduledAction) != 0;
        action.length = n;
        action.from = from;
        if (action.scheduled) {
            if (n < 28 || !(m_handler.gvcpCapability() & gvcpcap::kScheduledAction))
                return;
            action.time = get64(d, n, 20);
        }
        if (!m_handler.action(action))
            return;
        if (ackRequired) {
            ackHeader(ack, status::kSuccess, cmd::kActionAck, 0, id);
            m_unicast.sendTo(from.ip, from.port, ack.data(), ack.size());
        }
        return;
    }
    case cmd::kPacketResend: {
        if (!(m_handler.gvcpCapability() & gvcpcap::kPacketResend))
            return;
        m_handler.commandSeen(from);
        if (flags & flag::kExtendedId) {
            if (n >= 28)
                m_handler.packetResend(get64(d, n, 20), true, get32(d, n, 12), get32(d, n, 16));
        } else if (n >= 20) {
            m_handler.packetResend(get16(d, n, 10), false, get32(d, n, 12) & 0xFFFFFF,
                                   get32(d, n, 16) & 0xFFFFFF);
        }
        return;
    }
    default:
        break;
    }
    if (viaBroadcast)
        return; // register access by broadcast is not served

    m_handler.commandSeen(from);
    const bool registerCommand = command == cmd::kReadReg || command == cmd::kWriteReg ||
                                 command == cmd::kReadMem || command == cmd::kWriteMem;
    if (!registerCommand) {
        if (ackRequired) {
            ackHeader(ack, status::kNotImplemented, static_cast<uint16_t>(command + 1), 0, id);
            m_unicast.sendTo(from.ip, from.port, ack.data(), ack.size());
        }
        return;
    }

    const uint64_t number = ++m_acks;
    const uint32_t delay = m_faults.ackDelayMs(number);
    if (delay > 0) {
        // A slow reply: announce it with a pending ack when the host enabled
        // them, and take the time before doing the work.
        if (m_handler.pendingAckEnabled()) {
            std::vector<uint8_t> pending;
            ackHeader(pending, status::kSuccess, cmd::kPendingAck, 4, id);
            put16(pending, 10, static_cast<uint16_t>(std::min<uint32_t>(delay * 2 + 50, 0xFFFF)));
            m_unicast.sendTo(from.ip, from.port, pending.data(), pending.size());
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(delay));
    }

    const uint16_t injected = m_faults.ackStatus(number);
    if (injected != 0) {
        const bool write = command == cmd::kWriteReg || command == cmd::kWriteMem;
        ackHeader(ack, injected, static_cast<uint16_t>(command + 1), write ? 4 : 0, id);
        if (write)
            put32(ack, 8, 0);
        Log::write(1, m_name, "fault: ack status " + hex(injected));
    } else if (command == cmd::kReadReg) {
        readReg(d, n, from, ack);
    } else if (command == cmd::kWriteReg) {
        writeReg(d, n, from, ack);
    } else if (command == cmd::kReadMem) {
        readMem(d, n, from, ack);
    } else {
        writeMem(d, n, from, ack);
    }
    put16(ack, 6, id);
    if (m_faults.wrongAckId(number)) {
        const uint16_t wrong = static_cast<uint16_t>(id == 0xFFFF ? 1 : id + 1);
        put16(ack, 6, wrong);
        Log::write(1, m_name,
                   "fault: ack id " + std::to_string(wrong) + " for " + std::to_string(id));
    }
    if (ackRequired)
        deliver(from, get32(d, n, 8), std::move(ack));
}

void GvcpServer::deliver(const Endpoint& to, uint32_t address, std::vector<uint8_t> ack) {
    const uint16_t id = get16(ack.data(), ack.size(), 6);
    const std::vector<AckRule>& rules = m_faults.ackRules();
    for (size_t i = 0; i < rules.size(); ++i) {
        const AckRule& r = rules[i];
        if (!r.hits(address))
            continue;
        std::vector<uint8_t> other;
        switch (r.kind) {
        case AckRule::Kind::Pending:
            ackHeader(other, status::kSuccess, cmd::kPendingAck, 4, id);
            put16(other, 10, static_cast<uint16_t>(r.ms));
            if (!series(to, other, r.count, r.gapMs))
                return;
            break;
        case AckRule::Kind::Stale:
            other = ack;
            put16(other, 6, static_cast<uint16_t>(id == 1 ? 0xFFFF : id - 1));
            if (!series(to, other, r.count, r.gapMs))
                return;
            break;
        case AckRule::Kind::Forge:
            other = ack;
            if (other.size() > 8)
                std::fill(other.begin() + 8, other.end(), 0xEE);
            m_forgers[i]->sendTo(to.ip, to.port, other.data(), other.size());
            Log::write(1, m_name, "fault: forged ack from " + ipToString(r.fromIp));
            break;
        case AckRule::Kind::Cut:
            ack.resize(std::min<size_t>(ack.size(), r.bytes));
            break;
        case AckRule::Kind::Lose:
            Log::write(1, m_name, "fault: ack for " + hex(address) + " lost");
            return;
        }
    }
    m_unicast.sendTo(to.ip, to.port, ack.data(), ack.size());
}

bool GvcpServer::series(const Endpoint& to, const std::vector<uint8_t>& datagram, uint32_t count,
                        uint32_t gapMs) {
    using Clock = std::chrono::steady_clock;
    for (uint32_t sent = 0; count == 0 || sent < count; ++sent) {
        m_unicast.sendTo(to.ip, to.port, datagram.data(), datagram.size());
        const auto end = Clock::now() + std::chrono::milliseconds(gapMs);
        // Short polls, so that a shutdown is seen at once.
        while (Clock::now() < end) {
            if (!m_running)
                return false;
            pollfd p{m_unicast.fd(), POLLIN, 0};
            if (::poll(&p, count == 0 ? 1 : 0, 5) > 0)
                return false;
        }
    }
    return m_running;
}

void GvcpServer::readReg(const uint8_t* d, size_t n, const Endpoint& from,
                         std::vector<uint8_t>& ack) {
    const size_t count = (std::min<size_t>(get16(d, n, 4), n - 8)) / 4;
    const bool concatenation = m_handler.gvcpCapability() & gvcpcap::kConcatenation;
    uint16_t st = status::kSuccess;
    if (count == 0 || count > kMaxRegisters || (count > 1 && !concatenation))
        st = status::kInvalidParameter;
    std::vector<uint8_t> values;
    for (size_t i = 0; st == status::kSuccess && i < count; ++i) {
        uint8_t v[4];
        st = m_handler.readMemory(from, get32(d, n, 8 + 4 * i), v, 4);
        if (st == status::kSuccess)
            values.insert(values.end(), v, v + 4);
    }
    // On an error the registers read before it are still returned.
    ackHeader(ack, st, cmd::kReadRegAck, static_cast<uint16_t>(values.size()), 0);
    ack.insert(ack.end(), values.begin(), values.end());
}

void GvcpServer::writeReg(const uint8_t* d, size_t n, const Endpoint& from,
                          std::vector<uint8_t>& ack) {
    const size_t count = (std::min<size_t>(get16(d, n, 4), n - 8)) / 8;
    const bool concatenation = m_handler.gvcpCapability() & gvcpcap::kConcatenation;
    uint16_t st = status::kSuccess;
    if (count == 0 || count > kMaxRegisters / 2 || (count > 1 && !concatenation))
        st = status::kInvalidParameter;
    size_t done = 0;
    for (; st == status::kSuccess && done < count; ++done) {
        st = m_handler.writeRegister(from, get32(d, n, 8 + 8 * done), get32(d, n, 12 + 8 * done));
        if (st != status::kSuccess)
            break;
    }
    // The index tells how many registers were written.
    ackHeader(ack, st, cmd::kWriteRegAck, 4, 0);
    put32(ack, 8, static_cast<uint32_t>(done));
}

void GvcpServer::readMem(const uint8_t* d, size_t n, const Endpoint& from,
                         std::vector<uint8_t>& ack) {
    const uint32_t address = get32(d, n, 8);
    const uint16_t count = get16(d, n, 14);
    uint16_t st = status::kSuccess;
    if (n < 16 || count == 0 || count % 4 != 0 || count > kMaxMemAccess)
        st = status::kInvalidParameter;
    std::vector<uint8_t> data(st == status::kSuccess ? count : 0);
    if (st == status::kSuccess)
        st = m_handler.readMemory(from, address, data.data(), data.size());
    if (st != status::kSuccess)
        data.clear();
    ackHeader(ack, st, cmd::kReadMemAck, static_cast<uint16_t>(4 + data.size()), 0);
    put32(ack, 8, address);
    ack.insert(ack.end(), data.begin(), data.end());
}

void GvcpServer::writeMem(const uint8_t* d, size_t n, const Endpoint& from,
                          std::vector<uint8_t>& ack) {
    const uint32_t address = get32(d, n, 8);
    const size_t length = std::min<size_t>(get16(d, n, 4), n - 8);
    uint16_t st = status::kSuccess;
    size_t written = 0;
    if (!(m_handler.gvcpCapability() & gvcpcap::kWriteMem))
        st = status::kNotImplemented;
    else if (length < 8 || (length - 4) % 4 != 0 || length - 4 > kMaxMemAccess)
        st = status::kInvalidParameter;
    else
        st = m_handler.writeMemory(from, address, d + 12, length - 4, written);
    ackHeader(ack, st, cmd::kWriteMemAck, 4, 0);
    put32(ack, 8, static_cast<uint32_t>(written));
}

} // namespace gevsim
