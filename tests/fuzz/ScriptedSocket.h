#pragma once
// A control socket for the fuzz targets: it sends nowhere and receives the
// datagrams of the fuzz input in order, each exactly as long as given, then
// times out. It keeps what it handed out, so that a target can check that
// nothing was taken from beyond a datagram's end.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "GenTL_KESTA.h"
#include "hal/GvcpTransaction.h"
#include "hal/GvcpWire.h"
#include "hal/SocketHelper.h"

namespace kesta_fuzz {

using Bytes = std::vector<std::uint8_t>;

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}
    std::size_t Remaining() const { return m_size - m_pos; }
    std::uint32_t Take(int bytes) {
        std::uint32_t value = 0;
        for (int i = 0; i < bytes; ++i) {
            value = (value << 8) | (m_pos < m_size ? m_data[m_pos++] : 0);
        }
        return value;
    }
    Bytes Datagram(std::size_t length) {
        length = std::min(length, Remaining());
        Bytes bytes(m_data + m_pos, m_data + m_pos + length);
        m_pos += length;
        return bytes;
    }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
    std::size_t m_pos = 0;
};

class ScriptedSocket : public GenTL::CommSocket {
public:
    /// Each datagram: a control byte (bit 0: the last request id goes into
    /// bytes 6-7, bit 1: the id before it, bit 2: a pending ack code into
    /// bytes 2-3), a 2-byte length (cut to 600), the bytes.
    explicit ScriptedSocket(Input& in) : m_in(in) {}

    int Send(const char* data, int length, unsigned) override {
        ++sends;
        if (length >= 8) {
            lastRequestId = static_cast<std::uint16_t>((static_cast<std::uint8_t>(data[6]) << 8) |
                                                       static_cast<std::uint8_t>(data[7]));
        }
        return GC_ERR_SUCCESS;
    }
    int SetTimeout(int, int& former) override {
        former = 200;
        return GC_ERR_SUCCESS;
    }
    int Receive(char* buffer, int length, bool, int& received, int waitMs) override {
        // Every wait has an end, and pending acks cannot stretch it beyond
        // their limit.
        if (waitMs < CommSocket::kSocketTimeout || waitMs > GenTL::kMaxPendingWaitMs) {
            std::abort();
        }
        if (m_in.Remaining() < 3) {
            return GC_ERR_TIMEOUT;
        }
        const std::uint32_t control = m_in.Take(1);
        Bytes datagram = m_in.Datagram(m_in.Take(2) % 601);
        const auto put16 = [&datagram](std::size_t at, std::uint16_t value) {
            if (datagram.size() >= at + 2) {
                datagram[at] = static_cast<std::uint8_t>(value >> 8);
                datagram[at + 1] = static_cast<std::uint8_t>(value);
            }
        };
        if (control & 1) {
            put16(6, lastRequestId);
        }
        if (control & 2) {
            put16(6, static_cast<std::uint16_t>(lastRequestId - 1));
        }
        if (control & 4) {
            put16(2, GenTL::gvcp::kPendingAck);
        }
        // Bytes past the datagram keep a mark, so that taking them shows.
        std::memset(buffer, 0xA5, static_cast<std::size_t>(length));
        std::copy_n(datagram.begin(), std::min(datagram.size(), static_cast<std::size_t>(length)),
                    buffer);
        received = static_cast<int>(datagram.size());
        handedOut.push_back(std::move(datagram));
        return GC_ERR_SUCCESS;
    }

    int sends = 0;
    std::uint16_t lastRequestId = 0;
    std::vector<Bytes> handedOut;

private:
    Input& m_in;
};

} // namespace kesta_fuzz
