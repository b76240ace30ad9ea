// The camera's end of the TCP stream: a listener on port 58243 of the
// camera's address and one connected receiver. A frame is a 60-byte header
// and the block's payload. The faults of the TCP stream (refused connects,
// resets and stalls in the middle of a frame, frames longer than the image)
// happen here.
#pragma once

#include "FaultInjector.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace gevsim {

class TcpStreamServer {
public:
    TcpStreamServer(std::string name, FaultInjector& faults);
    ~TcpStreamServer();

    bool open(uint32_t ip, std::string& error);
    void shutdown();
    bool connected() const;
    void disconnect();
    // Sends one whole frame; a failed send drops the connection.
    bool sendFrame(const uint8_t* header, size_t headerSize, const uint8_t* payload,
                   size_t payloadSize);

private:
    void run();
    bool sendAll(int fd, const uint8_t* data, size_t size);
    void dropClient(const char* why, bool reset);

    std::string m_name;
    FaultInjector& m_faults;
    uint64_t m_framesOnConnection = 0; // under m_mutex
    bool m_stalled = false;            // under m_mutex: the sender stopped mid-frame
    int m_listenFd = -1;
    int m_clientFd = -1;
    mutable std::mutex m_mutex;
    std::atomic<bool> m_running{false};
    std::thread m_thread;
};

} // namespace gevsim
