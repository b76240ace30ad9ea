#include "GevClient.h"

#include "../hal/NetnsSupport.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

#include <gtest/gtest.h>

namespace gevtest {

TestBed TestBed::fromEnvironment() {
    using namespace kesta_netns;
    TestBed bed;
    if (Env("KESTA_NETNS_HOST_IP").empty() || Env("KESTA_CAMERA_IPS").empty())
        return bed;
    bed.present = true;
    bed.hostIp = ParseIp(Env("KESTA_NETNS_HOST_IP"));
    bed.broadcast = ParseIp(Env("KESTA_NETNS_BROADCAST"));
    for (const auto& ip : EnvList("KESTA_CAMERA_IPS"))
        bed.cameraIps.push_back(ParseIp(ip));
    bed.cameraMacs = EnvList("KESTA_CAMERA_MACS");
    bed.serials = EnvList("KESTA_CAMERA_SERIALS");
    bed.host2Namespace = Env("KESTA_NETNS_HOST2");
    bed.host2Ip = ParseIp(Env("KESTA_NETNS_HOST2_IP"));
    if (!Env("KESTA_NETNS_MTU").empty())
        bed.mtu = std::atoi(Env("KESTA_NETNS_MTU").c_str());
    return bed;
}

uint16_t be16(const uint8_t* p) {
    return static_cast<uint16_t>(p[0] << 8 | p[1]);
}
uint32_t be32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
           static_cast<uint32_t>(p[2]) << 8 | p[3];
}
uint64_t be64(const uint8_t* p) {
    return static_cast<uint64_t>(be32(p)) << 32 | be32(p + 4);
}
void putBe16(std::vector<uint8_t>& b, size_t off, uint16_t v) {
    if (b.size() < off + 2)
        b.resize(off + 2);
    b[off] = static_cast<uint8_t>(v >> 8);
    b[off + 1] = static_cast<uint8_t>(v);
}
void putBe32(std::vector<uint8_t>& b, size_t off, uint32_t v) {
    putBe16(b, off, static_cast<uint16_t>(v >> 16));
    putBe16(b, off + 2, static_cast<uint16_t>(v));
}

uint32_t floatBits(float f) {
    uint32_t bits;
    std::memcpy(&bits, &f, sizeof bits);
    return bits;
}

// ---- Socket

Socket::Socket(uint32_t bindIp, uint16_t port, const std::string& netns) {
    auto make = [&] {
        m_fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (m_fd < 0)
            return;
        const int one = 1;
        setsockopt(m_fd, SOL_SOCKET, SO_BROADCAST, &one, sizeof one);
        setsockopt(m_fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        const int size = 16 << 20;
        setsockopt(m_fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(bindIp);
        a.sin_port = htons(port);
        if (::bind(m_fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
            ::close(m_fd);
            m_fd = -1;
        }
    };
    if (netns.empty()) {
        make();
        return;
    }
    // A socket belongs to the namespace it was made in: a short-lived thread
    // enters the other namespace, makes it, and is gone.
    std::thread([&] {
        const int nsFd = ::open(("/var/run/netns/" + netns).c_str(), O_RDONLY | O_CLOEXEC);
        if (nsFd < 0)
            return;
        if (setns(nsFd, CLONE_NEWNET) == 0)
            make();
        ::close(nsFd);
    }).join();
}

Socket::~Socket() {
    if (m_fd >= 0)
        ::close(m_fd);
}

uint16_t Socket::port() const {
    sockaddr_in a{};
    socklen_t len = sizeof a;
    getsockname(m_fd, reinterpret_cast<sockaddr*>(&a), &len);
    return ntohs(a.sin_port);
}

bool Socket::send(uint32_t ip, uint16_t port, const std::vector<uint8_t>& data) const {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(ip);
    a.sin_port = htons(port);
    return ::sendto(m_fd, data.data(), data.size(), 0, reinterpret_cast<sockaddr*>(&a), sizeof a) ==
           static_cast<ssize_t>(data.size());
}

bool Socket::receive(std::vector<uint8_t>& data, int timeoutMs, uint32_t* fromIp,
                     uint16_t* fromPort) const {
    pollfd p{m_fd, POLLIN, 0};
    if (::poll(&p, 1, timeoutMs) <= 0)
        return false;
    static thread_local std::vector<uint8_t> scratch(65536);
    sockaddr_in a{};
    socklen_t len = sizeof a;
    const ssize_t n =
        ::recvfrom(m_fd, scratch.data(), scratch.size(), 0, reinterpret_cast<sockaddr*>(&a), &len);
    if (n < 0)
        return false;
    data.assign(scratch.begin(), scratch.begin() + n);
    if (fromIp)
        *fromIp = ntohl(a.sin_addr.s_addr);
    if (fromPort)
        *fromPort = ntohs(a.sin_port);
    return true;
}

// ---- GvcpClient

GvcpClient::GvcpClient(uint32_t cameraIp, uint32_t bindIp, const std::string& netns)
    : m_cameraIp(cameraIp), m_socket(bindIp, 0, netns) {}

uint16_t GvcpClient::nextId() {
    m_id = static_cast<uint16_t>(m_id + 1);
    if (m_id == 0)
        m_id = 1;
    return m_id;
}

void GvcpClient::sendCommand(uint16_t command, const std::vector<uint8_t>& payload, uint8_t flags,
                             uint16_t id, uint16_t lengthField) {
    std::vector<uint8_t> d = {0x42, flags};
    putBe16(d, 2, command);
    putBe16(d, 4, lengthField);
    putBe16(d, 6, id);
    d.insert(d.end(), payload.begin(), payload.end());
    m_socket.send(m_cameraIp, 3956, d);
}

Ack GvcpClient::receiveAck(int timeoutMs) {
    Ack ack;
    std::vector<uint8_t> d;
    if (!m_socket.receive(d, timeoutMs) || d.size() < 8)
        return ack;
    ack.received = true;
    ack.status = be16(&d[0]);
    ack.code = be16(&d[2]);
    ack.length = be16(&d[4]);
    ack.id = be16(&d[6]);
    ack.data.assign(d.begin() + 8, d.end());
    return ack;
}

Ack GvcpClient::transact(uint16_t command, const std::vector<uint8_t>& payload, int timeoutMs,
                         uint8_t flags) {
    const uint16_t id = nextId();
    sendCommand(command, payload, flags, id, static_cast<uint16_t>(payload.size()));
    for (;;) {
        Ack ack = receiveAck(timeoutMs);
        if (!(ack.received && ack.code == 0x0089 && ack.id == id && ack.data.size() >= 4))
            return ack;
        timeoutMs = be16(&ack.data[2]); // pending: wait as long as it says
    }
}

uint16_t GvcpClient::readReg(uint32_t address, uint32_t& value) {
    std::vector<uint8_t> p;
    putBe32(p, 0, address);
    const Ack ack = transact(0x0080, p);
    if (!ack.received)
        return 0xFFFF;
    if (ack.status == 0 && ack.code == 0x0081 && ack.data.size() >= 4)
        value = be32(ack.data.data());
    return ack.status;
}

uint16_t GvcpClient::writeReg(uint32_t address, uint32_t value) {
    std::vector<uint8_t> p;
    putBe32(p, 0, address);
    putBe32(p, 4, value);
    const Ack ack = transact(0x0082, p);
    return ack.received ? ack.status : 0xFFFF;
}

uint16_t GvcpClient::readMem(uint32_t address, size_t length, std::vector<uint8_t>& out) {
    std::vector<uint8_t> p;
    putBe32(p, 0, address);
    putBe32(p, 4, static_cast<uint32_t>(length));
    const Ack ack = transact(0x0084, p);
    if (!ack.received)
        return 0xFFFF;
    if (ack.status == 0 && ack.data.size() >= 4)
        out.assign(ack.data.begin() + 4, ack.data.end());
    return ack.status;
}

uint16_t GvcpClient::writeMem(uint32_t address, const std::vector<uint8_t>& data) {
    std::vector<uint8_t> p;
    putBe32(p, 0, address);
    p.insert(p.end(), data.begin(), data.end());
    const Ack ack = transact(0x0086, p);
    return ack.received ? ack.status : 0xFFFF;
}

uint32_t GvcpClient::reg(uint32_t address) {
    uint32_t v = 0;
    EXPECT_EQ(readReg(address, v), 0) << "reading 0x" << std::hex << address;
    return v;
}

uint16_t GvcpClient::claim(uint32_t ccpValue) {
    return writeReg(addr::kCcp, ccpValue);
}

uint16_t GvcpClient::release() {
    return writeReg(addr::kCcp, 0);
}

// ---- discovery

std::string DiscoveryAnswer::serial() const {
    if (payload.size() < 0xE8)
        return "";
    const char* s = reinterpret_cast<const char*>(&payload[0xD8]);
    return std::string(s, strnlen(s, 16));
}
uint32_t DiscoveryAnswer::ip() const {
    return payload.size() >= 0x28 ? be32(&payload[0x24]) : 0;
}
uint64_t DiscoveryAnswer::mac() const {
    return payload.size() >= 0x10
               ? static_cast<uint64_t>(be16(&payload[0x0A])) << 32 | be32(&payload[0x0C])
               : 0;
}

std::vector<DiscoveryAnswer> discover(uint32_t hostIp, uint32_t target, int timeoutMs) {
    GvcpClient client(target, hostIp);
    client.sendCommand(0x0002, {}, 0x11, client.nextId(), 0);
    std::vector<DiscoveryAnswer> answers;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                              end - std::chrono::steady_clock::now())
                              .count();
        if (left <= 0)
            break;
        std::vector<uint8_t> d;
        uint32_t from = 0;
        if (!client.socket().receive(d, static_cast<int>(left), &from))
            break;
        if (d.size() < 8 + 248 || be16(&d[2]) != 0x0003)
            continue;
        DiscoveryAnswer a;
        a.fromIp = from;
        a.payload.assign(d.begin() + 8, d.begin() + 8 + 248);
        answers.push_back(a);
    }
    return answers;
}

// ---- GVSP

bool parseGvsp(const std::vector<uint8_t>& raw, GvspPacket& p) {
    if (raw.size() < 8)
        return false;
    p.status = be16(&raw[0]);
    const uint32_t word = be32(&raw[4]);
    p.extended = (word & 0x80000000u) != 0;
    p.format = static_cast<uint8_t>((word >> 24) & 0x0F);
    size_t header = 8;
    if (p.extended) {
        if (raw.size() < 20)
            return false;
        p.blockId = be64(&raw[8]);
        p.packetId = be32(&raw[16]);
        header = 20;
    } else {
        p.blockId = be16(&raw[2]);
        p.packetId = word & 0xFFFFFF;
    }
    p.data.assign(raw.begin() + static_cast<long>(header), raw.end());
    return true;
}

size_t Block::dataPerPacket() const {
    auto it = payload.find(1);
    return it == payload.end() ? 0 : it->second.size();
}

bool Block::complete() const {
    if (!leader || !trailer)
        return false;
    for (uint32_t id = 1; id < trailerPacketId; ++id)
        if (!payload.count(id))
            return false;
    return true;
}

std::vector<uint8_t> Block::bytes() const {
    std::vector<uint8_t> out;
    const size_t chunk = dataPerPacket();
    for (const auto& [id, data] : payload) {
        const size_t offset = (id - 1) * chunk;
        if (out.size() < offset + data.size())
            out.resize(offset + data.size());
        std::memcpy(out.data() + offset, data.data(), data.size());
    }
    return out;
}

GvspReceiver::GvspReceiver(uint32_t bindIp) : m_socket(bindIp) {}

void GvspReceiver::file(const GvspPacket& p, std::map<uint64_t, Block>& blocks) {
    Block& b = blocks[p.blockId];
    b.id = p.blockId;
    if (p.format == 1 && p.data.size() >= 36) {
        if (b.leader)
            ++b.duplicates;
        b.leader = true;
        b.payloadType = be16(&p.data[2]);
        b.timestamp = be64(&p.data[4]);
        b.pixelFormat = be32(&p.data[12]);
        b.width = be32(&p.data[16]);
        b.height = be32(&p.data[20]);
    } else if (p.format == 2 && p.data.size() >= 8) {
        if (b.trailer)
            ++b.duplicates;
        b.trailer = true;
        b.trailerSizeY = be32(&p.data[4]);
        b.trailerPacketId = p.packetId;
    } else if (p.format == 3) {
        if (b.payload.count(p.packetId))
            ++b.duplicates;
        b.payload[p.packetId] = p.data;
    }
}

std::vector<GvspPacket> GvspReceiver::collect(std::map<uint64_t, Block>& blocks,
                                              size_t wantTrailers, int timeoutMs) {
    std::vector<GvspPacket> packets;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    auto trailers = [&] {
        size_t n = 0;
        for (const auto& [id, b] : blocks)
            n += b.trailer ? 1 : 0;
        return n;
    };
    while (wantTrailers == 0 || trailers() < wantTrailers) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                              end - std::chrono::steady_clock::now())
                              .count();
        if (left <= 0)
            break;
        std::vector<uint8_t> raw;
        if (!m_socket.receive(raw, static_cast<int>(left)))
            break;
        GvspPacket p;
        if (!parseGvsp(raw, p))
            continue;
        file(p, blocks);
        packets.push_back(std::move(p));
    }
    return packets;
}

uint8_t expectedByte(uint64_t blockId, size_t offset) {
    if (offset < 8)
        return static_cast<uint8_t>(blockId >> (56 - 8 * offset));
    const uint64_t i = offset;
    return static_cast<uint8_t>(i * 7 + (i >> 8) * 3 + (i >> 16) + blockId * 13);
}

size_t patternErrors(uint64_t blockId, const std::vector<uint8_t>& data) {
    size_t errors = 0;
    for (size_t i = 0; i < data.size(); ++i)
        errors += data[i] != expectedByte(blockId, i) ? 1 : 0;
    return errors;
}

} // namespace gevtest
