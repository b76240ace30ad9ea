#pragma once
/**
 * IBaseModule: the port that every module behind a handle offers. The
 * exported GC* port and event functions reach these operations on the
 * handle of any module kind. All operations return a GC_ERR_* code and
 * record their own failure for GCGetLastError.
 */
#include "GenTL_KESTA.h"

namespace GenTL {

class IBaseModule {
public:
    virtual ~IBaseModule() = default;

    /// Reads *size bytes of the module's register space at address into
    /// buffer; *size goes out as the bytes read.
    virtual int ReadPort(unsigned long address, void* buffer, unsigned long* size) = 0;
    /// Writes *size bytes from buffer at address; *size goes out as the
    /// bytes written.
    virtual int WritePort(unsigned long address, const void* buffer, unsigned long* size) = 0;
    /// The URL of the module's XML description. A null url asks for the
    /// size in *size.
    virtual int GetPortURL(char* url, unsigned long* size) const = 0;
    /// A PORT_INFO_* fact of the port, through the info triple.
    virtual int GetPortInfo(int cmd, int* type, void* buffer, unsigned long* size) = 0;
    /// Registers an event of EVENT_TYPE type and hands out its handle.
    virtual int RegisterEvent(int type, void** event) = 0;
    /// Ends the event of that type that RegisterEvent made.
    virtual int UnregisterEvent(int type) = 0;
    /// Number of URLs of the port.
    virtual int GetNumPortURLs(unsigned int* count) = 0;
    /// A URL_INFO_* fact of URL number index.
    virtual int GetPortURLInfo(unsigned int index, int cmd, int* type, void* buffer,
                               unsigned long* size) = 0;
    /// ReadPort for each of *count entries in order, up to the first failure.
    virtual int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) = 0;
    /// WritePort for each of *count entries in order, up to the first failure.
    virtual int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) = 0;
};

} // namespace GenTL
