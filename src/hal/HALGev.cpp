#include "hal/HALGev.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include <boost/thread/thread.hpp>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/HLogger.h"
#include "api/localization.h"
#include "hal/AdapterHandle.h"
#include "hal/AdapterTable.h"
#include "hal/DeviceHandle.h"
#include "hal/DiscoveryCollector.h"
#include "hal/GvcpSettingsFile.h"
#include "hal/GvcpTransaction.h"
#include "hal/GvcpWire.h"
#include "hal/SocketHelper.h"

namespace GenTL {

namespace {

/// Guards numRetries of the control layer; process-wide.
boost::mutex g_retriesMtx;

constexpr unsigned sk_addrTimestampTickHigh = 0x093C;
constexpr unsigned sk_addrTimestampTickLow = 0x0940;

/// Where one-way commands with an ack (ForceIP, action) wait for it.
constexpr int kOneShotAckTimeoutMs = 2000;

// Offsets in the discovery payload.
constexpr std::size_t kMacHigh = 0x0A;
constexpr std::size_t kMacLow = 0x0C;
constexpr std::size_t kIpConfig = 0x14;
constexpr std::size_t kIp = 0x24;
constexpr std::size_t kSubnet = 0x34;
constexpr std::size_t kGateway = 0x44;
constexpr std::size_t kVendor = 0x48;
constexpr std::size_t kModel = 0x68;
constexpr std::size_t kVersion = 0x88;
constexpr std::size_t kSerial = 0xD8;
constexpr std::size_t kUserName = 0xE8;

const char kReadRegMismatch[] =
    "GenTL::HALGev::ReadReg Ack is invalid: reqID Sent: {0}, reqID Recv: {1}";

const GvcpOperation kReadRegOp{"ReadReg",
                               "GenTL::HALGev::ReadReg Send Failed",
                               "GenTL::HALGev::ReadReg Receive Failed",
                               "GenTL::HALGev::ReadReg Ack is invalid",
                               kReadRegMismatch,
                               "GenTL::HALGev::ReadReg Ack is invalid: ",
                               nullptr,
                               gvcp::kReadRegAck,
                               4,
                               12,
                               true,
                               -1};

const GvcpOperation kWriteRegOp{
    "WriteReg",
    "GenTL::HALGev::WriteReg Send Failed",
    "GenTL::HALGev::WriteReg Receive Failed",
    "GenTL::HALGev::WriteReg Ack is invalid",
    "GenTL::HALGev::WriteReg Ack is invalid: reqID Sent {0}, reqID Recv {1}",
    "GenTL::HALGev::WriteReg Ack is invalid: ",
    ":IGNORABLE: failed to send WRITEREG_CMD; device is marked as disconnected",
    gvcp::kWriteRegAck,
    4,
    12,
    false,
    -1};

const GvcpOperation kReadRegBlockOp{
    "ReadRegBlock",
    "GenTL::HALGev::ReadRegBlock Send Failed",
    "GenTL::HALGev::ReadRegBlock Receive Failed",
    "GenTL::HALGev::ReadRegBlock Ack is invalid",
    "GenTL::HALGev::ReadRegBlock Ack is invalid: reqID Sent: {0}, reqID Recv: {1}",
    "GenTL::HALGev::ReadRegBlock Ack is invalid: ",
    nullptr,
    gvcp::kReadRegAck,
    0,
    0,
    false,
    -1};

const GvcpOperation kWriteRegBlockOp{"WriteRegBlock",
                                     "GenTL::HALGev::WriteRegBlock Send Failed",
                                     "GenTL::HALGev::WriteRegBlock Receive Failed",
                                     "GenTL::HALGev::WriteRegBlock Ack is invalid",
                                     nullptr,
                                     "GenTL::HALGev::WriteRegBlock is invalid: ",
                                     nullptr,
                                     gvcp::kWriteRegAck,
                                     4,
                                     12,
                                     false,
                                     -1};

const GvcpOperation kReadMemOp{"ReadMem",
                               "GenTL::HALGev::ReadMem Send Failed",
                               "GenTL::HALGev::ReadMem Receive Failed",
                               "GenTL::HALGev::ReadMem Ack is invalid",
                               kReadRegMismatch,
                               "GenTL::HALGev::ReadMem Ack is invalid: ",
                               nullptr,
                               gvcp::kReadMemAck,
                               0,
                               0,
                               false,
                               -1};

const GvcpOperation kWriteMemOp{
    "WriteMem",
    "GenTL::HALGev::WriteMem Send Failed",
    "GenTL::HALGev::WriteMem Ack Receive Failed",
    "GenTL::HALGev::WriteMem Ack Ack is invalid",
    "GenTL::HALGev::WriteMem Ack is invalid: reqID Sent: {0}, reqID Recv: {1}",
    "GenTL::HALGev::WriteMem is invalid: ",
    nullptr,
    gvcp::kWriteMemAck,
    4,
    12,
    false,
    -1};

/// Registers a block command has room for.
constexpr std::size_t kMaxReadRegs = gvcp::kMaxBlockPayload / 4;
constexpr std::size_t kMaxWriteRegs = gvcp::kMaxBlockPayload / 8;

int InvalidHandle() {
    return detail::ReportBareError(GC_ERR_INVALID_HANDLE);
}

/// The socket takes milliseconds in 32 bits: the low half of the value,
/// as a signed number. Negative values end at the socket's option at once.
int ToSocketTimeout(long timeoutMs) {
    return static_cast<int>(static_cast<std::uint32_t>(timeoutMs));
}

unsigned long CurrentRetries(const HALGev& hal) {
    unsigned long retries = 0;
    hal.GetGvcpRetries(retries);
    return retries;
}

// --- Discovery payload fields ------------------------------------------------

std::string PayloadString(const DiscoveryPayload& payload, std::size_t offset) {
    return gvcp::GetString(payload.data(), payload.size(), offset);
}

/// The reader of one string field, for the fact getters.
auto StringField(std::size_t offset) {
    return [offset](const DiscoveryPayload& p) { return PayloadString(p, offset); };
}

long PayloadHostU32(const DiscoveryPayload& payload, std::size_t offset) {
    return static_cast<long>(gvcp::GetU32(payload.data(), payload.size(), offset));
}

/// The field as it lies in memory, not swapped.
std::uint32_t PayloadRawU32(const DiscoveryPayload& payload, std::size_t offset) {
    std::uint32_t value = 0;
    std::memcpy(&value, payload.data() + offset, sizeof value);
    return value;
}

long PayloadMac(const DiscoveryPayload& payload) {
    const unsigned long high = gvcp::GetU16(payload.data(), payload.size(), kMacHigh);
    const unsigned long low = gvcp::GetU32(payload.data(), payload.size(), kMacLow);
    return static_cast<long>((high << 32) | low);
}

/// A fact of an open device, from its discovery payload.
template <class T, class Read> int DeviceFact(void* hDevice, T& out, Read read) {
    DeviceHandle* device = AsDevice(hDevice);
    if (device == nullptr) {
        return InvalidHandle();
    }
    out = read(device->discoveryPayload);
    return GC_ERR_SUCCESS;
}

/// A fact of a device in the adapter's last discovery, first match wins.
template <class T, class Read>
int DeviceFactById(void* hAdapter, const std::string& id, T& out, Read read) {
    AdapterHandle* adapter = AsAdapter(hAdapter);
    if (adapter == nullptr) {
        return InvalidHandle();
    }
    for (const DeviceData& row : adapter->deviceList) {
        if (row.id == id) {
            out = read(row.discoveryPayload);
            return GC_ERR_SUCCESS;
        }
    }
    return detail::ReportBareError(GC_ERR_INVALID_ID);
}

/// Reads the ack of a one-shot command (ForceIP, action command): waits
/// past pending acks, then checks code, status, id and a zero length.
int AwaitOneShotAck(BaseHandle* handle, std::uint16_t ackCode, std::uint16_t requestId,
                    const char* receiveFailedLine, const char* invalidLine, const char* exitPrefix,
                    const char* function) {
    std::uint8_t ack[12] = {};
    int savedTimeout = 0;
    for (;;) {
        const int rc = handle->socket->Receive(reinterpret_cast<char*>(ack), 8, false);
        if (rc != GC_ERR_SUCCESS) {
            HLogger::Error(receiveFailedLine, rc);
            return rc;
        }
        if (!CheckAckPending(handle, ack, sizeof ack, savedTimeout)) {
            break;
        }
    }
    const gvcp::AckHeader header = gvcp::AckHeader::Parse(ack, sizeof ack);
    if (header.ackCode == ackCode && header.status == 0 && header.ackId == requestId &&
        header.length == 0) {
        ResetTimout(handle, savedTimeout);
        return GC_ERR_SUCCESS;
    }
    const std::string details = ", ACK = " + std::to_string(header.ackCode) +
                                ", status = " + std::to_string(header.status) +
                                ", ack_id = " + std::to_string(header.ackId) +
                                ", length = " + std::to_string(header.length);
    HLogger::Error(invalidLine, GC_ERR_INVALID_VALUE);
    HLogger::Error(details.c_str());
    return detail::ReportErrorAt(GC_ERR_INVALID_VALUE,
                                 std::string(exitPrefix) + std::to_string(GC_ERR_INVALID_VALUE) +
                                     " : " + details,
                                 function, __LINE__);
}

std::string DottedIp(unsigned networkIp) {
    in_addr address{};
    address.s_addr = networkIp;
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

} // namespace

// --- Construction and settings ------------------------------------------------

HALGev::HALGev() : HALGev(GvcpSettingsFile::kFileName) {}

HALGev::HALGev(const std::string& settingsPath) {
    GvcpSettings settings;
    GvcpSettingsFile::ApplyFile(settingsPath, settings);
    m_numRetries = settings.numRetries;
    m_timeout = settings.timeoutMs;
    m_timeoutOverridden = settings.timeoutOverridden;
}

HALGev::~HALGev() = default;

int HALGev::SetGvcpRetries(unsigned long retries) {
    boost::mutex::scoped_lock lock(g_retriesMtx);
    m_numRetries = retries;
    return GC_ERR_SUCCESS;
}

int HALGev::GetGvcpRetries(unsigned long& retries) const {
    boost::mutex::scoped_lock lock(g_retriesMtx);
    retries = m_numRetries;
    return GC_ERR_SUCCESS;
}

bool HALGev::IsLwfDriverInstalledForMac(long) const {
    return false;
}

// --- Adapters -------------------------------------------------------------------

int HALGev::GetInterfaces(std::vector<std::string>& ids) {
    return AdapterTable::Enumerate(m_adapters, ids);
}

int HALGev::OpenInterface(const std::string& id, void** hAdapter) const {
    if (hAdapter == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "hAdapter==nullptr");
    }
    const auto row = std::find_if(m_adapters.begin(), m_adapters.end(),
                                  [&id](const AdapterData& data) { return data.id == id; });
    if (row == m_adapters.end()) {
        return detail::ReportBareError(GC_ERR_INVALID_ID);
    }
    try {
        std::unique_ptr<AdapterHandle> adapter(new AdapterHandle());
        adapter->requestId = 1;
        adapter->socket.reset(new CommSocket());
        const int rc = adapter->socket->OpenAndBindSocket(row->address, "255.255.255.255",
                                                          gvcp::kPort, true, m_timeout);
        if (rc != GC_ERR_SUCCESS) {
            HLogger::Error("GenTL::HALGev::OpenInterface failed to open and bind socket");
            return ReportError(GC_ERR_IO,
                               "GenTL::HALGev::OpenInterface failed to open and bind socket");
        }
        adapter->id = row->id;
        adapter->adapterId = row->id;
        adapter->localAddress = row->address;
        *hAdapter = ToOpaque(adapter.release());
        return GC_ERR_SUCCESS;
    } catch (const std::bad_alloc& e) {
        HLogger::Error(
            loc::al("GenTL::HALGev::OpenInterface bad_alloc caught: {0}", e.what()).c_str());
        return detail::ReportBareError(GC_ERR_OUT_OF_MEMORY);
    }
}

int HALGev::CloseInterface(void* hAdapter) const {
    AdapterHandle* adapter = AsAdapter(hAdapter);
    if (adapter == nullptr) {
        return InvalidHandle();
    }
    if (adapter->broadcastSocket) {
        adapter->broadcastSocket->Close();
    }
    if (adapter->socket) {
        adapter->socket->Close();
    }
    delete adapter;
    return GC_ERR_SUCCESS;
}

// --- Discovery and ForceIP --------------------------------------------------------

int HALGev::GetDevices(void* hAdapter, std::vector<DiscoveredDevice>& devices,
                       long timeoutMs) const {
    AdapterHandle* adapter = AsAdapter(hAdapter);
    if (adapter == nullptr) {
        return InvalidHandle();
    }
    // What the socket gets is all that the discovery waits; the collectors
    // count down from the same value.
    const int socketTimeout = ToSocketTimeout(timeoutMs);
    if (socketTimeout == 0) {
        // 0 is no time-out to the socket: a silent network would hold the
        // process-wide lock below for good.
        return ReportError(GC_ERR_INVALID_PARAMETER,
                           "iTimeout is a multiple of 2^32 ms, no time-out to the socket");
    }
    // One discovery at a time in the process.
    static boost::mutex localMtx;
    boost::mutex::scoped_lock lock(localMtx);

    const auto dropBroadcastSocket = [adapter] {
        if (adapter->broadcastSocket) {
            adapter->broadcastSocket->Close();
        }
        adapter->broadcastSocket.reset();
    };

    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    adapter->broadcastSocket.reset(new CommSocket());
    int rc = adapter->broadcastSocket->OpenAndBindSocket(any, "255.255.255.255", gvcp::kPort, true,
                                                         socketTimeout);
    if (rc != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGev::GetDevices Failed to set up broadcast socket.");
        adapter->broadcastSocket.reset();
        return rc;
    }

    std::uint8_t command[gvcp::kHeaderSize] = {};
    gvcp::PutCommandHeader(command, sizeof command, gvcp::kFlagAckBroadcast, gvcp::kDiscoveryCmd, 0,
                           GetReqID(adapter));
    rc = adapter->socket->Send(reinterpret_cast<const char*>(command), sizeof command, 0);
    if (rc != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGev::GetDevices Send Failed", rc);
        dropBroadcastSocket();
        return rc;
    }
    int formerTimeout = 0;
    rc = adapter->socket->SetTimeout(socketTimeout, formerTimeout);
    if (rc != GC_ERR_SUCCESS) {
        HLogger::Error(loc::al("GenTL::HALGev::GetDevices SetTimeout Failed setting timeout {0}",
                               std::to_string(timeoutMs).c_str())
                           .c_str());
        dropBroadcastSocket();
        return rc;
    }

    adapter->deviceList.clear();
    boost::thread onAdapterSocket(ProcessDiscoveryAck, adapter, std::ref(devices),
                                  long{socketTimeout}, false);
    boost::thread onBroadcastSocket(ProcessDiscoveryAck, adapter, std::ref(devices),
                                    long{socketTimeout}, true);
    onAdapterSocket.join();
    onBroadcastSocket.join();
    dropBroadcastSocket();

    int unused = 0;
    if (adapter->socket->SetTimeout(formerTimeout, unused) != GC_ERR_SUCCESS) {
        HLogger::Error(loc::al("GenTL::HALGev::GetDevices SetTimeout Failed setting timout {0}",
                               std::to_string(formerTimeout).c_str())
                           .c_str());
    }
    return UnicastDiscovery(adapter, command, sizeof command, devices, socketTimeout);
}

int HALGev::ForceIP(void* hAdapter, unsigned short macHigh, unsigned macLow, unsigned ip,
                    unsigned subnet, unsigned gateway) const {
    AdapterHandle* adapter = AsAdapter(hAdapter);
    if (adapter == nullptr) {
        return InvalidHandle();
    }
    std::uint8_t command[64] = {};
    const std::uint16_t requestId = GetReqID(adapter);
    // The length field goes out as 0 although 56 bytes follow.
    gvcp::PutCommandHeader(command, sizeof command, gvcp::kFlagAckBroadcast, gvcp::kForceIpCmd, 0,
                           requestId);
    gvcp::PutU16(command, sizeof command, 10, macHigh);
    gvcp::PutU32(command, sizeof command, 12, macLow);
    gvcp::PutU32(command, sizeof command, 28, ip);
    gvcp::PutU32(command, sizeof command, 44, subnet);
    gvcp::PutU32(command, sizeof command, 60, gateway);

    int rc = adapter->socket->Send(reinterpret_cast<const char*>(command), sizeof command, 0);
    if (rc != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGev::ForceIP Send Failed", rc);
        return rc;
    }
    // Not put back: the adapter socket keeps 2 s until the next discovery.
    int former = 0;
    rc = adapter->socket->SetTimeout(kOneShotAckTimeoutMs, former);
    if (rc != GC_ERR_SUCCESS) {
        HLogger::Error(loc::al("GenTL::HALGev::ForceIp SetTimeout Failed setting timout {0}",
                               std::to_string(kOneShotAckTimeoutMs).c_str())
                           .c_str());
        return rc;
    }
    return AwaitOneShotAck(adapter, gvcp::kForceIpAck, requestId,
                           "GenTL::HALGev::ForceIp Receie Failed",
                           "GenTL::HALGev::ForceIp Ack is invalid",
                           "GenTL::HALGev::ForceIp Ack is invalid: ", "ForceIP");
}

int HALGev::AddUnicastDiscoveryDevice(void* hAdapter, unsigned ip) {
    AdapterHandle* adapter = AsAdapter(hAdapter);
    if (adapter == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "failed to cast hInterface to AdapterHandle*");
    }
    boost::mutex::scoped_lock lock(adapter->unicastLock);
    adapter->unicastList.insert(ip);
    return GC_ERR_SUCCESS;
}

int HALGev::RemoveUnicastDiscoveryDevice(void* hAdapter, unsigned ip) {
    AdapterHandle* adapter = AsAdapter(hAdapter);
    if (adapter == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "failed to cast hInterface to AdapterHandle*");
    }
    boost::mutex::scoped_lock lock(adapter->unicastLock);
    // There is no removal of a single address: anything but the clear-all
    // value is added, as callers of this operation have always seen it.
    if (ip == 0xFFFFFFFFu) {
        adapter->unicastList.clear();
    } else {
        adapter->unicastList.insert(ip);
    }
    return GC_ERR_SUCCESS;
}

int HALGev::GetUnicastDiscoveryDevices(void* hAdapter, unsigned* list, unsigned* size) {
    AdapterHandle* adapter = AsAdapter(hAdapter);
    if (adapter == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "failed to cast hInterface to AdapterHandle*");
    }
    if (list == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "null discovery list specified");
    }
    if (size == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "null discovery list size specified");
    }
    boost::mutex::scoped_lock lock(adapter->unicastLock);
    unsigned written = 0;
    for (const unsigned ip : adapter->unicastList) {
        if (written >= *size) {
            break;
        }
        list[written++] = ntohl(ip);
    }
    *size = written;
    return GC_ERR_SUCCESS;
}

// --- Devices ----------------------------------------------------------------------

int HALGev::OpenDevice(void* hAdapter, const std::string& id, void** hDevice) const {
    AdapterHandle* adapter = AsAdapter(hAdapter);
    if (adapter == nullptr) {
        return InvalidHandle();
    }
    if (hDevice == nullptr) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "hDevice==nullptr");
    }
    DeviceData found;
    {
        boost::mutex::scoped_lock lock(adapter->deviceListLock);
        const auto row = std::find_if(adapter->deviceList.begin(), adapter->deviceList.end(),
                                      [&id](const DeviceData& data) { return data.id == id; });
        if (row == adapter->deviceList.end()) {
            return detail::ReportBareError(GC_ERR_INVALID_ID);
        }
        found = *row;
    }
    const unsigned long retries = CurrentRetries(*this);
    try {
        std::unique_ptr<DeviceHandle> device(new DeviceHandle());
        {
            boost::mutex::scoped_lock lock(device->stateLock);
            device->timeoutLimit = retries + 1;
        }
        const std::string deviceIp = DottedIp(PayloadIp(found));
        device->socket.reset(new CommSocket());
        const int rc = device->socket->OpenAndBindSocket(adapter->localAddress, deviceIp,
                                                         gvcp::kPort, false, m_timeout);
        if (rc != GC_ERR_SUCCESS) {
            HLogger::Error("GenTL::HALGev::OpenDevice failed to open and bind socket");
            return ReportError(GC_ERR_IO,
                               "GenTL::HALGev::OpenDevice failed to open and bind socket: " +
                                   std::to_string(rc));
        }
        device->id = found.id;
        device->discoveryPayload = found.discoveryPayload;
        {
            // The device's ids go on from the adapter's, discovery's included.
            boost::mutex::scoped_lock adapterLock(adapter->requestIdLock);
            boost::mutex::scoped_lock deviceLock(device->requestIdLock);
            device->requestId = adapter->requestId;
        }
        HLogger::Info(loc::al("GenTL::HALGev Using GVCP numRetries: {0}, GVCP timeout: {1}",
                              std::to_string(retries).c_str(), std::to_string(m_timeout).c_str())
                          .c_str());
        *hDevice = ToOpaque(device.release());
        return GC_ERR_SUCCESS;
    } catch (const std::bad_alloc& e) {
        HLogger::Error(
            loc::al("GenTL::HALGev::OpenDevice bad_alloc caught: {0}", e.what()).c_str());
        return detail::ReportBareError(GC_ERR_OUT_OF_MEMORY);
    }
}

int HALGev::SetDeviceTimeout(void* hDevice, int ms) const {
    DeviceHandle* device = AsDevice(hDevice);
    if (device == nullptr) {
        return InvalidHandle();
    }
    if (m_timeoutOverridden) {
        return GC_ERR_SUCCESS;
    }
    int former = 0;
    const int rc = device->socket->SetTimeout(ms, former);
    if (rc != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGev::SetDeviceTimeout failed", rc);
    }
    return rc;
}

int HALGev::CloseDevice(void* hDevice) const {
    DeviceHandle* device = AsDevice(hDevice);
    if (device == nullptr) {
        return InvalidHandle();
    }
    if (device->socket) {
        device->socket->Close();
    }
    delete device;
    return GC_ERR_SUCCESS;
}

int HALGev::CloseSocket(void* hDevice) const {
    DeviceHandle* device = AsDevice(hDevice);
    if (device == nullptr) {
        return InvalidHandle();
    }
    if (device->socket) {
        device->socket->Close();
    }
    return GC_ERR_SUCCESS;
}

int HALGev::IsConnected(void*, std::string, bool&) const {
    return detail::ReportBareError(GC_ERR_NOT_AVAILABLE);
}

int HALGev::IsConnected(void* hDevice, bool& connected) const {
    DeviceHandle* device = AsDevice(hDevice);
    if (device == nullptr) {
        return InvalidHandle();
    }
    boost::mutex::scoped_lock lock(device->stateLock);
    connected = device->connected;
    return GC_ERR_SUCCESS;
}

int HALGev::SetConnected(void* hDevice, bool connected) const {
    DeviceHandle* device = AsDevice(hDevice);
    if (device == nullptr) {
        return InvalidHandle();
    }
    boost::mutex::scoped_lock lock(device->stateLock);
    device->connected = connected;
    return GC_ERR_SUCCESS;
}

// --- Register and memory transactions -----------------------------------------------

int HALGev::ReadReg(void* hDevice, unsigned address, unsigned& value) const {
    DeviceHandle* device = AsDevice(hDevice);
    if (device == nullptr) {
        return InvalidHandle();
    }
    boost::mutex::scoped_lock lock(device->transactionLock);
    std::uint8_t command[12] = {};
    const std::uint16_t requestId = GetReqID(device);
    gvcp::PutCommandHeader(command, sizeof command, gvcp::kFlagAckRequired, gvcp::kReadRegCmd, 4,
                           requestId);
    gvcp::PutU32(command, sizeof command, 8, address);
    std::uint8_t ack[kMaxAckSize] = {};
    GvcpTransaction transaction(*device, kReadRegOp, CurrentRetries(*this));
    const int rc = transaction.Run(command, sizeof command, requestId, address, ack, sizeof ack);
    if (rc == GC_ERR_SUCCESS && transaction.Delivered()) {
        value = gvcp::GetU32(ack, sizeof ack, 8);
    }
    return rc;
}

int HALGev::WriteReg(void* hDevice, unsigned address, unsigned value) const {
    DeviceHandle* device = AsDevice(hDevice);
    if (device == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "failed to cast hDevice to DeviceHandle*");
    }
    boost::mutex::scoped_lock lock(device->transactionLock);
    std::uint8_t command[16] = {};
    const std::uint16_t requestId = GetReqID(device);
    gvcp::PutCommandHeader(command, sizeof command, gvcp::kFlagAckRequired, gvcp::kWriteRegCmd, 8,
                           requestId);
    gvcp::PutU32(command, sizeof command, 8, address);
    gvcp::PutU32(command, sizeof command, 12, value);
    std::uint8_t ack[kMaxAckSize] = {};
    GvcpTransaction transaction(*device, kWriteRegOp, CurrentRetries(*this));
    return transaction.Run(command, sizeof command, requestId, address, ack, sizeof ack);
}

int HALGev::ReadRegBlock(void* hDevice, unsigned address, unsigned* values,
                         std::size_t count) const {
    DeviceHandle* device = AsDevice(hDevice);
    if (device == nullptr) {
        return InvalidHandle();
    }
    boost::mutex::scoped_lock lock(device->transactionLock);
    if (count > kMaxReadRegs) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "count>" + std::to_string(kMaxReadRegs));
    }
    if (values == nullptr && count != 0) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "values==nullptr");
    }
    const std::size_t payload = 4 * count;
    std::uint8_t command[gvcp::kHeaderSize + gvcp::kMaxBlockPayload] = {};
    const std::uint16_t requestId = GetReqID(device);
    gvcp::PutCommandHeader(command, sizeof command, gvcp::kFlagAckRequired, gvcp::kReadRegCmd,
                           static_cast<std::uint16_t>(payload), requestId);
    for (std::size_t i = 0; i < count; ++i) {
        gvcp::PutU32(command, sizeof command, gvcp::kHeaderSize + 4 * i,
                     address + static_cast<unsigned>(4 * i));
    }
    GvcpOperation op = kReadRegBlockOp;
    op.ackLength = static_cast<std::uint16_t>(payload);
    op.ackBytes = gvcp::kHeaderSize + payload;
    std::uint8_t ack[kMaxAckSize] = {};
    GvcpTransaction transaction(*device, op, CurrentRetries(*this));
    const int rc =
        transaction.Run(command, gvcp::kHeaderSize + payload, requestId, address, ack, sizeof ack);
    if (rc == GC_ERR_SUCCESS && transaction.Delivered()) {
        for (std::size_t i = 0; i < count; ++i) {
            values[i] = gvcp::GetU32(ack, sizeof ack, gvcp::kHeaderSize + 4 * i);
        }
    }
    return rc;
}

int HALGev::WriteRegBlock(void* hDevice, unsigned address, const unsigned* values,
                          std::size_t count) const {
    DeviceHandle* device = AsDevice(hDevice);
    if (device == nullptr) {
        return InvalidHandle();
    }
    boost::mutex::scoped_lock lock(device->transactionLock);
    if (count > kMaxWriteRegs) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "count>" + std::to_string(kMaxWriteRegs));
    }
    if (values == nullptr && count != 0) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "values==nullptr");
    }
    const std::size_t payload = 8 * count;
    std::uint8_t command[gvcp::kHeaderSize + gvcp::kMaxBlockPayload] = {};
    const std::uint16_t requestId = GetReqID(device);
    gvcp::PutCommandHeader(command, sizeof command, gvcp::kFlagAckRequired, gvcp::kWriteRegCmd,
                           static_cast<std::uint16_t>(payload), requestId);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t at = gvcp::kHeaderSize + 8 * i;
        gvcp::PutU32(command, sizeof command, at, address + static_cast<unsigned>(4 * i));
        // Values come in wire order already.
        std::memcpy(command + at + 4, &values[i], 4);
    }
    std::uint8_t ack[kMaxAckSize] = {};
    GvcpTransaction transaction(*device, kWriteRegBlockOp, CurrentRetries(*this));
    return transaction.Run(command, gvcp::kHeaderSize + payload, requestId, address, ack,
                           sizeof ack);
}

int HALGev::ReadMem(void* hDevice, unsigned address, char* data, std::size_t length) const {
    DeviceHandle* device = AsDevice(hDevice);
    if (device == nullptr) {
        return InvalidHandle();
    }
    boost::mutex::scoped_lock lock(device->transactionLock);
    if (length > gvcp::kMaxMemLength) {
        return GC_ERR_INVALID_PARAMETER;
    }
    if (data == nullptr && length != 0) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "data==nullptr");
    }
    const std::size_t padded = gvcp::Padded(length);
    std::uint8_t command[16] = {};
    const std::uint16_t requestId = GetReqID(device);
    gvcp::PutCommandHeader(command, sizeof command, gvcp::kFlagAckRequired, gvcp::kReadMemCmd, 8,
                           requestId);
    gvcp::PutU32(command, sizeof command, 8, address);
    gvcp::PutU16(command, sizeof command, 14, static_cast<std::uint16_t>(padded));
    GvcpOperation op = kReadMemOp;
    op.ackLength = static_cast<std::uint16_t>(padded + 4);
    op.ackBytes = padded + 12;
    std::uint8_t ack[kMaxAckSize] = {};
    GvcpTransaction transaction(*device, op, CurrentRetries(*this));
    const int rc = transaction.Run(command, sizeof command, requestId, address, ack, sizeof ack);
    if (rc == GC_ERR_SUCCESS && transaction.Delivered() && length != 0) {
        std::memcpy(data, ack + 12, length);
    }
    return rc;
}

int HALGev::WriteMem(void* hDevice, unsigned address, const char* data, std::size_t length) const {
    DeviceHandle* device = AsDevice(hDevice);
    if (device == nullptr) {
        return InvalidHandle();
    }
    boost::mutex::scoped_lock lock(device->transactionLock);
    if (length > gvcp::kMaxMemLength) {
        return GC_ERR_INVALID_PARAMETER;
    }
    if (data == nullptr && length != 0) {
        return ReportError(GC_ERR_INVALID_PARAMETER, "data==nullptr");
    }
    const std::size_t padded = gvcp::Padded(length);
    std::uint8_t command[12 + gvcp::kMaxMemLength] = {};
    const std::uint16_t requestId = GetReqID(device);
    gvcp::PutCommandHeader(command, sizeof command, gvcp::kFlagAckRequired, gvcp::kWriteMemCmd,
                           static_cast<std::uint16_t>(padded + 4), requestId);
    gvcp::PutU32(command, sizeof command, 8, address);
    if (length != 0) {
        std::memcpy(command + 12, data, length);
    }
    GvcpOperation op = kWriteMemOp;
    op.writtenCount = static_cast<int>(padded);
    std::uint8_t ack[kMaxAckSize] = {};
    GvcpTransaction transaction(*device, op, CurrentRetries(*this));
    return transaction.Run(command, padded + 12, requestId, address, ack, sizeof ack);
}

// --- Facts of devices ----------------------------------------------------------------

int HALGev::GetModelName(void* hDevice, std::string& name) const {
    return DeviceFact(hDevice, name, StringField(kModel));
}
int HALGev::GetModelName(void* hAdapter, std::string id, std::string& name) const {
    return DeviceFactById(hAdapter, id, name, StringField(kModel));
}
int HALGev::GetVendorName(void* hDevice, std::string& name) const {
    return DeviceFact(hDevice, name, StringField(kVendor));
}
int HALGev::GetVendorName(void* hAdapter, std::string id, std::string& name) const {
    return DeviceFactById(hAdapter, id, name, StringField(kVendor));
}
int HALGev::GetSerialNumber(void* hDevice, std::string& serial) const {
    return DeviceFact(hDevice, serial, StringField(kSerial));
}
int HALGev::GetSerialNumber(void* hAdapter, std::string id, std::string& serial) const {
    return DeviceFactById(hAdapter, id, serial, StringField(kSerial));
}
int HALGev::GetUserDefinedName(void* hDevice, std::string& name) const {
    return DeviceFact(hDevice, name, StringField(kUserName));
}
int HALGev::GetUserDefinedName(void* hAdapter, std::string id, std::string& name) const {
    return DeviceFactById(hAdapter, id, name, StringField(kUserName));
}
int HALGev::GetDeviceVersion(void* hDevice, std::string& version) const {
    return DeviceFact(hDevice, version, StringField(kVersion));
}
int HALGev::GetDeviceVersion(void* hAdapter, std::string id, std::string& version) const {
    return DeviceFactById(hAdapter, id, version, StringField(kVersion));
}

int HALGev::GetDevMACAddress(void* hAdapter, std::string id, long& mac) const {
    return DeviceFactById(hAdapter, id, mac, PayloadMac);
}
int HALGev::GetDevIPAddress(void* hAdapter, std::string id, long& ip) const {
    return DeviceFactById(hAdapter, id, ip,
                          [](const DiscoveryPayload& p) { return PayloadHostU32(p, kIp); });
}
int HALGev::GetDevSubnetMask(void* hAdapter, std::string id, long& mask) const {
    return DeviceFactById(hAdapter, id, mask,
                          [](const DiscoveryPayload& p) { return PayloadHostU32(p, kSubnet); });
}
int HALGev::GetDevDefaultGateway(void* hAdapter, std::string id, long& gateway) const {
    return DeviceFactById(hAdapter, id, gateway,
                          [](const DiscoveryPayload& p) { return PayloadHostU32(p, kGateway); });
}
// By id the field is read as a number; by handle (below) as it lies in
// memory. Both readings are relied upon.
int HALGev::GetDevIpConfigPersistentIp(void* hAdapter, std::string id, bool& on) const {
    return DeviceFactById(hAdapter, id, on, [](const DiscoveryPayload& p) {
        return (PayloadHostU32(p, kIpConfig) & 1) != 0;
    });
}
int HALGev::GetDevIpConfigDHCP(void* hAdapter, std::string id, bool& on) const {
    return DeviceFactById(hAdapter, id, on, [](const DiscoveryPayload& p) {
        return (PayloadHostU32(p, kIpConfig) & 2) != 0;
    });
}
int HALGev::GetDevIpConfigLLA(void* hAdapter, std::string id, bool& on) const {
    return DeviceFactById(hAdapter, id, on, [](const DiscoveryPayload& p) {
        return (PayloadHostU32(p, kIpConfig) & 4) != 0;
    });
}

int HALGev::GetDevMACAddress(void* hDevice, long& mac) const {
    return DeviceFact(hDevice, mac, PayloadMac);
}
int HALGev::GetDevIPAddress(void* hDevice, long& ip) const {
    return DeviceFact(hDevice, ip,
                      [](const DiscoveryPayload& p) { return PayloadHostU32(p, kIp); });
}
int HALGev::GetDevSubnetMask(void* hDevice, long& mask) const {
    return DeviceFact(hDevice, mask,
                      [](const DiscoveryPayload& p) { return PayloadHostU32(p, kSubnet); });
}
int HALGev::GetDevDefaultGateway(void* hDevice, long& gateway) const {
    return DeviceFact(hDevice, gateway,
                      [](const DiscoveryPayload& p) { return PayloadHostU32(p, kGateway); });
}
int HALGev::GetDevIpConfigPersistentIp(void* hDevice, bool& on) const {
    return DeviceFact(hDevice, on, [](const DiscoveryPayload& p) {
        return (PayloadRawU32(p, kIpConfig) & 1) != 0;
    });
}
int HALGev::GetDevIpConfigDHCP(void* hDevice, bool& on) const {
    return DeviceFact(hDevice, on, [](const DiscoveryPayload& p) {
        return (PayloadRawU32(p, kIpConfig) & 2) != 0;
    });
}
int HALGev::GetDevIpConfigLLA(void* hDevice, bool& on) const {
    return DeviceFact(hDevice, on, [](const DiscoveryPayload& p) {
        return (PayloadRawU32(p, kIpConfig) & 4) != 0;
    });
}

// --- Facts of adapters -----------------------------------------------------------------

int HALGev::GetInterfaceId(void* hAdapter, std::string& id) const {
    AdapterHandle* adapter = AsAdapter(hAdapter);
    if (adapter == nullptr) {
        return InvalidHandle();
    }
    id = adapter->adapterId;
    return GC_ERR_SUCCESS;
}

int HALGev::GetIPAddress(void* hAdapter, long& ip) const {
    AdapterHandle* adapter = AsAdapter(hAdapter);
    if (adapter == nullptr) {
        return InvalidHandle();
    }
    ip = static_cast<long>(ntohl(adapter->localAddress.sin_addr.s_addr));
    return GC_ERR_SUCCESS;
}

int HALGev::GetMACAddress(void* hAdapter, long& mac) const {
    AdapterHandle* adapter = AsAdapter(hAdapter);
    if (adapter == nullptr) {
        return InvalidHandle();
    }
    const int rc = AdapterTable::FindMac(adapter->localAddress, mac);
    return rc == GC_ERR_SUCCESS ? rc : detail::ReportBareError(rc);
}

int HALGev::GetSubnetMask(void* hAdapter, long& mask) const {
    AdapterHandle* adapter = AsAdapter(hAdapter);
    if (adapter == nullptr) {
        return InvalidHandle();
    }
    const int rc = AdapterTable::FindNetmask(adapter->localAddress, mask);
    return rc == GC_ERR_SUCCESS ? rc : detail::ReportBareError(rc);
}

int HALGev::GetPort(void* handle, unsigned short& port) const {
    BaseHandle* base = handle ? AsBase(handle) : nullptr;
    if (base == nullptr || !base->socket) {
        return InvalidHandle();
    }
    port = ntohs(base->socket->LocalAddress().sin_port);
    return GC_ERR_SUCCESS;
}

int HALGev::GetDevPort(void* handle, unsigned short& port) const {
    BaseHandle* base = handle ? AsBase(handle) : nullptr;
    if (base == nullptr || !base->socket) {
        return InvalidHandle();
    }
    port = ntohs(base->socket->RemoteAddress().sin_port);
    return GC_ERR_SUCCESS;
}

// --- Others -------------------------------------------------------------------------------

int HALGev::GetTimestampTickFrequency(void* hAdapter, std::string id,
                                      unsigned long& frequency) const {
    // The registers are read through a record of its own whose socket is
    // never opened, so a device that is not open yields no value: the reads
    // fail at the send (the open device reads the registers itself). The
    // record that OpenDevice makes is closed again.
    std::unique_ptr<DeviceHandle> probe(new DeviceHandle());
    probe->socket.reset(new CommSocket());
    void* opened = nullptr;
    int rc = OpenDevice(hAdapter, id, &opened);
    if (rc != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGev::OpenInterface failed to open and bind socket", rc);
        return ReportError(rc, "failed to open device ID=" + id + " because device is not found");
    }
    const auto closeOpened = [this, opened] { CloseDevice(opened); };
    unsigned high = 0;
    unsigned low = 0;
    rc = ReadReg(ToOpaque(probe.get()), sk_addrTimestampTickHigh, high);
    if (rc != GC_ERR_SUCCESS) {
        HLogger::Error("anonymous::GetTimestampTickFrequency ReadReg  failed with", rc);
        ReportError(rc, ":IGNORABLE:failed to write to Timestamp Tick Frequency (0x093C) register");
        closeOpened();
        return rc;
    }
    rc = ReadReg(ToOpaque(probe.get()), sk_addrTimestampTickLow, low);
    if (rc != GC_ERR_SUCCESS) {
        HLogger::Error("anonymous::GetTimestampTickFrequency ReadReg  failed with", rc);
        ReportError(rc, ":IGNORABLE:failed to read Timestamp Tick Frequency (0x0940) register");
        closeOpened();
        return rc;
    }
    frequency = (static_cast<unsigned long>(high) << 32) | low;
    closeOpened();
    return GC_ERR_SUCCESS;
}

int HALGev::SendPacketResend(void* hDevice, unsigned long blockId, unsigned firstPacket,
                             unsigned lastPacket, bool extended) const {
    DeviceHandle* device = AsDevice(hDevice);
    if (device == nullptr) {
        return InvalidHandle();
    }
    std::uint8_t command[28] = {};
    const std::uint16_t requestId = GetReqID(device);
    std::size_t length = 20;
    if (extended) {
        gvcp::PutCommandHeader(command, sizeof command, gvcp::kFlagExtendedId,
                               gvcp::kPacketResendCmd, 0x0014, requestId);
        gvcp::PutU32(command, sizeof command, 8, 0);
        gvcp::PutU32(command, sizeof command, 12, firstPacket);
        gvcp::PutU32(command, sizeof command, 16, lastPacket);
        gvcp::PutU32(command, sizeof command, 20, static_cast<std::uint32_t>(blockId >> 32));
        gvcp::PutU32(command, sizeof command, 24, static_cast<std::uint32_t>(blockId));
        length = 28;
    } else {
        gvcp::PutCommandHeader(command, sizeof command, 0x00, gvcp::kPacketResendCmd, 0x000C,
                               requestId);
        gvcp::PutU16(command, sizeof command, 8, 0);
        gvcp::PutU16(command, sizeof command, 10, static_cast<std::uint16_t>(blockId));
        gvcp::PutU32(command, sizeof command, 12, firstPacket);
        gvcp::PutU32(command, sizeof command, 16, lastPacket);
    }
    const int rc = device->socket ? device->socket->Send(reinterpret_cast<const char*>(command),
                                                         static_cast<int>(length), 0)
                                  : GC_ERR_IO;
    if (rc != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGev::SendPacketResend Failed", rc);
        return ReportError(rc, "GenTL::HALGev::SendPacketResend failed: " + std::to_string(rc));
    }
    return GC_ERR_SUCCESS;
}

int HALGev::SendActionCommand(void* hDevice, unsigned deviceKey, unsigned groupKey,
                              unsigned groupMask, unsigned long scheduledTime) const {
    DeviceHandle* device = AsDevice(hDevice);
    if (device == nullptr) {
        return InvalidHandle();
    }
    boost::mutex::scoped_lock lock(device->transactionLock);
    std::uint8_t command[28] = {};
    const std::uint16_t requestId = GetReqID(device);
    const bool scheduled = scheduledTime != 0;
    // The length field goes out as 0 in both forms.
    gvcp::PutCommandHeader(command, sizeof command,
                           gvcp::kFlagAckRequired | (scheduled ? gvcp::kFlagScheduledAction : 0),
                           gvcp::kActionCmd, 0, requestId);
    gvcp::PutU32(command, sizeof command, 8, deviceKey);
    gvcp::PutU32(command, sizeof command, 12, groupKey);
    gvcp::PutU32(command, sizeof command, 16, groupMask);
    std::size_t length = 20;
    if (scheduled) {
        gvcp::PutU32(command, sizeof command, 20, static_cast<std::uint32_t>(scheduledTime >> 32));
        gvcp::PutU32(command, sizeof command, 24, static_cast<std::uint32_t>(scheduledTime));
        length = 28;
    }
    int rc =
        device->socket->Send(reinterpret_cast<const char*>(command), static_cast<int>(length), 0);
    if (rc != GC_ERR_SUCCESS) {
        HLogger::Error("GenTL::HALGev::SendActionCommand Failed", rc);
        return rc;
    }
    // Not put back: the control socket keeps 2 s until the next
    // SetDeviceTimeout.
    int former = 0;
    rc = device->socket->SetTimeout(kOneShotAckTimeoutMs, former);
    if (rc != GC_ERR_SUCCESS) {
        HLogger::Error(
            loc::al("GenTL::HALGev::SendActionCommand SetTimeout Failed setting timeout {0}",
                    std::to_string(kOneShotAckTimeoutMs).c_str())
                .c_str());
        return rc;
    }
    return AwaitOneShotAck(
        device, gvcp::kActionAck, requestId, "GenTL::HALGev::SendActionCommand Receive Failed",
        "GenTL::HALGev::SendActionCommand Ack is invalid",
        "GenTL::HALGev::SendActionCommand Ack is invalid: ", "SendActionCommand");
}

} // namespace GenTL
