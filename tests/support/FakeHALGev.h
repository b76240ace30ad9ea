#pragma once
// A control layer without a network, for the module and stream tests.
// Adapters and cameras are plain data that a test sets up; every call that
// matters is counted or recorded. Unknown ids and handles fail as HALGev
// does, with a recorded error. The open camera's registers and memory are
// one byte map (words big-endian, as on the wire) with a log of every
// transaction, addresses that fail on demand and a hook on register writes;
// that part is thread-safe, so that a heartbeat or a grab loop may run
// beside the test.
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "hal/IHALGev.h"

namespace kesta::test {

class FakeHALGev : public GenTL::IHALGev {
    using Str = std::string;

public:
    struct Camera {
        std::string model = "Model";
        std::string vendor = "Vendor";
        std::string serial;
        std::string userName = "User";
        std::string version = "1.0";
        long ip = 0x0A000002, mask = 0xFFFFFF00, mac = 0x0011223344, gateway = 0;
        bool dhcp = false, persistentIp = true, lla = false;
        unsigned long tickFrequency = 1000000000;
    };
    struct Adapter {
        std::string id;
        bool open = true;
    };
    /// What outlives the fake (a System deletes its control layer in Close).
    struct Log {
        std::vector<std::string> closedAdapters; ///< ids, in closing order
        bool destroyed = false;
    };
    struct ForceIpCall {
        unsigned short macHigh;
        unsigned macLow, ip, subnet, gateway;
    };
    /// One register or memory transaction.
    struct Call {
        std::string op; ///< "ReadReg", "WriteReg", "ReadRegBlock", "WriteRegBlock", ...Mem
        unsigned address;
        std::size_t length; ///< bytes for memory, registers for blocks, 4 for a register
        unsigned value;     ///< the value written by WriteReg
    };
    /// One packet resend request: block, first and last packet id.
    using Resend = std::tuple<unsigned long, unsigned, unsigned>;

    ~FakeHALGev() override {
        for (Adapter* a : adapters) {
            delete a;
        }
        log->destroyed = true;
    }

    // --- what the test sets up ---
    std::vector<std::string> interfaces;             ///< GetInterfaces' answer
    int getInterfacesResult = 0;                     ///< non-zero: GetInterfaces fails
    int openInterfaceResult = 0;                     ///< non-zero: OpenInterface fails
    int closeInterfaceResult = 0;                    ///< non-zero: CloseInterface fails
    std::vector<GenTL::DiscoveredDevice> discovered; ///< GetDevices' answer
    int getDevicesResult = 0;
    std::map<std::string, Camera> cameras; ///< facts by id; OpenDevice needs an entry
    int openDeviceResult = 0;
    int forceIpResult = 0;
    /// Replace with a test's own to read it after the fake is gone.
    Log* log = &m_ownLog;

    // --- what the test reads back ---
    std::vector<Adapter*> adapters; ///< every adapter handle made
    int getInterfacesCalls = 0, getDevicesCalls = 0, openDeviceCalls = 0, closeDeviceCalls = 0;
    long lastTimeoutMs = 0;
    int deviceTimeoutMs = -1;
    bool connected = false;
    std::vector<ForceIpCall> forceIpCalls;

    // --- the open camera's registers ---
    void SetReg(unsigned address, unsigned value) {
        std::lock_guard<std::mutex> lock(m_mutex);
        PutWordLocked(address, value);
    }
    unsigned Reg(unsigned address) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return WordLocked(address);
    }
    void SetBytes(unsigned address, const void* data, std::size_t length) {
        std::lock_guard<std::mutex> lock(m_mutex);
        PutBytesLocked(address, data, length);
    }
    std::vector<unsigned char> Bytes(unsigned address, std::size_t length) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<unsigned char> out(length);
        for (std::size_t i = 0; i < length; ++i) {
            out[i] = ByteLocked(address + i);
        }
        return out;
    }
    /// Any transaction touching address fails with code (a GC_ERR_*), or
    /// only its writes.
    void Fail(unsigned address, int code = GC_ERR_TIMEOUT, bool writesOnly = false) {
        std::lock_guard<std::mutex> lock(m_mutex);
        (writesOnly ? m_writeFailures : m_failures)[address] = code;
    }
    /// Register writes of address succeed and change nothing.
    void Pin(unsigned address) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_pinned.insert(address);
    }
    /// Runs on every register write that succeeds, before the value is
    /// stored; it may change the value (a self-clearing bit).
    std::function<void(unsigned address, unsigned& value)> onWrite;
    std::vector<Call> Calls() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_calls;
    }
    std::vector<Call> CallsTo(const std::string& op, long address = -1) const {
        std::vector<Call> out;
        for (const Call& c : Calls()) {
            if (c.op == op && (address < 0 || c.address == static_cast<unsigned>(address))) {
                out.push_back(c);
            }
        }
        return out;
    }
    std::vector<Call> WritesTo(unsigned address) const { return CallsTo("WriteReg", address); }
    /// The values written to a register, in order.
    std::vector<unsigned> Values(unsigned address) const {
        std::vector<unsigned> out;
        for (const Call& c : WritesTo(address)) {
            out.push_back(c.value);
        }
        return out;
    }
    std::size_t ReadsOf(unsigned address) const { return CallsTo("ReadReg", address).size(); }
    std::vector<Resend> Resends() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_resends;
    }
    void ClearCalls() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.clear();
    }

    // --- adapters and discovery ---
    int GetInterfaces(std::vector<std::string>& ids) override {
        ++getInterfacesCalls;
        if (getInterfacesResult != 0) {
            return ReportError(getInterfacesResult, "fake GetInterfaces failed");
        }
        ids.insert(ids.end(), interfaces.begin(), interfaces.end());
        return 0;
    }
    int OpenInterface(const std::string& id, void** hAdapter) const override {
        if (openInterfaceResult != 0) {
            return ReportError(openInterfaceResult, "fake OpenInterface failed");
        }
        auto* a = new Adapter{id};
        Self()->adapters.push_back(a);
        *hAdapter = a;
        return 0;
    }
    int CloseInterface(void* hAdapter) const override {
        static_cast<Adapter*>(hAdapter)->open = false;
        log->closedAdapters.push_back(static_cast<Adapter*>(hAdapter)->id);
        if (closeInterfaceResult != 0) {
            return ReportError(closeInterfaceResult, "fake CloseInterface failed");
        }
        return 0;
    }
    int GetDevices(void*, std::vector<GenTL::DiscoveredDevice>& devices,
                   long timeoutMs) const override {
        ++Self()->getDevicesCalls;
        Self()->lastTimeoutMs = timeoutMs;
        if (getDevicesResult != 0) {
            return ReportError(getDevicesResult, "fake GetDevices failed");
        }
        devices.insert(devices.end(), discovered.begin(), discovered.end());
        return 0;
    }
    int OpenDevice(void*, const std::string& id, void** hDevice) const override {
        ++Self()->openDeviceCalls;
        if (openDeviceResult != 0) {
            return ReportError(openDeviceResult, "fake OpenDevice failed");
        }
        if (cameras.count(id) == 0) {
            return ReportError(GC_ERR_INVALID_ID, "fake OpenDevice: unknown id");
        }
        *hDevice = const_cast<Camera*>(&cameras.at(id));
        return 0;
    }
    int CloseDevice(void*) const override {
        ++Self()->closeDeviceCalls;
        return 0;
    }
    int SetDeviceTimeout(void*, int ms) const override { return Put(Self()->deviceTimeoutMs, ms); }

    // --- register and memory transactions ---
    int ReadReg(void*, unsigned address, unsigned& value) const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (int rc = LogLocked("ReadReg", address, 4, 0)) {
            return rc;
        }
        value = WordLocked(address);
        return 0;
    }
    int WriteReg(void*, unsigned address, unsigned value) const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (int rc = LogLocked("WriteReg", address, 4, value)) {
            return rc;
        }
        if (onWrite) {
            onWrite(address, value);
        }
        if (m_pinned.count(address) == 0) {
            PutWordLocked(address, value);
        }
        return 0;
    }
    int ReadRegBlock(void*, unsigned address, unsigned* values, std::size_t count) const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (int rc = LogLocked("ReadRegBlock", address, count, 0, count * 4)) {
            return rc;
        }
        for (std::size_t i = 0; i < count; ++i) {
            values[i] = WordLocked(static_cast<unsigned>(address + 4 * i));
        }
        return 0;
    }
    int WriteRegBlock(void*, unsigned address, const unsigned* values,
                      std::size_t count) const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (int rc = LogLocked("WriteRegBlock", address, count, 0, count * 4)) {
            return rc;
        }
        // Values stand in wire order: their bytes go to memory as they are.
        PutBytesLocked(address, values, count * 4);
        return 0;
    }
    int ReadMem(void*, unsigned address, char* data, std::size_t length) const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (int rc = LogLocked("ReadMem", address, length, 0)) {
            return rc;
        }
        for (std::size_t i = 0; i < length; ++i) {
            data[i] = static_cast<char>(ByteLocked(address + i));
        }
        return 0;
    }
    int WriteMem(void*, unsigned address, const char* data, std::size_t length) const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (int rc = LogLocked("WriteMem", address, length, 0)) {
            return rc;
        }
        PutBytesLocked(address, data, length);
        return 0;
    }

    // --- facts of an open camera (by handle) and of a listed one (by id) ---
    int GetModelName(void* h, Str& s) const override { return Of(h, &Camera::model, s); }
    int GetModelName(void*, Str i, Str& s) const override { return Id(i, &Camera::model, s); }
    int GetVendorName(void* h, Str& s) const override { return Of(h, &Camera::vendor, s); }
    int GetVendorName(void*, Str i, Str& s) const override { return Id(i, &Camera::vendor, s); }
    int GetSerialNumber(void* h, Str& s) const override { return Of(h, &Camera::serial, s); }
    int GetSerialNumber(void*, Str i, Str& s) const override { return Id(i, &Camera::serial, s); }
    int GetUserDefinedName(void* h, Str& s) const override { return Of(h, &Camera::userName, s); }
    int GetUserDefinedName(void*, Str i, Str& s) const override {
        return Id(i, &Camera::userName, s);
    }
    int GetDeviceVersion(void* h, Str& s) const override { return Of(h, &Camera::version, s); }
    int GetDeviceVersion(void*, Str i, Str& s) const override { return Id(i, &Camera::version, s); }
    int GetDevMACAddress(void*, Str i, long& v) const override { return Id(i, &Camera::mac, v); }
    int GetDevIPAddress(void*, Str i, long& v) const override { return Id(i, &Camera::ip, v); }
    int GetDevSubnetMask(void*, Str i, long& v) const override { return Id(i, &Camera::mask, v); }
    int GetDevMACAddress(void* h, long& v) const override { return Of(h, &Camera::mac, v); }
    int GetDevSubnetMask(void* h, long& v) const override { return Of(h, &Camera::mask, v); }
    int GetDevIPAddress(void* h, long& v) const override { return Of(h, &Camera::ip, v); }
    int GetDevDefaultGateway(void* h, long& v) const override { return Of(h, &Camera::gateway, v); }
    int GetDevIpConfigDHCP(void* h, bool& v) const override { return Of(h, &Camera::dhcp, v); }
    int GetDevIpConfigPersistentIp(void* h, bool& v) const override {
        return Of(h, &Camera::persistentIp, v);
    }
    int GetDevIpConfigLLA(void* h, bool& v) const override { return Of(h, &Camera::lla, v); }
    int GetDevDefaultGateway(void*, Str i, long& v) const override {
        return Id(i, &Camera::gateway, v);
    }
    int GetDevIpConfigDHCP(void*, Str i, bool& v) const override { return Id(i, &Camera::dhcp, v); }
    int GetDevIpConfigPersistentIp(void*, Str i, bool& v) const override {
        return Id(i, &Camera::persistentIp, v);
    }
    int GetDevIpConfigLLA(void*, Str i, bool& v) const override { return Id(i, &Camera::lla, v); }
    int GetTimestampTickFrequency(void*, Str i, unsigned long& f) const override {
        return Id(i, &Camera::tickFrequency, f);
    }

    // --- the adapter's own facts ---
    int GetInterfaceId(void* hAdapter, std::string& id) const override {
        return Put(id, static_cast<Adapter*>(hAdapter)->id);
    }
    int GetMACAddress(void*, long& v) const override { return Put(v, 0x0A1B2C3D4E5F); }
    int GetIPAddress(void*, long& v) const override { return Put(v, 0xC0A80001); }
    int GetSubnetMask(void*, long& v) const override { return Put(v, 0xFFFFFF00); }
    int GetPort(void*, unsigned short& port) const override { return Put(port, 50000); }
    int GetDevPort(void*, unsigned short& port) const override { return Put(port, 3956); }

    int ForceIP(void*, unsigned short macHigh, unsigned macLow, unsigned ip, unsigned subnet,
                unsigned gateway) const override {
        Self()->forceIpCalls.push_back({macHigh, macLow, ip, subnet, gateway});
        if (forceIpResult != 0) {
            return ReportError(forceIpResult, "fake ForceIP failed");
        }
        return 0;
    }
    int SendPacketResend(void*, unsigned long block, unsigned first, unsigned last,
                         bool) const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        Self()->m_resends.emplace_back(block, first, last);
        return 0;
    }
    int SetGvcpRetries(unsigned long) override { return 0; }
    int GetGvcpRetries(unsigned long& retries) const override { return Put(retries, 3); }
    int IsConnected(void*, std::string, bool&) const override {
        return ReportError(GC_ERR_NOT_AVAILABLE, "fake IsConnected by id");
    }
    int IsConnected(void*, bool& on) const override { return Put(on, connected); }
    int SetConnected(void*, bool on) const override { return Put(Self()->connected, on); }
    int CloseSocket(void*) const override { return 0; }
    int SendActionCommand(void*, unsigned, unsigned, unsigned, unsigned long) const override {
        return 0;
    }
    int AddUnicastDiscoveryDevice(void*, unsigned) override { return 0; }
    int RemoveUnicastDiscoveryDevice(void*, unsigned) override { return 0; }
    int GetUnicastDiscoveryDevices(void*, unsigned*, unsigned*) override { return 0; }
    bool IsLwfDriverInstalledForMac(long) const override { return false; }

private:
    FakeHALGev* Self() const { return const_cast<FakeHALGev*>(this); }
    template <typename T, typename V> static int Put(T& out, V value) {
        out = static_cast<T>(value);
        return 0;
    }

    template <typename T> int Id(const std::string& id, T Camera::*field, T& value) const {
        const auto it = cameras.find(id);
        if (it == cameras.end()) {
            return ReportError(GC_ERR_INVALID_ID, "fake: no camera " + id);
        }
        value = it->second.*field;
        return 0;
    }
    /// By handle: the camera the handle points at; a handle of another kind
    /// (a stream test's device record) stands for the first camera.
    template <typename T> int Of(void* h, T Camera::*field, T& value) const {
        if (h == nullptr || cameras.empty()) {
            return ReportError(GC_ERR_INVALID_HANDLE, "fake: null handle");
        }
        const Camera* camera = &cameras.begin()->second;
        for (const auto& entry : cameras) {
            camera = &entry.second == h ? &entry.second : camera;
        }
        value = camera->*field;
        return 0;
    }

    /// Logs a transaction; the failure set for any byte it touches, or 0.
    /// A memory access is limited to one packet's payload, as on the wire.
    int LogLocked(const char* op, unsigned address, std::size_t length, unsigned value,
                  std::size_t bytes = 0) const {
        m_calls.push_back({op, address, length, value});
        bytes = bytes == 0 ? length : bytes;
        if (std::string(op).find("Mem") != std::string::npos && length > 536) {
            return GC_ERR_INVALID_PARAMETER;
        }
        const bool write = std::string(op).rfind("Write", 0) == 0;
        for (const auto* failures : {&m_failures, &m_writeFailures}) {
            for (const auto& [at, code] : *failures) {
                if (at >= address && at < address + bytes && (write || failures == &m_failures)) {
                    return code;
                }
            }
        }
        return 0;
    }
    unsigned char ByteLocked(std::size_t address) const {
        const auto it = m_bytes.find(static_cast<unsigned>(address));
        return it == m_bytes.end() ? 0 : it->second;
    }
    unsigned WordLocked(unsigned address) const {
        unsigned v = 0;
        for (unsigned k = 0; k < 4; ++k) {
            v = (v << 8) | ByteLocked(address + k);
        }
        return v;
    }
    void PutWordLocked(unsigned address, unsigned value) const {
        for (unsigned k = 0; k < 4; ++k) {
            Self()->m_bytes[address + k] = static_cast<unsigned char>(value >> (24 - 8 * k));
        }
    }
    void PutBytesLocked(unsigned address, const void* data, std::size_t length) const {
        for (std::size_t i = 0; i < length; ++i) {
            Self()->m_bytes[static_cast<unsigned>(address + i)] =
                static_cast<const unsigned char*>(data)[i];
        }
    }

    Log m_ownLog;
    mutable std::mutex m_mutex;
    std::map<unsigned, unsigned char> m_bytes;
    std::map<unsigned, int> m_failures, m_writeFailures;
    std::set<unsigned> m_pinned;
    mutable std::vector<Call> m_calls;
    std::vector<Resend> m_resends;
};

} // namespace kesta::test
