#include "hal/AdapterTable.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/HLogger.h"

namespace GenTL {

namespace {

constexpr std::size_t kBaseIdLength = 12;

/// A datagram socket for interface queries, closed on scope exit.
class QuerySocket {
public:
    QuerySocket() : m_fd(::socket(AF_INET, SOCK_DGRAM, 0)) {}
    ~QuerySocket() {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }
    QuerySocket(const QuerySocket&) = delete;
    QuerySocket& operator=(const QuerySocket&) = delete;
    bool IsOpen() const { return m_fd >= 0; }
    int Fd() const { return m_fd; }

private:
    int m_fd;
};

struct IfAddrsDeleter {
    void operator()(ifaddrs* list) const { freeifaddrs(list); }
};

std::string Dotted(in_addr address) {
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

/// The getifaddrs entry of an IPv4 address, compared as dotted text.
const ifaddrs* FindEntry(const ifaddrs* list, const sockaddr_in& address) {
    const std::string wanted = Dotted(address.sin_addr);
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) {
            continue;
        }
        sockaddr_in own{};
        std::memcpy(&own, entry->ifa_addr, sizeof own);
        if (Dotted(own.sin_addr) == wanted) {
            return entry;
        }
    }
    return nullptr;
}

} // namespace

std::string AdapterTable::HexMac(const unsigned char* mac) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    for (int i = 0; i < 6; ++i) {
        text += kDigits[mac[i] >> 4];
        text += kDigits[mac[i] & 0x0F];
    }
    return text;
}

std::string AdapterTable::NextId(const std::vector<AdapterData>& table, const std::string& baseId) {
    const AdapterData* last = nullptr;
    for (const AdapterData& row : table) {
        if (row.id.compare(0, kBaseIdLength, baseId) == 0) {
            last = &row;
        }
    }
    if (last == nullptr) {
        return baseId;
    }
    if (last->id.size() == kBaseIdLength) {
        return baseId + ":1";
    }
    int suffix = 0;
    try {
        suffix = std::stoi(last->id.substr(kBaseIdLength + 1));
    } catch (const std::exception&) {
        suffix = 0;
    }
    return baseId + ":" + std::to_string(suffix + 1);
}

int AdapterTable::Enumerate(std::vector<AdapterData>& table, std::vector<std::string>& ids) {
    QuerySocket query;
    if (!query.IsOpen()) {
        HLogger::Error("GenTL::HALGev::GetInterfaces could't create socket", errno);
        return ReportError(GC_ERR_ERROR, "GenTL::HALGev::GetInterfaces could't create socket");
    }
    ifconf conf{};
    conf.ifc_buf = nullptr;
    if (::ioctl(query.Fd(), SIOCGIFCONF, &conf) != 0) {
        HLogger::Error("GenTL::HALGev::GetInterfaces could't get socket conf", errno);
        return ReportError(GC_ERR_ERROR, "GenTL::HALGev::GetInterfaces could't get socket conf");
    }
    const std::size_t bytes = conf.ifc_len > 0 ? static_cast<std::size_t>(conf.ifc_len) : 0;
    std::unique_ptr<ifreq[]> records(new ifreq[bytes / sizeof(ifreq) + 1]());
    conf.ifc_len = static_cast<int>((bytes / sizeof(ifreq) + 1) * sizeof(ifreq));
    conf.ifc_req = records.get();
    if (::ioctl(query.Fd(), SIOCGIFCONF, &conf) != 0) {
        HLogger::Error("GenTL::HALGev::GetInterfaces could't get socket conf", errno);
        return ReportError(GC_ERR_ERROR, "GenTL::HALGev::GetInterfaces could't get socket conf");
    }

    table.clear();
    const std::size_t count = static_cast<std::size_t>(conf.ifc_len) / sizeof(ifreq);
    for (std::size_t i = 0; i < count; ++i) {
        sockaddr_in address{};
        std::memcpy(&address, &records[i].ifr_addr, sizeof address);
        if (address.sin_addr.s_addr == htonl(INADDR_LOOPBACK)) {
            continue;
        }
        ifreq hardware{};
        std::memcpy(hardware.ifr_name, records[i].ifr_name, IFNAMSIZ);
        if (::ioctl(query.Fd(), SIOCGIFHWADDR, &hardware) != 0) {
            HLogger::Error("GenTL::HALGev::GetInterfaces could't get socket hw address", errno);
            continue;
        }
        const std::string baseId =
            HexMac(reinterpret_cast<const unsigned char*>(hardware.ifr_hwaddr.sa_data));
        AdapterData row;
        row.address = address;
        row.id = NextId(table, baseId);
        table.push_back(row);
        ids.push_back(row.id);
    }
    return GC_ERR_SUCCESS;
}

int AdapterTable::FindMac(const sockaddr_in& address, long& mac) {
    QuerySocket query;
    if (!query.IsOpen()) {
        HLogger::Error("GenTL::HALGev::GetMacAddress could't create socket", errno);
        return GC_ERR_ERROR;
    }
    ifaddrs* raw = nullptr;
    if (getifaddrs(&raw) != 0) {
        return GC_ERR_ERROR;
    }
    std::unique_ptr<ifaddrs, IfAddrsDeleter> list(raw);
    const ifaddrs* entry = FindEntry(list.get(), address);
    if (entry == nullptr) {
        return GC_ERR_ERROR;
    }
    ifreq hardware{};
    std::strncpy(hardware.ifr_name, entry->ifa_name, IFNAMSIZ - 1);
    if (::ioctl(query.Fd(), SIOCGIFHWADDR, &hardware) != 0) {
        return GC_ERR_IO;
    }
    const auto* bytes = reinterpret_cast<const unsigned char*>(hardware.ifr_hwaddr.sa_data);
    unsigned long folded = 0;
    for (int i = 0; i < 6; ++i) {
        folded = (folded << 8) | bytes[i];
    }
    mac = static_cast<long>(folded);
    return GC_ERR_SUCCESS;
}

int AdapterTable::FindNetmask(const sockaddr_in& address, long& mask) {
    QuerySocket query;
    if (!query.IsOpen()) {
        HLogger::Error("GenTL::HALGev::GetSubnetMaskAddr could't create socket", errno);
        return GC_ERR_ERROR;
    }
    ifaddrs* raw = nullptr;
    if (getifaddrs(&raw) != 0) {
        return GC_ERR_ERROR;
    }
    std::unique_ptr<ifaddrs, IfAddrsDeleter> list(raw);
    const ifaddrs* entry = FindEntry(list.get(), address);
    if (entry == nullptr || entry->ifa_netmask == nullptr) {
        return GC_ERR_ERROR;
    }
    sockaddr_in netmask{};
    std::memcpy(&netmask, entry->ifa_netmask, sizeof netmask);
    mask = static_cast<long>(ntohl(netmask.sin_addr.s_addr));
    return GC_ERR_SUCCESS;
}

} // namespace GenTL
