#pragma once
/**
 * The exchange of one GVCP register or memory command with a device: request
 * sent, ack awaited, judged, and resent on timeout.
 *
 * The rules, shared by the six operations of HALGev:
 * - only a receive timeout (or the device's own timeout status) is retried,
 *   with the very same bytes, up to the retry count: at most numRetries + 1
 *   sends;
 * - a pending ack for this request sets the socket timeout to the time the
 *   device asks for and waits again without using up an attempt; the former
 *   timeout is put back when the transaction ends;
 * - an ack with another request id is logged and waited past under the same
 *   timeout (unless the operation does not test ids);
 * - an ack with this id that is otherwise wrong ends the transaction.
 * Any datagram resets the device's timeout count; each receive timeout adds
 * to it (DeviceHandle::ConnectionTimeout).
 *
 * The caller holds the device's transactionLock and builds the command.
 */
#include <cstddef>
#include <cstdint>

#include "hal/DeviceHandle.h"

namespace GenTL {

/// What differs between the operations: expected ack and the texts.
struct GvcpOperation {
    /// Function name stamped on the error, e.g. "ReadReg".
    const char* name;
    const char* sendFailedLine;
    const char* receiveFailedLine;
    const char* invalidLine;
    /// Logged with both ids when an ack answers another request; null when
    /// the operation does not test ack ids.
    const char* mismatchLine;
    const char* exitPrefix;
    /// Filed as well when the send fails; null for none.
    const char* sendFailedFiling;
    std::uint16_t ackCode;
    /// Length field of a good ack.
    std::uint16_t ackLength;
    /// Bytes taken from the socket per ack.
    std::size_t ackBytes;
    /// ReadReg judges its length the other way round: a failed ack with
    /// length 4 is an invalid buffer, any other length lets the status speak.
    bool lengthTestReversed;
    /// WriteMem: bytes 10-11 of a good ack give this count; -1: no test.
    int writtenCount;
};

/// Largest ack any operation takes: READMEM of 536 bytes, READREG of 136
/// registers.
constexpr std::size_t kMaxAckSize = 552;

class GvcpTransaction {
public:
    GvcpTransaction(DeviceHandle& device, const GvcpOperation& op, unsigned long numRetries);

    /**
     * Runs the exchange. ack (ackCapacity >= op.ackBytes and >= 12) keeps
     * the last datagram received. Returns 0 or the error code, which is then
     * also filed. A success may come without a good ack (a status-0 ack that
     * failed only its length test): Delivered() tells whether ack holds data.
     */
    int Run(const std::uint8_t* command, std::size_t commandLength, std::uint16_t requestId,
            unsigned address, std::uint8_t* ack, std::size_t ackCapacity);

    bool Delivered() const { return m_delivered; }

private:
    /// What to do after a datagram: wait for another, deliver it, end the
    /// attempt with the code (which may be retried), or end the transaction.
    enum class Verdict { Wait, Good, EndAttempt, Final };

    int Send(const std::uint8_t* command, std::size_t commandLength);
    /// Receives until the attempt ends; code receives the attempt's result.
    Verdict Attempt(std::uint16_t requestId, unsigned address, std::uint8_t* ack,
                    std::size_t ackCapacity, int& code);
    Verdict Judge(const std::uint8_t* ack, std::size_t ackCapacity, std::uint16_t requestId,
                  unsigned address, int& savedTimeout, int& code);
    int Fail(int code);

    DeviceHandle& m_device;
    const GvcpOperation& m_op;
    unsigned long m_numRetries;
    std::string m_detail;
    bool m_delivered = false;
};

/**
 * If datagram is a pending ack, sets the handle's socket timeout to the time
 * it gives and returns true. savedTimeout receives the timeout that stood if
 * it is still 0, so that of several pending acks the first one's is kept.
 */
bool CheckAckPending(BaseHandle* handle, const std::uint8_t* datagram, std::size_t size,
                     int& savedTimeout);
/// Puts back a timeout saved by CheckAckPending, if any.
void ResetTimout(BaseHandle* handle, int savedTimeout);

} // namespace GenTL
