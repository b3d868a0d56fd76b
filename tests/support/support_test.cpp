// What the end-to-end tests rely on and cannot show by passing.
#include "support/screen.h"

#include <gtest/gtest.h>

using namespace support;

TEST(ScreenTest, ComparisonSeesEveryKindOfDifference)
{
    const struct {
        const char *bytes;
        const char *difference;
    } rows[] = {
        {"ab\x1b[1mc\x1b[m", ""},
        {"ax\x1b[1mc\x1b[m", "row 0 column 1: 'x'"},
        {"abc", "row 0 column 2"},
        {"ab\x1b[1;3mc\x1b[m", "'c' bold italic"},
        {"ab\x1b[1;5mc\x1b[m", "'c' bold blink"},
        {"ab\x1b[1;32mc\x1b[m", "2 on -1"},
        {"ab\x1b[1mc\x1b[m\x1b[A\x1b[D", "cursor row 0 column 2"},
        {"ab\x1b[1mc\x1b[m\x1b[?25l", "cursor hidden"},
    };
    Screen expected(2, 10);
    expected.feed(rows[0].bytes);
    for (const auto &row : rows) {
        Screen actual(2, 10);
        actual.feed(row.bytes);
        const std::string difference = compare(expected.picture(), actual.picture());
        EXPECT_EQ(*row.difference == 0, difference.empty()) << difference;
        EXPECT_NE(std::string::npos, difference.find(row.difference)) << difference;
    }
    EXPECT_NE("", compare(expected.picture(), Screen(2, 11).picture()));
}
