#pragma once
/// One row of the adapter table: the adapter's IPv4 address and its id.
#include <netinet/in.h>

#include <string>

namespace GenTL {

struct AdapterData {
    sockaddr_in address{};
    /// MAC address in twelve lower-case hex digits, ":1", ":2"... for
    /// further addresses of the same adapter.
    std::string id;
};

} // namespace GenTL
