#include <cctype>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "CameraXml.h"
#include "Commands.h"
#include "InfoValue.h"
#include "LocalUrl.h"
#include "Options.h"
#include "Session.h"

namespace kesta::gentl {

namespace {

/// Device info command of the remote port's endianness mechanism.
constexpr DEVICE_INFO_CMD kDeviceInfoEndiannessMechanism = 1001;

struct Action {
    std::string name;
    std::vector<std::string> args;
};

struct ActionRule {
    const char* name;
    std::size_t minArgs;
    std::size_t maxArgs;
};

const ActionRule kActions[] = {
    {"info", 0, 0},      {"read-reg", 1, 1}, {"write-reg", 2, 2}, {"read-mem", 2, 2},
    {"write-mem", 2, 2}, {"xml", 0, 1},      {"wait", 1, 1},
};

/// Splits the arguments into actions, each name followed by its arguments.
bool ParseActions(const std::vector<std::string>& words, std::vector<Action>& actions) {
    std::size_t at = 0;
    while (at < words.size()) {
        const ActionRule* rule = nullptr;
        for (const ActionRule& r : kActions) {
            if (words[at] == r.name) {
                rule = &r;
            }
        }
        if (rule == nullptr) {
            std::cerr << "unknown action " << words[at] << "\n";
            return false;
        }
        Action action{words[at++], {}};
        while (at < words.size() && action.args.size() < rule->maxArgs) {
            bool isAction = false;
            for (const ActionRule& r : kActions) {
                isAction = isAction || words[at] == r.name;
            }
            if (isAction && action.args.size() >= rule->minArgs) {
                break;
            }
            action.args.push_back(words[at++]);
        }
        if (action.args.size() < rule->minArgs) {
            std::cerr << action.name << " needs " << rule->minArgs << " argument(s)\n";
            return false;
        }
        actions.push_back(action);
    }
    return true;
}

bool ParseAddress(const std::string& text, std::uint64_t& address) {
    if (!ParseNumber(text, address) || address > 0xFFFFFFFFu) {
        std::cerr << "not an address: " << text << "\n";
        return false;
    }
    return true;
}

bool ParseHexBytes(const std::string& text, std::vector<unsigned char>& bytes) {
    std::string digits;
    for (char c : text) {
        if (c == ':' || c == ' ' || c == '-') {
            continue;
        }
        if (!std::isxdigit(static_cast<unsigned char>(c))) {
            return false;
        }
        digits += c;
    }
    if (digits.rfind("0x", 0) == 0) {
        digits = digits.substr(2);
    }
    if (digits.empty() || digits.size() % 2 != 0) {
        return false;
    }
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<unsigned char>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return true;
}

std::string Hex(std::uint64_t value, int width) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%0*llX", width, static_cast<unsigned long long>(value));
    return text;
}

void HexDump(std::uint64_t address, const std::vector<unsigned char>& data) {
    for (std::size_t line = 0; line < data.size(); line += 16) {
        std::cout << Hex(address + line, 8) << ":";
        std::string text;
        for (std::size_t i = line; i < line + 16 && i < data.size(); ++i) {
            char byte[4];
            std::snprintf(byte, sizeof byte, " %02x", data[i]);
            std::cout << byte;
            text += std::isprint(data[i]) ? static_cast<char>(data[i]) : '.';
        }
        std::cout << std::string(3 * (16 - std::min<std::size_t>(16, data.size() - line)), ' ')
                  << "  " << text << "\n";
    }
}

class OpenCamera {
public:
    OpenCamera(Session& session, DEV_HANDLE device)
        : m_s(session), m_p(session.Library()), m_device(device) {}

    int Run(const Action& a) {
        if (a.name == "info") {
            return Info();
        }
        if (a.name == "read-reg") {
            return ReadReg(a.args[0]);
        }
        if (a.name == "write-reg") {
            return WriteReg(a.args[0], a.args[1]);
        }
        if (a.name == "read-mem") {
            return ReadMem(a.args[0], a.args[1]);
        }
        if (a.name == "write-mem") {
            return WriteMem(a.args[0], a.args[1]);
        }
        if (a.name == "xml") {
            return SaveXml(a.args.empty() ? "" : a.args[0]);
        }
        return Wait(a.args[0]);
    }

private:
    GC_ERROR Port(PORT_HANDLE& port) {
        if (m_port == nullptr) {
            if (GC_ERROR rc = m_p.DevGetPort(m_device, &m_port)) {
                m_port = nullptr;
                m_s.Fail("DevGetPort", rc);
                return rc;
            }
        }
        port = m_port;
        return GC_ERR_SUCCESS;
    }

    int Info() {
        struct Fact {
            DEVICE_INFO_CMD cmd;
            const char* label;
            std::string (*show)(const InfoValue&);
        };
        static const Fact facts[] = {
            {DEVICE_INFO_ID, "id", nullptr},
            {DEVICE_INFO_VENDOR, "vendor", nullptr},
            {DEVICE_INFO_MODEL, "model", nullptr},
            {DEVICE_INFO_SERIAL_NUMBER, "serial", nullptr},
            {DEVICE_INFO_VERSION, "version", nullptr},
            {DEVICE_INFO_USER_DEFINED_NAME, "user name", nullptr},
            {DEVICE_INFO_DISPLAYNAME, "display name", nullptr},
            {DEVICE_INFO_GEV_MAC_ADDRESS, "MAC",
             [](const InfoValue& v) { return FormatMac(v.Number()); }},
            {DEVICE_INFO_GEV_IP_ADDRESS, "IP",
             [](const InfoValue& v) { return FormatIp(v.Number()); }},
            {DEVICE_INFO_GEV_SUBNET_MASK, "subnet",
             [](const InfoValue& v) { return FormatIp(v.Number()); }},
            {DEVICE_INFO_GEV_DEFAULT_GATEWAY, "gateway",
             [](const InfoValue& v) { return FormatIp(v.Number()); }},
            {DEVICE_INFO_ACCESS_STATUS, "access",
             [](const InfoValue& v) { return FormatAccessStatus(v.Number()); }},
            {DEVICE_INFO_IS_CONNECTED, "connected", nullptr},
            {DEVICE_INFO_TIMESTAMP_FREQUENCY, "tick frequency", nullptr},
            {kDeviceInfoEndiannessMechanism, "endianness",
             [](const InfoValue& v) {
                 return std::string(v.Number() == 0   ? "legacy"
                                    : v.Number() == 1 ? "standard"
                                                      : "?");
             }},
        };
        int status = 0;
        for (const Fact& fact : facts) {
            InfoValue value;
            const GC_ERROR rc =
                AskInfo([&](INFO_DATATYPE* t, void* b,
                            size_t* s) { return m_p.DevGetInfo(m_device, fact.cmd, t, b, s); },
                        value);
            if (rc != GC_ERR_SUCCESS) {
                std::cout << fact.label << ": unavailable (" << rc << ")\n";
                m_s.Fail(std::string("DevGetInfo(") + fact.label + ")", rc);
                status = 1;
                continue;
            }
            std::cout << fact.label << ": " << (fact.show ? fact.show(value) : value.Text())
                      << "\n";
        }
        return PrintUrls() ? 1 : status;
    }

    /// The port's URL and its manifest entries, if the camera has some.
    GC_ERROR PrintUrls() {
        PORT_HANDLE port = nullptr;
        if (GC_ERROR rc = Port(port)) {
            return rc;
        }
        std::string url;
        if (GC_ERROR rc = Url(port, url)) {
            return rc;
        }
        std::cout << "XML URL: " << url << "\n";
        uint32_t count = 0;
        if (GC_ERROR rc = m_p.GCGetNumPortURLs(port, &count)) {
            m_s.Fail("GCGetNumPortURLs", rc);
            return rc;
        }
        for (uint32_t i = 0; i < count; ++i) {
            std::cout << "manifest " << i << ":";
            const std::pair<URL_INFO_CMD, const char*> fields[] = {
                {URL_INFO_URL, "url"},
                {URL_INFO_FILE_VER_MAJOR, "file"},
                {URL_INFO_FILE_VER_MINOR, "."},
                {URL_INFO_FILE_VER_SUBMINOR, "."},
                {URL_INFO_SCHEMA_VER_MAJOR, "schema"},
                {URL_INFO_SCHEMA_VER_MINOR, "."},
            };
            for (const auto& [cmd, label] : fields) {
                InfoValue value;
                const GC_ERROR rc =
                    AskInfo([&](INFO_DATATYPE* t, void* b,
                                size_t* s) { return m_p.GCGetPortURLInfo(port, i, cmd, t, b, s); },
                            value);
                if (rc != GC_ERR_SUCCESS) {
                    m_s.Fail("GCGetPortURLInfo", rc);
                    return rc;
                }
                std::cout << (label[0] == '.' ? "." : std::string(" ") + label + " ")
                          << value.Text();
            }
            std::cout << "\n";
        }
        return GC_ERR_SUCCESS;
    }

    GC_ERROR Url(PORT_HANDLE port, std::string& url) { return ReadPortUrl(m_p, port, url); }

    int ReadReg(const std::string& at) {
        std::uint64_t address = 0;
        PORT_HANDLE port = nullptr;
        if (!ParseAddress(at, address)) {
            return 2;
        }
        if (Port(port)) {
            return 1;
        }
        unsigned char bytes[4] = {};
        size_t size = sizeof bytes;
        if (GC_ERROR rc = m_p.GCReadPort(port, address, bytes, &size)) {
            return m_s.Fail("GCReadPort(" + Hex(address, 4) + ")", rc);
        }
        // Camera registers are big-endian.
        const std::uint32_t value = static_cast<std::uint32_t>(bytes[0]) << 24 |
                                    static_cast<std::uint32_t>(bytes[1]) << 16 |
                                    static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
        std::cout << Hex(address, 4) << " = " << Hex(value, 8) << " (" << value << ")\n";
        return 0;
    }

    int WriteReg(const std::string& at, const std::string& text) {
        std::uint64_t address = 0;
        std::uint64_t value = 0;
        PORT_HANDLE port = nullptr;
        if (!ParseAddress(at, address)) {
            return 2;
        }
        if (!ParseNumber(text, value) || value > 0xFFFFFFFFu) {
            std::cerr << "not a 32-bit value: " << text << "\n";
            return 2;
        }
        if (Port(port)) {
            return 1;
        }
        const unsigned char bytes[4] = {
            static_cast<unsigned char>(value >> 24), static_cast<unsigned char>(value >> 16),
            static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
        size_t size = sizeof bytes;
        if (GC_ERROR rc = m_p.GCWritePort(port, address, bytes, &size)) {
            return m_s.Fail("GCWritePort(" + Hex(address, 4) + ")", rc);
        }
        std::cout << Hex(address, 4) << " := " << Hex(value, 8) << "\n";
        return 0;
    }

    int ReadMem(const std::string& at, const std::string& count) {
        std::uint64_t address = 0;
        std::uint64_t length = 0;
        PORT_HANDLE port = nullptr;
        if (!ParseAddress(at, address)) {
            return 2;
        }
        if (!ParseNumber(count, length) || length == 0 || length > 16 * 1024 * 1024) {
            std::cerr << "read-mem takes a length of 1 byte to 16 MiB, not " << count << "\n";
            return 2;
        }
        if (Port(port)) {
            return 1;
        }
        std::vector<unsigned char> data(length);
        size_t size = data.size();
        if (GC_ERROR rc = m_p.GCReadPort(port, address, data.data(), &size)) {
            return m_s.Fail("GCReadPort(" + Hex(address, 8) + ", " + count + ")", rc);
        }
        HexDump(address, data);
        return 0;
    }

    int WriteMem(const std::string& at, const std::string& hex) {
        std::uint64_t address = 0;
        std::vector<unsigned char> data;
        PORT_HANDLE port = nullptr;
        if (!ParseAddress(at, address)) {
            return 2;
        }
        if (!ParseHexBytes(hex, data)) {
            std::cerr << "write-mem takes bytes in hexadecimal (e.g. 0a0b0c0d), not " << hex
                      << "\n";
            return 2;
        }
        if (Port(port)) {
            return 1;
        }
        size_t size = data.size();
        if (GC_ERROR rc = m_p.GCWritePort(port, address, data.data(), &size)) {
            return m_s.Fail("GCWritePort(" + Hex(address, 8) + ")", rc);
        }
        std::cout << "wrote " << data.size() << " bytes at " << Hex(address, 8) << "\n";
        return 0;
    }

    int SaveXml(std::string path) {
        PORT_HANDLE port = nullptr;
        CameraXml xml;
        if (Port(port) || !ReadCameraXml(m_p, port, xml)) {
            return 1;
        }
        if (path.empty()) {
            path = xml.file.name.substr(xml.file.name.rfind('/') + 1);
        }
        const bool zipped = xml.file.Zipped();
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(xml.data.data(), static_cast<std::streamsize>(xml.data.size()));
        out.close();
        if (!out) {
            std::cerr << "cannot write " << path << "\n";
            return 1;
        }
        std::cout << "XML URL: " << xml.url << "\nsaved " << xml.data.size() << " bytes"
                  << (zipped ? " (zip archive, as the camera keeps it)" : "") << " to " << path
                  << "\n";
        if (zipped && !LocalFile{path}.Zipped()) {
            std::cout << "note: " << path << " holds a zip archive; unzip it for the XML\n";
        }
        return 0;
    }

    int Wait(const std::string& text) {
        std::uint64_t ms = 0;
        if (!ParseNumber(text, ms)) {
            std::cerr << "wait takes milliseconds, not " << text << "\n";
            return 2;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
        return 0;
    }

    Session& m_s;
    Producer& m_p;
    DEV_HANDLE m_device;
    PORT_HANDLE m_port = nullptr;
};

} // namespace

int RunOpen(Producer& producer, const Arguments& arguments) {
    Options options;
    if (!options.Parse(arguments, {"--device", "--access", "--timeout"}, std::cerr)) {
        return 2;
    }
    DEVICE_ACCESS_FLAGS flags = DEVICE_ACCESS_CONTROL;
    if (!ParseAccess(options.Get("--access", "control"), flags, std::cerr)) {
        return 2;
    }
    std::vector<Action> actions;
    if (!ParseActions(options.Rest(), actions)) {
        return 2;
    }
    if (actions.empty()) {
        actions.push_back({"info", {}});
    }

    Session session(producer);
    if (session.Start()) {
        return 1;
    }
    session.Discover(options.Timeout());
    const Session::Camera* camera = session.Find(options.Get("--device"));
    if (camera == nullptr) {
        return 1;
    }
    DEV_HANDLE device = nullptr;
    if (session.OpenDevice(*camera, flags, &device)) {
        return 1;
    }
    std::cout << "opened " << camera->id << " on " << session.Interfaces()[camera->iface].id << " ("
              << options.Get("--access", "control") << ")\n";
    OpenCamera open(session, device);
    for (const Action& action : actions) {
        if (int status = open.Run(action)) {
            return status;
        }
    }
    if (session.CloseDevice()) {
        return 1;
    }
    std::cout << "closed " << camera->id << "\n";
    return 0;
}

} // namespace kesta::gentl
