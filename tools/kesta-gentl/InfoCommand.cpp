#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

#include "Commands.h"

namespace kesta::gentl {

namespace {

struct InfoCommand {
    TL_INFO_CMD cmd;
    const char* name;
};

const InfoCommand kInfoCommands[] = {
    {TL_INFO_ID, "TL_INFO_ID"},
    {TL_INFO_VENDOR, "TL_INFO_VENDOR"},
    {TL_INFO_MODEL, "TL_INFO_MODEL"},
    {TL_INFO_VERSION, "TL_INFO_VERSION"},
    {TL_INFO_TLTYPE, "TL_INFO_TLTYPE"},
    {TL_INFO_NAME, "TL_INFO_NAME"},
    {TL_INFO_PATHNAME, "TL_INFO_PATHNAME"},
    {TL_INFO_DISPLAYNAME, "TL_INFO_DISPLAYNAME"},
    {TL_INFO_CHAR_ENCODING, "TL_INFO_CHAR_ENCODING"},
    {TL_INFO_GENTL_VER_MAJOR, "TL_INFO_GENTL_VER_MAJOR"},
    {TL_INFO_GENTL_VER_MINOR, "TL_INFO_GENTL_VER_MINOR"},
};

// The answer as text, by the type the producer gives it.
std::string Format(INFO_DATATYPE type, const std::vector<unsigned char>& value) {
    auto read = [&value](auto sample) {
        decltype(sample) v{};
        if (value.size() >= sizeof(v)) {
            std::copy(value.begin(), value.begin() + sizeof(v),
                      reinterpret_cast<unsigned char*>(&v));
        }
        return v;
    };
    switch (type) {
    case INFO_DATATYPE_STRING:
        return std::string(value.begin(), value.end()).c_str();
    case INFO_DATATYPE_INT16:
        return std::to_string(read(int16_t{}));
    case INFO_DATATYPE_UINT16:
        return std::to_string(read(uint16_t{}));
    case INFO_DATATYPE_INT32:
        return std::to_string(read(int32_t{}));
    case INFO_DATATYPE_UINT32:
        return std::to_string(read(uint32_t{}));
    case INFO_DATATYPE_INT64:
        return std::to_string(read(int64_t{}));
    case INFO_DATATYPE_UINT64:
    case INFO_DATATYPE_SIZET:
        return std::to_string(read(uint64_t{}));
    case INFO_DATATYPE_FLOAT64:
        return std::to_string(read(double{}));
    case INFO_DATATYPE_BOOL8:
        return read(uint8_t{}) ? "true" : "false";
    default:
        return "(" + std::to_string(value.size()) + " bytes of type " + std::to_string(type) + ")";
    }
}

} // namespace

int RunInfo(Producer& producer, const Arguments& arguments) {
    if (!arguments.empty()) {
        std::cerr << "info takes no arguments\n";
        return 2;
    }
    if (GC_ERROR rc = producer.GCInitLib()) {
        producer.Report(std::cerr, "GCInitLib", rc);
        return 1;
    }
    int status = 0;
    for (const InfoCommand& info : kInfoCommands) {
        INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
        size_t size = 0;
        GC_ERROR rc = producer.GCGetInfo(info.cmd, &type, nullptr, &size);
        std::vector<unsigned char> value(size);
        if (rc == GC_ERR_SUCCESS) {
            rc = producer.GCGetInfo(info.cmd, &type, value.data(), &size);
        }
        if (rc != GC_ERR_SUCCESS) {
            producer.Report(std::cerr, std::string("GCGetInfo(") + info.name + ")", rc);
            status = 1;
            continue;
        }
        value.resize(size);
        std::cout << info.name << ": " << Format(type, value) << "\n";
    }
    if (GC_ERROR rc = producer.GCCloseLib()) {
        producer.Report(std::cerr, "GCCloseLib", rc);
        status = 1;
    }
    return status;
}

} // namespace kesta::gentl
