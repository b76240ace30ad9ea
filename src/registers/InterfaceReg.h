#pragma once
/**
 * InterfaceReg: the register space of an interface module, as its GenApi
 * description (SFNC_GenTLInterface_..._Schema_1_1.xml, port "InterfacePort")
 * maps its features. It holds no data: the getters and setters are pure
 * virtual, in the order of the XML, and InterfaceRegImpl answers them from
 * the interface.
 *
 * InterfaceGev keeps one InterfaceRegImpl for its whole life (the device
 * selector lives there) and hands its port accesses to DispatchRead and
 * DispatchWrite, which find the accessor of the address in Registers()
 * (exact match, see RegisterTable). Number registers are 8 bytes,
 * little-endian; string registers 512. The XML is read whole at
 * kModuleXmlAddress through GetLocalTLXML_Reg.
 *
 * The rows of the selected device (0x1200 to 0x2001) and the ForceIP group
 * (0x2100 to 0x2400) act on the device that DeviceSelector picks from the
 * interface's last discovery.
 */
#include "registers/RegisterTable.h"

namespace GenTL {

class InterfaceReg {
public:
    virtual ~InterfaceReg() = default;

    /// The register at address into buffer; see RegisterTable::Read.
    int DispatchRead(unsigned long address, void* buffer, unsigned long* size);
    /// buffer to the register at address; see RegisterTable::Write.
    int DispatchWrite(unsigned long address, const void* buffer, unsigned long* size);

    /// Every served register, ascending by address, with its XML width.
    static const RegisterTable<InterfaceReg>& Registers();

    // Accessors in the order of the XML. Each returns a GC_ERR_* code.
    virtual int GetInterfaceID(void* buffer, unsigned long* size) = 0;
    virtual int GetInterfaceDisplayName(void* buffer, unsigned long* size) = 0;
    virtual int GetInterfaceType_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevInterfaceGatewaySelector_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetGevInterfaceGatewaySelector_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetGevInterfaceGatewaySelector_Available_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevInterfaceGateway_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevInterfaceGateway_Available_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevInterfaceMACAddress_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevInterfaceSubnetSelector_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetGevInterfaceSubnetSelector_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetGevInterfaceSubnetSelector_Available_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevInterfaceSubnetIPAddress_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevInterfaceSubnetMask_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetDeviceUpdateList_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetDeviceSelector_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetDeviceSelector_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetDeviceSelector_Min_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetDeviceSelector_Max_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetDeviceID(void* buffer, unsigned long* size) = 0;
    virtual int GetDeviceVendorName(void* buffer, unsigned long* size) = 0;
    virtual int GetDeviceModelName(void* buffer, unsigned long* size) = 0;
    virtual int GetDeviceAccessStatus_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetDeviceAccessStatus_Available_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetDeviceSerialNumber(void* buffer, unsigned long* size) = 0;
    virtual int GetDeviceUserID(void* buffer, unsigned long* size) = 0;
    virtual int GetGevDeviceIPAddress_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevDeviceSubnetMask_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevDeviceMACAddress_Reg(void* buffer, unsigned long* size) = 0;
    /// One getter for every "selector below the count" availability register.
    virtual int GetSelectedDevice_Available_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetGevDeviceForceIP_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetGevDeviceForceIPAddress_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetGevDeviceForceIPAddress_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetGevDeviceForceSubnetMask_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetGevDeviceForceSubnetMask_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetGevDeviceForceGateway_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetGevDeviceForceGateway_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetLocalTLXML_Reg(void* buffer, unsigned long* size) = 0;
};

} // namespace GenTL
