#include <arpa/inet.h>

#include <cstdio>
#include <iostream>
#include <string>

#include "Commands.h"
#include "NodeMap.h"
#include "Options.h"
#include "Session.h"

namespace kesta::gentl {

namespace {

std::string Hex(std::uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%llX", static_cast<unsigned long long>(value));
    return text;
}

} // namespace

int RunAction(Producer& producer, const Arguments& arguments) {
    Options options;
    if (!options.Parse(arguments,
                       {"--device-key", "--group-key", "--group-mask", "--time", "--target"},
                       std::cerr)) {
        return 2;
    }
    struct Value {
        const char* option;
        const char* feature;
        std::uint64_t largest;
        std::uint64_t number;
    };
    Value values[] = {
        {"--device-key", "ActionCommandDeviceKey", 0xFFFFFFFFu, 0},
        {"--group-key", "ActionCommandGroupKey", 0xFFFFFFFFu, 0},
        {"--group-mask", "ActionCommandGroupMask", 0xFFFFFFFFu, 0},
        {"--time", "ActionCommandExecuteTime", 0x7FFFFFFFFFFFFFFFu, 0},
    };
    for (Value& v : values) {
        const std::string text =
            options.Get(v.option, v.option == std::string("--time") ? "0" : "");
        if (!ParseNumber(text, v.number) || v.number > v.largest) {
            std::cerr << "action needs " << v.option << " with a number up to " << Hex(v.largest)
                      << (text.empty() ? "" : ", not " + text) << "\n";
            return 2;
        }
    }
    const std::string target = options.Get("--target", "255.255.255.255");
    in_addr address{};
    if (!options.Rest().empty() || inet_pton(AF_INET, target.c_str(), &address) != 1) {
        std::cerr << "action takes --device-key K --group-key G --group-mask M [--time T] "
                     "[--target IPv4]\n";
        return 2;
    }

    Session session(producer);
    if (session.Start()) {
        return 1;
    }
    // Through the system module's features, as a GenApi consumer fires one.
    NodeMap features(producer, session.System());
    if (!features.Load()) {
        return 1;
    }
    std::string error;
    bool ok = true;
    for (const Value& v : values) {
        ok = ok && features.SetInteger(v.feature, static_cast<std::int64_t>(v.number), error);
    }
    ok = ok && features.SetInteger("ActionCommandTargetIP", ntohl(address.s_addr), error) &&
         features.Execute("ActionCommandFireCommand", error);
    if (!ok) {
        std::cerr << error << "\n";
        return 1;
    }
    std::cout << "action command sent to " << target << ": device key " << Hex(values[0].number)
              << ", group key " << Hex(values[1].number) << ", group mask " << Hex(values[2].number)
              << ", ";
    if (values[3].number == 0) {
        std::cout << "at once\n";
    } else {
        std::cout << "at " << values[3].number << "\n";
    }
    return 0;
}

} // namespace kesta::gentl
