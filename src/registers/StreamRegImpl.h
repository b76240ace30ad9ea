#pragma once
/**
 * StreamRegImpl: the stream's registers answered by a DataStream.
 *
 * Most registers are a view on the stream's GetInfo and SetInfo: a read
 * passes the caller's buffer and size to GetInfo, so the info rules hold
 * (a too small buffer is GC_ERR_BUFFER_TOO_SMALL, *size becomes the bytes
 * written: 1 for the flags, 4 for the 32-bit values). A write hands the
 * caller's bytes to SetInfo with the register's type (bool, int64, uint32,
 * uint64 or double; the value is read from the front of the little-endian
 * 8 bytes).
 *
 * Every setter but StreamMulticastEnable refuses while the stream grabs
 * (GC_ERR_RESOURCE_IN_USE, logged): the GVSP channel takes its settings at
 * the start. Multicast is taken at any time and acts at the next start.
 *
 * The frame generator ties three values together: the accumulation time
 * (us), the rate (fps) and the preset. Preset 0 (Accum_Auto) makes the time
 * follow the rate, 1000000 / rate; preset 100000000 (Accum_Custom) leaves
 * the time to the consumer; any other preset is a time in itself.
 *   - writing a preset p: other than auto or custom, the time becomes p;
 *     custom keeps the old preset's value as the time; auto computes the
 *     time from the rate;
 *   - writing a time switches the preset to custom;
 *   - writing a rate recomputes the time under auto only.
 * Times are truncated to 32 bits, and a rate of 0 gives the largest time.
 *
 * Built on the stack for each port access; holds nothing between calls.
 */
#include "api/InfoUtility.h"
#include "registers/StreamReg.h"

namespace GenTL {

class DataStream;

class StreamRegImpl : public StreamReg {
public:
    /// stream answers; not owned.
    explicit StreamRegImpl(DataStream* stream);

    int GetStreamID(void* buffer, unsigned long* size) override;
    /// Constant 0 (GigEVision).
    int GetStreamType_Reg(void* buffer, unsigned long* size) override;
    int GetStreamAnnouncedBufferCount_Reg(void* buffer, unsigned long* size) override;
    int GetStreamBufferHandlingMode_Reg(void* buffer, unsigned long* size) override;
    int SetStreamBufferHandlingMode_Reg(const void* buffer, unsigned long* size) override;
    int GetStreamAnnounceBufferMinimum_Reg(void* buffer, unsigned long* size) override;
    int GetStreamDeliveredFrameCount_Reg(void* buffer, unsigned long* size) override;
    /// The underrun count.
    int GetStreamLostFrameCount_Reg(void* buffer, unsigned long* size) override;
    int GetStreamInputBufferCount_Reg(void* buffer, unsigned long* size) override;
    int GetStreamOutputBufferCount_Reg(void* buffer, unsigned long* size) override;
    /// The number of announced buffers, as StreamAnnouncedBufferCount.
    int GetStreamStartedFrameCount_Reg(void* buffer, unsigned long* size) override;
    int GetPayloadSize_Reg(void* buffer, unsigned long* size) override;
    int GetStreamIsGrabbing_Reg(void* buffer, unsigned long* size) override;
    int GetStreamChunkCountMaximum_Reg(void* buffer, unsigned long* size) override;
    int GetStreamBufferAlignment_Reg(void* buffer, unsigned long* size) override;
    int GetStreamMissedImageCount_Reg(void* buffer, unsigned long* size) override;
    int GetStreamMissedPacketCount_Reg(void* buffer, unsigned long* size) override;
    int GetStreamCumulativeMissedImageCount_Reg(void* buffer, unsigned long* size) override;
    int GetStreamCumulativeIncompleteImageCount_Reg(void* buffer, unsigned long* size) override;
    int GetStreamPacketResendEnable_Reg(void* buffer, unsigned long* size) override;
    int SetStreamPacketResendEnable_Reg(const void* buffer, unsigned long* size) override;
    int GetStreamAutoNegotiatePacketSize_Reg(void* buffer, unsigned long* size) override;
    int SetStreamAutoNegotiatePacketSize_Reg(const void* buffer, unsigned long* size) override;
    int GetStreamMaxNumResendRequestsPerImage_Reg(void* buffer, unsigned long* size) override;
    int SetStreamMaxNumResendRequestsPerImage_Reg(const void* buffer, unsigned long* size) override;
    int GetStreamMulticastEnable_Reg(void* buffer, unsigned long* size) override;
    /// Taken also while grabbing.
    int SetStreamMulticastEnable_Reg(const void* buffer, unsigned long* size) override;
    /// Constant 0: consumers see the EVS features as not implemented.
    int GetEvsFeatures_Implemented_Reg(void* buffer, unsigned long* size) override;
    int GetStreamEvsOutputFormat_Reg(void* buffer, unsigned long* size) override;
    int SetStreamEvsOutputFormat_Reg(const void* buffer, unsigned long* size) override;
    int GetStreamFrameGeneratorAccumTime_Reg(void* buffer, unsigned long* size) override;
    /// Sets the preset to custom, then the time.
    int SetStreamFrameGeneratorAccumTime_Reg(const void* buffer, unsigned long* size) override;
    int GetStreamFrameGeneratorFPS_Reg(void* buffer, unsigned long* size) override;
    /// Under the auto preset, the time follows; then the rate is stored.
    int SetStreamFrameGeneratorFPS_Reg(const void* buffer, unsigned long* size) override;
    int GetStreamEvsEventBufferPoolSize_Reg(void* buffer, unsigned long* size) override;
    int SetStreamEvsEventBufferPoolSize_Reg(const void* buffer, unsigned long* size) override;
    int GetStreamEvsBitDepth_Reg(void* buffer, unsigned long* size) override;
    int SetStreamEvsBitDepth_Reg(const void* buffer, unsigned long* size) override;
    int GetStreamEvsColorTheme_Reg(void* buffer, unsigned long* size) override;
    int SetStreamEvsColorTheme_Reg(const void* buffer, unsigned long* size) override;
    int GetStreamEvsEventRate_Reg(void* buffer, unsigned long* size) override;
    int GetStreamEvsGvspFrameRate_Reg(void* buffer, unsigned long* size) override;
    int GetStreamEvsLinkThroughput_Reg(void* buffer, unsigned long* size) override;
    int GetStreamFrameGeneratorAccumTimePreset_Reg(void* buffer, unsigned long* size) override;
    /// Any 32-bit preset is taken (also ones no enumeration entry names).
    int SetStreamFrameGeneratorAccumTimePreset_Reg(const void* buffer,
                                                   unsigned long* size) override;
    /// The whole embedded XML; see ModuleXml::CopyTo.
    int GetLocalTLXML_Reg(void* buffer, unsigned long* size) override;
    /// Info command 1009, which the stream does not serve.
    int GetStreamInterPacketExpiry_Reg(void* buffer, unsigned long* size) override;
    int SetStreamInterPacketExpiry_Reg(const void* buffer, unsigned long* size) override;

private:
    /// The stream's GetInfo with the caller's buffer and size.
    int Info(int cmd, void* buffer, unsigned long* size);
    /// A constant 0 as int64.
    int Zero(void* buffer, unsigned long* size);
    /// GC_ERR_RESOURCE_IN_USE (logged with refusal) while grabbing; else 0.
    int RefuseWhileGrabbing(const char* refusal);
    /// The refusal, then the stream's SetInfo with the caller's bytes.
    int Set(const char* refusal, int cmd, int type, const void* buffer, const unsigned long* size);
    /// The stream's SetInfo of one 32-bit value.
    int SetU32(int cmd, unsigned int value);
    /// The stream's GetInfo of a value of type T.
    template <typename T> int Read(int cmd, T& value);

    DataStream* m_stream;
    InfoUtility m_infoUtility;
};

} // namespace GenTL
