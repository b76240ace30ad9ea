#pragma once
/**
 * The host's network adapters as the control layer sees them: one row per
 * IPv4 address (loopback's 127.0.0.1 excepted), with the adapter's MAC
 * address as id and ":1", ":2"... for its further addresses.
 */
#include <netinet/in.h>

#include <string>
#include <vector>

#include "hal/AdapterData.h"

namespace GenTL {

class AdapterTable {
public:
    /// Replaces table with the host's adapters and appends each id to ids.
    /// On a failure of the system query the table is left as it was.
    static int Enumerate(std::vector<AdapterData>& table, std::vector<std::string>& ids);

    /// Id of a further row for the adapter with this base id: the base id
    /// if the table has none yet, base + ":1" after the plain one, and one
    /// more than the last suffix after that.
    static std::string NextId(const std::vector<AdapterData>& table, const std::string& baseId);

    /// Twelve lower-case hex digits, no separator.
    static std::string HexMac(const unsigned char* mac);

    /// Hardware address of the interface that has this IPv4 address, first
    /// byte in the high bits.
    static int FindMac(const sockaddr_in& address, long& mac);
    /// Netmask of this IPv4 address on its interface, host order.
    static int FindNetmask(const sockaddr_in& address, long& mask);
};

} // namespace GenTL
