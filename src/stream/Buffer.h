#pragma once
/**
 * Buffer: one image memory of a data stream, a module behind a handle.
 *
 * The fields are public records: the state machine (BufferStateMachine)
 * sets the state and resets the flags on every state entry, the grab loops
 * and the GVSP parser fill the metadata and the per-block bookkeeping, and
 * the data stream answers BUFFER_INFO_* from them. Everything from
 * `sizeFilled` down to `m_resendRequests` is guarded by `m_mutex`; `state`
 * is atomic so that it can be read without it.
 *
 * Ownership: a Buffer never allocates or frees its image memory (`base`);
 * the state machine does, and `userOwned` tells whether the consumer owns
 * it. A Buffer owns its packet bitmap (AllocatePacketBitmap) and its two
 * timers (CreateTimers), and frees both when destroyed. The resend requests
 * in `m_resendRequests` belong to the grab loop that made them.
 *
 * A buffer has no port: all ten port operations, GetPortInfo and
 * GetPortURLInfo included, record and return GC_ERR_NOT_IMPLEMENTED. The
 * handle carries the IBaseModule part of its IBuffer.
 */
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include <boost/asio/deadline_timer.hpp>
#include <boost/asio/io_service.hpp>
#include <boost/thread/mutex.hpp>

#include "modules/BaseModule.h"
#include "stream/IBuffer.h"

namespace GenTL {

class PacketResendRequest;

/// Where a buffer is in its life; see BufferStateMachine.
enum BufferState : std::int32_t {
    BS_ANNOUNCE = 0, ///< known to the stream, in no queue
    BS_INPUT = 1,    ///< free, in the input queue
    BS_OUTPUT = 2,   ///< finished, in the output queue
    BS_USER = 3,     ///< held by the consumer
    BS_FILL = 4,     ///< being written by the grab thread
    BS_UNKNOWN = 5,  ///< a name only; never assigned
};

class Buffer : public IBuffer, public BaseModule {
public:
    /// Default port facts; no memory (the state machine sets base and size).
    Buffer();
    /// Frees the bitmap and the timers, not the image memory.
    ~Buffer() override;

    Buffer(const Buffer&) = delete;
    /**
     * Copies the members from `base` to `trailerSizeY`. A source that owns
     * its memory (`userOwned` false) is copied into a fresh array of its
     * size, which the caller must free with delete[]; a `userOwned` source
     * shares its memory. Mutexes, timers, the bitmap and the resend
     * requests stay those of this buffer.
     */
    Buffer& operator=(const Buffer& other);

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

    /// Replaces the packet bitmap with `bytes` zeroed bytes (none for 0).
    /// Caller holds m_mutex.
    void AllocatePacketBitmap(std::uint32_t bytes);
    /// Frees the packet bitmap; pointer and size become 0. Caller holds m_mutex.
    void FreePacketBitmap();
    /// Whether the bit of packetId is set. Ids whose byte lies beyond the
    /// bitmap (or with no bitmap) are never set. Caller holds m_mutex.
    bool IsPacketSeen(std::uint32_t packetId) const;
    /// Sets the bit of packetId; ids beyond the bitmap are not recorded.
    /// Caller holds m_mutex.
    void MarkPacketSeen(std::uint32_t packetId);

    /// Creates the next-packet and buffer-expiry timers on `service`,
    /// replacing any former ones.
    void CreateTimers(boost::asio::io_service& service);
    /// Deletes both timers (pending waits end as aborted) and clears the
    /// pointers.
    void DestroyTimers();

    std::uint8_t* base = nullptr; ///< image memory
    std::uint64_t size = 0;       ///< bytes at base
    void* userData = nullptr;     ///< the consumer's pointer from the announce
    bool isNewData = false;       ///< set at delivery; a read of NEW_DATA clears it
    bool isQueued = false;
    bool isAcquiring = false;
    bool isIncomplete = false;
    std::string tlType = "Ethernet";
    std::uint64_t sizeFilled = 0; ///< payload bytes written
    std::uint64_t width = 0;      ///< leader's size_x
    std::uint64_t height = 0;     ///< leader's size_y
    std::uint64_t xOffset = 0;
    std::uint64_t yOffset = 0;
    std::uint64_t xPadding = 0;
    std::uint64_t yPadding = 0;
    std::uint64_t frameId = 0;     ///< block id
    bool imagePresent = false;     ///< set by SwitchPayloadType
    std::uint64_t imageOffset = 0; ///< always 0
    std::uint64_t payloadType = 0; ///< GVSP type from the leader, GenTL type after delivery
    std::uint64_t pixelFormat = 0; ///< as the camera sends it
    std::uint64_t pixelFormatNamespace = 4; ///< PFNC 32-bit
    std::uint64_t deliveredImageHeight = 0;
    std::uint64_t deliveredChunkPayloadSize = 0;
    std::uint64_t chunkLayoutId = 0;
    std::string filename;              ///< for file payloads; stays empty
    std::int32_t pixelEndianness = 1;  ///< little endian
    std::uint64_t dataSize = 0;        ///< bytes the block should hold
    std::uint64_t timestamp = 0;       ///< camera time, or host time when the camera sends 0
    bool dataLargerThanBuffer = false; ///< the block did not fit; the rest was dropped
    bool containsChunkData = false;
    bool userOwned = false;                       ///< the consumer owns base
    std::uint64_t index = 0;                      ///< place in the announced list
    std::atomic<std::int32_t> state{BS_ANNOUNCE}; ///< a BufferState
    std::uint32_t receivedBytes = 0;              ///< payload bytes copied in this block

    boost::asio::deadline_timer* nextPacketTimer = nullptr;
    bool nextPacketDone = false; ///< the next-packet timer has ended its work
    bool bufferExpired = false;  ///< the buffer-expiry timer has fired
    boost::asio::deadline_timer* bufferExpiryTimer = nullptr;
    bool bufferExpiryDone = false;        ///< the buffer-expiry timer has ended its work
    bool packetSeen = false;              ///< a packet arrived since the last next-packet tick
    std::uint32_t nextExpectedPacket = 0; ///< highest packet id seen, plus 1
    std::uint64_t resendCount = 0;        ///< resend requests issued for this block
    bool trailerSeen = false;
    bool leaderSeen = false;
    std::uint64_t trailerSizeY = 0;  ///< size_y of the trailer
    std::int32_t missingPackets = 0; ///< packets per block less those accepted
    std::uint32_t receivedPackets = 0;
    std::uint8_t* packetBitmap = nullptr; ///< bit 0x80 >> (id % 8) of byte id / 8
    std::uint32_t packetBitmapSize = 0;   ///< bytes at packetBitmap
    std::uint32_t lastPacketId = 0;       ///< packet id of the trailer

    boost::mutex m_mutex; ///< guards the per-block members above
    std::vector<PacketResendRequest*> m_resendRequests;
    boost::mutex m_resendRequestsMutex; ///< guards m_resendRequests; taken after m_mutex
};

/// The Buffer behind a handle: null for a null handle, a handle that fails
/// CheckHandle (which records its error), or a module that is no Buffer.
Buffer* CastHandleToBufferPtr(void* handle);

} // namespace GenTL
