#include "InfoValue.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace kesta::gentl {

namespace {

template <typename T> T Read(const std::vector<unsigned char>& bytes) {
    T v{};
    if (bytes.size() >= sizeof v) {
        std::memcpy(&v, bytes.data(), sizeof v);
    }
    return v;
}

} // namespace

std::int64_t InfoValue::Number() const {
    switch (type) {
    case INFO_DATATYPE_INT16:
        return Read<int16_t>(bytes);
    case INFO_DATATYPE_UINT16:
        return Read<uint16_t>(bytes);
    case INFO_DATATYPE_INT32:
        return Read<int32_t>(bytes);
    case INFO_DATATYPE_UINT32:
        return Read<uint32_t>(bytes);
    case INFO_DATATYPE_INT64:
        return Read<int64_t>(bytes);
    case INFO_DATATYPE_UINT64:
    case INFO_DATATYPE_SIZET:
        return static_cast<std::int64_t>(Read<uint64_t>(bytes));
    case INFO_DATATYPE_BOOL8:
        return Read<uint8_t>(bytes) != 0;
    default:
        return 0;
    }
}

std::string InfoValue::Text() const {
    switch (type) {
    case INFO_DATATYPE_STRING:
        return std::string(bytes.begin(), bytes.end()).c_str();
    case INFO_DATATYPE_UINT64:
    case INFO_DATATYPE_SIZET:
        return std::to_string(Read<uint64_t>(bytes));
    case INFO_DATATYPE_FLOAT64:
        return std::to_string(Read<double>(bytes));
    case INFO_DATATYPE_BOOL8:
        return Number() ? "true" : "false";
    case INFO_DATATYPE_INT16:
    case INFO_DATATYPE_UINT16:
    case INFO_DATATYPE_INT32:
    case INFO_DATATYPE_UINT32:
    case INFO_DATATYPE_INT64:
        return std::to_string(Number());
    default:
        return "(" + std::to_string(bytes.size()) + " bytes of type " + std::to_string(type) + ")";
    }
}

GC_ERROR AskInfo(const InfoQuery& query, InfoValue& value) {
    size_t size = 0;
    if (GC_ERROR rc = query(&value.type, nullptr, &size)) {
        return rc;
    }
    value.bytes.assign(size, 0);
    if (GC_ERROR rc = query(&value.type, value.bytes.data(), &size)) {
        return rc;
    }
    value.bytes.resize(std::min(size, value.bytes.size()));
    return GC_ERR_SUCCESS;
}

std::string FormatIp(std::int64_t ip) {
    const auto v = static_cast<std::uint32_t>(ip);
    char text[16];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", v >> 24, (v >> 16) & 0xFF, (v >> 8) & 0xFF,
                  v & 0xFF);
    return text;
}

std::string FormatMac(std::int64_t mac) {
    const auto v = static_cast<std::uint64_t>(mac);
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x",
                  static_cast<unsigned>((v >> 40) & 0xFF), static_cast<unsigned>((v >> 32) & 0xFF),
                  static_cast<unsigned>((v >> 24) & 0xFF), static_cast<unsigned>((v >> 16) & 0xFF),
                  static_cast<unsigned>((v >> 8) & 0xFF), static_cast<unsigned>(v & 0xFF));
    return text;
}

std::string FormatAccessStatus(std::int64_t status) {
    switch (status) {
    case DEVICE_ACCESS_STATUS_UNKNOWN:
        return "unknown";
    case DEVICE_ACCESS_STATUS_READWRITE:
        return "read-write";
    case DEVICE_ACCESS_STATUS_READONLY:
        return "read-only";
    case DEVICE_ACCESS_STATUS_NOACCESS:
        return "no access";
    case DEVICE_ACCESS_STATUS_BUSY:
        return "busy";
    case DEVICE_ACCESS_STATUS_OPEN_READWRITE:
        return "open read-write";
    case DEVICE_ACCESS_STATUS_OPEN_READONLY:
        return "open read-only";
    default:
        return std::to_string(status);
    }
}

} // namespace kesta::gentl
