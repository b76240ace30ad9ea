#pragma once
/**
 * The exchange of one GVCP register or memory command with a device: request
 * sent, ack awaited, judged, and resent on timeout.
 *
 * The rules, shared by the six operations of HALGev:
 * - only a receive timeout (or the device's own timeout status) is retried,
 *   with the very same bytes, up to the retry count: at most numRetries + 1
 *   sends;
 * - a pending ack moves the end of the wait to the time the device asks
 *   for; one for this request is waited past without using up an attempt;
 * - an ack with another request id, or a datagram too short to be an ack,
 *   is logged and waited past (unless the operation does not test ids);
 * - an ack with this id that is otherwise wrong ends the transaction;
 * - data count only if the datagram carries all that its header claims.
 * Whatever the device sends, the transaction ends: an attempt waits the
 * socket's timeout from its send, and pending acks hold a transaction at
 * most kMaxPendingWaitMs past its first send (AckDeadline). Only the
 * device's own datagrams are heard (CommSocket::Receive). Any of them resets
 * the device's timeout count; each receive timeout adds to it
 * (DeviceHandle::ConnectionTimeout).
 *
 * The caller holds the device's transactionLock and builds the command.
 */
#include <chrono>
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

/// How long pending acks may hold one transaction past its first send: the
/// slowest honest commands (flash writes) take seconds, and a device could
/// otherwise promise for ever.
constexpr int kMaxPendingWaitMs = 10000;

/**
 * When a wait for an ack ends, whatever the device sends. An attempt waits
 * timeoutMs from its send; other datagrams do not restart that time. A
 * pending ack moves the end to the time it promises (a promise of 0 would
 * be no end at all, and keeps timeoutMs instead), within the pending limit.
 */
class AckDeadline {
public:
    using Clock = std::chrono::steady_clock;

    /// The first send is now.
    explicit AckDeadline(int timeoutMs);
    /// A send (of a new attempt) now.
    void NewAttempt();
    /// A pending ack, promising promisedMs.
    void Pending(int promisedMs);
    /// What is left of the wait, ms, at least 0.
    int RemainingMs() const;

private:
    std::chrono::milliseconds m_timeout;
    Clock::time_point m_pendingLimit;
    Clock::time_point m_attemptEnd;
    Clock::time_point m_end;
};

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
                    AckDeadline& deadline, int& code);
    /// Judges a datagram of `size` bytes, of which the first `arrived` are
    /// in ack.
    Verdict Judge(const std::uint8_t* ack, std::size_t arrived, std::size_t size,
                  std::uint16_t requestId, unsigned address, AckDeadline& deadline, int& code);
    int Fail(int code);

    DeviceHandle& m_device;
    const GvcpOperation& m_op;
    unsigned long m_numRetries;
    std::string m_detail;
    bool m_delivered = false;
};

/**
 * Whether datagram (size bytes) is a pending ack; promisedMs receives the
 * time it gives. The promise moves an AckDeadline rather than the socket's
 * timeout, so that no wait is left without an end and nothing needs to be
 * put back afterwards.
 */
bool CheckAckPending(const std::uint8_t* datagram, std::size_t size, int& promisedMs);

} // namespace GenTL
