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
    uint32_t seed = 1;
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
