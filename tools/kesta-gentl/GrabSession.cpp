#include "GrabSession.h"

#include <chrono>
#include <cstring>
#include <iostream>
#include <string>

namespace kesta::gentl {

namespace {

double Now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

/// A numeric info answer of up to 8 bytes, by its type.
std::uint64_t AsNumber(INFO_DATATYPE type, const unsigned char* bytes, size_t size) {
    switch (type) {
    case INFO_DATATYPE_BOOL8:
        return size >= 1 && bytes[0] != 0;
    case INFO_DATATYPE_INT32:
    case INFO_DATATYPE_UINT32: {
        std::uint32_t v = 0;
        std::memcpy(&v, bytes, size < sizeof v ? size : sizeof v);
        return v;
    }
    default: {
        std::uint64_t v = 0;
        std::memcpy(&v, bytes, size < sizeof v ? size : sizeof v);
        return v;
    }
    }
}

} // namespace

GrabSession::GrabSession(Producer& producer, DEV_HANDLE device) : m_p(producer), m_device(device) {}

GrabSession::~GrabSession() {
    Close();
}

bool GrabSession::WriteSetting(std::uint64_t address, std::int64_t value, const char* name) {
    unsigned char bytes[8];
    for (int i = 0; i < 8; ++i) {
        bytes[i] = static_cast<unsigned char>(static_cast<std::uint64_t>(value) >> (8 * i));
    }
    size_t size = sizeof bytes;
    if (GC_ERROR rc = m_p.GCWritePort(m_stream, address, bytes, &size)) {
        m_p.Report(std::cerr, std::string("setting ") + name + " (stream register)", rc);
        return false;
    }
    return true;
}

bool GrabSession::ReadSetting(std::uint64_t address, std::int64_t& value) {
    unsigned char bytes[8] = {};
    size_t size = sizeof bytes;
    if (m_stream == nullptr || m_p.GCReadPort(m_stream, address, bytes, &size) != GC_ERR_SUCCESS) {
        return false;
    }
    std::uint64_t v = 0;
    for (int i = 7; i >= 0; --i) {
        v = v << 8 | bytes[i];
    }
    value = static_cast<std::int64_t>(v);
    return true;
}

bool GrabSession::Open(const StreamSettings& settings) {
    char id[256] = {};
    size_t size = sizeof id;
    uint32_t count = 0;
    if (GC_ERROR rc = m_p.DevGetNumDataStreams(m_device, &count)) {
        m_p.Report(std::cerr, "DevGetNumDataStreams", rc);
        return false;
    }
    if (settings.stream >= count) {
        std::cerr << "the camera has no stream " << settings.stream << " (it has " << count
                  << ")\n";
        return false;
    }
    if (GC_ERROR rc = m_p.DevGetDataStreamID(m_device, settings.stream, id, &size)) {
        m_p.Report(std::cerr, "DevGetDataStreamID(" + std::to_string(settings.stream) + ")", rc);
        return false;
    }
    if (GC_ERROR rc = m_p.DevOpenDataStream(m_device, id, &m_stream)) {
        m_stream = nullptr;
        m_p.Report(std::cerr, std::string("DevOpenDataStream(") + id + ")", rc);
        return false;
    }
    m_buffers.reserve(settings.buffers);
    m_memory.reserve(settings.buffers);
    m_wantedBuffers = settings.buffers;
    m_headerRoom = settings.headerRoom;
    return (settings.resend < 0 ||
            WriteSetting(kPacketResendEnable, settings.resend, "StreamPacketResendEnable")) &&
           (settings.handlingMode < 0 ||
            WriteSetting(kBufferHandlingMode, settings.handlingMode, "StreamBufferHandlingMode")) &&
           (settings.autoPacketSize < 0 ||
            WriteSetting(kAutoNegotiatePacketSize, settings.autoPacketSize,
                         "StreamAutoNegotiatePacketSize"));
}

bool GrabSession::Prepare(std::uint64_t bytes) {
    bytes += m_headerRoom;
    for (std::uint32_t i = 0; i < m_wantedBuffers; ++i) {
        m_memory.emplace_back(bytes);
        BUFFER_HANDLE handle = nullptr;
        if (GC_ERROR rc =
                m_p.DSAnnounceBuffer(m_stream, m_memory.back().data(), bytes, nullptr, &handle)) {
            m_memory.pop_back();
            m_p.Report(std::cerr, "DSAnnounceBuffer", rc);
            return false;
        }
        m_buffers.push_back(handle);
        if (GC_ERROR rc = m_p.DSQueueBuffer(m_stream, handle)) {
            m_p.Report(std::cerr, "DSQueueBuffer", rc);
            return false;
        }
    }
    if (GC_ERROR rc = m_p.GCRegisterEvent(m_stream, EVENT_NEW_BUFFER, &m_event)) {
        m_event = nullptr;
        m_p.Report(std::cerr, "GCRegisterEvent(EVENT_NEW_BUFFER)", rc);
        return false;
    }
    return true;
}

bool GrabSession::Start() {
    if (GC_ERROR rc = m_p.DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE)) {
        m_p.Report(std::cerr, "DSStartAcquisition", rc);
        return false;
    }
    m_started = true;
    m_startTime = Now();
    m_frames = m_bytes = m_incomplete = 0;
    m_missedBaseline = m_missedPacketsBaseline = 0;
    return true;
}

bool GrabSession::StreamNumber(STREAM_INFO_CMD cmd, std::uint64_t& value) {
    unsigned char bytes[8] = {};
    size_t size = sizeof bytes;
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    if (m_p.DSGetInfo(m_stream, cmd, &type, bytes, &size) != GC_ERR_SUCCESS) {
        return false;
    }
    value = AsNumber(type, bytes, size);
    return true;
}

bool GrabSession::BufferNumber(BUFFER_HANDLE buffer, BUFFER_INFO_CMD cmd, std::uint64_t& value) {
    unsigned char bytes[8] = {};
    size_t size = sizeof bytes;
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    if (m_p.DSGetBufferInfo(m_stream, buffer, cmd, &type, bytes, &size) != GC_ERR_SUCCESS) {
        return false;
    }
    value = AsNumber(type, bytes, size);
    return true;
}

int GrabSession::Next(DeliveredBuffer& out, std::uint64_t timeoutMs) {
    if (m_interrupted) {
        return -1;
    }
    EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof data;
    const GC_ERROR rc = m_p.EventGetData(m_event, &data, &size, timeoutMs);
    if (rc == GC_ERR_TIMEOUT) {
        return 0;
    }
    if (rc != GC_ERR_SUCCESS) {
        if (rc != GC_ERR_ABORT || !m_interrupted) {
            m_p.Report(std::cerr, "EventGetData", rc);
        }
        return -1;
    }
    out = DeliveredBuffer{};
    out.handle = data.BufferHandle;
    std::uint64_t value = 0;
    if (!BufferNumber(out.handle, BUFFER_INFO_FRAMEID, out.frameId) ||
        !BufferNumber(out.handle, BUFFER_INFO_SIZE_FILLED, out.sizeFilled) ||
        !BufferNumber(out.handle, BUFFER_INFO_IS_INCOMPLETE, value)) {
        m_p.Report(std::cerr, "DSGetBufferInfo", GC_ERR_ERROR);
        return -1;
    }
    out.incomplete = value != 0;
    std::uint64_t present = 0;
    std::uint64_t base = 0;
    std::uint64_t width = 0;
    std::uint64_t height = 0;
    std::uint64_t size64 = 0;
    if (BufferNumber(out.handle, BUFFER_INFO_IMAGEPRESENT, present) && present != 0 &&
        BufferNumber(out.handle, BUFFER_INFO_BASE, base) &&
        BufferNumber(out.handle, BUFFER_INFO_SIZE, size64) &&
        BufferNumber(out.handle, BUFFER_INFO_WIDTH, width) &&
        BufferNumber(out.handle, BUFFER_INFO_HEIGHT, height) &&
        BufferNumber(out.handle, BUFFER_INFO_PIXELFORMAT, out.image.pixelFormat)) {
        out.imagePresent = true;
        out.image.width = static_cast<std::uint32_t>(width);
        out.image.height = static_cast<std::uint32_t>(height);
        out.image.data = reinterpret_cast<const std::uint8_t*>(static_cast<std::uintptr_t>(base));
        // What the camera filled, within the buffer: never past either end.
        out.image.size =
            static_cast<std::size_t>(out.sizeFilled < size64 ? out.sizeFilled : size64);
    }
    if (m_frames == 0) {
        // The stream expects block 1 after each start, but a camera may go on
        // counting from its previous acquisition: the ids it skipped before
        // the first block of this run are no loss of this run. (Blocks truly
        // lost before the first delivered one hide in this baseline too.)
        StreamNumber(STREAM_INFO_MISSED_IMAGE_COUNT, m_missedBaseline);
        StreamNumber(STREAM_INFO_MISSED_PACKET_COUNT, m_missedPacketsBaseline);
    }
    ++m_frames;
    m_bytes += out.sizeFilled;
    m_incomplete += out.incomplete ? 1 : 0;
    return 1;
}

bool GrabSession::Requeue(const DeliveredBuffer& buffer) {
    if (GC_ERROR rc = m_p.DSQueueBuffer(m_stream, buffer.handle)) {
        m_p.Report(std::cerr, "DSQueueBuffer", rc);
        return false;
    }
    return true;
}

void GrabSession::Interrupt() {
    m_interrupted = true;
    if (m_event != nullptr) {
        m_p.EventKill(m_event);
    }
}

GrabCounters GrabSession::Counters() {
    GrabCounters c;
    c.seconds = m_started ? Now() - m_startTime : 0.0;
    c.frames = m_frames;
    c.bytes = m_bytes;
    c.incomplete = m_incomplete;
    if (m_frames != 0) {
        StreamNumber(STREAM_INFO_MISSED_IMAGE_COUNT, c.missed);
        StreamNumber(STREAM_INFO_MISSED_PACKET_COUNT, c.missedPackets);
        c.missed -= c.missed >= m_missedBaseline ? m_missedBaseline : c.missed;
        c.missedPackets -=
            c.missedPackets >= m_missedPacketsBaseline ? m_missedPacketsBaseline : c.missedPackets;
    }
    StreamNumber(STREAM_INFO_NUM_UNDERRUN, c.underrun);
    std::uint64_t resend = 0;
    c.resend = StreamNumber(STREAM_INFO_PACKET_RESEND_ENABLE, resend) && resend != 0;
    return c;
}

bool GrabSession::Stop() {
    if (!m_started) {
        return true;
    }
    m_started = false;
    bool ok = true;
    if (GC_ERROR rc = m_p.DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT)) {
        m_p.Report(std::cerr, "DSStopAcquisition", rc);
        ok = false;
    }
    return ok;
}

void GrabSession::Close() {
    if (m_stream == nullptr) {
        return;
    }
    Stop();
    m_p.DSFlushQueue(m_stream, ACQ_QUEUE_ALL_DISCARD);
    if (m_event != nullptr) {
        m_p.GCUnregisterEvent(m_stream, EVENT_NEW_BUFFER);
        m_event = nullptr;
    }
    for (BUFFER_HANDLE handle : m_buffers) {
        void* memory = nullptr;
        void* user = nullptr;
        if (GC_ERROR rc = m_p.DSRevokeBuffer(m_stream, handle, &memory, &user)) {
            m_p.Report(std::cerr, "DSRevokeBuffer", rc);
        }
    }
    m_buffers.clear();
    if (GC_ERROR rc = m_p.DSClose(m_stream)) {
        m_p.Report(std::cerr, "DSClose", rc);
    }
    m_stream = nullptr;
    m_memory.clear();
}

} // namespace kesta::gentl
