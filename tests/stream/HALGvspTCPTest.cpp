// The GVSP layer over TCP against a fake camera: where Start points the
// camera and connects, how each of its steps fails, and Stop.
#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <memory>
#include <vector>

#include "FakeGvcpForStream.h"
#include "stream/HALGvspTCP.h"

namespace kesta::test {
namespace {

constexpr unsigned kGvspCaps = 0x092C;
constexpr unsigned kScp = 0x0D00;
constexpr unsigned kScda = 0x0D18;

/// The connection, recorded: nothing goes on the wire.
class FakeTcpSocket : public GenTL::TCPSocket {
public:
    int OpenAndConnectSocket(sockaddr_in remote) override {
        connects.push_back(remote);
        open = connectResult == GC_ERR_SUCCESS;
        return connectResult;
    }
    int Close() override {
        open = false;
        return GC_ERR_SUCCESS;
    }

    std::vector<sockaddr_in> connects;
    int connectResult = GC_ERR_SUCCESS;
    bool open = false;
};

/// A device opened on 127.0.0.1 towards a camera at 127.0.0.2, and a fresh
/// layer per case.
class TcpLayer : public ::testing::Test {
protected:
    TcpLayer() {
        device.socket.reset(new GenTL::CommSocket());
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        device.socket->OpenAndBindSocket(local, "127.0.0.2", 3956, false, 100);
        GenTL::ErrorCache::GetErrorCache()->Clear();
    }
    ~TcpLayer() override { device.socket->Close(); }

    struct Bed {
        explicit Bed(FakeStreamLink& link)
            : hal(link), socket(std::make_shared<FakeTcpSocket>()), layer(socket) {}
        FakeGvcpForStream hal;
        std::shared_ptr<FakeTcpSocket> socket;
        GenTL::HALGvspTCP layer;
    };

    int Start(Bed& bed, int accessMode) {
        GenTL::StreamStartParams params;
        params.accessMode = accessMode;
        return bed.layer.Start(&bed.hal, GenTL::ToOpaque(&device), params);
    }

    FakeStreamLink link;
    GenTL::DeviceHandle device;
};

TEST_F(TcpLayer, StartPointsTheCameraHereAndConnectsToItsStreamPort) {
    Bed bed(link);
    bed.layer.SetNextLeaderArrived();
    ASSERT_EQ(GC_ERR_SUCCESS, Start(bed, DEVICE_ACCESS_CONTROL));
    EXPECT_EQ(std::vector<unsigned>{INADDR_LOOPBACK}, bed.hal.WritesTo(kScda));
    EXPECT_EQ(std::vector<unsigned>{58243}, bed.hal.WritesTo(kScp));
    ASSERT_EQ(1u, bed.socket->connects.size());
    EXPECT_EQ(0x7F000002u, ntohl(bed.socket->connects[0].sin_addr.s_addr));
    EXPECT_EQ(58243, ntohs(bed.socket->connects[0].sin_port));
    EXPECT_EQ(GC_ERR_TIMEOUT, bed.layer.WaitForNextLeader(0)) << "Start forgot the old arrival";

    ASSERT_EQ(GC_ERR_SUCCESS,
              bed.layer.Stop(&bed.hal, GenTL::ToOpaque(&device), 0, DEVICE_ACCESS_EXCLUSIVE));
    EXPECT_EQ((std::vector<unsigned>{58243, 0}), bed.hal.WritesTo(kScp));
    EXPECT_FALSE(bed.socket->open);
}

TEST_F(TcpLayer, EachFailingStepEndsStartThere) {
    struct Row {
        const char* step;
        int accessMode;
        unsigned failingRead;
        unsigned failingWrite;
        int connectResult;
        int code;
        std::size_t writes;
        std::size_t connects;
    };
    const Row rows[] = {
        {"a viewer", DEVICE_ACCESS_READONLY, 0, 0, 0, GC_ERR_RESOURCE_IN_USE, 0, 0},
        {"capabilities", DEVICE_ACCESS_CONTROL, kGvspCaps, 0, 0, GC_ERR_TIMEOUT, 0, 0},
        {"SCDA", DEVICE_ACCESS_CONTROL, 0, kScda, 0, GC_ERR_ACCESS_DENIED, 1, 0},
        {"SCP", DEVICE_ACCESS_CONTROL, 0, kScp, 0, GC_ERR_TIMEOUT, 2, 0},
        {"connect", DEVICE_ACCESS_CONTROL, 0, 0, GC_ERR_ABORT, GC_ERR_ABORT, 2, 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.step);
        Bed bed(link);
        if (row.failingRead != 0) {
            bed.hal.readFailures[row.failingRead] = row.code;
        }
        if (row.failingWrite != 0) {
            bed.hal.writeFailures[row.failingWrite] = row.code;
        }
        bed.socket->connectResult = row.connectResult;
        EXPECT_EQ(row.code, Start(bed, row.accessMode));
        EXPECT_EQ(row.writes, bed.hal.Writes());
        EXPECT_EQ(row.connects, bed.socket->connects.size());
        EXPECT_FALSE(bed.socket->open);
    }
}

TEST_F(TcpLayer, StopClosesUnlessTheCameraRefusesTheStop) {
    struct Row {
        const char* what;
        int accessMode;
        int scpResult;
        int code;
        bool stillOpen;
    };
    const Row rows[] = {
        {"a camera gone", DEVICE_ACCESS_CONTROL, GC_ERR_TIMEOUT, GC_ERR_SUCCESS, false},
        {"a refusal", DEVICE_ACCESS_CONTROL, GC_ERR_ACCESS_DENIED, GC_ERR_ACCESS_DENIED, true},
        {"a viewer writes nothing", DEVICE_ACCESS_READONLY, GC_ERR_ACCESS_DENIED, GC_ERR_SUCCESS,
         false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        Bed bed(link);
        ASSERT_EQ(GC_ERR_SUCCESS, Start(bed, DEVICE_ACCESS_CONTROL));
        bed.hal.writeFailures[kScp] = row.scpResult;
        EXPECT_EQ(row.code, bed.layer.Stop(&bed.hal, GenTL::ToOpaque(&device), 0, row.accessMode));
        EXPECT_EQ(row.stillOpen, bed.socket->open);
    }
}

} // namespace
} // namespace kesta::test
