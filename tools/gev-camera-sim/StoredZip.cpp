#include "StoredZip.h"

namespace gevsim {

namespace {

void put16(std::vector<uint8_t>& out, uint32_t v) {
    out.push_back(static_cast<uint8_t>(v));
    out.push_back(static_cast<uint8_t>(v >> 8));
}

void put32(std::vector<uint8_t>& out, uint32_t v) {
    put16(out, v & 0xFFFF);
    put16(out, v >> 16);
}

// The fields that local header and central directory share, from "version
// needed" to the name's length: stored (method 0), dated 1980-01-01.
void putCommon(std::vector<uint8_t>& out, uint32_t crc, uint32_t size, size_t nameLength) {
    put16(out, 10); // version 1.0 is enough for a stored file
    put16(out, 0);  // flags
    put16(out, 0);  // stored
    put16(out, 0);  // time
    put16(out, 0x21);
    put32(out, crc);
    put32(out, size); // compressed
    put32(out, size); // uncompressed
    put16(out, static_cast<uint32_t>(nameLength));
    put16(out, 0); // extra field
}

} // namespace

uint32_t zipCrc32(const uint8_t* data, size_t size) {
    uint32_t crc = 0xFFFFFFFF;
    for (size_t i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1)));
    }
    return ~crc;
}

std::vector<uint8_t> storedZip(const std::string& name, const uint8_t* data, size_t size) {
    const uint32_t crc = zipCrc32(data, size);
    const auto length = static_cast<uint32_t>(size);
    std::vector<uint8_t> out;
    put32(out, 0x04034B50);
    putCommon(out, crc, length, name.size());
    out.insert(out.end(), name.begin(), name.end());
    out.insert(out.end(), data, data + size);

    const auto directory = static_cast<uint32_t>(out.size());
    put32(out, 0x02014B50);
    put16(out, 10); // made by: version 1.0
    putCommon(out, crc, length, name.size());
    put16(out, 0); // comment
    put16(out, 0); // disk
    put16(out, 0); // internal attributes
    put32(out, 0); // external attributes
    put32(out, 0); // offset of the local header
    out.insert(out.end(), name.begin(), name.end());

    const auto directorySize = static_cast<uint32_t>(out.size()) - directory;
    put32(out, 0x06054B50);
    put16(out, 0); // this disk
    put16(out, 0); // the directory's disk
    put16(out, 1); // entries on this disk
    put16(out, 1); // entries
    put32(out, directorySize);
    put32(out, directory);
    put16(out, 0); // comment
    return out;
}

} // namespace gevsim
