#include "KestaLog.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

class UdpKestaLog final : public IKestaLog {
public:
    UdpKestaLog() : m_fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
    ~UdpKestaLog() {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }
    UdpKestaLog(const UdpKestaLog&) = delete;
    UdpKestaLog& operator=(const UdpKestaLog&) = delete;

    void SetOutPort(uint16_t port) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_outPort = port;
    }

    void RemoveOutPort(uint16_t port) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_outPort == port) {
            m_outPort = 0;
        }
    }

    void AddInPort(uint16_t port) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (std::find(m_inPorts.begin(), m_inPorts.end(), port) == m_inPorts.end()) {
            m_inPorts.push_back(port);
        }
    }

    void SendMessage(const char* json) override {
        if (json == nullptr) {
            return;
        }
        IFilterOutFn* filter;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            filter = m_filter;
        }
        // The filter runs without the lock: it may be slow or log itself.
        if (filter != nullptr && !filter->OnFilterOut(json)) {
            return;
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_outPort == 0 || m_fd < 0) {
            return;
        }
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(m_outPort);
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        // Logging must never fail its caller: a lost datagram is only lost.
        (void)::sendto(m_fd, json, std::strlen(json), MSG_NOSIGNAL,
                       reinterpret_cast<const sockaddr*>(&to), sizeof(to));
    }

    void SetFilter(IFilterOutFn* filter) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_filter = filter;
    }

private:
    std::mutex m_mutex;
    int m_fd;
    uint16_t m_outPort = 0;
    std::vector<uint16_t> m_inPorts;
    IFilterOutFn* m_filter = nullptr;
};

} // namespace

namespace KestaLog {

IKestaLog* Init() {
    return new UdpKestaLog();
}

void Deinit(IKestaLog* log) {
    delete static_cast<UdpKestaLog*>(log);
}

} // namespace KestaLog
