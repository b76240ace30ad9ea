#pragma once
/**
 * ModuleXml: a module's GenApi description, built into the library as bytes
 * from the XML file beside the register classes (the build turns each file
 * into a byte array; see CMakeLists.txt here). It is the only copy; it is
 * served on the module's port at kModuleXmlAddress, and the length in the
 * module's URL is its size.
 */
#include <cstddef>

namespace GenTL {

struct ModuleXml {
    /// The file's bytes, followed by one terminating zero byte.
    const unsigned char* data;
    /// The file's length, without the terminator.
    unsigned long size;

    /**
     * The register read of the description: the whole file into buffer,
     * whatever the requested size beyond it, and 0. A caller is expected to
     * ask for the length its URL states; a smaller *size gets only that
     * many bytes, never more than its buffer holds. *size is left alone.
     */
    int CopyTo(void* buffer, const unsigned long* size) const;
};

/// SFNC_GenTLDataStream_Reference_Version_1_0_0_Schema_1_1.xml
extern const ModuleXml g_streamXml;
/// SFNC_GenTLSystem_Reference_Version_1_0_0_Schema_1_1.xml
extern const ModuleXml g_systemXml;
/// SFNC_GenTLInterface_Reference_Version_1_0_0_Schema_1_1.xml
extern const ModuleXml g_interfaceXml;
/// SFNC_GenTLDevice_Reference_Version_1_0_0_Schema_1_1.xml
extern const ModuleXml g_deviceXml;

} // namespace GenTL
