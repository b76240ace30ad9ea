#include "stream/StreamInfo.h"

namespace GenTL {

namespace {

constexpr std::uint32_t kIpUdpHeaderBytes = 28;
constexpr std::uint32_t kGvspHeaderBytes = 8;
constexpr std::uint32_t kGvspExtendedHeaderBytes = 20;

} // namespace

StreamInfo::~StreamInfo() = default;

std::uint32_t StreamInfo::PayloadBytesPerPacket() const {
    const std::uint32_t overhead =
        kIpUdpHeaderBytes + (extendedId ? kGvspExtendedHeaderBytes : kGvspHeaderBytes);
    return packetSize > overhead ? packetSize - overhead : 0;
}

} // namespace GenTL
