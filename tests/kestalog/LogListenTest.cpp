// kesta-log-listen shows what the stand-in sends, and stops on SIGTERM.
#include "KestaLog.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

namespace {

#ifdef KESTA_LOG_LISTEN_PATH

/// A port that was free a moment ago on 127.0.0.1.
uint16_t FreePort() {
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof(a));
    socklen_t len = sizeof(a);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
    ::close(fd);
    return ntohs(a.sin_port);
}

TEST(LogListen, PrintsOneReadableLinePerRecordUntilSigterm) {
    const uint16_t port = FreePort();
    int out[2];
    ASSERT_EQ(0, ::pipe(out));
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        ::dup2(out[1], STDOUT_FILENO);
        ::close(out[0]);
        const std::string arg = std::to_string(port);
#ifdef KESTA_LOG_LISTEN_EMULATOR
        ::execl(KESTA_LOG_LISTEN_EMULATOR, "kesta-log-listen", KESTA_LOG_LISTEN_PATH, arg.c_str(),
                nullptr);
#else
        ::execl(KESTA_LOG_LISTEN_PATH, "kesta-log-listen", arg.c_str(), nullptr);
#endif
        ::_exit(127);
    }
    ::close(out[1]);

    IKestaLog* log = KestaLog::Init();
    log->SetOutPort(port);
    const char* record = R"({"level":300,"message":"link down","module":"HAL",)"
                         R"("timestamp":"1700000000123","userid":"cam7"})";
    // The listener may not be bound yet: repeat until a line comes.
    std::string got;
    for (int tries = 0; tries < 50 && got.find('\n') == std::string::npos; ++tries) {
        log->SendMessage(record);
        pollfd p{out[0], POLLIN, 0};
        if (::poll(&p, 1, 100) == 1) {
            char buf[512];
            const ssize_t n = ::read(out[0], buf, sizeof(buf));
            if (n > 0) {
                got.append(buf, static_cast<size_t>(n));
            }
        }
    }
    KestaLog::Deinit(log);
    const std::string line = got.substr(0, got.find('\n'));
    EXPECT_NE(std::string::npos, line.find(".123 WARN    HAL   link down [cam7]")) << line;

    ASSERT_EQ(0, ::kill(pid, SIGTERM));
    int status = 0;
    ASSERT_EQ(pid, ::waitpid(pid, &status, 0));
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
    ::close(out[0]);
}

#endif

} // namespace
