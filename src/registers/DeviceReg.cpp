#include "registers/DeviceReg.h"

#include "modules/BaseModule.h"

namespace GenTL {

namespace {

using D = DeviceReg;
constexpr unsigned long kNum = 8;
constexpr unsigned long kText = 512;

// Address, XML width, getter, setter; ascending. Keep in step with
// SFNC_GenTLDevice_Reference_Version_1_0_0_Schema_1_1.xml (a test compares
// the two).
constexpr RegisterRow<D> kRows[] = {
    {0x0100, kText, &D::GetDeviceID, nullptr},
    {0x0200, kText, &D::GetDeviceSerialNumber, nullptr},
    {0x0300, kText, &D::GetDeviceUserID, nullptr},
    {0x0400, kText, &D::GetDeviceVendorName, nullptr},
    {0x0500, kText, &D::GetDeviceModelName, nullptr},
    {0x0700, kText, &D::GetDeviceVersion, nullptr},
    {0x0900, kNum, &D::GetDeviceType_Reg, nullptr},
    {0x1000, kText, &D::GetDeviceDisplayName, nullptr},
    {0x1100, kNum, &D::GetDeviceAccessStatus_Reg, &D::SetDeviceAccessStatus_Reg},
    {0x1200, kNum, &D::GetDeviceEndianessMechanism_Reg, &D::SetDeviceEndianessMechanism_Reg},
    {0x1400, kNum, &D::GetGevDeviceIPAddress_Reg, nullptr},
    {0x1500, kNum, &D::GetGevDeviceSubnetMask_Reg, nullptr},
    {0x1600, kNum, &D::GetGevDeviceMACAddress_Reg, nullptr},
    {0x1700, kNum, &D::GetGevDeviceGateway_Reg, nullptr},
    {0x1701, kNum, &D::GetGevDeviceGateway_Available_Reg, nullptr},
    {D::kStreamSelectorAddress, kNum, &D::GetStreamSelector_Reg, &D::SetStreamSelector_Reg},
    {0x1900, kText, &D::GetStreamID, nullptr},
    {0x1901, kNum, &D::GetStreamID_Available_Reg, nullptr},
    {0x4000, kNum, nullptr, &D::SetActionCommandFireCommand_Reg},
    {0x4200, kNum, &D::GetActionCommandDeviceKey_Reg, &D::SetActionCommandDeviceKey_Reg},
    {0x4300, kNum, &D::GetActionCommandGroupKey_Reg, &D::SetActionCommandGroupKey_Reg},
    {0x4400, kNum, &D::GetActionCommandGroupMask_Reg, &D::SetActionCommandGroupMask_Reg},
    {0x4600, kNum, &D::GetActionCommandExecuteTime_Reg, &D::SetActionCommandExecuteTime_Reg},
    {0x5000, kNum, &D::GetCcpSwitchoverKey_Reg, &D::SetCcpSwitchoverKey_Reg},
    {kModuleXmlAddress, 0, &D::GetLocalTLXML_Reg, nullptr},
};
static_assert(IsAscending(kRows), "the search by halves needs ascending addresses");

constexpr RegisterTable<D> kTable(kRows);

} // namespace

const RegisterTable<DeviceReg>& DeviceReg::Registers() {
    return kTable;
}

int DeviceReg::DispatchRead(unsigned long address, void* buffer, unsigned long* size) {
    return kTable.Read(*this, address, buffer, size);
}

int DeviceReg::DispatchWrite(unsigned long address, const void* buffer, unsigned long* size) {
    return kTable.Write(*this, address, buffer, size);
}

} // namespace GenTL
