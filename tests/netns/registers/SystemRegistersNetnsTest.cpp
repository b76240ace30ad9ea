// The system module's GenApi view through the exported functions, as a
// consumer's GenApi engine uses it (SystemPort), and the broadcast action
// command it fires, as the simulated cameras of the test bed see it
// (BroadcastAction). Both run in the host namespace of run-with-camera only:
// opening the System lists the adapters, and the action command leaves
// through every adapter that is up.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "CameraTestBed.h"
#include "PortXml.h"

namespace {

using kesta_netns::Env;

class SystemPort : public kesta::test::CtiTest {
protected:
    void SetUp() override {
        const std::string why = kesta_device::NotInTestBed();
        if (!why.empty()) {
            GTEST_SKIP() << why;
        }
        CtiTest::SetUp();
        ASSERT_EQ(Init(), GC_ERR_SUCCESS);
        ASSERT_EQ(Lib().TLOpen(&m_system), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
        ASSERT_NO_FATAL_FAILURE(m_xml.Load(Lib(), m_system));
    }
    void TearDown() override {
        if (m_system != nullptr) {
            EXPECT_EQ(Lib().TLClose(m_system), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
        }
        CtiTest::TearDown();
    }

    int Read(std::uint64_t address, void* data, size_t size) {
        return Lib().GCReadPort(m_system, address, data, &size);
    }
    int Write(std::uint64_t address, std::uint64_t value, size_t size = 8) {
        return Lib().GCWritePort(m_system, address, &value, &size);
    }
    int Write(const char* feature, std::uint64_t value) {
        return Write(m_xml.AddressOf(feature), value);
    }
    /// An 8-byte register behind a feature; every byte must come from it.
    std::uint64_t Number(const char* feature) {
        std::uint64_t value = ~0ULL;
        EXPECT_EQ(Read(m_xml.AddressOf(feature), &value, sizeof value), GC_ERR_SUCCESS)
            << feature << ": " << Lib().TakeLastError().text;
        return value;
    }
    std::string Text(const char* feature) {
        char text[512] = {};
        EXPECT_EQ(Read(m_xml.AddressOf(feature), text, sizeof text), GC_ERR_SUCCESS) << feature;
        return std::string(text, strnlen(text, sizeof text));
    }
    /// A text answer of TLGetInfo, or of TLGetInterfaceInfo for an id.
    std::string Info(int cmd, const std::string* id = nullptr) {
        char text[512] = {};
        INFO_DATATYPE type = -1;
        size_t size = sizeof text;
        EXPECT_EQ(id != nullptr
                      ? Lib().TLGetInterfaceInfo(m_system, id->c_str(), cmd, &type, text, &size)
                      : Lib().TLGetInfo(m_system, cmd, &type, text, &size),
                  GC_ERR_SUCCESS)
            << cmd;
        return text;
    }

    TL_HANDLE m_system = nullptr;
    kesta::test::PortXml m_xml;
};

TEST_F(SystemPort, ServesItsXmlAndTheProducersIdentity) {
    char portName[64] = {};
    INFO_DATATYPE type = -1;
    size_t size = sizeof portName;
    ASSERT_EQ(Lib().GCGetPortInfo(m_system, PORT_INFO_PORTNAME, &type, portName, &size), 0);
    EXPECT_STREQ(m_xml.root.child("Port").attribute("Name").as_string(), portName);

    const std::pair<const char*, int> strings[] = {
        {"TLID", TL_INFO_ID},           {"TLVendorName", TL_INFO_VENDOR},
        {"TLModelName", TL_INFO_MODEL}, {"TLVersion", TL_INFO_VERSION},
        {"TLFileName", TL_INFO_NAME},   {"TLDisplayName", TL_INFO_DISPLAYNAME},
        {"TLPath", TL_INFO_PATHNAME}};
    for (const auto& [feature, cmd] : strings) {
        EXPECT_EQ(Text(feature), Info(cmd)) << feature;
    }
    const std::pair<const char*, std::uint64_t> numbers[] = {
        {"GenTLVersionMajor", 1},        {"GenTLVersionMinor", 5},
        {"GenTLSFNCVersionMajor", 1},    {"GenTLSFNCVersionMinor", 1},
        {"GenTLSFNCVersionSubMinor", 1}, {"GevVersionMajor", 2},
        {"GevVersionMinor", 0},          {"TLType_Reg", 0}};
    for (const auto& [feature, expected] : numbers) {
        EXPECT_EQ(Number(feature), expected) << feature;
    }
}

TEST_F(SystemPort, SelectsEachInterfaceAndReadsItsId) {
    std::uint32_t count = 0;
    ASSERT_EQ(Lib().TLGetNumInterfaces(m_system, &count), GC_ERR_SUCCESS);
    ASSERT_GE(count, 1u);
    EXPECT_EQ(Number("InterfaceSelector_Max_Reg"), count - 1);
    for (std::uint32_t i = 0; i < count; ++i) {
        ASSERT_EQ(Write("InterfaceSelector", i), GC_ERR_SUCCESS);
        EXPECT_EQ(Number("InterfaceSelector"), i);
        EXPECT_EQ(Number("InterfaceID_Available_Reg"), 1u);
        char listed[512] = {};
        size_t size = sizeof listed;
        ASSERT_EQ(Lib().TLGetInterfaceID(m_system, i, listed, &size), GC_ERR_SUCCESS);
        const std::string id = Text("InterfaceID");
        EXPECT_EQ(id, listed);
        // The id is the key of the interface's other facts.
        EXPECT_EQ(Info(INTERFACE_INFO_DISPLAYNAME, &id), "GigE Interface ( MAC:" + id + " )");
        EXPECT_EQ(Info(INTERFACE_INFO_TLTYPE, &id), "GEV");
    }
    EXPECT_EQ(Write("InterfaceSelector", count), GC_ERR_INVALID_INDEX);
    EXPECT_EQ(Number("InterfaceSelector"), count - 1);
}

TEST_F(SystemPort, RefusesAsTheRegisterMapTells) {
    struct Refusal {
        const char* what;
        bool write;
        std::uint64_t address;
        size_t size;
        std::uint64_t value;
        int code;
    };
    const auto at = [this](const char* feature) { return m_xml.AddressOf(feature); };
    const Refusal refusals[] = {
        {"no register", false, 0x0101, 8, 0, GC_ERR_INVALID_ADDRESS},
        {"inside a string", false, at("TLID") + 4, 8, 0, GC_ERR_INVALID_ADDRESS},
        {"read-only", true, at("TLID"), 8, 0, GC_ERR_ACCESS_DENIED},
        {"the XML", true, m_xml.address, 8, 0, GC_ERR_ACCESS_DENIED},
        {"a command", false, at("ActionCommandFireCommand"), 8, 0, GC_ERR_ACCESS_DENIED},
        {"string in 8 bytes", false, at("TLVendorName"), 8, 0, GC_ERR_BUFFER_TOO_SMALL},
        {"selector in 4", false, at("InterfaceSelector"), 4, 0, GC_ERR_BUFFER_TOO_SMALL},
        {"selector from 4", true, at("InterfaceSelector"), 4, 0, GC_ERR_BUFFER_TOO_SMALL},
        {"no such thread", true, at("ThreadSelection"), 8, 3, GC_ERR_INVALID_VALUE},
        {"no such priority", true, at("ThreadPriority"), 8, 4, GC_ERR_INVALID_VALUE},
        {"address of a closed interface", false, at("GevInterfaceMACAddress"), 8, 0,
         GC_ERR_NOT_AVAILABLE},
        {"no driver", false, at("DriverVersion"), 256, 0, GC_ERR_NOT_IMPLEMENTED},
        {"no driver", true, at("LwfDriverLogLevel"), 8, 400, GC_ERR_NOT_IMPLEMENTED},
    };
    for (const Refusal& r : refusals) {
        std::vector<char> data(512, '\0');
        std::memcpy(data.data(), &r.value, sizeof r.value);
        size_t size = r.size;
        const int rc = r.write ? Lib().GCWritePort(m_system, r.address, data.data(), &size)
                               : Lib().GCReadPort(m_system, r.address, data.data(), &size);
        EXPECT_EQ(rc, r.code) << r.what << " at 0x" << std::hex << r.address;
        Lib().TakeLastError();
    }
    // What the refused writes would have changed is as it was.
    EXPECT_EQ(Number("InterfaceSelector"), 0u);
    EXPECT_EQ(Number("ThreadSelection"), 0u);
}

// --- Broadcast action commands ---------------------------------------------

class BroadcastAction : public SystemPort {
protected:
    static constexpr std::uint32_t kDeviceKey = 0x11223344;
    static constexpr std::uint32_t kGroupKey = 0x55667788;

    void SetUp() override {
        SystemPort::SetUp();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        m_bed = gevtest::TestBed::fromEnvironment();
        ASSERT_EQ(m_bed.cameraIps.size(), 2u) << "the test bed has two cameras on one link";
        // Camera 0 acts on these keys; camera 1 has none.
        gevtest::GvcpClient controller(m_bed.cameraIps[0], m_bed.hostIp);
        ASSERT_EQ(controller.claim(2), 0);
        ASSERT_EQ(controller.writeReg(gevtest::addr::kActionDeviceKey, kDeviceKey), 0);
        ASSERT_EQ(controller.writeReg(gevtest::addr::kGroupKey, kGroupKey), 0);
        ASSERT_EQ(controller.writeReg(gevtest::addr::kGroupMask, 0x0F), 0);
        ASSERT_EQ(controller.release(), 0);
    }

    /// What a camera recorded of action commands: received, acted on, device
    /// key, group key, mask, time (two words), length, sender; read once it
    /// has received at least `received` (or after two seconds).
    std::vector<std::uint32_t> Record(std::size_t camera, std::uint32_t received = 0) {
        namespace addr = gevtest::addr;
        gevtest::GvcpClient c(m_bed.cameraIps.at(camera), m_bed.hostIp);
        for (int i = 0; i < 100 && c.reg(addr::kActionsReceived) < received; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        std::vector<std::uint32_t> record;
        for (std::uint32_t a :
             {addr::kActionsReceived, addr::kActionCount, addr::kLastActionDeviceKey,
              addr::kLastActionGroupKey, addr::kLastActionGroupMask, addr::kLastActionTime,
              addr::kLastActionTime + 4, addr::kLastActionLength, addr::kLastActionSource}) {
            record.push_back(c.reg(a));
        }
        return record;
    }

    /// The five values through their features, then the fire command.
    int Fire(std::uint32_t groupMask, std::uint64_t time) {
        const std::pair<const char*, std::uint64_t> values[] = {
            {"ActionCommandDeviceKey", kDeviceKey},
            {"ActionCommandGroupKey", kGroupKey},
            {"ActionCommandGroupMask", groupMask},
            {"ActionCommandTargetIP", 0xFFFFFFFF},
            {"ActionCommandExecuteTime", time}};
        for (const auto& [feature, value] : values) {
            if (int rc = Write(feature, value)) {
                return rc;
            }
        }
        return Write("ActionCommandFireCommand", 1);
    }

    gevtest::TestBed m_bed;
};

TEST_F(BroadcastAction, EveryCameraOfAnAdapterThatIsUpGetsOneInEitherForm) {
    // 20 bytes acting at once; 28 with a time years ahead, which camera 0
    // holds.
    for (const std::uint64_t time : {0ULL, 0x0102030405060708ULL}) {
        const std::uint32_t length = time == 0 ? 20 : 28;
        const std::vector<std::uint32_t> before[] = {Record(0), Record(1)};
        ASSERT_EQ(Fire(0x03, time), GC_ERR_SUCCESS) << Lib().TakeLastError().text;
        for (std::size_t camera : {0, 1}) {
            const std::uint32_t acted = before[camera][1] + (camera == 0 && time == 0 ? 1 : 0);
            EXPECT_EQ(Record(camera, before[camera][0] + 1),
                      (std::vector<std::uint32_t>{
                          before[camera][0] + 1, acted, kDeviceKey, kGroupKey, 0x03,
                          static_cast<std::uint32_t>(time >> 32), static_cast<std::uint32_t>(time),
                          length, m_bed.hostIp}))
                << "camera " << camera << ", " << length << " bytes";
        }
    }
}

TEST_F(BroadcastAction, NoneLeavesAnAdapterThatIsDown) {
    const std::uint32_t before[] = {Record(0)[0], Record(1)[0]};
    // Only in this namespace, which the fixture made sure of.
    const std::string link = "ip link set " + Env("KESTA_NETNS_HOST_IF");
    ASSERT_EQ(std::system((link + " down").c_str()), 0);
    const int rc = Fire(0x01, 0);
    EXPECT_EQ(std::system((link + " up").c_str()), 0);
    // Taking the link down dropped the test bed's multicast route.
    std::system(("ip route replace 224.0.0.0/4 dev " + Env("KESTA_NETNS_HOST_IF")).c_str());
    EXPECT_EQ(rc, GC_ERR_SUCCESS) << "nothing to send through is no failure";
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(Record(0)[0], before[0]);
    EXPECT_EQ(Record(1)[0], before[1]);
}

} // namespace
