// Everything the command line sets: what each camera is, what it can do,
// and which faults it injects.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace gevsim {

// A rule that fires on every n-th event (0 means never).
struct EveryNth {
    uint32_t every = 0;
    bool fires(uint64_t count) const { return every != 0 && count % every == 0; }
};

// A hostile answer to register and memory commands: to all of them, or to
// those whose (first) address is `address`.
struct AckRule {
    enum class Kind {
        Pending, // `count` pending acks promising `ms`, `gapMs` apart, before the ack
        Stale,   // `count` copies of the ack with an older id, `gapMs` apart, before it
        Forge,   // a copy with the right id and lying data, from `fromIp`:`fromPort` first
        Cut,     // the ack cut to `bytes` bytes, its header unchanged (0: an empty datagram)
        Lose     // no ack at all
    };
    Kind kind = Kind::Lose;
    bool anyAddress = true;
    uint32_t address = 0;
    uint32_t ms = 0;
    uint32_t count = 0; // 0: without end, and no ack (until the host sends anything else)
    uint32_t gapMs = 0;
    uint32_t bytes = 0;
    uint32_t fromIp = 0; // host order
    uint16_t fromPort = 0;
    bool hits(uint32_t a) const { return anyAddress || a == address; }
};

// A register whose reads answer `value`, whatever it holds.
struct RegisterLie {
    uint32_t address = 0;
    uint32_t value = 0;
};

// A data packet that goes out as something else: with a packet id and a
// format of any value, and filler bytes in place of its data.
struct PacketForgery {
    uint32_t at = 0;    // the data packet id it replaces
    uint32_t id = 0;    // the packet id it carries instead
    uint8_t format = 3; // the packet format it carries instead (4 bits)
};

struct FaultConfig {
    double lossRate = 0.0;      // share of first-time GVSP packets dropped
    double reorderRate = 0.0;   // share of packets held back behind the next one
    double duplicateRate = 0.0; // share of packets sent twice
    EveryNth dropLeader;        // blocks whose leader is not sent
    EveryNth dropTrailer;       // blocks whose trailer is not sent
    uint32_t burstFirst = 0;    // first data packet id of a burst loss, 0 = off
    uint32_t burstCount = 0;
    uint32_t burstEvery = 1;  // every n-th block carries the burst
    uint32_t ackDelayMs = 0;  // processing time of register and memory commands
    EveryNth ackDelayWhen{1}; // which commands take that time
    EveryNth wrongAckId;      // acks answered with a wrong id
    uint16_t ackStatus = 0;   // status injected into acks
    EveryNth ackStatusWhen;
    double silentAfterSec = -1;      // the camera stops answering after this time
    double eventLossRate = 0.0;      // share of event packets not sent
    double eventDuplicateRate = 0.0; // share of event packets sent twice
    EveryNth eventOversize;          // event packets sent longer than any GVCP packet
    std::vector<AckRule> ackRules;   // applied in order
    std::vector<RegisterLie> lies;
    // The TCP stream; frames count from 1 on each connection.
    bool tcpRefuse = false; // nothing listens on the TCP stream port
    EveryNth tcpReset;      // frames cut after half their payload by a reset
    EveryNth tcpStall;      // frames after half of whose payload the sender stalls
    EveryNth tcpOversize;   // frames twice as long as the image, as their header says
    uint32_t seed = 1;
    // Lies of the stream channel, in every block.
    std::vector<PacketForgery> forgeries;
    uint32_t latePacket = 0; // data packet sent lateBy packets after its turn, 0 = off
    uint32_t lateBy = 0;
    uint32_t claimedWidth = 0; // geometry that leader and trailer claim, 0 = the true one
    uint32_t claimedHeight = 0;
    uint32_t claimedPixelFormat = 0;
};

struct CameraIdentity {
    uint32_t ip = 0; // host order
    uint32_t netmask = 0xFFFFFF00;
    uint32_t gateway = 0;
    uint64_t mac = 0;
    std::string serial;
    std::string userName;
};

struct SimConfig {
    std::vector<CameraIdentity> cameras;
    std::string vendor = "Kesta Sim Works";
    std::string model = "GEV-SIM-1";
    std::string deviceVersion = "1.0.0";
    uint16_t gevMajor = 2, gevMinor = 0;
    uint32_t width = 640, height = 480;
    uint32_t pixelFormat = 0x01080001;
    double frameRate = 10.0;
    bool variableSize = false;
    bool zipXml = false; // the description served as a zip archive
    uint32_t maxPacketSize = 9000;
    uint32_t packetSize = 1500;
    uint32_t ringBlocks = 64;
    uint64_t firstBlockId = 1; // the first block after the channel opens
    double eventRate = 0.0;
    uint16_t eventId = 0x9001;
    uint32_t eventDataSize = 8; // data bytes of EVENTDATA packets; 0 sends EVENT only
    uint32_t heartbeatMs = 3000;
    // Capability bits switched off by name (--disable).
    std::vector<std::string> disabled;
    FaultConfig faults;
    int verbosity = 0;
    std::string readyFile;

    bool isDisabled(const std::string& name) const {
        for (const auto& d : disabled)
            if (d == name)
                return true;
        return false;
    }
};

} // namespace gevsim
