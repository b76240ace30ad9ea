#include "GvcpClient.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "NetnsSupport.h"

namespace kesta_netns {

namespace {

void Put32(std::vector<std::uint8_t>& bytes, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

} // namespace

GvcpClient::GvcpClient(std::uint32_t cameraIp, std::uint32_t bindIp, const std::string& netns)
    : m_cameraIp(cameraIp) {
    auto make = [&] {
        const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(bindIp);
        if (fd >= 0 && ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            ::close(fd);
            return -1;
        }
        return fd;
    };
    m_fd = netns.empty() ? make() : SocketIn(netns, make);
}

GvcpClient::~GvcpClient() {
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

bool GvcpClient::Transact(std::uint16_t command, const std::vector<std::uint8_t>& payload,
                          std::uint16_t& status, std::vector<std::uint8_t>& data) {
    m_id = static_cast<std::uint16_t>(m_id == 0xFFFF ? 1 : m_id + 1);
    std::vector<std::uint8_t> datagram = {0x42,
                                          0x01,
                                          static_cast<std::uint8_t>(command >> 8),
                                          static_cast<std::uint8_t>(command),
                                          static_cast<std::uint8_t>(payload.size() >> 8),
                                          static_cast<std::uint8_t>(payload.size()),
                                          static_cast<std::uint8_t>(m_id >> 8),
                                          static_cast<std::uint8_t>(m_id)};
    datagram.insert(datagram.end(), payload.begin(), payload.end());
    sockaddr_in camera{};
    camera.sin_family = AF_INET;
    camera.sin_addr.s_addr = htonl(m_cameraIp);
    camera.sin_port = htons(3956);
    ::sendto(m_fd, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&camera),
             sizeof camera);
    std::uint8_t ack[1500];
    for (;;) {
        pollfd wait{m_fd, POLLIN, 0};
        if (::poll(&wait, 1, 500) <= 0) {
            return false;
        }
        const ssize_t n = ::recv(m_fd, ack, sizeof ack, 0);
        if (n < 8 || Be16(ack + 6) != m_id) {
            continue; // a late ack of an earlier command
        }
        status = Be16(ack);
        data.assign(ack + 8, ack + n);
        return true;
    }
}

std::uint16_t GvcpClient::ReadReg(std::uint32_t address, std::uint32_t& value) {
    std::vector<std::uint8_t> payload;
    Put32(payload, address);
    std::uint16_t status = 0;
    std::vector<std::uint8_t> data;
    if (!Transact(0x0080, payload, status, data)) {
        return 0xFFFF;
    }
    if (status == 0 && data.size() >= 4) {
        value = Be32(data.data());
    }
    return status;
}

std::uint16_t GvcpClient::WriteReg(std::uint32_t address, std::uint32_t value) {
    std::vector<std::uint8_t> payload;
    Put32(payload, address);
    Put32(payload, value);
    std::uint16_t status = 0;
    std::vector<std::uint8_t> data;
    return Transact(0x0082, payload, status, data) ? status : 0xFFFF;
}

} // namespace kesta_netns
