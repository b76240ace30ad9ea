#pragma once
// A control layer with one camera in memory, for the device module's tests:
// a word map for ReadReg/WriteReg, a byte map for ReadMem/WriteMem (the
// words stand in it big-endian, as on the wire), a log of every transaction
// and addresses that fail on demand. Thread-safe, so that a heartbeat may
// run beside the test.
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "GenTL_KESTA.h"
#include "hal/IHALGev.h"

namespace kesta::test {

class FakeDeviceHAL : public GenTL::IHALGev {
public:
    struct Call {
        std::string
            op; ///< "ReadReg", "WriteReg", "ReadRegBlock", "WriteRegBlock", "ReadMem", "WriteMem"
        unsigned address;
        std::size_t length; ///< bytes for memory, registers for blocks, 4 for a register
        unsigned value;     ///< the value written by WriteReg
    };

    // --- The camera ---------------------------------------------------------

    void SetReg(unsigned address, unsigned value) {
        std::lock_guard<std::mutex> lock(m_mutex);
        SetWordLocked(address, value);
    }
    unsigned Reg(unsigned address) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return WordLocked(address);
    }
    void SetBytes(unsigned address, const void* data, std::size_t length) {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (std::size_t i = 0; i < length; ++i) {
            m_bytes[address + i] = static_cast<const unsigned char*>(data)[i];
        }
    }
    std::vector<unsigned char> Bytes(unsigned address, std::size_t length) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<unsigned char> out(length);
        for (std::size_t i = 0; i < length; ++i) {
            auto it = m_bytes.find(address + i);
            out[i] = it == m_bytes.end() ? 0 : it->second;
        }
        return out;
    }
    /// Any transaction touching address fails with code (a GC_ERR_*).
    void Fail(unsigned address, int code = GC_ERR_TIMEOUT) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_failures[address] = code;
    }
    /// Writes of the word at address succeed and change nothing.
    void Pin(unsigned address) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_pinned.insert(address);
    }
    void Heal(unsigned address) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_failures.erase(address);
    }

    std::vector<Call> Calls() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_calls;
    }
    std::vector<Call> CallsTo(const std::string& op) const {
        std::vector<Call> out;
        for (const Call& c : Calls()) {
            if (c.op == op) {
                out.push_back(c);
            }
        }
        return out;
    }
    std::vector<Call> WritesTo(unsigned address) const {
        std::vector<Call> out;
        for (const Call& c : CallsTo("WriteReg")) {
            if (c.address == address) {
                out.push_back(c);
            }
        }
        return out;
    }
    void ClearCalls() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.clear();
    }

    // Facts of the open device.
    std::string model = "FakeModel", vendor = "FakeVendor", serial = "FAKE0001",
                userName = "fake-user", version = "9.9";
    bool failFacts = false;
    bool connected = false;
    int deviceTimeoutMs = -1;
    int closeCount = 0;

    // --- Transactions -----------------------------------------------------

    int ReadReg(void*, unsigned address, unsigned& value) const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.push_back({"ReadReg", address, 4, 0});
        if (int rc = FailureLocked(address, 4)) {
            return rc;
        }
        value = WordLocked(address);
        return GC_ERR_SUCCESS;
    }
    int WriteReg(void*, unsigned address, unsigned value) const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.push_back({"WriteReg", address, 4, value});
        if (int rc = FailureLocked(address, 4)) {
            return rc;
        }
        if (m_pinned.count(address) == 0) {
            const_cast<FakeDeviceHAL*>(this)->SetWordLocked(address, value);
        }
        return GC_ERR_SUCCESS;
    }
    int ReadRegBlock(void*, unsigned address, unsigned* values, std::size_t count) const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.push_back({"ReadRegBlock", address, count, 0});
        if (int rc = FailureLocked(address, count * 4)) {
            return rc;
        }
        for (std::size_t i = 0; i < count; ++i) {
            values[i] = WordLocked(static_cast<unsigned>(address + 4 * i));
        }
        return GC_ERR_SUCCESS;
    }
    int WriteRegBlock(void*, unsigned address, const unsigned* values,
                      std::size_t count) const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.push_back({"WriteRegBlock", address, count, 0});
        if (int rc = FailureLocked(address, count * 4)) {
            return rc;
        }
        // Values stand in wire order: their bytes go to memory as they are.
        for (std::size_t i = 0; i < count; ++i) {
            const auto* b = reinterpret_cast<const unsigned char*>(&values[i]);
            for (int k = 0; k < 4; ++k) {
                const_cast<FakeDeviceHAL*>(this)->m_bytes[address + 4 * i + k] = b[k];
            }
        }
        return GC_ERR_SUCCESS;
    }
    int ReadMem(void*, unsigned address, char* data, std::size_t length) const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.push_back({"ReadMem", address, length, 0});
        if (length > 536) {
            return GC_ERR_INVALID_PARAMETER;
        }
        if (int rc = FailureLocked(address, length)) {
            return rc;
        }
        for (std::size_t i = 0; i < length; ++i) {
            auto it = m_bytes.find(address + i);
            data[i] = static_cast<char>(it == m_bytes.end() ? 0 : it->second);
        }
        return GC_ERR_SUCCESS;
    }
    int WriteMem(void*, unsigned address, const char* data, std::size_t length) const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.push_back({"WriteMem", address, length, 0});
        if (length > 536) {
            return GC_ERR_INVALID_PARAMETER;
        }
        if (int rc = FailureLocked(address, length)) {
            return rc;
        }
        for (std::size_t i = 0; i < length; ++i) {
            const_cast<FakeDeviceHAL*>(this)->m_bytes[address + i] =
                static_cast<unsigned char>(data[i]);
        }
        return GC_ERR_SUCCESS;
    }

    int SetDeviceTimeout(void*, int ms) const override {
        const_cast<FakeDeviceHAL*>(this)->deviceTimeoutMs = ms;
        return GC_ERR_SUCCESS;
    }
    int CloseDevice(void*) const override {
        ++const_cast<FakeDeviceHAL*>(this)->closeCount;
        return GC_ERR_SUCCESS;
    }
    int IsConnected(void*, bool& on) const override {
        on = connected;
        return GC_ERR_SUCCESS;
    }
    int SetConnected(void*, bool on) const override {
        const_cast<FakeDeviceHAL*>(this)->connected = on;
        return GC_ERR_SUCCESS;
    }

    int GetModelName(void*, std::string& s) const override { return Fact(model, s); }
    int GetVendorName(void*, std::string& s) const override { return Fact(vendor, s); }
    int GetSerialNumber(void*, std::string& s) const override { return Fact(serial, s); }
    int GetUserDefinedName(void*, std::string& s) const override { return Fact(userName, s); }
    int GetDeviceVersion(void*, std::string& s) const override { return Fact(version, s); }
    int GetDevMACAddress(void*, long& v) const override { return Number(0x024B53000010L, v); }
    int GetDevSubnetMask(void*, long& v) const override { return Number(0xFFFFFF00L, v); }
    int GetDevIPAddress(void*, long& v) const override { return Number(0xC0A8D50AL, v); }
    int GetDevDefaultGateway(void*, long& v) const override { return Number(0, v); }
    int GetDevIpConfigDHCP(void*, bool& on) const override { return Flag(false, on); }
    int GetDevIpConfigPersistentIp(void*, bool& on) const override { return Flag(true, on); }
    int GetDevIpConfigLLA(void*, bool& on) const override { return Flag(true, on); }

    // --- Not used by the device module ---------------------------------------

    int GetInterfaces(std::vector<std::string>&) override { return Unused(); }
    int OpenInterface(const std::string&, void**) const override { return Unused(); }
    int CloseInterface(void*) const override { return Unused(); }
    int GetDevices(void*, std::vector<GenTL::DiscoveredDevice>&, long) const override {
        return Unused();
    }
    int OpenDevice(void*, const std::string&, void**) const override { return Unused(); }
    int GetModelName(void*, std::string, std::string&) const override { return Unused(); }
    int GetVendorName(void*, std::string, std::string&) const override { return Unused(); }
    int GetSerialNumber(void*, std::string, std::string&) const override { return Unused(); }
    int GetUserDefinedName(void*, std::string, std::string&) const override { return Unused(); }
    int GetDeviceVersion(void*, std::string, std::string&) const override { return Unused(); }
    int GetInterfaceId(void*, std::string&) const override { return Unused(); }
    int GetMACAddress(void*, long&) const override { return Unused(); }
    int GetIPAddress(void*, long&) const override { return Unused(); }
    int GetSubnetMask(void*, long&) const override { return Unused(); }
    int GetDevMACAddress(void*, std::string, long&) const override { return Unused(); }
    int GetDevIPAddress(void*, std::string, long&) const override { return Unused(); }
    int GetDevSubnetMask(void*, std::string, long&) const override { return Unused(); }
    int GetDevDefaultGateway(void*, std::string, long&) const override { return Unused(); }
    int GetDevIpConfigDHCP(void*, std::string, bool&) const override { return Unused(); }
    int GetDevIpConfigPersistentIp(void*, std::string, bool&) const override { return Unused(); }
    int GetDevIpConfigLLA(void*, std::string, bool&) const override { return Unused(); }
    int GetPort(void*, unsigned short&) const override { return Unused(); }
    int GetDevPort(void*, unsigned short&) const override { return Unused(); }
    int GetTimestampTickFrequency(void*, std::string, unsigned long&) const override {
        return Unused();
    }
    int ForceIP(void*, unsigned short, unsigned, unsigned, unsigned, unsigned) const override {
        return Unused();
    }
    int SendPacketResend(void*, unsigned long, unsigned, unsigned, bool) const override {
        return Unused();
    }
    int SetGvcpRetries(unsigned long) override { return Unused(); }
    int GetGvcpRetries(unsigned long&) const override { return Unused(); }
    int IsConnected(void*, std::string, bool&) const override { return Unused(); }
    int CloseSocket(void*) const override { return Unused(); }
    int SendActionCommand(void*, unsigned, unsigned, unsigned, unsigned long) const override {
        return Unused();
    }
    int AddUnicastDiscoveryDevice(void*, unsigned) override { return Unused(); }
    int RemoveUnicastDiscoveryDevice(void*, unsigned) override { return Unused(); }
    int GetUnicastDiscoveryDevices(void*, unsigned*, unsigned*) override { return Unused(); }
    bool IsLwfDriverInstalledForMac(long) const override { return false; }

private:
    static int Unused() { return GC_ERR_NOT_IMPLEMENTED; }
    int Fact(const std::string& value, std::string& out) const {
        if (failFacts) {
            return GC_ERR_IO;
        }
        out = value;
        return GC_ERR_SUCCESS;
    }
    int Number(long value, long& out) const {
        out = value;
        return GC_ERR_SUCCESS;
    }
    int Flag(bool value, bool& out) const {
        out = value;
        return GC_ERR_SUCCESS;
    }

    // Words are kept in the byte map, big-endian, so that register and
    // memory views of one address agree as on a camera.
    unsigned WordLocked(unsigned address) const {
        unsigned v = 0;
        for (unsigned k = 0; k < 4; ++k) {
            auto it = m_bytes.find(address + k);
            v = (v << 8) | (it == m_bytes.end() ? 0u : it->second);
        }
        return v;
    }
    void SetWordLocked(unsigned address, unsigned value) {
        for (unsigned k = 0; k < 4; ++k) {
            m_bytes[address + k] = static_cast<unsigned char>(value >> (24 - 8 * k));
        }
    }
    int FailureLocked(unsigned address, std::size_t length) const {
        for (const auto& [at, code] : m_failures) {
            if (at >= address && at < address + length) {
                return code;
            }
        }
        return GC_ERR_SUCCESS;
    }

    mutable std::mutex m_mutex;
    std::map<unsigned, unsigned char> m_bytes;
    std::map<unsigned, int> m_failures;
    std::set<unsigned> m_pinned;
    mutable std::vector<Call> m_calls;
};

} // namespace kesta::test
