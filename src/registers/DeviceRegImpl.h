#pragma once
/**
 * DeviceRegImpl: the device module's registers answered by a Device.
 *
 * - Identity, access status, endianness mechanism and the camera's
 *   addresses: the device's GetInfo with the caller's buffer and size. The
 *   access status and the endianness mechanism are written through the
 *   device's SetInfo as int64; the device decides what it accepts (taking
 *   or giving back control of the camera).
 * - StreamSelector: a write needs 8 bytes and takes the low 32 as a signed
 *   index. The index is stored first, then checked against the number of
 *   streams: one that names no stream fails with GC_ERR_INVALID_INDEX and
 *   stays stored, so StreamID then fails too. 0 at construction. StreamID
 *   answers at any valid index although its availability register reads 0.
 * - Action command: device key, group key and group mask are 32-bit, the
 *   execute time 64-bit, kept in the Device; the fire command sends them to
 *   this camera alone through its control channel.
 * - CcpSwitchoverKey: 16 bits, answered by DeviceGev only.
 *
 * Number registers answer 8 bytes when asked for 8 or more (see
 * NumberRegister.h); strings clear the caller's buffer behind the text.
 */
#include "api/InfoUtility.h"
#include "registers/DeviceReg.h"

namespace GenTL {

class Device;

class DeviceRegImpl : public DeviceReg {
public:
    /// owner answers; not owned.
    explicit DeviceRegImpl(Device* owner);

    int GetDeviceID(void* buffer, unsigned long* size) override;
    int GetDeviceSerialNumber(void* buffer, unsigned long* size) override;
    int GetDeviceUserID(void* buffer, unsigned long* size) override;
    int GetDeviceVendorName(void* buffer, unsigned long* size) override;
    int GetDeviceModelName(void* buffer, unsigned long* size) override;
    int GetDeviceVersion(void* buffer, unsigned long* size) override;
    /// Constant 0 (GigEVision).
    int GetDeviceType_Reg(void* buffer, unsigned long* size) override;
    int GetDeviceDisplayName(void* buffer, unsigned long* size) override;
    int GetDeviceAccessStatus_Reg(void* buffer, unsigned long* size) override;
    int SetDeviceAccessStatus_Reg(const void* buffer, unsigned long* size) override;
    int GetDeviceEndianessMechanism_Reg(void* buffer, unsigned long* size) override;
    int SetDeviceEndianessMechanism_Reg(const void* buffer, unsigned long* size) override;
    int GetGevDeviceIPAddress_Reg(void* buffer, unsigned long* size) override;
    int GetGevDeviceSubnetMask_Reg(void* buffer, unsigned long* size) override;
    int GetGevDeviceMACAddress_Reg(void* buffer, unsigned long* size) override;
    /// Not implemented.
    int GetGevDeviceGateway_Reg(void* buffer, unsigned long* size) override;
    /// Constant 0.
    int GetGevDeviceGateway_Available_Reg(void* buffer, unsigned long* size) override;
    /// The stored index as int64; a null buffer asks for the size (8).
    int GetStreamSelector_Reg(void* buffer, unsigned long* size) override;
    int SetStreamSelector_Reg(const void* buffer, unsigned long* size) override;
    int GetStreamID(void* buffer, unsigned long* size) override;
    /// Constant 0.
    int GetStreamID_Available_Reg(void* buffer, unsigned long* size) override;
    /// Any value: the unicast action command with the stored values.
    int SetActionCommandFireCommand_Reg(const void* buffer, unsigned long* size) override;
    int GetActionCommandDeviceKey_Reg(void* buffer, unsigned long* size) override;
    int SetActionCommandDeviceKey_Reg(const void* buffer, unsigned long* size) override;
    int GetActionCommandGroupKey_Reg(void* buffer, unsigned long* size) override;
    int SetActionCommandGroupKey_Reg(const void* buffer, unsigned long* size) override;
    int GetActionCommandGroupMask_Reg(void* buffer, unsigned long* size) override;
    int SetActionCommandGroupMask_Reg(const void* buffer, unsigned long* size) override;
    int GetActionCommandExecuteTime_Reg(void* buffer, unsigned long* size) override;
    int SetActionCommandExecuteTime_Reg(const void* buffer, unsigned long* size) override;
    /// The whole embedded XML; see ModuleXml::CopyTo.
    int GetLocalTLXML_Reg(void* buffer, unsigned long* size) override;
    int GetCcpSwitchoverKey_Reg(void* buffer, unsigned long* size) override;
    int SetCcpSwitchoverKey_Reg(const void* buffer, unsigned long* size) override;

private:
    /// The device's GetInfo with the caller's buffer and size.
    int Info(int cmd, void* buffer, unsigned long* size, bool number);
    /// The device's SetInfo of the caller's int64.
    int SetInfo(int cmd, const void* buffer, const unsigned long* size);
    /// A constant as int64.
    int Constant(long value, void* buffer, unsigned long* size);
    /// An action value of width bytes, out of or into the device.
    int GetAction(unsigned long value, unsigned long width, void* buffer, unsigned long* size);
    template <typename T> int SetAction(T& value, const void* buffer, unsigned long* size);

    Device* m_owner;
    long m_streamSelector = 0;
    InfoUtility m_infoUtility;
};

} // namespace GenTL
