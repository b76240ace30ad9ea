#include "registers/SystemReg.h"

#include "modules/BaseModule.h"

namespace GenTL {

namespace {

using S = SystemReg;
constexpr unsigned long kNum = 8;
constexpr unsigned long kText = 512;
constexpr unsigned long kDriverText = 256;

// Address, XML width, getter, setter; ascending. Keep in step with
// SFNC_GenTLSystem_Reference_Version_1_0_0_Schema_1_1.xml (a test compares
// the two).
constexpr RegisterRow<S> kRows[] = {
    {0x0100, kText, &S::GetTLID, nullptr},
    {0x0200, kText, &S::GetTLVendorName, nullptr},
    {0x0300, kText, &S::GetTLModelName, nullptr},
    {0x0400, kText, &S::GetTLVersion, nullptr},
    {0x0500, kText, &S::GetTLFileName, nullptr},
    {0x0600, kText, &S::GetTLDisplayName, nullptr},
    {0x0700, kText, &S::GetTLPath, nullptr},
    {0x0800, kNum, &S::GetTLType_Reg, nullptr},
    {0x0900, kNum, &S::GetGenTLVersionMajor_Reg, nullptr},
    {0x1000, kNum, &S::GetGenTLVersionMinor_Reg, nullptr},
    {0x1100, kNum, &S::GetGenTLSFNCVersionMajor_Reg, nullptr},
    {0x1200, kNum, &S::GetGenTLSFNCVersionMinor_Reg, nullptr},
    {0x1300, kNum, &S::GetGenTLSFNCVersionSubMinor_Reg, nullptr},
    {0x1400, kNum, &S::GetGevVersionMajor_Reg, nullptr},
    {0x1500, kNum, &S::GetGevVersionMinor_Reg, nullptr},
    {0x1600, kNum, nullptr, &S::SetInterfaceUpdateList_Reg},
    {0x1700, kNum, &S::GetInterfaceSelector_Reg, &S::SetInterfaceSelector_Reg},
    {0x1702, kNum, &S::GetInterfaceSelector_Min_Reg, nullptr},
    {0x1703, kNum, &S::GetInterfaceSelector_Max_Reg, nullptr},
    {0x1800, kText, &S::GetInterfaceID, nullptr},
    {0x1801, kNum, &S::GetInterfaceID_Available_Reg, nullptr},
    {0x1900, kNum, &S::GetGevInterfaceMACAddress_Reg, nullptr},
    {0x1901, kNum, &S::GetGevInterfaceMACAddress_Available_Reg, nullptr},
    {0x2000, kNum, &S::GetGevInterfaceDefaultIPAddress_Reg, nullptr},
    {0x2001, kNum, &S::GetGevInterfaceDefaultIPAddress_Available_Reg, nullptr},
    {0x2100, kNum, &S::GetGevInterfaceDefaultSubnetMask_Reg, nullptr},
    {0x2101, kNum, &S::GetGevInterfaceDefaultSubnetMask_Available_Reg, nullptr},
    {0x4000, kNum, nullptr, &S::SetActionCommandFireCommand_Reg},
    {0x4200, kNum, &S::GetActionCommandDeviceKey_Reg, &S::SetActionCommandDeviceKey_Reg},
    {0x4300, kNum, &S::GetActionCommandGroupKey_Reg, &S::SetActionCommandGroupKey_Reg},
    {0x4400, kNum, &S::GetActionCommandGroupMask_Reg, &S::SetActionCommandGroupMask_Reg},
    {0x4500, kNum, &S::GetActionCommandTargetIP_Reg, &S::SetActionCommandTargetIP_Reg},
    {0x4600, kNum, &S::GetActionCommandExecuteTime_Reg, &S::SetActionCommandExecuteTime_Reg},
    {0x6000, kNum, &S::GetThreadSelection_Reg, &S::SetThreadSelection_Reg},
    {0x6100, kNum, &S::GetThreadPriority_Reg, &S::SetThreadPriority_Reg},
    {0x7000, kNum, nullptr, &S::SetWriteDriverLogToFileCommand_Reg},
    {0x7001, kNum, &S::GetWindowsDriverFeatures_Implemented_Reg, nullptr},
    {0x7010, kDriverText, &S::GetWriteDriverLogToFilePath_Reg, &S::SetWriteDriverLogToFilePath_Reg},
    {0x7011, kDriverText, &S::GetDriverVersion_Reg, nullptr},
    {0x7012, kNum, &S::GetLwfDriverLogLevel_Reg, &S::SetLwfDriverLogLevel_Reg},
    {0x7013, kNum, nullptr, &S::SetClearDriverLogCommand_Reg},
    {kModuleXmlAddress, 0, &S::GetLocalTLXML_Reg, nullptr},
};
static_assert(IsAscending(kRows), "the search by halves needs ascending addresses");

constexpr RegisterTable<S> kTable(kRows);

} // namespace

const RegisterTable<SystemReg>& SystemReg::Registers() {
    return kTable;
}

int SystemReg::DispatchRead(unsigned long address, void* buffer, unsigned long* size) {
    return kTable.Read(*this, address, buffer, size);
}

int SystemReg::DispatchWrite(unsigned long address, const void* buffer, unsigned long* size) {
    return kTable.Write(*this, address, buffer, size);
}

} // namespace GenTL
