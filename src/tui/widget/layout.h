// Geometry of widgets: pure functions of rectangles.
#pragma once

#include <stdint.h>

// What is drawn of a terminal that claims more: its top left corner.
constexpr int SCREEN_MAX_ROWS = 512;
constexpr int SCREEN_MAX_COLS = 1024;

// Half-open: columns x0 to x1 - 1, rows y0 to y1 - 1; empty when x1 <= x0 or y1 <= y0.
struct Rectangle {
    int32_t x0, y0, x1, y1;

    bool operator==(const Rectangle &) const = default;
};

constexpr bool overlaps(const Rectangle &a, const Rectangle &b)
{
    return a.x0 < b.x1 && a.x1 > b.x0 && a.y0 < b.y1 && a.y1 > b.y0;
}

constexpr bool contains(const Rectangle &outer, const Rectangle &inner)
{
    return outer.x0 <= inner.x0 && outer.x1 >= inner.x1 && outer.y0 <= inner.y0 &&
           outer.y1 >= inner.y1;
}

constexpr Rectangle intersection(const Rectangle &a, const Rectangle &b)
{
    return {a.x0 > b.x0 ? a.x0 : b.x0, a.y0 > b.y0 ? a.y0 : b.y0, a.x1 < b.x1 ? a.x1 : b.x1,
            a.y1 < b.y1 ? a.y1 : b.y1};
}

// How a widget is placed when the screen changes its size; any other value leaves it where it is.
enum LayoutKind : int32_t {
    LAYOUT_POPUP = 0,
    LAYOUT_TERMINAL = 1,
    LAYOUT_STATUS = 2,
    LAYOUT_TALL_POPUP = 3,
};

// Stores the place of a kind on a screen of the given size and returns true; false for a kind that
// is never placed. Divisions come before products.
constexpr bool layout_rectangle(LayoutKind kind, int32_t height, int32_t width, Rectangle &place)
{
    switch (kind) {
    case LAYOUT_POPUP:
        place = {width / 4, height / 4, 3 * (width / 4), 3 * (height / 4)};
        return true;
    case LAYOUT_TERMINAL:
        place = {0, 0, width, height - 1};
        return true;
    case LAYOUT_STATUS:
        place = {0, height - 1, width, height};
        return true;
    case LAYOUT_TALL_POPUP:
        place = {0, height / 8, width, 7 * (height / 8)};
        return true;
    }
    return false;
}

// Where popups open. The next change of the screen's size places them as their kind says.
enum class PopupPlace {
    HELP,
    NOTICE, // a short text
    SESSIONS,
};

constexpr Rectangle popup_rectangle(PopupPlace place, int32_t height, int32_t width)
{
    const int32_t x0 = width / 4;
    const int32_t y0 = height / 4;
    switch (place) {
    case PopupPlace::NOTICE:
        return {x0, y0, 3 * (width / 4), 2 * (height / 4)};
    case PopupPlace::SESSIONS:
        return {x0, y0, 7 * (width / 8), 3 * (height / 4)};
    case PopupPlace::HELP:
        break;
    }
    return {x0, y0, 3 * (width / 4), 3 * (height / 4)};
}
