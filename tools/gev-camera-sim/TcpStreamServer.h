// The camera's end of the TCP stream: a listener on port 58243 of the
// camera's address and one connected receiver. A frame is a 60-byte header
// and the block's payload.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace gevsim {

class TcpStreamServer {
public:
    explicit TcpStreamServer(std::string name);
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

    std::string m_name;
    int m_listenFd = -1;
    int m_clientFd = -1;
    mutable std::mutex m_mutex;
    std::atomic<bool> m_running{false};
    std::thread m_thread;
};

} // namespace gevsim
