// kesta-log-listen: prints the log records that the KestaLog stand-in sends
// to 127.0.0.1, one line each, until SIGINT or SIGTERM.
//
//   kesta-log-listen PORT...            listen on the given out-ports
//   kesta-log-listen --conf FILE        listen on "hal_out" and "gentl_out"
//                                       of a kesta_log.conf
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace {

volatile sig_atomic_t g_stop = 0;

void OnSignal(int) {
    g_stop = 1;
}

void Usage() {
    std::cerr << "usage: kesta-log-listen PORT...\n"
                 "       kesta-log-listen --conf kesta_log.conf\n";
}

bool ParsePort(const std::string& text, uint16_t& port) {
    char* end = nullptr;
    errno = 0;
    const unsigned long value = std::strtoul(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || value == 0 || value > 65535) {
        return false;
    }
    port = static_cast<uint16_t>(value);
    return true;
}

/// The out-ports of a kesta_log.conf (read as the library reads it: line
/// breaks dropped).
bool PortsFromConfig(const char* path, std::vector<uint16_t>& ports) {
    std::ifstream in(path);
    if (!in) {
        std::cerr << "kesta-log-listen: cannot read " << path << "\n";
        return false;
    }
    std::string text, line;
    while (std::getline(in, line)) {
        text += line;
    }
    try {
        const auto config = nlohmann::json::parse(text);
        for (const char* key : {"hal_out", "gentl_out"}) {
            const auto& p = config.at("ports");
            if (p.contains(key) && p[key].is_number_unsigned() && p[key].get<uint64_t>() > 0 &&
                p[key].get<uint64_t>() <= 65535) {
                ports.push_back(static_cast<uint16_t>(p[key].get<uint64_t>()));
            }
        }
    } catch (const std::exception& e) {
        std::cerr << "kesta-log-listen: " << path << ": " << e.what() << "\n";
        return false;
    }
    if (ports.empty()) {
        std::cerr << "kesta-log-listen: no out-port in " << path << "\n";
    }
    return !ports.empty();
}

const char* LevelName(long long level) {
    switch (level) {
    case 100:
        return "FATAL";
    case 200:
        return "ERROR";
    case 300:
        return "WARN";
    case 400:
        return "INFO";
    case 500:
        return "DEBUG";
    case 600:
        return "VERBOSE";
    default:
        return nullptr;
    }
}

/// "2026-01-31 12:00:00.123" in local time from milliseconds since the epoch.
std::string FormatTime(long long ms) {
    const std::time_t seconds = static_cast<std::time_t>(ms / 1000);
    std::tm tm{};
    localtime_r(&seconds, &tm);
    char text[32];
    std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &tm);
    char out[48];
    std::snprintf(out, sizeof(out), "%s.%03lld", text, ms % 1000);
    return out;
}

/// One line for a record; records that are no JSON object are shown as
/// they came.
std::string FormatRecord(const std::string& datagram) {
    nlohmann::json r = nlohmann::json::parse(datagram, nullptr, false);
    if (!r.is_object()) {
        return "? " + datagram;
    }
    auto text = [&r](const char* key) {
        const auto it = r.find(key);
        return it != r.end() && it->is_string() ? it->get<std::string>() : std::string();
    };
    std::string when = text("timestamp");
    if (!when.empty() && when.find_first_not_of("0123456789") == std::string::npos &&
        when.size() < 18) {
        when = FormatTime(std::stoll(when));
    }
    std::string level = "?";
    const auto lv = r.find("level");
    if (lv != r.end() && lv->is_number()) {
        const long long n = lv->is_number_float() ? 0 : lv->get<long long>();
        const char* name = LevelName(n);
        level = name != nullptr ? name : lv->dump();
    }
    char head[96];
    std::snprintf(head, sizeof(head), "%-23s %-7s %-5s ", when.c_str(), level.c_str(),
                  text("module").c_str());
    std::string line = head + text("message");
    const std::string user = text("userid");
    if (!user.empty()) {
        line += " [" + user + "]";
    }
    return line;
}

int OpenListener(uint16_t port) {
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof(a)) != 0) {
        const int err = errno;
        ::close(fd);
        errno = err;
        return -1;
    }
    return fd;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<uint16_t> ports;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        uint16_t port = 0;
        if (arg == "--conf" && i + 1 < argc) {
            if (!PortsFromConfig(argv[++i], ports)) {
                return 2;
            }
        } else if (ParsePort(arg, port)) {
            ports.push_back(port);
        } else {
            Usage();
            return 2;
        }
    }
    if (ports.empty()) {
        Usage();
        return 2;
    }

    std::vector<pollfd> fds;
    for (uint16_t port : ports) {
        const int fd = OpenListener(port);
        if (fd < 0) {
            std::cerr << "kesta-log-listen: cannot listen on 127.0.0.1:" << port << ": "
                      << std::strerror(errno) << "\n";
            return 1;
        }
        fds.push_back(pollfd{fd, POLLIN, 0});
    }

    struct sigaction sa {};
    sa.sa_handler = OnSignal; // no SA_RESTART: poll() returns on a signal
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);

    std::vector<char> buffer(65536);
    while (!g_stop) {
        if (::poll(fds.data(), fds.size(), -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            std::perror("kesta-log-listen: poll");
            return 1;
        }
        for (const pollfd& p : fds) {
            if ((p.revents & POLLIN) == 0) {
                continue;
            }
            const ssize_t n = ::recv(p.fd, buffer.data(), buffer.size(), 0);
            if (n > 0) {
                std::cout << FormatRecord(std::string(buffer.data(), static_cast<size_t>(n)))
                          << std::endl;
            }
        }
    }
    for (const pollfd& p : fds) {
        ::close(p.fd);
    }
    return 0;
}
