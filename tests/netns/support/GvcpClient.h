#pragma once
// A GVCP client of the tests' own, written apart from the library: another
// application that claims a camera (a rival on the second host), or the
// host's own look at a register beside the producer.
#include <cstdint>
#include <string>
#include <vector>

namespace kesta_netns {

class GvcpClient {
public:
    /// A socket bound to `bindIp` (host order), made inside the namespace
    /// `netns` when one is given.
    GvcpClient(std::uint32_t cameraIp, std::uint32_t bindIp, const std::string& netns = "");
    ~GvcpClient();
    GvcpClient(const GvcpClient&) = delete;
    GvcpClient& operator=(const GvcpClient&) = delete;

    /// The status of the ack; 0xFFFF when none came.
    std::uint16_t ReadReg(std::uint32_t address, std::uint32_t& value);
    std::uint16_t WriteReg(std::uint32_t address, std::uint32_t value);
    std::uint16_t Claim(std::uint32_t ccp = 2) { return WriteReg(0x0A00, ccp); }
    std::uint16_t Release() { return WriteReg(0x0A00, 0); }

private:
    /// One command and its ack; false when none came.
    bool Transact(std::uint16_t command, const std::vector<std::uint8_t>& payload,
                  std::uint16_t& status, std::vector<std::uint8_t>& data);

    std::uint32_t m_cameraIp;
    int m_fd = -1;
    std::uint16_t m_id = 0;
};

} // namespace kesta_netns
