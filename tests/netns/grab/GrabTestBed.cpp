#include "GrabTestBed.h"

#include <cstdio>

namespace kesta_grab {

namespace {

constexpr uint64_t kDiscoveryMs = 500;

uint32_t FloatBits(float value) {
    uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

} // namespace

void GrabTest::SetUp() {
    const std::string why = kesta_device::NotInTestBed();
    if (!why.empty()) {
        GTEST_SKIP() << why;
    }
#ifdef KESTA_GRAB_STATIC
#define KESTA_GRAB_C(name) m_api.name = &::name;
#define KESTA_GRAB_CXX(name, mangled) m_api.name = &GenTL::name;
#else
    m_lib = new kesta::test::CtiLibrary();
#define KESTA_GRAB_C(name) m_api.name = m_lib->name;
#define KESTA_GRAB_CXX(name, mangled) m_api.name = m_lib->name;
#endif
    KESTA_CTI_C_FUNCTIONS(KESTA_GRAB_C)
    KESTA_CTI_CXX_FUNCTIONS(KESTA_GRAB_CXX)
#undef KESTA_GRAB_C
#undef KESTA_GRAB_CXX
    ASSERT_EQ(m_api.GCInitLib(), GC_ERR_SUCCESS);
    ASSERT_EQ(m_api.TLOpen(&m_system), GC_ERR_SUCCESS) << LastErrorText(m_api);
    uint32_t count = 0;
    ASSERT_EQ(m_api.TLGetNumInterfaces(m_system, &count), GC_ERR_SUCCESS);
    for (uint32_t i = 0; i < count && m_iface == nullptr; ++i) {
        char id[64] = {};
        size_t size = sizeof id;
        ASSERT_EQ(m_api.TLGetInterfaceID(m_system, i, id, &size), GC_ERR_SUCCESS);
        IF_HANDLE hIface = nullptr;
        if (m_api.TLOpenInterface(m_system, id, &hIface) != GC_ERR_SUCCESS) {
            continue;
        }
        uint32_t devices = 0;
        if (m_api.IFUpdateDeviceList(hIface, nullptr, kDiscoveryMs) == GC_ERR_SUCCESS &&
            m_api.IFGetNumDevices(hIface, &devices) == GC_ERR_SUCCESS && devices > 0) {
            m_iface = hIface;
        } else {
            m_api.IFClose(hIface);
        }
    }
    ASSERT_NE(m_iface, nullptr) << "no interface found the camera";
}

void GrabTest::TearDown() {
    if (m_api.GCInitLib != nullptr) {
        if (m_port != nullptr && m_device != nullptr && m_control) {
            // Leave the camera idle and with fixed-size blocks for the next test.
            const uint8_t zero[4] = {};
            const uint8_t one[4] = {0, 0, 0, 1};
            size_t size = 4;
            m_api.GCWritePort(m_port, kAcquisitionStop, one, &size);
            size = 4;
            m_api.GCWritePort(m_port, kVariableSize, zero, &size);
        }
        if (m_started) {
            m_api.DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT);
        }
        if (m_stream != nullptr) {
            m_api.DSFlushQueue(m_stream, ACQ_QUEUE_ALL_DISCARD);
            for (BUFFER_HANDLE h : m_buffers) {
                m_api.DSRevokeBuffer(m_stream, h, nullptr, nullptr);
            }
            m_api.DSClose(m_stream);
        }
        if (m_device != nullptr) {
            m_api.DevClose(m_device);
        }
        if (m_iface != nullptr) {
            m_api.IFClose(m_iface);
        }
        if (m_system != nullptr) {
            m_api.TLClose(m_system);
        }
        m_api.GCCloseLib();
    }
    delete m_lib;
    m_lib = nullptr;
}

void GrabTest::Open(uint32_t width, uint32_t height, float fps, DEVICE_ACCESS_FLAGS access) {
    const std::string serial = kesta_device::EnvList("KESTA_CAMERA_SERIALS").at(0);
    m_control = access == DEVICE_ACCESS_CONTROL || access == DEVICE_ACCESS_EXCLUSIVE;
    ASSERT_EQ(m_api.IFOpenDevice(m_iface, serial.c_str(), access, &m_device), GC_ERR_SUCCESS)
        << LastErrorText(m_api);
    ASSERT_EQ(m_api.DevGetPort(m_device, &m_port), GC_ERR_SUCCESS);
    ASSERT_EQ(m_api.DevOpenDataStream(m_device, m_streamId, &m_stream), GC_ERR_SUCCESS)
        << LastErrorText(m_api);
    m_width = width;
    m_height = height;
    if (m_control) {
        WriteCamera(kWidth, width);
        WriteCamera(kHeight, height);
        WriteCamera(kPixelFormat, kMono8);
        WriteCamera(kFrameRate, FloatBits(fps));
    }
    ASSERT_EQ(m_api.GCRegisterEvent(m_stream, EVENT_NEW_BUFFER, &m_event), GC_ERR_SUCCESS)
        << LastErrorText(m_api);
}

void GrabTest::WriteCamera(uint64_t address, uint32_t value) {
    const uint8_t bytes[4] = {static_cast<uint8_t>(value >> 24), static_cast<uint8_t>(value >> 16),
                              static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
    size_t size = sizeof bytes;
    ASSERT_EQ(m_api.GCWritePort(m_port, address, bytes, &size), GC_ERR_SUCCESS)
        << std::hex << address << " " << LastErrorText(m_api);
}

uint32_t GrabTest::ReadCamera(uint64_t address) {
    uint8_t bytes[4] = {};
    size_t size = sizeof bytes;
    EXPECT_EQ(m_api.GCReadPort(m_port, address, bytes, &size), GC_ERR_SUCCESS)
        << std::hex << address << " " << LastErrorText(m_api);
    return static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
           static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
}

bool GrabTest::SetStreamInt(uint64_t address, int cmd, int64_t value) {
#ifdef KESTA_GRAB_STATIC
    (void)address;
    auto* stream = dynamic_cast<GenTL::DataStreamGev*>(GenTL::CastHandle(m_stream));
    if (stream == nullptr) {
        return false;
    }
    if (cmd == STREAM_INFO_PACKET_RESEND_ENABLE) {
        const bool8_t on = value != 0;
        return stream->SetInfo(cmd, INFO_DATATYPE_BOOL8, &on, sizeof on) == GC_ERR_SUCCESS;
    }
    return stream->SetInfo(cmd, INFO_DATATYPE_INT64, &value, sizeof value) == GC_ERR_SUCCESS;
#else
    (void)cmd;
    uint8_t bytes[8] = {};
    for (int i = 0; i < 8; ++i) {
        bytes[i] = static_cast<uint8_t>(static_cast<uint64_t>(value) >> (8 * i));
    }
    size_t size = sizeof bytes;
    return m_api.GCWritePort(m_stream, address, bytes, &size) == GC_ERR_SUCCESS;
#endif
}

bool GrabTest::SetStreamBool(uint64_t address, int cmd, bool value) {
    return SetStreamInt(address, cmd, value ? 1 : 0);
}

bool GrabTest::UseResend(bool on) {
    if (!SetStreamBool(kStreamPacketResendEnable, STREAM_INFO_PACKET_RESEND_ENABLE, on)) {
        return false;
    }
    return StreamInfo<bool8_t>(STREAM_INFO_PACKET_RESEND_ENABLE) == (on ? 1 : 0);
}

void GrabTest::AnnounceAndQueue(int count, uint64_t size) {
    if (size == 0) {
        size = PayloadBytes();
    }
    for (int i = 0; i < count; ++i) {
        m_memory.emplace_back(size);
        BUFFER_HANDLE h = nullptr;
        ASSERT_EQ(m_api.DSAnnounceBuffer(m_stream, m_memory.back().data(), size, nullptr, &h),
                  GC_ERR_SUCCESS)
            << LastErrorText(m_api);
        m_buffers.push_back(h);
        ASSERT_EQ(m_api.DSQueueBuffer(m_stream, h), GC_ERR_SUCCESS);
    }
}

void GrabTest::Start(int flags) {
    ASSERT_EQ(m_api.DSStartAcquisition(m_stream, flags, GENTL_INFINITE), GC_ERR_SUCCESS)
        << LastErrorText(m_api);
    m_started = true;
    if (m_control) {
        WriteCamera(kAcquisitionStart, 1);
    }
}

void GrabTest::Stop() {
    WriteCamera(kAcquisitionStop, 1);
    ASSERT_EQ(m_api.DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS)
        << LastErrorText(m_api);
    m_started = false;
    ASSERT_EQ(m_api.DSFlushQueue(m_stream, ACQ_QUEUE_ALL_TO_INPUT), GC_ERR_SUCCESS);
}

bool GrabTest::Next(Delivered& out, uint64_t timeoutMs) {
    EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof data;
    if (m_api.EventGetData(m_event, &data, &size, timeoutMs) != GC_ERR_SUCCESS) {
        return false;
    }
    out.handle = data.BufferHandle;
    out.frameId = BufferInfo<uint64_t>(out.handle, BUFFER_INFO_FRAMEID);
    out.sizeFilled = BufferInfo<uint64_t>(out.handle, BUFFER_INFO_SIZE_FILLED);
    out.incomplete = BufferInfo<bool8_t>(out.handle, BUFFER_INFO_IS_INCOMPLETE) != 0;
    out.base = static_cast<const uint8_t*>(BufferInfo<void*>(out.handle, BUFFER_INFO_BASE));
    out.width = BufferInfo<uint64_t>(out.handle, BUFFER_INFO_WIDTH);
    out.height = BufferInfo<uint64_t>(out.handle, BUFFER_INFO_HEIGHT);
    out.deliveredHeight = BufferInfo<uint64_t>(out.handle, BUFFER_INFO_DELIVERED_IMAGEHEIGHT);
    return true;
}

void GrabTest::Requeue(const Delivered& d) {
    ASSERT_EQ(m_api.DSQueueBuffer(m_stream, d.handle), GC_ERR_SUCCESS) << LastErrorText(m_api);
}

Tally GrabTest::Take(int count) {
    Tally t;
    for (int i = 0; i < count; ++i) {
        Delivered d;
        if (!Next(d)) {
            ADD_FAILURE() << "no image " << i;
            break;
        }
        t.ids.push_back(d.frameId);
        if (d.incomplete) {
            ++t.incomplete;
            std::printf("[ incomplete] block %llu: %llu of %u bytes\n",
                        static_cast<unsigned long long>(d.frameId),
                        static_cast<unsigned long long>(d.sizeFilled), PayloadBytes());
            EXPECT_LT(d.sizeFilled, PayloadBytes()) << "id " << d.frameId;
        } else {
            ++t.complete;
            EXPECT_EQ(d.sizeFilled, PayloadBytes());
            EXPECT_EQ(d.width, m_width);
            EXPECT_EQ(d.height, m_height);
            EXPECT_EQ(d.deliveredHeight, m_height);
            const long long wrong = FirstWrongByte(d.base, d.sizeFilled, d.frameId);
            if (wrong >= 0) {
                ++t.wrongBytes;
                ADD_FAILURE() << "block " << d.frameId << " differs at byte " << wrong;
            }
        }
        Requeue(d);
    }
    return t;
}

template <typename T> T GrabTest::StreamInfo(STREAM_INFO_CMD cmd) {
    INFO_DATATYPE type = 0;
    T value{};
    size_t size = sizeof value;
    EXPECT_EQ(m_api.DSGetInfo(m_stream, cmd, &type, &value, &size), GC_ERR_SUCCESS) << cmd;
    return value;
}

template <typename T> T GrabTest::BufferInfo(BUFFER_HANDLE h, BUFFER_INFO_CMD cmd) {
    INFO_DATATYPE type = 0;
    T value{};
    size_t size = sizeof value;
    EXPECT_EQ(m_api.DSGetBufferInfo(m_stream, h, cmd, &type, &value, &size), GC_ERR_SUCCESS)
        << cmd << " " << LastErrorText(m_api);
    return value;
}

template bool8_t GrabTest::StreamInfo<bool8_t>(STREAM_INFO_CMD);
template uint64_t GrabTest::StreamInfo<uint64_t>(STREAM_INFO_CMD);
template bool8_t GrabTest::BufferInfo<bool8_t>(BUFFER_HANDLE, BUFFER_INFO_CMD);
template uint64_t GrabTest::BufferInfo<uint64_t>(BUFFER_HANDLE, BUFFER_INFO_CMD);

} // namespace kesta_grab
