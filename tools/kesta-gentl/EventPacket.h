#pragma once
// What a remote-device event delivers: a GigE Vision message channel packet,
// whole. This reads its events for display. Every field is read only from
// bytes that arrived; a packet that is cut or lies about its length is
// reported as such, never read past its end.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kesta::gentl {

/// One event of an EVENT_CMD or EVENTDATA_CMD packet.
struct EventRecord {
    std::uint16_t eventId = 0;
    std::uint16_t streamChannel = 0;
    std::uint64_t blockId = 0;
    std::uint64_t timestamp = 0;
    std::size_t dataLength = 0; ///< bytes of event data (EVENTDATA_CMD), as far as they arrived
};

/// A packet read into its events.
struct EventPacket {
    std::uint16_t command = 0;
    std::uint16_t requestId = 0;
    std::vector<EventRecord> events;
    /// Empty for a well-formed packet; otherwise what is wrong with it.
    std::string problem;
};

/**
 * Reads size bytes of a message channel packet. EVENT_CMD (0x00C0) carries
 * one or more events, EVENTDATA_CMD (0x00C2) one event and its data. An
 * event is 16 bytes, or 24 with 64-bit block ids (flag 0x10 of the header).
 * Events are taken as far as the header's length and the bytes that arrived
 * both reach.
 */
EventPacket ParseEventPacket(const std::uint8_t* bytes, std::size_t size);

/// "event 0x9001  block 12  timestamp 123456  data 8 bytes".
std::string DescribeEvent(const EventRecord& event);

} // namespace kesta::gentl
