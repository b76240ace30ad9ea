#include "api/localization.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace GenTL {
namespace {

TEST(Localization, FillsEveryOccurrenceAndLeavesUnmatchedTextAlone) {
    EXPECT_EQ("b a b", loc::al("{1} {0} {1}", "a", "b"));
    EXPECT_EQ("x-y", loc::al("{0}-{1}", {"x", "y"}));
    EXPECT_EQ("a {1} {x}", loc::al("{0} {1} {x}", "a"));
    EXPECT_EQ("plain", loc::al("plain", "unused"));
}

TEST(Localization, SearchRestartsAfterEachReplacementButAnArgumentsOwnPlaceholderEnds) {
    // "{" put before "0}" forms a new "{0}", which is filled in turn.
    EXPECT_EQ("x{", loc::al("x{0}0}", "{"));
    // An earlier argument may bring a later placeholder with it.
    EXPECT_EQ("b", loc::al("{0}", "{1}", "b"));
    EXPECT_EQ("a{0}b", loc::al("{0}", "a{0}b"));
    EXPECT_THROW(loc::al(nullptr), std::logic_error);
}

} // namespace
} // namespace GenTL
