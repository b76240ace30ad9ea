#pragma once
/**
 * Where the library lies, and file URLs for XML descriptions served from
 * disk.
 */
#include <string>

namespace GenTL {

/// Full path of the shared object that holds GCInitLib, by dladdr;
/// "undefined" (and a line on stderr) if the loader cannot tell.
std::string GetGenTLFilePath();

/// The part of GetGenTLFilePath() from the first "libgentl" on, or
/// "libgentl.so" if the path does not hold that word.
std::string GetGenTLFileName();
/// The same rule applied to a given path.
std::string GetGenTLFileName(const std::string& path);

/// The process's working directory with a trailing slash (not the library's
/// folder), or "undefined".
std::string GetGenTLDirPath();

/**
 * "file:" + GetGenTLDirPath() + "xml/" + fileName + "?SchemaVersion=1.0.0"
 * into pURL. A null pURL asks for the size (length + 1) in *piSize. Null
 * piSize: GC_ERR_INVALID_PARAMETER; too small: GC_ERR_BUFFER_TOO_SMALL, both
 * with their default texts.
 */
int GetGenTLPortURL(const std::string& fileName, char* pURL, unsigned long* piSize);

} // namespace GenTL
