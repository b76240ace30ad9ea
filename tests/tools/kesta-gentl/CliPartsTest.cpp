// The command-line consumer's parsing: what a user types, what a camera
// writes in its URL register, and the event packets it sends.
#include <cstring>
#include <sstream>

#include <gtest/gtest.h>

#include "EventPacket.h"
#include "InfoValue.h"
#include "LocalUrl.h"
#include "Options.h"

namespace {

using namespace kesta::gentl;

TEST(LocalUrl, CameraFormsAreParsed) {
    // The simulated camera's own form is read by tests/netns (kesta-gentl-first-run).
    LocalFile file;
    ASSERT_TRUE(
        ParseLocalUrl("local:Vendor_Model_1_2.ZIP;8000F000;1e0a?SchemaVersion=1.1.0", file));
    EXPECT_EQ(file.name, "Vendor_Model_1_2.ZIP");
    EXPECT_EQ(file.address, 0x8000F000u);
    EXPECT_EQ(file.length, 0x1E0Au);
    EXPECT_TRUE(file.Zipped());
}

TEST(LocalUrl, OtherSchemesAndBrokenFormsAreRefused) {
    LocalFile file;
    file.name = "kept";
    for (const char* url :
         {"file:///opt/camera.xml", "http://camera/desc.zip", "local:camera.xml;100000",
          "local:;100000;10", "local:camera.xml;10000G;10", "local:camera.xml;100000;0",
          "local:camera.xml;;10", "Local", ""}) {
        EXPECT_FALSE(ParseLocalUrl(url, file)) << url;
    }
    EXPECT_EQ(file.name, "kept"); // a refused URL leaves the record alone
}

TEST(Options, MistakesAreNamed) {
    std::ostringstream err;
    Options unknown;
    EXPECT_FALSE(unknown.Parse({"--colour", "red"}, {"--device"}, err));
    EXPECT_NE(err.str().find("unknown option --colour"), std::string::npos);
    Options missing;
    EXPECT_FALSE(missing.Parse({"--device"}, {"--device"}, err));
    EXPECT_NE(err.str().find("--device needs a value"), std::string::npos);
    Options zero;
    EXPECT_FALSE(zero.Parse({"--timeout", "0"}, {"--timeout"}, err));
    Options text;
    EXPECT_FALSE(text.Parse({"--timeout", "soon"}, {"--timeout"}, err));
}

TEST(Options, NumbersInDecimalAndHexadecimal) {
    std::uint64_t v = 7;
    EXPECT_TRUE(ParseNumber("0x0A00", v));
    EXPECT_EQ(v, 0xA00u);
    EXPECT_TRUE(ParseNumber("2560", v));
    EXPECT_EQ(v, 2560u);
    for (const char* bad : {"", "-1", "+1", "0x", "12ab", "0x1g", "99999999999999999999999"}) {
        EXPECT_FALSE(ParseNumber(bad, v)) << bad;
    }
}

// Addresses and access texts are shown by kesta-gentl-first-run in tests/netns.
TEST(InfoValue, AnswersAsText) {
    EXPECT_EQ(FormatAccessStatus(42), "42");
    InfoValue text{INFO_DATATYPE_STRING, {'G', 'E', 'V', 0, 0}};
    EXPECT_EQ(text.Text(), "GEV");
    InfoValue shortNumber{INFO_DATATYPE_INT64, {1, 2}}; // too short: read as nothing
    EXPECT_EQ(shortNumber.Number(), 0);
}

/// A message channel packet: header, then events of 16 bytes (or 24 with
/// 64-bit block ids) with ids 0x9001.., block id 0x0102 and timestamp 0x0A0B.
std::vector<std::uint8_t> Packet(std::uint16_t command, std::uint8_t flags, int events,
                                 std::size_t data, int lengthDelta = 0) {
    const std::size_t item = flags & 0x10 ? 24 : 16;
    std::vector<std::uint8_t> p(8 + item * events + data, 0);
    const std::size_t length = p.size() - 8 + lengthDelta;
    p[0] = 0x42, p[1] = flags, p[2] = command >> 8, p[3] = command & 0xFF;
    p[4] = length >> 8, p[5] = length & 0xFF;
    for (int e = 0; e < events; ++e) {
        std::uint8_t* at = p.data() + 8 + item * e;
        at[2] = 0x90, at[3] = e + 1, at[item - 10] = 0x01, at[item - 9] = 0x02;
        at[item - 2] = 0x0A, at[item - 1] = 0x0B;
    }
    return p;
}

TEST(EventPacket, EventsAreReadOnlyFromWhatArrived) {
    const struct {
        const char* what;
        std::vector<std::uint8_t> bytes;
        std::size_t events, dataLength; ///< data of the last event
        bool problem;
    } rows[] = {
        {"two events", Packet(0x00C0, 0, 2, 0), 2, 0, false},
        {"an event with data", Packet(0x00C2, 0, 1, 40), 1, 40, false},
        {"64-bit block ids", Packet(0x00C0, 0x10, 1, 0), 1, 0, false},
        {"length beyond what arrived", Packet(0x00C2, 0, 1, 8, 100), 1, 8, true},
        {"length short of what arrived", Packet(0x00C0, 0, 2, 0, -16), 1, 0, true},
        {"another command", Packet(0x0081, 0, 1, 0), 0, 0, true},
        {"a cut header", {0x42, 0x00, 0x00, 0xC0}, 0, 0, true},
    };
    for (const auto& row : rows) {
        const EventPacket p = ParseEventPacket(row.bytes.data(), row.bytes.size());
        ASSERT_EQ(p.events.size(), row.events) << row.what;
        EXPECT_EQ(!p.problem.empty(), row.problem) << row.what;
        if (row.events > 0) {
            EXPECT_EQ(DescribeEvent(p.events.back()), "event 0x900" + std::to_string(row.events) +
                                                          "  block 258  timestamp 2571  data " +
                                                          std::to_string(row.dataLength) + " bytes")
                << row.what;
        }
    }
}

} // namespace
