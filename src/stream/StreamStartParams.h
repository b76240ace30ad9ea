#pragma once
/**
 * StreamStartParams: what a data stream hands its GVSP layer at the start of
 * an acquisition (in), and what the layer hands back (out).
 *
 * The members keep their natural alignment: Start and TestPacketSize take
 * references to them, and the strings must not sit at unaligned places.
 */
#include <cstdint>
#include <string>

namespace GenTL {

struct StreamStartParams {
    /// Out: overwritten from SCPS; after a successful start the packet size
    /// in force.
    std::uint32_t packetSize = 0;
    /// In: search the largest working packet size instead of testing the
    /// camera's present one.
    bool autoNegotiatePacketSize = false;
    /// In: result of ConfigureExtendedId, for the data stream; Start ignores it.
    bool extendedId = false;
    /// In: size of the first announced buffer.
    std::uint64_t bufferSize = 0;
    /// In: for the data stream; Start ignores it.
    bool packetResendEnable = false;
    /// Out, ms: period of the next-packet timer; recomputed by every start.
    std::uint32_t interPacketExpiry = 0;
    /// Out, ms: life of a block from its first packet.
    std::uint32_t bufferExpiry = 0;
    /// In: for the data stream; Start ignores it.
    std::uint32_t maxResendRequestsPerImage = 0;
    /// Out: repeats of one resend request; bufferExpiry / interPacketExpiry,
    /// at least 1.
    std::uint32_t resendRetries = 0;
    /// In: stream to the multicast group instead of this host.
    bool multicastEnable = false;
    /// In: the device's access mode; 3 (control) and 4 (exclusive) may write
    /// the stream registers, any other is a viewer.
    std::int32_t accessMode = 0;
    /// In: frames of the resend retry window; 0 when not set.
    std::uint64_t retryWindowFrames = 0;
    /// In: frames per second of the resend retry window; 0.0 when not set.
    double frameRate = 0.0;
    /// In: the two texts of the resend retry window, carried for the data
    /// stream; Start ignores them.
    std::string first;
    std::string second;
};

} // namespace GenTL
