#include "api/localization.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace GenTL {
namespace {

TEST(Localization, FillsEveryOccurrenceOfEachIndex) {
    EXPECT_EQ("DeviceGev::Open exception creating stream = bad_alloc",
              loc::al("DeviceGev::Open exception creating stream = {0}", "bad_alloc"));
    EXPECT_EQ("b a b", loc::al("{1} {0} {1}", "a", "b"));
    EXPECT_EQ("x-y", loc::al("{0}-{1}", {"x", "y"}));
    const std::string owned = "s";
    EXPECT_EQ("s", loc::al("{0}", owned.c_str()));
}

TEST(Localization, LeavesUnmatchedTextAlone) {
    EXPECT_EQ("no {0} here", loc::al("no {0} here"));
    EXPECT_EQ("a {1} {x}", loc::al("{0} {1} {x}", "a"));
    EXPECT_EQ("plain", loc::al("plain", "unused"));
    EXPECT_EQ("", loc::al(""));
}

TEST(Localization, SearchRestartsAtTheBeginningAfterEachReplacement) {
    // "{" put before "0}" forms a new "{0}", which is filled in turn.
    EXPECT_EQ("x{", loc::al("x{0}0}", "{"));
    // An earlier argument may bring a later placeholder with it.
    EXPECT_EQ("b", loc::al("{0}", "{1}", "b"));
}

TEST(Localization, ArgumentHoldingItsOwnPlaceholderEnds) {
    EXPECT_EQ("[{0}] [{0}]", loc::al("[{0}] [{0}]", "{0}"));
    EXPECT_EQ("a{0}b", loc::al("{0}", "a{0}b"));
}

TEST(Localization, NullTextsThrowLikeTheStringLibrary) {
    EXPECT_THROW(loc::al(nullptr), std::logic_error);
    EXPECT_THROW(loc::al("{0}", {static_cast<const char*>(nullptr)}), std::logic_error);
}

} // namespace
} // namespace GenTL
