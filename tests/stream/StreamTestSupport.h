#pragma once
// Shared fixtures of the stream tests: an error cache per test and a state
// machine with a few announced buffers.
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/GenTLHandle.h"
#include "stream/Buffer.h"
#include "stream/BufferStateMachineGev.h"

namespace StreamTest {

inline std::string LastErrorText() {
    GenTL::Error e;
    if (GenTL::ErrorCache::GetErrorCache()->Peak(e) != GC_ERR_SUCCESS) {
        return "";
    }
    return e.Message();
}

inline GenTL::Buffer* BufferOf(void* handle) {
    return GenTL::CastHandleToBufferPtr(handle);
}

inline int StateOf(void* handle) {
    return BufferOf(handle)->state;
}

class ErrorCacheTest : public ::testing::Test {
protected:
    void SetUp() override { GenTL::ErrorCache::GetErrorCache()->Clear(); }
    void TearDown() override { GenTL::ErrorCache::ReleaseErrorCache(); }
};

/// A state machine with `count` buffers of its own memory, announced.
class StateMachineTest : public ErrorCacheTest {
public:
    void Announce(int count, unsigned long size = 64) {
        for (int i = 0; i < count; ++i) {
            void* handle = nullptr;
            ASSERT_EQ(sm.AllocAndAnnounceBuffer(size, reinterpret_cast<void*>(0x1000 + i), &handle,
                                                nullptr),
                      GC_ERR_SUCCESS);
            handles.push_back(handle);
        }
    }
    void QueueAll() {
        for (void* h : handles) {
            ASSERT_EQ(sm.QueueBufferToInput(h), GC_ERR_SUCCESS);
        }
    }
    /// One block as a grab loop runs it: take a buffer, stamp the block id,
    /// deliver it under the handling mode. False when starved.
    bool ProduceBlock(std::uint64_t blockId, long mode) {
        sm.RequeOldestBufferIfNeeded(mode);
        bool dummyInUse = false;
        GenTL::GenTLHandle* h = sm.PopNextBuffer(nullptr, dummyInUse);
        if (h == nullptr) {
            return false;
        }
        {
            GenTL::Buffer* b = BufferOf(h);
            boost::lock_guard<boost::mutex> lock(b->m_mutex);
            b->frameId = blockId;
            b->isNewData = true;
        }
        if (mode == GenTL::NewestOnly && sm.GetOutputBufferQueueSize() > 0) {
            sm.FlushQueue(ACQ_QUEUE_OUTPUT_TO_INPUT, mode, true);
        }
        EXPECT_EQ(sm.QueueBufferToOutput(h), GC_ERR_SUCCESS);
        return true;
    }

    GenTL::BufferStateMachineGev sm;
    std::vector<void*> handles;
};

} // namespace StreamTest
