#pragma once
/**
 * MCBuffer: one message buffer of a message channel, a module behind a
 * handle so that the channel's queues hold handles like a stream's. It owns
 * its data block. It has no port: the port and event operations are not
 * implemented.
 */
#include <cstdint>

#include "modules/BaseModule.h"
#include "stream/IBuffer.h"

namespace GenTL {

class MCBuffer : public IBuffer, public BaseModule {
public:
    /// A zeroed data block of size bytes.
    MCBuffer(std::uint64_t size, void* userData);
    ~MCBuffer() override;

    MCBuffer(const MCBuffer&) = delete;
    /// Copies the scalars and the contents into a data block of its own:
    /// two MCBuffers never share data.
    MCBuffer& operator=(const MCBuffer& other);

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

    std::uint8_t* data = nullptr; ///< owned
    std::uint64_t size = 0;       ///< capacity of data
    void* userData = nullptr;     ///< the private pointer of the announce
    std::uint64_t timestamp = 0;  ///< never set by the channel
    std::uint64_t filled = 0;     ///< bytes of the present message; 0 while queued for input
};

} // namespace GenTL
