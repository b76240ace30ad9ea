#pragma once
/**
 * MessageChannelGev: the message channel of a GigE Vision camera. It tells
 * the camera where to send its event packets (HALGvmc: MCDA, MCP, the
 * firewall) and runs a receive thread that moves each EVENT_CMD or
 * EVENTDATA_CMD datagram into a queued MCBuffer, from where the
 * EVENT_REMOTE_DEVICE event hands it out whole.
 *
 * The device drives it through its event:
 *
 *   channel->Open(nullptr, false);                    // own HALGvmc, unicast
 *   channel->RegisterEvent(EVENT_REMOTE_DEVICE, &h);  // buffers, StartListening
 *   ... EventGetData(h) ...
 *   channel->UnregisterEvent(EVENT_REMOTE_DEVICE);    // StopListening (MCP 0)
 *   channel->Close();
 *
 * Registering the event announces the channel's buffers (up to
 * kMessageBuffers of 576 bytes), queues every announced buffer and starts
 * listening, since nothing else would: the consumer never sees an MCBuffer.
 * StartListening and StopListening can also be called on their own.
 *
 * Every other operation refuses with GC_ERR_INVALID_HANDLE while the
 * channel is closed, and is the base's otherwise.
 *
 * Threads: one receive thread from StartListening to StopListening, ended
 * by boost::thread interruption; it notices one within the 200 ms receive
 * time-out. Deleting the channel stops it, tells the camera (MCP 0), ends
 * the consumer's waits and only then frees the event and the buffers.
 */
#include <cstddef>

#include <boost/thread/thread.hpp>

#include "events/MessageChannel.h"

namespace GenTL {

class IHALGev;

class MessageChannelGev : public MessageChannel {
public:
    /// Buffers that registering the remote-device event announces.
    static constexpr std::size_t kMessageBuffers = 64;
    /// Receive time-out of the thread, in ms: how soon it sees a stop.
    static constexpr unsigned long kReceiveTimeoutMs = 200;

    /// Payload size 576, announce minimum 1, alignment 1, type "GEV",
    /// module "TLMessageChannel". accessMode is the device's
    /// DEVICE_ACCESS_* flag.
    MessageChannelGev(IHALGev* hal, void* hDevice, unsigned int channelId, int accessMode);
    /// Stops listening and closes, ends the waits; see above.
    ~MessageChannelGev() override;

    int ReadPort(unsigned long address, void* buffer, unsigned long* size) override;
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override;
    int GetPortURL(char* url, unsigned long* size) const override;
    int GetPortInfo(int cmd, int* type, void* buffer, unsigned long* size) override;
    /// EVENT_REMOTE_DEVICE also starts listening (see above); a failure of
    /// the start unregisters the event again and is the result.
    int RegisterEvent(int type, void** event) override;
    /// EVENT_REMOTE_DEVICE stops listening first; a failing stop is logged
    /// and the event goes all the same.
    int UnregisterEvent(int type) override;
    int GetNumPortURLs(unsigned int* count) override;
    int GetPortURLInfo(unsigned int index, int cmd, int* type, void* buffer,
                       unsigned long* size) override;
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* count) override;

    /// Takes hal as the wire layer (a new HALGvmc when null), owned from
    /// here on. Already open: GC_ERR_RESOURCE_IN_USE.
    int Open(IHALGvmc* hal, bool multicast) override;
    /// Stops listening if it does, and deletes the wire layer. Not open:
    /// GC_ERR_RESOURCE_IN_USE.
    int Close() override;
    int AllocAndAnnounceBuffer(unsigned long size, void* userData, void** phBuffer) override;
    int QueueBuffer(void* hBuffer) override;
    int RevokeBuffer(void* hBuffer, void** userData) override;
    int GetBufferID(unsigned int index, void** phBuffer) const override;
    int GetBufferInfo(void* hBuffer, int cmd, int* type, void* buffer,
                      unsigned long* size) override;
    /**
     * Needs the announce minimum of buffers (GC_ERR_INVALID_BUFFER) and no
     * running thread (GC_ERR_RESOURCE_IN_USE); starts the wire layer, then
     * the receive thread. MC_INFO_NUM_STARTED becomes the input queue's
     * length.
     */
    int StartListening() override;
    /// Joins the receive thread and stops the wire layer. Not listening:
    /// GC_ERR_RESOURCE_IN_USE.
    int StopListening() override;
    /// Drops the messages that wait for delivery; their buffers go back to
    /// the input queue.
    int Flush() override;
    bool IsOpen() const override;
    int GetInfo(int cmd, int* type, void* buffer, unsigned long* size) const override;
    int WaitOnNewBuffer(void** phBuffer, unsigned long timeout) override;
    int KillWaitForNewBuffer() override;

private:
    /// The receive loop; runs until interrupted.
    void GrabThread();
    /// Announces up to kMessageBuffers and puts every announced buffer in
    /// the input queue.
    int PrepareBuffers();
    int RefuseClosed() const;

    IHALGev* m_pHal;
    void* m_hDevice;
    IHALGvmc* m_pLayer = nullptr;
    boost::thread m_thread;
    bool m_open = false;
    bool m_multicast = false;
    int m_accessMode;
};

} // namespace GenTL
