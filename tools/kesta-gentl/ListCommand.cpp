#include <iostream>
#include <string>

#include "Commands.h"
#include "InfoValue.h"
#include "Options.h"
#include "Session.h"

namespace kesta::gentl {

namespace {

enum class Shown { Text, Ip, Mac, Access };

struct Fact {
    int cmd;
    const char* label;
    Shown shown;
};

const Fact kInterfaceFacts[] = {
    {INTERFACE_INFO_DISPLAYNAME, "name", Shown::Text},
    {INTERFACE_INFO_GEV_MAC_ADDRESS, "MAC", Shown::Mac},
    {INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS, "IP", Shown::Ip},
    {INTERFACE_INFO_GEV_SUBNET_MASK, "subnet", Shown::Ip},
};

const Fact kDeviceFacts[] = {
    {DEVICE_INFO_VENDOR, "vendor", Shown::Text},
    {DEVICE_INFO_MODEL, "model", Shown::Text},
    {DEVICE_INFO_SERIAL_NUMBER, "serial", Shown::Text},
    {DEVICE_INFO_GEV_MAC_ADDRESS, "MAC", Shown::Mac},
    {DEVICE_INFO_GEV_IP_ADDRESS, "IP", Shown::Ip},
    {DEVICE_INFO_GEV_SUBNET_MASK, "subnet", Shown::Ip},
    {DEVICE_INFO_GEV_DEFAULT_GATEWAY, "gateway", Shown::Ip},
    {DEVICE_INFO_VERSION, "version", Shown::Text},
    {DEVICE_INFO_USER_DEFINED_NAME, "user name", Shown::Text},
    {DEVICE_INFO_ACCESS_STATUS, "access", Shown::Access},
};

std::string Show(const InfoValue& value, Shown shown) {
    switch (shown) {
    case Shown::Ip:
        return FormatIp(value.Number());
    case Shown::Mac:
        return FormatMac(value.Number());
    case Shown::Access:
        return FormatAccessStatus(value.Number());
    case Shown::Text:
    default:
        return value.Text();
    }
}

} // namespace

int RunList(Producer& producer, const Arguments& arguments) {
    Options options;
    if (!options.Parse(arguments, {"--timeout"}, std::cerr)) {
        return 2;
    }
    if (!options.Rest().empty()) {
        std::cerr << "list takes no arguments besides --timeout MS\n";
        return 2;
    }
    Session session(producer);
    if (session.Start()) {
        return 1;
    }
    session.Discover(options.Timeout());

    int status = 0;
    const auto print = [&](const char* indent, const Fact& fact, const InfoQuery& query,
                           const std::string& owner) {
        InfoValue value;
        if (GC_ERROR rc = AskInfo(query, value)) {
            std::cout << indent << fact.label << ": unavailable (" << rc << ")\n";
            session.Fail(owner + " " + fact.label, rc);
            status = 1;
            return;
        }
        std::cout << indent << fact.label << ": " << Show(value, fact.shown) << "\n";
    };

    const auto& interfaces = session.Interfaces();
    if (interfaces.empty()) {
        std::cout << "no network interface\n";
    }
    std::size_t cameraIndex = 0;
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
        const Session::Interface& iface = interfaces[i];
        std::cout << "interface " << i << ": " << iface.id << "\n";
        for (const Fact& fact : kInterfaceFacts) {
            print(
                "  ", fact,
                [&](INFO_DATATYPE* t, void* b, size_t* s) {
                    return producer.IFGetInfo(iface.handle, fact.cmd, t, b, s);
                },
                "IFGetInfo(" + iface.id + ")");
        }
        bool any = false;
        for (const Session::Camera& camera : session.Cameras()) {
            if (camera.iface != i) {
                continue;
            }
            any = true;
            std::cout << "  camera " << cameraIndex++ << ": " << camera.id << "\n";
            for (const Fact& fact : kDeviceFacts) {
                print(
                    "    ", fact,
                    [&](INFO_DATATYPE* t, void* b, size_t* s) {
                        return producer.IFGetDeviceInfo(iface.handle, camera.id.c_str(), fact.cmd,
                                                        t, b, s);
                    },
                    "IFGetDeviceInfo(" + camera.id + ")");
            }
        }
        if (!any) {
            std::cout << "  no camera answered\n";
        }
    }
    return status;
}

} // namespace kesta::gentl
