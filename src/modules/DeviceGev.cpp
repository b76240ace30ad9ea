#include "modules/DeviceGev.h"

#include <exception>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/GLogger.h"
#include "api/GenTLHandle.h"
#include "api/localization.h"
#include "events/MessageChannelGev.h"
#include "hal/IHALGev.h"
#include "modules/DeviceRemoteGev.h"
#include "modules/Heartbeat.h"
#include "modules/ProtectedDeviceRegistry.h"
#include "stream/DataStream.h"
#include "stream/DataStreamGevTCP.h"
#include "stream/DataStreamGevUDP.h"

namespace GenTL {

namespace {

constexpr unsigned sk_addrGvcpCapability = 0x0934;
constexpr unsigned sk_addrTickFrequencyHigh = 0x093C;
constexpr unsigned sk_addrTickFrequencyLow = 0x0940;
constexpr unsigned sk_addrGvcpConfig = 0x0954;
constexpr unsigned sk_addrPendingTimeout = 0x0958;
constexpr unsigned sk_addrCcpSwitchoverKey = 0x095C;
constexpr unsigned sk_addrCcp = 0x0A00;

constexpr std::uint32_t kCapPendingAck = 1u << 5;
constexpr std::uint32_t kGvcpConfigPendingAck = 1u << 1;
constexpr std::uint32_t kCcpExclusive = 1u << 0;
constexpr std::uint32_t kCcpControl = 1u << 1;
constexpr std::uint32_t kCcpSwitchoverEnable = 1u << 2;
/// Control socket timeout when the camera does not tell its pending timeout.
constexpr unsigned kDefaultPendingTimeoutMs = 200;

constexpr int kNumStreams = 2;

const char* const kDeviceUrlTemplate =
    "local:SFNC_GenTLDevice_Reference_Version_1_0_0_Schema_1_1.xml;F0F00000;%X"
    "?SchemaVersion=1.0.0";
/// Length of the device module's XML description served at 0xF0F00000.
constexpr unsigned long kDeviceXmlLength = 31261;

const char* const kOpenFlags =
    "device can be opened with one of the following flags only:\nGenTL::DEVICE_ACCESS_UNKNOWN, "
    "GenTL::DEVICE_ACCESS_NONE, \nGenTL::DEVICE_ACCESS_READONLY, GenTL::DEVICE_ACCESS_CONTROL, "
    "\nGenTL::DEVICE_ACCESS_EXCLUSIVE";

/// The stream object of each index: 0 carries GVSP over UDP, 1 over TCP.
IDataStream* MakeDataStream(IHALGev* hal, void* hDevice, void* parent, unsigned index,
                            int accessFlags) {
    if (index == 0) {
        return new DataStreamGevUDP(hal, hDevice, parent, index, accessFlags);
    }
    return new DataStreamGevTCP(hal, hDevice, parent, index, accessFlags);
}

IMessageChannel* MakeMessageChannel(IHALGev* hal, void* hDevice, unsigned channelId,
                                    int accessFlags) {
    return new MessageChannelGev(hal, hDevice, channelId, accessFlags);
}

/// Runs make; a throw becomes a code, with the log line of its kind.
int CatchCreation(const std::function<void()>& make, const char* oomLog, const char* rangeLog,
                  const char* otherLog) {
    try {
        make();
        return GC_ERR_SUCCESS;
    } catch (const std::bad_alloc& e) {
        GLogger::Error(loc::al(oomLog, e.what()).c_str());
        return GC_ERR_OUT_OF_MEMORY;
    } catch (const std::out_of_range& e) {
        GLogger::Error(loc::al(rangeLog, e.what()).c_str());
        return GC_ERR_INVALID_INDEX;
    } catch (const std::exception& e) {
        GLogger::Error(loc::al(otherLog, e.what()).c_str());
        return GC_ERR_ERROR;
    }
}

} // namespace

DeviceGev::DeviceGev(IHALGev* hal, const std::string& id, void* parentInterface, void* hDevice)
    : m_pHal(hal), m_parentInterface(parentInterface), m_hDevice(hDevice) {
    (void)id; // the module's id is the serial number that the camera reports
    m_portInfo.module = "TLDevice";
    m_portInfo.portName = "DevicePort";

    if (m_pHal->GetModelName(m_hDevice, m_model)) {
        GLogger::Error("DeviceGev::DeviceGev could not get model name");
        m_model = "Unknown Model Name";
    }
    if (m_pHal->GetVendorName(m_hDevice, m_vendor)) {
        GLogger::Error("DeviceGev::DeviceGev could not get vendor name");
        m_vendor = "Unknown Vendor Name";
    }
    if (m_pHal->GetSerialNumber(m_hDevice, m_serialNumber)) {
        GLogger::Error("DeviceGev::DeviceGev could not get serial number");
        m_serialNumber = "Unknown Serial Number";
        m_id = "Unknown Device ID";
    } else {
        m_id = m_serialNumber;
    }
    if (m_pHal->GetUserDefinedName(m_hDevice, m_userDefinedName)) {
        GLogger::Error("DeviceGev::DeviceGev could not get user defined name");
        m_userDefinedName = "Unknown User Defined Name";
    }
    if (m_pHal->GetDeviceVersion(m_hDevice, m_version)) {
        GLogger::Error("DeviceGev::DeviceGev could not get version");
        m_version = "Unknown Device Version";
    }
    m_portInfo.id = m_id;
    m_displayName = m_model + " ( " + m_serialNumber + " ) ";
}

DeviceGev::~DeviceGev() {
    StopHeartbeat();
    DeleteStreamsAndChannels();
    delete m_pRemoteDevice;
    if (m_hRemoteDevice != nullptr) {
        DeleteHandle(m_hRemoteDevice);
    }
}

// --- Open -------------------------------------------------------------------

int DeviceGev::Open(int flags, void* hIface) {
    if (flags > DEVICE_ACCESS_EXCLUSIVE) {
        return ReportError(GC_ERR_INVALID_PARAMETER, kOpenFlags);
    }
    m_hInterface = hIface;

    if (int rc = CreateStreams(flags, hIface)) {
        return rc;
    }
    if (int rc = CreateMessageChannels(flags)) {
        return rc;
    }

    if (flags == DEVICE_ACCESS_CONTROL || flags == DEVICE_ACCESS_EXCLUSIVE) {
        if (int rc = ClaimControl(flags)) {
            return rc;
        }
    } else {
        m_accessStatus = DEVICE_ACCESS_STATUS_READONLY;
    }

    ReadTimestampTickFrequency();

    unsigned capability = 0;
    if (int rc = m_pHal->ReadReg(m_hDevice, sk_addrGvcpCapability, capability)) {
        StopHeartbeat();
        DeleteStreamsAndChannels();
        GLogger::Error("DeviceGev::Open reading sk_gvcpCapabilityAddress failed with", rc);
        return ReportError(rc, "failed to read GVCP Capability (0x0934) register");
    }
    m_gvcpCapability = capability;

    EnablePendingAck();

    if (int rc = ConfigureDeviceTimeout()) {
        StopHeartbeat();
        DeleteStreamsAndChannels();
        GLogger::Error("DeviceGev::Open ConfigureDeviceTimeout failed with", rc);
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int DeviceGev::CreateStreams(int flags, void* hIface) {
    m_streams.reserve(kNumStreams);
    const int rc = CatchCreation(
        [&] {
            for (unsigned index = 0; index < kNumStreams; ++index) {
                m_streams.push_back(MakeDataStream(m_pHal, m_hDevice, hIface, index, flags));
            }
        },
        "DeviceGev::Open exception creating stream = {0}",
        "DeviceGev::Open exception inserting stream = {0}",
        "DeviceGev::Open exception caught while initializing streams = {0}");
    if (rc == GC_ERR_SUCCESS) {
        return GC_ERR_SUCCESS;
    }
    DeleteStreamsAndChannels();
    GLogger::Error("DeviceGev::Open get multi-cast state failed with", rc);
    ReportError(rc, "failed to create a DataStreamGev instance");
    return ChainErrorText(rc, "failed to initialize streams");
}

int DeviceGev::CreateMessageChannels(int flags) {
    if (!m_messageChannels.empty()) {
        return GC_ERR_SUCCESS;
    }
    const int rc = CatchCreation(
        [&] { m_messageChannels.push_back(MakeMessageChannel(m_pHal, m_hDevice, 0, flags)); },
        "DeviceGev::Open exception caught while initializing message channels = {0}",
        "DeviceGev::Open exception caught while initializing message channels = {0}",
        "DeviceGev::Open exception caught while initializing message channels = {0}");
    if (rc == GC_ERR_SUCCESS) {
        return GC_ERR_SUCCESS;
    }
    DeleteStreamsAndChannels();
    GLogger::Error("DeviceGev::Open failed to initialize message channels", rc);
    ReportError(rc, "failed to create a MessageChannelGev instance");
    return ChainErrorText(rc, "failed to initialize message channels");
}

int DeviceGev::ClaimControl(int flags) {
    unsigned ccp = 0;
    if (int rc = m_pHal->ReadReg(m_hDevice, sk_addrCcp, ccp)) {
        DeleteStreamsAndChannels();
        GLogger::Error("DeviceGev::Open ReadReg address  0x0A00 failed with", rc);
        return ReportError(rc, "failed to read CCP (0x0A00) register");
    }
    if (flags == DEVICE_ACCESS_EXCLUSIVE) {
        ccp |= kCcpExclusive | kCcpControl;
    } else {
        ccp = (ccp & ~kCcpExclusive) | kCcpControl | kCcpSwitchoverEnable;
        if (m_ccpSwitchoverKey != 0) {
            ccp = (static_cast<unsigned>(m_ccpSwitchoverKey) << 16) | (ccp & 0xFFFFu);
        }
    }
    m_accessStatus = DEVICE_ACCESS_STATUS_READWRITE;

    if (int rc = m_pHal->WriteReg(m_hDevice, sk_addrCcp, ccp)) {
        DeleteStreamsAndChannels();
        GLogger::Error("DeviceGev::Open WriteReg address  0x0A00 failed with", rc);
        return ReportError(rc, "failed to write to CCP (0x0A00) register");
    }

    StartHeartbeat();

    if (int rc = m_pHal->SetConnected(m_hDevice, true)) {
        StopHeartbeat();
        DeleteStreamsAndChannels();
        GLogger::Error("DeviceGev::Open SetConnected failed with", rc);
        return ReportError(rc, "failed to set the device state to connected");
    }
    return GC_ERR_SUCCESS;
}

void DeviceGev::StartHeartbeat() {
    m_running = true;
    m_heartbeatThread = boost::thread(HeartbeatThread, m_pHal, m_hDevice, std::cref(m_running));
}

void DeviceGev::StopHeartbeat() {
    m_running = false;
    if (m_heartbeatThread.joinable()) {
        m_heartbeatThread.interrupt();
        m_heartbeatThread.join();
    }
}

void DeviceGev::ReadTimestampTickFrequency() {
    unsigned high = 0;
    unsigned low = 0;
    int rc = m_pHal->ReadReg(m_hDevice, sk_addrTickFrequencyHigh, high);
    if (rc != GC_ERR_SUCCESS) {
        GLogger::Error("anonymous::GetTimestampTickFrequency ReadReg  failed with", rc);
        ReportError(rc, ":IGNORABLE:failed to write to Timestamp Tick Frequency (0x093C) register");
    } else if ((rc = m_pHal->ReadReg(m_hDevice, sk_addrTickFrequencyLow, low)) != GC_ERR_SUCCESS) {
        GLogger::Error("anonymous::GetTimestampTickFrequency ReadReg  failed with", rc);
        ReportError(rc, ":IGNORABLE:failed to read Timestamp Tick Frequency (0x0940) register");
    }
    if (rc != GC_ERR_SUCCESS) {
        GLogger::Error("DeviceGev::Open GetTimestampTickFrequency failed with", rc);
        // Without the leading colon this text is filed although Open goes on.
        ReportError(rc, "IGNORABLE: field to get tick frequency");
        return;
    }
    m_timestampTickFrequency = (static_cast<unsigned long>(high) << 32) | low;
}

void DeviceGev::EnablePendingAck() {
    if ((m_gvcpCapability & kCapPendingAck) == 0) {
        return;
    }
    unsigned config = 0;
    if (int rc = m_pHal->ReadReg(m_hDevice, sk_addrGvcpConfig, config)) {
        GLogger::Error("DeviceGev::Open reading sk_gvcpConfigAddress failed with", rc);
        config = 0;
    }
    if (int rc = m_pHal->WriteReg(m_hDevice, sk_addrGvcpConfig, config | kGvcpConfigPendingAck)) {
        GLogger::Error("DeviceGev::Open writing sk_gvcpConfigAddress failed with", rc);
    }
}

int DeviceGev::ConfigureDeviceTimeout() {
    unsigned timeoutMs = 0;
    if (int rc = m_pHal->ReadReg(m_hDevice, sk_addrPendingTimeout, timeoutMs)) {
        GLogger::Error("DeviceGev::Open reading sk_pendingTimeoutAddress failed with", rc);
        timeoutMs = kDefaultPendingTimeoutMs;
    }
    if (int rc = m_pHal->SetDeviceTimeout(m_hDevice, static_cast<int>(timeoutMs))) {
        GLogger::Error("DeviceGev::Open failed setting timeout with err", rc);
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

void DeviceGev::DeleteStreamsAndChannels() {
    while (!m_streams.empty()) {
        // A consumer may close the device before its streams: its stream
        // handle must then refuse cleanly rather than reach freed memory.
        if (auto* known = dynamic_cast<DataStream*>(m_streams.back())) {
            DetachHandle(known->GetHandle());
        }
        delete m_streams.back();
        m_streams.pop_back();
    }
    while (!m_messageChannels.empty()) {
        delete m_messageChannels.back();
        m_messageChannels.pop_back();
    }
}

// --- Close ------------------------------------------------------------------

int DeviceGev::Close() {
    int result = GC_ERR_SUCCESS;
    const auto keep = [&result](int rc) {
        if (result == GC_ERR_SUCCESS) {
            result = rc;
        }
    };

    // Reception threads end before the privilege goes, and the last
    // heartbeat before the release.
    DeleteStreamsAndChannels();
    StopHeartbeat();

    if (m_accessStatus == DEVICE_ACCESS_STATUS_READWRITE) {
        unsigned ccp = 0;
        if (int rc = m_pHal->ReadReg(m_hDevice, sk_addrCcp, ccp)) {
            GLogger::Error("DeviceGev::Close ReadReg address 0x0A00 failed with", rc);
            ccp = 0;
            keep(rc);
        }
        ccp &= ~(kCcpExclusive | kCcpControl);
        if (int rc = m_pHal->WriteReg(m_hDevice, sk_addrCcp, ccp)) {
            GLogger::Error("DeviceGev::Close WriteReg address 0x0A00 failed with", rc);
            keep(rc);
        }
    }

    delete m_pRemoteDevice;
    m_pRemoteDevice = nullptr;
    if (m_hRemoteDevice != nullptr) {
        if (int rc = DeleteHandle(m_hRemoteDevice)) {
            keep(ChainError(rc));
        }
        m_hRemoteDevice = nullptr;
    }

    if (int rc = m_pHal->CloseDevice(m_hDevice)) {
        keep(ChainError(rc));
    }

    g_openedDevicesRegistry.PopDeviceEntry(m_id);
    return result;
}

// --- Info -------------------------------------------------------------------

int DeviceGev::GetInfo(int cmd, int* type, void* buffer, unsigned long* size) const {
    int rc = GC_ERR_SUCCESS;
    long number = 0;
    bool flag = false;
    switch (cmd) {
    case kInfoEndiannessMechanism:
        rc = m_infoUtility.SetInfo(m_endiannessMechanism, type, buffer, size, false);
        break;
    case DEVICE_INFO_GEV_IP_ADDRESS:
        rc = m_pHal->GetDevIPAddress(m_hDevice, number);
        if (rc == GC_ERR_SUCCESS) {
            rc = m_infoUtility.SetInfo(number, type, buffer, size, false);
        }
        break;
    case DEVICE_INFO_GEV_SUBNET_MASK:
        rc = m_pHal->GetDevSubnetMask(m_hDevice, number);
        if (rc == GC_ERR_SUCCESS) {
            rc = m_infoUtility.SetInfo(number, type, buffer, size, false);
        }
        break;
    case DEVICE_INFO_GEV_MAC_ADDRESS:
        rc = m_pHal->GetDevMACAddress(m_hDevice, number);
        if (rc == GC_ERR_SUCCESS) {
            rc = m_infoUtility.SetInfo(number, type, buffer, size, false);
        }
        break;
    case DEVICE_INFO_GEV_DEFAULT_GATEWAY:
        rc = m_pHal->GetDevDefaultGateway(m_hDevice, number);
        if (rc == GC_ERR_SUCCESS) {
            rc = m_infoUtility.SetInfo(number, type, buffer, size, false);
        }
        break;
    case DEVICE_INFO_GEV_CONFIG_DHCP:
        rc = m_pHal->GetDevIpConfigDHCP(m_hDevice, flag);
        if (rc == GC_ERR_SUCCESS) {
            rc = m_infoUtility.SetInfo(flag, type, buffer, size, false);
        }
        break;
    case DEVICE_INFO_GEV_CONFIG_PERSISTENT_IP:
        rc = m_pHal->GetDevIpConfigPersistentIp(m_hDevice, flag);
        if (rc == GC_ERR_SUCCESS) {
            rc = m_infoUtility.SetInfo(flag, type, buffer, size, false);
        }
        break;
    case DEVICE_INFO_GEV_CONFIG_LLA:
        rc = m_pHal->GetDevIpConfigLLA(m_hDevice, flag);
        if (rc == GC_ERR_SUCCESS) {
            rc = m_infoUtility.SetInfo(flag, type, buffer, size, false);
        }
        break;
    case DEVICE_INFO_IS_CONNECTED:
        rc = m_pHal->IsConnected(m_hDevice, flag);
        if (rc == GC_ERR_SUCCESS) {
            rc = m_infoUtility.SetInfo(flag, type, buffer, size, false);
        }
        break;
    default:
        rc = Device::GetInfo(cmd, type, buffer, size);
        break;
    }
    if (rc != GC_ERR_SUCCESS) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int DeviceGev::SetInfo(int cmd, int type, const void* buffer, unsigned long size) {
    if (cmd == kInfoEndiannessMechanism) {
        long mechanism = 0;
        if (int rc = m_infoUtility.GetInfo(type, buffer, size, mechanism, false)) {
            return ChainError(rc);
        }
        m_endiannessMechanism = mechanism;
        if (m_pRemoteDevice != nullptr) {
            m_pRemoteDevice->SetEndianessMechanism(mechanism);
        }
        return GC_ERR_SUCCESS;
    }
    if (cmd != DEVICE_INFO_ACCESS_STATUS) {
        return Device::SetInfo(cmd, type, buffer, size);
    }

    long status = 0;
    if (int rc = m_infoUtility.GetInfo(type, buffer, size, status, false)) {
        return ChainError(rc);
    }
    bool write = true;
    unsigned ccp = 0;
    if (status == DEVICE_ACCESS_STATUS_READWRITE) {
        ccp = m_ccpSwitchoverKey != 0 ? (static_cast<unsigned>(m_ccpSwitchoverKey) << 16) |
                                            kCcpControl | kCcpSwitchoverEnable
                                      : kCcpControl;
    } else if (status != DEVICE_ACCESS_STATUS_READONLY) {
        status = DEVICE_ACCESS_STATUS_UNKNOWN;
        write = false;
    }
    m_accessStatus = status;
    if (m_pRemoteDevice != nullptr) {
        m_pRemoteDevice->SetAccessStatus(status);
    }
    if (write) {
        if (int rc = m_pHal->WriteReg(m_hDevice, sk_addrCcp, ccp)) {
            GLogger::Error("DeviceGev::Open WriteReg address  0x0A00 failed with", rc);
            g_openedDevicesRegistry.PopDeviceEntry(m_id);
            return ChainError(rc);
        }
    }
    return GC_ERR_SUCCESS;
}

// --- Ports, streams, events ---------------------------------------------------

int DeviceGev::GetPort(void** phRemoteDevice) {
    if (phRemoteDevice == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "phRemoteDevice==nullptr");
    }
    if (m_pRemoteDevice == nullptr) {
        auto* remote = new RemoteDeviceGev(m_pHal, m_hDevice, m_gvcpCapability,
                                           m_endiannessMechanism, m_portInfo, m_accessStatus);
        void* handle = nullptr;
        AllocateHandle(&handle, remote);
        m_pRemoteDevice = remote;
        m_hRemoteDevice = handle;
    }
    *phRemoteDevice = m_hRemoteDevice;
    return GC_ERR_SUCCESS;
}

int DeviceGev::GetNumDataStreams(unsigned int* count) const {
    if (count == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piNumDataStreams==nullptr");
    }
    *count = static_cast<unsigned>(m_streams.size());
    return GC_ERR_SUCCESS;
}

int DeviceGev::GetDataStreamID(unsigned int index, char* id, unsigned long* size) const {
    if (index >= m_streams.size()) {
        return ReportError(GC_ERR_INVALID_INDEX, "iIndex >= m_streams.size()");
    }
    if (size == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "piSize==nullptr");
    }
    const std::string text = std::to_string(index);
    const unsigned long minBufferSize = text.size() + 1;
    if (id == nullptr) {
        *size = minBufferSize;
        return GC_ERR_SUCCESS;
    }
    if (*size < minBufferSize) {
        return ReportError(GC_ERR_BUFFER_TOO_SMALL, "*piSize < minBufferSize");
    }
    text.copy(id, text.size());
    id[text.size()] = '\0';
    *size = minBufferSize;
    return GC_ERR_SUCCESS;
}

int DeviceGev::OpenDataStream(const char* id, void** phDataStream) const {
    return OpenDataStream(id, phDataStream, nullptr);
}

int DeviceGev::OpenDataStream(const char* id, void** phDataStream, IHALGvsp* hal) const {
    if (id == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "sDataStreamID==nullptr");
    }
    if (phDataStream == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "phDataStream==nullptr");
    }
    for (std::size_t index = 0; index < m_streams.size(); ++index) {
        if (std::to_string(index) != id) {
            continue;
        }
        IDataStream* stream = m_streams[index];
        if (int rc = stream->Open(hal)) {
            return ChainError(rc);
        }
        const int rc = AllocateHandle(phDataStream, stream);
        if (auto* known = dynamic_cast<DataStream*>(stream)) {
            known->SetHandle(*phDataStream);
        }
        return rc;
    }
    return ReportError(GC_ERR_INVALID_ID, std::string(id) + " is not a valid ID");
}

int DeviceGev::GetParentIF(void** phIface) const {
    if (phIface == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "pHParentIF==nullptr");
    }
    *phIface = m_hInterface;
    return GC_ERR_SUCCESS;
}

int DeviceGev::SendActionCommand(unsigned int deviceKey, unsigned int groupKey,
                                 unsigned int groupMask, unsigned long scheduledTime) const {
    if (int rc =
            m_pHal->SendActionCommand(m_hDevice, deviceKey, groupKey, groupMask, scheduledTime)) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int DeviceGev::GetPortURL(char* url, unsigned long* size) const {
    return BaseModule::GetPortURL(kDeviceUrlTemplate, kDeviceXmlLength, kPortUrlExtraOne, url,
                                  size);
}

int DeviceGev::GetNumPortURLs(unsigned int* count) {
    return GetOneNumPortURLs(count);
}

int DeviceGev::RegisterEvent(int type, void** event) {
    if (type != EVENT_REMOTE_DEVICE) {
        return ReportError(GC_ERR_NOT_IMPLEMENTED, "only EVENT_REMOTE_DEVICE is implemented");
    }
    if (m_messageChannels.empty()) {
        return ReportError(GC_ERR_NOT_AVAILABLE, "message channels size==0");
    }
    IMessageChannel* channel = m_messageChannels.front();
    if (channel->IsOpen()) {
        return ReportError(GC_ERR_RESOURCE_IN_USE, "message channel 0 is already open");
    }
    if (int rc = channel->Open(nullptr, false)) {
        return ChainError(rc);
    }
    if (int rc = channel->RegisterEvent(type, event)) {
        channel->Close();
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int DeviceGev::UnregisterEvent(int type) {
    if (type != EVENT_REMOTE_DEVICE) {
        return ReportError(GC_ERR_NOT_IMPLEMENTED,
                           "only GenTL::EVENT_REMOTE_DEVICE is implemented");
    }
    if (m_messageChannels.empty()) {
        return ReportError(GC_ERR_NOT_AVAILABLE, "no message channels were found");
    }
    IMessageChannel* channel = m_messageChannels.front();
    if (!channel->IsOpen()) {
        return ReportError(GC_ERR_NOT_INITIALIZED, "the message channel 0 is not open");
    }
    if (int rc = channel->UnregisterEvent(type)) {
        return ChainError(rc);
    }
    if (int rc = channel->Close()) {
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

// --- Switchover key -----------------------------------------------------------

int DeviceGev::GetCcpSwitchoverKey(unsigned short* key) const {
    if (key == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "key==nullptr");
    }
    *key = m_ccpSwitchoverKey;
    return GC_ERR_SUCCESS;
}

int DeviceGev::SetCcpSwitchoverKey(unsigned short* key) {
    if (key == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "key==nullptr");
    }
    m_ccpSwitchoverKey = *key;
    if (m_accessStatus != DEVICE_ACCESS_STATUS_READWRITE) {
        return GC_ERR_SUCCESS;
    }
    if (int rc = m_pHal->WriteReg(m_hDevice, sk_addrCcpSwitchoverKey, m_ccpSwitchoverKey)) {
        GLogger::Error("DeviceGev::Open WriteReg address  0x095C failed with", rc);
        return ReportError(rc, "failed to write to CCP Switchover Key (0x095C) register");
    }
    return GC_ERR_SUCCESS;
}

} // namespace GenTL
