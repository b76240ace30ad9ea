#pragma once
/**
 * IHALGev: the GVCP control layer as the module tree sees it.
 *
 * One object serves the whole process. It keeps no connection of its own:
 * an open adapter and an open device are opaque handles (void*) that the
 * layer makes and ends, and every operation takes one of them:
 *
 *   GetInterfaces -> ids; OpenInterface(id) -> hAdapter;
 *   GetDevices(hAdapter) -> (device id, IP) pairs, by broadcast and unicast;
 *   OpenDevice(hAdapter, device id) -> hDevice;
 *   ReadReg / WriteReg / ReadMem ... (hDevice);
 *   CloseDevice(hDevice); CloseInterface(hAdapter).
 *
 * Every operation returns 0 or a GC_ERR_* code; a failure also leaves its
 * text in the calling thread's error cache and a line in the HAL log. A null
 * handle gives GC_ERR_INVALID_HANDLE. Addresses handed in or out are in host
 * order unless said otherwise. Any thread may call any operation: the
 * transactions of one device take turns, whole, under the device's lock.
 */
#include <cstddef>
#include <string>
#include <tuple>
#include <vector>

namespace GenTL {

/// A device found by a discovery: its id (serial number) and its IP address
/// as it stands on the wire (network order).
using DiscoveredDevice = std::tuple<std::string, unsigned>;

class IHALGev {
public:
    virtual ~IHALGev() = default;

    // --- Adapters and discovery ------------------------------------------

    /// Lists the host's IPv4 adapters anew and appends their ids to ids.
    virtual int GetInterfaces(std::vector<std::string>& ids) = 0;
    /// Opens the adapter of the last GetInterfaces with exactly this id.
    virtual int OpenInterface(const std::string& id, void** hAdapter) const = 0;
    virtual int CloseInterface(void* hAdapter) const = 0;
    /**
     * Broadcasts one discovery on the adapter and collects answers for
     * timeoutMs, then asks each unicast discovery address in turn. Appends
     * one entry per answer to devices (unsorted, doubles kept) and makes the
     * adapter's device list. One discovery at a time in the process. The
     * sockets take the low 32 bits of timeoutMs as a signed number: one
     * that they refuse (negative, not whole seconds) ends the call at once
     * with GC_ERR_ABORT; 0 (no time-out to a socket) is refused with
     * GC_ERR_INVALID_PARAMETER.
     */
    virtual int GetDevices(void* hAdapter, std::vector<DiscoveredDevice>& devices,
                           long timeoutMs) const = 0;

    // --- Devices and transactions ----------------------------------------

    /// Opens a control socket to a device of the adapter's last discovery.
    /// The device starts as not connected (see SetConnected).
    virtual int OpenDevice(void* hAdapter, const std::string& id, void** hDevice) const = 0;
    /// Sets the control socket's timeout; does nothing when a timeout was
    /// fixed in KestaGentl.cfg.
    virtual int SetDeviceTimeout(void* hDevice, int ms) const = 0;
    virtual int CloseDevice(void* hDevice) const = 0;

    virtual int ReadReg(void* hDevice, unsigned address, unsigned& value) const = 0;
    virtual int WriteReg(void* hDevice, unsigned address, unsigned value) const = 0;
    /// count registers from address on, values in host order; at most 136.
    virtual int ReadRegBlock(void* hDevice, unsigned address, unsigned* values,
                             std::size_t count) const = 0;
    /// count registers from address on; values are taken as they stand in
    /// memory, already in wire order. At most 68. Ack ids are not tested.
    virtual int WriteRegBlock(void* hDevice, unsigned address, const unsigned* values,
                              std::size_t count) const = 0;
    /// At most 536 bytes; longer accesses are the caller's to split.
    virtual int ReadMem(void* hDevice, unsigned address, char* data, std::size_t length) const = 0;
    virtual int WriteMem(void* hDevice, unsigned address, const char* data,
                         std::size_t length) const = 0;

    // --- Facts: of an open device (handle), or by id in an adapter's last
    // discovery (handle, id). Strings end at the first zero byte. ----------

    virtual int GetModelName(void* hDevice, std::string& name) const = 0;
    virtual int GetModelName(void* hAdapter, std::string id, std::string& name) const = 0;
    virtual int GetVendorName(void* hDevice, std::string& name) const = 0;
    virtual int GetVendorName(void* hAdapter, std::string id, std::string& name) const = 0;
    virtual int GetSerialNumber(void* hDevice, std::string& serial) const = 0;
    virtual int GetSerialNumber(void* hAdapter, std::string id, std::string& serial) const = 0;
    virtual int GetUserDefinedName(void* hDevice, std::string& name) const = 0;
    virtual int GetUserDefinedName(void* hAdapter, std::string id, std::string& name) const = 0;
    virtual int GetDeviceVersion(void* hDevice, std::string& version) const = 0;
    virtual int GetDeviceVersion(void* hAdapter, std::string id, std::string& version) const = 0;

    // --- Facts of an adapter ----------------------------------------------

    virtual int GetInterfaceId(void* hAdapter, std::string& id) const = 0;
    /// 48-bit hardware address, first byte in the high bits.
    virtual int GetMACAddress(void* hAdapter, long& mac) const = 0;
    virtual int GetIPAddress(void* hAdapter, long& ip) const = 0;
    virtual int GetSubnetMask(void* hAdapter, long& mask) const = 0;

    virtual int GetDevMACAddress(void* hAdapter, std::string id, long& mac) const = 0;
    virtual int GetDevIPAddress(void* hAdapter, std::string id, long& ip) const = 0;
    virtual int GetDevSubnetMask(void* hAdapter, std::string id, long& mask) const = 0;
    virtual int GetDevMACAddress(void* hDevice, long& mac) const = 0;
    virtual int GetDevSubnetMask(void* hDevice, long& mask) const = 0;
    virtual int GetDevIPAddress(void* hDevice, long& ip) const = 0;
    virtual int GetDevDefaultGateway(void* hDevice, long& gateway) const = 0;
    /// The handle forms test bits 1, 0, 2 of the IP configuration field's
    /// first wire byte; the forms by id test bits of the number. Both kept.
    virtual int GetDevIpConfigDHCP(void* hDevice, bool& on) const = 0;
    virtual int GetDevIpConfigPersistentIp(void* hDevice, bool& on) const = 0;
    virtual int GetDevIpConfigLLA(void* hDevice, bool& on) const = 0;
    virtual int GetDevDefaultGateway(void* hAdapter, std::string id, long& gateway) const = 0;
    virtual int GetDevIpConfigDHCP(void* hAdapter, std::string id, bool& on) const = 0;
    virtual int GetDevIpConfigPersistentIp(void* hAdapter, std::string id, bool& on) const = 0;
    virtual int GetDevIpConfigLLA(void* hAdapter, std::string id, bool& on) const = 0;

    /// Local port of the handle's control socket (adapter or device).
    virtual int GetPort(void* handle, unsigned short& port) const = 0;
    /// Remote port of the handle's control socket (adapter or device).
    virtual int GetDevPort(void* handle, unsigned short& port) const = 0;

    /// Meant for a device that is not open; does not deliver a value today
    /// (the open device reads the tick registers itself).
    virtual int GetTimestampTickFrequency(void* hAdapter, std::string id,
                                          unsigned long& frequency) const = 0;

    // --- One-way and broadcast commands ----------------------------------

    /// Sets the IP configuration of the device with this MAC address, by
    /// broadcast on the adapter; waits 2 s for the ack.
    virtual int ForceIP(void* hAdapter, unsigned short macHigh, unsigned macLow, unsigned ip,
                        unsigned subnet, unsigned gateway) const = 0;
    /// Asks for packets first..last of a block of stream channel 0; no ack.
    /// Takes no lock: safe beside a transaction in flight.
    virtual int SendPacketResend(void* hDevice, unsigned long blockId, unsigned firstPacket,
                                 unsigned lastPacket, bool extended) const = 0;

    /// Resends after a timed-out attempt, for transactions from now on.
    virtual int SetGvcpRetries(unsigned long retries) = 0;
    virtual int GetGvcpRetries(unsigned long& retries) const = 0;

    /// Not available: always GC_ERR_NOT_AVAILABLE.
    virtual int IsConnected(void* hAdapter, std::string id, bool& connected) const = 0;
    /// False after a failed send or timeoutLimit receive timeouts in a row,
    /// until SetConnected(true).
    virtual int IsConnected(void* hDevice, bool& connected) const = 0;
    virtual int SetConnected(void* hDevice, bool connected) const = 0;
    /// Closes the device's socket and keeps the record: ends a transaction
    /// in flight on another thread.
    virtual int CloseSocket(void* hDevice) const = 0;

    /// Unicast action command to the device; a scheduled time of 0 sends the
    /// form without one. Waits 2 s for the ack.
    virtual int SendActionCommand(void* hDevice, unsigned deviceKey, unsigned groupKey,
                                  unsigned groupMask, unsigned long scheduledTime) const = 0;

    /// ip in network order. Remove adds like Add, except that 0xFFFFFFFF
    /// clears the whole list.
    virtual int AddUnicastDiscoveryDevice(void* hAdapter, unsigned ip) = 0;
    virtual int RemoveUnicastDiscoveryDevice(void* hAdapter, unsigned ip) = 0;
    /// *size: capacity of list in, count written out; addresses in host order.
    virtual int GetUnicastDiscoveryDevices(void* hAdapter, unsigned* list, unsigned* size) = 0;

    /// Always false on this platform.
    virtual bool IsLwfDriverInstalledForMac(long mac) const = 0;
};

} // namespace GenTL
