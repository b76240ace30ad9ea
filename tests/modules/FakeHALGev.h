#pragma once
// A control layer without a network, for the module tests: adapters and
// cameras are plain data that a test sets up, and every call that matters
// is counted or recorded. Unknown ids and handles fail as HALGev does, with
// a recorded error.
#include <map>
#include <string>
#include <vector>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "hal/IHALGev.h"

namespace kesta::test {

class FakeHALGev : public GenTL::IHALGev {
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
    bool interfaceIdFails = false;                   ///< GetInterfaceId fails
    std::vector<GenTL::DiscoveredDevice> discovered; ///< GetDevices' answer
    int getDevicesResult = 0;
    std::map<std::string, Camera> cameras; ///< facts by id; OpenDevice needs an entry
    int openDeviceResult = 0;
    long adapterMac = 0x0A1B2C3D4E5F, adapterIp = 0xC0A80001, adapterMask = 0xFFFFFF00;
    int adapterFactResult = 0;
    int forceIpResult = 0;
    int unicastResult = 0;
    /// Replace with a test's own to read it after the fake is gone.
    Log* log = &m_ownLog;

    // --- what the test reads back ---
    std::vector<Adapter*> adapters; ///< every adapter handle made
    int getInterfacesCalls = 0, getDevicesCalls = 0, openDeviceCalls = 0, closeDeviceCalls = 0;
    long lastTimeoutMs = 0;
    std::vector<ForceIpCall> forceIpCalls;
    std::vector<unsigned> unicast;

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
        const_cast<FakeHALGev*>(this)->adapters.push_back(a);
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
        auto* self = const_cast<FakeHALGev*>(this);
        ++self->getDevicesCalls;
        self->lastTimeoutMs = timeoutMs;
        if (getDevicesResult != 0) {
            return ReportError(getDevicesResult, "fake GetDevices failed");
        }
        devices.insert(devices.end(), discovered.begin(), discovered.end());
        return 0;
    }
    int OpenDevice(void*, const std::string& id, void** hDevice) const override {
        ++const_cast<FakeHALGev*>(this)->openDeviceCalls;
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
        ++const_cast<FakeHALGev*>(this)->closeDeviceCalls;
        return 0;
    }
    int SetDeviceTimeout(void*, int) const override { return 0; }

    int ReadReg(void*, unsigned, unsigned& value) const override {
        value = 0;
        return 0;
    }
    int WriteReg(void*, unsigned, unsigned) const override { return 0; }
    int ReadRegBlock(void*, unsigned, unsigned*, std::size_t) const override { return Refuse(); }
    int WriteRegBlock(void*, unsigned, const unsigned*, std::size_t) const override {
        return Refuse();
    }
    int ReadMem(void*, unsigned, char*, std::size_t) const override { return Refuse(); }
    int WriteMem(void*, unsigned, const char*, std::size_t) const override { return Refuse(); }

    int GetModelName(void* h, std::string& s) const override {
        return ByHandle(h, &Camera::model, s);
    }
    int GetModelName(void*, std::string id, std::string& s) const override {
        return ById(id, &Camera::model, s);
    }
    int GetVendorName(void* h, std::string& s) const override {
        return ByHandle(h, &Camera::vendor, s);
    }
    int GetVendorName(void*, std::string id, std::string& s) const override {
        return ById(id, &Camera::vendor, s);
    }
    int GetSerialNumber(void* h, std::string& s) const override {
        return ByHandle(h, &Camera::serial, s);
    }
    int GetSerialNumber(void*, std::string id, std::string& s) const override {
        return ById(id, &Camera::serial, s);
    }
    int GetUserDefinedName(void* h, std::string& s) const override {
        return ByHandle(h, &Camera::userName, s);
    }
    int GetUserDefinedName(void*, std::string id, std::string& s) const override {
        return ById(id, &Camera::userName, s);
    }
    int GetDeviceVersion(void* h, std::string& s) const override {
        return ByHandle(h, &Camera::version, s);
    }
    int GetDeviceVersion(void*, std::string id, std::string& s) const override {
        return ById(id, &Camera::version, s);
    }

    int GetInterfaceId(void* hAdapter, std::string& id) const override {
        if (interfaceIdFails) {
            return ReportError(GC_ERR_ERROR, "fake GetInterfaceId failed");
        }
        id = static_cast<Adapter*>(hAdapter)->id;
        return 0;
    }
    int GetMACAddress(void*, long& v) const override { return AdapterFact(adapterMac, v); }
    int GetIPAddress(void*, long& v) const override { return AdapterFact(adapterIp, v); }
    int GetSubnetMask(void*, long& v) const override { return AdapterFact(adapterMask, v); }

    int GetDevMACAddress(void*, std::string id, long& v) const override {
        return ById(id, &Camera::mac, v);
    }
    int GetDevIPAddress(void*, std::string id, long& v) const override {
        return ById(id, &Camera::ip, v);
    }
    int GetDevSubnetMask(void*, std::string id, long& v) const override {
        return ById(id, &Camera::mask, v);
    }
    int GetDevMACAddress(void* h, long& v) const override { return ByHandle(h, &Camera::mac, v); }
    int GetDevSubnetMask(void* h, long& v) const override { return ByHandle(h, &Camera::mask, v); }
    int GetDevIPAddress(void* h, long& v) const override { return ByHandle(h, &Camera::ip, v); }
    int GetDevDefaultGateway(void* h, long& v) const override {
        return ByHandle(h, &Camera::gateway, v);
    }
    int GetDevIpConfigDHCP(void* h, bool& v) const override {
        return ByHandle(h, &Camera::dhcp, v);
    }
    int GetDevIpConfigPersistentIp(void* h, bool& v) const override {
        return ByHandle(h, &Camera::persistentIp, v);
    }
    int GetDevIpConfigLLA(void* h, bool& v) const override { return ByHandle(h, &Camera::lla, v); }
    int GetDevDefaultGateway(void*, std::string id, long& v) const override {
        return ById(id, &Camera::gateway, v);
    }
    int GetDevIpConfigDHCP(void*, std::string id, bool& v) const override {
        return ById(id, &Camera::dhcp, v);
    }
    int GetDevIpConfigPersistentIp(void*, std::string id, bool& v) const override {
        return ById(id, &Camera::persistentIp, v);
    }
    int GetDevIpConfigLLA(void*, std::string id, bool& v) const override {
        return ById(id, &Camera::lla, v);
    }

    int GetPort(void*, unsigned short& port) const override {
        port = 50000;
        return 0;
    }
    int GetDevPort(void*, unsigned short& port) const override {
        port = 3956;
        return 0;
    }
    int GetTimestampTickFrequency(void*, std::string id, unsigned long& f) const override {
        return ById(id, &Camera::tickFrequency, f);
    }

    int ForceIP(void*, unsigned short macHigh, unsigned macLow, unsigned ip, unsigned subnet,
                unsigned gateway) const override {
        const_cast<FakeHALGev*>(this)->forceIpCalls.push_back(
            {macHigh, macLow, ip, subnet, gateway});
        if (forceIpResult != 0) {
            return ReportError(forceIpResult, "fake ForceIP failed");
        }
        return 0;
    }
    int SendPacketResend(void*, unsigned long, unsigned, unsigned, bool) const override {
        return 0;
    }
    int SetGvcpRetries(unsigned long) override { return 0; }
    int GetGvcpRetries(unsigned long& retries) const override {
        retries = 3;
        return 0;
    }
    int IsConnected(void*, std::string, bool&) const override {
        return ReportError(GC_ERR_NOT_AVAILABLE, "fake IsConnected by id");
    }
    int IsConnected(void*, bool& connected) const override {
        connected = true;
        return 0;
    }
    int SetConnected(void*, bool) const override { return 0; }
    int CloseSocket(void*) const override { return 0; }
    int SendActionCommand(void*, unsigned, unsigned, unsigned, unsigned long) const override {
        return 0;
    }
    int AddUnicastDiscoveryDevice(void*, unsigned ip) override {
        if (unicastResult != 0) {
            return ReportError(unicastResult, "fake unicast failed");
        }
        unicast.push_back(ip);
        return 0;
    }
    int RemoveUnicastDiscoveryDevice(void*, unsigned ip) override {
        if (unicastResult != 0) {
            return ReportError(unicastResult, "fake unicast failed");
        }
        if (ip == 0xFFFFFFFFu) {
            unicast.clear();
        }
        return 0;
    }
    int GetUnicastDiscoveryDevices(void*, unsigned* list, unsigned* size) override {
        if (unicastResult != 0) {
            return ReportError(unicastResult, "fake unicast failed");
        }
        unsigned n = 0;
        for (; n < *size && n < unicast.size(); ++n) {
            list[n] = unicast[n];
        }
        *size = n;
        return 0;
    }
    bool IsLwfDriverInstalledForMac(long) const override { return false; }

private:
    Log m_ownLog;

    static int Refuse() { return ReportError(GC_ERR_NOT_IMPLEMENTED, "fake: not modelled"); }

    template <typename T> int ById(const std::string& id, T Camera::*field, T& value) const {
        const auto it = cameras.find(id);
        if (it == cameras.end()) {
            return ReportError(GC_ERR_INVALID_ID, "fake: no camera " + id);
        }
        value = it->second.*field;
        return 0;
    }
    template <typename T> int ByHandle(void* h, T Camera::*field, T& value) const {
        if (h == nullptr) {
            return ReportError(GC_ERR_INVALID_HANDLE, "fake: null handle");
        }
        value = static_cast<Camera*>(h)->*field;
        return 0;
    }
    int AdapterFact(long fact, long& value) const {
        if (adapterFactResult != 0) {
            return ReportError(adapterFactResult, "fake adapter fact failed");
        }
        value = fact;
        return 0;
    }
};

} // namespace kesta::test
