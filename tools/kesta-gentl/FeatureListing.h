#pragma once
// Every feature of a GenApi XML with its value, as a feature browser shows
// them: the categories from Root down, in their order, two spaces a level.
//
//   SystemInformation
//     TLID = KESTA_GenTL_1_5
//     TLType = GigEVision
//   InterfaceEnumeration
//     InterfaceUpdateList (command)
//     InterfaceSelector = 0 (0 to 1)
//       [InterfaceSelector = 0]
//         InterfaceID = 024b53000001
//         GevInterfaceMACAddress (not available)
//       [InterfaceSelector = 1]
//         ...
//
// A selector that can be written is stepped through its values (integer
// bounds, or enumeration entries) and put back; the features it selects are
// shown under each value, and not again on their own. A feature whose
// pIsImplemented or pIsAvailable reads 0 shows that instead of a value; a
// read that fails shows the first line of its reason.
#include <ostream>

#include "FeatureMap.h"
#include "XmlFeatureResolver.h"

namespace kesta::gentl {

/// Writes the listing; false if the XML has no Root category or a value
/// could not be read (the listing goes on past it).
bool ListFeatures(const XmlFeatureResolver& resolver, FeatureMap& features, std::ostream& out);

} // namespace kesta::gentl
