#pragma once
/**
 * UnavailableMessageChannel: a message channel that this build cannot open.
 *
 * It stands in the device's channel list where no event implementation
 * exists: every operation refuses with GC_ERR_NOT_IMPLEMENTED (stamped with
 * the operation's name) and IsOpen is false, so EVENT_REMOTE_DEVICE cannot
 * be registered. The constructor takes the arguments of a real channel so
 * that the two are interchangeable at the place that makes them.
 */
#include "events/IMessageChannel.h"
#include "modules/BaseModule.h"

namespace GenTL {

class IHALGev;

class UnavailableMessageChannel : public IMessageChannel, public BaseModule {
public:
    UnavailableMessageChannel(IHALGev* hal, void* hDevice, unsigned int channelId, int accessMode);
    ~UnavailableMessageChannel() override;

    int ReadPort(unsigned long address, void* buffer, unsigned long* size) override;
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override;
    int GetPortURL(char* url, unsigned long* size) const override;
    int GetPortInfo(int cmd, int* type, void* buffer, unsigned long* size) override;
    int RegisterEvent(int type, void** event) override;
    int UnregisterEvent(int type) override;
    int GetNumPortURLs(unsigned int* count) override;
    int GetPortURLInfo(unsigned int index, int cmd, int* type, void* buffer,
                       unsigned long* size) override;
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;

    int Open(IHALGvmc* hal, bool multicast) override;
    int Close() override;
    int AllocAndAnnounceBuffer(unsigned long size, void* userData, void** phBuffer) override;
    int QueueBuffer(void* hBuffer) override;
    int RevokeBuffer(void* hBuffer, void** userData) override;
    int GetBufferID(unsigned int index, void** phBuffer) const override;
    int GetBufferInfo(void* hBuffer, int cmd, int* type, void* buffer,
                      unsigned long* size) override;
    int StartListening() override;
    int StopListening() override;
    int Flush() override;
    /// Always false.
    bool IsOpen() const override;
    int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) const override;
    int WaitOnNewBuffer(void** phBuffer, unsigned long timeout) override;
    int KillWaitForNewBuffer() override;
};

} // namespace GenTL
