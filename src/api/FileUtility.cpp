#include "api/FileUtility.h"

#include <cstring>
#include <iostream>
#include <stdexcept>

#include <dlfcn.h>
#include <unistd.h>

#include "GenTL_KESTA.h"
#include "api/Error.h"

namespace GenTL {

namespace {

constexpr std::size_t kMaxDirPath = 4096;

} // namespace

std::string GetGenTLFilePath() {
    Dl_info info{};
    const int rc = dladdr(reinterpret_cast<void*>(&::GCInitLib), &info);
    if (rc == 0 || info.dli_fname == nullptr) {
        std::cerr << "anonymous::GetGenTLFilePath dladdr returned err code: " << rc << std::endl;
        return "undefined";
    }
    return info.dli_fname;
}

std::string GetGenTLFileName() {
    return GetGenTLFileName(GetGenTLFilePath());
}

std::string GetGenTLFileName(const std::string& path) {
    try {
        return path.substr(path.find("libgentl"));
    } catch (const std::out_of_range&) {
        return "libgentl.so";
    }
}

std::string GetGenTLDirPath() {
    char dir[kMaxDirPath];
    if (getcwd(dir, sizeof(dir)) == nullptr) {
        return "undefined";
    }
    return std::string(dir) + "/";
}

int GetGenTLPortURL(const std::string& fileName, char* pURL, unsigned long* piSize) {
    if (piSize == nullptr) {
        return detail::ReportBareError(GC_ERR_INVALID_PARAMETER);
    }
    const std::string url =
        "file:" + GetGenTLDirPath() + "xml" + "/" + fileName + "?SchemaVersion=1.0.0";
    const unsigned long size = url.size() + 1;
    if (pURL == nullptr) {
        *piSize = size;
        return GC_ERR_SUCCESS;
    }
    if (size > *piSize) {
        return detail::ReportBareError(GC_ERR_BUFFER_TOO_SMALL);
    }
    std::memset(pURL, 0, *piSize);
    std::memcpy(pURL, url.data(), url.size());
    *piSize = size;
    return GC_ERR_SUCCESS;
}

} // namespace GenTL
