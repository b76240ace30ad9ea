// Two applications on one multicast stream, each a process with the producer
// loaded: the controlling one on the host starts the camera onto the group;
// a listening one, this same program started again in the second host's
// namespace, opens the camera read-only and takes the same images without
// ever writing to it.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <string>

#include "GrabTestBed.h"

namespace kesta_grab {
namespace {

constexpr uint32_t kWidthPx = 128;
constexpr uint32_t kHeightPx = 32;
constexpr float kFps = 50.0f;
constexpr char kListenerRole[] = "KESTA_MULTICAST_LISTENER";

class Multicast : public GrabTest {
protected:
    /// Opens with `access`, joins the group and starts; counts the images
    /// that arrive complete and exact out of `count`.
    int TakeFromTheGroup(DEVICE_ACCESS_FLAGS access, int count,
                         const std::function<bool()>& more = nullptr) {
        Open(kWidthPx, kHeightPx, kFps, access);
        if (HasFatalFailure()) {
            return -1;
        }
        EXPECT_TRUE(SetStreamBool(kStreamMulticastEnable, STREAM_INFO_MULTICAST_ENABLE, true))
            << LastErrorText(m_api);
        AnnounceAndQueue(4);
        Start();
        if (HasFatalFailure()) {
            return -1;
        }
        int exact = 0;
        for (int i = 0; i < count || (more && more()); ++i) {
            Delivered d;
            if (!Next(d)) {
                ADD_FAILURE() << "no image " << i;
                break;
            }
            if (!d.incomplete && d.sizeFilled == PayloadBytes() &&
                FirstWrongByte(d.base, d.sizeFilled, d.frameId) < 0) {
                ++exact;
            }
            Requeue(d);
        }
        return exact;
    }
};

TEST_F(Multicast, ControllerAndListenerTakeTheSameStream) {
    const std::string host2 = kesta_netns::Env("KESTA_NETNS_HOST2");
    ASSERT_FALSE(host2.empty()) << "needs the second host";
    char self[4096] = {};
    ASSERT_GT(::readlink("/proc/self/exe", self, sizeof self - 1), 0);
    // The listener leaves its count of exact images in a file: a listener
    // that skipped or crashed leaves none.
    char report[] = "/tmp/kesta-multicast-XXXXXX";
    const int fd = ::mkstemp(report);
    ASSERT_GE(fd, 0);
    ::close(fd);
    const std::string listener =
        std::string("env ") + kListenerRole + "=" + report + " KESTA_NETNS_HOST=" + host2 +
        " KESTA_NETNS_HOST_IF=" + kesta_netns::Env("KESTA_NETNS_HOST2_IF") + " ip netns exec " +
        host2 + " " + self + " --gtest_filter=Multicast.ListenerTakesTheGroupsImages";

    std::future<int> status;
    const int exact = TakeFromTheGroup(DEVICE_ACCESS_CONTROL, 10, [&] {
        // Once the stream runs, the listener joins; keep taking until it ends.
        if (!status.valid()) {
            status = std::async(std::launch::async, [&] { return std::system(listener.c_str()); });
        }
        return status.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
    });
    EXPECT_GE(exact, 10);
    ASSERT_TRUE(status.valid());
    const int rc = status.get();
    EXPECT_TRUE(WIFEXITED(rc) && WEXITSTATUS(rc) == 0) << "the listener failed: " << rc;
    int listened = -1;
    if (std::FILE* f = std::fopen(report, "r")) {
        if (std::fscanf(f, "%d", &listened) != 1) {
            listened = -1;
        }
        std::fclose(f);
    }
    ::unlink(report);
    EXPECT_EQ(listened, 10) << "exact images the listener took";
}

// Run only by the test above, in the second host.
TEST_F(Multicast, ListenerTakesTheGroupsImages) {
    const std::string report = kesta_netns::Env(kListenerRole);
    if (report.empty()) {
        GTEST_SKIP() << "the controlling test starts this one";
    }
    const int exact = TakeFromTheGroup(DEVICE_ACCESS_READONLY, 10);
    if (std::FILE* f = std::fopen(report.c_str(), "w")) {
        std::fprintf(f, "%d\n", exact);
        std::fclose(f);
    }
}

} // namespace
} // namespace kesta_grab
