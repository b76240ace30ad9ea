#pragma once
// Minimal modules of every kind, for testing the exported frames in process
// (against the static library). Every operation records its name and
// answers `result`; a fake that should fail like a module does also records
// its own error when `report` is set.
#include <string>
#include <vector>

#include "api/Error.h"
#include "modules/IDevice.h"
#include "modules/IInterface.h"
#include "modules/ISystem.h"
#include "stream/IBuffer.h"
#include "stream/IDataStream.h"

namespace kesta::test {

template <typename Interface> class FakeModule : public Interface {
public:
    ~FakeModule() override {
        if (destroyed != nullptr) {
            *destroyed = true;
        }
    }

    int result = 0;
    bool report = false;
    bool* destroyed = nullptr;
    mutable std::vector<std::string> calls;

    int ReadPort(unsigned long, void*, unsigned long*) override { return Call("ReadPort"); }
    int WritePort(unsigned long, const void*, unsigned long*) override { return Call("WritePort"); }
    int GetPortURL(char*, unsigned long*) const override { return Call("GetPortURL"); }
    int GetPortInfo(int, int*, void*, unsigned long*) override { return Call("GetPortInfo"); }
    int RegisterEvent(int, void**) override { return Call("RegisterEvent"); }
    int UnregisterEvent(int) override { return Call("UnregisterEvent"); }
    int GetNumPortURLs(unsigned int*) override { return Call("GetNumPortURLs"); }
    int GetPortURLInfo(unsigned int, int, int*, void*, unsigned long*) override {
        return Call("GetPortURLInfo");
    }
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) override {
        return Call("ReadPortStacked");
    }
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) override {
        return Call("WritePortStacked");
    }

protected:
    int Call(const char* name) const {
        calls.push_back(name);
        if (report && result != 0) {
            return ReportError(result, std::string("fake ") + name + " failed");
        }
        return result;
    }
};

class FakeSystem : public FakeModule<GenTL::ISystem> {
public:
    int Open() override { return Call("Open"); }
    int Close() override { return Call("Close"); }
    int GetInfo(int, int*, void*, unsigned long*) override { return Call("GetInfo"); }
    int GetNumInterfaces(unsigned int*) override { return Call("GetNumInterfaces"); }
    int GetInterfaceID(unsigned int, char*, unsigned long*) override {
        return Call("GetInterfaceID");
    }
    int GetInterfaceInfo(const char*, int, int*, void*, unsigned long*) override {
        return Call("GetInterfaceInfo");
    }
    int OpenInterface(const char*, void*, void**) override { return Call("OpenInterface"); }
    int UpdateInterfaceList(bool*, unsigned long) override { return Call("UpdateInterfaceList"); }
};

class FakeInterface : public FakeModule<GenTL::IInterface> {
public:
    int Open() override { return Call("Open"); }
    int Close() override { return Call("Close"); }
    int UpdateDeviceList(bool*, unsigned long) override { return Call("UpdateDeviceList"); }
    int GetInfo(int, int*, void*, unsigned long*) override { return Call("GetInfo"); }
    int GetParentTL(void**) const override { return Call("GetParentTL"); }
    int GetNumDevices(unsigned int*) const override { return Call("GetNumDevices"); }
    int GetDeviceID(unsigned int, char*, unsigned long*) const override {
        return Call("GetDeviceID");
    }
    int GetDeviceInfo(const char*, int, int*, void*, unsigned long*) const override {
        return Call("GetDeviceInfo");
    }
    int OpenDevice(const char*, const int&, void**, void*) const override {
        return Call("OpenDevice");
    }
    int ForceIp(unsigned long, unsigned int, unsigned int, unsigned int) override {
        return Call("ForceIp");
    }
    int AddUnicastDiscoveryDevice(unsigned int) override {
        return Call("AddUnicastDiscoveryDevice");
    }
    int RemoveUnicastDiscoveryDevice(unsigned int) override {
        return Call("RemoveUnicastDiscoveryDevice");
    }
    int GetUnicastDiscoveryDevices(unsigned int*, unsigned int*) override {
        return Call("GetUnicastDiscoveryDevices");
    }
};

class FakeDevice : public FakeModule<GenTL::IDevice> {
public:
    int Open(int, void*) override { return Call("Open"); }
    int Close() override { return Call("Close"); }
    int GetInfo(int, int*, void*, unsigned long*) const override { return Call("GetInfo"); }
    int GetPort(void**) override { return Call("GetPort"); }
    int GetNumDataStreams(unsigned int*) const override { return Call("GetNumDataStreams"); }
    int GetDataStreamID(unsigned int, char*, unsigned long*) const override {
        return Call("GetDataStreamID");
    }
    int OpenDataStream(const char*, void**) const override { return Call("OpenDataStream"); }
    int GetParentIF(void**) const override { return Call("GetParentIF"); }
    int SetInfo(int, int, const void*, unsigned long) override { return Call("SetInfo"); }
    int SendActionCommand(unsigned int, unsigned int, unsigned int, unsigned long) const override {
        return Call("SendActionCommand");
    }
};

class FakeDataStream : public FakeModule<GenTL::IDataStream> {
public:
    void* bufferGiven = nullptr;
    int Open(GenTL::IHALGvsp*) override { return Call("Open"); }
    int Close() override { return Call("Close"); }
    int AnnounceBuffer(void*, unsigned long, void*, void**) override {
        return Call("AnnounceBuffer");
    }
    int AllocAndAnnounceBuffer(unsigned long, void*, void**) override {
        return Call("AllocAndAnnounceBuffer");
    }
    int QueueBuffer(void* hBuffer) override {
        bufferGiven = hBuffer;
        return Call("QueueBuffer");
    }
    int RevokeBuffer(void*, void**, void**) override { return Call("RevokeBuffer"); }
    int FlushQueue(int) override { return Call("FlushQueue"); }
    int GetInfo(int, int*, void*, unsigned long*) const override { return Call("GetInfo"); }
    int GetBufferID(unsigned int, void**) const override { return Call("GetBufferID"); }
    int GetBufferInfo(void* hBuffer, int, int*, void*, unsigned long*) const override {
        const_cast<FakeDataStream*>(this)->bufferGiven = hBuffer;
        return Call("GetBufferInfo");
    }
    int StartAcquisition(int, unsigned long) override { return Call("StartAcquisition"); }
    int StopAcquisition(int) override { return Call("StopAcquisition"); }
    int GetBufferChunkData(void*, S_SINGLE_CHUNK_DATA*, unsigned long*) override {
        return Call("GetBufferChunkData");
    }
    int GetParentDev(void**) const override { return Call("GetParentDev"); }
    bool IsOpen() const override { return true; }
    int WaitForNextLeader(unsigned long) override { return Call("WaitForNextLeader"); }
    int ResetWaitForNextLeader() override { return Call("ResetWaitForNextLeader"); }
    int SetupResendRetryParams(unsigned long, double, const char*, const char*, int, int) override {
        return Call("SetupResendRetryParams");
    }
};

class FakeBuffer : public FakeModule<GenTL::IBuffer> {};

} // namespace kesta::test
