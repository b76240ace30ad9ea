#include "stream/ResendScheduler.h"

#include <algorithm>

#include <boost/asio/error.hpp>
#include <boost/bind/bind.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/lock_guard.hpp>

#include "hal/IHALGev.h"
#include "stream/Buffer.h"
#include "stream/GrabContext.h"
#include "stream/PacketResendRequest.h"
#include "stream/StreamInfo.h"

namespace GenTL {

ResendScheduler::ResendScheduler(GrabContext& context) : m_context(context) {}

void ResendScheduler::FirePacketResend(void* device, IHALGev* hal, unsigned long blockId,
                                       unsigned int first, unsigned int last, bool extended) {
    if (hal == nullptr) {
        return;
    }
    (void)hal->SendPacketResend(device, blockId, first, last, extended);
}

void ResendScheduler::OpenRequest(Buffer* buffer, std::uint64_t blockId, std::uint32_t first,
                                  std::uint32_t last, std::uint32_t remaining) {
    const StreamInfo& info = m_context.info;
    auto* request = new PacketResendRequest(buffer, blockId, first, last, info.extendedId,
                                            remaining, info.resendRetries);
    {
        boost::lock_guard<boost::mutex> lock(buffer->m_resendRequestsMutex);
        buffer->m_resendRequests.push_back(request);
    }
    {
        boost::lock_guard<boost::mutex> lock(m_context.pendingResendsMutex);
        m_context.pendingResends.push_back(request);
        ++m_context.pendingResendCount;
    }
    FirePacketResend(m_context.device, m_context.hal, blockId, first, last, info.extendedId);
    boost::lock_guard<boost::mutex> lock(request->m_mutex);
    request->timer = new boost::asio::deadline_timer(m_context.resendTimerService);
    ArmTimer(request);
}

void ResendScheduler::ArmTimer(PacketResendRequest* request) {
    request->timer->expires_from_now(
        boost::posix_time::milliseconds(m_context.info.resendRequestTimeout));
    request->timer->async_wait(boost::bind(&ResendScheduler::PacketResendRequestTimerExpiryHandler,
                                           this, boost::placeholders::_1, request));
}

bool ResendScheduler::RemovePending(PacketResendRequest* request) {
    boost::lock_guard<boost::mutex> lock(m_context.pendingResendsMutex);
    auto& list = m_context.pendingResends;
    const auto it = std::find(list.begin(), list.end(), request);
    if (it == list.end()) {
        return false;
    }
    list.erase(it);
    --m_context.pendingResendCount;
    return true;
}

void ResendScheduler::SettleLatePacket(Buffer* buffer, std::uint32_t packetId) {
    boost::lock_guard<boost::mutex> lock(buffer->m_resendRequestsMutex);
    auto& requests = buffer->m_resendRequests;
    for (auto it = requests.begin(); it != requests.end(); ++it) {
        PacketResendRequest* request = *it;
        if (request == nullptr) {
            continue;
        }
        boost::unique_lock<boost::mutex> requestLock(request->m_mutex);
        if (!request->Covers(packetId)) {
            continue;
        }
        if (request->remaining > 0) {
            --request->remaining;
        }
        if (request->remaining > 0) {
            return;
        }
        RemovePending(request);
        request->timer->cancel();
        delete request->timer;
        request->timer = nullptr;
        requestLock.unlock();
        requests.erase(it);
        delete request;
        return;
    }
}

void ResendScheduler::ClearResendRequestList(Buffer* buffer) {
    boost::lock_guard<boost::mutex> lock(buffer->m_resendRequestsMutex);
    for (PacketResendRequest* request : buffer->m_resendRequests) {
        if (request == nullptr) {
            continue;
        }
        RemovePending(request);
        {
            boost::lock_guard<boost::mutex> requestLock(request->m_mutex);
            if (request->timer != nullptr) {
                request->timer->cancel();
                delete request->timer;
                request->timer = nullptr;
            }
        }
        delete request;
    }
    buffer->m_resendRequests.clear();
}

void ResendScheduler::PacketResendRequestTimerExpiryHandler(const boost::system::error_code& error,
                                                            PacketResendRequest* request) {
    if (!m_context.running || error == boost::asio::error::operation_aborted) {
        return;
    }
    boost::lock_guard<boost::mutex> listLock(m_context.activeBlocksMutex);
    {
        boost::lock_guard<boost::mutex> lock(m_context.pendingResendsMutex);
        const auto& list = m_context.pendingResends;
        if (std::find(list.begin(), list.end(), request) == list.end()) {
            return; // settled or cleared meanwhile
        }
    }
    boost::lock_guard<boost::mutex> bufferLock(request->buffer->m_mutex);
    boost::lock_guard<boost::mutex> requestLock(request->m_mutex);
    if (request->retriesLeft == 0 || request->timer == nullptr) {
        return; // stays open, silent, until its block ends
    }
    FirePacketResend(m_context.device, m_context.hal, request->blockId, request->firstPacket,
                     request->lastPacket, request->extendedId);
    ArmTimer(request);
    --request->retriesLeft;
}

} // namespace GenTL
