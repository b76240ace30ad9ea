#include "hal/GvcpTransaction.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <sstream>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/HLogger.h"
#include "api/localization.h"
#include "hal/GvcpWire.h"
#include "hal/SocketHelper.h"

namespace GenTL {

namespace {

/// An ack with the request's id but the wrong ack code; no named error.
constexpr int kWrongAckCode = -9998;

std::string Describe(unsigned address, const gvcp::AckHeader& header) {
    std::ostringstream text;
    text << std::hex << "address: 0x" << address << ", ACK = 0x" << header.ackCode
         << ", status = 0x" << header.status << ", ack_id = 0x" << header.ackId << ", length = 0x"
         << header.length;
    return text.str();
}

} // namespace

AckDeadline::AckDeadline(int timeoutMs)
    : m_timeout(std::max(timeoutMs, 0)),
      m_pendingLimit(Clock::now() + std::chrono::milliseconds(kMaxPendingWaitMs)) {
    NewAttempt();
}

void AckDeadline::NewAttempt() {
    m_attemptEnd = Clock::now() + m_timeout;
    m_end = m_attemptEnd;
}

void AckDeadline::Pending(int promisedMs) {
    const std::chrono::milliseconds promise =
        promisedMs > 0 ? std::chrono::milliseconds(promisedMs) : m_timeout;
    m_end = std::min(Clock::now() + promise, std::max(m_attemptEnd, m_pendingLimit));
}

int AckDeadline::RemainingMs() const {
    const Clock::duration left = m_end - Clock::now();
    if (left <= Clock::duration::zero()) {
        return 0;
    }
    const auto ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    return static_cast<int>(std::min<long long>(ms, INT_MAX));
}

bool CheckAckPending(const std::uint8_t* datagram, std::size_t size, int& promisedMs) {
    if (gvcp::GetU16(datagram, size, 2) != gvcp::kPendingAck) {
        return false;
    }
    promisedMs = gvcp::GetU16(datagram, size, 10);
    return true;
}

GvcpTransaction::GvcpTransaction(DeviceHandle& device, const GvcpOperation& op,
                                 unsigned long numRetries)
    : m_device(device), m_op(op), m_numRetries(numRetries) {}

int GvcpTransaction::Run(const std::uint8_t* command, std::size_t commandLength,
                         std::uint16_t requestId, unsigned address, std::uint8_t* ack,
                         std::size_t ackCapacity) {
    m_detail.clear();
    m_delivered = false;
    if (ackCapacity < m_op.ackBytes) {
        return Fail(GC_ERR_INVALID_PARAMETER);
    }
    AckDeadline deadline(m_device.socket ? m_device.socket->Timeout() : 0);
    unsigned long attempt = 0;
    for (;;) {
        int code = Send(command, commandLength);
        if (code != GC_ERR_SUCCESS) {
            {
                boost::mutex::scoped_lock lock(m_device.stateLock);
                m_device.connected = false;
            }
            HLogger::Error(m_op.sendFailedLine, code);
            if (m_op.sendFailedFiling != nullptr) {
                detail::ReportErrorAt(code, m_op.sendFailedFiling, m_op.name, __LINE__);
            }
        } else {
            const Verdict verdict = Attempt(requestId, address, ack, deadline, code);
            if (verdict == Verdict::Good) {
                m_delivered = true;
                return GC_ERR_SUCCESS;
            }
            if (verdict == Verdict::Final) {
                return Fail(code);
            }
        }
        if (code == GC_ERR_SUCCESS) {
            return GC_ERR_SUCCESS;
        }
        if (code != GC_ERR_TIMEOUT || attempt >= m_numRetries) {
            return Fail(code);
        }
        ++attempt;
        deadline.NewAttempt();
    }
}

int GvcpTransaction::Send(const std::uint8_t* command, std::size_t commandLength) {
    if (!m_device.socket) {
        return detail::ReportErrorAt(
            GC_ERR_IO, "GenTL::CommSocket::Send sendto Failed : " + std::to_string(EBADF),
            m_op.name, __LINE__);
    }
    return m_device.socket->Send(reinterpret_cast<const char*>(command),
                                 static_cast<int>(commandLength), 0);
}

GvcpTransaction::Verdict GvcpTransaction::Attempt(std::uint16_t requestId, unsigned address,
                                                  std::uint8_t* ack, AckDeadline& deadline,
                                                  int& code) {
    // The first wait is the socket's own timeout; after a datagram that did
    // not end the attempt, only what is left of it.
    int waitMs = CommSocket::kSocketTimeout;
    for (;;) {
        int received = 0;
        code = m_device.socket->Receive(reinterpret_cast<char*>(ack),
                                        static_cast<int>(m_op.ackBytes), false, received, waitMs);
        if (code != GC_ERR_SUCCESS) {
            if (code == GC_ERR_TIMEOUT) {
                m_device.ConnectionTimeout();
            }
            HLogger::Error(m_op.receiveFailedLine, code);
            return Verdict::EndAttempt;
        }
        {
            // Any datagram, valid or not, is a sign of life.
            boost::mutex::scoped_lock lock(m_device.stateLock);
            m_device.timeoutCount = 0;
        }
        const std::size_t size = static_cast<std::size_t>(std::max(received, 0));
        const Verdict verdict =
            Judge(ack, std::min(size, m_op.ackBytes), size, requestId, address, deadline, code);
        if (verdict != Verdict::Wait) {
            return verdict;
        }
        waitMs = deadline.RemainingMs();
    }
}

GvcpTransaction::Verdict GvcpTransaction::Judge(const std::uint8_t* ack, std::size_t arrived,
                                                std::size_t size, std::uint16_t requestId,
                                                unsigned address, AckDeadline& deadline,
                                                int& code) {
    if (size < gvcp::kHeaderSize) {
        // Too short to be an ack at all: waited past, as a stale one.
        HLogger::Error(m_op.invalidLine, GC_ERR_INVALID_VALUE);
        return Verdict::Wait;
    }
    const gvcp::AckHeader header = gvcp::AckHeader::Parse(ack, arrived);
    const bool idMatches = m_op.mismatchLine == nullptr || header.ackId == requestId;
    int promisedMs = 0;
    if (CheckAckPending(ack, arrived, promisedMs)) {
        // A pending ack of any id moves the wait (a slow device still busy
        // with an earlier request tells so), within the pending limit; one
        // for another request is then judged as a stale ack below.
        deadline.Pending(promisedMs);
        if (idMatches) {
            return Verdict::Wait;
        }
    }

    // Data count only if the datagram carries all its header claims.
    const bool lengthRight =
        header.length == m_op.ackLength && size >= gvcp::kHeaderSize + header.length;
    const bool extraRight =
        m_op.writtenCount < 0 || gvcp::GetU16(ack, arrived, 10) == m_op.writtenCount;
    if (header.status == 0 && header.ackCode == m_op.ackCode && idMatches && lengthRight &&
        extraRight) {
        return Verdict::Good;
    }

    m_detail = Describe(address, header);
    HLogger::Error(m_op.invalidLine, GC_ERR_INVALID_VALUE);
    HLogger::Error(m_detail.c_str());
    code = gvcp::ToGCError(header.status);
    if (!idMatches) {
        // Most likely the late answer to an earlier attempt: wait on for ours,
        // though no longer than the attempt's own time.
        HLogger::Warn(loc::al(m_op.mismatchLine, std::to_string(requestId).c_str(),
                              std::to_string(header.ackId).c_str())
                          .c_str());
        return Verdict::Wait;
    }
    if (header.ackCode != m_op.ackCode) {
        code = kWrongAckCode;
        return Verdict::Final;
    }
    const bool lengthFails = m_op.lengthTestReversed ? header.length == 4 : !lengthRight;
    if (lengthFails) {
        code = GC_ERR_INVALID_BUFFER;
        return Verdict::Final;
    }
    return Verdict::EndAttempt;
}

int GvcpTransaction::Fail(int code) {
    const std::string text =
        std::string(m_op.exitPrefix) + std::to_string(GC_ERR_INVALID_VALUE) + " : " + m_detail;
    return detail::ReportErrorAt(code, text, m_op.name, __LINE__);
}

} // namespace GenTL
