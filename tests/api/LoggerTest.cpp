// GLogger / HLogger: configuration, records and filtering, through a fake
// log library (the real one's datagrams are tested with it, in kestalog).
#include "api/GLogger.h"
#include "api/HLogger.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace GenTL {
namespace {

using nlohmann::json;

/// A log library instance that keeps what it is told.
class FakeLog final : public IKestaLog {
public:
    void SetOutPort(uint16_t port) override { outPorts.push_back(port); }
    void RemoveOutPort(uint16_t port) override { removedPorts.push_back(port); }
    void AddInPort(uint16_t port) override { inPorts.push_back(port); }
    void SendMessage(const char* text) override {
        std::lock_guard<std::mutex> lock(mutex);
        if (filter == nullptr || filter->OnFilterOut(text)) {
            kept.push_back(json::parse(text));
        } else {
            dropped.push_back(json::parse(text));
        }
    }
    void SetFilter(IFilterOutFn* f) override { filter = f; }

    std::mutex mutex;
    std::vector<uint16_t> outPorts, removedPorts, inPorts;
    IFilterOutFn* filter = nullptr;
    std::vector<json> kept, dropped;
};

/// Installs FakeLog as the log library and tracks its instances.
class FakeLogLibrary {
public:
    FakeLogLibrary() : m_former(detail::SetLogLibrary({&Init, &Deinit})) {
        s_instances.clear();
        s_live = 0;
    }
    ~FakeLogLibrary() {
        detail::SetLogLibrary(m_former);
        s_instances.clear();
    }
    /// Instance i in the order Init made them; readable after Deinit.
    FakeLog& At(int i) { return *s_instances.at(static_cast<size_t>(i)); }
    int Made() const { return static_cast<int>(s_instances.size()); }
    int Live() const { return s_live; }

private:
    static IKestaLog* Init() {
        s_instances.push_back(std::make_shared<FakeLog>());
        ++s_live;
        return s_instances.back().get();
    }
    static void Deinit(IKestaLog*) { --s_live; }

    detail::LogLibrary m_former;
    static std::vector<std::shared_ptr<FakeLog>> s_instances;
    static int s_live;
};
std::vector<std::shared_ptr<FakeLog>> FakeLogLibrary::s_instances;
int FakeLogLibrary::s_live = 0;

/// Runs a test in a fresh temporary working directory, and returns to the
/// former one afterwards (other tests of this program use it).
class TempWorkDir {
public:
    TempWorkDir() {
        char cwd[PATH_MAX];
        EXPECT_NE(nullptr, ::getcwd(cwd, sizeof(cwd)));
        m_former = cwd;
        char templ[] = "/tmp/kesta-logtest-XXXXXX";
        EXPECT_NE(nullptr, ::mkdtemp(templ));
        m_dir = templ;
        EXPECT_EQ(0, ::chdir(m_dir.c_str()));
    }
    ~TempWorkDir() {
        EXPECT_EQ(0, ::chdir(m_former.c_str()));
        std::remove((m_dir + "/kesta_log.conf").c_str());
        ::rmdir(m_dir.c_str());
    }
    void WriteConfig(const std::string& text) const {
        std::ofstream(m_dir + "/kesta_log.conf") << text;
    }

private:
    std::string m_former, m_dir;
};

const char* const kGoodConfig = R"({
  "ports": {"hal_out": 5100, "gentl_out": 5200, "tarva_in": 5300, "qv_in": 5400},
  "levels": {"hal": 400, "gentl": 500}
})";

class LoggerTest : public ::testing::Test {
protected:
    FakeLogLibrary lib;
    TempWorkDir dir;
};

using OneArgLog = void (*)(const char*);

/// The record's timestamp as a number; fails the test unless it is a string of digits.
long long TimestampOf(const json& record) {
    const auto& ts = record.at("timestamp");
    EXPECT_TRUE(ts.is_string());
    const std::string s = ts.get<std::string>();
    EXPECT_FALSE(s.empty());
    EXPECT_EQ(std::string::npos, s.find_first_not_of("0123456789")) << s;
    return std::stoll(s);
}

TEST_F(LoggerTest, RecordCarriesItsKeysInAllThreeForms) {
    dir.WriteConfig(kGoodConfig);
    HLogger h;
    GLogger g;
    const long long before = std::stoll(detail::TimestampNow());
    HLogger::Warn("cam7", "link down");
    HLogger::Error("GenTL::CommSocket Setting SO_RCVTIMEO", -22);
    GLogger::Info("opened");
    HLogger::Info("bad \xff byte"); // not UTF-8, sent all the same
    const long long after = std::stoll(detail::TimestampNow());

    const auto& hal = lib.At(0).kept;
    ASSERT_EQ(3u, hal.size());
    EXPECT_EQ(300, hal[0].at("level"));
    EXPECT_EQ("link down", hal[0].at("message"));
    EXPECT_EQ("HAL", hal[0].at("module"));
    EXPECT_EQ("cam7", hal[0].at("userid"));
    EXPECT_EQ(5u, hal[0].size());
    const long long ts = TimestampOf(hal[0]);
    EXPECT_LE(before, ts);
    EXPECT_GE(after, ts);

    EXPECT_EQ("GenTL::CommSocket Setting SO_RCVTIMEO: -22", hal[1].at("message"));
    EXPECT_EQ("", hal[1].at("userid"));

    const auto& gentl = lib.At(1).kept;
    ASSERT_EQ(1u, gentl.size());
    EXPECT_EQ("GenTL", gentl[0].at("module"));
}

TEST_F(LoggerTest, LevelFilterKeepsUpToTheConfiguredLevel) {
    // 299.9 is truncated to 299: Warn (300) is cut.
    dir.WriteConfig(R"({"ports": {"hal_out": 1, "gentl_out": 2, "tarva_in": 3, "qv_in": 4},
                        "levels": {"hal": 299.9, "gentl": 400}})");
    HLogger h;
    GLogger g;
    EXPECT_EQ(299, h.Level());
    for (OneArgLog log :
         std::initializer_list<OneArgLog>{&HLogger::Fatal, &HLogger::Error, &HLogger::Warn,
                                          &HLogger::Info, &HLogger::Debug, &HLogger::Verbose}) {
        log("m");
    }
    GLogger::Info("m");
    GLogger::Debug("m");
    auto levels = [](const std::vector<json>& records) {
        std::vector<int> out;
        for (const auto& r : records) {
            out.push_back(r.at("level").get<int>());
        }
        return out;
    };
    EXPECT_EQ((std::vector<int>{100, 200}), levels(lib.At(0).kept));
    EXPECT_EQ((std::vector<int>{300, 400, 500, 600}), levels(lib.At(0).dropped));
    EXPECT_EQ((std::vector<int>{400}), levels(lib.At(1).kept)); // GenTL's own level
    EXPECT_EQ((std::vector<int>{500}), levels(lib.At(1).dropped));

    // A level past any int is refused, not converted.
    EXPECT_THROW(h.OnFilterOut(R"({"level": 1e300})"), std::logic_error);
}

TEST_F(LoggerTest, AnyConfigurationFaultLeavesTheLayerOffWithoutThrowing) {
    // No file, no JSON, a key of the wrong type.
    for (const char* text :
         {static_cast<const char*>(nullptr), R"({"ports": {"hal_out": 1,)",
          R"({"ports": {"hal_out": 1, "tarva_in": 3, "qv_in": 4}, "levels": {"hal": true}})"}) {
        if (text != nullptr) {
            dir.WriteConfig(text);
        }
        std::unique_ptr<HLogger> h;
        ASSERT_NO_THROW(h = std::make_unique<HLogger>()) << text;
        EXPECT_FALSE(HLogger::IsOn());
        EXPECT_EQ(0, lib.Live());
        EXPECT_NO_THROW(HLogger::Fatal("dropped"));
        EXPECT_FALSE(HLogger::SendLog(json{{"level", 100}}));
    }
}

} // namespace
} // namespace GenTL
