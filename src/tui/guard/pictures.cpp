#include "tui/guard/pictures.h"

#include "tui/guard/rows.h"

namespace {

constexpr std::string_view ERASE_BELOW = "\x1b[J";
constexpr std::string_view ERASE_SCREEN = "\x1b[2J";
constexpr std::string_view ERASE_SAVED = "\x1b[3J"; // libvterm does not

struct Picture {
    const char *end; // where the next one begins; null when more than the screen may be changed
    bool fills;      // nothing is left of what was there before
};

// Reads the picture that rows.at begins, behind GUARD_HOME.
Picture read_picture(GuardRows &rows, int height)
{
    Picture picture = {};
    bool filled = true; // the rows so far are
    for (int row = 0; row < height;) {
        if (guard_pass_row(rows, nullptr)) {
            filled = filled && rows.filled == rows.cols;
            rows.filled = 0;
            row++;
            continue;
        }
        if (guard_begins_with(GUARD_HOME, rows.at, rows.end)) {
            picture.end = rows.steady ? rows.at : nullptr;
            break;
        }
        const bool below = guard_begins_with(ERASE_BELOW, rows.at, rows.end);
        const bool screen = guard_begins_with(ERASE_SCREEN, rows.at, rows.end);
        const bool saved = guard_begins_with(ERASE_SAVED, rows.at, rows.end);
        if (rows.column == rows.cols || (!below && !screen && !saved)) {
            break;
        }
        picture.fills = picture.fills || screen || (below && filled && rows.filled >= rows.column);
        rows.at += below ? ERASE_BELOW.size() : ERASE_SCREEN.size();
    }
    return picture;
}

} // namespace

void guard_skip_pictures(GuardWalk &walk)
{
    if (walk.at < walk.pictures_judged || !guard_knows_rows(walk.guard)) {
        return;
    }
    int height = 0;
    vterm_get_size(walk.vt, &height, nullptr);
    GuardRows rows = guard_rows_at(walk.vt, walk.at, walk.end);
    GuardRows skipped = rows;
    for (const char *begin = walk.at; begin != nullptr;) {
        const GuardRows before = rows;
        rows.at = begin + GUARD_HOME.size();
        rows.column = 0;
        rows.filled = 0;
        const Picture picture = read_picture(rows, height);
        if (picture.fills) {
            skipped = before;
        }
        walk.pictures_judged = rows.at;
        begin = picture.end;
    }
    if (skipped.at == walk.at) {
        return;
    }
    guard_send(walk);
    if (!guard_pen_is_reset(walk.vt)) {
        return;
    }
    guard_send_selections(skipped);
    walk.at = walk.unsent = skipped.at;
    walk.glyph = skipped.last != nullptr ? skipped.last : walk.glyph;
    walk.guard.marks = 0;
    walk.guard.joins = false;
}
