#include "StreamChannel.h"

#include "GevConstants.h"
#include "Log.h"

#include <algorithm>
#include <cstring>

namespace gevsim {

namespace {
float toFloat(uint32_t bits) {
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}
} // namespace

StreamChannel::StreamChannel(std::string name, RegisterMap& registers, FaultInjector& faults,
                             TcpStreamServer& tcp, TickClock clock, uint32_t ringBlocks)
    : m_name(std::move(name)), m_registers(registers), m_faults(faults), m_tcp(tcp),
      m_clock(std::move(clock)), m_ringBlocks(ringBlocks) {}

StreamChannel::~StreamChannel() {
    shutdown();
}

bool StreamChannel::open(uint32_t ip, std::string& error) {
    std::lock_guard<std::mutex> send(m_sendMutex);
    if (!m_socket.open(ip, 0, false, error))
        return false;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_running) {
        m_running = true;
        m_thread = std::thread(&StreamChannel::run, this);
    }
    return true;
}

void StreamChannel::shutdown() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_running = false;
        m_acquiring = false;
    }
    m_wake.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

void StreamChannel::startAcquisition() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_acquiring = true;
    }
    m_wake.notify_all();
    Log::write(1, m_name, "acquisition started");
}

void StreamChannel::stopAcquisition() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_acquiring)
            return;
        m_acquiring = false;
    }
    m_wake.notify_all();
    Log::write(1, m_name, "acquisition stopped");
}

StreamChannel::Settings StreamChannel::settings() const {
    Settings s;
    s.destIp = m_registers.get(reg::kScda);
    s.destPort = static_cast<uint16_t>(m_registers.get(reg::kScp) & 0xFFFF);
    const uint32_t scps = m_registers.get(reg::kScps);
    s.packetSize = scps & scps::kSizeMask;
    s.dontFragment = (scps & scps::kDoNotFragment) != 0;
    const uint64_t freq = static_cast<uint64_t>(m_registers.get(reg::kTickFrequencyHigh)) << 32 |
                          m_registers.get(reg::kTickFrequencyLow);
    const uint64_t delay = m_registers.get(reg::kScpd);
    s.delayTicks = freq ? delay * 1000000000ull / freq : 0; // in nanoseconds from here on
    s.extended = (m_registers.get(reg::kGvspConfig) & kGvspConfigExtendedId) != 0;
    return s;
}

void StreamChannel::run() {
    std::unique_lock<std::mutex> lock(m_mutex);
    uint64_t blockNumber = 0;
    while (m_running) {
        m_wake.wait(lock, [&] { return !m_running || m_acquiring; });
        if (!m_running)
            break;
        const uint32_t mode = m_registers.get(reg::kAcquisitionMode);
        const uint32_t frames = std::max<uint32_t>(1, m_registers.get(reg::kAcquisitionFrameCount));
        uint64_t produced = 0;
        auto next = std::chrono::steady_clock::now();
        while (m_running && m_acquiring) {
            lock.unlock();
            if (!m_silent && produceBlock(blockNumber + 1)) {
                ++blockNumber;
                ++produced;
            }
            lock.lock();
            if ((mode == 1 && produced >= 1) || (mode == 2 && produced >= frames)) {
                m_acquiring = false;
                Log::write(1, m_name,
                           "acquisition ended after " + std::to_string(produced) + " blocks");
                break;
            }
            float fps = toFloat(m_registers.get(reg::kAcquisitionFrameRate));
            if (!(fps > 0.001f))
                fps = 0.001f;
            const auto period = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                std::chrono::duration<double>(1.0 / fps));
            next += period;
            const auto now = std::chrono::steady_clock::now();
            if (next < now - period)
                next = now; // late by more than a frame: do not send a burst to catch up
            m_wake.wait_until(lock, next, [&] { return !m_running || !m_acquiring; });
        }
    }
}

void StreamChannel::restartBlockIds(uint64_t first) {
    m_blockId = first - 1;
}

uint64_t StreamChannel::nextBlockId(bool extended) {
    // Block id 0 is never used; 16-bit ids wrap from 65535 to 1.
    if (!extended && m_blockId >= 0xFFFF)
        m_blockId = 0;
    ++m_blockId;
    if (m_blockId == 0)
        m_blockId = 1;
    return m_blockId;
}

bool StreamChannel::produceBlock(uint64_t blockNumber) {
    const Settings s = settings();
    const bool tcp = s.destPort == kTcpStreamPort;
    if (s.destPort == 0 || s.destIp == 0 || (tcp && !m_tcp.connected()))
        return false; // no receiver configured: nothing leaves the camera
    const uint32_t width = m_registers.get(reg::kWidth);
    const uint32_t height = m_registers.get(reg::kHeight);
    const uint32_t pf = m_registers.get(reg::kPixelFormat);
    const uint32_t bytesPerPixel = pixfmt::bitsPerPixel(pf) / 8;
    const auto kind = static_cast<TestPattern::Kind>(m_registers.get(reg::kTestPattern));
    const bool variable = !tcp && m_registers.get(reg::kVariableSize) != 0;
    const size_t full = static_cast<size_t>(width) * height * bytesPerPixel;

    RingEntry entry{BlockInfo{}, s.extended && !tcp, s.packetSize,
                    TestPattern(kind, variable ? 1 : width, variable ? 1 : bytesPerPixel)};
    BlockInfo& b = entry.block;
    b.blockId = nextBlockId(s.extended || tcp);
    b.timestamp = m_clock();
    if (variable) {
        // A one-column Mono8 carrier as high as the largest block; the
        // trailer tells how many lines this block really has.
        b.pixelFormat = pixfmt::kMono8;
        b.width = 1;
        b.height = static_cast<uint32_t>(full);
        const size_t half = full / 2;
        b.payloadBytes = half + static_cast<size_t>((b.blockId * 7919) % (full - half + 1));
        b.trailerSizeY = static_cast<uint32_t>(b.payloadBytes);
    } else {
        b.pixelFormat = pf;
        b.width = width;
        b.height = height;
        b.payloadBytes = full;
        b.trailerSizeY = height;
    }
    const FaultConfig& lies = m_faults.config();
    if (lies.claimedWidth != 0) {
        // Leader and trailer claim another geometry; the data stays true.
        b.width = lies.claimedWidth;
        b.height = lies.claimedHeight;
        b.trailerSizeY = lies.claimedHeight;
        b.pixelFormat = lies.claimedPixelFormat;
    }
    std::vector<uint8_t> data(b.payloadBytes);
    entry.pattern.fill(b.blockId, 0, data.data(), data.size());

    {
        std::lock_guard<std::mutex> lock(m_ringMutex);
        m_ring.push_back(entry);
        while (m_ring.size() > m_ringBlocks)
            m_ring.pop_front();
    }
    m_lastBlockId = b.blockId;
    m_registers.set(reg::kBlocksSent, m_registers.get(reg::kBlocksSent) + 1);

    if (tcp) {
        std::vector<uint8_t> header;
        GvspPacketWriter::tcpFrameHeader(b, header);
        m_tcp.sendFrame(header.data(), header.size(), data.data(), data.size());
    } else {
        sendUdpBlock(entry, data, blockNumber, s);
    }
    Log::write(2, m_name, "block " + std::to_string(b.blockId) + " sent");
    return true;
}

void StreamChannel::pace(const Settings& s) {
    if (s.delayTicks == 0)
        return;
    const auto now = std::chrono::steady_clock::now();
    if (m_nextSend > now)
        std::this_thread::sleep_until(m_nextSend);
    m_nextSend = std::max(now, m_nextSend) + std::chrono::nanoseconds(s.delayTicks);
}

void StreamChannel::sendPacket(const std::vector<uint8_t>& packet, const Settings& s) {
    pace(s);
    if (!m_socket.sendTo(s.destIp, s.destPort, packet.data(), packet.size()))
        Log::write(2, m_name, "packet of " + std::to_string(packet.size()) + " bytes not sent");
}

void StreamChannel::sendUdpBlock(const RingEntry& entry, const std::vector<uint8_t>& data,
                                 uint64_t blockNumber, const Settings& s) {
    const GvspPacketWriter writer(entry.packetSize, entry.extended);
    const uint32_t count = writer.dataPacketCount(data.size());
    std::lock_guard<std::mutex> lock(m_sendMutex);
    m_socket.setDontFragment(s.dontFragment);
    std::vector<uint8_t> packet, held, late;
    bool haveHeld = false;
    uint32_t lateCountdown = 0;
    // Sends a packet, and a late one once its count of packets has passed.
    auto send = [&](const std::vector<uint8_t>& p) {
        sendPacket(p, s);
        if (!late.empty() && --lateCountdown == 0) {
            sendPacket(late, s);
            late.clear();
        }
    };
    using Kind = FaultInjector::PacketKind;
    auto emit = [&](Kind kind, uint32_t id) {
        const FaultInjector::Fate fate = m_faults.packetFate(blockNumber, kind, id);
        if (fate.drop) {
            Log::write(2, m_name, "fault: packet " + std::to_string(id) + " dropped");
            return;
        }
        if (kind == Kind::Leader) {
            writer.leader(entry.block, status::kSuccess, packet);
        } else if (kind == Kind::Trailer) {
            writer.trailer(entry.block, status::kSuccess, packet);
        } else {
            const size_t offset = static_cast<size_t>(id - 1) * writer.dataPerPacket();
            const size_t length = std::min(writer.dataPerPacket(), data.size() - offset);
            if (const PacketForgery* f = m_faults.forgery(id))
                writer.forged(entry.block, f->format, f->id, length, packet);
            else
                writer.payload(entry.block, id, data.data() + offset, length, status::kSuccess,
                               packet);
            if (const uint32_t by = m_faults.lateBy(id)) {
                late.swap(packet);
                lateCountdown = by;
                return;
            }
        }
        if (fate.holdBack && !haveHeld) {
            held.swap(packet);
            haveHeld = true;
            return;
        }
        send(packet);
        if (fate.duplicate)
            send(packet);
        if (haveHeld) {
            send(held);
            haveHeld = false;
        }
    };
    emit(Kind::Leader, 0);
    for (uint32_t id = 1; id <= count; ++id)
        emit(Kind::Payload, id);
    emit(Kind::Trailer, count + 1);
    if (haveHeld)
        send(held);
    if (!late.empty())
        sendPacket(late, s);
}

void StreamChannel::fireTestPacket(uint32_t scpsValue) {
    const Settings s = settings();
    if (s.destIp == 0 || s.destPort == 0)
        return;
    std::vector<uint8_t> packet;
    GvspPacketWriter::testPacket(scpsValue & scps::kSizeMask, packet);
    std::lock_guard<std::mutex> lock(m_sendMutex);
    m_socket.setDontFragment((scpsValue & scps::kDoNotFragment) != 0);
    const bool sent = m_socket.sendTo(s.destIp, s.destPort, packet.data(), packet.size());
    Log::write(1, m_name,
               "test packet of " + std::to_string(scpsValue & scps::kSizeMask) + " bytes " +
                   (sent ? "sent to " : "could not be sent to ") + ipToString(s.destIp) + ":" +
                   std::to_string(s.destPort));
}

void StreamChannel::resend(uint64_t blockId, bool extendedForm, uint32_t first, uint32_t last) {
    std::vector<RingEntry> found;
    {
        std::lock_guard<std::mutex> lock(m_ringMutex);
        for (auto it = m_ring.rbegin(); it != m_ring.rend(); ++it) {
            const bool match = extendedForm ? it->block.blockId == blockId
                                            : (it->block.blockId & 0xFFFF) == (blockId & 0xFFFF);
            if (match) {
                found.push_back(*it);
                break;
            }
        }
    }
    if (found.empty()) {
        Log::write(1, m_name, "resend of block " + std::to_string(blockId) + " not in the ring");
        return;
    }
    const RingEntry& entry = found.front();
    const Settings s = settings();
    if (s.destIp == 0 || s.destPort == 0 || s.destPort == kTcpStreamPort)
        return;
    const GvspPacketWriter writer(entry.packetSize, entry.extended);
    const uint32_t count = writer.dataPacketCount(entry.block.payloadBytes);
    last = std::min(last, count + 1);
    Log::write(1, m_name,
               "resend block " + std::to_string(blockId) + " packets " + std::to_string(first) +
                   ".." + std::to_string(last));
    std::vector<uint8_t> packet, slice;
    std::lock_guard<std::mutex> lock(m_sendMutex);
    for (uint64_t id = first; id <= last; ++id) {
        if (id == 0) {
            writer.leader(entry.block, status::kPacketResend, packet);
        } else if (id == count + 1) {
            writer.trailer(entry.block, status::kPacketResend, packet);
        } else {
            const size_t offset = static_cast<size_t>(id - 1) * writer.dataPerPacket();
            const size_t length =
                std::min(writer.dataPerPacket(), entry.block.payloadBytes - offset);
            slice.resize(length);
            entry.pattern.fill(entry.block.blockId, offset, slice.data(), length);
            writer.payload(entry.block, static_cast<uint32_t>(id), slice.data(), length,
                           status::kPacketResend, packet);
        }
        sendPacket(packet, s);
    }
}

} // namespace gevsim
