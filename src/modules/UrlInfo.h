#pragma once
/**
 * UrlInfo: the facts of a module's one URL beyond the URL text itself.
 * GCGetPortURLInfo answers the schema version from here; the file facts
 * are not reported (their commands answer not implemented), so they stay
 * blank.
 */
#include <cstdint>
#include <string>

namespace GenTL {

struct UrlInfo {
    std::string url;      ///< not read: the URL comes from GetPortURL
    std::string fileName; ///< not read
    std::int32_t SchemaVerMajor = 1;
    std::int32_t SchemaVerMinor = 0;
    std::int32_t fileVerMajor = 0;    ///< not read
    std::int32_t fileVerMinor = 0;    ///< not read
    std::int32_t fileVerSubminor = 0; ///< not read
};

} // namespace GenTL
