#pragma once
// The loaded producer: the .cti opened with dlopen() and its functions,
// found by name. Commands call the functions through the members.
#include <ostream>
#include <string>
#include <vector>

#include "GenTL_KESTA.h"

namespace kesta::gentl {

class Producer {
public:
    /// Opens the .cti at path; throws std::runtime_error if it cannot be
    /// loaded or lacks a function.
    explicit Producer(const std::string& path);
    ~Producer();
    Producer(const Producer&) = delete;
    Producer& operator=(const Producer&) = delete;

    const std::string& Path() const { return m_path; }

    /// Prints "<what> failed with <code>" and the library's error stack of
    /// the calling thread (GCGetLastError) to out; returns code.
    GC_ERROR Report(std::ostream& out, const std::string& what, GC_ERROR code) const;

// The functions the commands use, by their exported names.
#define KESTA_GENTL_PRODUCER_FUNCTIONS(X)                                                          \
    X(GCInitLib)                                                                                   \
    X(GCCloseLib)                                                                                  \
    X(GCGetInfo)                                                                                   \
    X(GCGetLastError) X(GCReadPort) X(GCWritePort) X(GCGetPortURL) X(GCGetPortInfo)                \
        X(GCGetNumPortURLs) X(GCGetPortURLInfo) X(TLOpen) X(TLClose) X(TLGetNumInterfaces)         \
            X(TLGetInterfaceID) X(TLOpenInterface) X(IFClose) X(IFGetInfo) X(IFGetNumDevices)      \
                X(IFGetDeviceID) X(IFUpdateDeviceList) X(IFGetDeviceInfo) X(IFOpenDevice)          \
                    X(DevClose) X(DevGetPort) X(DevGetInfo) X(DevGetNumDataStreams)                \
                        X(DevGetDataStreamID) X(DevOpenDataStream) X(DSClose) X(DSAnnounceBuffer)  \
                            X(DSFlushQueue) X(DSStartAcquisition) X(DSStopAcquisition)             \
                                X(DSGetInfo) X(DSRevokeBuffer) X(DSQueueBuffer) X(DSGetBufferInfo) \
                                    X(GCRegisterEvent) X(GCUnregisterEvent) X(EventGetData)        \
                                        X(EventKill)
#define KESTA_GENTL_DECLARE(name) P##name name = nullptr;
    KESTA_GENTL_PRODUCER_FUNCTIONS(KESTA_GENTL_DECLARE)
#undef KESTA_GENTL_DECLARE

private:
    template <typename F> F Resolve(const char* name);

    std::string m_path;
    void* m_handle = nullptr;
};

/**
 * Where to load the producer from: explicitPath if given, otherwise the
 * GenTL_KESTA.cti among the *.cti files of the folders in
 * GENICAM_GENTL64_PATH (colon-separated), in order. Throws
 * std::runtime_error with the reason when there is none.
 */
std::string FindProducer(const std::string& explicitPath);

/// The *.cti files in the folders of a colon-separated search path.
std::vector<std::string> ListProducers(const std::string& searchPath);

} // namespace kesta::gentl
