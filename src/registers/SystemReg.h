#pragma once
/**
 * SystemReg: the register space of the system module, as the system's
 * GenApi description (SFNC_GenTLSystem_..._Schema_1_1.xml, port "TLPort")
 * maps its features. It holds no data: the getters and setters are pure
 * virtual, in the order of the XML, and SystemRegImpl answers them from the
 * System.
 *
 * System::ReadPort and WritePort run DispatchRead or DispatchWrite of the
 * SystemRegImpl it keeps for its whole life (the selectors live there),
 * which find the accessor of the address in Registers() (exact match, see
 * RegisterTable). Number registers are 8 bytes, little-endian, signed;
 * string registers 512 bytes, the driver strings 256. The XML is read whole
 * at kModuleXmlAddress through GetLocalTLXML_Reg.
 */
#include "registers/RegisterTable.h"

namespace GenTL {

class SystemReg {
public:
    virtual ~SystemReg() = default;

    /// The register at address into buffer; see RegisterTable::Read.
    int DispatchRead(unsigned long address, void* buffer, unsigned long* size);
    /// buffer to the register at address; see RegisterTable::Write.
    int DispatchWrite(unsigned long address, const void* buffer, unsigned long* size);

    /// Every served register, ascending by address, with its XML width.
    static const RegisterTable<SystemReg>& Registers();

    // Accessors in the order of the XML. Each returns a GC_ERR_* code.
    virtual int GetTLID(void* buffer, unsigned long* size) = 0;
    virtual int GetTLVendorName(void* buffer, unsigned long* size) = 0;
    virtual int GetTLModelName(void* buffer, unsigned long* size) = 0;
    virtual int GetTLVersion(void* buffer, unsigned long* size) = 0;
    virtual int GetTLFileName(void* buffer, unsigned long* size) = 0;
    virtual int GetTLDisplayName(void* buffer, unsigned long* size) = 0;
    virtual int GetTLPath(void* buffer, unsigned long* size) = 0;
    virtual int GetInterfaceID(void* buffer, unsigned long* size) = 0;
    virtual int GetTLType_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGenTLVersionMajor_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGenTLVersionMinor_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGenTLSFNCVersionMajor_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGenTLSFNCVersionMinor_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGenTLSFNCVersionSubMinor_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevVersionMajor_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevVersionMinor_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetInterfaceUpdateList_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetInterfaceSelector_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetInterfaceSelector_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetInterfaceSelector_Min_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetInterfaceSelector_Max_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetInterfaceID_Available_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevInterfaceMACAddress_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevInterfaceMACAddress_Available_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevInterfaceDefaultIPAddress_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevInterfaceDefaultIPAddress_Available_Reg(void* buffer,
                                                              unsigned long* size) = 0;
    virtual int GetGevInterfaceDefaultSubnetMask_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetGevInterfaceDefaultSubnetMask_Available_Reg(void* buffer,
                                                               unsigned long* size) = 0;
    virtual int SetActionCommandFireCommand_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetActionCommandDeviceKey_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetActionCommandDeviceKey_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetActionCommandGroupKey_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetActionCommandGroupKey_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetActionCommandGroupMask_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetActionCommandGroupMask_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetActionCommandTargetIP_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetActionCommandTargetIP_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetActionCommandExecuteTime_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetActionCommandExecuteTime_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetThreadSelection_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetThreadSelection_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetThreadPriority_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetThreadPriority_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int SetWriteDriverLogToFileCommand_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetWindowsDriverFeatures_Implemented_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetWriteDriverLogToFilePath_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetWriteDriverLogToFilePath_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetDriverVersion_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetLwfDriverLogLevel_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetLwfDriverLogLevel_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int SetClearDriverLogCommand_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetLocalTLXML_Reg(void* buffer, unsigned long* size) = 0;
};

} // namespace GenTL
