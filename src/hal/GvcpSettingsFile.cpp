#include "hal/GvcpSettingsFile.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "api/HLogger.h"
#include "api/localization.h"

namespace GenTL {

namespace {

constexpr unsigned long kRetriesCeiling = 100;
constexpr int kTimeoutCeilingMs = 10000;

bool SameKey(const std::string& a, const char* b) {
    const std::string other(b);
    return a.size() == other.size() &&
           std::equal(a.begin(), a.end(), other.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

void ApplyRetries(const std::string& value, GvcpSettings& settings) {
    try {
        // Compared as an unsigned number, so that a negative count is cut
        // to the ceiling like a large one.
        const unsigned long retries = static_cast<unsigned long>(std::stol(value));
        settings.numRetries = retries < kRetriesCeiling + 1 ? retries : kRetriesCeiling;
    } catch (const std::exception& e) {
        HLogger::Error(
            loc::al("GenTL::HALGev Failed to override gvcp numRetries count: {0}", e.what())
                .c_str());
    }
}

void ApplyTimeout(const std::string& value, GvcpSettings& settings) {
    try {
        const int timeout = std::stoi(value);
        if (timeout > 0) {
            settings.timeoutMs = std::min(timeout, kTimeoutCeilingMs);
            settings.timeoutOverridden = true;
        } else {
            HLogger::Error(
                loc::al(
                    "GenTL::HALGev Failed to override gvcp timeout: invalid value specified: {0}",
                    value.c_str())
                    .c_str());
        }
    } catch (const std::exception& e) {
        HLogger::Error(
            loc::al("GenTL::HALGev Failed to override gvcp timeout: {0}", e.what()).c_str());
    }
}

} // namespace

void GvcpSettingsFile::Apply(std::istream& in, GvcpSettings& settings) {
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        std::string key;
        std::string value;
        if (!(words >> key)) {
            continue;
        }
        words >> value;
        if (SameKey(key, "gvcp.maxRetries")) {
            ApplyRetries(value, settings);
        } else if (SameKey(key, "gvcp.timeout")) {
            ApplyTimeout(value, settings);
        }
    }
}

void GvcpSettingsFile::ApplyFile(const std::string& path, GvcpSettings& settings) {
    std::ifstream in(path);
    if (in) {
        Apply(in, settings);
    }
}

} // namespace GenTL
