// The device module's StreamSelector kept in persist.json of the working
// directory: read from files that a person or a crash left in every shape,
// and written back as JSON. Each test works in a directory made for it.
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "CameraTestBed.h"
#include "ModulePort.h"

namespace {

constexpr uint64_t kStreamSelector = 0x1800;
const char* const kFile = "persist.json";

std::string Slurp(const char* path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string WithSerial(std::string text, const std::string& serial) {
    for (size_t at; (at = text.find("SERIAL")) != std::string::npos;) {
        text.replace(at, 6, serial);
    }
    return text;
}

/// The camera opened with control; the test body sees the library as a
/// consumer that just started.
class Persisted : public kesta_device::CameraTest {
protected:
    void OpenDevice() {
        ASSERT_EQ(Lib().IFOpenDevice(m_iface, m_serial.c_str(), DEVICE_ACCESS_CONTROL, &m_device),
                  GC_ERR_SUCCESS)
            << Lib().TakeLastError().text;
    }
    /// Closes all and GCCloseLib, which writes the file.
    void CloseLibrary() {
        CameraTest::TearDown();
        m_device = nullptr;
        m_iface = nullptr;
        m_system = nullptr;
    }
};

/// A persist.json as found at GCInitLib, and what the camera's selector
/// then reads; after a write of 1 and GCCloseLib the file is JSON again,
/// with the value, and still holds keep.
struct FoundFile {
    const char* name;
    const char* text; ///< null: no file; SERIAL stands for the camera's
    uint64_t selector;
    const char* keep;
};

class PersistedFile : public Persisted, public ::testing::WithParamInterface<FoundFile> {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_dir.Ok());
        if (GetParam().text != nullptr) {
            std::ofstream(kFile) << WithSerial(GetParam().text,
                                               kesta_device::EnvList("KESTA_CAMERA_SERIALS").at(0));
        }
        Persisted::SetUp();
    }

    kesta_device::TemporaryWorkingDirectory m_dir;
};

TEST_P(PersistedFile, IsReadOrSurvived) {
    ASSERT_NO_FATAL_FAILURE(OpenDevice());
    EXPECT_EQ(kesta_device::ReadNumber(Lib(), m_device, kStreamSelector), GetParam().selector);
    ASSERT_EQ(kesta_device::WriteNumber(Lib(), m_device, kStreamSelector, 1), GC_ERR_SUCCESS);
    CloseLibrary();

    const std::string text = Slurp(kFile);
    EXPECT_EQ(text.find('\n'), std::string::npos) << text;
    const auto json = nlohmann::json::parse(text, nullptr, false);
    ASSERT_TRUE(json.is_object()) << text;
    EXPECT_EQ(json.at(m_serial).at("StreamSelector"), 1) << text;
    EXPECT_NE(text.find(GetParam().keep), std::string::npos) << text;
}

const FoundFile kFiles[] = {
    {"Missing", nullptr, 0, ""},
    {"Empty", "", 0, ""},
    {"NotJson", "StreamSelector=1", 0, ""},
    {"CutShort", "{\"SERIAL\":{\"StreamSelector\":1", 0, ""},
    {"NotAnObject", "[{\"SERIAL\":{\"StreamSelector\":1}}]", 0, ""},
    {"CameraNotAnObject", "{\"SERIAL\":1,\"other\":{\"StreamSelector\":1}}", 0, "\"other\""},
    {"SelectorAString", "{\"SERIAL\":{\"StreamSelector\":\"1\",\"Gain\":3}}", 0, "\"Gain\":3"},
    {"SelectorHuge", "{\"SERIAL\":{\"StreamSelector\":1e300}}", 0, ""},
    {"HandEdited", "{\n  \"SERIAL\": {\n    \"StreamSelector\": 1.0\n  }\n}\n", 1, ""},
};
INSTANTIATE_TEST_SUITE_P(Kinds, PersistedFile, ::testing::ValuesIn(kFiles),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
