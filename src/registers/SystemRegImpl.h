#pragma once
/**
 * SystemRegImpl: the system's registers answered by a System, with the two
 * selectors of the space.
 *
 *   - Identity strings and the GenTL version: the System's TL_INFO answers,
 *     with the caller's buffer and size (the info rules hold: a too small
 *     buffer is GC_ERR_BUFFER_TOO_SMALL, *size becomes the bytes written).
 *   - Constants: TLType 0, the naming convention version 1.1.1, GigE Vision
 *     2.0, the availability of the three interface addresses 0 and the
 *     driver features' implementation 0, as int64.
 *   - InterfaceSelector (0 .. count - 1, else GC_ERR_INVALID_INDEX) picks
 *     the interface whose id and addresses the rows read; the addresses ask
 *     the System by id, which has them only for an open interface.
 *   - The five action-command values live in the System; writing
 *     ActionCommandFireCommand sends the command with them.
 *   - ThreadSelection (0 grab, 1 event, 2 heartbeat) picks which of the
 *     process-wide ThreadPriority settings (0 .. 3) ThreadPriority reads
 *     and writes; other values are GC_ERR_INVALID_VALUE.
 *   - The driver features reach the System, which has no driver here and
 *     answers GC_ERR_NOT_IMPLEMENTED.
 *
 * The registers with a value of their own (selectors, action values,
 * thread settings) need *size of their value's width, else
 * GC_ERR_BUFFER_TOO_SMALL, and are read as the 8-byte little-endian
 * register, cut to *size.
 */
#include <atomic>
#include <cstdint>

#include "api/InfoUtility.h"
#include "registers/SystemReg.h"

namespace GenTL {

class System;

class SystemRegImpl : public SystemReg {
public:
    /// system answers; not owned. Both selectors start at 0.
    explicit SystemRegImpl(System* system);

    int GetTLID(void* buffer, unsigned long* size) override;
    int GetTLVendorName(void* buffer, unsigned long* size) override;
    int GetTLModelName(void* buffer, unsigned long* size) override;
    int GetTLVersion(void* buffer, unsigned long* size) override;
    int GetTLFileName(void* buffer, unsigned long* size) override;
    int GetTLDisplayName(void* buffer, unsigned long* size) override;
    int GetTLPath(void* buffer, unsigned long* size) override;
    /// The id of the selected interface.
    int GetInterfaceID(void* buffer, unsigned long* size) override;
    int GetTLType_Reg(void* buffer, unsigned long* size) override;
    int GetGenTLVersionMajor_Reg(void* buffer, unsigned long* size) override;
    int GetGenTLVersionMinor_Reg(void* buffer, unsigned long* size) override;
    int GetGenTLSFNCVersionMajor_Reg(void* buffer, unsigned long* size) override;
    int GetGenTLSFNCVersionMinor_Reg(void* buffer, unsigned long* size) override;
    int GetGenTLSFNCVersionSubMinor_Reg(void* buffer, unsigned long* size) override;
    int GetGevVersionMajor_Reg(void* buffer, unsigned long* size) override;
    int GetGevVersionMinor_Reg(void* buffer, unsigned long* size) override;
    /// Any value: the System lists the adapters anew (100 ms).
    int SetInterfaceUpdateList_Reg(const void* buffer, unsigned long* size) override;
    int GetInterfaceSelector_Reg(void* buffer, unsigned long* size) override;
    int SetInterfaceSelector_Reg(const void* buffer, unsigned long* size) override;
    int GetInterfaceSelector_Min_Reg(void* buffer, unsigned long* size) override;
    /// count - 1, 0 for an empty list.
    int GetInterfaceSelector_Max_Reg(void* buffer, unsigned long* size) override;
    /// 1 while the selector is below the count.
    int GetInterfaceID_Available_Reg(void* buffer, unsigned long* size) override;
    int GetGevInterfaceMACAddress_Reg(void* buffer, unsigned long* size) override;
    int GetGevInterfaceMACAddress_Available_Reg(void* buffer, unsigned long* size) override;
    int GetGevInterfaceDefaultIPAddress_Reg(void* buffer, unsigned long* size) override;
    int GetGevInterfaceDefaultIPAddress_Available_Reg(void* buffer, unsigned long* size) override;
    int GetGevInterfaceDefaultSubnetMask_Reg(void* buffer, unsigned long* size) override;
    int GetGevInterfaceDefaultSubnetMask_Available_Reg(void* buffer, unsigned long* size) override;
    /// Any value: System::SendActionCommand with the five stored values.
    int SetActionCommandFireCommand_Reg(const void* buffer, unsigned long* size) override;
    int GetActionCommandDeviceKey_Reg(void* buffer, unsigned long* size) override;
    int SetActionCommandDeviceKey_Reg(const void* buffer, unsigned long* size) override;
    int GetActionCommandGroupKey_Reg(void* buffer, unsigned long* size) override;
    int SetActionCommandGroupKey_Reg(const void* buffer, unsigned long* size) override;
    int GetActionCommandGroupMask_Reg(void* buffer, unsigned long* size) override;
    int SetActionCommandGroupMask_Reg(const void* buffer, unsigned long* size) override;
    /// Host byte order.
    int GetActionCommandTargetIP_Reg(void* buffer, unsigned long* size) override;
    int SetActionCommandTargetIP_Reg(const void* buffer, unsigned long* size) override;
    int GetActionCommandExecuteTime_Reg(void* buffer, unsigned long* size) override;
    int SetActionCommandExecuteTime_Reg(const void* buffer, unsigned long* size) override;
    int GetThreadSelection_Reg(void* buffer, unsigned long* size) override;
    int SetThreadSelection_Reg(const void* buffer, unsigned long* size) override;
    int GetThreadPriority_Reg(void* buffer, unsigned long* size) override;
    int SetThreadPriority_Reg(const void* buffer, unsigned long* size) override;
    int SetWriteDriverLogToFileCommand_Reg(const void* buffer, unsigned long* size) override;
    int GetWindowsDriverFeatures_Implemented_Reg(void* buffer, unsigned long* size) override;
    int GetWriteDriverLogToFilePath_Reg(void* buffer, unsigned long* size) override;
    int SetWriteDriverLogToFilePath_Reg(const void* buffer, unsigned long* size) override;
    int GetDriverVersion_Reg(void* buffer, unsigned long* size) override;
    int GetLwfDriverLogLevel_Reg(void* buffer, unsigned long* size) override;
    int SetLwfDriverLogLevel_Reg(const void* buffer, unsigned long* size) override;
    int SetClearDriverLogCommand_Reg(const void* buffer, unsigned long* size) override;
    /// The whole embedded XML; see ModuleXml::CopyTo.
    int GetLocalTLXML_Reg(void* buffer, unsigned long* size) override;

private:
    /// The System's TL_INFO answer with the caller's buffer and size.
    int Info(int cmd, void* buffer, unsigned long* size);
    /// As Info, for a number: the register's other bytes read 0.
    int InfoNumber(int cmd, void* buffer, unsigned long* size);
    /// A constant as int64.
    int Constant(long value, void* buffer, unsigned long* size);
    /// The selected interface's address fact (INTERFACE_INFO_GEV_*).
    int InterfaceAddress(int cmd, void* buffer, unsigned long* size);
    /// The selected interface's id, as System::GetInterfaceID hands it out.
    int SelectedInterfaceId(char* id, unsigned long* size);
    /// The ThreadPriority setting that the thread selection names, or null.
    std::atomic<long>* SelectedThreadPriority();

    System* m_system;
    std::int64_t m_interfaceSelector = 0;
    std::int64_t m_threadSelector = 0;
    InfoUtility m_infoUtility;
};

} // namespace GenTL
