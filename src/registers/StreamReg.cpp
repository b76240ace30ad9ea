#include "registers/StreamReg.h"

#include "modules/BaseModule.h"

namespace GenTL {

namespace {

using S = StreamReg;
constexpr unsigned long kNum = 8;
constexpr unsigned long kText = 512;

// Address, XML width, getter, setter; ascending. Keep in step with
// SFNC_GenTLDataStream_Reference_Version_1_0_0_Schema_1_1.xml (a test
// compares the two).
constexpr RegisterRow<S> kRows[] = {
    {0x0100, kText, &S::GetStreamID, nullptr},
    {0x0200, kNum, &S::GetStreamType_Reg, nullptr},
    {0x0300, kNum, &S::GetStreamAnnouncedBufferCount_Reg, nullptr},
    {0x0400, kNum, &S::GetStreamBufferHandlingMode_Reg, &S::SetStreamBufferHandlingMode_Reg},
    {0x0500, kNum, &S::GetStreamAnnounceBufferMinimum_Reg, nullptr},
    {0x0600, kNum, &S::GetStreamDeliveredFrameCount_Reg, nullptr},
    {0x0700, kNum, &S::GetStreamLostFrameCount_Reg, nullptr},
    {0x0800, kNum, &S::GetStreamInputBufferCount_Reg, nullptr},
    {0x0900, kNum, &S::GetStreamOutputBufferCount_Reg, nullptr},
    {0x1000, kNum, &S::GetStreamStartedFrameCount_Reg, nullptr},
    {0x1100, kNum, &S::GetPayloadSize_Reg, nullptr},
    {0x1200, kNum, &S::GetStreamIsGrabbing_Reg, nullptr},
    {0x1300, kNum, &S::GetStreamChunkCountMaximum_Reg, nullptr},
    {0x1400, kNum, &S::GetStreamBufferAlignment_Reg, nullptr},
    {0x1500, kNum, &S::GetStreamMissedImageCount_Reg, nullptr},
    {0x1600, kNum, &S::GetStreamMissedPacketCount_Reg, nullptr},
    {0x1700, kNum, &S::GetStreamCumulativeMissedImageCount_Reg, nullptr},
    {0x1800, kNum, &S::GetStreamCumulativeIncompleteImageCount_Reg, nullptr},
    {0x1900, kNum, &S::GetStreamPacketResendEnable_Reg, &S::SetStreamPacketResendEnable_Reg},
    {0x2100, kNum, &S::GetStreamAutoNegotiatePacketSize_Reg,
     &S::SetStreamAutoNegotiatePacketSize_Reg},
    {0x2300, kNum, &S::GetStreamMaxNumResendRequestsPerImage_Reg,
     &S::SetStreamMaxNumResendRequestsPerImage_Reg},
    {0x2400, kNum, &S::GetStreamMulticastEnable_Reg, &S::SetStreamMulticastEnable_Reg},
    {0x2500, kNum, &S::GetEvsFeatures_Implemented_Reg, nullptr},
    {0x2501, kNum, &S::GetStreamEvsOutputFormat_Reg, &S::SetStreamEvsOutputFormat_Reg},
    {0x2502, kNum, &S::GetStreamFrameGeneratorAccumTime_Reg,
     &S::SetStreamFrameGeneratorAccumTime_Reg},
    {0x2503, kNum, &S::GetStreamFrameGeneratorFPS_Reg, &S::SetStreamFrameGeneratorFPS_Reg},
    {0x2504, kNum, &S::GetStreamEvsEventBufferPoolSize_Reg,
     &S::SetStreamEvsEventBufferPoolSize_Reg},
    {0x2505, kNum, &S::GetStreamEvsBitDepth_Reg, &S::SetStreamEvsBitDepth_Reg},
    {0x2506, kNum, &S::GetStreamEvsColorTheme_Reg, &S::SetStreamEvsColorTheme_Reg},
    {0x2507, kNum, &S::GetStreamEvsEventRate_Reg, nullptr},
    {0x2508, kNum, &S::GetStreamEvsGvspFrameRate_Reg, nullptr},
    {0x2509, kNum, &S::GetStreamEvsLinkThroughput_Reg, nullptr},
    {0x2510, kNum, &S::GetStreamFrameGeneratorAccumTimePreset_Reg,
     &S::SetStreamFrameGeneratorAccumTimePreset_Reg},
    {kModuleXmlAddress, 0, &S::GetLocalTLXML_Reg, nullptr},
};
static_assert(IsAscending(kRows), "the search by halves needs ascending addresses");

constexpr RegisterTable<S> kTable(kRows);

} // namespace

const RegisterTable<StreamReg>& StreamReg::Registers() {
    return kTable;
}

int StreamReg::DispatchRead(unsigned long address, void* buffer, unsigned long* size) {
    return kTable.Read(*this, address, buffer, size);
}

int StreamReg::DispatchWrite(unsigned long address, const void* buffer, unsigned long* size) {
    return kTable.Write(*this, address, buffer, size);
}

} // namespace GenTL
