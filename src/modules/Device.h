#pragma once
/**
 * Device: the base of a device module (one camera behind a DEV handle).
 *
 * It keeps the facts that the DEVICE_INFO_* commands report and the stream
 * and message channel objects of the camera, and answers the operations
 * that need no transport. Everything that talks to the camera lives in the
 * one transport class below it, DeviceGev; here those operations refuse
 * with GC_ERR_NOT_IMPLEMENTED.
 *
 * A Device owns its stream and message channel objects: the pointers in
 * m_streams and m_messageChannels are deleted by the derived Close().
 */
#include <string>
#include <vector>

#include "api/InfoUtility.h"
#include "modules/BaseModule.h"
#include "modules/IDevice.h"

namespace GenTL {

class IDataStream;
class IMessageChannel;
class IHALGvsp;

/// The values of the device's unicast action command, as its register space
/// sets them; all 0 until written.
struct ActionCommandValues {
    unsigned int deviceKey = 0;
    unsigned int groupKey = 0;
    unsigned int groupMask = 0;
    /// 0 fires at once; else the camera's time to act at.
    unsigned long executeTime = 0;
};

class Device : public IDevice, public BaseModule {
public:
    /// Vendor "Kesta Optic Works", model "GenTL Producer", the port facts
    /// of BaseModule; access status unknown.
    Device();
    ~Device() override;

    // --- Port: the defaults of BaseModule -------------------------------
    int ReadPort(unsigned long address, void* buffer, unsigned long* size) override;
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override;
    int GetPortURL(char* url, unsigned long* size) const override;
    int GetPortInfo(int cmd, int* type, void* buffer, unsigned long* size) override;
    int RegisterEvent(int type, void** event) override;
    int UnregisterEvent(int type) override;
    int GetNumPortURLs(unsigned int* count) override;
    int GetPortURLInfo(unsigned int index, int cmd, int* type, void* buffer,
                       unsigned long* size) override;
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;

    // --- Device: refusals, except GetInfo --------------------------------
    int Open(int flags, void* hIface) override;
    int Close() override;
    /**
     * Answers the common commands from the fields: DEVICE_INFO_ID, VENDOR,
     * MODEL, TLTYPE ("GEV"), DISPLAYNAME, USER_DEFINED_NAME, SERIAL_NUMBER,
     * VERSION as strings, ACCESS_STATUS as int32, TIMESTAMP_FREQUENCY as
     * uint64. Another command fails with GC_ERR_INVALID_INDEX.
     */
    int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) const override;
    int GetPort(void** phRemoteDevice) override;
    int GetNumDataStreams(unsigned int* count) const override;
    int GetDataStreamID(unsigned int index, char* id, unsigned long* size) const override;
    int OpenDataStream(const char* id, void** phDataStream) const override;
    /// Opens stream id on the given receive layer (its own one when null).
    virtual int OpenDataStream(const char* id, void** phDataStream, IHALGvsp* hal) const;
    int GetParentIF(void** phIface) const override;
    /// Refuses every command: "only GEV devices are supported".
    int SetInfo(int cmd, int type, const void* buffer, unsigned long size) override;
    int SendActionCommand(unsigned int deviceKey, unsigned int groupKey, unsigned int groupMask,
                          unsigned long scheduledTime) const override;

    /// What ActionCommandFireCommand sends; kept here between port accesses.
    ActionCommandValues& GetActionCommandValues() { return m_actionCommand; }

protected:
    std::string m_id;
    std::string m_vendor;
    std::string m_model;
    std::string m_version;
    std::string m_serialNumber;
    std::string m_userDefinedName;
    std::string m_displayName;
    /// DEVICE_ACCESS_STATUS_*: 0 unknown, 1 read-write, 2 read-only.
    long m_accessStatus = DEVICE_ACCESS_STATUS_UNKNOWN;
    unsigned long m_timestampTickFrequency = 0;

    /// Owned; stream i has the id "i".
    std::vector<IDataStream*> m_streams;
    /// Owned; channel 0 serves EVENT_REMOTE_DEVICE.
    std::vector<IMessageChannel*> m_messageChannels;

    InfoUtility m_infoUtility;
    ActionCommandValues m_actionCommand;
};

} // namespace GenTL
