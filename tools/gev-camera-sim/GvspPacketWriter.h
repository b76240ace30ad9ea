// Writes GVSP packets for one block: leader, data payload and trailer, in
// the standard (16-bit block id, 24-bit packet id) or the extended form
// (64-bit block id, 32-bit packet id), and the header of a TCP frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace gevsim {

struct BlockInfo {
    uint64_t blockId = 1;
    uint64_t timestamp = 0;
    uint16_t payloadType = 1; // image
    uint32_t pixelFormat = 0;
    uint32_t width = 0;
    uint32_t height = 0;       // the leader's size_y
    uint32_t trailerSizeY = 0; // the trailer's size_y
    size_t payloadBytes = 0;   // bytes of data behind the leader
};

class GvspPacketWriter {
public:
    // packetSize counts the IP and UDP headers, as SCPS does.
    GvspPacketWriter(uint32_t packetSize, bool extendedId);

    size_t headerSize() const;
    size_t dataPerPacket() const { return m_dataPerPacket; }
    // Data packets of a block, numbered 1..n; the trailer is n + 1.
    uint32_t dataPacketCount(size_t payloadBytes) const;

    void leader(const BlockInfo& block, uint16_t status, std::vector<uint8_t>& out) const;
    // Packet id p carries bytes [(p - 1) * dataPerPacket, ...) of the block.
    void payload(const BlockInfo& block, uint32_t packetId, const uint8_t* data, size_t length,
                 uint16_t status, std::vector<uint8_t>& out) const;
    void trailer(const BlockInfo& block, uint16_t status, std::vector<uint8_t>& out) const;
    // A packet of any format and id whose data is `length` filler bytes
    // (0xEE): what a lying camera sends in place of a data packet.
    void forged(const BlockInfo& block, uint8_t format, uint32_t packetId, size_t length,
                std::vector<uint8_t>& out) const;

    static void testPacket(uint32_t packetSize, std::vector<uint8_t>& out);
    static void tcpFrameHeader(const BlockInfo& block, std::vector<uint8_t>& out);

private:
    void header(uint64_t blockId, uint8_t format, uint32_t packetId, uint16_t status,
                std::vector<uint8_t>& out) const;

    bool m_extended;
    size_t m_dataPerPacket;
};

} // namespace gevsim
