// The exported functions and the library-wide state they share.
//
// Every exported function is one instance of a frame: a trace line, the
// initialized test, the handle test, a cast to the module interface that
// the family expects, and the virtual call. Frame A (GC port and event
// functions, Event*, Dev*, DS*) hands the module's result back unchanged;
// frame B (TL*, IF*) adds a stamped line to a failure and has the cast
// failures of its own. The frames catch nothing: an exception that leaves
// a module passes through to the caller.

#include "api/GenTL.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <string>

#include <boost/thread/locks.hpp>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/FileUtility.h"
#include "api/GLogger.h"
#include "api/GenTLHandle.h"
#include "api/HLogger.h"
#include "api/InfoUtility.h"
#include "events/IEvent.h"
#include "modules/DeviceRemoteGev.h"
#include "modules/IBaseModule.h"
#include "modules/IDevice.h"
#include "modules/IInterface.h"
#include "modules/ISystem.h"
#include "modules/Persist.h"
#include "modules/ProtectedDeviceRegistry.h"
#include "modules/System.h"
#include "stream/DataStream.h"
#include "stream/IBuffer.h"
#include "stream/IDataStream.h"

namespace GenTL {

boost::mutex g_libMutex;
bool g_isLibInit = false;
GLogger* g_pGLogger = nullptr;
HLogger* g_pHLogger = nullptr;
boost::mutex g_isSystemOpenMutex;
bool g_isSystemOpen = false;

bool IsLibInitialized() {
    boost::lock_guard<boost::mutex> lock(g_libMutex);
    return g_isLibInit;
}

namespace {

// Target of the trace lines. Nothing opens it, so every write fails
// silently; opening it in one place turns the whole trace on. The lock
// covers only the write (the stream's state is shared between threads).
std::ofstream file;
bool streamCreated = false;
boost::mutex traceMutex;

void TraceEnter(const char* function) {
    boost::lock_guard<boost::mutex> lock(traceMutex);
    if (!streamCreated) {
        streamCreated = true;
    }
    file << function << " enter" << '\n';
}

void TraceExit(const char* function) {
    boost::lock_guard<boost::mutex> lock(traceMutex);
    file << function << " exit" << '\n';
}

const char kNotInitialized[] = "GenTL::GCInitLib() must be called before any other function";
const char kCastSystem[] = "failed to cast hTL to ISystem*";
const char kCastInterface[] = "failed to cast hIface to IInterface*";

template <typename Module> Module* AsModule(IBaseModule* base) {
    return dynamic_cast<Module*>(base);
}
template <> IBaseModule* AsModule<IBaseModule>(IBaseModule* base) {
    return base;
}

// Frame A. function and line stamp the frame's own records with the
// exported function's name.
template <typename Module, typename Operation>
int FrameA(const char* function, int line, void* h, Operation operation) {
    TraceEnter(function);
    if (!IsLibInitialized()) {
        return detail::ReportErrorAt(GC_ERR_NOT_INITIALIZED, kNotInitialized, function, line);
    }
    if (int rc = CheckHandle(h)) {
        return detail::ChainErrorAt(rc, function, line);
    }
    Module* module = AsModule<Module>(CastHandle(h));
    if (module == nullptr) {
        return detail::ReportBareError(GC_ERR_INVALID_HANDLE);
    }
    const int rc = operation(*module);
    TraceExit(function);
    return rc;
}

// Frame B.
template <typename Module, typename Operation>
int FrameB(const char* function, int line, void* h, const char* castFailure, Operation operation) {
    TraceEnter(function);
    if (!IsLibInitialized()) {
        return detail::ReportErrorAt(GC_ERR_NOT_INITIALIZED, kNotInitialized, function, line);
    }
    if (int rc = CheckHandle(h)) {
        return detail::ChainErrorAt(rc, function, line);
    }
    Module* module = dynamic_cast<Module*>(CastHandle(h));
    if (module == nullptr) {
        return detail::ReportErrorAt(GC_ERR_INVALID_HANDLE, castFailure, function, line);
    }
    if (int rc = operation(*module)) {
        return detail::ChainErrorAt(rc, function, line);
    }
    TraceExit(function);
    return GC_ERR_SUCCESS;
}

// Frame A over a stream and one of its buffers; the operation receives the
// buffer's handle.
template <typename Operation>
int FrameStreamBuffer(const char* function, int line, void* hDataStream, void* hBuffer,
                      Operation operation) {
    TraceEnter(function);
    if (!IsLibInitialized()) {
        return detail::ReportErrorAt(GC_ERR_NOT_INITIALIZED, kNotInitialized, function, line);
    }
    if (int rc = CheckHandle(hDataStream)) {
        return detail::ChainErrorAt(rc, function, line);
    }
    if (int rc = CheckHandle(hBuffer)) {
        return detail::ChainErrorAt(rc, function, line);
    }
    auto* stream = dynamic_cast<IDataStream*>(CastHandle(hDataStream));
    IBuffer* buffer = CastHandleToIBufferPtr(hBuffer);
    if (stream == nullptr || buffer == nullptr) {
        return detail::ReportBareError(GC_ERR_INVALID_HANDLE);
    }
    const int rc = operation(*stream);
    TraceExit(function);
    return rc;
}

// Four-letter name of the module behind a port, for the trace of the port
// functions. Interfaces go before devices, and a device's remote port
// before the device.
std::string ModuleTag(IBaseModule& module) {
    if (dynamic_cast<ISystem*>(&module) != nullptr) {
        return "Syst";
    }
    if (dynamic_cast<IInterface*>(&module) != nullptr) {
        return "Itfc";
    }
    if (dynamic_cast<RemoteDeviceGev*>(&module) != nullptr) {
        return "DvRm";
    }
    if (dynamic_cast<IDevice*>(&module) != nullptr) {
        return "DvGv";
    }
    if (dynamic_cast<IDataStream*>(&module) != nullptr) {
        return "DTST";
    }
    if (dynamic_cast<IBuffer*>(&module) != nullptr) {
        return "Buff";
    }
    return "Othr";
}

// Copies text into the caller's buffer by the size protocol of
// GCGetLastError: a null buffer asks for the size; a fitting buffer is
// cleared over the whole of *piSize, which supplies the terminator.
int DeliverText(const std::string& text, char* sText, size_t* piSize) {
    const size_t size = text.size() + 1;
    if (sText == nullptr) {
        *piSize = size;
        return GC_ERR_SUCCESS;
    }
    if (size > *piSize) {
        return GC_ERR_BUFFER_TOO_SMALL;
    }
    std::memset(sText, 0, *piSize);
    std::memcpy(sText, text.data(), text.size());
    *piSize = size;
    return GC_ERR_SUCCESS;
}

// The bool of the module operations in place of the caller's bool8_t.
template <typename Operation> int WithChangedFlag(bool8_t* pbChanged, Operation operation) {
    bool changed = pbChanged != nullptr && *pbChanged != 0;
    const int rc = operation(pbChanged != nullptr ? &changed : nullptr);
    if (pbChanged != nullptr) {
        *pbChanged = changed ? 1 : 0;
    }
    return rc;
}

} // namespace

} // namespace GenTL

using namespace GenTL;

// ---------------------------------------------------------------------------
// Library lifecycle
// ---------------------------------------------------------------------------

GC_ERROR GCInitLib(void) {
    // The socket layer draws its random numbers from this generator.
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    boost::lock_guard<boost::mutex> libLock(g_libMutex);
    if (g_isLibInit) {
        return ReportError(GC_ERR_RESOURCE_IN_USE,
                           "every call to GenTL::GCInitLib() must be matched with a call to "
                           "GenTL::GCCloseLib() before calling GenTL::GCInitLib() again");
    }
    g_isLibInit = true;
    if (g_pGLogger == nullptr) {
        g_pGLogger = new GLogger();
    }
    if (g_pHLogger == nullptr) {
        g_pHLogger = new HLogger();
    }
    {
        boost::lock_guard<boost::mutex> systemLock(g_isSystemOpenMutex);
        g_isSystemOpen = false;
    }
    // Interfaces that an earlier life of the library left open are dropped
    // unclosed: their handles died with that life.
    for (const std::string& id : g_openedDevicesRegistry.AllInterfaceIDs()) {
        g_openedDevicesRegistry.PopInterfaceEntry(id);
    }
    // The bare name: the file lies in the process's working directory.
    g_persist = new Persist("persist.json");
    return GC_ERR_SUCCESS;
}

GC_ERROR GCCloseLib(void) {
    if (!IsLibInitialized()) {
        return ReportError(GC_ERR_NOT_INITIALIZED, kNotInitialized);
    }
    // What the application left open: devices first, then interfaces. The
    // system itself stays allocated.
    for (const std::string& id : g_openedDevicesRegistry.AllDeviceIDs()) {
        if (void* handle = g_openedDevicesRegistry.PeekDeviceEntry(id).handle) {
            DevClose(handle);
        }
        g_openedDevicesRegistry.PopDeviceEntry(id);
    }
    for (const std::string& id : g_openedDevicesRegistry.AllInterfaceIDs()) {
        if (void* handle = g_openedDevicesRegistry.PeekInterfaceEntry(id).handle) {
            IFClose(handle);
        }
        g_openedDevicesRegistry.PopInterfaceEntry(id);
    }
    {
        boost::lock_guard<boost::mutex> libLock(g_libMutex);
        g_isLibInit = false;
        delete g_pGLogger;
        g_pGLogger = nullptr;
        delete g_pHLogger;
        g_pHLogger = nullptr;
        boost::lock_guard<boost::mutex> systemLock(g_isSystemOpenMutex);
        g_isSystemOpen = false;
    }
    // Writes the settings file. The pointer is cleared rather than left
    // dangling until the next GCInitLib.
    delete g_persist;
    g_persist = nullptr;
    // Every thread's error stack goes; a later failure makes a new cache.
    ErrorCache::ReleaseErrorCache();
    return GC_ERR_SUCCESS;
}

GC_ERROR GCGetLastError(GC_ERROR* piErrorCode, char* sErrText, size_t* piSize) {
    if (!IsLibInitialized()) {
        return GC_ERR_NOT_INITIALIZED;
    }
    if (piErrorCode == nullptr || piSize == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    ErrorCache* cache = ErrorCache::GetErrorCache();
    Error error;
    if (cache->Peak(error) != GC_ERR_SUCCESS) {
        *piErrorCode = GC_ERR_SUCCESS;
        return DeliverText("No Error", sErrText, piSize);
    }
    *piErrorCode = error.Code();
    std::string text = "Error Stack:\n";
    int code = 0;
    std::string name;
    std::string message;
    while (error.PopError(code, name, message) == GC_ERR_SUCCESS) {
        text += "  " + std::to_string(code) + " " + name + " :\n      " + message + "\n";
    }
    const int rc = DeliverText(text, sErrText, piSize);
    // The stack is consumed only once its text was delivered.
    if (rc == GC_ERR_SUCCESS && sErrText != nullptr) {
        Error delivered;
        cache->Pop(delivered);
    }
    return rc;
}

GC_ERROR GCGetInfo(TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) {
    if (!IsLibInitialized()) {
        return ReportError(GC_ERR_NOT_INITIALIZED, kNotInitialized);
    }
    const InfoUtility info;
    const bool quiet = false;
    int rc = GC_ERR_SUCCESS;
    switch (iInfoCmd) {
    case TL_INFO_ID:
        rc = info.SetInfo(std::string(kProducerId), piType, pBuffer, piSize, quiet);
        break;
    case TL_INFO_VENDOR:
        rc = info.SetInfo(std::string(kProducerVendor), piType, pBuffer, piSize, quiet);
        break;
    case TL_INFO_MODEL:
        rc = info.SetInfo(std::string(kProducerModel), piType, pBuffer, piSize, quiet);
        break;
    case TL_INFO_VERSION:
        rc = info.SetInfo(std::string(kProducerVersion), piType, pBuffer, piSize, quiet);
        break;
    case TL_INFO_TLTYPE:
        rc = info.SetInfo(std::string(kProducerTLType), piType, pBuffer, piSize, quiet);
        break;
    case TL_INFO_NAME:
        rc = info.SetInfo(GetGenTLFileName(), piType, pBuffer, piSize, quiet);
        break;
    case TL_INFO_PATHNAME:
        rc = info.SetInfo(GetGenTLFilePath(), piType, pBuffer, piSize, quiet);
        break;
    case TL_INFO_DISPLAYNAME:
        rc = info.SetInfo(std::string(kProducerDisplayName), piType, pBuffer, piSize, quiet);
        break;
    case TL_INFO_CHAR_ENCODING:
        rc = info.SetInfo(kProducerCharEncoding, piType, pBuffer, piSize, quiet);
        break;
    case TL_INFO_GENTL_VER_MAJOR:
        rc = info.SetInfo(kGenTLVersionMajor, piType, pBuffer, piSize, quiet);
        break;
    case TL_INFO_GENTL_VER_MINOR:
        rc = info.SetInfo(kGenTLVersionMinor, piType, pBuffer, piSize, quiet);
        break;
    default:
        return ReportError(GC_ERR_INVALID_INDEX, System::kInfoCommands);
    }
    if (rc != GC_ERR_SUCCESS) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

// ---------------------------------------------------------------------------
// Ports and events on any module (frame A, no cast)
// ---------------------------------------------------------------------------

GC_ERROR GCReadPort(PORT_HANDLE hPort, uint64_t iAddress, void* pBuffer, size_t* piSize) {
    return FrameA<IBaseModule>(__func__, __LINE__, hPort, [&](IBaseModule& module) {
        const int rc = module.ReadPort(iAddress, pBuffer, piSize);
        const std::string tag = ModuleTag(module);
        static_cast<void>(tag);
        return rc;
    });
}

GC_ERROR GCWritePort(PORT_HANDLE hPort, uint64_t iAddress, const void* pBuffer, size_t* piSize) {
    return FrameA<IBaseModule>(__func__, __LINE__, hPort, [&](IBaseModule& module) {
        const int rc = module.WritePort(iAddress, pBuffer, piSize);
        const std::string tag = ModuleTag(module);
        static_cast<void>(tag);
        return rc;
    });
}

GC_ERROR GCGetPortURL(PORT_HANDLE hPort, char* sURL, size_t* piSize) {
    return FrameA<IBaseModule>(__func__, __LINE__, hPort, [&](IBaseModule& module) {
        const int rc = module.GetPortURL(sURL, piSize);
        const std::string tag = ModuleTag(module);
        static_cast<void>(tag);
        return rc;
    });
}

GC_ERROR GCGetPortInfo(PORT_HANDLE hPort, PORT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                       void* pBuffer, size_t* piSize) {
    return FrameA<IBaseModule>(__func__, __LINE__, hPort, [&](IBaseModule& module) {
        return module.GetPortInfo(iInfoCmd, piType, pBuffer, piSize);
    });
}

GC_ERROR GCRegisterEvent(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID, EVENT_HANDLE* phEvent) {
    return FrameA<IBaseModule>(__func__, __LINE__, hEventSrc, [&](IBaseModule& module) {
        return module.RegisterEvent(iEventID, phEvent);
    });
}

GC_ERROR GCUnregisterEvent(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID) {
    return FrameA<IBaseModule>(__func__, __LINE__, hEventSrc, [&](IBaseModule& module) {
        return module.UnregisterEvent(iEventID);
    });
}

GC_ERROR GCGetNumPortURLs(PORT_HANDLE hPort, uint32_t* piNumURLs) {
    return FrameA<IBaseModule>(__func__, __LINE__, hPort, [&](IBaseModule& module) {
        return module.GetNumPortURLs(piNumURLs);
    });
}

GC_ERROR GCGetPortURLInfo(PORT_HANDLE hPort, uint32_t iURLIndex, URL_INFO_CMD iInfoCmd,
                          INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) {
    return FrameA<IBaseModule>(__func__, __LINE__, hPort, [&](IBaseModule& module) {
        return module.GetPortURLInfo(iURLIndex, iInfoCmd, piType, pBuffer, piSize);
    });
}

GC_ERROR GCReadPortStacked(PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY* pEntries,
                           size_t* piNumEntries) {
    return FrameA<IBaseModule>(__func__, __LINE__, hPort, [&](IBaseModule& module) {
        return module.ReadPortStacked(pEntries, piNumEntries);
    });
}

GC_ERROR GCWritePortStacked(PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY* pEntries,
                            size_t* piNumEntries) {
    return FrameA<IBaseModule>(__func__, __LINE__, hPort, [&](IBaseModule& module) {
        return module.WritePortStacked(pEntries, piNumEntries);
    });
}

// ---------------------------------------------------------------------------
// Events (frame A, IEvent)
// ---------------------------------------------------------------------------

GC_ERROR EventGetData(EVENT_HANDLE hEvent, void* pBuffer, size_t* piSize, uint64_t iTimeout) {
    return FrameA<IEvent>(__func__, __LINE__, hEvent,
                          [&](IEvent& event) { return event.GetData(pBuffer, piSize, iTimeout); });
}

GC_ERROR EventGetDataInfo(EVENT_HANDLE hEvent, const void* pInBuffer, size_t iInSize,
                          EVENT_DATA_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pOutBuffer,
                          size_t* piOutSize) {
    return FrameA<IEvent>(__func__, __LINE__, hEvent, [&](IEvent& event) {
        return event.GetDataInfo(pInBuffer, iInSize, iInfoCmd, piType, pOutBuffer, piOutSize);
    });
}

GC_ERROR EventGetInfo(EVENT_HANDLE hEvent, EVENT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                      void* pBuffer, size_t* piSize) {
    return FrameA<IEvent>(__func__, __LINE__, hEvent, [&](IEvent& event) {
        return event.GetInfo(iInfoCmd, piType, pBuffer, piSize);
    });
}

GC_ERROR EventFlush(EVENT_HANDLE hEvent) {
    return FrameA<IEvent>(__func__, __LINE__, hEvent, [&](IEvent& event) { return event.Flush(); });
}

GC_ERROR EventKill(EVENT_HANDLE hEvent) {
    return FrameA<IEvent>(__func__, __LINE__, hEvent, [&](IEvent& event) { return event.Kill(); });
}

// ---------------------------------------------------------------------------
// System (frame B, ISystem)
// ---------------------------------------------------------------------------

GC_ERROR TLOpen(TL_HANDLE* phTL) {
    if (!IsLibInitialized()) {
        return ReportError(GC_ERR_NOT_INITIALIZED, kNotInitialized);
    }
    if (phTL == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "received phTL=nullptr");
    }
    boost::lock_guard<boost::mutex> systemLock(g_isSystemOpenMutex);
    if (g_isSystemOpen) {
        return ReportError(GC_ERR_RESOURCE_IN_USE,
                           "every call to GenTL::TLOpen() must be matched with a call to "
                           "GenTL::TLClose() before calling GenTL::TLOpen() again");
    }
    auto* system = new System(nullptr);
    if (int rc = AllocateHandle(phTL, static_cast<ISystem*>(system))) {
        delete system;
        return ChainError(rc);
    }
    const int rc = system->Open();
    if (rc == GC_ERR_SUCCESS) {
        g_isSystemOpen = true;
        TraceExit(__func__);
        return GC_ERR_SUCCESS;
    }
    // *phTL keeps the freed handle; the caller must not use it.
    delete system;
    if (int deleted = DeleteHandle(*phTL)) {
        ChainError(deleted);
    }
    return ChainError(rc);
}

GC_ERROR TLClose(TL_HANDLE hTL) {
    TraceEnter(__func__);
    if (!IsLibInitialized()) {
        return ReportError(GC_ERR_NOT_INITIALIZED, kNotInitialized);
    }
    if (int rc = CheckHandle(hTL)) {
        return ChainError(rc);
    }
    auto* system = dynamic_cast<ISystem*>(CastHandle(hTL));
    if (system == nullptr) {
        CacheError(Error::GenerateError(GC_ERR_INVALID_HANDLE, kCastSystem));
        return GC_ERR_INVALID_HANDLE;
    }
    {
        boost::lock_guard<boost::mutex> systemLock(g_isSystemOpenMutex);
        if (!g_isSystemOpen) {
            return ReportError(GC_ERR_INVALID_HANDLE,
                               "GenTL::TLOpen() must be called before calling GenTL::TLClose()");
        }
    }
    {
        // Cleared before the close, and the lock is not held during it.
        boost::lock_guard<boost::mutex> systemLock(g_isSystemOpenMutex);
        g_isSystemOpen = false;
    }
    int kept = system->Close();
    if (kept != GC_ERR_SUCCESS) {
        ChainError(kept);
    }
    if (int rc = DeleteHandle(hTL)) {
        kept = rc;
        ChainError(rc);
    }
    delete system;
    if (kept == GC_ERR_SUCCESS) {
        TraceExit(__func__);
        return GC_ERR_SUCCESS;
    }
    ChainErrorText(kept, "The system became in unknown state; call GenTL::GCInitLib() to "
                         "reinitialize the library");
    return kept;
}

GC_ERROR TLGetInfo(TL_HANDLE hTL, TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer,
                   size_t* piSize) {
    return FrameB<ISystem>(__func__, __LINE__, hTL, kCastSystem, [&](ISystem& system) {
        return system.GetInfo(iInfoCmd, piType, pBuffer, piSize);
    });
}

GC_ERROR TLGetNumInterfaces(TL_HANDLE hTL, uint32_t* piNumIfaces) {
    return FrameB<ISystem>(__func__, __LINE__, hTL, kCastSystem,
                           [&](ISystem& system) { return system.GetNumInterfaces(piNumIfaces); });
}

GC_ERROR TLGetInterfaceID(TL_HANDLE hTL, uint32_t iIndex, char* sIfaceID, size_t* piSize) {
    return FrameB<ISystem>(__func__, __LINE__, hTL, kCastSystem, [&](ISystem& system) {
        return system.GetInterfaceID(iIndex, sIfaceID, piSize);
    });
}

GC_ERROR TLGetInterfaceInfo(TL_HANDLE hTL, const char* sIfaceID, INTERFACE_INFO_CMD iInfoCmd,
                            INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) {
    return FrameB<ISystem>(__func__, __LINE__, hTL, kCastSystem, [&](ISystem& system) {
        return system.GetInterfaceInfo(sIfaceID, iInfoCmd, piType, pBuffer, piSize);
    });
}

GC_ERROR TLOpenInterface(TL_HANDLE hTL, const char* sIfaceID, IF_HANDLE* phIface) {
    return FrameB<ISystem>(__func__, __LINE__, hTL, kCastSystem, [&](ISystem& system) {
        return system.OpenInterface(sIfaceID, hTL, phIface);
    });
}

GC_ERROR TLUpdateInterfaceList(TL_HANDLE hTL, bool8_t* pbChanged, uint64_t iTimeout) {
    return FrameB<ISystem>(__func__, __LINE__, hTL, kCastSystem, [&](ISystem& system) {
        return WithChangedFlag(pbChanged, [&](bool* changed) {
            return system.UpdateInterfaceList(changed, iTimeout);
        });
    });
}

// ---------------------------------------------------------------------------
// Interface (frame B, IInterface)
// ---------------------------------------------------------------------------

GC_ERROR IFClose(IF_HANDLE hIface) {
    TraceEnter(__func__);
    if (!IsLibInitialized()) {
        return ReportError(GC_ERR_NOT_INITIALIZED, kNotInitialized);
    }
    if (int rc = CheckHandle(hIface)) {
        return ChainError(rc);
    }
    auto* iface = dynamic_cast<IInterface*>(CastHandle(hIface));
    if (iface == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, kCastInterface);
    }
    int kept = iface->Close();
    if (kept != GC_ERR_SUCCESS) {
        ChainError(kept);
    }
    if (int rc = DeleteHandle(hIface)) {
        kept = rc;
        ChainError(rc);
    }
    delete iface;
    if (kept == GC_ERR_SUCCESS) {
        TraceExit(__func__);
        return GC_ERR_SUCCESS;
    }
    ChainErrorText(kept, "The interface became in unknown state; call GenTL::TLOpenInterface() "
                         "to reinitialize the interface");
    return kept;
}

GC_ERROR IFGetInfo(IF_HANDLE hIface, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                   void* pBuffer, size_t* piSize) {
    return FrameB<IInterface>(__func__, __LINE__, hIface, kCastInterface, [&](IInterface& iface) {
        return iface.GetInfo(iInfoCmd, piType, pBuffer, piSize);
    });
}

GC_ERROR IFGetNumDevices(IF_HANDLE hIface, uint32_t* piNumDevices) {
    return FrameB<IInterface>(__func__, __LINE__, hIface, kCastInterface,
                              [&](IInterface& iface) { return iface.GetNumDevices(piNumDevices); });
}

GC_ERROR IFGetDeviceID(IF_HANDLE hIface, uint32_t iIndex, char* sDeviceID, size_t* piSize) {
    return FrameB<IInterface>(__func__, __LINE__, hIface, kCastInterface, [&](IInterface& iface) {
        return iface.GetDeviceID(iIndex, sDeviceID, piSize);
    });
}

GC_ERROR IFUpdateDeviceList(IF_HANDLE hIface, bool8_t* pbChanged, uint64_t iTimeout) {
    return FrameB<IInterface>(__func__, __LINE__, hIface, kCastInterface, [&](IInterface& iface) {
        return WithChangedFlag(
            pbChanged, [&](bool* changed) { return iface.UpdateDeviceList(changed, iTimeout); });
    });
}

GC_ERROR IFGetDeviceInfo(IF_HANDLE hIface, const char* sDeviceID, DEVICE_INFO_CMD iInfoCmd,
                         INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) {
    return FrameB<IInterface>(__func__, __LINE__, hIface, kCastInterface, [&](IInterface& iface) {
        return iface.GetDeviceInfo(sDeviceID, iInfoCmd, piType, pBuffer, piSize);
    });
}

GC_ERROR IFOpenDevice(IF_HANDLE hIface, const char* sDeviceID, DEVICE_ACCESS_FLAGS iOpenFlags,
                      DEV_HANDLE* phDevice) {
    return FrameB<IInterface>(__func__, __LINE__, hIface, kCastInterface, [&](IInterface& iface) {
        return iface.OpenDevice(sDeviceID, iOpenFlags, phDevice, hIface);
    });
}

GC_ERROR IFGetParentTL(IF_HANDLE hIface, TL_HANDLE* phSystem) {
    return FrameB<IInterface>(__func__, __LINE__, hIface, kCastInterface,
                              [&](IInterface& iface) { return iface.GetParentTL(phSystem); });
}

namespace GenTL {

GC_ERROR IFForceIp(IF_HANDLE hIface, uint64_t macAddress, uint32_t ip, uint32_t subnetMask,
                   uint32_t gateway) {
    return FrameB<IInterface>(__func__, __LINE__, hIface, kCastInterface, [&](IInterface& iface) {
        return iface.ForceIp(macAddress, ip, subnetMask, gateway);
    });
}

GC_ERROR IFAddUnicastDiscoveryDevice(IF_HANDLE hIface, uint32_t ip) {
    return FrameB<IInterface>(__func__, __LINE__, hIface, kCastInterface, [&](IInterface& iface) {
        return iface.AddUnicastDiscoveryDevice(ip);
    });
}

GC_ERROR IFRemoveUnicastDiscoveryDevice(IF_HANDLE hIface, uint32_t ip) {
    return FrameB<IInterface>(__func__, __LINE__, hIface, kCastInterface, [&](IInterface& iface) {
        return iface.RemoveUnicastDiscoveryDevice(ip);
    });
}

GC_ERROR IFGetUnicastDiscoveryDevices(IF_HANDLE hIface, uint32_t* pIPs, uint32_t* piCount) {
    return FrameB<IInterface>(__func__, __LINE__, hIface, kCastInterface, [&](IInterface& iface) {
        return iface.GetUnicastDiscoveryDevices(pIPs, piCount);
    });
}

} // namespace GenTL

// ---------------------------------------------------------------------------
// Device (frame A, IDevice)
// ---------------------------------------------------------------------------

GC_ERROR DevClose(DEV_HANDLE hDevice) {
    return FrameA<IDevice>(__func__, __LINE__, hDevice, [&](IDevice& device) {
        // The handle's deletion decides the result, whatever Close said.
        device.Close();
        delete &device;
        return DeleteHandle(hDevice);
    });
}

GC_ERROR DevGetPort(DEV_HANDLE hDevice, PORT_HANDLE* phRemoteDevice) {
    return FrameA<IDevice>(__func__, __LINE__, hDevice,
                           [&](IDevice& device) { return device.GetPort(phRemoteDevice); });
}

GC_ERROR DevGetNumDataStreams(DEV_HANDLE hDevice, uint32_t* piNumDataStreams) {
    return FrameA<IDevice>(__func__, __LINE__, hDevice, [&](IDevice& device) {
        return device.GetNumDataStreams(piNumDataStreams);
    });
}

GC_ERROR DevGetDataStreamID(DEV_HANDLE hDevice, uint32_t iIndex, char* sDataStreamID,
                            size_t* piSize) {
    return FrameA<IDevice>(__func__, __LINE__, hDevice, [&](IDevice& device) {
        return device.GetDataStreamID(iIndex, sDataStreamID, piSize);
    });
}

GC_ERROR DevOpenDataStream(DEV_HANDLE hDevice, const char* sDataStreamID, DS_HANDLE* phDataStream) {
    return FrameA<IDevice>(__func__, __LINE__, hDevice, [&](IDevice& device) {
        return device.OpenDataStream(sDataStreamID, phDataStream);
    });
}

GC_ERROR DevGetInfo(DEV_HANDLE hDevice, DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                    void* pBuffer, size_t* piSize) {
    return FrameA<IDevice>(__func__, __LINE__, hDevice, [&](IDevice& device) {
        return device.GetInfo(iInfoCmd, piType, pBuffer, piSize);
    });
}

GC_ERROR DevGetParentIF(DEV_HANDLE hDevice, IF_HANDLE* phIface) {
    return FrameA<IDevice>(__func__, __LINE__, hDevice,
                           [&](IDevice& device) { return device.GetParentIF(phIface); });
}

GC_ERROR DevSendActionCommand(DEV_HANDLE hDevice, uint32_t iDeviceKey, uint32_t iGroupKey,
                              uint32_t iGroupMask, uint64_t iExecuteTime) {
    return FrameA<IDevice>(__func__, __LINE__, hDevice, [&](IDevice& device) {
        return device.SendActionCommand(iDeviceKey, iGroupKey, iGroupMask, iExecuteTime);
    });
}

// ---------------------------------------------------------------------------
// Data stream (frame A, IDataStream)
// ---------------------------------------------------------------------------

GC_ERROR DSClose(DS_HANDLE hDataStream) {
    // The device was closed first and took the stream with it: the handle
    // record is all that is left, and it goes now.
    if (IsLibInitialized() && IsDetachedHandle(hDataStream)) {
        TraceEnter(__func__);
        DeleteHandle(hDataStream);
        return detail::ReportBareError(GC_ERR_INVALID_HANDLE);
    }
    return FrameA<IDataStream>(__func__, __LINE__, hDataStream, [&](IDataStream& stream) {
        // The device owns its streams: only the handle goes.
        stream.Close();
        if (auto* known = dynamic_cast<DataStream*>(&stream)) {
            known->SetHandle(nullptr);
        }
        return DeleteHandle(hDataStream);
    });
}

GC_ERROR DSAnnounceBuffer(DS_HANDLE hDataStream, void* pBuffer, size_t iSize, void* pPrivate,
                          BUFFER_HANDLE* phBuffer) {
    return FrameA<IDataStream>(__func__, __LINE__, hDataStream, [&](IDataStream& stream) {
        return stream.AnnounceBuffer(pBuffer, iSize, pPrivate, phBuffer);
    });
}

GC_ERROR DSAllocAndAnnounceBuffer(DS_HANDLE hDataStream, size_t iSize, void* pPrivate,
                                  BUFFER_HANDLE* phBuffer) {
    return FrameA<IDataStream>(__func__, __LINE__, hDataStream, [&](IDataStream& stream) {
        return stream.AllocAndAnnounceBuffer(iSize, pPrivate, phBuffer);
    });
}

GC_ERROR DSFlushQueue(DS_HANDLE hDataStream, ACQ_QUEUE_TYPE iOperation) {
    return FrameA<IDataStream>(__func__, __LINE__, hDataStream,
                               [&](IDataStream& stream) { return stream.FlushQueue(iOperation); });
}

GC_ERROR DSStartAcquisition(DS_HANDLE hDataStream, ACQ_START_FLAGS iStartFlags,
                            uint64_t iNumToAcquire) {
    return FrameA<IDataStream>(__func__, __LINE__, hDataStream, [&](IDataStream& stream) {
        return stream.StartAcquisition(iStartFlags, iNumToAcquire);
    });
}

GC_ERROR DSStopAcquisition(DS_HANDLE hDataStream, ACQ_STOP_FLAGS iStopFlags) {
    return FrameA<IDataStream>(__func__, __LINE__, hDataStream, [&](IDataStream& stream) {
        return stream.StopAcquisition(iStopFlags);
    });
}

GC_ERROR DSGetInfo(DS_HANDLE hDataStream, STREAM_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                   void* pBuffer, size_t* piSize) {
    return FrameA<IDataStream>(__func__, __LINE__, hDataStream, [&](IDataStream& stream) {
        return stream.GetInfo(iInfoCmd, piType, pBuffer, piSize);
    });
}

GC_ERROR DSGetBufferID(DS_HANDLE hDataStream, uint32_t iIndex, BUFFER_HANDLE* phBuffer) {
    return FrameA<IDataStream>(__func__, __LINE__, hDataStream, [&](IDataStream& stream) {
        return stream.GetBufferID(iIndex, phBuffer);
    });
}

GC_ERROR DSRevokeBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, void** ppBuffer,
                        void** ppPrivate) {
    return FrameA<IDataStream>(__func__, __LINE__, hDataStream, [&](IDataStream& stream) {
        return stream.RevokeBuffer(hBuffer, ppBuffer, ppPrivate);
    });
}

GC_ERROR DSGetParentDev(DS_HANDLE hDataStream, DEV_HANDLE* phDevice) {
    return FrameA<IDataStream>(__func__, __LINE__, hDataStream,
                               [&](IDataStream& stream) { return stream.GetParentDev(phDevice); });
}

GC_ERROR DSQueueBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer) {
    return FrameStreamBuffer(__func__, __LINE__, hDataStream, hBuffer,
                             [&](IDataStream& stream) { return stream.QueueBuffer(hBuffer); });
}

GC_ERROR DSGetBufferInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, BUFFER_INFO_CMD iInfoCmd,
                         INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) {
    return FrameStreamBuffer(__func__, __LINE__, hDataStream, hBuffer, [&](IDataStream& stream) {
        return stream.GetBufferInfo(hBuffer, iInfoCmd, piType, pBuffer, piSize);
    });
}

// Chunks and multi-part buffers are not supported. These take no frame at
// all, so they answer even before GCInitLib.

GC_ERROR DSGetBufferChunkData(DS_HANDLE, BUFFER_HANDLE, SINGLE_CHUNK_DATA*, size_t*) {
    return ReportError(GC_ERR_NOT_IMPLEMENTED, Error::GetErrCodeName(GC_ERR_NOT_IMPLEMENTED));
}

GC_ERROR DSGetNumBufferParts(DS_HANDLE, BUFFER_HANDLE, uint32_t*) {
    return ReportError(GC_ERR_NOT_IMPLEMENTED, Error::GetErrCodeName(GC_ERR_NOT_IMPLEMENTED));
}

GC_ERROR DSGetBufferPartInfo(DS_HANDLE, BUFFER_HANDLE, uint32_t, BUFFER_PART_INFO_CMD,
                             INFO_DATATYPE*, void*, size_t*) {
    return ReportError(GC_ERR_NOT_IMPLEMENTED, Error::GetErrCodeName(GC_ERR_NOT_IMPLEMENTED));
}

namespace GenTL {

GC_ERROR DSWaitForNextLeader(DS_HANDLE hDataStream, uint64_t iTimeout) {
    return FrameA<IDataStream>(__func__, __LINE__, hDataStream, [&](IDataStream& stream) {
        return stream.WaitForNextLeader(iTimeout);
    });
}

GC_ERROR DSResetWaitForNextLeader(DS_HANDLE hDataStream) {
    return FrameA<IDataStream>(__func__, __LINE__, hDataStream, [&](IDataStream& stream) {
        return stream.ResetWaitForNextLeader();
    });
}

GC_ERROR DSSetupResendRetryParams(DS_HANDLE hDataStream, uint64_t iRetryWindowFrames,
                                  double frameRate, const char* sFirst, const char* sSecond,
                                  int32_t iWidth, int32_t iHeight) {
    TraceEnter(__func__);
    if (!IsLibInitialized()) {
        return ReportError(GC_ERR_NOT_INITIALIZED, kNotInitialized);
    }
    if (int rc = CheckHandle(hDataStream)) {
        return detail::ReportBareError(rc);
    }
    // Other kinds of handle are refused here; calling their slot of the
    // same position would be undefined.
    auto* stream = dynamic_cast<IDataStream*>(CastHandle(hDataStream));
    if (stream == nullptr) {
        return detail::ReportBareError(GC_ERR_INVALID_HANDLE);
    }
    const int rc = stream->SetupResendRetryParams(iRetryWindowFrames, frameRate, sFirst, sSecond,
                                                  iWidth, iHeight);
    TraceExit(__func__);
    return rc;
}

} // namespace GenTL
