#include "tui/widget/layout.h"

#include <gtest/gtest.h>

namespace {

TEST(Layout, PlacesEachKind)
{
    const struct {
        int kind;
        int height, width;
        Rectangle place;
    } rows[] = {
        {LAYOUT_POPUP, 24, 80, {20, 6, 60, 18}},     {LAYOUT_TERMINAL, 24, 80, {0, 0, 80, 23}},
        {LAYOUT_STATUS, 24, 80, {0, 23, 80, 24}},    {LAYOUT_TALL_POPUP, 24, 80, {0, 3, 80, 21}},
        {LAYOUT_POPUP, 25, 81, {20, 6, 60, 18}},     {LAYOUT_TALL_POPUP, 25, 81, {0, 3, 81, 21}},
        {LAYOUT_POPUP, 1, 1, {0, 0, 0, 0}},          {LAYOUT_TERMINAL, 1, 1, {0, 0, 1, 0}},
        {LAYOUT_TERMINAL, 0, 0, {0, 0, 0, -1}},      {LAYOUT_STATUS, 0, 0, {0, -1, 0, 0}},
        {LAYOUT_TALL_POPUP, 7, 200, {0, 0, 200, 0}},
    };
    for (const auto &row : rows) {
        Rectangle place{};
        EXPECT_TRUE(layout_rectangle(LayoutKind{row.kind}, row.height, row.width, place));
        EXPECT_EQ(row.place, place) << row.kind << " on " << row.width << "x" << row.height;
    }
    Rectangle kept = {1, 2, 3, 4};
    EXPECT_FALSE(layout_rectangle(LayoutKind{4}, 24, 80, kept));
    EXPECT_EQ((Rectangle{1, 2, 3, 4}), kept);
}

TEST(Layout, PlacesPopups)
{
    EXPECT_EQ((Rectangle{20, 6, 60, 18}), popup_rectangle(PopupPlace::HELP, 27, 83));
    EXPECT_EQ((Rectangle{20, 6, 60, 12}), popup_rectangle(PopupPlace::NOTICE, 27, 83));
    EXPECT_EQ((Rectangle{20, 6, 70, 18}), popup_rectangle(PopupPlace::SESSIONS, 27, 83));
}

TEST(Layout, OverlapIsStrict)
{
    const Rectangle place = {2, 2, 5, 4};
    EXPECT_TRUE(overlaps(place, {4, 3, 9, 9}));
    EXPECT_FALSE(overlaps(place, {5, 2, 9, 4}));
    EXPECT_FALSE(overlaps(place, {0, 0, 2, 9}));
    EXPECT_FALSE(overlaps(place, {2, 4, 5, 5}));
    EXPECT_EQ((Rectangle{4, 3, 5, 4}), intersection(place, {4, 3, 9, 9}));
}

} // namespace
