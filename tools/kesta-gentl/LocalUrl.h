#pragma once
// The camera's description URL in its "local:" form: a file kept in the
// camera's own memory, "local:NAME;ADDRESS;LENGTH[?query]" with address and
// length in hexadecimal and the scheme in any case ("Local:" is common).
#include <cstdint>
#include <string>

namespace kesta::gentl {

struct LocalFile {
    std::string name;          ///< e.g. "Camera.zip"
    std::uint64_t address = 0; ///< where it starts in the camera's memory
    std::uint64_t length = 0;  ///< bytes
    /// The name says zip archive (".zip", any case).
    bool Zipped() const;
};

/// False for another scheme (file:, http:) or a malformed local URL.
bool ParseLocalUrl(const std::string& url, LocalFile& file);

} // namespace kesta::gentl
