// Numbers of the GigE Vision control and stream protocols as the camera
// serves them: ports, command codes, status codes, bootstrap addresses and
// the bits of the capability words.
#pragma once

#include <cstdint>

namespace gevsim {

constexpr uint16_t kGvcpPort = 3956;
constexpr uint16_t kTcpStreamPort = 58243;
constexpr uint8_t kGvcpKey = 0x42;
constexpr size_t kGvcpMaxDatagram = 576;
constexpr size_t kMaxMemAccess = 536;
constexpr size_t kEventHeaderSize = 24;  // GVCP header and one event
constexpr uint32_t kMaxEventFire = 1024; // events of one EventFire write

namespace cmd {
constexpr uint16_t kDiscovery = 0x0002, kDiscoveryAck = 0x0003;
constexpr uint16_t kForceIp = 0x0004, kForceIpAck = 0x0005;
constexpr uint16_t kPacketResend = 0x0040;
constexpr uint16_t kReadReg = 0x0080, kReadRegAck = 0x0081;
constexpr uint16_t kWriteReg = 0x0082, kWriteRegAck = 0x0083;
constexpr uint16_t kReadMem = 0x0084, kReadMemAck = 0x0085;
constexpr uint16_t kWriteMem = 0x0086, kWriteMemAck = 0x0087;
constexpr uint16_t kPendingAck = 0x0089;
constexpr uint16_t kEvent = 0x00C0, kEventData = 0x00C2;
constexpr uint16_t kAction = 0x0100, kActionAck = 0x0101;
} // namespace cmd

namespace flag {
constexpr uint8_t kAckRequired = 0x01;
constexpr uint8_t kBroadcastAck = 0x10; // discovery and ForceIP
constexpr uint8_t kExtendedId = 0x10;   // packet resend
constexpr uint8_t kScheduledAction = 0x80;
} // namespace flag

namespace status {
constexpr uint16_t kSuccess = 0x0000;
constexpr uint16_t kPacketResend = 0x0100;
constexpr uint16_t kNotImplemented = 0x8001;
constexpr uint16_t kInvalidParameter = 0x8002;
constexpr uint16_t kInvalidAddress = 0x8003;
constexpr uint16_t kWriteProtect = 0x8004;
constexpr uint16_t kBadAlignment = 0x8005;
constexpr uint16_t kAccessDenied = 0x8006;
constexpr uint16_t kBusy = 0x8007;
} // namespace status

namespace reg {
constexpr uint32_t kVersion = 0x0000;
constexpr uint32_t kDeviceMode = 0x0004;
constexpr uint32_t kMacHigh = 0x0008;
constexpr uint32_t kMacLow = 0x000C;
constexpr uint32_t kIpConfigOptions = 0x0010;
constexpr uint32_t kIpConfigCurrent = 0x0014;
constexpr uint32_t kCurrentIp = 0x0024;
constexpr uint32_t kSubnetMask = 0x0034;
constexpr uint32_t kGateway = 0x0044;
constexpr uint32_t kManufacturerName = 0x0048;
constexpr uint32_t kModelName = 0x0068;
constexpr uint32_t kDeviceVersion = 0x0088;
constexpr uint32_t kManufacturerInfo = 0x00A8;
constexpr uint32_t kSerialNumber = 0x00D8;
constexpr uint32_t kUserName = 0x00E8;
constexpr uint32_t kFirstUrl = 0x0200;
constexpr uint32_t kSecondUrl = 0x0400;
constexpr uint32_t kNumInterfaces = 0x0600;
constexpr uint32_t kNumMessageChannels = 0x0900;
constexpr uint32_t kNumStreamChannels = 0x0904;
constexpr uint32_t kNumActionSignals = 0x0908;
constexpr uint32_t kActionDeviceKey = 0x090C;
constexpr uint32_t kGvspCapability = 0x092C;
constexpr uint32_t kMessageCapability = 0x0930;
constexpr uint32_t kGvcpCapability = 0x0934;
constexpr uint32_t kHeartbeatTimeout = 0x0938;
constexpr uint32_t kTickFrequencyHigh = 0x093C;
constexpr uint32_t kTickFrequencyLow = 0x0940;
constexpr uint32_t kTimestampControl = 0x0944;
constexpr uint32_t kTimestampHigh = 0x0948;
constexpr uint32_t kTimestampLow = 0x094C;
constexpr uint32_t kGvcpConfig = 0x0954;
constexpr uint32_t kPendingTimeout = 0x0958;
constexpr uint32_t kSwitchoverKey = 0x095C;
constexpr uint32_t kGvspConfig = 0x0960;
constexpr uint32_t kCcp = 0x0A00;
constexpr uint32_t kPrimaryPort = 0x0A04;
constexpr uint32_t kPrimaryIp = 0x0A14;
constexpr uint32_t kMcp = 0x0B00;
constexpr uint32_t kMcda = 0x0B10;
constexpr uint32_t kMctt = 0x0B14;
constexpr uint32_t kMcrc = 0x0B18;
constexpr uint32_t kMcsp = 0x0B1C;
constexpr uint32_t kScp = 0x0D00;
constexpr uint32_t kScps = 0x0D04;
constexpr uint32_t kScpd = 0x0D08;
constexpr uint32_t kScda = 0x0D18;
constexpr uint32_t kScsp = 0x0D1C;
constexpr uint32_t kManifest = 0x9000;
constexpr uint32_t kActionGroupKey = 0x9800;
constexpr uint32_t kActionGroupMask = 0x9804;

// The camera's own features, described by its GenApi XML.
constexpr uint32_t kWidth = 0x10000;
constexpr uint32_t kHeight = 0x10004;
constexpr uint32_t kPixelFormat = 0x10008;
constexpr uint32_t kPayloadSize = 0x1000C;
constexpr uint32_t kAcquisitionMode = 0x10010;
constexpr uint32_t kAcquisitionStart = 0x10014;
constexpr uint32_t kAcquisitionStop = 0x10018;
constexpr uint32_t kAcquisitionFrameRate = 0x1001C;
constexpr uint32_t kTestPattern = 0x10020;
constexpr uint32_t kAcquisitionFrameCount = 0x10024;
constexpr uint32_t kVariableSize = 0x10028;
constexpr uint32_t kEventRate = 0x1002C;
constexpr uint32_t kActionCount = 0x10030;
constexpr uint32_t kBlocksSent = 0x10034;
constexpr uint32_t kTLParamsLocked = 0x10040;
constexpr uint32_t kEventFire = 0x10044;
constexpr uint32_t kEventId = 0x10048;
constexpr uint32_t kEventDataSize = 0x1004C;
constexpr uint32_t kXmlFile = 0x00100000;
} // namespace reg

// GVCP capability (0x0934), bit numbers counted from the least significant.
namespace gvcpcap {
constexpr uint32_t kConcatenation = 1u << 0;
constexpr uint32_t kWriteMem = 1u << 1;
constexpr uint32_t kPacketResend = 1u << 2;
constexpr uint32_t kEvent = 1u << 3;
constexpr uint32_t kEventData = 1u << 4;
constexpr uint32_t kPendingAck = 1u << 5;
constexpr uint32_t kAction = 1u << 6;
constexpr uint32_t kScheduledAction = 1u << 17;
constexpr uint32_t kExtendedStatus2 = 1u << 18;
constexpr uint32_t kSwitchover = 1u << 21;
constexpr uint32_t kExtendedStatus11 = 1u << 22;
constexpr uint32_t kTestData = 1u << 25;
constexpr uint32_t kManifest = 1u << 26;
constexpr uint32_t kCcpApplication = 1u << 27;
constexpr uint32_t kHeartbeatDisable = 1u << 29;
constexpr uint32_t kSerialNumber = 1u << 30;
constexpr uint32_t kUserName = 1u << 31;
} // namespace gvcpcap

namespace gvspcap {
constexpr uint32_t kScsp = 1u << 31;
constexpr uint32_t kExtendedId = 1u << 30;
} // namespace gvspcap

namespace mccap {
constexpr uint32_t kMcsp = 1u << 31;
}

namespace ccp {
constexpr uint32_t kExclusive = 1u << 0;
constexpr uint32_t kControl = 1u << 1;
constexpr uint32_t kSwitchoverEnable = 1u << 2;
} // namespace ccp

namespace scps {
constexpr uint32_t kFireTestPacket = 1u << 31;
constexpr uint32_t kDoNotFragment = 1u << 30;
constexpr uint32_t kBigEndian = 1u << 29;
constexpr uint32_t kSizeMask = 0xFFFF;
} // namespace scps

namespace gvcpcfg {
constexpr uint32_t kHeartbeatDisable = 1u << 0;
constexpr uint32_t kPendingAckEnable = 1u << 1;
} // namespace gvcpcfg

constexpr uint32_t kGvspConfigExtendedId = 1u << 30;

namespace pixfmt {
constexpr uint32_t kMono8 = 0x01080001;
constexpr uint32_t kMono16 = 0x01100007;
constexpr uint32_t kRGB8 = 0x02180014;
inline uint32_t bitsPerPixel(uint32_t pf) {
    return (pf >> 16) & 0xFF;
}
} // namespace pixfmt

// IP and UDP headers, counted in the stream channel's packet size.
constexpr size_t kIpUdpOverhead = 28;
constexpr size_t kGvspHeaderSize = 8;
constexpr size_t kGvspExtendedHeaderSize = 20;
constexpr size_t kTcpFrameHeaderSize = 60;

} // namespace gevsim
