#include "stream/GrabCompletion.h"

#include <cstdint>

#include <boost/asio/deadline_timer.hpp>
#include <boost/asio/error.hpp>
#include <boost/bind/bind.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/system/system_error.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/thread.hpp>

#include "GenTL_KESTA.h"
#include "api/GLogger.h"
#include "api/localization.h"
#include "stream/BlockId.h"
#include "stream/Buffer.h"
#include "stream/BufferStateMachineGev.h"
#include "stream/GrabContext.h"
#include "stream/PayloadType.h"
#include "stream/ResendScheduler.h"
#include "stream/StreamInfo.h"

namespace GenTL {

namespace {

bool IsAborted(const boost::system::error_code& error) {
    return error == boost::asio::error::operation_aborted;
}

void RunTimerService(boost::asio::io_service* service) {
    // Keeps run() alive while no timer is armed.
    boost::asio::io_service::work work(*service);
    boost::system::error_code error;
    service->run(error);
    if (error) {
        throw boost::system::system_error(error);
    }
}

/// missingPackets + (receivedPackets + missingPackets) * skipped, as the
/// counters add it up.
std::uint64_t MissedPackets(const Buffer* buffer, std::uint64_t skipped) {
    const auto missing = static_cast<std::int64_t>(buffer->missingPackets);
    const auto perBlock = static_cast<std::int64_t>(buffer->receivedPackets) + missing;
    return static_cast<std::uint64_t>(missing) + static_cast<std::uint64_t>(perBlock) * skipped;
}

} // namespace

GrabCompletion::GrabCompletion(GrabContext& context, ResendScheduler& resends)
    : m_context(context), m_resends(resends) {}

void GrabCompletion::InterPacketTimerWorkerThread(boost::asio::io_service* service) {
    RunTimerService(service);
}

void GrabCompletion::ResendRequestPacketTimerWorkerThread(boost::asio::io_service* service) {
    RunTimerService(service);
}

void GrabCompletion::StartTimerThreads() {
    StreamInfo& info = m_context.info;
    info.m_interPacketTimerThread =
        boost::thread(&GrabCompletion::InterPacketTimerWorkerThread, &m_context.blockTimerService);
    info.m_resendRequestTimerThread = boost::thread(
        &GrabCompletion::ResendRequestPacketTimerWorkerThread, &m_context.resendTimerService);
}

void GrabCompletion::StopTimerThreads() {
    boost::this_thread::disable_interruption noInterruption;
    StreamInfo& info = m_context.info;
    m_context.resendTimerService.stop();
    m_context.blockTimerService.stop();
    if (info.m_resendRequestTimerThread.joinable()) {
        info.m_resendRequestTimerThread.join();
    }
    if (info.m_interPacketTimerThread.joinable()) {
        info.m_interPacketTimerThread.join();
    }
    // Cancelled waits are queued as aborted; let them return now, while
    // their buffers still exist, rather than in the next acquisition.
    m_context.resendTimerService.restart();
    m_context.resendTimerService.poll();
    m_context.blockTimerService.restart();
    m_context.blockTimerService.poll();
}

void GrabCompletion::ArmNextPacketTimer(Buffer* buffer) {
    if (buffer->nextPacketTimer == nullptr) {
        return;
    }
    buffer->nextPacketTimer->expires_from_now(
        boost::posix_time::milliseconds(m_context.info.interPacketExpiry));
    buffer->nextPacketTimer->async_wait(boost::bind(&GrabCompletion::NextPacketTimerEventHandler,
                                                    this, boost::placeholders::_1, buffer));
}

void GrabCompletion::ArmBlockTimers(Buffer* buffer) {
    buffer->bufferExpiryDone = false;
    buffer->nextPacketDone = false;
    if (buffer->bufferExpiryTimer != nullptr) {
        buffer->bufferExpiryTimer->expires_from_now(
            boost::posix_time::milliseconds(m_context.info.bufferExpiry));
        buffer->bufferExpiryTimer->async_wait(boost::bind(
            &GrabCompletion::BufferExpiryTimerEventHandler, this, boost::placeholders::_1, buffer));
    }
    ArmNextPacketTimer(buffer);
}

void GrabCompletion::CancelBlockTimers(Buffer* buffer) {
    if (buffer->nextPacketTimer != nullptr) {
        buffer->nextPacketTimer->cancel();
    }
    buffer->nextPacketDone = true;
    if (buffer->bufferExpiryTimer != nullptr) {
        buffer->bufferExpiryTimer->cancel();
    }
    buffer->bufferExpiryDone = true;
}

void GrabCompletion::FireQuietBlockResend(Buffer* buffer, const char* message) {
    const StreamInfo& info = m_context.info;
    if (!info.packetResendEnable || buffer->resendCount >= info.maxResendRequestsPerImage ||
        buffer->trailerSeen) {
        return;
    }
    GLogger::Info(loc::al(message, std::to_string(buffer->frameId).c_str()).c_str());
    ResendScheduler::FirePacketResend(m_context.device, m_context.hal, buffer->frameId,
                                      buffer->nextExpectedPacket, info.packetsPerBlock,
                                      info.extendedId);
    ++buffer->resendCount;
}

void GrabCompletion::NextPacketTimerEventHandler(const boost::system::error_code& error,
                                                 Buffer* buffer) {
    if (!m_context.running || IsAborted(error) || buffer == nullptr) {
        return;
    }
    {
        boost::lock_guard<boost::mutex> lock(buffer->m_mutex);
        if (buffer->packetSeen) {
            buffer->packetSeen = false; // the block is alive
            ArmNextPacketTimer(buffer);
            return;
        }
        if (!buffer->bufferExpired) {
            FireQuietBlockResend(buffer, "NextPacketTimerEventHandler({0}): Firing resend");
            ArmNextPacketTimer(buffer);
            return;
        }
        buffer->nextPacketDone = true; // the timer's work ends here
    }
    CheckAndCompleteExpiredBuffers();
}

void GrabCompletion::BufferExpiryTimerEventHandler(const boost::system::error_code& error,
                                                   Buffer* buffer) {
    if (!m_context.running || IsAborted(error) || buffer == nullptr) {
        return;
    }
    boost::lock_guard<boost::mutex> lock(buffer->m_mutex);
    FireQuietBlockResend(buffer, "BufferExpiryTimerEventHandler({0}): Firing resend");
    buffer->bufferExpired = true;
    buffer->bufferExpiryDone = true;
}

bool GrabCompletion::IsFinished(Buffer* buffer) const {
    if (buffer->bufferExpiryDone && buffer->nextPacketDone) {
        return true;
    }
    if (buffer->receivedPackets == m_context.info.packetsPerBlock) {
        return true;
    }
    if (buffer->leaderSeen && buffer->trailerSeen && buffer->width == 1 &&
        buffer->lastPacketId + 1 == buffer->receivedPackets) {
        buffer->missingPackets = 0; // a variable-size block ends at its trailer's id
        return true;
    }
    return false;
}

void GrabCompletion::FinishDelivered(Buffer* buffer) {
    StreamInfo& info = m_context.info;
    buffer->isNewData = true;
    buffer->sizeFilled = buffer->receivedBytes;
    buffer->imagePresent = false;
    SwitchPayloadType(buffer->payloadType, buffer);

    const bool image = (info.payloadType & ~0x4000U) == GVSP_PAYLOAD_IMAGE;
    const auto countShortfall = [&info, buffer] {
        if (buffer->dataSize == buffer->sizeFilled) {
            buffer->isIncomplete = false;
        } else if (buffer->dataSize > buffer->sizeFilled) {
            ++info.totalIncompleteImageCount;
        }
    };
    if (buffer->width != 1) {
        if (buffer->trailerSeen) {
            if (image) {
                const std::uint64_t bitsPerLine =
                    GetBitsPerPixel(buffer->pixelFormat) * buffer->width;
                buffer->deliveredImageHeight =
                    bitsPerLine == 0 ? 0 : buffer->sizeFilled * 8 / bitsPerLine;
            }
        } else {
            buffer->deliveredImageHeight = buffer->height;
        }
        countShortfall();
    } else if (buffer->trailerSeen) {
        if (image) {
            buffer->deliveredImageHeight = buffer->trailerSizeY;
        }
        buffer->isIncomplete = buffer->deliveredImageHeight > buffer->sizeFilled;
    } else {
        buffer->deliveredImageHeight = 0;
        countShortfall();
    }
    if (buffer->missingPackets < 1) {
        buffer->missingPackets = 0;
    }
    const std::uint64_t distance = DiffBlockId(buffer->frameId, info.lastBlockId, info.extendedId);
    const std::uint64_t skipped = distance > 0 ? distance - 1 : 0;
    info.missedImageCount += skipped;
    info.missedPacketCount += MissedPackets(buffer, skipped);
    info.lastBlockId = buffer->frameId;
    if (buffer->width == 1 && m_context.overrideWidth != 0 && m_context.overrideHeight != 0) {
        buffer->width = static_cast<std::uint64_t>(m_context.overrideWidth);
        buffer->height = static_cast<std::uint64_t>(m_context.overrideHeight);
    }
}

void GrabCompletion::CheckAndCompleteExpiredBuffers() {
    StreamInfo& info = m_context.info;
    BufferStateMachineGev& buffers = m_context.buffers;
    boost::lock_guard<boost::mutex> listLock(m_context.activeBlocksMutex);
    auto& list = m_context.activeBlocks;
    while (!list.empty()) {
        GenTLHandle* handle = list.front();
        Buffer* buffer = CastHandleToBufferPtr(handle);
        if (buffer != nullptr) {
            boost::unique_lock<boost::mutex> lock(buffer->m_mutex);
            if (!IsFinished(buffer)) {
                return; // later blocks wait behind this one
            }
            if (info.packetResendEnable) {
                m_resends.ClearResendRequestList(buffer);
            }
            if (buffer->state == BS_OUTPUT) {
                // Delivered by a flush meanwhile.
            } else if (!buffer->leaderSeen) {
                // Nothing in it can be trusted: back to be filled again.
                buffer->FreePacketBitmap();
                const std::uint64_t skipped =
                    DiffBlockId(buffer->frameId, info.lastBlockId, info.extendedId);
                info.missedImageCount += skipped;
                info.totalMissedImageCount += skipped;
                info.missedPacketCount += MissedPackets(buffer, skipped);
                info.lastBlockId = buffer->frameId;
                lock.unlock();
                buffers.QueueBufferToInput(handle);
            } else {
                buffer->FreePacketBitmap();
                FinishDelivered(buffer);
                lock.unlock();
                if (m_context.bufferHandlingMode == NewestOnly &&
                    buffers.GetOutputBufferQueueSize() != 0) {
                    buffers.FlushQueue(ACQ_QUEUE_OUTPUT_TO_INPUT, m_context.bufferHandlingMode,
                                       true);
                }
                buffers.QueueBufferToOutput(handle);
            }
        }
        list.pop_front();
        --m_context.activeBlockCount;
    }
}

} // namespace GenTL
