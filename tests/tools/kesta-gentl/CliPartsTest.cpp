// The command-line consumer's parsing: what a user types and what a camera
// writes in its URL register.
#include <cstring>
#include <sstream>

#include <gtest/gtest.h>

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

} // namespace
