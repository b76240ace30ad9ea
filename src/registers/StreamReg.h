#pragma once
/**
 * StreamReg: the register space of a data stream module, as the stream's
 * GenApi description (SFNC_GenTLDataStream_..._Schema_1_1.xml, port
 * "StreamPort") maps its features. It holds no data: the getters and setters
 * are pure virtual, in the order of the XML, and StreamRegImpl answers them
 * from the stream.
 *
 * DataStreamGev::ReadPort and WritePort build a StreamRegImpl for the call
 * and run DispatchRead or DispatchWrite, which find the accessor of the
 * address in Registers() (exact match, see RegisterTable). Number registers
 * are 8 bytes, little-endian; string registers 512. The XML is read whole at
 * kModuleXmlAddress through GetLocalTLXML_Reg.
 *
 * The inter-packet expiry pair has no address: it is a slot of the class
 * only, and a port access at 0x2200 is an unknown address.
 */
#include "registers/RegisterTable.h"

namespace GenTL {

class StreamReg {
public:
    virtual ~StreamReg() = default;

    /// The register at address into buffer; see RegisterTable::Read.
    int DispatchRead(unsigned long address, void* buffer, unsigned long* size);
    /// buffer to the register at address; see RegisterTable::Write.
    int DispatchWrite(unsigned long address, const void* buffer, unsigned long* size);

    /// Every served register, ascending by address, with its XML width.
    static const RegisterTable<StreamReg>& Registers();

    // Accessors in the order of the XML. Each returns a GC_ERR_* code.
    virtual int GetStreamID(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamType_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamAnnouncedBufferCount_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamBufferHandlingMode_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetStreamBufferHandlingMode_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetStreamAnnounceBufferMinimum_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamDeliveredFrameCount_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamLostFrameCount_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamInputBufferCount_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamOutputBufferCount_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamStartedFrameCount_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetPayloadSize_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamIsGrabbing_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamChunkCountMaximum_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamBufferAlignment_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamMissedImageCount_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamMissedPacketCount_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamCumulativeMissedImageCount_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamCumulativeIncompleteImageCount_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamPacketResendEnable_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetStreamPacketResendEnable_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetStreamAutoNegotiatePacketSize_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetStreamAutoNegotiatePacketSize_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetStreamMaxNumResendRequestsPerImage_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetStreamMaxNumResendRequestsPerImage_Reg(const void* buffer,
                                                          unsigned long* size) = 0;
    virtual int GetStreamMulticastEnable_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetStreamMulticastEnable_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetEvsFeatures_Implemented_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamEvsOutputFormat_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetStreamEvsOutputFormat_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetStreamFrameGeneratorAccumTime_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetStreamFrameGeneratorAccumTime_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetStreamFrameGeneratorFPS_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetStreamFrameGeneratorFPS_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetStreamEvsEventBufferPoolSize_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetStreamEvsEventBufferPoolSize_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetStreamEvsBitDepth_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetStreamEvsBitDepth_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetStreamEvsColorTheme_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetStreamEvsColorTheme_Reg(const void* buffer, unsigned long* size) = 0;
    virtual int GetStreamEvsEventRate_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamEvsGvspFrameRate_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamEvsLinkThroughput_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamFrameGeneratorAccumTimePreset_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetStreamFrameGeneratorAccumTimePreset_Reg(const void* buffer,
                                                           unsigned long* size) = 0;
    virtual int GetLocalTLXML_Reg(void* buffer, unsigned long* size) = 0;
    virtual int GetStreamInterPacketExpiry_Reg(void* buffer, unsigned long* size) = 0;
    virtual int SetStreamInterPacketExpiry_Reg(const void* buffer, unsigned long* size) = 0;
};

} // namespace GenTL
