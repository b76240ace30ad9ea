#pragma once
/**
 * ISystem: the transport layer as a whole, the module behind TLOpen's
 * handle. It lists the network adapters as interfaces and opens them.
 */
#include "modules/IBaseModule.h"

namespace GenTL {

class ISystem : public IBaseModule {
public:
    /// Brings the system up: makes the control layer and lists the adapters.
    virtual int Open() = 0;
    /// Closes every interface and device still open and ends the control layer.
    virtual int Close() = 0;
    /// A TL_INFO_* fact, through the info triple.
    virtual int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) = 0;
    /// Number of interfaces in the current list (no new enumeration).
    virtual int GetNumInterfaces(unsigned int* count) = 0;
    /// ID of interface number index; a null id asks for the size.
    virtual int GetInterfaceID(unsigned int index, char* id, unsigned long* size) = 0;
    /// An INTERFACE_INFO_* fact of a listed interface, without opening it.
    virtual int GetInterfaceInfo(const char* id, int cmd, int* type, void* buffer,
                                 unsigned long* size) = 0;
    /// Opens the interface id; hTL, the system's own handle, becomes its parent.
    virtual int OpenInterface(const char* id, void* hTL, void** phIface) = 0;
    /// Lists the adapters anew; *changed tells whether the set changed.
    virtual int UpdateInterfaceList(bool* changed, unsigned long timeout) = 0;
};

} // namespace GenTL
