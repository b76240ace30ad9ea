#pragma once
/**
 * PacketResendRequest: one open request to the camera for a range of
 * packets of one block. The grab loop creates it, lists it in the buffer's
 * m_resendRequests and in the stream's pending list, and deletes it when
 * the range has come in or the block ends. It owns its repeat timer: the
 * destructor deletes it.
 */
#include <cstdint>

#include <boost/asio/deadline_timer.hpp>
#include <boost/thread/mutex.hpp>

namespace GenTL {

class Buffer;

class PacketResendRequest {
public:
    PacketResendRequest(Buffer* buffer, std::uint64_t blockId, std::uint32_t firstPacket,
                        std::uint32_t lastPacket, bool extendedId, std::uint32_t remaining,
                        std::uint32_t retriesLeft);
    ~PacketResendRequest();

    PacketResendRequest(const PacketResendRequest&) = delete;
    PacketResendRequest& operator=(const PacketResendRequest&) = delete;

    /// Whether packetId lies within firstPacket to lastPacket.
    bool Covers(std::uint32_t packetId) const;

    Buffer* buffer;                               ///< the block's buffer
    std::uint64_t blockId;                        ///< block id named on the wire
    std::uint32_t firstPacket;                    ///< first packet id asked for
    std::uint32_t lastPacket;                     ///< last packet id asked for
    bool extendedId;                              ///< wire format of the request
    std::uint32_t remaining;                      ///< packets of the range still awaited
    std::uint32_t retriesLeft;                    ///< repeats still allowed
    boost::asio::deadline_timer* timer = nullptr; ///< the repeat timer; owned
    boost::mutex m_mutex;                         ///< guards remaining and retriesLeft
};

} // namespace GenTL
