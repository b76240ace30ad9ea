#pragma once
// The camera's GenApi description, read from the file its first URL names
// in the camera's own memory, through the remote port.
#include <string>
#include <vector>

#include "LocalUrl.h"
#include "Producer.h"

namespace kesta::gentl {

struct CameraXml {
    std::string url;        ///< as the port states it
    LocalFile file;         ///< the parsed local URL
    std::vector<char> data; ///< the file's bytes, a zip archive if file.Zipped()
};

/**
 * Reads the URL of port and the file it names. On failure prints to stderr
 * what went wrong (with the library's error stack for a failed call) and
 * returns false: a URL that is not "local:" is refused, since the tool
 * fetches nothing from elsewhere.
 */
bool ReadCameraXml(Producer& producer, PORT_HANDLE port, CameraXml& xml);

/// The port's first URL; prints the failure and returns its code.
GC_ERROR ReadPortUrl(Producer& producer, PORT_HANDLE port, std::string& url);

} // namespace kesta::gentl
