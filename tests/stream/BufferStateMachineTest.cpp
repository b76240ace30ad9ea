// The state machine as a unit: transitions and refusals, flushes, the
// dummy buffer, waits and kills, and several threads at once (run under
// ThreadSanitizer by CI). The handling modes are judged by the grab tests in
// tests/netns.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "StreamTestSupport.h"

namespace {

using namespace GenTL;
using StreamTest::BufferOf;
using StreamTest::StateMachineTest;
using StreamTest::StateOf;

GenTLHandle* H(void* handle) {
    return static_cast<GenTLHandle*>(handle);
}

// One buffer in each state: [0] announce, [1] input, [2] fill, [3] output,
// [4] user.
struct Scene : StateMachineTest {
    void TestBody() override {}
    Scene() {
        Announce(5);
        for (int i : {2, 3, 4, 1}) {
            sm.QueueBufferToInput(handles[i]);
        }
        bool dummyInUse = false;
        for (int i = 0; i < 3; ++i) {
            sm.PopNextBuffer(nullptr, dummyInUse);
        }
        sm.QueueBufferToOutput(H(handles[4]));
        sm.QueueBufferToOutput(H(handles[3]));
        void* got = nullptr;
        sm.WaitOnNewBuffer(&got, 0);
    }
    /// One letter per buffer: Announce, Input, Fill, Output, User.
    std::string States() {
        std::string states;
        for (void* h : handles) {
            states += "AIOUF?"[std::min(StateOf(h), 5)];
        }
        return states;
    }
    std::vector<unsigned long> Sizes() {
        return {sm.GetInputBufferQueueSize(), sm.GetFillBufferQueueSize(),
                sm.GetOutputBufferQueueSize()};
    }
};

TEST_F(StateMachineTest, EveryFlushModeMovesWhatItShouldOrRefuses) {
    ASSERT_EQ(Scene().States(), "AIFOU");
    struct Row {
        int mode;
        long handling;
        bool grabbing;
        int rc;
        const char* states;
        std::vector<unsigned long> sizes; // input, fill, output
    };
    const int bad = GC_ERR_INVALID_PARAMETER;
    const Row rows[] = {
        {ACQ_QUEUE_INPUT_TO_OUTPUT, NewestOnly, false, bad, "AIFOU", {1, 1, 1}},
        {ACQ_QUEUE_INPUT_TO_OUTPUT, OldestFirst, true, 0, "AOFOU", {0, 1, 2}},
        {ACQ_QUEUE_OUTPUT_DISCARD, NewestOnly, true, 0, "AIFAU", {1, 1, 0}},
        {ACQ_QUEUE_ALL_TO_INPUT, OldestFirst, true, GC_ERR_BUSY, "AIFOU", {1, 1, 1}},
        {ACQ_QUEUE_ALL_TO_INPUT, OldestFirst, false, 0, "IIIII", {5, 0, 0}},
        {ACQ_QUEUE_UNQUEUED_TO_INPUT, NewestOnly, true, 0, "IIFOU", {2, 1, 1}},
        {ACQ_QUEUE_ALL_DISCARD, OldestFirst, true, GC_ERR_BUSY, "AIFOU", {1, 1, 1}},
        {ACQ_QUEUE_ALL_DISCARD, OldestFirst, false, 0, "AAAAA", {0, 0, 0}},
        {ACQ_QUEUE_OUTPUT_TO_INPUT, OldestFirstOverwrite, true, bad, "AIFOU", {1, 1, 1}},
        {ACQ_QUEUE_OUTPUT_TO_INPUT, NewestOnly, true, 0, "AIFIU", {2, 1, 0}},
        {ACQ_QUEUE_FILL_TO_OUTPUT, OldestFirst, true, 0, "AIOOU", {1, 0, 2}},
        {ACQ_QUEUE_FILL_DISCARD, OldestFirst, true, GC_ERR_BUSY, "AIFOU", {1, 1, 1}},
        {ACQ_QUEUE_FILL_DISCARD, OldestFirst, false, 0, "AIAOU", {1, 0, 1}},
        {ACQ_QUEUE_CUSTOM_ID, OldestFirst, false, 0, "AIFOU", {1, 1, 1}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << "mode " << row.mode << " handling " << row.handling
                                        << " grabbing " << row.grabbing);
        Scene scene;
        EXPECT_EQ(scene.sm.FlushQueue(row.mode, row.handling, row.grabbing), row.rc);
        EXPECT_EQ(scene.States(), row.states);
        EXPECT_EQ(scene.Sizes(), row.sizes);
    }
}

TEST_F(StateMachineTest, DummyCarriesABlockUntilABufferComes) {
    Announce(1, 8);
    std::uint8_t dummyMemory[16];
    for (int i = 0; i < 16; ++i) {
        dummyMemory[i] = static_cast<std::uint8_t>(i + 1);
    }
    Buffer dummy;
    dummy.base = dummyMemory;
    dummy.size = sizeof(dummyMemory);
    void* dummyHandle = nullptr;
    AllocateHandle(&dummyHandle, static_cast<IBuffer*>(&dummy));

    bool dummyInUse = false;
    GenTLHandle* h = sm.PopNextBuffer(H(dummyHandle), dummyInUse);
    EXPECT_EQ(h, dummyHandle);
    EXPECT_TRUE(dummyInUse);
    EXPECT_EQ(dummy.state, BS_FILL);
    EXPECT_EQ(sm.GetFillBufferQueueSize(), 0UL);
    dummy.frameId = 42;
    dummy.leaderSeen = true;
    dummy.receivedBytes = 16;
    dummy.missingPackets = 3;

    unsigned long underruns = 0;
    EXPECT_EQ(sm.CopyDummyToInputIfAvailable(H(dummyHandle), h, dummyInUse, underruns),
              dummyHandle);
    EXPECT_TRUE(dummyInUse);
    EXPECT_EQ(underruns, 1UL) << "no buffer came: the block is lost";

    ASSERT_EQ(sm.QueueBufferToInput(handles[0]), GC_ERR_SUCCESS);
    GenTLHandle* copy = sm.CopyDummyToInputIfAvailable(H(dummyHandle), h, dummyInUse, underruns);
    ASSERT_EQ(copy, handles[0]);
    EXPECT_FALSE(dummyInUse);
    Buffer* b = BufferOf(copy);
    EXPECT_TRUE(std::equal(b->base, b->base + 8, dummyMemory)) << "bounded by the buffer's size";
    EXPECT_EQ(b->frameId, 42U);
    EXPECT_TRUE(b->leaderSeen);
    EXPECT_EQ(b->missingPackets, 3);
    EXPECT_EQ(b->receivedBytes, 0U);

    // In BS_FILL but in no queue: delivery leaves it, a flush takes it.
    EXPECT_EQ(sm.QueueBufferToOutput(copy), GC_ERR_SUCCESS);
    EXPECT_EQ(b->state, BS_FILL);
    EXPECT_EQ(sm.GetOutputBufferQueueSize(), 0UL);
    ASSERT_EQ(sm.FlushQueue(ACQ_QUEUE_FILL_DISCARD, OldestFirst, false), GC_ERR_SUCCESS);
    EXPECT_EQ(b->state, BS_ANNOUNCE);
    EXPECT_EQ(sm.CopyDummyToInputIfAvailable(H(dummyHandle), copy, dummyInUse, underruns), copy);
    DeleteHandle(dummyHandle);
}

TEST_F(StateMachineTest, WaitTimesOutTakesReadyBuffersAndYieldsToAKill) {
    Announce(1);
    void* got = reinterpret_cast<void*>(1);
    EXPECT_EQ(sm.WaitOnNewBuffer(&got, 0), GC_ERR_TIMEOUT);
    EXPECT_EQ(got, nullptr);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(sm.WaitOnNewBuffer(&got, 30), GC_ERR_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(25));
    EXPECT_EQ(sm.WaitOnNewBuffer(&got, 0x8000000000000000UL), GC_ERR_INVALID_PARAMETER);

    // A pending kill beats a ready buffer, once.
    QueueAll();
    ASSERT_TRUE(ProduceBlock(1, OldestFirst));
    EXPECT_EQ(sm.KillWaitForNewBuffer(), GC_ERR_SUCCESS);
    EXPECT_EQ(sm.WaitOnNewBuffer(&got, GENTL_INFINITE), GC_ERR_ABORT);
    EXPECT_EQ(sm.GetOutputBufferQueueSize(), 1UL);
    EXPECT_EQ(sm.WaitOnNewBuffer(&got, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(got, handles[0]);
}

TEST_F(StateMachineTest, WaitsEndByKillOrDeliveryFromOtherThreads) {
    Announce(1);
    QueueAll();
    std::thread endless([&] {
        void* got = nullptr;
        EXPECT_EQ(sm.WaitOnNewBuffer(&got, GENTL_INFINITE), GC_ERR_ABORT);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    sm.KillWaitForNewBuffer();
    endless.join();

    // One kill ends exactly one of two waiters.
    std::atomic<int> aborted{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 2; ++i) {
        waiters.emplace_back([&] {
            void* got = nullptr;
            aborted += sm.WaitOnNewBuffer(&got, 300) == GC_ERR_ABORT ? 1 : 0;
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    sm.KillWaitForNewBuffer();
    for (auto& t : waiters) {
        t.join();
    }
    EXPECT_EQ(aborted, 1);

    void* got = nullptr;
    std::thread producer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ProduceBlock(7, OldestFirst);
    });
    EXPECT_EQ(sm.WaitOnNewBuffer(&got, 10000), GC_ERR_SUCCESS);
    producer.join();
    EXPECT_EQ(BufferOf(got)->frameId, 7U);
}

TEST_F(StateMachineTest, SeveralConsumersShareTheOutputCleanly) {
    Announce(8);
    QueueAll();
    constexpr std::uint64_t kBlocks = 2000;
    std::atomic<bool> done{false};
    std::vector<std::vector<std::uint64_t>> seen(3);
    std::vector<std::thread> threads;
    for (auto& mine : seen) {
        threads.emplace_back([&] {
            for (;;) {
                void* got = nullptr;
                if (sm.WaitOnNewBuffer(&got, 20) == GC_ERR_SUCCESS) {
                    mine.push_back(BufferOf(got)->frameId);
                    EXPECT_EQ(sm.QueueBufferToInput(got), GC_ERR_SUCCESS);
                } else if (done) {
                    break;
                }
            }
        });
    }
    // Readers of the queues and states meanwhile.
    threads.emplace_back([&] {
        while (!done) {
            EXPECT_LE(sm.GetQueuedBufferCount(), 8UL);
            for (void* h : handles) {
                EXPECT_NE(StateOf(h), BS_ANNOUNCE);
            }
            std::this_thread::yield();
        }
    });
    for (std::uint64_t id = 1; id <= kBlocks;) {
        id += ProduceBlock(id, OldestFirst) ? 1 : 0;
    }
    while (sm.GetOutputBufferQueueSize() > 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    done = true;
    for (auto& t : threads) {
        t.join();
    }
    std::vector<std::uint64_t> all;
    for (auto& mine : seen) {
        EXPECT_TRUE(std::is_sorted(mine.begin(), mine.end()));
        all.insert(all.end(), mine.begin(), mine.end());
    }
    std::sort(all.begin(), all.end());
    ASSERT_EQ(all.size(), kBlocks);
    EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end()) << "a block came twice";
    EXPECT_EQ(sm.GetInputBufferQueueSize(), 8UL);
}

TEST_F(StateMachineTest, RacingQueuesOfOneBufferLetExactlyOneThrough) {
    Announce(1);
    for (int round = 0; round < 100; ++round) {
        std::atomic<int> ok{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < 3; ++t) {
            threads.emplace_back([&] { ok += sm.QueueBufferToInput(handles[0]) == 0 ? 1 : 0; });
        }
        for (auto& t : threads) {
            t.join();
        }
        ASSERT_EQ(ok, 1);
        ASSERT_EQ(sm.GetInputBufferQueueSize(), 1UL);
        ASSERT_EQ(sm.FlushQueue(ACQ_QUEUE_ALL_DISCARD, OldestFirst, false), GC_ERR_SUCCESS);
    }
}

} // namespace
