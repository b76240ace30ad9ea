#pragma once
/**
 * SocketHelper: the library's three socket kinds. Nothing else in the library
 * touches a socket directly.
 *
 *  - CommSocket: blocking UDP socket of a GVCP control channel (one per open
 *    adapter and device); remembers one peer.
 *  - OverlappedSocket: UDP socket that the stream and message channels
 *    receive on; unicast, multicast as the group's sender side, or multicast
 *    as a listener on a fixed port.
 *  - TCPSocket: stream socket of image transport over TCP.
 *  - PacketRingSocket: a memory-mapped ring of the UDP datagrams of one
 *    sender and port, beside a stream's OverlappedSocket (needs CAP_NET_RAW).
 *
 * All three use plain blocking calls with a receive timeout (SO_RCVTIMEO);
 * a timeout of 0 ms blocks until data arrives or the socket is closed.
 * Every operation returns 0 or a GC_ERR_* code and records a failure in the
 * calling thread's error cache; failures are also logged through HLogger.
 *
 * Lifecycle: made with new, opened, closed. Close() may be called from any
 * thread and is the way to end a blocking receive early: the receive then
 * fails as on a closed descriptor (EBADF). Destruction does not close.
 * OverlappedSocket may be opened again after Close().
 *
 * Local ports of CommSocket and OverlappedSocket::OpenAndBindSocket are
 * drawn from 49152..65535: the C generator is seeded with the process id,
 * so every open in a process starts at the same port, and goes on upwards
 * (wrapping to 49152) past ports that are taken. A bind that only succeeds
 * after the wrap, below the start port, counts as a failure; if every port
 * is taken the open reports success with an unbound socket.
 */
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include <boost/thread/mutex.hpp>

namespace GenTL {

namespace detail {

/// A socket descriptor that one thread may close while others block on it.
/// Close() shuts the socket down, which wakes blocked calls, and releases the
/// descriptor only after they have left, so a descriptor number is never
/// used after it could have been reused.
class SocketDescriptor {
public:
    SocketDescriptor() = default;
    SocketDescriptor(const SocketDescriptor&) = delete;
    SocketDescriptor& operator=(const SocketDescriptor&) = delete;

    /// Takes ownership of an open descriptor.
    void Assign(int fd);
    /// Shuts down and closes; no-op when nothing is open.
    void Close();
    /// The descriptor, or -1.
    int Get() const;

    /// Runs call(fd) and returns its result. Without an open descriptor the
    /// result is -1 with errno EBADF, and so it is for a receive that
    /// Close() ended (the shut-down socket returns 0 to it).
    template <class Call> ssize_t Run(Call call, bool receive = false) {
        int fd;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_fd < 0) {
                errno = EBADF;
                return -1;
            }
            fd = m_fd;
            ++m_users;
        }
        ssize_t result = call(fd);
        int err = errno;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (receive && m_fd != fd && result == 0) {
                result = -1;
                err = EBADF;
            }
            if (--m_users == 0) {
                m_idle.notify_all();
            }
        }
        errno = err;
        return result;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_idle;
    int m_fd = -1;
    int m_users = 0;
};

/// Binds fd at local's address to the first free port from start upwards,
/// wrapping from 65535 to 49152, with at most 16384 tries; local's port is
/// the last one tried. Returns false when the port reached lies below start
/// (a bind after the wrap); true otherwise, unbound if every try failed.
bool BindFromPort(int fd, sockaddr_in& local, uint16_t start);

/// The start port of the search: 49152 + rand() % 16384 after
/// srand(getpid()).
uint16_t ProcessStartPort();

} // namespace detail

/// UDP socket of the GVCP control channel.
class CommSocket {
public:
    CommSocket();
    virtual ~CommSocket();
    CommSocket(const CommSocket&) = delete;
    CommSocket& operator=(const CommSocket&) = delete;

    /// Opens a UDP socket with the receive timeout timeoutMs, SO_BROADCAST
    /// set to broadcast (and SO_REUSEADDR when it is on), binds it at
    /// local's address on a port of the search above, and remembers
    /// remoteIp:remotePort as the peer. A remoteIp that is no address
    /// leaves the peer's IP at 0.
    virtual int OpenAndBindSocket(sockaddr_in local, const std::string& remoteIp,
                                  unsigned short remotePort, bool broadcast, int timeoutMs);
    /// Sets the receive timeout and hands back the former one in ms.
    virtual int SetTimeout(int timeoutMs, int& oldTimeoutMs);
    /// Sends length bytes to the peer. A non-zero ip (network order, as it
    /// stands in memory) first replaces the peer's IP for this and all later
    /// sends. A short send is GC_ERR_IO.
    virtual int Send(const char* data, int length, unsigned ip);
    /// Receives one datagram into buffer; its length is not reported. A
    /// timeout is GC_ERR_TIMEOUT, recorded unless silent; other failures are
    /// GC_ERR_BUSY. Takes only the peer's datagrams, as the overload below.
    virtual int Receive(char* buffer, int length, bool silent);
    /// Closes the socket; ends a receive blocked in another thread.
    virtual int Close();
    /// As Receive, telling in received the datagram's whole size (more than
    /// length when it was cut), and waiting at most waitMs (kSocketTimeout:
    /// the socket's own timeout). When the peer is one host, a datagram from
    /// any other address or port is dropped, and the wait goes on for what
    /// is left of it: nobody else can answer for the peer, nor hold the wait
    /// open.
    virtual int Receive(char* buffer, int length, bool silent, int& received, int waitMs);
    static constexpr int kSocketTimeout = -1;

    /// The receive timeout set on the socket, ms; 0 is none.
    int Timeout() const { return m_timeoutMs; }

    /// The bound address (port of the successful bind), network order.
    const sockaddr_in& LocalAddress() const { return m_localAddr; }
    /// Where Send() goes, network order.
    const sockaddr_in& RemoteAddress() const { return m_remoteAddr; }
    /// The descriptor, -1 when not open.
    int Descriptor() const { return m_socket.Get(); }

private:
    /// Whether a datagram from this address is the peer's; anyone's when
    /// the peer is no single host (any or broadcast address).
    bool FromPeer(const sockaddr_in& from) const;

    sockaddr_in m_localAddr;
    sockaddr_in m_remoteAddr;
    detail::SocketDescriptor m_socket;
    std::atomic<int> m_timeoutMs{0};
};

/// UDP socket of the stream and message channels; one reader thread.
class OverlappedSocket {
public:
    OverlappedSocket();
    virtual ~OverlappedSocket();
    OverlappedSocket(const OverlappedSocket&) = delete;
    OverlappedSocket& operator=(const OverlappedSocket&) = delete;

    /// Unicast: binds at local's address on a port of the search above;
    /// timeout 200 ms.
    virtual int OpenAndBindSocket(sockaddr_in local);
    /// Sender side of a multicast group (host order): binds with
    /// SO_REUSEADDR at a random port of 49152..65534 and joins group on the
    /// default interface; timeout 200 ms.
    virtual int OpenAndBindSocketForMulticast(sockaddr_in local, int group);
    /// Listener side: binds with SO_REUSEADDR at exactly port, joins group
    /// (host order) on the default interface; timeout 200 ms.
    virtual int OpenAndBindSocketForMulticastListening(sockaddr_in local, int group,
                                                       unsigned short port);
    /// Sends length bytes to to; a short send is GC_ERR_IO.
    virtual int Send(const char* data, int length, sockaddr_in to);
    /// Receives one datagram of at most length bytes; received is its size.
    /// The socket's timeout is changed only when timeoutMs differs from the
    /// one set. Timeout: GC_ERR_TIMEOUT; other failures GC_ERR_IO.
    virtual int GetNextResult(char* buffer, int length, int& received, int timeoutMs);
    /// As GetNextResult, scattering one datagram: the first headLength bytes
    /// into head, the rest into body. A datagram longer than both gives
    /// GC_ERR_BUFFER_TOO_SMALL with the parts filled as far as they go.
    virtual int GetNextResultNoCopy(char* head, int headLength, int& headReceived, char* body,
                                    int bodyLength, int& bodyReceived, int timeoutMs);
    /// As GetNextResult, telling the sender too. received is the datagram's
    /// whole length, which exceeds length when the socket cut it.
    virtual int GetNextResultFrom(char* buffer, int length, int& received, sockaddr_in& from,
                                  int timeoutMs);
    /**
     * Many datagrams in one call (recvmmsg): waits as GetNextResult for the
     * first, then takes what else is queued, up to count. Each message's
     * msg_len is its size, and MSG_TRUNC in its msg_flags marks one longer
     * than its vectors. got is the number of messages filled. A quiet
     * channel (GC_ERR_TIMEOUT) is not logged.
     */
    virtual int GetNextResults(mmsghdr* messages, unsigned count, int& got, int timeoutMs);
    /// Leaves a joined group and closes; ends a receive blocked elsewhere.
    virtual int Close();
    /// Sets the receive timeout on the socket (not the stored value).
    virtual int SetTimeout(int timeoutMs);
    /**
     * Lets the kernel hand this socket only datagrams from `sender` (network
     * order; any of its ports), so that stream packets count only from the
     * camera asked. Sends to other addresses still go out. Call after an
     * open; a failure to attach the filter is GC_ERR_IO.
     */
    virtual int AcceptOnlyFrom(in_addr sender);
    /**
     * Lets the kernel queue no datagram at all on this socket, which stays
     * bound: a stream read from a packet ring keeps its port open, so that
     * the camera's packets are not answered with port-unreachable, without a
     * second copy of every packet queued (and then dropped, counted as
     * receive buffer errors) here.
     */
    virtual int RefuseAll();

    /// Asks the kernel for a receive buffer of `bytes` (beyond the system's
    /// limit where the process may); returns the size granted, 0 on failure.
    int RequestReceiveBuffer(int bytes);

    /// The bound address, network order; valid after a successful open.
    const sockaddr_in& LocalAddress() const { return m_localAddr; }
    /// Timeout in ms stored as set on the socket.
    int Timeout() const { return m_timeout; }
    /// Whether a multicast open marked the socket.
    bool IsMulticast() const { return m_multicast; }
    int Descriptor() const { return m_socket.Get(); }

private:
    int FinishOpen(bool reportAtErrorLevel, const char* bufferLine);

    sockaddr_in m_localAddr;
    bool m_multicast = false;
    ip_mreq m_groupRequest;
    int m_timeout = 0;
    detail::SocketDescriptor m_socket;

    /// Held through the random-port opens, so that their choices run one at
    /// a time.
    static boost::mutex m_overlappedSocketMutex;
};

/**
 * A memory-mapped receive ring (AF_PACKET, TPACKET_V3) of the IPv4 UDP
 * datagrams that one sender sends to one destination address and port. The
 * kernel copies each datagram into the ring as it arrives, beside the normal
 * path to the UDP socket bound at that port (which must exist), and the
 * reader takes whole blocks of them without a system call while any are
 * ready. A socket filter keeps everything else out: other senders, other
 * ports, fragments, this host's own sends.
 *
 * One reader thread; Close() only while no thread reads (the data of the
 * datagrams handed out lie in the ring's memory).
 */
class PacketRingSocket {
public:
    /// One datagram's UDP payload, in the ring.
    struct Datagram {
        const char* data = nullptr;
        int length = 0;
    };

    PacketRingSocket() = default;
    ~PacketRingSocket();
    PacketRingSocket(const PacketRingSocket&) = delete;
    PacketRingSocket& operator=(const PacketRingSocket&) = delete;

    /**
     * Opens a ring of about `bytes` on the interface that carries `adapter`
     * (every interface when none does) for datagrams from `source` to
     * `destination`:`port` (network order). Without CAP_NET_RAW the result
     * is GC_ERR_ACCESS_DENIED; other failures GC_ERR_RESOURCE_EXHAUSTED.
     */
    int Open(in_addr source, in_addr destination, in_port_t port, in_addr adapter,
             std::size_t bytes);
    /**
     * Hands out up to count datagrams, waiting at most timeoutMs for the
     * first (GC_ERR_TIMEOUT, not logged). They stay valid until the next
     * call or Close. Datagrams whose IP or UDP checksum is wrong, or whose
     * headers do not add up, are passed over.
     */
    int Next(Datagram* out, int count, int& got, int timeoutMs);
    /// Unmaps the ring and closes the socket.
    int Close();
    bool IsOpen() const { return m_fd >= 0; }

private:
    /// Whether the frame holds a sound datagram; fills `out` if so.
    static bool ReadFrame(const char* frame, Datagram& out);
    char* Block(unsigned index) const {
        return m_ring + static_cast<std::size_t>(index) * m_blockSize;
    }

    int m_fd = -1;
    char* m_ring = nullptr;
    std::size_t m_ringSize = 0;
    std::size_t m_blockSize = 0;
    unsigned m_blocks = 0;
    unsigned m_block = 0;      ///< the block being read, or the next to be
    unsigned m_handedOut = 0;  ///< blocks before m_block, handed out whole, not given back
    unsigned m_framesLeft = 0; ///< frames of m_block not handed out yet
    const char* m_frame = nullptr;
};

/// Stream socket of image transport over TCP; one reader thread.
class TCPSocket {
public:
    using FirstDataCallback = std::function<void()>;

    TCPSocket();
    explicit TCPSocket(FirstDataCallback onFirstData);
    virtual ~TCPSocket();
    TCPSocket(const TCPSocket&) = delete;
    TCPSocket& operator=(const TCPSocket&) = delete;

    /// Connects to remote within 3 s; read timeout 200 ms. Failures are
    /// GC_ERR_ABORT.
    virtual int OpenAndConnectSocket(sockaddr_in remote);
    /// Reads until length bytes are in buffer, then sets received and copies
    /// the first copyLength bytes (at most length) to copyTo. The first-data
    /// callback runs once per call, after the first receive that returns.
    /// The timeout applies to each receive: GC_ERR_TIMEOUT; other failures,
    /// a peer that closed among them, GC_ERR_IO. On failure received tells
    /// the bytes that this call did put into buffer.
    virtual int GetNextResult(char* buffer, int length, int& received, char* copyTo,
                              unsigned long copyLength, int timeoutMs);
    /// Closes; ends a receive blocked in another thread.
    virtual int Close();
    /// Sets the receive timeout on the socket (not the stored value).
    virtual int SetTimeout(int timeoutMs);

    /// Sets the callable run when a frame's first data arrive; set it before
    /// use.
    void SetFirstDataCallback(FirstDataCallback onFirstData);
    const sockaddr_in& RemoteAddress() const { return m_remoteAddr; }
    int Timeout() const { return m_timeout; }
    int Descriptor() const { return m_socket.Get(); }

private:
    sockaddr_in m_remoteAddr;
    FirstDataCallback m_onFirstData;
    int m_timeout = 0;
    detail::SocketDescriptor m_socket;
};

} // namespace GenTL
