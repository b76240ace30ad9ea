#pragma once
// Loads the built producer the way a consumer does: dlopen() with
// RTLD_LOCAL, every function found by dlsym() under its exported name (the
// GenTL:: extensions under their mangled names).
//
//   kesta::test::CtiLibrary lib;            // KESTA_CTI_PATH by default
//   ASSERT_EQ(lib.GCInitLib(), GC_ERR_SUCCESS);
//   kesta::test::LastError e = lib.TakeLastError();
//
// The library's globals live as long as it stays loaded. Each CtiLibrary
// dlclose()s on destruction; a test that needs a clean library calls
// GCCloseLib before that (CtiTest does).
#include <dlfcn.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "GenTL_KESTA.h"

namespace kesta::test {

// clang-format off
#define KESTA_CTI_C_FUNCTIONS(X)                                                                   \
    X(GCInitLib) X(GCCloseLib) X(GCGetInfo) X(GCGetLastError)                                      \
    X(GCReadPort) X(GCWritePort) X(GCGetPortURL) X(GCGetPortInfo)                                  \
    X(GCRegisterEvent) X(GCUnregisterEvent) X(GCGetNumPortURLs) X(GCGetPortURLInfo)                \
    X(GCReadPortStacked) X(GCWritePortStacked)                                                     \
    X(EventGetData) X(EventGetDataInfo) X(EventGetInfo) X(EventFlush) X(EventKill)                 \
    X(TLOpen) X(TLClose) X(TLGetInfo) X(TLGetNumInterfaces) X(TLGetInterfaceID)                    \
    X(TLGetInterfaceInfo) X(TLOpenInterface) X(TLUpdateInterfaceList)                              \
    X(IFClose) X(IFGetInfo) X(IFGetNumDevices) X(IFGetDeviceID) X(IFUpdateDeviceList)              \
    X(IFGetDeviceInfo) X(IFOpenDevice) X(IFGetParentTL)                                            \
    X(DevGetPort) X(DevGetNumDataStreams) X(DevGetDataStreamID) X(DevOpenDataStream)               \
    X(DevGetInfo) X(DevGetParentIF) X(DevSendActionCommand) X(DevClose)                            \
    X(DSAnnounceBuffer) X(DSAllocAndAnnounceBuffer) X(DSFlushQueue) X(DSStartAcquisition)          \
    X(DSStopAcquisition) X(DSGetInfo) X(DSGetBufferID) X(DSRevokeBuffer) X(DSGetParentDev)         \
    X(DSQueueBuffer) X(DSGetBufferInfo) X(DSClose)                                                 \
    X(DSGetBufferChunkData) X(DSGetNumBufferParts) X(DSGetBufferPartInfo)

#define KESTA_CTI_CXX_FUNCTIONS(X)                                                                 \
    X(IFForceIp, "_ZN5GenTL9IFForceIpEPvmjjj")                                                     \
    X(IFAddUnicastDiscoveryDevice, "_ZN5GenTL27IFAddUnicastDiscoveryDeviceEPvj")                   \
    X(IFRemoveUnicastDiscoveryDevice, "_ZN5GenTL30IFRemoveUnicastDiscoveryDeviceEPvj")             \
    X(IFGetUnicastDiscoveryDevices, "_ZN5GenTL28IFGetUnicastDiscoveryDevicesEPvPjS1_")             \
    X(DSWaitForNextLeader, "_ZN5GenTL19DSWaitForNextLeaderEPvm")                                   \
    X(DSResetWaitForNextLeader, "_ZN5GenTL24DSResetWaitForNextLeaderEPv")                          \
    X(DSSetupResendRetryParams, "_ZN5GenTL24DSSetupResendRetryParamsEPvmdPKcS2_ii")
// clang-format on

/// One (code, text) pair of an error stack.
struct ErrorRecord {
    GC_ERROR code = 0;
    std::string name;    ///< e.g. "GenTL::GC_ERR_INVALID_HANDLE(-1006)"
    std::string message; ///< the record's text, stamp included
};

/// What GCGetLastError delivered.
struct LastError {
    GC_ERROR result = GC_ERR_ERROR; ///< GCGetLastError's own result
    GC_ERROR code = GC_ERR_ERROR;   ///< *piErrorCode
    std::string text;               ///< the whole stack text

    /// The records of the text, newest first. A record is a line
    /// "  <code> <name> :" and its text after six blanks; texts may run over
    /// several lines.
    std::vector<ErrorRecord> Records() const {
        std::vector<ErrorRecord> records;
        std::string::size_type start = text.find('\n');
        while (start != std::string::npos && start + 1 < text.size()) {
            std::string::size_type end = text.find('\n', start + 1);
            const std::string line = text.substr(
                start + 1, end == std::string::npos ? std::string::npos : end - start - 1);
            start = end;
            const bool header = line.size() > 4 && line.compare(0, 2, "  ") == 0 &&
                                (line[2] == '-' || (line[2] >= '0' && line[2] <= '9')) &&
                                line.compare(line.size() - 2, 2, " :") == 0;
            if (header) {
                ErrorRecord r;
                const auto blank = line.find(' ', 2);
                r.code = std::stoi(line.substr(2, blank - 2));
                r.name = line.substr(blank + 1, line.size() - 2 - blank - 1);
                records.push_back(r);
            } else if (!records.empty() && records.back().message.empty() &&
                       line.compare(0, 6, "      ") == 0) {
                records.back().message = line.substr(6);
            } else if (!records.empty()) {
                records.back().message += "\n" + line;
            }
        }
        return records;
    }
};

class CtiLibrary {
public:
#ifdef KESTA_CTI_PATH
    CtiLibrary() : CtiLibrary(KESTA_CTI_PATH) {}
#endif
    explicit CtiLibrary(const std::string& path) : m_path(path) {
        m_handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (m_handle == nullptr) {
            const char* why = dlerror();
            throw std::runtime_error("dlopen " + path + ": " + (why ? why : "?"));
        }
#define KESTA_RESOLVE_C(name) name = Resolve<P##name>(#name);
#define KESTA_RESOLVE_CXX(name, mangled) name = Resolve<GenTL::P##name>(mangled);
        KESTA_CTI_C_FUNCTIONS(KESTA_RESOLVE_C)
        KESTA_CTI_CXX_FUNCTIONS(KESTA_RESOLVE_CXX)
#undef KESTA_RESOLVE_C
#undef KESTA_RESOLVE_CXX
    }
    ~CtiLibrary() {
        if (m_handle != nullptr) {
            dlclose(m_handle);
        }
    }
    CtiLibrary(const CtiLibrary&) = delete;
    CtiLibrary& operator=(const CtiLibrary&) = delete;

    const std::string& Path() const {
        return m_path;
    }
    void* Handle() const {
        return m_handle;
    }

    /// Any symbol of the library, or a runtime_error if it is missing.
    template <typename F> F Resolve(const char* symbol) const {
        void* address = dlsym(m_handle, symbol);
        if (address == nullptr) {
            throw std::runtime_error(std::string("dlsym ") + symbol + " failed");
        }
        return reinterpret_cast<F>(address);
    }

    /// GCGetLastError by its size protocol: asks for the size, then takes
    /// (and so consumes) the stack.
    LastError TakeLastError() const {
        LastError e;
        size_t size = 0;
        e.result = GCGetLastError(&e.code, nullptr, &size);
        if (e.result != GC_ERR_SUCCESS) {
            return e;
        }
        std::vector<char> text(size);
        e.result = GCGetLastError(&e.code, text.data(), &size);
        if (e.result == GC_ERR_SUCCESS) {
            e.text.assign(text.data());
        }
        return e;
    }

#define KESTA_DECLARE_C(name) P##name name = nullptr;
#define KESTA_DECLARE_CXX(name, mangled) GenTL::P##name name = nullptr;
    KESTA_CTI_C_FUNCTIONS(KESTA_DECLARE_C)
    KESTA_CTI_CXX_FUNCTIONS(KESTA_DECLARE_CXX)
#undef KESTA_DECLARE_C
#undef KESTA_DECLARE_CXX

private:
    std::string m_path;
    void* m_handle = nullptr;
};

} // namespace kesta::test
