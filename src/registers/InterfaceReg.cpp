#include "registers/InterfaceReg.h"

#include "modules/BaseModule.h"

namespace GenTL {

namespace {

using I = InterfaceReg;
constexpr unsigned long kNum = 8;
constexpr unsigned long kText = 512;

// Address, XML width, getter, setter; ascending. Keep in step with
// SFNC_GenTLInterface_Reference_Version_1_0_0_Schema_1_1.xml (a test
// compares the two).
constexpr RegisterRow<I> kRows[] = {
    {0x0100, kText, &I::GetInterfaceID, nullptr},
    {0x0200, kText, &I::GetInterfaceDisplayName, nullptr},
    {0x0300, kNum, &I::GetInterfaceType_Reg, nullptr},
    {0x0400, kNum, &I::GetGevInterfaceGatewaySelector_Reg, &I::SetGevInterfaceGatewaySelector_Reg},
    {0x0401, kNum, &I::GetGevInterfaceGatewaySelector_Available_Reg, nullptr},
    {0x0500, kNum, &I::GetGevInterfaceGateway_Reg, nullptr},
    {0x0501, kNum, &I::GetGevInterfaceGateway_Available_Reg, nullptr},
    {0x0600, kNum, &I::GetGevInterfaceMACAddress_Reg, nullptr},
    {0x0700, kNum, &I::GetGevInterfaceSubnetSelector_Reg, &I::SetGevInterfaceSubnetSelector_Reg},
    {0x0701, kNum, &I::GetGevInterfaceSubnetSelector_Available_Reg, nullptr},
    {0x0800, kNum, &I::GetGevInterfaceSubnetIPAddress_Reg, nullptr},
    {0x0900, kNum, &I::GetGevInterfaceSubnetMask_Reg, nullptr},
    {0x1000, kNum, nullptr, &I::SetDeviceUpdateList_Reg},
    {0x1100, kNum, &I::GetDeviceSelector_Reg, &I::SetDeviceSelector_Reg},
    {0x1102, kNum, &I::GetDeviceSelector_Min_Reg, nullptr},
    {0x1103, kNum, &I::GetDeviceSelector_Max_Reg, nullptr},
    {0x1200, kText, &I::GetDeviceID, nullptr},
    {0x1201, kNum, &I::GetSelectedDevice_Available_Reg, nullptr},
    {0x1300, kText, &I::GetDeviceVendorName, nullptr},
    {0x1301, kNum, &I::GetSelectedDevice_Available_Reg, nullptr},
    {0x1400, kText, &I::GetDeviceModelName, nullptr},
    {0x1401, kNum, &I::GetSelectedDevice_Available_Reg, nullptr},
    {0x1500, kNum, &I::GetDeviceAccessStatus_Reg, nullptr},
    {0x1501, kNum, &I::GetDeviceAccessStatus_Available_Reg, nullptr},
    {0x1600, kText, &I::GetDeviceSerialNumber, nullptr},
    {0x1601, kNum, &I::GetSelectedDevice_Available_Reg, nullptr},
    {0x1700, kText, &I::GetDeviceUserID, nullptr},
    {0x1701, kNum, &I::GetSelectedDevice_Available_Reg, nullptr},
    {0x1800, kNum, &I::GetGevDeviceIPAddress_Reg, nullptr},
    {0x1801, kNum, &I::GetSelectedDevice_Available_Reg, nullptr},
    {0x1900, kNum, &I::GetGevDeviceSubnetMask_Reg, nullptr},
    {0x1901, kNum, &I::GetSelectedDevice_Available_Reg, nullptr},
    {0x2000, kNum, &I::GetGevDeviceMACAddress_Reg, nullptr},
    {0x2001, kNum, &I::GetSelectedDevice_Available_Reg, nullptr},
    {0x2100, kNum, nullptr, &I::SetGevDeviceForceIP_Reg},
    {0x2200, kNum, &I::GetGevDeviceForceIPAddress_Reg, &I::SetGevDeviceForceIPAddress_Reg},
    {0x2300, kNum, &I::GetGevDeviceForceSubnetMask_Reg, &I::SetGevDeviceForceSubnetMask_Reg},
    {0x2400, kNum, &I::GetGevDeviceForceGateway_Reg, &I::SetGevDeviceForceGateway_Reg},
    {kModuleXmlAddress, 0, &I::GetLocalTLXML_Reg, nullptr},
};
static_assert(IsAscending(kRows), "the search by halves needs ascending addresses");

constexpr RegisterTable<I> kTable(kRows);

} // namespace

const RegisterTable<InterfaceReg>& InterfaceReg::Registers() {
    return kTable;
}

int InterfaceReg::DispatchRead(unsigned long address, void* buffer, unsigned long* size) {
    return kTable.Read(*this, address, buffer, size);
}

int InterfaceReg::DispatchWrite(unsigned long address, const void* buffer, unsigned long* size) {
    return kTable.Write(*this, address, buffer, size);
}

} // namespace GenTL
