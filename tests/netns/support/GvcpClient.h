#pragma once
// A GVCP client of the tests' own, written apart from the library: another
// application that claims a camera (a rival on the second host), or the
// host's own look at a register beside the producer.
#include <poll.h>
#include <sys/socket.h>

#include <cstdint>
#include <initializer_list>
#include <string>

#include "NetnsSupport.h"

namespace kesta_netns {

class GvcpClient {
public:
    /// A socket bound to `bindIp` (host order), made inside the namespace
    /// `netns` when one is given.
    GvcpClient(std::uint32_t cameraIp, std::uint32_t bindIp, const std::string& netns = "")
        : m_cameraIp(cameraIp), m_socket(bindIp, netns) {}

    /// The status of the ack; 0xFFFF when none came.
    std::uint16_t ReadReg(std::uint32_t address, std::uint32_t& value) {
        Bytes data;
        const std::uint16_t status = Transact(0x0080, {address}, data);
        if (status == 0 && data.size() >= 4) {
            value = Be32(data.data());
        }
        return status;
    }
    std::uint16_t WriteReg(std::uint32_t address, std::uint32_t value) {
        Bytes data;
        return Transact(0x0082, {address, value}, data);
    }
    std::uint16_t Claim(std::uint32_t ccp = 2) { return WriteReg(0x0A00, ccp); }
    std::uint16_t Release() { return WriteReg(0x0A00, 0); }
    /// The register's value; 0xFFFFFFFF when it cannot be read.
    std::uint32_t Reg(std::uint32_t address) {
        std::uint32_t value = 0xFFFFFFFF;
        return ReadReg(address, value) == 0 ? value : 0xFFFFFFFF;
    }

private:
    /// One command of these words and its ack's status and data; 0xFFFF
    /// when no ack came.
    std::uint16_t Transact(std::uint16_t command, std::initializer_list<std::uint32_t> words,
                           Bytes& data) {
        m_id = static_cast<std::uint16_t>(m_id == 0xFFFF ? 1 : m_id + 1);
        Bytes datagram(8 + 4 * words.size());
        PutBe32(datagram, 0, 0x42010000u | command);
        PutBe32(datagram, 4, static_cast<std::uint32_t>(4 * words.size()) << 16 | m_id);
        std::size_t at = 8;
        for (const std::uint32_t word : words) {
            PutBe32(datagram, at, word);
            at += 4;
        }
        m_socket.Send(m_cameraIp, 3956, datagram);
        std::uint8_t ack[1500];
        for (;;) {
            pollfd wait{m_socket.Fd(), POLLIN, 0};
            if (::poll(&wait, 1, 500) <= 0) {
                return 0xFFFF;
            }
            const ssize_t n = ::recv(m_socket.Fd(), ack, sizeof ack, 0);
            if (n >= 8 && Be16(ack + 6) == m_id) { // else a late ack of an earlier command
                data.assign(ack + 8, ack + n);
                return Be16(ack);
            }
        }
    }

    std::uint32_t m_cameraIp;
    UdpSocket m_socket;
    std::uint16_t m_id = 0;
};

} // namespace kesta_netns
