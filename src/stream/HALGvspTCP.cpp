#include "stream/HALGvspTCP.h"

#include <arpa/inet.h>

#include <string>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/thread_time.hpp>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/HLogger.h"
#include "api/localization.h"
#include "hal/DeviceHandle.h"
#include "hal/IHALGev.h"
#include "hal/SocketHelper.h"

namespace GenTL {

namespace {

/// Largest finite wait of WaitForNextLeader, ms.
constexpr unsigned long kMaxLeaderWaitMs = 0xFFFFFFFFul;

bool HasControl(int accessMode) {
    return accessMode == DEVICE_ACCESS_CONTROL || accessMode == DEVICE_ACCESS_EXCLUSIVE;
}

/// The control socket of an open device; null for anything else.
const CommSocket* ControlSocket(void* device) {
    DeviceHandle* handle = AsDevice(device);
    return handle != nullptr ? handle->socket.get() : nullptr;
}

int NoDevice() {
    return ReportError(GC_ERR_INVALID_HANDLE, "failed to cast hDevice to DeviceHandle*");
}

} // namespace

std::uint32_t HALGvspTCP::m_gevVersion = 0;
GvspCapabilities HALGvspTCP::m_capabilities;
boost::mutex HALGvspTCP::m_cacheMutex;

HALGvspTCP::HALGvspTCP() : HALGvspTCP(nullptr) {}

HALGvspTCP::HALGvspTCP(std::shared_ptr<TCPSocket> socket)
    : m_socket(socket ? std::move(socket) : std::make_shared<TCPSocket>()) {}

HALGvspTCP::~HALGvspTCP() {
    // Free every waiter and let them leave before the wait objects go.
    m_leader.Close();
    // A layer deleted without Stop must not leak its descriptor.
    m_socket->Close();
}

int HALGvspTCP::Start(IHALGev* hal, void* device, StreamStartParams& params) {
    if (hal == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "hal==nullptr");
    }
    ResetWaitForNextLeader();

    unsigned capabilities = 0;
    if (const int rc = hal->ReadReg(device, sk_addrGvspCaps, capabilities)) {
        HLogger::Error(
            loc::al("GenTL::HALGvsp::Start ReadReg {0}", std::to_string(sk_addrGvspCaps).c_str())
                .c_str());
        return ChainError(rc);
    }
    {
        boost::lock_guard<boost::mutex> lock(m_cacheMutex);
        m_capabilities.word = capabilities;
    }
    if (!HasControl(params.accessMode)) {
        // A stream over TCP has no listener: only the controlling
        // application can move the camera's stream to itself.
        return ReportError(GC_ERR_RESOURCE_IN_USE, "a stream over TCP needs control of the device");
    }

    sockaddr_in host{};
    if (const int rc = GetHostAddrTCP(device, host)) {
        HLogger::Error("GenTL::HALGvsp::Start WriteReg SCDA");
        return ChainError(rc);
    }
    if (const int rc = hal->WriteReg(device, sk_addrScda, ntohl(host.sin_addr.s_addr))) {
        HLogger::Error("GenTL::HALGvsp::Start WriteReg SCDA");
        return ChainError(rc);
    }
    m_socket->SetFirstDataCallback([this] { SignalNextLeader(); });

    sockaddr_in camera{};
    if (const int rc = GetServerAddrTCP(device, camera)) {
        HLogger::Error("GenTL::HALGvsp::Start WriteReg SCP");
        return ChainError(rc);
    }
    camera.sin_port = htons(sk_gvspTcpPort);
    if (const int rc = hal->WriteReg(device, sk_addrScp, sk_gvspTcpPort)) {
        HLogger::Error("GenTL::HALGvsp::Start WriteReg SCP");
        return ChainError(rc);
    }
    // A connection left open by a stop that the camera refused goes first.
    m_socket->Close();
    if (const int rc = m_socket->OpenAndConnectSocket(camera)) {
        HLogger::Error("GenTL::HALGvsp::Start OpenAndConnectSocket");
        m_socket->Close();
        return ChainError(rc);
    }
    return GC_ERR_SUCCESS;
}

int HALGvspTCP::Stop(IHALGev* hal, void* device, unsigned int /*packetSize*/, int accessMode) {
    if (hal == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "hal==nullptr");
    }
    if (HasControl(accessMode)) {
        const int rc = hal->WriteReg(device, sk_addrScp, 0);
        if (rc == GC_ERR_TIMEOUT) {
            // A camera that is gone must not keep the connection open.
            HLogger::Error("GenTL::HALGvsp::Stop WriteReg Timed out SCP");
        } else if (rc != GC_ERR_SUCCESS) {
            HLogger::Error("GenTL::HALGvsp::Stop WriteReg SCP");
            return ChainError(rc);
        }
    }
    m_socket->Close();
    return GC_ERR_SUCCESS;
}

int HALGvspTCP::ConfigureExtendedId(IHALGev* hal, void* device, bool legacyRequested,
                                    bool& extendedId) {
    boost::lock_guard<boost::mutex> lock(m_cacheMutex);
    return ConfigureExtendedIdHelper(hal, device, legacyRequested, extendedId, m_gevVersion,
                                     m_capabilities);
}

int HALGvspTCP::GetServerAddrTCP(void* device, sockaddr_in& address) {
    const CommSocket* control = ControlSocket(device);
    if (control == nullptr) {
        return NoDevice();
    }
    address = control->RemoteAddress();
    return GC_ERR_SUCCESS;
}

int HALGvspTCP::GetHostAddrTCP(void* device, sockaddr_in& address) {
    const CommSocket* control = ControlSocket(device);
    if (control == nullptr) {
        return NoDevice();
    }
    address = control->LocalAddress();
    return GC_ERR_SUCCESS;
}

int HALGvspTCP::GetNextPacket(char* header, int headerSize, int& headerReceived, char* data,
                              int dataSize, int& received, unsigned long timeout) {
    headerReceived = headerSize;
    m_frameBegins = headerSize > 0;
    return m_socket->GetNextResult(data, dataSize, received, header,
                                   static_cast<unsigned long>(headerSize > 0 ? headerSize : 0),
                                   static_cast<int>(timeout));
}

void HALGvspTCP::SignalNextLeader() {
    // A frame is read in several calls; only the one that begins it counts.
    if (m_frameBegins) {
        m_frameBegins = false;
        SetNextLeaderArrived();
    }
}

int HALGvspTCP::SetNextLeaderArrived() {
    m_leader.Arrive();
    return GC_ERR_SUCCESS;
}

int HALGvspTCP::WaitForNextLeader(unsigned long timeoutMs) {
    const bool forever = timeoutMs == static_cast<unsigned long>(GENTL_INFINITE);
    if (!forever && timeoutMs > kMaxLeaderWaitMs) {
        return ReportError(GC_ERR_INVALID_PARAMETER,
                           "iTimeout must be at most 0xFFFFFFFF or GENTL_INFINITE");
    }
    if (!m_leader.Wait(forever, timeoutMs)) {
        return ReportError(GC_ERR_TIMEOUT, "no leader arrived within the time-out");
    }
    return GC_ERR_SUCCESS;
}

int HALGvspTCP::ResetWaitForNextLeader() {
    m_leader.Reset();
    return GC_ERR_SUCCESS;
}

} // namespace GenTL
