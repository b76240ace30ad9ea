#include "EventPacket.h"

#include <algorithm>
#include <cstdio>

namespace kesta::gentl {

namespace {

constexpr std::size_t kHeaderSize = 8;
constexpr std::uint16_t kEventCmd = 0x00C0;
constexpr std::uint16_t kEventDataCmd = 0x00C2;
constexpr std::uint8_t kFlagExtendedId = 0x10;

std::uint64_t BigEndian(const std::uint8_t* p, std::size_t bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < bytes; ++i) {
        value = value << 8 | p[i];
    }
    return value;
}

} // namespace

EventPacket ParseEventPacket(const std::uint8_t* bytes, std::size_t size) {
    EventPacket packet;
    if (size < kHeaderSize) {
        packet.problem = "shorter than a GVCP header (" + std::to_string(size) + " bytes)";
        return packet;
    }
    packet.command = static_cast<std::uint16_t>(BigEndian(bytes + 2, 2));
    packet.requestId = static_cast<std::uint16_t>(BigEndian(bytes + 6, 2));
    if (packet.command != kEventCmd && packet.command != kEventDataCmd) {
        packet.problem = "not an event packet";
        return packet;
    }
    const std::size_t claimed = kHeaderSize + BigEndian(bytes + 4, 2);
    if (claimed != size) {
        packet.problem = "length field says " + std::to_string(claimed) + " bytes, " +
                         std::to_string(size) + " arrived";
    }
    const std::size_t end = std::min(claimed, size);
    const bool extended = (bytes[1] & kFlagExtendedId) != 0;
    const std::size_t itemSize = extended ? 24 : 16;
    for (std::size_t at = kHeaderSize; at + itemSize <= end; at += itemSize) {
        const std::uint8_t* item = bytes + at;
        EventRecord event;
        event.eventId = static_cast<std::uint16_t>(BigEndian(item + 2, 2));
        event.streamChannel = static_cast<std::uint16_t>(BigEndian(item + 4, 2));
        event.blockId = extended ? BigEndian(item + 8, 8) : BigEndian(item + 6, 2);
        event.timestamp = BigEndian(item + itemSize - 8, 8);
        if (packet.command == kEventDataCmd) {
            event.dataLength = end - at - itemSize;
            packet.events.push_back(event);
            break;
        }
        packet.events.push_back(event);
    }
    if (packet.events.empty() && packet.problem.empty()) {
        packet.problem = "no whole event in it";
    }
    return packet;
}

std::string DescribeEvent(const EventRecord& event) {
    char line[160];
    std::snprintf(line, sizeof line, "event 0x%04X  block %llu  timestamp %llu  data %zu bytes",
                  event.eventId, static_cast<unsigned long long>(event.blockId),
                  static_cast<unsigned long long>(event.timestamp), event.dataLength);
    return line;
}

} // namespace kesta::gentl
