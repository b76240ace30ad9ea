#include "stream/PacketResendRequest.h"

namespace GenTL {

PacketResendRequest::PacketResendRequest(Buffer* buffer, std::uint64_t blockId,
                                         std::uint32_t firstPacket, std::uint32_t lastPacket,
                                         bool extendedId, std::uint32_t remaining,
                                         std::uint32_t retriesLeft)
    : buffer(buffer), blockId(blockId), firstPacket(firstPacket), lastPacket(lastPacket),
      extendedId(extendedId), remaining(remaining), retriesLeft(retriesLeft) {}

PacketResendRequest::~PacketResendRequest() {
    delete timer;
}

bool PacketResendRequest::Covers(std::uint32_t packetId) const {
    return packetId >= firstPacket && packetId <= lastPacket;
}

} // namespace GenTL
