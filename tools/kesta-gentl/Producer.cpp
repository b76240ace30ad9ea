#include "Producer.h"

#include <dirent.h>
#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace kesta::gentl {

namespace {

const char kProducerFile[] = "GenTL_KESTA.cti";

bool EndsWith(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() &&
           text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

std::string BaseName(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

} // namespace

Producer::Producer(const std::string& path) : m_path(path) {
    m_handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (m_handle == nullptr) {
        const char* why = dlerror();
        throw std::runtime_error("cannot load " + path + ": " + (why ? why : "unknown reason"));
    }
#define KESTA_GENTL_RESOLVE(name) name = Resolve<P##name>(#name);
    KESTA_GENTL_PRODUCER_FUNCTIONS(KESTA_GENTL_RESOLVE)
#undef KESTA_GENTL_RESOLVE
}

Producer::~Producer() {
    if (m_handle != nullptr) {
        dlclose(m_handle);
    }
}

template <typename F> F Producer::Resolve(const char* name) {
    void* address = dlsym(m_handle, name);
    if (address == nullptr) {
        dlclose(m_handle);
        m_handle = nullptr;
        throw std::runtime_error(m_path + " has no function " + name);
    }
    return reinterpret_cast<F>(address);
}

GC_ERROR Producer::Report(std::ostream& out, const std::string& what, GC_ERROR code) const {
    out << what << " failed with " << code << "\n";
    GC_ERROR lastCode = 0;
    size_t size = 0;
    GC_ERROR rc = GCGetLastError(&lastCode, nullptr, &size);
    if (rc == GC_ERR_SUCCESS) {
        std::string text(size, '\0');
        rc = GCGetLastError(&lastCode, &text[0], &size);
        if (rc == GC_ERR_SUCCESS) {
            text.resize(text.find('\0'));
            out << text;
            if (text.empty() || text.back() != '\n') {
                out << "\n";
            }
            return code;
        }
    }
    out << "(GCGetLastError failed with " << rc << ")\n";
    return code;
}

std::vector<std::string> ListProducers(const std::string& searchPath) {
    std::vector<std::string> found;
    std::stringstream folders(searchPath);
    std::string folder;
    while (std::getline(folders, folder, ':')) {
        if (folder.empty()) {
            continue;
        }
        DIR* dir = opendir(folder.c_str());
        if (dir == nullptr) {
            continue;
        }
        std::vector<std::string> inFolder;
        while (const dirent* entry = readdir(dir)) {
            const std::string name = entry->d_name;
            if (EndsWith(name, ".cti")) {
                inFolder.push_back(folder + (EndsWith(folder, "/") ? "" : "/") + name);
            }
        }
        closedir(dir);
        std::sort(inFolder.begin(), inFolder.end());
        found.insert(found.end(), inFolder.begin(), inFolder.end());
    }
    return found;
}

std::string FindProducer(const std::string& explicitPath) {
    if (!explicitPath.empty()) {
        return explicitPath;
    }
    const char* searchPath = std::getenv("GENICAM_GENTL64_PATH");
    if (searchPath == nullptr || *searchPath == '\0') {
        throw std::runtime_error("no producer given: use --cti PATH or set GENICAM_GENTL64_PATH");
    }
    const std::vector<std::string> candidates = ListProducers(searchPath);
    for (const std::string& path : candidates) {
        if (BaseName(path) == kProducerFile) {
            return path;
        }
    }
    std::string message =
        std::string("no ") + kProducerFile + " in GENICAM_GENTL64_PATH (" + searchPath + ")";
    if (!candidates.empty()) {
        message += "; other producers found:";
        for (const std::string& path : candidates) {
            message += "\n  " + path;
        }
    }
    throw std::runtime_error(message);
}

} // namespace kesta::gentl
