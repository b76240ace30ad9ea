#pragma once
/**
 * Library-wide state behind the exported functions. The globals live in
 * GenTL.cpp, next to the exported functions that use them; this header
 * makes them reachable for the System module and for tests.
 *
 * Lock order: g_libMutex before g_isSystemOpenMutex. Neither is held during
 * a module operation, except g_isSystemOpenMutex across System::Open in
 * TLOpen.
 */
#include <boost/thread/mutex.hpp>

namespace GenTL {

class GLogger;
class HLogger;

/// Guards g_isLibInit and the creation and deletion of the loggers.
extern boost::mutex g_libMutex;
/// Set by GCInitLib, cleared by GCCloseLib.
extern bool g_isLibInit;
/// The loggers of the GenTL and GVCP layers, alive from GCInitLib to
/// GCCloseLib (created and deleted under g_libMutex).
extern GLogger* g_pGLogger;
extern HLogger* g_pHLogger;

/// Guards g_isSystemOpen.
extern boost::mutex g_isSystemOpenMutex;
/// A System is open; at most one at a time in the process.
extern bool g_isSystemOpen;

/// The initialized test of every exported function: g_isLibInit under
/// g_libMutex.
bool IsLibInitialized();

/// Facts of the producer, as GCGetInfo and the System module report them.
constexpr const char* kProducerId = "KESTA_GenTL_1_5";
constexpr const char* kProducerVendor = "Kesta Optic Works";
constexpr const char* kProducerModel = "GenTL Producer";
constexpr const char* kProducerVersion = "0.1.78.0";
constexpr const char* kProducerTLType = "GEV";
constexpr const char* kProducerDisplayName = "Kesta Optic Works GenTL Module";
constexpr int kProducerCharEncoding = 0;
constexpr unsigned int kGenTLVersionMajor = 1;
constexpr unsigned int kGenTLVersionMinor = 5;

} // namespace GenTL
