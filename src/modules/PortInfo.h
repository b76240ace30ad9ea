#pragma once
/**
 * PortInfo: the facts of a module's port that GCGetPortInfo reports, one
 * field per PORT_INFO_* command. BaseModule fills in the common values;
 * a concrete module replaces id, module and portName with its own.
 */
#include <string>

namespace GenTL {

struct PortInfo {
    std::string id = "Unknown ID";              ///< PORT_INFO_ID
    std::string vendor = "Kesta Optic Works";   ///< PORT_INFO_VENDOR
    std::string model = "GenTL Producer";       ///< PORT_INFO_MODEL
    std::string tlType = "GEV";                 ///< PORT_INFO_TLTYPE
    std::string module = "Unknown Module";      ///< PORT_INFO_MODULE
    bool littleEndian = true;                   ///< PORT_INFO_LITTLE_ENDIAN
    bool bigEndian = false;                     ///< PORT_INFO_BIG_ENDIAN
    bool accessRead = true;                     ///< PORT_INFO_ACCESS_READ
    bool accessWrite = true;                    ///< PORT_INFO_ACCESS_WRITE
    bool accessNA = false;                      ///< PORT_INFO_ACCESS_NA
    bool accessNI = false;                      ///< PORT_INFO_ACCESS_NI
    std::string version = "0.1.78.0";           ///< PORT_INFO_VERSION
    std::string portName = "Unknown Port Name"; ///< PORT_INFO_PORTNAME
};

} // namespace GenTL
