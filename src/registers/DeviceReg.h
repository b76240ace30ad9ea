#pragma once
/**
 * DeviceReg: the register space of a device module (the producer's view of
 * a camera, not the camera's own registers), as its GenApi description
 * (SFNC_GenTLDevice_..._Schema_1_1.xml, port "DevicePort") maps its
 * features. It holds no data: the getters and setters are pure virtual, in
 * the order of the XML, and DeviceRegImpl answers them from the device.
 *
 * DeviceGev keeps one DeviceRegImpl for its whole life (the stream selector
 * lives there) and hands its port accesses to DispatchRead and
 * DispatchWrite, which find the accessor of the address in Registers()
 * (exact match, see RegisterTable). Number registers are 8 bytes,
 * little-endian; string registers 512. The XML is read whole at
 * kModuleXmlAddress through GetLocalTLXML_Reg. The family name (0x0600),
 * manufacturer info (0x0800), event data format (0x1300) and chunk data
 * format (0x2000) are not served.
 */
#include "registers/RegisterTable.h"

namespace GenTL {

class DeviceReg {
public:
    /// Address of StreamSelector_Reg, the one register whose writes persist.
    static constexpr unsigned long kStreamSelectorAddress = 0x1800;

    virtual ~DeviceReg() = default;

    /// The register at address into buffer; see RegisterTable::Read.
    int DispatchRead(unsigned long address, void* buffer, unsigned long* size);
    /// buffer to the register at address; see RegisterTable::Write.
    int DispatchWrite(unsigned long address, const void* buffer, unsigned long* size);

    /// Every served register, ascending by address, with its XML width.
    static const RegisterTable<DeviceReg>& Registers();

    // Accessors in the order of the XML. Each returns a GC_ERR_* code.
    virtual int GetDeviceID(void* buffer, unsigned long* size) = 0;
    virtual int GetDeviceSerialNumber(void* buffer, unsigned long* size) = 0;
    virtual int GetDeviceUserID(void* buffer, unsigned long* size) = 0;
    virtual int GetDeviceVendorName(void* buffer, unsigned long* size) = 0;
    virtual int GetDeviceModelName(void* buffer, unsigned long* size) = 0;
    virtual int GetDeviceVersion(void* buffer, unsigned long* size) = 0;
    virtual int GetDeviceType_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetDeviceDisplayName(void* buffer, unsigned long* size) = 0;
    virtual int GetDeviceAccessStatus_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetDeviceAccessStatus_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetDeviceEndianessMechanism_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetDeviceEndianessMechanism_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetGevDeviceIPAddress_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevDeviceSubnetMask_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevDeviceMACAddress_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevDeviceGateway_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevDeviceGateway_Available_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamSelector_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetStreamSelector_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetStreamID(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamID_Available_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetActionCommandFireCommand_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetActionCommandDeviceKey_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetActionCommandDeviceKey_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetActionCommandGroupKey_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetActionCommandGroupKey_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetActionCommandGroupMask_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetActionCommandGroupMask_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetActionCommandExecuteTime_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetActionCommandExecuteTime_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetLocalTLXML_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetCcpSwitchoverKey_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetCcpSwitchoverKey_Reg(const void* buffer, unsigned long* size) = 0;
};

} // namespace GenTL
