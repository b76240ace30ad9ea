#pragma once
/**
 * UnavailableDataStream: a data stream that this build cannot open.
 *
 * It stands in the device's stream list where no streaming implementation
 * exists: the device has its two streams, and every operation on one of
 * them refuses with GC_ERR_NOT_IMPLEMENTED (stamped with the operation's
 * name); IsOpen is false. The constructor takes the arguments of a real
 * stream so that the two are interchangeable at the place that makes them.
 */
#include "modules/BaseModule.h"
#include "stream/IDataStream.h"

namespace GenTL {

class IHALGev;

class UnavailableDataStream : public IDataStream, public BaseModule {
public:
    UnavailableDataStream(IHALGev* hal, void* hDevice, void* parent, unsigned int index,
                          int accessFlags);
    ~UnavailableDataStream() override;

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

    int Open(IHALGvsp* hal) override;
    int Close() override;
    int AnnounceBuffer(void* memory, unsigned long size, void* userData, void** phBuffer) override;
    int AllocAndAnnounceBuffer(unsigned long size, void* userData, void** phBuffer) override;
    int QueueBuffer(void* hBuffer) override;
    int RevokeBuffer(void* hBuffer, void** memory, void** userData) override;
    int FlushQueue(int operation) override;
    int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) const override;
    int GetBufferID(unsigned int index, void** phBuffer) const override;
    int GetBufferInfo(void* hBuffer, int cmd, int* type, void* buffer,
                      unsigned long* size) const override;
    int StartAcquisition(int flags, unsigned long count) override;
    int StopAcquisition(int flags) override;
    int GetBufferChunkData(void* hBuffer, S_SINGLE_CHUNK_DATA* chunks,
                           unsigned long* count) override;
    int GetParentDev(void** phDevice) const override;
    /// Always false.
    bool IsOpen() const override;
    int WaitForNextLeader(unsigned long timeout) override;
    int ResetWaitForNextLeader() override;
    int SetupResendRetryParams(unsigned long retryWindowFrames, double frameRate, const char* first,
                               const char* second, int width, int height) override;
};

} // namespace GenTL
