#include <sstream>

#include <gtest/gtest.h>

#include "stream/GvspReceiveMode.h"

namespace GenTL {
namespace {

// The key of KestaGentl.cfg among the control layer's keys: any case, the
// last line wins, a bad value changes nothing.
TEST(GvspReceiveMode, SettingsLineChoosesTheMode) {
    const struct {
        const char* file;
        GvspReceiveMode mode;
    } cases[] = {
        {"", GvspReceiveMode::Auto},
        {"gvcp.timeout 500\ngvsp.receiveMode batch\n", GvspReceiveMode::Batch},
        {"GVSP.RECEIVEMODE Ring # comment", GvspReceiveMode::Ring},
        {"gvsp.receiveMode single\ngvsp.receiveMode ring", GvspReceiveMode::Ring},
        {"gvsp.receiveMode single\ngvsp.receiveMode fast", GvspReceiveMode::Single},
        {"gvsp.receiveModeX batch", GvspReceiveMode::Auto},
    };
    for (const auto& c : cases) {
        std::istringstream in(c.file);
        EXPECT_EQ(ReceiveModeFromSettings(in), c.mode) << c.file;
    }
}

} // namespace
} // namespace GenTL
