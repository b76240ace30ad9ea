#include "CommandLine.h"

#include "GevConstants.h"

#include <arpa/inet.h>
#include <getopt.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace gevsim {

namespace {

const char* const kCapabilityNames[] = {"pending-ack",
                                        "manifest",
                                        "writemem",
                                        "concatenation",
                                        "resend",
                                        "event",
                                        "eventdata",
                                        "action",
                                        "scheduled-action",
                                        "switchover",
                                        "heartbeat-disable",
                                        "extended-id",
                                        "scsp",
                                        "mcsp",
                                        "test-data",
                                        "user-name",
                                        "serial-number",
                                        "ccp-application"};

bool toDouble(const char* s, double& v) {
    char* end = nullptr;
    v = std::strtod(s, &end);
    return end != s && *end == '\0';
}

bool toUnsigned(const char* s, unsigned long& v) {
    char* end = nullptr;
    v = std::strtoul(s, &end, 0);
    return end != s && *end == '\0';
}

// "A[:B[:C]]" into up to three unsigned numbers.
bool toTriple(const std::string& s, unsigned long out[3], int& n) {
    n = 0;
    std::stringstream in(s);
    std::string part;
    while (std::getline(in, part, ':')) {
        if (n == 3 || !toUnsigned(part.c_str(), out[n]))
            return false;
        ++n;
    }
    return n > 0;
}

// "VALUE[@ADDRESS]": an ack rule's own part, and the address it is aimed at.
bool toAckRule(const std::string& s, std::string& value, AckRule& rule) {
    const size_t at = s.find('@');
    value = s.substr(0, at);
    if (at == std::string::npos)
        return true;
    unsigned long address = 0;
    rule.anyAddress = false;
    if (!toUnsigned(s.c_str() + at + 1, address) || address > 0xFFFFFFFFul)
        return false;
    rule.address = static_cast<uint32_t>(address);
    return true;
}

enum Option {
    kIp = 1000,
    kMac,
    kSerial,
    kNetmask,
    kGateway,
    kVendor,
    kModel,
    kUserName,
    kGev,
    kWidth,
    kHeight,
    kPixelFormat,
    kFps,
    kVariable,
    kZipXml,
    kMaxPacket,
    kPacketSize,
    kRing,
    kFirstBlockId,
    kEventRate,
    kEventId,
    kEventData,
    kHeartbeat,
    kDisable,
    kLoss,
    kReorder,
    kDuplicate,
    kDropLeader,
    kDropTrailer,
    kBurst,
    kAckDelay,
    kWrongAckId,
    kAckStatus,
    kSilentAfter,
    kEventLoss,
    kEventDup,
    kEventBig,
    kPendingAcks,
    kStaleAcks,
    kForgeAcks,
    kShortAcks,
    kLoseAcks,
    kLie,
    kForgePacket,
    kLatePacket,
    kClaimedSize,
    kTcpRefuse,
    kTcpReset,
    kTcpStall,
    kTcpOversize,
    kSeed,
    kReadyFile,
    kHelp
};

} // namespace

bool CommandLine::parseIp(const std::string& text, uint32_t& ip) {
    in_addr a{};
    if (inet_pton(AF_INET, text.c_str(), &a) != 1)
        return false;
    ip = ntohl(a.s_addr);
    return true;
}

bool CommandLine::parseMac(const std::string& text, uint64_t& mac) {
    unsigned b[6];
    char tail = 0;
    if (std::sscanf(text.c_str(), "%x:%x:%x:%x:%x:%x%c", &b[0], &b[1], &b[2], &b[3], &b[4], &b[5],
                    &tail) != 6)
        return false;
    mac = 0;
    for (unsigned v : b) {
        if (v > 0xFF)
            return false;
        mac = mac << 8 | v;
    }
    return true;
}

bool CommandLine::parsePixelFormat(const std::string& text, uint32_t& pf) {
    if (text == "Mono8")
        pf = 0x01080001;
    else if (text == "Mono16")
        pf = 0x01100007;
    else if (text == "RGB8")
        pf = 0x02180014;
    else
        return false;
    return true;
}

bool CommandLine::fail(const std::string& message) {
    m_error = message;
    return false;
}

std::string CommandLine::usage() {
    std::string caps;
    for (const char* c : kCapabilityNames)
        caps += std::string(caps.empty() ? "" : ", ") + c;
    return "usage: gev-camera-sim --ip A.B.C.D [--ip ...] [options]\n"
           "Each --ip is one camera; --mac, --serial and --user-name given after an --ip\n"
           "belong to that camera.\n"
           "Identity:  --mac XX:XX:XX:XX:XX:XX --serial S --user-name S --netmask M --gateway G\n"
           "           --vendor S --model S --gev-version MAJOR.MINOR (default 2.0)\n"
           "Image:     --width N --height N --pixel-format Mono8|Mono16|RGB8 --fps F\n"
           "           --variable-size (width-1 carrier blocks, real height in the trailer)\n"
           "           --zip-xml (the GenApi description served as KestaSimCamera.zip)\n"
           "Channels:  --packet-size N (1500) --max-packet-size N (9000) --ring BLOCKS (64)\n"
           "           --first-block-id N (1): id of the first block after the channel opens\n"
           "           --event-rate HZ (0) --event-id N (0x9001) --event-data BYTES (8, up to\n"
           "           552; 0 sends EVENT packets only) --heartbeat-ms N (3000)\n"
           "           --disable CAP[,CAP...]  one of: " +
           caps +
           "\n"
           "Faults:    --loss P --reorder P --duplicate P (shares 0..1 of GVSP packets)\n"
           "           --drop-leader N --drop-trailer N (every n-th block)\n"
           "           --burst-loss FIRST:COUNT[:EVERY] (data packets of every n-th block)\n"
           "           --ack-delay MS[:EVERY] (slow replies; pending acks when enabled)\n"
           "           --wrong-ack-id N --ack-status CODE[:EVERY] --silent-after SEC --seed N\n"
           "           --event-loss P --event-duplicate P (shares of event packets)\n"
           "           --event-oversize N (every n-th event packet is 600 bytes long)\n"
           "Hostile:   acks of register and memory commands, of all or [@ADDRESS] only:\n"
           "           --pending-acks MS:COUNT[:GAP] (COUNT 0: without end, no ack)\n"
           "           --stale-acks COUNT:GAP (older ids; COUNT 0: without end, no ack)\n"
           "           --forge-acks IP[:PORT] (lying copy from another sender first)\n"
           "           --short-acks BYTES (cut, header kept) --lose-acks ADDRESS\n"
           "           --lie ADDRESS:VALUE (reads of that register answer VALUE)\n"
           "Lies:      --forge-packet AT:ID:FORMAT (data packet AT goes out with that id and\n"
           "           format and filler data; repeatable) --late-packet ID:BY (data packet ID\n"
           "           goes out BY packets late) --claim-geometry W:H:PIXELFORMAT (in leader\n"
           "           and trailer; the data stays true)\n"
           "TCP stream (frames counted per connection):\n"
           "           --tcp-refuse (nothing listens) --tcp-reset N (reset after half of the\n"
           "           n-th frame) --tcp-stall N (the sender stalls after half of it)\n"
           "           --tcp-oversize N (every n-th frame twice as long, as its header says)\n"
           "Run:       --ready-file PATH (written once all sockets are bound) -v (more: -vv)\n";
}

bool CommandLine::parse(int argc, char** argv, SimConfig& config) {
    static const option kOptions[] = {{"ip", required_argument, nullptr, kIp},
                                      {"mac", required_argument, nullptr, kMac},
                                      {"serial", required_argument, nullptr, kSerial},
                                      {"netmask", required_argument, nullptr, kNetmask},
                                      {"gateway", required_argument, nullptr, kGateway},
                                      {"vendor", required_argument, nullptr, kVendor},
                                      {"model", required_argument, nullptr, kModel},
                                      {"user-name", required_argument, nullptr, kUserName},
                                      {"gev-version", required_argument, nullptr, kGev},
                                      {"width", required_argument, nullptr, kWidth},
                                      {"height", required_argument, nullptr, kHeight},
                                      {"pixel-format", required_argument, nullptr, kPixelFormat},
                                      {"fps", required_argument, nullptr, kFps},
                                      {"variable-size", no_argument, nullptr, kVariable},
                                      {"zip-xml", no_argument, nullptr, kZipXml},
                                      {"max-packet-size", required_argument, nullptr, kMaxPacket},
                                      {"packet-size", required_argument, nullptr, kPacketSize},
                                      {"ring", required_argument, nullptr, kRing},
                                      {"first-block-id", required_argument, nullptr, kFirstBlockId},
                                      {"event-rate", required_argument, nullptr, kEventRate},
                                      {"event-id", required_argument, nullptr, kEventId},
                                      {"event-data", required_argument, nullptr, kEventData},
                                      {"heartbeat-ms", required_argument, nullptr, kHeartbeat},
                                      {"disable", required_argument, nullptr, kDisable},
                                      {"loss", required_argument, nullptr, kLoss},
                                      {"reorder", required_argument, nullptr, kReorder},
                                      {"duplicate", required_argument, nullptr, kDuplicate},
                                      {"drop-leader", required_argument, nullptr, kDropLeader},
                                      {"drop-trailer", required_argument, nullptr, kDropTrailer},
                                      {"burst-loss", required_argument, nullptr, kBurst},
                                      {"ack-delay", required_argument, nullptr, kAckDelay},
                                      {"wrong-ack-id", required_argument, nullptr, kWrongAckId},
                                      {"ack-status", required_argument, nullptr, kAckStatus},
                                      {"silent-after", required_argument, nullptr, kSilentAfter},
                                      {"event-loss", required_argument, nullptr, kEventLoss},
                                      {"event-duplicate", required_argument, nullptr, kEventDup},
                                      {"event-oversize", required_argument, nullptr, kEventBig},
                                      {"pending-acks", required_argument, nullptr, kPendingAcks},
                                      {"stale-acks", required_argument, nullptr, kStaleAcks},
                                      {"forge-acks", required_argument, nullptr, kForgeAcks},
                                      {"short-acks", required_argument, nullptr, kShortAcks},
                                      {"lose-acks", required_argument, nullptr, kLoseAcks},
                                      {"lie", required_argument, nullptr, kLie},
                                      {"forge-packet", required_argument, nullptr, kForgePacket},
                                      {"late-packet", required_argument, nullptr, kLatePacket},
                                      {"claim-geometry", required_argument, nullptr, kClaimedSize},
                                      {"tcp-refuse", no_argument, nullptr, kTcpRefuse},
                                      {"tcp-reset", required_argument, nullptr, kTcpReset},
                                      {"tcp-stall", required_argument, nullptr, kTcpStall},
                                      {"tcp-oversize", required_argument, nullptr, kTcpOversize},
                                      {"seed", required_argument, nullptr, kSeed},
                                      {"ready-file", required_argument, nullptr, kReadyFile},
                                      {"verbose", no_argument, nullptr, 'v'},
                                      {"help", no_argument, nullptr, kHelp},
                                      {nullptr, 0, nullptr, 0}};

    optind = 0; // full re-initialisation of getopt, so parse() can run more than once
    opterr = 0;
    FaultConfig& f = config.faults;
    int opt;
    while ((opt = getopt_long(argc, argv, "vh", kOptions, nullptr)) != -1) {
        const std::string arg = optarg ? optarg : "";
        double d = 0;
        unsigned long u = 0;
        unsigned long t[3] = {0, 0, 0};
        int n = 0;
        CameraIdentity* cam = config.cameras.empty() ? nullptr : &config.cameras.back();
        auto needCamera = [&](const char* name) {
            return cam ? true : fail(std::string("--") + name + " must follow an --ip");
        };
        switch (opt) {
        case kIp: {
            CameraIdentity c;
            if (!parseIp(arg, c.ip))
                return fail("bad --ip " + arg);
            config.cameras.push_back(c);
            break;
        }
        case kMac:
            if (!needCamera("mac"))
                return false;
            if (!parseMac(arg, cam->mac))
                return fail("bad --mac " + arg);
            break;
        case kSerial:
            if (!needCamera("serial"))
                return false;
            if (arg.size() > 15)
                return fail("--serial takes at most 15 characters");
            cam->serial = arg;
            break;
        case kUserName:
            if (!needCamera("user-name"))
                return false;
            if (arg.size() > 15)
                return fail("--user-name takes at most 15 characters");
            cam->userName = arg;
            break;
        case kNetmask:
        case kGateway: {
            uint32_t v = 0;
            if (!parseIp(arg, v))
                return fail("bad address " + arg);
            for (auto& c : config.cameras)
                (opt == kNetmask ? c.netmask : c.gateway) = v;
            break;
        }
        case kVendor:
            config.vendor = arg.substr(0, 31);
            break;
        case kModel:
            config.model = arg.substr(0, 31);
            break;
        case kGev: {
            unsigned major = 0, minor = 0;
            if (std::sscanf(arg.c_str(), "%u.%u", &major, &minor) != 2 || major > 0xFFFF ||
                minor > 0xFFFF)
                return fail("bad --gev-version " + arg);
            config.gevMajor = static_cast<uint16_t>(major);
            config.gevMinor = static_cast<uint16_t>(minor);
            break;
        }
        case kWidth:
        case kHeight:
            if (!toUnsigned(optarg, u) || u == 0 || u > 16384)
                return fail("bad image size " + arg);
            (opt == kWidth ? config.width : config.height) = static_cast<uint32_t>(u);
            break;
        case kPixelFormat:
            if (!parsePixelFormat(arg, config.pixelFormat))
                return fail("unknown pixel format " + arg);
            break;
        case kFps:
            if (!toDouble(optarg, d) || d <= 0 || d > 10000)
                return fail("bad --fps " + arg);
            config.frameRate = d;
            break;
        case kVariable:
            config.variableSize = true;
            break;
        case kZipXml:
            config.zipXml = true;
            break;
        case kMaxPacket:
        case kPacketSize:
            if (!toUnsigned(optarg, u) || u < 576 || u > 65535)
                return fail("packet sizes lie between 576 and 65535");
            (opt == kMaxPacket ? config.maxPacketSize : config.packetSize) =
                static_cast<uint32_t>(u);
            break;
        case kRing:
            if (!toUnsigned(optarg, u) || u == 0 || u > 100000)
                return fail("bad --ring " + arg);
            config.ringBlocks = static_cast<uint32_t>(u);
            break;
        case kFirstBlockId:
            if (!toUnsigned(optarg, u) || u == 0)
                return fail("bad --first-block-id " + arg);
            config.firstBlockId = u;
            break;
        case kEventRate:
            if (!toDouble(optarg, d) || d < 0 || d > 10000)
                return fail("bad --event-rate " + arg);
            config.eventRate = d;
            break;
        case kEventId:
            if (!toUnsigned(optarg, u) || u > 0xFFFF)
                return fail("bad --event-id " + arg);
            config.eventId = static_cast<uint16_t>(u);
            break;
        case kEventData:
            if (!toUnsigned(optarg, u) || u > kGvcpMaxDatagram - kEventHeaderSize)
                return fail("bad --event-data " + arg);
            config.eventDataSize = static_cast<uint32_t>(u);
            break;
        case kHeartbeat:
            if (!toUnsigned(optarg, u) || u < 100 || u > 0xFFFFFFFFul)
                return fail("bad --heartbeat-ms " + arg);
            config.heartbeatMs = static_cast<uint32_t>(u);
            break;
        case kDisable: {
            std::stringstream in(arg);
            std::string name;
            while (std::getline(in, name, ',')) {
                bool known = false;
                for (const char* c : kCapabilityNames)
                    known = known || name == c;
                if (!known)
                    return fail("unknown capability " + name);
                config.disabled.push_back(name);
            }
            break;
        }
        case kLoss:
        case kReorder:
        case kDuplicate:
        case kEventLoss:
        case kEventDup:
            if (!toDouble(optarg, d) || d < 0 || d > 1)
                return fail("rates lie between 0 and 1: " + arg);
            (opt == kLoss        ? f.lossRate
             : opt == kReorder   ? f.reorderRate
             : opt == kDuplicate ? f.duplicateRate
             : opt == kEventLoss ? f.eventLossRate
                                 : f.eventDuplicateRate) = d;
            break;
        case kDropLeader:
        case kDropTrailer:
        case kWrongAckId:
        case kEventBig:
        case kTcpReset:
        case kTcpStall:
        case kTcpOversize:
            if (!toUnsigned(optarg, u) || u > 0xFFFFFFFFul)
                return fail("bad count " + arg);
            (opt == kDropLeader    ? f.dropLeader
             : opt == kDropTrailer ? f.dropTrailer
             : opt == kWrongAckId  ? f.wrongAckId
             : opt == kTcpReset    ? f.tcpReset
             : opt == kTcpStall    ? f.tcpStall
             : opt == kTcpOversize ? f.tcpOversize
                                   : f.eventOversize)
                .every = static_cast<uint32_t>(u);
            break;
        case kTcpRefuse:
            f.tcpRefuse = true;
            break;
        case kBurst:
            if (!toTriple(arg, t, n) || n < 2 || t[0] == 0 || t[1] == 0 || (n == 3 && t[2] == 0))
                return fail("--burst-loss takes FIRST:COUNT[:EVERY]");
            f.burstFirst = static_cast<uint32_t>(t[0]);
            f.burstCount = static_cast<uint32_t>(t[1]);
            f.burstEvery = n == 3 ? static_cast<uint32_t>(t[2]) : 1;
            break;
        case kAckDelay:
            if (!toTriple(arg, t, n) || n > 2 || t[0] > 60000)
                return fail("--ack-delay takes MS[:EVERY]");
            f.ackDelayMs = static_cast<uint32_t>(t[0]);
            f.ackDelayWhen.every = n == 2 ? static_cast<uint32_t>(t[1]) : 1;
            break;
        case kAckStatus:
            if (!toTriple(arg, t, n) || n > 2 || t[0] > 0xFFFF || t[0] == 0)
                return fail("--ack-status takes CODE[:EVERY]");
            f.ackStatus = static_cast<uint16_t>(t[0]);
            f.ackStatusWhen.every = n == 2 ? static_cast<uint32_t>(t[1]) : 1;
            break;
        case kSilentAfter:
            if (!toDouble(optarg, d) || d < 0)
                return fail("bad --silent-after " + arg);
            f.silentAfterSec = d;
            break;
        case kPendingAcks:
        case kStaleAcks:
        case kShortAcks: {
            AckRule r;
            std::string value;
            const int parts = opt == kPendingAcks ? 3 : opt == kStaleAcks ? 2 : 1;
            if (!toAckRule(arg, value, r) || !toTriple(value, t, n) || n > parts ||
                n < std::min(parts, 2) || t[0] > 0xFFFF || t[1] > 0xFFFFFFFFul || t[2] > 60000)
                return fail("bad hostile ack rule " + arg);
            if (opt == kPendingAcks) {
                r.kind = AckRule::Kind::Pending;
                r.ms = static_cast<uint32_t>(t[0]);
                r.count = static_cast<uint32_t>(t[1]);
                r.gapMs = n == 3 ? static_cast<uint32_t>(t[2]) : r.ms / 2;
            } else if (opt == kStaleAcks) {
                r.kind = AckRule::Kind::Stale;
                r.count = static_cast<uint32_t>(t[0]);
                r.gapMs = static_cast<uint32_t>(t[1]);
            } else {
                r.kind = AckRule::Kind::Cut;
                r.bytes = static_cast<uint32_t>(t[0]);
            }
            f.ackRules.push_back(r);
            break;
        }
        case kForgeAcks: {
            AckRule r;
            r.kind = AckRule::Kind::Forge;
            r.fromPort = 3956;
            std::string value;
            const bool ruleOk = toAckRule(arg, value, r);
            const size_t colon = value.find(':');
            if (colon != std::string::npos) {
                if (!toUnsigned(value.c_str() + colon + 1, u) || u == 0 || u > 0xFFFF)
                    return fail("bad --forge-acks " + arg);
                r.fromPort = static_cast<uint16_t>(u);
            }
            if (!ruleOk || !parseIp(value.substr(0, colon), r.fromIp))
                return fail("bad --forge-acks " + arg);
            f.ackRules.push_back(r);
            break;
        }
        case kLoseAcks: {
            AckRule r;
            if (!toUnsigned(optarg, u) || u > 0xFFFFFFFFul)
                return fail("bad --lose-acks " + arg);
            r.anyAddress = false;
            r.address = static_cast<uint32_t>(u);
            f.ackRules.push_back(r);
            break;
        }
        case kLie:
            if (!toTriple(arg, t, n) || n != 2 || t[0] > 0xFFFFFFFFul || t[1] > 0xFFFFFFFFul)
                return fail("--lie takes ADDRESS:VALUE");
            f.lies.push_back({static_cast<uint32_t>(t[0]), static_cast<uint32_t>(t[1])});
            break;
        case kForgePacket:
            if (!toTriple(arg, t, n) || n != 3 || t[0] == 0 || t[0] > 0xFFFFFFFFul ||
                t[1] > 0xFFFFFFFFul || t[2] > 15)
                return fail("--forge-packet takes AT:ID:FORMAT (AT from 1, FORMAT 0 to 15)");
            f.forgeries.push_back({static_cast<uint32_t>(t[0]), static_cast<uint32_t>(t[1]),
                                   static_cast<uint8_t>(t[2])});
            break;
        case kLatePacket:
            if (!toTriple(arg, t, n) || n != 2 || t[0] == 0 || t[1] == 0 || t[0] > 0xFFFFFFFFul ||
                t[1] > 0xFFFFFFFFul)
                return fail("--late-packet takes ID:BY, both from 1");
            f.latePacket = static_cast<uint32_t>(t[0]);
            f.lateBy = static_cast<uint32_t>(t[1]);
            break;
        case kClaimedSize:
            if (!toTriple(arg, t, n) || n != 3 || t[0] == 0 || t[0] > 0xFFFFFFFFul ||
                t[1] > 0xFFFFFFFFul || t[2] > 0xFFFFFFFFul)
                return fail("--claim-geometry takes WIDTH:HEIGHT:PIXELFORMAT");
            f.claimedWidth = static_cast<uint32_t>(t[0]);
            f.claimedHeight = static_cast<uint32_t>(t[1]);
            f.claimedPixelFormat = static_cast<uint32_t>(t[2]);
            break;
        case kSeed:
            if (!toUnsigned(optarg, u))
                return fail("bad --seed " + arg);
            f.seed = static_cast<uint32_t>(u);
            break;
        case kReadyFile:
            config.readyFile = arg;
            break;
        case 'v':
            ++config.verbosity;
            break;
        case 'h':
        case kHelp:
            m_help = true;
            return false;
        default:
            return fail(std::string("unknown or incomplete option ") +
                        (optind > 0 && optind <= argc ? argv[optind - 1] : ""));
        }
    }
    if (optind < argc)
        return fail(std::string("unexpected argument ") + argv[optind]);
    if (config.cameras.empty())
        return fail("at least one --ip is needed");
    if (config.packetSize > config.maxPacketSize)
        config.packetSize = config.maxPacketSize;
    for (size_t i = 0; i < config.cameras.size(); ++i) {
        CameraIdentity& c = config.cameras[i];
        // A locally administered MAC and a serial derived from the address,
        // unless given.
        if (c.mac == 0)
            c.mac = 0x024B53000000ull | (c.ip & 0xFFFFFF);
        if (c.serial.empty()) {
            char s[16];
            std::snprintf(s, sizeof s, "KS%08X", static_cast<unsigned>(c.ip));
            c.serial = s;
        }
    }
    return true;
}

} // namespace gevsim
