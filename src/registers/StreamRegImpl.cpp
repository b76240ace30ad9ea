#include "registers/StreamRegImpl.h"

#include <cstdint>
#include <cstring>
#include <limits>

#include "api/Error.h"
#include "api/GLogger.h"
#include "registers/ModuleXml.h"
#include "stream/DataStream.h"

namespace GenTL {

namespace {

/// Accumulation time presets with a meaning of their own.
constexpr unsigned int kPresetAuto = 0;
constexpr unsigned int kPresetCustom = 100000000;

/// The inter-packet expiry's info command; the stream serves none.
constexpr int kInterPacketExpiryCmd = 1009;

const char* const kModeRefusal = "StreamRegImpl::SetStreamBufferHandlingMode_Reg failed, unable to "
                                 "set buffer handling mode while streaming";
const char* const kResendRefusal = "StreamRegImpl::SetStreamPacketResendEnable_Reg failed, unable "
                                   "to modify packet resend while streaming";
const char* const kAutoSizeRefusal =
    "StreamRegImpl::SetStreamAutoNegotiatePacketSize_Reg failed, unable to modify automatic packet "
    "size negotiation while streaming";
const char* const kMaxResendRefusal =
    "StreamRegImpl::SetStreamMaxNumResendRequestsPerImage_Reg failed, unable to modify maximum "
    "number of resend requests while streaming";
const char* const kOutputFormatRefusal = "StreamRegImpl::SetStreamEvsOutputFormat_Reg failed, "
                                         "unable to modify output format while streaming";
const char* const kAccumTimeRefusal =
    "StreamRegImpl::SetStreamFrameGeneratorAccumTime_Reg failed, unable to modify CD Frame "
    "accumulation time while streaming";
const char* const kFpsRefusal = "StreamRegImpl::SetStreamFrameGeneratorFPS_Reg failed, unable to "
                                "modify CD Frame frame rate while streaming";
const char* const kPoolSizeRefusal = "StreamRegImpl::SetStreamEvsEventBufferPoolSize_Reg failed, "
                                     "unable to modify event buffer pool size while streaming";
const char* const kBitDepthRefusal = "StreamRegImpl::SetStreamEvsBitDepth_Reg failed, unable to "
                                     "modify bit depth while streaming";
const char* const kColorThemeRefusal = "StreamRegImpl::SetStreamEvsColorTheme_Reg failed, unable "
                                       "to modify color theme while streaming";
const char* const kPresetRefusal =
    "StreamRegImpl::SetStreamFrameGeneratorAccumTimePreset_Reg failed, unable to modify "
    "accumulation time while streaming";
const char* const kExpiryRefusal = "StreamRegImpl::SetStreamInterPacketExpiry_Reg failed, unable "
                                   "to modify inter-packet expiry time while streaming";

/// 1000000 / rate as the 32-bit time that follows a rate, saturated the way
/// the target's conversion does: a rate of 0 gives the largest time.
unsigned int MicrosecondsPerFrame(double rate) {
    if (rate == 0.0) {
        return std::numeric_limits<std::uint32_t>::max();
    }
    const double time = 1000000.0 / rate;
    if (!(time > 0.0)) {
        return 0;
    }
    if (time >= 4294967296.0) {
        return std::numeric_limits<std::uint32_t>::max();
    }
    return static_cast<unsigned int>(time);
}

int Failed(const char* text, int rc) {
    GLogger::Error(text, rc);
    return ChainError(rc);
}

} // namespace

StreamRegImpl::StreamRegImpl(DataStream* stream) : m_stream(stream) {}

// --- helpers -----------------------------------------------------------------

int StreamRegImpl::Info(int cmd, void* buffer, unsigned long* size) {
    int type = INFO_DATATYPE_UNKNOWN;
    const int rc = m_stream->GetInfo(cmd, &type, buffer, size);
    return rc == GC_ERR_SUCCESS ? rc : ChainError(rc);
}

int StreamRegImpl::Zero(void* buffer, unsigned long* size) {
    int type = INFO_DATATYPE_UNKNOWN;
    return m_infoUtility.SetInfo(0L, &type, buffer, size, false);
}

template <typename T> int StreamRegImpl::Read(int cmd, T& value) {
    int type = INFO_DATATYPE_UNKNOWN;
    unsigned long size = sizeof value;
    return m_stream->GetInfo(cmd, &type, &value, &size);
}

int StreamRegImpl::RefuseWhileGrabbing(const char* refusal) {
    unsigned char grabbing = 0;
    unsigned long size = sizeof grabbing;
    if (int rc = GetStreamIsGrabbing_Reg(&grabbing, &size)) {
        return ChainError(rc);
    }
    if (grabbing != 0) {
        GLogger::Error(refusal, GC_ERR_RESOURCE_IN_USE);
        return ReportError(GC_ERR_RESOURCE_IN_USE, refusal);
    }
    return GC_ERR_SUCCESS;
}

int StreamRegImpl::Set(const char* refusal, int cmd, int type, const void* buffer,
                       const unsigned long* size) {
    if (refusal != nullptr) {
        if (int rc = RefuseWhileGrabbing(refusal)) {
            return rc;
        }
    }
    const int rc = m_stream->SetInfo(cmd, type, buffer, *size);
    return rc == GC_ERR_SUCCESS ? rc : ChainError(rc);
}

int StreamRegImpl::SetU32(int cmd, unsigned int value) {
    return m_stream->SetInfo(cmd, INFO_DATATYPE_UINT32, &value, sizeof value);
}

// --- information -------------------------------------------------------------

int StreamRegImpl::GetStreamID(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_ID, buffer, size);
}

int StreamRegImpl::GetStreamType_Reg(void* buffer, unsigned long* size) {
    return Zero(buffer, size);
}

int StreamRegImpl::GetStreamAnnouncedBufferCount_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_NUM_ANNOUNCED, buffer, size);
}

int StreamRegImpl::GetStreamBufferHandlingMode_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_BUFFER_HANDLING_MODE, buffer, size);
}

int StreamRegImpl::SetStreamBufferHandlingMode_Reg(const void* buffer, unsigned long* size) {
    return Set(kModeRefusal, STREAM_INFO_BUFFER_HANDLING_MODE, INFO_DATATYPE_INT64, buffer, size);
}

int StreamRegImpl::GetStreamAnnounceBufferMinimum_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_BUF_ANNOUNCE_MIN, buffer, size);
}

int StreamRegImpl::GetStreamDeliveredFrameCount_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_NUM_DELIVERED, buffer, size);
}

int StreamRegImpl::GetStreamLostFrameCount_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_NUM_UNDERRUN, buffer, size);
}

int StreamRegImpl::GetStreamInputBufferCount_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_NUM_QUEUED, buffer, size);
}

int StreamRegImpl::GetStreamOutputBufferCount_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_NUM_AWAIT_DELIVERY, buffer, size);
}

int StreamRegImpl::GetStreamStartedFrameCount_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_NUM_ANNOUNCED, buffer, size);
}

int StreamRegImpl::GetPayloadSize_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_PAYLOAD_SIZE, buffer, size);
}

int StreamRegImpl::GetStreamIsGrabbing_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_IS_GRABBING, buffer, size);
}

int StreamRegImpl::GetStreamChunkCountMaximum_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_NUM_CHUNKS_MAX, buffer, size);
}

int StreamRegImpl::GetStreamBufferAlignment_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_BUF_ALIGNMENT, buffer, size);
}

int StreamRegImpl::GetStreamMissedImageCount_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_MISSED_IMAGE_COUNT, buffer, size);
}

int StreamRegImpl::GetStreamMissedPacketCount_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_MISSED_PACKET_COUNT, buffer, size);
}

int StreamRegImpl::GetStreamCumulativeMissedImageCount_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_TOTAL_MISSED_IMAGE_COUNT, buffer, size);
}

int StreamRegImpl::GetStreamCumulativeIncompleteImageCount_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_TOTAL_INCOMPLETE_IMAGE_COUNT, buffer, size);
}

// --- buffer handling control -------------------------------------------------

int StreamRegImpl::GetStreamPacketResendEnable_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_PACKET_RESEND_ENABLE, buffer, size);
}

int StreamRegImpl::SetStreamPacketResendEnable_Reg(const void* buffer, unsigned long* size) {
    return Set(kResendRefusal, STREAM_INFO_PACKET_RESEND_ENABLE, INFO_DATATYPE_BOOL8, buffer, size);
}

int StreamRegImpl::GetStreamAutoNegotiatePacketSize_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_AUTO_PACKET_SIZE_ENABLE, buffer, size);
}

int StreamRegImpl::SetStreamAutoNegotiatePacketSize_Reg(const void* buffer, unsigned long* size) {
    return Set(kAutoSizeRefusal, STREAM_INFO_AUTO_PACKET_SIZE_ENABLE, INFO_DATATYPE_BOOL8, buffer,
               size);
}

int StreamRegImpl::GetStreamMaxNumResendRequestsPerImage_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_MAX_RESEND_REQUESTS, buffer, size);
}

int StreamRegImpl::SetStreamMaxNumResendRequestsPerImage_Reg(const void* buffer,
                                                             unsigned long* size) {
    return Set(kMaxResendRefusal, STREAM_INFO_MAX_RESEND_REQUESTS, INFO_DATATYPE_UINT32, buffer,
               size);
}

int StreamRegImpl::GetStreamMulticastEnable_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_MULTICAST_ENABLE, buffer, size);
}

int StreamRegImpl::SetStreamMulticastEnable_Reg(const void* buffer, unsigned long* size) {
    return Set(nullptr, STREAM_INFO_MULTICAST_ENABLE, INFO_DATATYPE_BOOL8, buffer, size);
}

// --- EVS features ------------------------------------------------------------

int StreamRegImpl::GetEvsFeatures_Implemented_Reg(void* buffer, unsigned long* size) {
    return Zero(buffer, size);
}

int StreamRegImpl::GetStreamEvsOutputFormat_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_EVS_OUTPUT_FORMAT, buffer, size);
}

int StreamRegImpl::SetStreamEvsOutputFormat_Reg(const void* buffer, unsigned long* size) {
    return Set(kOutputFormatRefusal, STREAM_INFO_EVS_OUTPUT_FORMAT, INFO_DATATYPE_INT64, buffer,
               size);
}

int StreamRegImpl::GetStreamFrameGeneratorAccumTime_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME, buffer, size);
}

int StreamRegImpl::SetStreamFrameGeneratorAccumTime_Reg(const void* buffer, unsigned long* size) {
    if (int rc = RefuseWhileGrabbing(kAccumTimeRefusal)) {
        return rc;
    }
    unsigned int custom = kPresetCustom;
    unsigned long customSize = sizeof custom;
    if (int rc = SetStreamFrameGeneratorAccumTimePreset_Reg(&custom, &customSize)) {
        return Failed("StreamRegImpl::SetStreamFrameGeneratorAccumTime_Reg failed to set preset "
                      "value to custom",
                      rc);
    }
    return Set(nullptr, STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME, INFO_DATATYPE_UINT32, buffer, size);
}

int StreamRegImpl::GetStreamFrameGeneratorFPS_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_FRAME_GENERATOR_FPS, buffer, size);
}

int StreamRegImpl::SetStreamFrameGeneratorFPS_Reg(const void* buffer, unsigned long* size) {
    if (int rc = RefuseWhileGrabbing(kFpsRefusal)) {
        return rc;
    }
    unsigned int preset = 0;
    if (int rc = Read(STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME_PRESET, preset)) {
        return Failed("StreamRegImpl::SetStreamFrameGeneratorFPS_Reg failed to get preset value",
                      rc);
    }
    // A value too short for a rate is left to the stream to refuse below.
    if (preset == kPresetAuto && *size >= sizeof(double)) {
        double rate = 0.0;
        std::memcpy(&rate, buffer, sizeof rate);
        if (int rc = SetU32(STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME, MicrosecondsPerFrame(rate))) {
            return Failed("StreamRegImpl::SetStreamFrameGeneratorAccumTime_Reg failed to set "
                          "custom field",
                          rc);
        }
    }
    return Set(nullptr, STREAM_INFO_FRAME_GENERATOR_FPS, INFO_DATATYPE_FLOAT64, buffer, size);
}

int StreamRegImpl::GetStreamEvsEventBufferPoolSize_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_EVS_EVENT_BUFFER_POOL_SIZE, buffer, size);
}

int StreamRegImpl::SetStreamEvsEventBufferPoolSize_Reg(const void* buffer, unsigned long* size) {
    return Set(kPoolSizeRefusal, STREAM_INFO_EVS_EVENT_BUFFER_POOL_SIZE, INFO_DATATYPE_UINT64,
               buffer, size);
}

int StreamRegImpl::GetStreamEvsBitDepth_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_EVS_BIT_DEPTH, buffer, size);
}

int StreamRegImpl::SetStreamEvsBitDepth_Reg(const void* buffer, unsigned long* size) {
    return Set(kBitDepthRefusal, STREAM_INFO_EVS_BIT_DEPTH, INFO_DATATYPE_INT64, buffer, size);
}

int StreamRegImpl::GetStreamEvsColorTheme_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_EVS_COLOR_THEME, buffer, size);
}

int StreamRegImpl::SetStreamEvsColorTheme_Reg(const void* buffer, unsigned long* size) {
    return Set(kColorThemeRefusal, STREAM_INFO_EVS_COLOR_THEME, INFO_DATATYPE_INT64, buffer, size);
}

int StreamRegImpl::GetStreamEvsEventRate_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_EVS_EVENT_RATE, buffer, size);
}

int StreamRegImpl::GetStreamEvsGvspFrameRate_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_EVS_GVSP_FRAME_RATE, buffer, size);
}

int StreamRegImpl::GetStreamEvsLinkThroughput_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_EVS_LINK_THROUGHPUT, buffer, size);
}

int StreamRegImpl::GetStreamFrameGeneratorAccumTimePreset_Reg(void* buffer, unsigned long* size) {
    return Info(STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME_PRESET, buffer, size);
}

int StreamRegImpl::SetStreamFrameGeneratorAccumTimePreset_Reg(const void* buffer,
                                                              unsigned long* size) {
    if (int rc = RefuseWhileGrabbing(kPresetRefusal)) {
        return rc;
    }
    if (*size < sizeof(unsigned int)) {
        // Too short for a preset: the stream refuses it as it refuses any short value.
        return Set(nullptr, STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME_PRESET, INFO_DATATYPE_UINT32,
                   buffer, size);
    }
    unsigned int preset = 0;
    std::memcpy(&preset, buffer, sizeof preset);

    if (preset != kPresetAuto && preset != kPresetCustom) {
        // The preset is a time in itself.
        if (int rc = SetU32(STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME, preset)) {
            return Failed("StreamRegImpl::SetStreamFrameGeneratorAccumTimePreset_Reg failed to "
                          "set custom field value",
                          rc);
        }
        const int rc = SetU32(STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME_PRESET, preset);
        return rc == GC_ERR_SUCCESS ? rc : ChainError(rc);
    }

    if (preset == kPresetCustom) {
        // Custom starts from the time that the old preset stood for.
        unsigned int previous = 0;
        if (int rc = Read(STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME_PRESET, previous)) {
            return Failed("StreamRegImpl::SetStreamFrameGeneratorAccumTimePreset_Reg failed to "
                          "get current preset value",
                          rc);
        }
        if (int rc = SetU32(STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME_PRESET, preset)) {
            return Failed("StreamRegImpl::SetStreamFrameGeneratorAccumTimePreset_Reg failed to "
                          "set preset value to custom",
                          rc);
        }
        const int rc = SetU32(STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME, previous);
        return rc == GC_ERR_SUCCESS ? rc : ChainError(rc);
    }

    // Auto: the time follows the rate.
    double rate = 0.0;
    if (int rc = Read(STREAM_INFO_FRAME_GENERATOR_FPS, rate)) {
        return Failed("StreamRegImpl::SetStreamFrameGeneratorAccumTimePreset_Reg failed to get "
                      "generator FPS",
                      rc);
    }
    const unsigned int time = MicrosecondsPerFrame(rate);
    if (int rc = SetU32(STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME_PRESET, preset)) {
        return Failed("StreamRegImpl::SetStreamFrameGeneratorAccumTimePreset_Reg failed to custom "
                      "field",
                      rc);
    }
    static_cast<void>(SetU32(STREAM_INFO_FRAME_GENERATOR_ACCUM_TIME, time));
    return GC_ERR_SUCCESS;
}

// --- the description and the unreachable pair --------------------------------

int StreamRegImpl::GetLocalTLXML_Reg(void* buffer, unsigned long* size) {
    return g_streamXml.CopyTo(buffer, size);
}

int StreamRegImpl::GetStreamInterPacketExpiry_Reg(void* buffer, unsigned long* size) {
    return Info(kInterPacketExpiryCmd, buffer, size);
}

int StreamRegImpl::SetStreamInterPacketExpiry_Reg(const void* buffer, unsigned long* size) {
    return Set(kExpiryRefusal, kInterPacketExpiryCmd, INFO_DATATYPE_UINT32, buffer, size);
}

} // namespace GenTL
