// A small GigE Vision host for the simulator's tests: GVCP transactions,
// discovery, and GVSP reception with block assembly. Written apart from both
// the library and the simulator, so that it checks the wire, not the code.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace gevtest {

// The test bed as the harness describes it in the environment.
struct TestBed {
    bool present = false;
    uint32_t hostIp = 0;
    uint32_t broadcast = 0;
    std::vector<uint32_t> cameraIps;
    std::vector<std::string> cameraMacs;
    std::vector<std::string> serials;
    std::string host2Namespace;
    uint32_t host2Ip = 0;
    int mtu = 1500;
    static TestBed fromEnvironment();
};

uint16_t be16(const uint8_t* p);
uint32_t be32(const uint8_t* p);
uint64_t be64(const uint8_t* p);
void putBe16(std::vector<uint8_t>& b, size_t off, uint16_t v);
void putBe32(std::vector<uint8_t>& b, size_t off, uint32_t v);

// A UDP socket, optionally created inside another network namespace.
class Socket {
public:
    Socket(uint32_t bindIp, uint16_t port = 0, const std::string& netns = "");
    ~Socket();
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    bool ok() const { return m_fd >= 0; }
    int fd() const { return m_fd; }
    uint16_t port() const;
    bool send(uint32_t ip, uint16_t port, const std::vector<uint8_t>& data) const;
    // Returns false on time-out.
    bool receive(std::vector<uint8_t>& data, int timeoutMs, uint32_t* fromIp = nullptr,
                 uint16_t* fromPort = nullptr) const;

private:
    int m_fd = -1;
};

struct Ack {
    bool received = false;
    uint16_t status = 0;
    uint16_t code = 0;
    uint16_t length = 0;
    uint16_t id = 0;
    std::vector<uint8_t> data; // behind the 8-byte header
};

class GvcpClient {
public:
    explicit GvcpClient(uint32_t cameraIp, uint32_t bindIp = 0, const std::string& netns = "");

    uint16_t nextId();
    uint16_t lastId() const { return m_id; }
    // One command and its ack; pending acks are collected and waited past.
    Ack transact(uint16_t command, const std::vector<uint8_t>& payload, int timeoutMs = 500,
                 uint8_t flags = 0x01);
    void sendCommand(uint16_t command, const std::vector<uint8_t>& payload, uint8_t flags,
                     uint16_t id, uint16_t lengthField);
    Ack receiveAck(int timeoutMs);

    uint16_t readReg(uint32_t address, uint32_t& value);
    uint16_t writeReg(uint32_t address, uint32_t value);
    uint16_t readMem(uint32_t address, size_t length, std::vector<uint8_t>& out);
    uint16_t writeMem(uint32_t address, const std::vector<uint8_t>& data);
    uint32_t reg(uint32_t address); // fails the test on an error

    // Control with a heartbeat of timeoutMs and the stream channel aimed at us.
    uint16_t claim(uint32_t ccpValue = 2);
    uint16_t release();

    Socket& socket() { return m_socket; }
    uint32_t cameraIp() const { return m_cameraIp; }
    void setCameraIp(uint32_t ip) { m_cameraIp = ip; }

private:
    uint32_t m_cameraIp;
    Socket m_socket;
    uint16_t m_id = 0;
};

struct DiscoveryAnswer {
    uint32_t fromIp = 0;
    std::vector<uint8_t> payload; // the 248 bytes behind the ack header
    std::string serial() const;
    uint32_t ip() const;
    uint64_t mac() const;
};

std::vector<DiscoveryAnswer> discover(uint32_t hostIp, uint32_t target, int timeoutMs);

// GVSP packets parsed into blocks.
struct GvspPacket {
    uint16_t status = 0;
    bool extended = false;
    uint8_t format = 0;
    uint64_t blockId = 0;
    uint32_t packetId = 0;
    std::vector<uint8_t> data; // behind the header
};
bool parseGvsp(const std::vector<uint8_t>& raw, GvspPacket& packet);

struct Block {
    uint64_t id = 0;
    bool leader = false;
    bool trailer = false;
    uint16_t payloadType = 0;
    uint64_t timestamp = 0;
    uint32_t pixelFormat = 0, width = 0, height = 0;
    uint32_t trailerSizeY = 0;
    uint32_t trailerPacketId = 0;
    std::map<uint32_t, std::vector<uint8_t>> payload; // by packet id
    uint32_t duplicates = 0;

    size_t dataPerPacket() const; // size of packet 1
    bool complete() const;
    std::vector<uint8_t> bytes() const; // the payload in order, gaps as zeros
};

class GvspReceiver {
public:
    explicit GvspReceiver(uint32_t bindIp);
    uint16_t port() const { return m_socket.port(); }
    Socket& socket() { return m_socket; }
    // Reads packets for up to timeoutMs and files them into blocks; stops
    // early once wantTrailers blocks (if not 0) have trailers. Returns the
    // packets read.
    std::vector<GvspPacket> collect(std::map<uint64_t, Block>& blocks, size_t wantTrailers,
                                    int timeoutMs);
    static void file(const GvspPacket& p, std::map<uint64_t, Block>& blocks);

private:
    Socket m_socket;
};

// The BlockStamp pattern, worked out here on its own.
uint8_t expectedByte(uint64_t blockId, size_t offset);
// Number of bytes of data that differ from the pattern (gaps count).
size_t patternErrors(uint64_t blockId, const std::vector<uint8_t>& data);

// Bootstrap addresses the tests use.
namespace addr {
constexpr uint32_t kVersion = 0x0000, kDeviceMode = 0x0004, kMacHigh = 0x0008, kMacLow = 0x000C;
constexpr uint32_t kCurrentIp = 0x0024, kUserName = 0x00E8, kFirstUrl = 0x0200, kSecondUrl = 0x0400;
constexpr uint32_t kActionDeviceKey = 0x090C, kGvspCap = 0x092C, kMsgCap = 0x0930,
                   kGvcpCap = 0x0934;
constexpr uint32_t kHeartbeat = 0x0938, kTickHigh = 0x093C, kTickLow = 0x0940;
constexpr uint32_t kGvcpConfig = 0x0954, kPendingTimeout = 0x0958, kSwitchoverKey = 0x095C,
                   kGvspConfig = 0x0960;
constexpr uint32_t kCcp = 0x0A00, kMcp = 0x0B00, kMcda = 0x0B10, kMcsp = 0x0B1C;
constexpr uint32_t kScp = 0x0D00, kScps = 0x0D04, kScpd = 0x0D08, kScda = 0x0D18, kScsp = 0x0D1C;
constexpr uint32_t kManifest = 0x9000, kGroupKey = 0x9800, kGroupMask = 0x9804;
constexpr uint32_t kWidth = 0x10000, kHeight = 0x10004, kPixelFormat = 0x10008,
                   kPayloadSize = 0x1000C;
constexpr uint32_t kAcqMode = 0x10010, kAcqStart = 0x10014, kAcqStop = 0x10018,
                   kFrameRate = 0x1001C;
constexpr uint32_t kTestPattern = 0x10020, kFrameCount = 0x10024, kVariableSize = 0x10028,
                   kEventRate = 0x1002C;
constexpr uint32_t kActionCount = 0x10030;
// The camera's record of the last action command received (times: high
// word first).
constexpr uint32_t kActionsReceived = 0x10100, kLastActionDeviceKey = 0x10104,
                   kLastActionGroupKey = 0x10108, kLastActionGroupMask = 0x1010C,
                   kLastActionTime = 0x10110, kLastActionLength = 0x10118,
                   kLastActionArrival = 0x1011C, kLastActionSource = 0x10124;
} // namespace addr

uint32_t floatBits(float f);

} // namespace gevtest
