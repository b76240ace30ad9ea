#pragma once
/**
 * StreamInfo: what the parsers and grab loops of one GigE Vision stream
 * share: counters, tuning values and the parse context. The data stream
 * holds it by value; the grab thread and the timer threads write the
 * counters without a lock, the consumer's thread writes the settings while
 * the stream is idle.
 */
#include <cstdint>

#include <boost/thread/thread.hpp>

namespace GenTL {

class StreamInfo {
public:
    StreamInfo() = default;
    virtual ~StreamInfo();

    StreamInfo(const StreamInfo&) = delete;
    StreamInfo& operator=(const StreamInfo&) = delete;

    /// Payload bytes that one data packet carries: packetSize less the IP
    /// and UDP headers (28 bytes) and the GVSP header (8, or 20 with
    /// extended ids); 0 when packetSize is smaller than that.
    std::uint32_t PayloadBytesPerPacket() const;

    std::uint16_t payloadType = 0;               ///< GVSP payload type of the last leader
    std::uint32_t packetSize = 0;                ///< negotiated packet size, headers included
    std::uint64_t nextBlockId = 0;               ///< block id the grab loop expects next
    std::uint64_t missedImageCount = 0;          ///< STREAM_INFO_MISSED_IMAGE_COUNT
    std::uint64_t missedPacketCount = 0;         ///< STREAM_INFO_MISSED_PACKET_COUNT
    std::uint64_t totalMissedImageCount = 0;     ///< survives a restart
    std::uint64_t totalIncompleteImageCount = 0; ///< survives a restart
    bool extendedId = false;                     ///< 64-bit block ids
    boost::thread m_interPacketTimerThread;      ///< runs the block timers' service
    boost::thread m_resendRequestTimerThread;    ///< runs the resend timers' service
    bool packetResendEnable = false;             ///< STREAM_INFO_PACKET_RESEND_ENABLE
    std::uint32_t interPacketExpiry = 40;        ///< milliseconds
    std::uint32_t maxResendRequestsPerImage = 5; ///< STREAM_INFO_MAX_RESEND_REQUESTS
    std::uint32_t resendRetries = 0;             ///< repeats of one request
    std::uint32_t bufferExpiry = 0;              ///< milliseconds a block may live
    bool autoNegotiatePacketSize = false;        ///< STREAM_INFO_AUTO_PACKET_SIZE_ENABLE
    std::uint32_t packetsPerBlock = 0;           ///< data packets of a block plus 2
    std::uint64_t lastBlockId = 0;               ///< block id of the block last finished
    bool multicastEnable = false;                ///< STREAM_INFO_MULTICAST_ENABLE
    std::uint32_t resendRequestTimeout = 25;     ///< milliseconds between repeats

    // Event-based (EVS) output settings and statistics, STREAM_INFO_* 1014
    // to 1024. Stored and returned only.
    std::int64_t evsOutputFormat = 0;
    std::int64_t evsBitDepth = 0;
    std::uint32_t frameGeneratorAccumTime = 20000;
    double frameGeneratorFps = 30.0;
    std::int64_t evsColorTheme = 0;
    double evsEventRate = 0.0;
    double evsGvspFrameRate = 0.0;
    double evsLinkThroughput = 0.0;
    std::uint64_t evsEventBufferPoolSize = 500;
    std::uint32_t frameGeneratorAccumTimePreset = 20000;
    std::uint32_t evsSetting1024 = 1; ///< command 1024; no feature reads it
};

} // namespace GenTL
