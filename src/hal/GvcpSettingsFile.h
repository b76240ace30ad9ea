#pragma once
/**
 * KestaGentl.cfg: overrides of the GVCP retry count and socket timeout,
 * read once from the working directory when the control layer is made.
 *
 * One setting per line, key and value separated by white space; keys compare
 * without regard to case, anything after the value is ignored and unknown
 * keys are passed over:
 *
 *   gvcp.maxRetries 5      resends after a timed-out attempt, at most 100
 *   gvcp.timeout    500    socket timeout in ms, 1 to 10000 (larger is cut)
 *
 * A bad value is logged and leaves the setting as it was.
 */
#include <istream>
#include <string>

namespace GenTL {

struct GvcpSettings {
    unsigned long numRetries = 3;
    int timeoutMs = 200;
    /// A timeout came from the file; the device's own wishes are then ignored.
    bool timeoutOverridden = false;
};

class GvcpSettingsFile {
public:
    static constexpr const char* kFileName = "KestaGentl.cfg";

    /// Applies every line of in to settings.
    static void Apply(std::istream& in, GvcpSettings& settings);
    /// Applies the file at path; a file that cannot be opened changes nothing.
    static void ApplyFile(const std::string& path, GvcpSettings& settings);
};

} // namespace GenTL
