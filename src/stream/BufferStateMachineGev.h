#pragma once
/**
 * BufferStateMachineGev: the state machine as the GigE Vision grab loops
 * use it, with the hand-over of empty buffers and the dummy buffer.
 *
 * The dummy is a private Buffer of a grab loop, never announced, of the
 * size of the first announced buffer. When the input queue is empty the
 * loop receives the block into the dummy, so that it stays in step with
 * the camera; at the block's end CopyDummyToInputIfAvailable moves the
 * block into a buffer that came meanwhile, or counts it as lost.
 *
 *   bool dummyInUse = false;
 *   GenTLHandle* h = sm->PopNextBuffer(dummy, dummyInUse);  // BS_FILL
 *   ... receive the block into CastHandleToBufferPtr(h) ...
 *   h = sm->CopyDummyToInputIfAvailable(dummy, h, dummyInUse, numUnderrun);
 *   if (!dummyInUse) ... complete and deliver h ...
 */
#include "stream/BufferStateMachine.h"

namespace GenTL {

class BufferStateMachineGev : public BufferStateMachine {
public:
    /**
     * Takes the oldest input buffer into BS_FILL (and the fill queue),
     * clears dummyInUse and returns its handle. With the input queue empty
     * it returns the dummy, prepared for filling and in no queue, with
     * dummyInUse set; or null when `dummy` is null.
     */
    GenTLHandle* PopNextBuffer(GenTLHandle* dummy, bool& dummyInUse);

    /**
     * At the end of a block. Without dummyInUse returns `current`. With it:
     * if the input queue is still empty, adds 1 to underrunCount and
     * returns the dummy (the block is lost); otherwise takes the oldest
     * input buffer, copies the dummy's memory (bounded by the buffer's
     * size) and its block metadata into it, clears dummyInUse and returns
     * it. The copy stays in BS_FILL outside the fill queue: its receivedBytes
     * is 0, and QueueBufferToOutput leaves it where it is, so only a flush
     * takes it back.
     *
     * headerRoom: bytes that every buffer of the stream keeps in front of
     * `base` (and within `size`), which the copy includes.
     */
    GenTLHandle* CopyDummyToInputIfAvailable(GenTLHandle* dummy, GenTLHandle* current,
                                             bool& dummyInUse, unsigned long& underrunCount,
                                             std::uint64_t headerRoom = 0);
};

} // namespace GenTL
