// The state machine as a unit: transitions and refusals, flushes, the
// dummy buffer, waits and kills, and the handling modes under load.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "StreamTestSupport.h"
#include "stream/BufferStateMachineGev.h"

namespace {

using namespace GenTL;
using StreamTest::BufferOf;
using StreamTest::LastErrorText;
using StreamTest::StateMachineTest;
using StreamTest::StateOf;

GenTLHandle* H(void* handle) {
    return static_cast<GenTLHandle*>(handle);
}

// --- announce, revoke, queries ---------------------------------------------------

TEST_F(StateMachineTest, AnnounceRefusesBadArgumentsAndDoubleMemory) {
    char memory[16];
    void* handle = nullptr;
    EXPECT_EQ(sm.AnnounceBuffer(nullptr, 16, nullptr, &handle, nullptr), GC_ERR_INVALID_ADDRESS);
    EXPECT_NE(LastErrorText().find("User buffer cannot be null"), std::string::npos);
    EXPECT_EQ(sm.AnnounceBuffer(memory, 16, nullptr, nullptr, nullptr), GC_ERR_INVALID_HANDLE);
    EXPECT_NE(LastErrorText().find("Buffer handle cannot be null"), std::string::npos);
    EXPECT_EQ(sm.AnnounceBuffer(memory, 0, nullptr, &handle, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_NE(LastErrorText().find("Buffer size cannot be zero"), std::string::npos);
    EXPECT_EQ(sm.GetAnnouncedBufferQueueSize(), 0UL);

    ASSERT_EQ(sm.AnnounceBuffer(memory, 16, memory + 1, &handle, nullptr), GC_ERR_SUCCESS);
    void* second = nullptr;
    EXPECT_EQ(sm.AnnounceBuffer(memory, 16, nullptr, &second, nullptr), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(sm.GetAnnouncedBufferQueueSize(), 1UL);

    Buffer* buffer = BufferOf(handle);
    EXPECT_EQ(buffer->state, BS_ANNOUNCE);
    EXPECT_TRUE(buffer->userOwned);
    EXPECT_EQ(buffer->userData, memory + 1);
    EXPECT_EQ(buffer->tlType, "Ethernet");
    EXPECT_EQ(buffer->pixelFormatNamespace, 4U);
    EXPECT_EQ(buffer->pixelEndianness, 1);

    // Own memory: zeroed, size 0 allowed, only a null handle refused.
    EXPECT_EQ(sm.AllocAndAnnounceBuffer(8, nullptr, nullptr, nullptr), GC_ERR_INVALID_HANDLE);
    void* own = nullptr;
    ASSERT_EQ(sm.AllocAndAnnounceBuffer(8, nullptr, &own, nullptr), GC_ERR_SUCCESS);
    EXPECT_FALSE(BufferOf(own)->userOwned);
    EXPECT_TRUE(std::all_of(BufferOf(own)->base, BufferOf(own)->base + 8,
                            [](std::uint8_t b) { return b == 0; }));
    void* empty = nullptr;
    EXPECT_EQ(sm.AllocAndAnnounceBuffer(0, nullptr, &empty, nullptr), GC_ERR_SUCCESS);
}

TEST_F(StateMachineTest, AnnounceWithTimerServiceGivesTheBufferItsTimers) {
    boost::asio::io_service service;
    void* handle = nullptr;
    ASSERT_EQ(sm.AllocAndAnnounceBuffer(8, nullptr, &handle, &service), GC_ERR_SUCCESS);
    EXPECT_NE(BufferOf(handle)->nextPacketTimer, nullptr);
    EXPECT_NE(BufferOf(handle)->bufferExpiryTimer, nullptr);
    EXPECT_EQ(sm.RevokeBuffer(handle, nullptr, nullptr), GC_ERR_SUCCESS);
}

TEST_F(StateMachineTest, IndexQueriesFollowTheAnnounceOrder) {
    EXPECT_EQ(sm.GetBufferIDFromIndex(0), nullptr);
    EXPECT_EQ(sm.GetSizeOfFirstAnnouncedBuffer(), 0UL);
    Announce(3, 100);
    EXPECT_EQ(sm.GetSizeOfFirstAnnouncedBuffer(), 100UL);
    EXPECT_EQ(sm.GetBufferIDFromIndex(0), handles[0]);
    EXPECT_EQ(sm.GetBufferIDFromIndex(2), handles[2]);
    EXPECT_EQ(sm.GetBufferIDFromIndex(4), nullptr);
    try {
        sm.GetBufferIDFromIndex(3);
        FAIL() << "index equal to the count must throw";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(),
                     "vector::_M_range_check: __n (which is 3) >= this->size() (which is 3)");
    }
}

TEST_F(StateMachineTest, RevokeOnlyFromAnnounceAndGivesMemoryBack) {
    char memory[16];
    void* handle = nullptr;
    ASSERT_EQ(sm.AnnounceBuffer(memory, 16, memory + 3, &handle, nullptr), GC_ERR_SUCCESS);
    EXPECT_EQ(sm.RevokeBuffer(nullptr, nullptr, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_NE(LastErrorText().find("hBuffer==nullptr"), std::string::npos);
    std::uint64_t garbage[2] = {1, 2};
    EXPECT_EQ(sm.RevokeBuffer(garbage, nullptr, nullptr), GC_ERR_INVALID_HANDLE);

    // Refused in BS_INPUT, but the address is free for a new announce.
    ASSERT_EQ(sm.QueueBufferToInput(handle), GC_ERR_SUCCESS);
    EXPECT_EQ(sm.RevokeBuffer(handle, nullptr, nullptr), GC_ERR_BUSY);
    EXPECT_NE(LastErrorText().find("Buffer not in announced state"), std::string::npos);
    EXPECT_EQ(StateOf(handle), BS_INPUT);
    void* again = nullptr;
    ASSERT_EQ(sm.AnnounceBuffer(memory, 16, nullptr, &again, nullptr), GC_ERR_SUCCESS);
    EXPECT_EQ(sm.RevokeBuffer(again, nullptr, nullptr), GC_ERR_SUCCESS);

    ASSERT_EQ(sm.FlushQueue(ACQ_QUEUE_ALL_DISCARD, OldestFirst, false), GC_ERR_SUCCESS);
    void* gotMemory = nullptr;
    void* gotUser = nullptr;
    EXPECT_EQ(sm.RevokeBuffer(handle, &gotMemory, &gotUser), GC_ERR_SUCCESS);
    EXPECT_EQ(gotMemory, memory);
    EXPECT_EQ(gotUser, memory + 3);
    EXPECT_EQ(sm.GetAnnouncedBufferQueueSize(), 0UL);

    // Own memory is freed and reported as null.
    Announce(1);
    gotMemory = memory;
    EXPECT_EQ(sm.RevokeBuffer(handles[0], &gotMemory, &gotUser), GC_ERR_SUCCESS);
    EXPECT_EQ(gotMemory, nullptr);
    EXPECT_EQ(gotUser, reinterpret_cast<void*>(0x1000));
}

TEST_F(StateMachineTest, RevokeRefusesABufferOfAnotherStream) {
    BufferStateMachine other;
    void* foreign = nullptr;
    ASSERT_EQ(other.AllocAndAnnounceBuffer(8, nullptr, &foreign, nullptr), GC_ERR_SUCCESS);
    EXPECT_EQ(sm.RevokeBuffer(foreign, nullptr, nullptr), GC_ERR_INVALID_HANDLE);
    EXPECT_NE(LastErrorText().find("buffer was not found in announced buffers"), std::string::npos);
    EXPECT_EQ(other.GetAnnouncedBufferQueueSize(), 1UL);
}

// --- single transitions ---------------------------------------------------------

TEST_F(StateMachineTest, OneBufferRunsTheWholeCycle) {
    Announce(1);
    void* h = handles[0];
    Buffer* b = BufferOf(h);
    ASSERT_EQ(sm.QueueBufferToInput(h), GC_ERR_SUCCESS);
    EXPECT_EQ(b->state, BS_INPUT);
    EXPECT_TRUE(b->isQueued);
    EXPECT_EQ(sm.GetInputBufferQueueSize(), 1UL);
    EXPECT_EQ(sm.GetQueuedBufferCount(), 1UL);

    bool dummyInUse = true;
    ASSERT_EQ(sm.PopNextBuffer(nullptr, dummyInUse), h);
    EXPECT_FALSE(dummyInUse);
    EXPECT_EQ(b->state, BS_FILL);
    EXPECT_TRUE(b->isAcquiring);
    EXPECT_TRUE(b->isIncomplete);
    EXPECT_EQ(sm.GetFillBufferQueueSize(), 1UL);
    EXPECT_EQ(sm.GetQueuedBufferCount(), 1UL);
    b->isNewData = true;
    b->width = 640;

    ASSERT_EQ(sm.QueueBufferToOutput(H(h)), GC_ERR_SUCCESS);
    EXPECT_EQ(b->state, BS_OUTPUT);
    EXPECT_FALSE(b->isAcquiring);
    EXPECT_EQ(sm.GetOutputBufferQueueSize(), 1UL);
    EXPECT_EQ(sm.GetQueuedBufferCount(), 0UL);

    void* got = nullptr;
    ASSERT_EQ(sm.WaitOnNewBuffer(&got, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(got, h);
    EXPECT_EQ(b->state, BS_USER);
    EXPECT_FALSE(b->isQueued);
    EXPECT_TRUE(b->isNewData);
    EXPECT_EQ(b->width, 640U);

    // Back to input clears the block's metadata.
    ASSERT_EQ(sm.QueueBufferToInput(h), GC_ERR_SUCCESS);
    EXPECT_EQ(b->state, BS_INPUT);
    EXPECT_FALSE(b->isNewData);
    EXPECT_EQ(b->width, 0U);
}

TEST_F(StateMachineTest, QueueingRefusesWrongStatesAndStrangers) {
    Announce(2);
    EXPECT_EQ(sm.QueueBufferToInput(nullptr), GC_ERR_INVALID_HANDLE);
    EXPECT_NE(LastErrorText().find("Buffer handle is null"), std::string::npos);
    Buffer notAHandle;
    void* moduleHandle = nullptr;
    // A handle of another module kind leads to no Buffer.
    struct Other : IBuffer {
        int ReadPort(unsigned long, void*, unsigned long*) override { return 0; }
        int WritePort(unsigned long, const void*, unsigned long*) override { return 0; }
        int GetPortURL(char*, unsigned long*) const override { return 0; }
        int GetPortInfo(int, int*, void*, unsigned long*) override { return 0; }
        int RegisterEvent(int, void**) override { return 0; }
        int UnregisterEvent(int) override { return 0; }
        int GetNumPortURLs(unsigned int*) override { return 0; }
        int GetPortURLInfo(unsigned int, int, int*, void*, unsigned long*) override { return 0; }
        int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) override { return 0; }
        int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*) override { return 0; }
    } other;
    AllocateHandle(&moduleHandle, &other);
    EXPECT_EQ(sm.QueueBufferToInput(moduleHandle), GC_ERR_INVALID_HANDLE);
    EXPECT_NE(LastErrorText().find("pBuffer==nullptr"), std::string::npos);
    EXPECT_EQ(sm.QueueBufferToOutput(H(moduleHandle)), GC_ERR_INVALID_HANDLE);
    DeleteHandle(moduleHandle);
    EXPECT_EQ(sm.QueueBufferToOutput(nullptr), GC_ERR_INVALID_HANDLE);

    // Only from fill to output.
    EXPECT_EQ(sm.QueueBufferToOutput(H(handles[0])), GC_ERR_INVALID_BUFFER);
    EXPECT_NE(LastErrorText().find("buffer is not in the fill state"), std::string::npos);

    // Queued twice: refused, the queue holds it once.
    ASSERT_EQ(sm.QueueBufferToInput(handles[0]), GC_ERR_SUCCESS);
    EXPECT_EQ(sm.QueueBufferToInput(handles[0]), GC_ERR_INVALID_BUFFER);
    EXPECT_NE(LastErrorText().find("buffer is not in the announced, fill or user state"),
              std::string::npos);
    EXPECT_EQ(sm.GetInputBufferQueueSize(), 1UL);

    // In the output queue: refused, and it stays there.
    bool dummyInUse = false;
    ASSERT_EQ(sm.PopNextBuffer(nullptr, dummyInUse), handles[0]);
    ASSERT_EQ(sm.QueueBufferToOutput(H(handles[0])), GC_ERR_SUCCESS);
    EXPECT_EQ(sm.QueueBufferToInput(handles[0]), GC_ERR_INVALID_BUFFER);
    EXPECT_EQ(StateOf(handles[0]), BS_OUTPUT);
    EXPECT_EQ(sm.GetOutputBufferQueueSize(), 1UL);
}

TEST_F(StateMachineTest, AGivenUpBlockGoesFromFillBackToInput) {
    Announce(2);
    QueueAll();
    bool dummyInUse = false;
    GenTLHandle* h = sm.PopNextBuffer(nullptr, dummyInUse);
    ASSERT_EQ(h, handles[0]);
    ASSERT_EQ(sm.QueueBufferToInput(h), GC_ERR_SUCCESS);
    EXPECT_EQ(sm.GetFillBufferQueueSize(), 0UL);
    EXPECT_EQ(sm.GetInputBufferQueueSize(), 2UL);
    // It went to the back.
    EXPECT_EQ(sm.PopNextBuffer(nullptr, dummyInUse), handles[1]);
    EXPECT_EQ(sm.PopNextBuffer(nullptr, dummyInUse), handles[0]);
    EXPECT_EQ(sm.PopNextBuffer(nullptr, dummyInUse), nullptr);
}

// --- flushes ---------------------------------------------------------------------

// Puts handles[0] in announce, [1] in input, [2] in fill, [3] in output,
// [4] with the user.
class FlushTest : public StateMachineTest {
protected:
    void SetUp() override {
        StateMachineTest::SetUp();
        Announce(5);
        for (int i : {2, 3, 4, 1}) {
            ASSERT_EQ(sm.QueueBufferToInput(handles[i]), GC_ERR_SUCCESS);
        }
        bool dummyInUse = false;
        for (int i = 2; i < 5; ++i) {
            ASSERT_EQ(sm.PopNextBuffer(nullptr, dummyInUse), handles[i]);
        }
        ASSERT_EQ(sm.QueueBufferToOutput(H(handles[3])), GC_ERR_SUCCESS);
        ASSERT_EQ(sm.QueueBufferToOutput(H(handles[4])), GC_ERR_SUCCESS);
        void* got = nullptr;
        ASSERT_EQ(sm.WaitOnNewBuffer(&got, 0), GC_ERR_SUCCESS);
        ASSERT_EQ(got, handles[3]);
        // handles[3] with the user, handles[4] in output: swap the names.
        std::swap(handles[3], handles[4]);
        ExpectStates({BS_ANNOUNCE, BS_INPUT, BS_FILL, BS_OUTPUT, BS_USER});
    }
    void ExpectStates(std::vector<int> states) {
        for (size_t i = 0; i < states.size(); ++i) {
            EXPECT_EQ(StateOf(handles[i]), states[i]) << "buffer " << i;
        }
    }
    void ExpectSizes(unsigned long input, unsigned long fill, unsigned long output) {
        EXPECT_EQ(sm.GetInputBufferQueueSize(), input);
        EXPECT_EQ(sm.GetFillBufferQueueSize(), fill);
        EXPECT_EQ(sm.GetOutputBufferQueueSize(), output);
    }
    std::vector<GenTLHandle*> InputOrder() {
        std::vector<GenTLHandle*> order;
        bool dummyInUse = false;
        while (GenTLHandle* h = sm.PopNextBuffer(nullptr, dummyInUse)) {
            order.push_back(h);
        }
        return order;
    }
};

TEST_F(FlushTest, InputToOutputOnlyInOldestFirst) {
    EXPECT_EQ(sm.FlushQueue(ACQ_QUEUE_INPUT_TO_OUTPUT, NewestOnly, false),
              GC_ERR_INVALID_PARAMETER);
    EXPECT_NE(LastErrorText().find("Only applies to OldestFirst buffer handling mode"),
              std::string::npos);
    ExpectSizes(1, 1, 1);
    ASSERT_EQ(sm.FlushQueue(ACQ_QUEUE_INPUT_TO_OUTPUT, OldestFirst, true), GC_ERR_SUCCESS);
    ExpectStates({BS_ANNOUNCE, BS_OUTPUT, BS_FILL, BS_OUTPUT, BS_USER});
    ExpectSizes(0, 1, 2);
    // Behind the buffer that was already waiting, and without new data.
    void* got = nullptr;
    ASSERT_EQ(sm.WaitOnNewBuffer(&got, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(got, handles[3]);
    ASSERT_EQ(sm.WaitOnNewBuffer(&got, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(got, handles[1]);
    EXPECT_FALSE(BufferOf(got)->isNewData);
}

TEST_F(FlushTest, OutputDiscardAnnouncesTheWaitingBuffers) {
    ASSERT_EQ(sm.FlushQueue(ACQ_QUEUE_OUTPUT_DISCARD, NewestOnly, true), GC_ERR_SUCCESS);
    ExpectStates({BS_ANNOUNCE, BS_INPUT, BS_FILL, BS_ANNOUNCE, BS_USER});
    ExpectSizes(1, 1, 0);
}

TEST_F(FlushTest, AllToInputRefusedWhileGrabbingElseGathersEveryBuffer) {
    EXPECT_EQ(sm.FlushQueue(ACQ_QUEUE_ALL_TO_INPUT, OldestFirst, true), GC_ERR_BUSY);
    EXPECT_NE(LastErrorText().find("Cannot flush all buffers to input queue while the engine is "
                                   "grabbing. Call GenTL::DSStopAcquisition() to stop engine"),
              std::string::npos);
    ExpectSizes(1, 1, 1);
    ASSERT_EQ(sm.FlushQueue(ACQ_QUEUE_ALL_TO_INPUT, OldestFirst, false), GC_ERR_SUCCESS);
    ExpectStates({BS_INPUT, BS_INPUT, BS_INPUT, BS_INPUT, BS_INPUT});
    ExpectSizes(5, 0, 0);
    // The buffer that was queued keeps its place at the front; the rest
    // follow in announce order.
    std::vector<GenTLHandle*> order = InputOrder();
    ASSERT_EQ(order.size(), 5U);
    EXPECT_EQ(order[0], handles[1]);
    EXPECT_EQ(order[1], handles[0]);
}

TEST_F(FlushTest, UnqueuedToInputTakesOnlyAnnouncedBuffers) {
    ASSERT_EQ(sm.FlushQueue(ACQ_QUEUE_UNQUEUED_TO_INPUT, NewestOnly, true), GC_ERR_SUCCESS);
    ExpectStates({BS_INPUT, BS_INPUT, BS_FILL, BS_OUTPUT, BS_USER});
    ExpectSizes(2, 1, 1);
}

TEST_F(FlushTest, AllDiscardRefusedWhileGrabbingElseAnnouncesAll) {
    EXPECT_EQ(sm.FlushQueue(ACQ_QUEUE_ALL_DISCARD, OldestFirst, true), GC_ERR_BUSY);
    EXPECT_NE(LastErrorText().find("Cannot discard all buffers while the engine is grabbing. "
                                   "Call GenTL::DSStopAcquisition() to stop engine"),
              std::string::npos);
    ASSERT_EQ(sm.FlushQueue(ACQ_QUEUE_ALL_DISCARD, OldestFirst, false), GC_ERR_SUCCESS);
    ExpectStates({BS_ANNOUNCE, BS_ANNOUNCE, BS_ANNOUNCE, BS_ANNOUNCE, BS_ANNOUNCE});
    ExpectSizes(0, 0, 0);
    for (void* h : handles) {
        EXPECT_EQ(sm.RevokeBuffer(h, nullptr, nullptr), GC_ERR_SUCCESS);
    }
    handles.clear();
}

TEST_F(FlushTest, OutputToInputOnlyInNewestOnly) {
    EXPECT_EQ(sm.FlushQueue(ACQ_QUEUE_OUTPUT_TO_INPUT, OldestFirstOverwrite, true),
              GC_ERR_INVALID_PARAMETER);
    EXPECT_NE(LastErrorText().find("Only applies to NewestOnly buffer handling mode"),
              std::string::npos);
    ASSERT_EQ(sm.FlushQueue(ACQ_QUEUE_OUTPUT_TO_INPUT, NewestOnly, true), GC_ERR_SUCCESS);
    ExpectStates({BS_ANNOUNCE, BS_INPUT, BS_FILL, BS_INPUT, BS_USER});
    ExpectSizes(2, 1, 0);
}

TEST_F(FlushTest, FillToOutputDeliversTheBlockInProgress) {
    ASSERT_EQ(sm.FlushQueue(ACQ_QUEUE_FILL_TO_OUTPUT, OldestFirst, true), GC_ERR_SUCCESS);
    ExpectStates({BS_ANNOUNCE, BS_INPUT, BS_OUTPUT, BS_OUTPUT, BS_USER});
    ExpectSizes(1, 0, 2);
}

TEST_F(FlushTest, FillDiscardRefusedWhileGrabbingElseAnnouncesFillBuffers) {
    EXPECT_EQ(sm.FlushQueue(ACQ_QUEUE_FILL_DISCARD, OldestFirst, true), GC_ERR_BUSY);
    EXPECT_NE(LastErrorText().find("Cannot discard all buffers while the engine is grabbing."),
              std::string::npos);
    ASSERT_EQ(sm.FlushQueue(ACQ_QUEUE_FILL_DISCARD, OldestFirst, false), GC_ERR_SUCCESS);
    ExpectStates({BS_ANNOUNCE, BS_INPUT, BS_ANNOUNCE, BS_OUTPUT, BS_USER});
    ExpectSizes(1, 0, 1);
}

TEST_F(FlushTest, UnknownModeDoesNothing) {
    EXPECT_EQ(sm.FlushQueue(ACQ_QUEUE_CUSTOM_ID, OldestFirst, false), GC_ERR_SUCCESS);
    EXPECT_EQ(sm.FlushQueue(-1, OldestFirst, false), GC_ERR_SUCCESS);
    ExpectStates({BS_ANNOUNCE, BS_INPUT, BS_FILL, BS_OUTPUT, BS_USER});
}

// --- overwrite and dummy -----------------------------------------------------------

TEST_F(StateMachineTest, OverwriteStealsTheOldestOutputOnlyWhenNothingElseIsLeft) {
    Announce(3);
    QueueAll();
    for (std::uint64_t id = 1; id <= 3; ++id) {
        ASSERT_TRUE(ProduceBlock(id, OldestFirstOverwrite));
    }
    EXPECT_EQ(sm.GetOutputBufferQueueSize(), 3UL);

    // Other modes never steal.
    EXPECT_EQ(sm.RequeOldestBufferIfNeeded(OldestFirst), GC_ERR_SUCCESS);
    EXPECT_EQ(sm.RequeOldestBufferIfNeeded(NewestOnly), GC_ERR_SUCCESS);
    EXPECT_EQ(sm.GetInputBufferQueueSize(), 0UL);

    EXPECT_EQ(sm.RequeOldestBufferIfNeeded(OldestFirstOverwrite), GC_ERR_SUCCESS);
    EXPECT_EQ(StateOf(handles[0]), BS_INPUT);
    EXPECT_EQ(sm.GetOutputBufferQueueSize(), 2UL);
    // With a buffer waiting in input nothing more is taken.
    EXPECT_EQ(sm.RequeOldestBufferIfNeeded(OldestFirstOverwrite), GC_ERR_SUCCESS);
    EXPECT_EQ(sm.GetOutputBufferQueueSize(), 2UL);
    // Nor with one in fill.
    bool dummyInUse = false;
    ASSERT_EQ(sm.PopNextBuffer(nullptr, dummyInUse), handles[0]);
    EXPECT_EQ(sm.RequeOldestBufferIfNeeded(OldestFirstOverwrite), GC_ERR_SUCCESS);
    EXPECT_EQ(sm.GetOutputBufferQueueSize(), 2UL);
}

TEST_F(StateMachineTest, DummyCarriesABlockUntilABufferComes) {
    Announce(1, 8);
    Buffer dummy;
    std::uint8_t dummyMemory[16];
    for (int i = 0; i < 16; ++i) {
        dummyMemory[i] = static_cast<std::uint8_t>(i + 1);
    }
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
    dummy.width = 4;
    dummy.leaderSeen = true;
    dummy.receivedBytes = 16;
    dummy.missingPackets = 3;

    // Still no buffer: the block is lost.
    unsigned long underruns = 0;
    EXPECT_EQ(sm.CopyDummyToInputIfAvailable(H(dummyHandle), h, dummyInUse, underruns),
              dummyHandle);
    EXPECT_TRUE(dummyInUse);
    EXPECT_EQ(underruns, 1UL);

    // A buffer came: it takes the block, bounded by its own size.
    ASSERT_EQ(sm.QueueBufferToInput(handles[0]), GC_ERR_SUCCESS);
    GenTLHandle* copy = sm.CopyDummyToInputIfAvailable(H(dummyHandle), h, dummyInUse, underruns);
    ASSERT_EQ(copy, handles[0]);
    EXPECT_FALSE(dummyInUse);
    EXPECT_EQ(underruns, 1UL);
    Buffer* b = BufferOf(copy);
    EXPECT_EQ(std::vector<std::uint8_t>(b->base, b->base + 8),
              std::vector<std::uint8_t>(dummyMemory, dummyMemory + 8));
    EXPECT_EQ(b->frameId, 42U);
    EXPECT_EQ(b->width, 4U);
    EXPECT_TRUE(b->leaderSeen);
    EXPECT_EQ(b->missingPackets, 3);
    EXPECT_EQ(b->receivedBytes, 0U);
    EXPECT_EQ(b->state, BS_FILL);

    // In no queue: delivering it changes nothing; only a flush takes it.
    EXPECT_EQ(sm.QueueBufferToOutput(copy), GC_ERR_SUCCESS);
    EXPECT_EQ(b->state, BS_FILL);
    EXPECT_EQ(sm.GetOutputBufferQueueSize(), 0UL);
    ASSERT_EQ(sm.FlushQueue(ACQ_QUEUE_FILL_DISCARD, OldestFirst, false), GC_ERR_SUCCESS);
    EXPECT_EQ(b->state, BS_ANNOUNCE);

    // Without dummy in use the current buffer is returned as it is.
    EXPECT_EQ(sm.CopyDummyToInputIfAvailable(H(dummyHandle), copy, dummyInUse, underruns), copy);
    DeleteHandle(dummyHandle);
}

// --- waits -----------------------------------------------------------------------

TEST_F(StateMachineTest, WaitTimesOutOrTakesAReadyBufferAtOnce) {
    Announce(1);
    void* got = reinterpret_cast<void*>(1);
    EXPECT_EQ(sm.WaitOnNewBuffer(&got, 0), GC_ERR_TIMEOUT);
    EXPECT_EQ(got, nullptr);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(sm.WaitOnNewBuffer(&got, 30), GC_ERR_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(25));
    EXPECT_EQ(sm.WaitOnNewBuffer(&got, 0x8000000000000000UL), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(sm.WaitOnNewBuffer(nullptr, 0), GC_ERR_INVALID_PARAMETER);

    QueueAll();
    ASSERT_TRUE(ProduceBlock(1, OldestFirst));
    EXPECT_EQ(sm.WaitOnNewBuffer(&got, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(got, handles[0]);
}

TEST_F(StateMachineTest, PendingKillBeatsAReadyBufferOnce) {
    Announce(1);
    QueueAll();
    ASSERT_TRUE(ProduceBlock(1, OldestFirst));
    EXPECT_EQ(sm.KillWaitForNewBuffer(), GC_ERR_SUCCESS);
    void* got = nullptr;
    EXPECT_EQ(sm.WaitOnNewBuffer(&got, GENTL_INFINITE), GC_ERR_ABORT);
    EXPECT_NE(LastErrorText().find("WaitOnNewBuffer interrupted by kill."), std::string::npos);
    EXPECT_EQ(got, nullptr);
    EXPECT_EQ(sm.GetOutputBufferQueueSize(), 1UL);
    EXPECT_EQ(sm.WaitOnNewBuffer(&got, GENTL_INFINITE), GC_ERR_SUCCESS);
    EXPECT_EQ(got, handles[0]);
}

TEST_F(StateMachineTest, KillOrBufferFromAnotherThreadEndsAnEndlessWait) {
    Announce(1);
    QueueAll();
    std::atomic<int> result{1};
    std::thread waiter([&] {
        void* got = nullptr;
        result = sm.WaitOnNewBuffer(&got, GENTL_INFINITE);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(result, 1);
    sm.KillWaitForNewBuffer();
    waiter.join();
    EXPECT_EQ(result, GC_ERR_ABORT);

    // A timed wait is ended by a delivery.
    void* got = nullptr;
    std::thread producer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ProduceBlock(7, OldestFirst);
    });
    EXPECT_EQ(sm.WaitOnNewBuffer(&got, 10000), GC_ERR_SUCCESS);
    producer.join();
    EXPECT_EQ(BufferOf(got)->frameId, 7U);
}

TEST_F(StateMachineTest, OneKillEndsOneOfSeveralWaiters) {
    std::atomic<int> aborted{0};
    std::atomic<int> timedOut{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i) {
        waiters.emplace_back([&] {
            void* got = nullptr;
            int rc = sm.WaitOnNewBuffer(&got, 300);
            (rc == GC_ERR_ABORT ? aborted : timedOut)++;
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    sm.KillWaitForNewBuffer();
    for (auto& t : waiters) {
        t.join();
    }
    EXPECT_EQ(aborted, 1);
    EXPECT_EQ(timedOut, 2);
}

// --- under load ----------------------------------------------------------------------

// A producer that outruns a slow consumer; the consumer gives each buffer
// back before it waits for the next.
struct LoadResult {
    std::vector<std::uint64_t> delivered;
    int starved = 0;
};

LoadResult RunFastProducer(StreamTest::StateMachineTest& test, long mode, std::uint64_t blocks,
                           bool retryWhenStarved) {
    LoadResult result;
    std::atomic<bool> done{false};
    std::thread consumer([&] {
        for (;;) {
            void* got = nullptr;
            int rc = test.sm.WaitOnNewBuffer(&got, 50);
            if (rc == GC_ERR_TIMEOUT && done) {
                break;
            }
            if (rc != GC_ERR_SUCCESS) {
                continue;
            }
            result.delivered.push_back(BufferOf(got)->frameId);
            std::this_thread::sleep_for(std::chrono::microseconds(200));
            EXPECT_EQ(test.sm.QueueBufferToInput(got), GC_ERR_SUCCESS);
        }
    });
    for (std::uint64_t id = 1; id <= blocks;) {
        if (test.ProduceBlock(id, mode)) {
            ++id;
            continue;
        }
        ++result.starved;
        if (!retryWhenStarved) {
            ++id; // the camera does not wait: the block is lost
        }
        std::this_thread::yield();
    }
    done = true;
    consumer.join();
    return result;
}

class HandlingModeTest : public StateMachineTest {
protected:
    void SetUp() override {
        StateMachineTest::SetUp();
        Announce(3);
        QueueAll();
    }
};

TEST_F(HandlingModeTest, NewestOnlyNeverStarvesAndEndsWithTheNewestBlock) {
    LoadResult r = RunFastProducer(*this, NewestOnly, 3000, false);
    EXPECT_EQ(r.starved, 0);
    ASSERT_FALSE(r.delivered.empty());
    EXPECT_TRUE(std::is_sorted(r.delivered.begin(), r.delivered.end()));
    EXPECT_EQ(std::adjacent_find(r.delivered.begin(), r.delivered.end()), r.delivered.end());
    EXPECT_EQ(r.delivered.back(), 3000U);
    EXPECT_LT(r.delivered.size(), 3000U) << "the consumer should have been outrun";
    EXPECT_EQ(sm.GetInputBufferQueueSize(), 3UL);
}

TEST_F(HandlingModeTest, OverwriteNeverStarvesAndDeliversInOrder) {
    LoadResult r = RunFastProducer(*this, OldestFirstOverwrite, 3000, false);
    EXPECT_EQ(r.starved, 0);
    EXPECT_TRUE(std::is_sorted(r.delivered.begin(), r.delivered.end()));
    EXPECT_EQ(std::adjacent_find(r.delivered.begin(), r.delivered.end()), r.delivered.end());
    EXPECT_EQ(r.delivered.back(), 3000U);
    EXPECT_LT(r.delivered.size(), 3000U);
}

TEST_F(HandlingModeTest, OldestFirstStarvesButLosesNothingItTook) {
    LoadResult r = RunFastProducer(*this, OldestFirst, 500, true);
    EXPECT_GT(r.starved, 0);
    ASSERT_EQ(r.delivered.size(), 500U);
    for (std::uint64_t i = 0; i < 500; ++i) {
        EXPECT_EQ(r.delivered[i], i + 1);
    }
}

TEST_F(StateMachineTest, SeveralConsumersShareTheOutputCleanly) {
    Announce(8);
    QueueAll();
    constexpr std::uint64_t kBlocks = 2000;
    std::atomic<bool> done{false};
    std::vector<std::vector<std::uint64_t>> seen(3);
    std::vector<std::thread> consumers;
    for (int c = 0; c < 3; ++c) {
        consumers.emplace_back([&, c] {
            for (;;) {
                void* got = nullptr;
                int rc = sm.WaitOnNewBuffer(&got, 20);
                if (rc == GC_ERR_SUCCESS) {
                    seen[c].push_back(BufferOf(got)->frameId);
                    EXPECT_EQ(sm.QueueBufferToInput(got), GC_ERR_SUCCESS);
                } else if (done) {
                    break;
                }
            }
        });
    }
    // A thread that keeps reading the queues and the states meanwhile.
    std::thread observer([&] {
        while (!done) {
            EXPECT_LE(sm.GetQueuedBufferCount(), 8UL);
            EXPECT_LE(sm.GetOutputBufferQueueSize(), 8UL);
            for (void* h : handles) {
                EXPECT_NE(StateOf(h), BS_ANNOUNCE);
            }
            std::this_thread::yield();
        }
    });
    for (std::uint64_t id = 1; id <= kBlocks;) {
        if (ProduceBlock(id, OldestFirst)) {
            ++id;
        } else {
            std::this_thread::yield();
        }
    }
    // Wait until everything was taken, then release the consumers.
    while (sm.GetOutputBufferQueueSize() > 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    done = true;
    for (auto& t : consumers) {
        t.join();
    }
    observer.join();

    std::vector<std::uint64_t> all;
    for (auto& s : seen) {
        EXPECT_TRUE(std::is_sorted(s.begin(), s.end())) << "each consumer sees blocks in order";
        all.insert(all.end(), s.begin(), s.end());
    }
    std::sort(all.begin(), all.end());
    ASSERT_EQ(all.size(), kBlocks);
    for (std::uint64_t i = 0; i < kBlocks; ++i) {
        ASSERT_EQ(all[i], i + 1);
    }
    EXPECT_EQ(sm.GetInputBufferQueueSize(), 8UL);
}

TEST_F(StateMachineTest, RacingQueuesOfOneBufferLetExactlyOneThrough) {
    Announce(1);
    for (int round = 0; round < 200; ++round) {
        std::atomic<int> ok{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < 3; ++t) {
            threads.emplace_back([&] {
                if (sm.QueueBufferToInput(handles[0]) == GC_ERR_SUCCESS) {
                    ++ok;
                }
            });
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
