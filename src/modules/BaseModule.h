#pragma once
/**
 * BaseModule: the port facts shared by every module behind a handle and the
 * default answers of all IBaseModule operations.
 *
 * A concrete module derives from its interface and from BaseModule:
 *
 *   class System : public ISystem, public BaseModule { ... };
 *
 * so it holds two IBaseModule parts. The handle carries the one within the
 * interface (the frames cast it to ISystem, IInterface, ...). The concrete
 * class overrides each IBaseModule operation once, which serves both parts,
 * and forwards to BaseModule:: where it has no answer of its own:
 *
 *   int GetPortInfo(int c, int* t, void* b, unsigned long* s) override {
 *       return BaseModule::GetPortInfo(c, t, b, s);
 *   }
 *
 * Calls that BaseModule makes to virtual operations (GetPortURL from
 * GetPortURLInfo, ReadPort/WritePort from the stacked helpers) reach the
 * concrete class's overrides.
 *
 * "Not implemented" answers record GC_ERR_NOT_IMPLEMENTED with the stamped
 * code name "<function>():<line>: GenTL::GC_ERR_NOT_IMPLEMENTED(-1003)",
 * replacing the thread's cached error. ReportNotImplemented() below makes
 * that answer for operations of the concrete modules.
 */
#include <string>

#include "api/Error.h"
#include "modules/IBaseModule.h"
#include "modules/PortInfo.h"
#include "modules/UrlInfo.h"

/// Records and yields GC_ERR_NOT_IMPLEMENTED, stamped with the caller.
#define ReportNotImplemented()                                                                     \
    ReportError(GC_ERR_NOT_IMPLEMENTED, ::GenTL::Error::GetErrCodeName(GC_ERR_NOT_IMPLEMENTED))

namespace GenTL {

/// Port address of every module's embedded XML description.
constexpr unsigned long kModuleXmlAddress = 0xF0F00000UL;

/// Extra bytes beyond the URL text that GetPortURL hands out: System and
/// InterfaceGev give two trailing zero bytes, DeviceGev and DataStreamGev one.
constexpr unsigned long kPortUrlExtraTwo = 2;
constexpr unsigned long kPortUrlExtraOne = 1;

class BaseModule : public IBaseModule {
public:
    /// Common facts, id "Unknown ID", module "Unknown Module", port name
    /// "Unknown Port Name".
    BaseModule();
    /// Common facts with the module's own id, module name and port name.
    BaseModule(const std::string& id, const std::string& module, const std::string& portName);
    ~BaseModule() override;

    /// Not implemented.
    int ReadPort(unsigned long address, void* buffer, unsigned long* size) override;
    /// Not implemented.
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override;
    /// Not implemented.
    int GetPortURL(char* url, unsigned long* size) const override;
    /// Answers PORT_INFO_ID .. PORT_INFO_PORTNAME from the PortInfo; another
    /// command fails with GC_ERR_INVALID_INDEX.
    int GetPortInfo(int cmd, int* type, void* buffer, unsigned long* size) override;
    /// Not implemented.
    int RegisterEvent(int type, void** event) override;
    /// Not implemented.
    int UnregisterEvent(int type) override;
    /// Not implemented.
    int GetNumPortURLs(unsigned int* count) override;
    /**
     * URL number 0 only (another index fails with GC_ERR_INVALID_INDEX):
     * URL_INFO_URL through the virtual GetPortURL, the schema version from
     * the UrlInfo; the file facts answer not implemented, unknown commands
     * GC_ERR_INVALID_INDEX.
     */
    int GetPortURLInfo(unsigned int index, int cmd, int* type, void* buffer,
                       unsigned long* size) override;
    /// Not implemented.
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;
    /// Not implemented.
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;

    const PortInfo& GetPortInfoRecord() const { return m_portInfo; }
    const UrlInfo& GetUrlInfoRecord() const { return m_urlInfo; }

protected:
    /**
     * GetPortURL of a module whose XML is served on its own port: the
     * template's "%X" becomes xmlLength in upper-case hexadecimal, and the
     * size handed out is the text's length plus extraBytes (zero bytes). A
     * null url asks for that size. Fails with GC_ERR_INVALID_PARAMETER for a
     * null size, GC_ERR_BUFFER_TOO_SMALL for a smaller *size.
     */
    static int GetPortURL(const std::string& urlTemplate, unsigned long xmlLength,
                          unsigned long extraBytes, char* url, unsigned long* size);

    /// *count = 1, the one URL of every module; null fails with
    /// GC_ERR_INVALID_PARAMETER "piNumURLs==nullptr".
    static int GetOneNumPortURLs(unsigned int* count);

    /**
     * Stacked access on top of the virtual ReadPort/WritePort: each entry in
     * order, with the entry's own Size field as the size, up to the first
     * failure. Null entries or count fail with GC_ERR_INVALID_PARAMETER.
     */
    int ReadPortEntries(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count);
    int WritePortEntries(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count);

    UrlInfo m_urlInfo;
    PortInfo m_portInfo;
};

} // namespace GenTL
