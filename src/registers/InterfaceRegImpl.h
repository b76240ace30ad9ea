#pragma once
/**
 * InterfaceRegImpl: the interface's registers answered by an Interface.
 *
 * - Identity and addresses of the adapter: the interface's GetInfo with the
 *   caller's buffer and size (INTERFACE_INFO_ID, _DISPLAYNAME, the GEV MAC,
 *   subnet address and mask).
 * - DeviceSelector picks a row of the last discovery; 0 at construction. A
 *   write needs 8 bytes and a value from 0 to the count minus 1, else
 *   GC_ERR_INVALID_INDEX and the old selection stays. A list that shrinks
 *   leaves the selection in place: the rows then fail as GetDeviceID does
 *   and their availability registers read 0.
 * - Rows of the selected device: its id (GetDeviceID), then GetDeviceInfo
 *   with the command of the row. The access status is found by trial
 *   (see InterfaceGev) and answered in the device info's numbering.
 * - DeviceUpdateList: a discovery of 100 ms.
 * - ForceIP: the address, mask and gateway are kept here (host order, 0 at
 *   construction); the command sends them to the selected device's MAC
 *   through Interface::ForceIp, which refuses an address or mask of 0. The
 *   list keeps the old address until the next DeviceUpdateList.
 * - The gateway and subnet selectors are not implemented; their
 *   availability registers read 0, as the access status's does.
 *
 * Number registers answer 8 bytes when asked for 8 or more (see
 * NumberRegister.h).
 */
#include "api/InfoUtility.h"
#include "registers/InterfaceReg.h"

namespace GenTL {

class Interface;

class InterfaceRegImpl : public InterfaceReg {
public:
    /// owner answers; not owned.
    explicit InterfaceRegImpl(Interface* owner);

    int GetInterfaceID(void* buffer, unsigned long* size) override;
    int GetInterfaceDisplayName(void* buffer, unsigned long* size) override;
    /// Constant 0 (GigEVision).
    int GetInterfaceType_Reg(void* buffer, unsigned long* size) override;
    /// Not implemented.
    int GetGevInterfaceGatewaySelector_Reg(void* buffer, unsigned long* size) override;
    int SetGevInterfaceGatewaySelector_Reg(const void* buffer, unsigned long* size) override;
    /// Constant 0.
    int GetGevInterfaceGatewaySelector_Available_Reg(void* buffer, unsigned long* size) override;
    /// Not implemented.
    int GetGevInterfaceGateway_Reg(void* buffer, unsigned long* size) override;
    /// Constant 0.
    int GetGevInterfaceGateway_Available_Reg(void* buffer, unsigned long* size) override;
    int GetGevInterfaceMACAddress_Reg(void* buffer, unsigned long* size) override;
    /// Not implemented.
    int GetGevInterfaceSubnetSelector_Reg(void* buffer, unsigned long* size) override;
    int SetGevInterfaceSubnetSelector_Reg(const void* buffer, unsigned long* size) override;
    /// Constant 0.
    int GetGevInterfaceSubnetSelector_Available_Reg(void* buffer, unsigned long* size) override;
    int GetGevInterfaceSubnetIPAddress_Reg(void* buffer, unsigned long* size) override;
    int GetGevInterfaceSubnetMask_Reg(void* buffer, unsigned long* size) override;
    /// Any value: a discovery of 100 ms.
    int SetDeviceUpdateList_Reg(const void* buffer, unsigned long* size) override;
    int GetDeviceSelector_Reg(void* buffer, unsigned long* size) override;
    int SetDeviceSelector_Reg(const void* buffer, unsigned long* size) override;
    /// Constant 0.
    int GetDeviceSelector_Min_Reg(void* buffer, unsigned long* size) override;
    /// The count minus 1, at least 0.
    int GetDeviceSelector_Max_Reg(void* buffer, unsigned long* size) override;
    int GetDeviceID(void* buffer, unsigned long* size) override;
    int GetDeviceVendorName(void* buffer, unsigned long* size) override;
    int GetDeviceModelName(void* buffer, unsigned long* size) override;
    int GetDeviceAccessStatus_Reg(void* buffer, unsigned long* size) override;
    /// Constant 0.
    int GetDeviceAccessStatus_Available_Reg(void* buffer, unsigned long* size) override;
    int GetDeviceSerialNumber(void* buffer, unsigned long* size) override;
    int GetDeviceUserID(void* buffer, unsigned long* size) override;
    int GetGevDeviceIPAddress_Reg(void* buffer, unsigned long* size) override;
    int GetGevDeviceSubnetMask_Reg(void* buffer, unsigned long* size) override;
    int GetGevDeviceMACAddress_Reg(void* buffer, unsigned long* size) override;
    /// 1 while the selector is below the device count, else 0.
    int GetSelectedDevice_Available_Reg(void* buffer, unsigned long* size) override;
    /// Any value: ForceIP of the stored values to the selected device.
    int SetGevDeviceForceIP_Reg(const void* buffer, unsigned long* size) override;
    int GetGevDeviceForceIPAddress_Reg(void* buffer, unsigned long* size) override;
    int SetGevDeviceForceIPAddress_Reg(const void* buffer, unsigned long* size) override;
    int GetGevDeviceForceSubnetMask_Reg(void* buffer, unsigned long* size) override;
    int SetGevDeviceForceSubnetMask_Reg(const void* buffer, unsigned long* size) override;
    int GetGevDeviceForceGateway_Reg(void* buffer, unsigned long* size) override;
    int SetGevDeviceForceGateway_Reg(const void* buffer, unsigned long* size) override;
    /// The whole embedded XML; see ModuleXml::CopyTo.
    int GetLocalTLXML_Reg(void* buffer, unsigned long* size) override;

private:
    /// The interface's GetInfo with the caller's buffer and size.
    int Info(int cmd, void* buffer, unsigned long* size, bool number);
    /// GetDeviceInfo of the selected device.
    int Row(int cmd, void* buffer, unsigned long* size, bool number);
    /// A constant as int64.
    int Constant(long value, void* buffer, unsigned long* size);
    /// The number of devices of the last discovery.
    unsigned int Count() const;
    /// Stores a 32-bit address written to a ForceIP register.
    static int SetAddress(unsigned int& stored, const void* buffer, unsigned long* size);

    Interface* m_owner;
    long m_selector = 0;
    unsigned int m_forceIp = 0;
    unsigned int m_forceSubnetMask = 0;
    unsigned int m_forceGateway = 0;
    InfoUtility m_infoUtility;
};

} // namespace GenTL
