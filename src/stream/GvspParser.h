#pragma once
/**
 * GVSP packet parsing: the steps that the UDP grab loops share to read one
 * datagram of the stream channel into a Buffer.
 *
 * A grab loop handles a datagram of `received` bytes like this:
 *
 *   ParsedGvspHeader header;
 *   if (GetPktHeaderInfo(packet, capacity, received, header) != 0) drop it;
 *   ... status test, find or take the block's buffer, lock its m_mutex ...
 *   switch (header.packetFormat) {
 *   case GVSP_PACKET_LEADER:  rc = ParseGVSPLeader(info, packet, received, buffer, header); ...
 *   case GVSP_PACKET_TRAILER: rc = ParseGVSPTrailer(info, packet, received, buffer, done, header);
 *   case GVSP_PACKET_PAYLOAD: rc = ParseGVSPPayload(info, packet, received, buffer, header);
 *   }
 *
 * The packet comes from the network, so nothing in it is trusted: every
 * step reads only the `received` bytes at `packet` and writes only the
 * `size` bytes at the buffer's base and the bytes of its packet bitmap,
 * whatever sizes, offsets or ids the header claims. A packet too short for
 * the fields its step reads fails with GC_ERR_INVALID_BUFFER and changes
 * nothing. A bad packet costs only itself: the functions record the failure
 * (and log it at error level) and return its code; none throws, and the
 * good path allocates nothing. The caller holds the buffer's m_mutex.
 *
 * All multi-byte fields on the wire are big-endian; the results are in host
 * order.
 */
#include <cstdint>

namespace GenTL {

class Buffer;
class StreamInfo;

/// Packet formats of the header.
enum GvspPacketFormat : std::uint8_t {
    GVSP_PACKET_LEADER = 1,
    GVSP_PACKET_TRAILER = 2,
    GVSP_PACKET_PAYLOAD = 3,
};

/// Status of a packet that the camera sent again on request; any other
/// non-zero status marks a packet to drop.
constexpr std::uint16_t kGvspStatusResent = 0x0100;
/// Bytes of the header in normal and in extended-id form.
constexpr std::uint32_t kGvspHeaderSize = 8;
constexpr std::uint32_t kGvspExtendedHeaderSize = 20;
/// IP and UDP headers, counted in the stream's packet size.
constexpr std::uint32_t kIpUdpHeaderSize = 28;

/// The header of one datagram, in host order.
struct ParsedGvspHeader {
    std::uint16_t status = 0;
    std::uint16_t rawBlockId = 0; ///< the 16-bit field at offset 2, also in extended form
    bool extendedId = false;      ///< EI bit: 64-bit block id, 32-bit packet id
    std::uint8_t packetFormat = 0;
    std::uint32_t packetId = 0;
    std::uint64_t blockId = 0;

    /// Where the packet's data begins: 8, or 20 with extended ids.
    std::uint32_t DataOffset() const {
        return extendedId ? kGvspExtendedHeaderSize : kGvspHeaderSize;
    }
};

/// The image fields of a leader from its offset 4 on, as they stand on the
/// wire (big-endian). ParseImageLeaderData reads them into a buffer.
struct ImageLeaderSpecificData {
    std::uint8_t timestamp[8];
    std::uint8_t pixelFormat[4];
    std::uint8_t sizeX[4];
    std::uint8_t sizeY[4];
    std::uint8_t offsetX[4];
    std::uint8_t offsetY[4];
    std::uint8_t paddingX[2];
    std::uint8_t paddingY[2];
};
static_assert(sizeof(ImageLeaderSpecificData) == 32, "wire layout");

/**
 * Reads the header of a datagram. `size` is the extent of the memory at
 * `packet` and `received` the bytes the socket delivered; the header is
 * read from the smaller of the two. A null packet, or a size or received
 * of 0, fails with GC_ERR_INVALID_BUFFER "anonymous::GetPktHeaderInfo
 * pPacket == nullptr !"; fewer bytes than the header's form needs (8, or
 * 20 with the EI bit) fail with GC_ERR_INVALID_BUFFER as well.
 */
int GetPktHeaderInfo(const char* packet, int size, int received, ParsedGvspHeader& header);

/**
 * The image fields of a leader into the buffer: timestamp, pixel format,
 * geometry and padding; deliveredImageHeight = height; dataSize = width *
 * height * bits per pixel / 8, in 64 bits. A geometry whose bits do not fit
 * in 64 bits fails with GC_ERR_INVALID_PARAMETER and leaves the buffer as
 * it was.
 */
int ParseImageLeaderData(const ImageLeaderSpecificData* data, Buffer* buffer);

/**
 * A leader: for payload type 1 or 0x4001 the image fields, for type 4 the
 * timestamp; any other type fails with GC_ERR_NOT_IMPLEMENTED, and an image
 * geometry too large for 64 bits with GC_ERR_INVALID_PARAMETER. A timestamp
 * of 0 is replaced by the host's clock in nanoseconds. On success the type
 * goes to info.payloadType, leaderSeen is set and missingPackets drops by 1.
 */
int ParseGVSPLeader(StreamInfo& info, const char* packet, unsigned long received, Buffer* buffer,
                    const ParsedGvspHeader& header);

/**
 * A trailer, read by info.payloadType (the trailer's own type field is not
 * read): type 1 size_y (recomputes dataSize when not 0), type 0x4001 size_y
 * and the chunk length and layout id, type 4 the chunk length; any other
 * type fails with GC_ERR_NOT_IMPLEMENTED, and a size_y that makes the image
 * too large for 64 bits with GC_ERR_INVALID_PARAMETER. Without packet resend the trailer
 * ends the block: blockComplete becomes true. On success trailerSeen is set
 * and missingPackets drops by 1.
 */
int ParseGVSPTrailer(StreamInfo& info, const char* packet, unsigned long received, Buffer* buffer,
                     bool& blockComplete, const ParsedGvspHeader& header);

/**
 * A data packet: its data goes to (packetId - 1) * payload bytes per packet
 * in the buffer. Fails with GC_ERR_NOT_IMPLEMENTED unless info.payloadType
 * is an image (with or without chunks) or chunk data, and with
 * GC_ERR_INVALID_PARAMETER when the packet id is 0, when that offset lies
 * beyond the buffer's dataSize, or when the packet carries more than one
 * packet's share of data; a failed packet leaves its bit clear.
 * Data beyond the buffer's size is dropped and sets dataLargerThanBuffer,
 * after which data packets are counted but not copied. On success the
 * packet's bit is set, receivedPackets rises, nextExpectedPacket is raised
 * past its id, and (when copied) receivedBytes rises and missingPackets
 * drops by 1.
 */
int ParseGVSPPayload(StreamInfo& info, const char* packet, unsigned long received, Buffer* buffer,
                     const ParsedGvspHeader& header);

/**
 * Whether a packet's id suits its format: a leader is packet 0, a trailer
 * and data packets come after it. Other formats have no place in a block.
 * The grab loops drop a packet that fails this before it touches a block.
 */
bool PacketIdFitsFormat(const ParsedGvspHeader& header);

/**
 * Where the data of the block in `buffer` ends as far as the loop knows it:
 * for a plain image (payloadType 1) whose leader came, dataSize (which its
 * trailer may lower); else the buffer's end, since other payloads tell
 * their size only in the trailer. Caller holds the buffer's m_mutex.
 */
std::uint64_t BlockDataLimit(const Buffer& buffer, std::uint16_t payloadType);

/**
 * Whether a data packet of `dataBytes` bytes behind its header, at `chunk`
 * bytes per packet, belongs in the block: it carries at most one packet's
 * share and begins before BlockDataLimit. Its bytes may still run past the
 * buffer's end (an image larger than the buffer): they are cut there.
 */
bool DataPacketFitsBlock(std::uint32_t packetId, std::uint64_t dataBytes, std::uint64_t chunk,
                         const Buffer& buffer, std::uint16_t payloadType);

} // namespace GenTL
