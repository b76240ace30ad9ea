#include "GvspPacketWriter.h"

#include "GevConstants.h"
#include "Wire.h"

#include <cstring>

namespace gevsim {

namespace {
constexpr uint8_t kFormatLeader = 1;
constexpr uint8_t kFormatTrailer = 2;
constexpr uint8_t kFormatPayload = 3;
constexpr size_t kLeaderSize = 36;
constexpr size_t kTrailerSize = 8;
} // namespace

GvspPacketWriter::GvspPacketWriter(uint32_t packetSize, bool extendedId) : m_extended(extendedId) {
    const size_t overhead = kIpUdpOverhead + headerSize();
    // A packet must carry at least one byte; the register clamps long before.
    m_dataPerPacket = packetSize > overhead + 4 ? packetSize - overhead : 4;
}

size_t GvspPacketWriter::headerSize() const {
    return m_extended ? kGvspExtendedHeaderSize : kGvspHeaderSize;
}

uint32_t GvspPacketWriter::dataPacketCount(size_t payloadBytes) const {
    return static_cast<uint32_t>((payloadBytes + m_dataPerPacket - 1) / m_dataPerPacket);
}

void GvspPacketWriter::header(uint64_t blockId, uint8_t format, uint32_t packetId, uint16_t status,
                              std::vector<uint8_t>& out) const {
    out.assign(headerSize(), 0);
    put16(out, 0, status);
    if (m_extended) {
        put16(out, 2, 0); // flags
        put32(out, 4, 0x80000000u | static_cast<uint32_t>(format & 0x0F) << 24);
        put64(out, 8, blockId);
        put32(out, 16, packetId);
    } else {
        put16(out, 2, static_cast<uint16_t>(blockId));
        put32(out, 4, static_cast<uint32_t>(format & 0x0F) << 24 | (packetId & 0xFFFFFF));
    }
}

void GvspPacketWriter::leader(const BlockInfo& block, uint16_t status,
                              std::vector<uint8_t>& out) const {
    header(block.blockId, kFormatLeader, 0, status, out);
    const size_t h = out.size();
    out.resize(h + kLeaderSize, 0);
    put16(out, h + 2, block.payloadType);
    put64(out, h + 4, block.timestamp);
    put32(out, h + 12, block.pixelFormat);
    put32(out, h + 16, block.width);
    put32(out, h + 20, block.height);
    // offsets and paddings stay 0
}

void GvspPacketWriter::payload(const BlockInfo& block, uint32_t packetId, const uint8_t* data,
                               size_t length, uint16_t status, std::vector<uint8_t>& out) const {
    header(block.blockId, kFormatPayload, packetId, status, out);
    const size_t h = out.size();
    out.resize(h + length);
    if (length)
        std::memcpy(out.data() + h, data, length);
}

void GvspPacketWriter::forged(const BlockInfo& block, uint8_t format, uint32_t packetId,
                              size_t length, std::vector<uint8_t>& out) const {
    header(block.blockId, format, packetId, status::kSuccess, out);
    out.resize(out.size() + length, 0xEE);
}

void GvspPacketWriter::trailer(const BlockInfo& block, uint16_t status,
                               std::vector<uint8_t>& out) const {
    const uint32_t id = dataPacketCount(block.payloadBytes) + 1;
    header(block.blockId, kFormatTrailer, id, status, out);
    const size_t h = out.size();
    out.resize(h + kTrailerSize, 0);
    put16(out, h + 2, block.payloadType);
    put32(out, h + 4, block.trailerSizeY);
}

void GvspPacketWriter::testPacket(uint32_t packetSize, std::vector<uint8_t>& out) {
    const size_t size = packetSize > kIpUdpOverhead + kGvspHeaderSize ? packetSize - kIpUdpOverhead
                                                                      : kGvspHeaderSize;
    out.assign(size, 0);
    // Status 0, block id 0, packet format 4 marks the test packet; the body
    // is a fixed byte sequence.
    put32(out, 4, 4u << 24);
    for (size_t i = kGvspHeaderSize; i < size; ++i)
        out[i] = static_cast<uint8_t>(i);
}

void GvspPacketWriter::tcpFrameHeader(const BlockInfo& block, std::vector<uint8_t>& out) {
    out.assign(kTcpFrameHeaderSize, 0);
    put32(out, 0, static_cast<uint32_t>(block.payloadBytes));
    // Then the extended GVSP header of a leader and the leader itself.
    put32(out, 8, 0x80000000u | static_cast<uint32_t>(kFormatLeader) << 24);
    put64(out, 12, block.blockId);
    put16(out, 26, block.payloadType);
    put64(out, 28, block.timestamp);
    put32(out, 36, block.pixelFormat);
    put32(out, 40, block.width);
    put32(out, 44, block.height);
}

} // namespace gevsim
