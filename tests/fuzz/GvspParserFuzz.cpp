// Fuzz target of the GVSP parsing steps: datagrams of any content, in any
// order, against a stream set-up and a buffer of any size, handled as a
// grab loop handles them. The sanitizers report any read outside a
// datagram or write outside the buffer and its bitmap.
//
// Input: 8 bytes of set-up (packet size, buffer size, bitmap size, flags),
// then datagrams, each a 2-byte big-endian length and that many bytes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "api/Error.h"
#include "stream/BlockId.h"
#include "stream/Buffer.h"
#include "stream/GvspParser.h"
#include "stream/PayloadType.h"
#include "stream/StreamInfo.h"

namespace {

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}
    std::size_t Remaining() const { return m_size - m_pos; }
    std::uint32_t Take(int bytes) {
        std::uint32_t value = 0;
        for (int i = 0; i < bytes; ++i) {
            value = (value << 8) | (m_pos < m_size ? m_data[m_pos++] : 0);
        }
        return value;
    }
    // Exactly the datagram's bytes on the heap, so that an over-read is seen.
    std::vector<char> Datagram(std::size_t length) {
        length = std::min(length, Remaining());
        std::vector<char> bytes(m_data + m_pos, m_data + m_pos + length);
        m_pos += length;
        return bytes;
    }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
    std::size_t m_pos = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace GenTL;
    Input in(data, size);
    StreamInfo info;
    info.packetSize = in.Take(2);
    const std::uint32_t bufferSize = in.Take(2) % 8192;
    const std::uint32_t bitmapSize = in.Take(1);
    const std::uint32_t flags = in.Take(1);
    info.packetResendEnable = (flags & 1) != 0;
    info.extendedId = (flags & 2) != 0;
    info.payloadType = static_cast<std::uint16_t>(in.Take(2));

    std::vector<std::uint8_t> memory(bufferSize);
    Buffer buffer;
    buffer.base = memory.empty() ? nullptr : memory.data();
    buffer.size = memory.size();
    buffer.AllocatePacketBitmap(bitmapSize);
    buffer.missingPackets = static_cast<std::int32_t>(flags >> 2);

    while (in.Remaining() > 0) {
        std::vector<char> packet = in.Datagram(in.Take(2));
        const int length = static_cast<int>(packet.size());
        ParsedGvspHeader header;
        if (GetPktHeaderInfo(packet.data(), length, length, header) != 0) {
            continue;
        }
        // What the grab loops do with the header besides parsing.
        CompareBlockIds(header.blockId, info.nextBlockId, header.extendedId);
        info.nextBlockId = IncrementBlockId(header.blockId, header.extendedId);
        DiffBlockId(header.blockId, info.lastBlockId, header.extendedId);
        info.lastBlockId = header.blockId;
        if (!PacketIdFitsFormat(header)) {
            continue;
        }
        if (header.packetFormat == GVSP_PACKET_PAYLOAD) {
            const std::uint64_t data =
                packet.size() > header.DataOffset() ? packet.size() - header.DataOffset() : 0;
            DataPacketFitsBlock(header.packetId, data, info.PayloadBytesPerPacket(), buffer,
                                info.payloadType);
        }
        if (buffer.IsPacketSeen(header.packetId)) {
            continue;
        }
        bool blockComplete = false;
        switch (header.packetFormat) {
        case GVSP_PACKET_LEADER:
            if (ParseGVSPLeader(info, packet.data(), packet.size(), &buffer, header) == 0) {
                buffer.MarkPacketSeen(header.packetId);
            }
            break;
        case GVSP_PACKET_TRAILER:
            if (ParseGVSPTrailer(info, packet.data(), packet.size(), &buffer, blockComplete,
                                 header) == 0) {
                buffer.MarkPacketSeen(header.packetId);
            }
            break;
        default:
            ParseGVSPPayload(info, packet.data(), packet.size(), &buffer, header);
            break;
        }
    }
    // The completion step reads the result.
    SwitchPayloadType(info.payloadType, &buffer);
    GetBitsPerPixel(buffer.pixelFormat);
    ErrorCache::GetErrorCache()->Clear();
    return 0;
}
