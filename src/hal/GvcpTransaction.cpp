#include "hal/GvcpTransaction.h"

#include <cerrno>
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

bool CheckAckPending(BaseHandle* handle, const std::uint8_t* datagram, std::size_t size,
                     int& savedTimeout) {
    if (gvcp::GetU16(datagram, size, 2) != gvcp::kPendingAck) {
        return false;
    }
    int former = 0;
    const int promisedMs = gvcp::GetU16(datagram, size, 10);
    if (handle->socket->SetTimeout(promisedMs, former) != 0) {
        HLogger::Error("GenTL::HALGev::ReadReg Could't set Ackk pending Timout");
    } else if (savedTimeout == 0) {
        savedTimeout = former;
    }
    return true;
}

void ResetTimout(BaseHandle* handle, int savedTimeout) {
    if (savedTimeout == 0) {
        return;
    }
    int former = 0;
    if (handle->socket->SetTimeout(savedTimeout, former) != 0) {
        HLogger::Error("GenTL::HALGev::ResetTimout Could't reset Timout");
    }
}

GvcpTransaction::GvcpTransaction(DeviceHandle& device, const GvcpOperation& op,
                                 unsigned long numRetries)
    : m_device(device), m_op(op), m_numRetries(numRetries) {}

int GvcpTransaction::Run(const std::uint8_t* command, std::size_t commandLength,
                         std::uint16_t requestId, unsigned address, std::uint8_t* ack,
                         std::size_t ackCapacity) {
    m_detail.clear();
    m_delivered = false;
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
            const Verdict verdict = Attempt(requestId, address, ack, ackCapacity, code);
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
                                                  std::uint8_t* ack, std::size_t ackCapacity,
                                                  int& code) {
    int savedTimeout = 0;
    for (;;) {
        code = m_device.socket->Receive(reinterpret_cast<char*>(ack),
                                        static_cast<int>(m_op.ackBytes), false);
        if (code != GC_ERR_SUCCESS) {
            if (code == GC_ERR_TIMEOUT) {
                m_device.ConnectionTimeout();
            }
            HLogger::Error(m_op.receiveFailedLine, code);
            break;
        }
        {
            // Any datagram, valid or not, is a sign of life.
            boost::mutex::scoped_lock lock(m_device.stateLock);
            m_device.timeoutCount = 0;
        }
        const Verdict verdict = Judge(ack, ackCapacity, requestId, address, savedTimeout, code);
        if (verdict == Verdict::Wait) {
            continue;
        }
        if (verdict == Verdict::EndAttempt) {
            break;
        }
        return verdict;
    }
    ResetTimout(&m_device, savedTimeout);
    return Verdict::EndAttempt;
}

GvcpTransaction::Verdict GvcpTransaction::Judge(const std::uint8_t* ack, std::size_t ackCapacity,
                                                std::uint16_t requestId, unsigned address,
                                                int& savedTimeout, int& code) {
    const bool pending = CheckAckPending(&m_device, ack, ackCapacity, savedTimeout);
    const gvcp::AckHeader header = gvcp::AckHeader::Parse(ack, ackCapacity);
    const bool idMatches = m_op.mismatchLine == nullptr || header.ackId == requestId;
    if (pending && idMatches) {
        return Verdict::Wait;
    }
    const bool lengthRight = header.length == m_op.ackLength;
    const bool extraRight =
        m_op.writtenCount < 0 || gvcp::GetU16(ack, ackCapacity, 10) == m_op.writtenCount;
    if (header.status == 0 && header.ackCode == m_op.ackCode && idMatches && lengthRight &&
        extraRight) {
        ResetTimout(&m_device, savedTimeout);
        return Verdict::Good;
    }

    m_detail = Describe(address, header);
    HLogger::Error(m_op.invalidLine, GC_ERR_INVALID_VALUE);
    HLogger::Error(m_detail.c_str());
    code = gvcp::ToGCError(header.status);
    if (!idMatches) {
        // Most likely the late answer to an earlier attempt: wait on for ours.
        HLogger::Warn(loc::al(m_op.mismatchLine, std::to_string(requestId).c_str(),
                              std::to_string(header.ackId).c_str())
                          .c_str());
        return Verdict::Wait;
    }
    if (header.ackCode != m_op.ackCode) {
        ResetTimout(&m_device, savedTimeout);
        code = kWrongAckCode;
        return Verdict::Final;
    }
    const bool lengthFails = m_op.lengthTestReversed ? header.length == 4 : !lengthRight;
    if (lengthFails) {
        ResetTimout(&m_device, savedTimeout);
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
