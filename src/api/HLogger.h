#pragma once
/**
 * HLogger: logger of the hardware layer (GVCP, GVSP and sockets).
 *
 * Log from anywhere with the static members, e.g.
 *   HLogger::Error("GenTL::Something failed", rc);
 *   HLogger::Debug(loc::al("value = {0}", text).c_str());
 * Records carry "module": "HAL". Construct one HLogger to connect the layer
 * with the out-port "ports"/"hal_out" and the level "levels"/"hal" of
 * kesta_log.conf in the working directory; without a usable file the layer's
 * logging stays off. Delete it to disconnect. One object at a time.
 */
#include "LayerLogger.h"

namespace GenTL {

class HLogger : public LayerLogger<HLogger> {
public:
    HLogger() = default;

    static constexpr const char* kModule = "HAL";
    static constexpr const char* kOutPortKey = "hal_out";
    static constexpr const char* kLevelKey = "hal";

    /// This layer's log library instance; null while logging is off.
    static IKestaLog*& Connection();
    /// Serializes this layer's sends.
    static boost::mutex& SendMutex();
};

extern template class LayerLogger<HLogger>;

} // namespace GenTL
