#pragma once
// Every feature of a node map under Root with its value, access and
// availability, one a line, four spaces a category level, as the GenApi
// engine evaluates them (formulas, selectors at their current values,
// pIsAvailable and pIsImplemented):
//
//   Category    : 'Root'
//       Category    : 'SystemInformation'
//           StringReg   : 'TLVendorName' = 'Kesta Optic Works' (RO)
//           Integer     : 'InterfaceSelector' = 0 (RW) (selector)
//           Command     : 'InterfaceUpdateList' (WO)
//           String      : 'GevInterfaceMACAddress' (not available)
//           StringReg   : 'DriverVersion' (not implemented)
//           IntReg      : 'Broken' (error: GCReadPort(0x20, 8 bytes) failed with -1015)
//
// The kind is the node's element in the description. Integers show as their
// representation asks (hexadecimal, IPv4 or MAC address) with their unit.
#include <ostream>

#include "NodeMap.h"

namespace kesta::gentl {

/// Writes the listing; false if there is no Root category or a value could
/// not be read (the listing goes on past it).
bool ListFeatures(NodeMap& features, std::ostream& out);

} // namespace kesta::gentl
