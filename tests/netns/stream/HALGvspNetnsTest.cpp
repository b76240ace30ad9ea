// The GVSP layer over UDP against simulated cameras, inside the network
// namespaces of tests/netns/run-with-camera: what the camera's registers
// hold after Start and Stop, the firewall datagram, packet size negotiation
// over real links, extended ids, and multicast with a controlling and a
// listening application at once. Camera 1 of the test bed keeps a long
// heartbeat, so that the waits for packets keep control; camera 6 has no
// source port register and no extended ids (see ../CMakeLists.txt).
#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "GenTL_KESTA.h"
#include "HalApplication.h"
#include "api/Error.h"
#include "hal/HALGev.h"
#include "hal/SocketHelper.h"
#include "stream/GvspCapabilities.h"
#include "stream/HALGvspUDP.h"

namespace GenTL {
namespace {

using namespace kesta_netns;

constexpr long kDiscoveryMs = 300;
constexpr std::uint32_t kGroup = 0xEF0A0A0A; // 239.10.10.10

/// One application on one host namespace: camera `camera` of the test bed
/// opened (with control or without) and a GVSP layer.
class Application : public HalApplication {
public:
    Application(std::uint32_t adapterIp, bool control, std::size_t camera)
        : HalApplication(adapterIp) {
        const std::vector<std::string> serials = EnvList("KESTA_CAMERA_SERIALS");
        if (Adapter() != nullptr && serials.size() > camera) {
            Discover(kDiscoveryMs);
            m_device = OpenCamera(serials[camera], control);
        }
    }

    bool Ok() const { return m_device != nullptr; }
    void* Device() { return m_device; }

    unsigned Reg(unsigned address) {
        unsigned value = 0xDEADBEEF;
        EXPECT_EQ(GC_ERR_SUCCESS, Hal()->ReadReg(m_device, address, value)) << address;
        return value;
    }
    int Start(StreamStartParams& params) { return gvsp->Start(Hal(), m_device, params); }
    int Stop(const StreamStartParams& params) {
        return gvsp->Stop(Hal(), m_device, params.packetSize, params.accessMode);
    }
    /// The stream socket's bound port, host order.
    std::uint16_t StreamPort() const {
        return ntohs(gvsp->Stream().m_pSocket->LocalAddress().sin_port);
    }
    bool StreamOpen() const { return gvsp->Stream().m_pSocket->Descriptor() >= 0; }

    std::unique_ptr<HALGvspUDP> gvsp{new HALGvspUDP()};

private:
    void* m_device = nullptr;
};

StreamStartParams ControllerParams(bool autoNegotiate, bool multicast = false) {
    StreamStartParams params;
    params.accessMode = DEVICE_ACCESS_CONTROL;
    params.autoNegotiatePacketSize = autoNegotiate;
    params.multicastEnable = multicast;
    return params;
}

/// The host application with control of camera m_camera.
class StreamBed : public ::testing::Test {
protected:
    explicit StreamBed(std::size_t camera = 1) : m_camera(camera) {}

    void SetUp() override {
        if (Env("KESTA_NETNS_HOST").empty()) {
            GTEST_SKIP() << "needs the namespaces of run-with-camera";
        }
        ErrorCache::GetErrorCache()->Clear();
        m_hostIp = ParseIp(Env("KESTA_NETNS_HOST_IP"));
        m_app.reset(new Application(m_hostIp, true, m_camera));
        ASSERT_TRUE(m_app->Ok()) << "no camera under control";
    }
    void TearDown() override { m_app.reset(); }

    std::size_t m_camera;
    std::uint32_t m_hostIp = 0;
    std::unique_ptr<Application> m_app;
};

// --- A 1500-byte link ---------------------------------------------------------------

using Unicast = StreamBed;

// Where SCDA and SCP point after Start and Stop is checked through the
// exported functions (netns/datastream), the images by the grab tests.
TEST_F(Unicast, StartTakesTheCamerasFactsAndStopClosesTheSocket) {
    StreamStartParams params = ControllerParams(false);
    ASSERT_EQ(GC_ERR_SUCCESS, m_app->Start(params));
    EXPECT_NE(0u, m_app->StreamPort());
    EXPECT_EQ(1500u, params.packetSize) << "the camera's own size, tested";
    EXPECT_EQ(40u, params.interPacketExpiry) << "the camera has no packet delay";
    EXPECT_EQ(80u, params.bufferExpiry);
    EXPECT_EQ(2u, params.resendRetries);
    EXPECT_EQ(GC_ERR_SUCCESS, m_app->Stop(params));
    EXPECT_FALSE(m_app->StreamOpen());
    // The layer starts again on the same socket object.
    ASSERT_EQ(GC_ERR_SUCCESS, m_app->Start(params));
    EXPECT_EQ(m_app->StreamPort(), m_app->Reg(sk_addrScp));
    EXPECT_EQ(GC_ERR_SUCCESS, m_app->Stop(params));
}

TEST_F(Unicast, FirewallDatagramReachesTheCamerasSourcePort) {
    const unsigned sourcePort = m_app->Reg(sk_addrScsp) & 0xFFFF;
    ASSERT_NE(0u, sourcePort);
    const std::vector<std::string> cameraNs = EnvList("KESTA_CAMERA_NETNS");
    ASSERT_FALSE(cameraNs.empty());
    Sniffer sniffer(cameraNs.at(m_camera), static_cast<std::uint16_t>(sourcePort));
    ASSERT_TRUE(sniffer.Ok());

    StreamStartParams params = ControllerParams(false);
    ASSERT_EQ(GC_ERR_SUCCESS, m_app->Start(params));
    const std::vector<Captured> packets = sniffer.WaitFor(1, 1000);
    ASSERT_EQ(1u, packets.size());
    EXPECT_EQ(Bytes(4, 0), packets[0].payload);
    EXPECT_EQ(m_hostIp, packets[0].sourceIp);
    EXPECT_EQ(m_app->StreamPort(), packets[0].sourcePort) << "sent from the stream socket";
    EXPECT_EQ(GC_ERR_SUCCESS, m_app->Stop(params));
}

TEST_F(Unicast, AutomaticNegotiationSettlesOn1500) {
    StreamStartParams params = ControllerParams(true);
    const auto start = Clock::now();
    ASSERT_EQ(GC_ERR_SUCCESS, m_app->Start(params));
    const auto took = Clock::now() - start;
    EXPECT_EQ(1500u, params.packetSize);
    const unsigned scps = m_app->Reg(sk_addrScps);
    EXPECT_EQ(1500u, scps & sk_scpsSizeMask);
    EXPECT_NE(0u, scps & sk_scpsDoNotFragment);
    EXPECT_EQ(0u, scps & sk_scpsFireTestPacket);
    EXPECT_GE(took, std::chrono::milliseconds(450)) << "five sizes timed out first";
    EXPECT_EQ(GC_ERR_SUCCESS, m_app->Stop(params));
}

TEST_F(Unicast, AFixedSizeAboveTheMtuFailsAndLeavesTheChannelCleared) {
    ASSERT_EQ(GC_ERR_SUCCESS, m_app->Hal()->WriteReg(m_app->Device(), sk_addrScps, 9000));
    StreamStartParams params = ControllerParams(false);
    EXPECT_EQ(GC_ERR_TIMEOUT, m_app->Start(params));
    EXPECT_EQ(0u, m_app->Reg(sk_addrScp));
    EXPECT_FALSE(m_app->StreamOpen());
    Error e;
    ASSERT_EQ(GC_ERR_SUCCESS, ErrorCache::GetErrorCache()->Peak(e));
    EXPECT_NE(std::string::npos,
              e.Message().find("GenTL::HALGvspUDP::Start TestPacketSize Failed with err: -1011"));
}

TEST_F(Unicast, ExtendedIdsAreSwitchedOnInACapableCamera) {
    ASSERT_TRUE(GvspCapabilities{m_app->Reg(sk_addrGvspCaps)}.CanExtendedId());
    EXPECT_EQ(0u, m_app->Reg(sk_addrGvspCofig) & sk_gvspConfigExtendedId);
    bool extendedId = false;
    ASSERT_EQ(GC_ERR_SUCCESS,
              m_app->gvsp->ConfigureExtendedId(m_app->Hal(), m_app->Device(), true, extendedId));
    EXPECT_TRUE(extendedId) << "the camera's read-back wins over the legacy request";
    EXPECT_NE(0u, m_app->Reg(sk_addrGvspCofig) & sk_gvspConfigExtendedId);
}

// --- A 9000-byte link -------------------------------------------------------------

// The only camera of a test bed of its own.
class Jumbo : public StreamBed {
protected:
    Jumbo() : StreamBed(0) {}
};

TEST_F(Jumbo, AutomaticNegotiationTakesTheLargestSize) {
    ASSERT_EQ("9000", Env("KESTA_NETNS_MTU"));
    StreamStartParams params = ControllerParams(true);
    ASSERT_EQ(GC_ERR_SUCCESS, m_app->Start(params));
    EXPECT_EQ(9000u, params.packetSize);
    EXPECT_EQ(9000u, m_app->Reg(sk_addrScps) & sk_scpsSizeMask);
    EXPECT_EQ(GC_ERR_SUCCESS, m_app->Stop(params));
}

// --- A camera without SCSP and without extended ids ------------------------------

class LimitedCamera : public StreamBed {
protected:
    LimitedCamera() : StreamBed(6) {}
};

TEST_F(LimitedCamera, StreamsWithoutFirewallDatagramOrExtendedIds) {
    const GvspCapabilities caps{m_app->Reg(sk_addrGvspCaps)};
    ASSERT_FALSE(caps.HasSourcePort());
    ASSERT_FALSE(caps.CanExtendedId());
    StreamStartParams params = ControllerParams(true);
    ASSERT_EQ(GC_ERR_SUCCESS, m_app->Start(params));
    EXPECT_EQ(m_app->StreamPort(), m_app->Reg(sk_addrScp));
    EXPECT_EQ(1500u, params.packetSize);
    EXPECT_EQ(GC_ERR_SUCCESS, m_app->Stop(params));

    bool extendedId = false;
    ASSERT_EQ(GC_ERR_SUCCESS,
              m_app->gvsp->ConfigureExtendedId(m_app->Hal(), m_app->Device(), false, extendedId));
    // A version 2 camera is taken to send extended ids even so; the
    // configuration word is left alone.
    EXPECT_TRUE(extendedId);
    EXPECT_EQ(0u, m_app->Reg(sk_addrGvspCofig));
}

// --- Multicast: a controller on the host, a listener on the second host ----------

using Multicast = StreamBed;

// The images reach both applications in the grab tests (netns/grab); here
// what each one's Start and Stop leave in the camera.
TEST_F(Multicast, ListenerBindsAtTheGroupsPortAndItsStopWritesNothing) {
    const std::string host2 = Env("KESTA_NETNS_HOST2");
    ASSERT_FALSE(host2.empty()) << "needs --second-host";

    StreamStartParams params = ControllerParams(true, true);
    ASSERT_EQ(GC_ERR_SUCCESS, m_app->Start(params));
    EXPECT_EQ(1500u, params.packetSize) << "negotiated over unicast first";
    EXPECT_EQ(kGroup, m_app->Reg(sk_addrScda));
    const unsigned port = m_app->Reg(sk_addrScp);
    EXPECT_EQ(m_app->StreamPort(), port);
    EXPECT_TRUE(m_app->gvsp->Stream().m_pSocket->IsMulticast());

    // The listener: its own application in the second host, without control.
    struct Outcome {
        bool opened = false;
        int start = -1;
        std::uint16_t port = 0;
        unsigned packetSize = 0;
        int stop = -1;
    };
    const Outcome out = std::async(std::launch::async, [&] {
                            Outcome o;
                            if (!EnterNamespace(host2)) {
                                return o;
                            }
                            Application app(ParseIp(Env("KESTA_NETNS_HOST2_IP")), false, m_camera);
                            o.opened = app.Ok();
                            if (o.opened) {
                                StreamStartParams viewer;
                                viewer.multicastEnable = true;
                                viewer.accessMode = DEVICE_ACCESS_READONLY;
                                viewer.autoNegotiatePacketSize = true;
                                o.start = app.Start(viewer);
                                o.port = app.StreamPort();
                                o.packetSize = viewer.packetSize;
                                o.stop = app.Stop(viewer);
                            }
                            return o;
                        }).get();
    ASSERT_TRUE(out.opened) << "the second host found and opened the camera";
    EXPECT_EQ(GC_ERR_SUCCESS, out.start);
    EXPECT_EQ(port, out.port) << "the listener binds at the camera's SCP";
    EXPECT_EQ(1500u, out.packetSize) << "the size the controller negotiated";
    EXPECT_EQ(GC_ERR_SUCCESS, out.stop);
    EXPECT_EQ(port, m_app->Reg(sk_addrScp)) << "a listener's Stop writes nothing";

    EXPECT_EQ(GC_ERR_SUCCESS, m_app->Stop(params));
    EXPECT_EQ(0u, m_app->Reg(sk_addrScp));
    EXPECT_FALSE(m_app->StreamOpen());
}

} // namespace
} // namespace GenTL
