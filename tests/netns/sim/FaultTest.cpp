// One test per fault knob of the simulator. Each runs against a camera
// started with that knob (see CMakeLists.txt), so each is its own CTest test.
#include "SimFixture.h"

#include <chrono>
#include <thread>

namespace gevtest {
namespace {

using Faults = SimTest;

// Blocks of 30 data packets each, collected for a while.
std::map<uint64_t, Block> stream(GvcpClient& c, GvspReceiver& r, size_t blocks,
                                 std::vector<GvspPacket>* packets = nullptr) {
    EXPECT_EQ(c.writeReg(addr::kScps, 1000), 0); // 964 bytes of data per packet
    EXPECT_EQ(c.writeReg(addr::kAcqStart, 1), 0);
    std::map<uint64_t, Block> out;
    auto got = r.collect(out, blocks, 4000);
    EXPECT_EQ(c.writeReg(addr::kAcqStop, 1), 0);
    r.collect(out, 1000, 200); // what was under way
    if (packets)
        *packets = std::move(got);
    return out;
}

constexpr uint32_t kWidth = 964, kHeight = 30;

TEST_F(Faults, BlockIdsStartWhereToldAndWrapPastZero) {
    auto r = openStream(kWidth, kHeight);
    std::vector<GvspPacket> packets;
    stream(*client, *r, 4, &packets);
    std::vector<uint64_t> leaders;
    for (const auto& p : packets)
        if (p.format == 1)
            leaders.push_back(p.blockId);
    ASSERT_GE(leaders.size(), 4u);
    EXPECT_EQ(std::vector<uint64_t>(leaders.begin(), leaders.begin() + 4),
              (std::vector<uint64_t>{65534, 65535, 1, 2}));
}

TEST_F(Faults, LossIsRepairedByResend) {
    auto r = openStream(kWidth, kHeight);
    auto blocks = stream(*client, *r, 6);
    size_t lost = 0;
    for (auto& [id, b] : blocks) {
        if (!b.leader)
            continue;
        std::vector<uint32_t> missing;
        for (uint32_t p = 1; p <= kHeight; ++p)
            if (!b.payload.count(p))
                missing.push_back(p);
        lost += missing.size();
        for (uint32_t p : missing) {
            std::vector<uint8_t> cmd;
            putBe16(cmd, 0, 0);
            putBe16(cmd, 2, static_cast<uint16_t>(id));
            putBe32(cmd, 4, p);
            putBe32(cmd, 8, p);
            client->sendCommand(0x0040, cmd, 0, client->nextId(), 12);
        }
    }
    EXPECT_GT(lost, 0u);
    std::map<uint64_t, Block> resent;
    r->collect(resent, 0, 300);
    for (auto& [id, b] : resent)
        for (auto& [p, data] : b.payload)
            blocks[id].payload[p] = data;
    for (auto& [id, b] : blocks)
        if (b.leader && b.trailer) {
            EXPECT_EQ(b.payload.size(), kHeight) << "block " << id;
            EXPECT_EQ(patternErrors(id, b.bytes()), 0u);
        }
}

TEST_F(Faults, ReorderSendsPacketsOutOfOrderButComplete) {
    auto r = openStream(kWidth, kHeight);
    std::vector<GvspPacket> packets;
    auto blocks = stream(*client, *r, 4, &packets);
    size_t inversions = 0;
    for (size_t i = 1; i < packets.size(); ++i)
        if (packets[i].blockId == packets[i - 1].blockId &&
            packets[i].packetId < packets[i - 1].packetId)
            ++inversions;
    EXPECT_GT(inversions, 0u);
    for (auto& [id, b] : blocks)
        if (b.leader && b.trailer) {
            EXPECT_TRUE(b.complete());
        }
}

TEST_F(Faults, DuplicatesArrive) {
    auto r = openStream(kWidth, kHeight);
    auto blocks = stream(*client, *r, 4);
    size_t duplicates = 0;
    for (auto& [id, b] : blocks)
        duplicates += b.duplicates;
    EXPECT_GT(duplicates, 0u);
}

TEST_F(Faults, EverySecondLeaderIsDropped) {
    auto r = openStream(kWidth, kHeight);
    auto blocks = stream(*client, *r, 6);
    size_t with = 0, without = 0;
    for (auto& [id, b] : blocks)
        if (b.trailer)
            (b.leader ? with : without)++;
    EXPECT_GE(without, 2u);
    EXPECT_GE(with, 2u);
}

TEST_F(Faults, EverySecondTrailerIsDropped) {
    auto r = openStream(kWidth, kHeight);
    auto blocks = stream(*client, *r, 3);
    size_t with = 0, without = 0;
    for (auto& [id, b] : blocks)
        if (b.leader && b.payload.size() == kHeight)
            (b.trailer ? with : without)++;
    EXPECT_GE(without, 2u);
    EXPECT_GE(with, 2u);
}

TEST_F(Faults, BurstLossTakesAConsecutiveRun) {
    // Started with --burst-loss 5:4: packets 5 to 8 of every block.
    auto r = openStream(kWidth, kHeight);
    auto blocks = stream(*client, *r, 3);
    size_t checked = 0;
    for (auto& [id, b] : blocks) {
        if (!b.leader || !b.trailer)
            continue;
        for (uint32_t p = 1; p <= kHeight; ++p) {
            EXPECT_EQ(b.payload.count(p), (p >= 5 && p <= 8) ? 0u : 1u) << id << ":" << p;
        }
        ++checked;
    }
    EXPECT_GE(checked, 2u);
}

TEST_F(Faults, FrameRateAndSizeForLoad) {
    // Started with --fps 100 --width 1024 --height 64 --pixel-format Mono16.
    EXPECT_EQ(client->reg(addr::kPayloadSize), 1024u * 64u * 2u);
    GvspReceiver r(bed.hostIp);
    ASSERT_EQ(client->claim(), 0);
    ASSERT_EQ(client->writeReg(addr::kScda, bed.hostIp), 0);
    ASSERT_EQ(client->writeReg(addr::kScp, r.port()), 0);
    const auto t0 = std::chrono::steady_clock::now();
    ASSERT_EQ(client->writeReg(addr::kAcqStart, 1), 0);
    std::map<uint64_t, Block> blocks;
    r.collect(blocks, 30, 3000);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    ASSERT_EQ(client->writeReg(addr::kAcqStop, 1), 0);
    size_t complete = 0;
    for (auto& [id, b] : blocks)
        complete += b.complete() ? 1 : 0;
    EXPECT_GE(complete, 25u);
    EXPECT_LT(seconds, 0.6); // 30 blocks at 100 per second take 0.3 s
}

TEST_F(Faults, CapabilitiesSwitchedOff) {
    // Started with --gev-version 1.2 and --disable for the features below.
    EXPECT_EQ(client->reg(addr::kVersion), 0x00010002u);
    const uint32_t gvcp = client->reg(addr::kGvcpCap);
    for (int bit : {0, 1, 2, 5, 21, 26}) {
        EXPECT_FALSE(gvcp >> bit & 1) << "GVCP capability bit " << bit;
    }
    EXPECT_EQ(client->reg(addr::kGvspCap), 0u);
    EXPECT_EQ(client->reg(addr::kMsgCap), 0u);
    ASSERT_EQ(client->claim(), 0);
    EXPECT_EQ(client->writeMem(addr::kUserName, {'a', 'b', 'c', 0}), 0x8001);
    uint32_t v = 0;
    EXPECT_EQ(client->readReg(addr::kManifest, v), 0x8003);
    EXPECT_EQ(client->readReg(addr::kScsp, v), 0x8003);
    ASSERT_EQ(client->writeReg(addr::kGvcpConfig, 2), 0);
    EXPECT_EQ(client->reg(addr::kGvcpConfig), 0u); // no pending acks to enable
    ASSERT_EQ(client->writeReg(addr::kGvspConfig, 0x40000000u), 0);
    EXPECT_EQ(client->reg(addr::kGvspConfig), 0u);
    // Without concatenation only single registers are served.
    const Ack ack = client->transact(0x0080, {0, 0, 0, 0, 0, 0, 0, 4});
    EXPECT_EQ(ack.status, 0x8002);
}

} // namespace
} // namespace gevtest
