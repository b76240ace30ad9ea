#pragma once
// Support of the device module's network tests: the guard that every test
// runs in the host namespace of run-with-camera (opening the System
// broadcasts on every adapter), the GVCP commands the camera receives, and a
// rival application on the second host.
#include <ifaddrs.h>
#include <sys/socket.h>
#include <net/if.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "../hal/NetnsSupport.h"
#include "../sim/GevClient.h"

namespace kesta_device {

using kesta_netns::Env;
using kesta_netns::EnvList;

inline std::string CurrentNetns() {
    std::string name;
    if (FILE* p = popen("ip netns identify 2>/dev/null", "r")) {
        char line[256] = {};
        if (fgets(line, sizeof(line), p) != nullptr) {
            name = line;
        }
        pclose(p);
    }
    name.erase(std::remove(name.begin(), name.end(), '\n'), name.end());
    return name;
}

/// Why this process must not open the System here; empty inside the
/// harness's host namespace, where no address but the test bed's is up (the
/// ports of its bridge carry none).
inline std::string NotInTestBed() {
    const std::string host = Env("KESTA_NETNS_HOST");
    if (host.empty()) {
        return "needs the namespaces of run-with-camera";
    }
    if (CurrentNetns() != host) {
        return "not inside the namespace " + host;
    }
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return "getifaddrs failed";
    }
    std::string foreign;
    for (ifaddrs* i = list; i != nullptr; i = i->ifa_next) {
        const std::string name = i->ifa_name;
        const bool ipv4 = i->ifa_addr != nullptr && i->ifa_addr->sa_family == AF_INET;
        if (ipv4 && !(i->ifa_flags & IFF_LOOPBACK) && name != Env("KESTA_NETNS_HOST_IF")) {
            foreign = name;
        }
    }
    freeifaddrs(list);
    return foreign.empty() ? "" : "a foreign link is up here: " + foreign;
}

/// A GVCP command as the camera received it.
struct Command {
    kesta_netns::Clock::time_point at;
    std::uint16_t code = 0;
    std::uint32_t address = 0; ///< first address of the payload
    std::uint32_t word = 0;    ///< second word: the value of WRITEREG, the count of READMEM
    std::size_t payload = 0;   ///< bytes behind the header
};

/// The GVCP commands among captured datagrams, optionally of one code only.
inline std::vector<Command> Commands(const std::vector<kesta_netns::Captured>& packets,
                                     std::uint16_t code = 0) {
    std::vector<Command> out;
    for (const auto& p : packets) {
        if (p.payload.size() < 8 || p.payload[0] != 0x42) {
            continue;
        }
        Command c;
        c.at = p.at;
        c.code = gevtest::be16(&p.payload[2]);
        c.payload = p.payload.size() - 8;
        if (p.payload.size() >= 12) {
            c.address = gevtest::be32(&p.payload[8]);
        }
        if (p.payload.size() >= 16) {
            c.word = gevtest::be32(&p.payload[12]);
        }
        if (code == 0 || c.code == code) {
            out.push_back(c);
        }
    }
    return out;
}

constexpr std::uint16_t kReadReg = 0x0080;
constexpr std::uint16_t kWriteReg = 0x0082;
constexpr std::uint16_t kReadMem = 0x0084;
constexpr std::uint16_t kWriteMem = 0x0086;
constexpr std::uint16_t kStatusAccessDenied = 0x8006;

/// Another application on the second host: a GVCP client of its own.
inline gevtest::GvcpClient Rival() {
    const gevtest::TestBed bed = gevtest::TestBed::fromEnvironment();
    return gevtest::GvcpClient(bed.cameraIps.at(0), bed.host2Ip, bed.host2Namespace);
}

} // namespace kesta_device
