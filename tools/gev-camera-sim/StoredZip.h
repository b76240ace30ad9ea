// A zip archive of one file, stored without compression: how the camera can
// serve its description zipped, as most cameras do (--zip-xml).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace gevsim {

// The archive's bytes: a local header with the file, the central directory
// and its end record.
std::vector<uint8_t> storedZip(const std::string& name, const uint8_t* data, size_t size);

// The CRC-32 of zip archives (reflected, polynomial 0xEDB88320).
uint32_t zipCrc32(const uint8_t* data, size_t size);

} // namespace gevsim
