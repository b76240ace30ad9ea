// Throughput of the state machine's queue-to-deliver cycle: a producer
// thread that takes empty buffers and delivers them as a grab loop does,
// and consumer threads that wait for them and queue them again. Prints
// buffers per second; asserts nothing.
//
// Usage: bench_buffer_state_machine [seconds-per-case] [buffers]
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "stream/BufferStateMachineGev.h"

namespace {

using namespace GenTL;
using Clock = std::chrono::steady_clock;

struct Figures {
    double delivered = 0; // buffers per second that reached a consumer
    double produced = 0;  // blocks per second that the producer finished
    double starved = 0;   // share of producer attempts without a buffer
};

// One thread runs the whole cycle: queue, take, deliver, wait. The cost of
// the operations without any contention.
double SingleThreadCycle(double seconds, int buffers) {
    BufferStateMachineGev sm;
    std::vector<void*> handles(buffers);
    for (void*& h : handles) {
        sm.AllocAndAnnounceBuffer(64, nullptr, &h, nullptr);
        sm.QueueBufferToInput(h);
    }
    std::uint64_t cycles = 0;
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    const auto start = Clock::now();
    while (Clock::now() < end) {
        for (int i = 0; i < 1000; ++i) {
            bool dummyInUse = false;
            GenTLHandle* h = sm.PopNextBuffer(nullptr, dummyInUse);
            sm.QueueBufferToOutput(h);
            void* got = nullptr;
            sm.WaitOnNewBuffer(&got, 0);
            sm.QueueBufferToInput(got);
        }
        cycles += 1000;
    }
    return cycles / std::chrono::duration<double>(Clock::now() - start).count();
}

Figures ProducerAndConsumers(double seconds, int buffers, int consumers, long mode) {
    BufferStateMachineGev sm;
    std::vector<void*> handles(buffers);
    for (void*& h : handles) {
        sm.AllocAndAnnounceBuffer(64, nullptr, &h, nullptr);
        sm.QueueBufferToInput(h);
    }
    std::atomic<bool> stop{false};
    std::atomic<std::uint64_t> delivered{0};
    std::vector<std::thread> threads;
    for (int c = 0; c < consumers; ++c) {
        threads.emplace_back([&] {
            std::uint64_t mine = 0;
            while (!stop) {
                void* got = nullptr;
                if (sm.WaitOnNewBuffer(&got, 20) == GC_ERR_SUCCESS) {
                    ++mine;
                    sm.QueueBufferToInput(got);
                }
            }
            delivered += mine;
        });
    }
    std::uint64_t produced = 0;
    std::uint64_t attempts = 0;
    std::uint64_t starved = 0;
    const auto start = Clock::now();
    const auto end = start + std::chrono::duration<double>(seconds);
    while (Clock::now() < end) {
        for (int i = 0; i < 256; ++i) {
            ++attempts;
            sm.RequeOldestBufferIfNeeded(mode);
            bool dummyInUse = false;
            GenTLHandle* h = sm.PopNextBuffer(nullptr, dummyInUse);
            if (h == nullptr) {
                ++starved;
                std::this_thread::yield();
                continue;
            }
            if (mode == NewestOnly && sm.GetOutputBufferQueueSize() > 0) {
                sm.FlushQueue(ACQ_QUEUE_OUTPUT_TO_INPUT, mode, true);
            }
            sm.QueueBufferToOutput(h);
            ++produced;
        }
    }
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    stop = true;
    for (int c = 0; c < consumers; ++c) {
        sm.KillWaitForNewBuffer();
    }
    for (auto& t : threads) {
        t.join();
    }
    ErrorCache::GetErrorCache()->Clear();
    Figures f;
    f.delivered = delivered / elapsed;
    f.produced = produced / elapsed;
    f.starved = attempts ? static_cast<double>(starved) / attempts : 0;
    return f;
}

const char* ModeName(long mode) {
    switch (mode) {
    case OldestFirst:
        return "OldestFirst";
    case OldestFirstOverwrite:
        return "OldestFirstOverwrite";
    default:
        return "NewestOnly";
    }
}

} // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 2.0;
    const int buffers = argc > 2 ? std::atoi(argv[2]) : 16;
    std::printf("BufferStateMachine queue-to-deliver cycle, %d buffers, %.1f s per case, "
                "%u hardware threads\n",
                buffers, seconds, std::thread::hardware_concurrency());
    std::printf("%-22s %9s %16s %16s %9s\n", "mode", "consumers", "delivered/s", "produced/s",
                "starved");
    std::printf("%-22s %9s %16.0f %16s %9s\n", "one thread, no wait", "-",
                SingleThreadCycle(seconds, buffers), "-", "-");
    for (long mode : {static_cast<long>(OldestFirst), static_cast<long>(OldestFirstOverwrite),
                      static_cast<long>(NewestOnly)}) {
        for (int consumers : {1, 2, 4}) {
            Figures f = ProducerAndConsumers(seconds, buffers, consumers, mode);
            std::printf("%-22s %9d %16.0f %16.0f %8.1f%%\n", ModeName(mode), consumers, f.delivered,
                        f.produced, 100.0 * f.starved);
        }
    }
    ErrorCache::ReleaseErrorCache();
    return 0;
}
