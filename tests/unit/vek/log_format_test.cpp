#include <gtest/gtest.h>

#include "vek/log.h"

namespace {

using vek_log::Format;

// Behaviours of: Log files

// Behaviour: Places of a format are filled in order, values never read as formats
TEST(LogFormat, PutsValuesInTheirPlaces) {
    EXPECT_EQ(Format("%s:%d text", {std::string("file"), 17}), "file:17 text");
    EXPECT_EQ(Format("%d%s", {-1, "x"}), "-1x");
}

// Behaviour: Places of a format are filled in order, values ...
TEST(LogFormat, DoesNotLookAtWhatItPutIn) { EXPECT_EQ(Format("%s, %s", {"%s", "100%"}), "%s, 100%"); }

// Behaviour: Places without values, values without places and stray percent signs are harmless
TEST(LogFormat, LeavesAPlaceWithoutAValue) {
    EXPECT_EQ(Format("%s", {}), "%s");
    EXPECT_EQ(Format("%s and %d", {"one"}), "one and %d");
}

// Behaviour: Places without values, values without places ...
TEST(LogFormat, DropsValuesWithoutAPlace) { EXPECT_EQ(Format("text", {"value"}), "text"); }

// Behaviour: Places without values, values without places ...
TEST(LogFormat, TakesTwoPercentSignsForOne) {
    EXPECT_EQ(Format("100%%", {}), "100%");
    EXPECT_EQ(Format("%%s", {"value"}), "%s");
}

// Behaviour: Places without values, values without places ...
TEST(LogFormat, LeavesOtherPercentSigns) {
    EXPECT_EQ(Format("100% of it", {}), "100% of it");
    EXPECT_EQ(Format("%x %", {"value"}), "%x %");
}

// Behaviour: A line has date and time, process id, level ...
// Operators set levels as numbers.
TEST(LogLevels, AreTheNumbersOfTheLog) {
    EXPECT_EQ(vek_log::kUse, 3);
    EXPECT_EQ(vek_log::kFailure, 4);
    EXPECT_EQ(vek_log::kFunction, 8);
    EXPECT_EQ(vek_log::kTrace, 9);
}

// Behaviour: Texts are written as they are, line feeds ...
TEST(LogFormat, KeepsLineFeedsAndNulBytes) {
    const std::string text("a\nb\0c", 5);
    EXPECT_EQ(Format("%s", {text}), text);
}

}  // namespace
