#pragma once
/**
 * IDevice: one camera opened on an interface. It owns the camera's data
 * streams, its message channel and its remote port.
 */
#include "modules/IBaseModule.h"

namespace GenTL {

class IDevice : public IBaseModule {
public:
    /// Opens the camera with DEVICE_ACCESS_* flags under interface hIface.
    virtual int Open(int flags, void* hIface) = 0;
    /// Releases the camera; DevClose deletes the object afterwards.
    virtual int Close() = 0;
    /// A DEVICE_INFO_* fact, through the info triple.
    virtual int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) const = 0;
    /// The handle of the camera's own register port (the remote device).
    virtual int GetPort(void** phRemoteDevice) = 0;
    /// Number of data streams of the camera.
    virtual int GetNumDataStreams(unsigned int* count) const = 0;
    /// ID of stream number index; a null id asks for the size.
    virtual int GetDataStreamID(unsigned int index, char* id, unsigned long* size) const = 0;
    /// Opens stream id and hands out its handle.
    virtual int OpenDataStream(const char* id, void** phDataStream) const = 0;
    /// The handle of the interface that opened this device.
    virtual int GetParentIF(void** phIface) const = 0;
    /// Sets a DEVICE_INFO_* fact from a value of INFO_DATATYPE type.
    virtual int SetInfo(int cmd, int type, const void* buffer, unsigned long size) = 0;
    /// Sends an action command to this camera; scheduledTime 0 acts at once.
    virtual int SendActionCommand(unsigned int deviceKey, unsigned int groupKey,
                                  unsigned int groupMask, unsigned long scheduledTime) const = 0;
};

} // namespace GenTL
