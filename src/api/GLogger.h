#pragma once
/**
 * GLogger: logger of the GenTL layer (the modules).
 *
 * Log from anywhere with the static members, e.g.
 *   GLogger::Error("GenTL::Something failed", rc);
 *   GLogger::Debug(loc::al("value = {0}", text).c_str());
 * Records carry "module": "GenTL". Construct one GLogger to connect the layer
 * with the out-port "ports"/"gentl_out" and the level "levels"/"gentl" of
 * kesta_log.conf in the working directory; without a usable file the layer's
 * logging stays off. Delete it to disconnect. One object at a time.
 */
#include "LayerLogger.h"

namespace GenTL {

class GLogger : public LayerLogger<GLogger> {
public:
    GLogger() = default;

    static constexpr const char* kModule = "GenTL";
    static constexpr const char* kOutPortKey = "gentl_out";
    static constexpr const char* kLevelKey = "gentl";

    /// This layer's log library instance; null while logging is off.
    static IKestaLog*& Connection();
    /// Serializes this layer's sends.
    static boost::mutex& SendMutex();
};

extern template class LayerLogger<GLogger>;

} // namespace GenTL
