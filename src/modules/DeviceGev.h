#pragma once
/**
 * DeviceGev: a GigE Vision camera as a device module.
 *
 * InterfaceGev::OpenDevice makes it around a DeviceHandle that HALGev has
 * already opened, and then calls Open(flags, hIface), which claims the
 * camera:
 *
 *   auto* device = new DeviceGev(hal, id, this, hDevice);
 *   if (int rc = device->Open(flags, hIface)) { delete device; ... }
 *
 * Open makes the two stream objects (index 0 over UDP, 1 over TCP) and the
 * message channel, takes the control channel privilege (0x0A00) for
 * DEVICE_ACCESS_CONTROL and DEVICE_ACCESS_EXCLUSIVE and keeps it with a
 * heartbeat thread, reads the tick frequency and the GVCP capabilities,
 * switches pending acks on where the camera has them, and sets the control
 * socket's timeout to the camera's pending timeout (0x0958). A failing Open
 * undoes what it did, except that it does not close the device handle: that
 * stays the caller's. Close (from DevClose) releases the camera, closes the
 * device handle and takes the device out of g_openedDevicesRegistry; the
 * object is deleted afterwards.
 *
 * The camera's own registers are reached through the remote port
 * (RemoteDeviceGev) whose handle GetPort hands out; the module's own
 * port serves DeviceReg, whose StreamSelector is kept per camera between
 * runs (Persist): Open applies what was kept.
 */
#include <atomic>
#include <cstdint>
#include <string>

#include <boost/thread/thread.hpp>

#include "modules/Device.h"
#include "registers/DeviceRegImpl.h"

namespace GenTL {

class IHALGev;
class RemoteDeviceGev;

class DeviceGev : public Device {
public:
    /// Info command of the endianness mechanism of the remote port.
    static constexpr int kInfoEndiannessMechanism = 1001;

    /**
     * Takes model, vendor, serial number (also the module's id), user
     * defined name and version from the open device handle; a fact that
     * cannot be had is logged and replaced by an "Unknown ..." text. The
     * id argument is the one the interface found the camera by.
     */
    DeviceGev(IHALGev* hal, const std::string& id, void* parentInterface, void* hDevice);
    /// Stops the heartbeat if Close did not run; releases nothing else.
    ~DeviceGev() override;

    /**
     * Claims the camera with DEVICE_ACCESS_* flags (0 to 4; anything above
     * fails with GC_ERR_INVALID_PARAMETER and touches nothing). Control (3)
     * and exclusive (4) write 0x0A00 and start the heartbeat; a camera that
     * another host controls refuses with the code of its ack status. Other
     * flags open read-only. hIface becomes the streams' parent.
     */
    int Open(int flags, void* hIface) override;
    /**
     * Deletes streams and channels, stops the heartbeat, gives the control
     * privilege back, deletes the remote port, closes the device handle and
     * pops the registry entry. Every step runs; the first failure is the
     * result.
     */
    int Close() override;

    /// Common commands as Device::GetInfo; besides: 1001 endianness
    /// mechanism (int64), 1002-1005 IP, subnet, MAC, gateway (int64),
    /// 1006-1008 DHCP, persistent IP, LLA (bool), 1009 connected (bool).
    int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) const override;
    /// Makes the remote port on the first call and hands out its handle.
    int GetPort(void** phRemoteDevice) override;
    /// The number of stream objects: 2 while open.
    int GetNumDataStreams(unsigned int* count) const override;
    /// The id of stream index, as the stream reports it.
    int GetDataStreamID(unsigned int index, char* id, unsigned long* size) const override;
    int OpenDataStream(const char* id, void** phDataStream) const override;
    /// Opens the stream with that id and hands out a new handle for it.
    int OpenDataStream(const char* id, void** phDataStream, IHALGvsp* hal) const override;
    int GetParentIF(void** phIface) const override;
    /**
     * 1001 stores the endianness mechanism (0 legacy, 1 standard) for the
     * remote port. DEVICE_INFO_ACCESS_STATUS writes the privilege: 1 takes
     * control (with the switchover key, if one is set), 2 releases it, and
     * any other value makes the status unknown and writes nothing. Both
     * read an int64. Other commands go to Device::SetInfo.
     */
    int SetInfo(int cmd, int type, const void* buffer, unsigned long size) override;
    /// Unicast action command through the control channel.
    int SendActionCommand(unsigned int deviceKey, unsigned int groupKey, unsigned int groupMask,
                          unsigned long scheduledTime) const override;

    /// The device module's register space (DeviceReg).
    int ReadPort(unsigned long address, void* buffer, unsigned long* size) override;
    /// Also keeps a written StreamSelector for the camera in g_persist, before
    /// the register has taken it.
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override;
    /// Device module's XML on its own port (0xF0F00000).
    int GetPortURL(char* url, unsigned long* size) const override;
    /// One URL; a null count fails with "piNumURLs==nullptr".
    int GetNumPortURLs(unsigned int* count) override;
    /// Only EVENT_REMOTE_DEVICE: opens message channel 0 and its event.
    int RegisterEvent(int type, void** event) override;
    /// Only EVENT_REMOTE_DEVICE: ends the event and closes channel 0.
    int UnregisterEvent(int type) override;

    /// The stored CCP switchover key; null is GC_ERR_INVALID_HANDLE.
    int GetCcpSwitchoverKey(unsigned short* key) const;
    /// Stores the key; with control held, also writes it to 0x095C.
    int SetCcpSwitchoverKey(unsigned short* key);

private:
    int CreateStreams(int flags, void* hIface);
    int CreateMessageChannels(int flags);
    int ClaimControl(int flags);
    void StartHeartbeat();
    void StopHeartbeat();
    void ReadTimestampTickFrequency();
    void EnablePendingAck();
    int ConfigureDeviceTimeout();
    void DeleteStreamsAndChannels();
    void ApplyPersistedSettings();

    /// The port's registers; the stream selector lives here.
    DeviceRegImpl m_registers{this};
    IHALGev* m_pHal;
    void* m_parentInterface;
    void* m_hDevice;
    /// The interface's handle, given to Open: GetParentIF hands it out.
    void* m_hInterface = nullptr;
    RemoteDeviceGev* m_pRemoteDevice = nullptr;
    void* m_hRemoteDevice = nullptr;
    /// Tells the heartbeat thread to go on; written here, read there.
    std::atomic<bool> m_running{false};
    boost::thread m_heartbeatThread;
    std::uint32_t m_gvcpCapability = 0;
    /// 0 legacy, 1 standard; see RemoteDeviceGev.
    long m_endiannessMechanism = 1;
    std::uint16_t m_ccpSwitchoverKey = 0;
};

} // namespace GenTL
