// Common set-up of the simulator's network tests: the test bed from the
// harness, a controlling client, and a stream aimed at a local receiver.
#pragma once

#include "GevClient.h"

#include <gtest/gtest.h>

#include <memory>

namespace gevtest {

class SimTest : public ::testing::Test {
protected:
    void SetUp() override {
        bed = TestBed::fromEnvironment();
        if (!bed.present || bed.cameraIps.empty())
            GTEST_SKIP() << "needs the run-with-camera test bed";
        client = std::make_unique<GvcpClient>(bed.cameraIps[0], bed.hostIp);
        ASSERT_TRUE(client->socket().ok());
    }

    // Takes control and puts back what earlier tests of the same camera
    // may have changed.
    void claimWithDefaults() {
        EXPECT_EQ(client->claim(), 0);
        EXPECT_EQ(client->writeReg(addr::kAcqMode, 0), 0);
        EXPECT_EQ(client->writeReg(addr::kPixelFormat, 0x01080001), 0);
        EXPECT_EQ(client->writeReg(addr::kVariableSize, 0), 0);
        EXPECT_EQ(client->writeReg(addr::kGvspConfig, 0), 0);
        EXPECT_EQ(client->writeReg(addr::kScpd, 0), 0);
    }

    // Takes control and aims stream channel 0 at a new receiver.
    std::unique_ptr<GvspReceiver> openStream(uint32_t width = 64, uint32_t height = 48,
                                             float fps = 50.0f) {
        auto receiver = std::make_unique<GvspReceiver>(bed.hostIp);
        claimWithDefaults();
        EXPECT_EQ(client->writeReg(addr::kWidth, width), 0);
        EXPECT_EQ(client->writeReg(addr::kHeight, height), 0);
        EXPECT_EQ(client->writeReg(addr::kFrameRate, floatBits(fps)), 0);
        EXPECT_EQ(client->writeReg(addr::kScda, bed.hostIp), 0);
        EXPECT_EQ(client->writeReg(addr::kScp, receiver->port()), 0);
        return receiver;
    }

    void TearDown() override {
        if (client) {
            client->writeReg(addr::kAcqStop, 1);
            client->release();
        }
    }

    TestBed bed;
    std::unique_ptr<GvcpClient> client;
};

} // namespace gevtest
