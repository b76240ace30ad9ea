#pragma once
/**
 * System: the transport layer as a whole, the module behind TLOpen's handle.
 *
 * It owns the control layer (IHALGev), keeps the list of interface ids from
 * the last enumeration of adapters, answers TL_INFO_* commands and the port
 * facts of "TLPort", and opens InterfaceGev modules, which it enters in
 * g_openedDevicesRegistry. One System exists at a time (g_isSystemOpen).
 *
 * Its port serves the register space of SystemRegImpl, which it keeps for
 * its whole life so that the selectors hold between accesses, and the XML
 * that describes it.
 *
 * Lifecycle: construct (TLOpen passes a null control layer, a test may pass
 * its own), Open (makes a HALGev if none was given, lists the adapters),
 * Close (closes what the registry still lists as open, interfaces first,
 * then devices, and deletes the control layer), delete.
 *
 * The list is not locked: the caller must not update it on one thread while
 * reading it on another.
 */
#include <string>
#include <vector>

#include "api/InfoUtility.h"
#include "modules/BaseModule.h"
#include "modules/ISystem.h"
#include "registers/SystemRegImpl.h"

namespace GenTL {

class IHALGev;

class System : public ISystem, public BaseModule {
public:
    /// The refusal of an unknown TL_INFO command, with and without a system.
    static constexpr const char* kInfoCommands =
        "iInfoCmd must be one of :\nGenTL::TL_INFO_ID, GenTL::TL_INFO_VENDOR, "
        "GenTL::TL_INFO_MODEL, \nGenTL::TL_INFO_VERSION, GenTL::TL_INFO_TLTYPE, "
        "GenTL::TL_INFO_NAME, \nGenTL::TL_INFO_PATHNAME, GenTL::TL_INFO_DISPLAYNAME, "
        "GenTL::TL_INFO_CHAR_ENCODING, \nGenTL::TL_INFO_GENTL_VER_MAJOR, "
        "GenTL::TL_INFO_GENTL_VER_MINOR";

    /// As System(nullptr).
    System();
    /// hal: the control layer to use and own; null makes Open create a HALGev.
    explicit System(IHALGev* hal);
    /// Leaves the control layer alone: Close or a failed Open deleted it.
    ~System() override;

    // --- Port -------------------------------------------------------------

    /// The system's register space (SystemReg).
    int ReadPort(unsigned long address, void* buffer, unsigned long* size) override;
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override;
    /// "local:SFNC_GenTLSystem_Reference_Version_1_0_0_Schema_1_1.xml;F0F00000;<len>?..."
    /// with two trailing zero bytes.
    int GetPortURL(char* url, unsigned long* size) const override;
    int GetPortInfo(int cmd, int* type, void* buffer, unsigned long* size) override;
    /// Not implemented: the system has no events.
    int RegisterEvent(int type, void** event) override;
    int UnregisterEvent(int type) override;
    /// One URL.
    int GetNumPortURLs(unsigned int* count) override;
    int GetPortURLInfo(unsigned int index, int cmd, int* type, void* buffer,
                       unsigned long* size) override;
    /// ReadPort/WritePort per entry, up to the first failure.
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;

    // --- System -----------------------------------------------------------

    /// Creates a HALGev if none was given and lists the adapters; on failure
    /// the control layer is deleted.
    int Open() override;
    /// IFClose on every registered interface, then DevClose on every
    /// registered device, then deletes the control layer. Failures are
    /// recorded and the walk goes on; the last failing code is the result.
    int Close() override;
    /// TL_INFO_ID .. TL_INFO_GENTL_VER_MINOR, as GCGetInfo answers them.
    int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) override;
    /// Size of the current list, with no new enumeration.
    int GetNumInterfaces(unsigned int* count) override;
    /// Id of list entry index; a null id asks for the size (length + 1).
    int GetInterfaceID(unsigned int index, char* id, unsigned long* size) override;
    /**
     * Facts of a listed interface that need no open adapter: id, display
     * name "GigE Interface ( MAC:<id> )", "GEV". The address commands
     * (1001-1003) fail with GC_ERR_NOT_AVAILABLE until the interface is open.
     */
    int GetInterfaceInfo(const char* id, int cmd, int* type, void* buffer,
                         unsigned long* size) override;
    /**
     * Opens the adapter of a listed id as an InterfaceGev whose parent is
     * hTL, hands out its handle and registers it. An id that is open already
     * fails with GC_ERR_RESOURCE_IN_USE and leaves the open one alone.
     */
    int OpenInterface(const char* id, void* hTL, void** phIface) override;
    /// Lists the adapters anew (timeout 0 is refused, other values unused);
    /// *changed tells whether the set of ids changed (order alone is no
    /// change). The new list replaces the old one; a failure keeps the old.
    int UpdateInterfaceList(bool* changed, unsigned long timeout) override;

    // --- Called from the register map -----------------------------------

    /// There is no network driver on this platform: each of these fails with
    /// GC_ERR_NOT_IMPLEMENTED and changes nothing.
    int GetDriverLogFilename(std::string& fileName) const;
    int SetDriverLogFilename(const std::string& fileName);
    int WriteDriverLogToFile();
    int ClearDriverLog();
    int GetDriverVersion(std::string& version) const;
    int GetLwfDriverLogLevel(int& level) const;
    int SetLwfDriverLogLevel(int level);

    /// The values of the next broadcast action command. A null pointer
    /// fails with GC_ERR_INVALID_HANDLE (default text).
    int GetActionCommandDeviceKey(unsigned int* value) const;
    int SetActionCommandDeviceKey(const unsigned int* value);
    int GetActionCommandGroupKey(unsigned int* value) const;
    int SetActionCommandGroupKey(const unsigned int* value);
    int GetActionCommandGroupMask(unsigned int* value) const;
    int SetActionCommandGroupMask(const unsigned int* value);
    /// Host byte order.
    int GetActionCommandTargetIP(unsigned int* value) const;
    int SetActionCommandTargetIP(const unsigned int* value);
    int GetActionCommandExecuteTime(unsigned long* value) const;
    int SetActionCommandExecuteTime(const unsigned long* value);

    /**
     * Sends one action command (20 bytes, or 28 with an executeTime other
     * than 0) to UDP port 3956 of targetIP (host order, normally a broadcast
     * address) out of every IPv4 interface that is up, running and not
     * loopback, from a socket bound to that interface's address. Nobody is
     * waiting for acks. No usable interface is success with nothing sent. A
     * failing socket, option or bind ends the walk (GC_ERR_ERROR or
     * GC_ERR_ABORT): the interfaces before it have had theirs.
     */
    int SendActionCommand(unsigned int deviceKey, unsigned int groupKey, unsigned int groupMask,
                          unsigned int targetIP, unsigned long executeTime);

    /// The control layer (null before Open when none was given).
    IHALGev* GetHal() const { return m_pHal; }

private:
    IHALGev* m_pHal;
    InfoUtility m_infoUtility;
    std::vector<std::string> m_interfaceIds;
    SystemRegImpl m_regImpl{this};
    std::string m_tlFileName;
    std::string m_tlFilePath;
    std::string m_displayName = "Kesta Optic Works GenTL Module";
    int m_charEncoding = 0;
    unsigned int m_versionMajor = 1;
    unsigned int m_versionMinor = 5;
    unsigned int m_actionDeviceKey = 0;
    unsigned int m_actionGroupKey = 0;
    unsigned int m_actionGroupMask = 0;
    unsigned int m_actionTargetIP = 0;
    unsigned long m_actionExecuteTime = 0;
    /// Kept for the driver-log registers.
    std::string m_lwfLogFilename = "kestalwf.log";
};

} // namespace GenTL
