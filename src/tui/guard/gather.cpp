#include "tui/guard/gather.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "tui/guard/rows.h"

namespace {

GuardLine line;

void send_sequences(VTerm *vt, int first, char final, int second, char second_final)
{
    char both[64];
    const int length =
        snprintf(both, sizeof both, "\x1b[%d%c\x1b[%d%c", first, final, second, second_final);
    guard_send_bytes(vt, {both, static_cast<size_t>(length)});
}

void send_until(GuardWalk &walk, const char *end)
{
    walk.at = end;
    guard_send(walk);
}

// libvterm tells a cell's width by what is in the next one.
void set_widths(GuardLine &of, int cols)
{
    for (int col = 0; col < cols - 1; col++) {
        of.cells[col].width = of.cells[col + 1].chars[0] == UINT32_MAX ? 2 : 1;
    }
}

// Has rows saved, of text in front of which the screen is blank.
void save_rows(const GuardWalk &walk, GuardRows &rows, int count)
{
    const VTermScreenCallbacks *callbacks = walk.guard.callbacks;
    VTermScreen *screen = vterm_obtain_screen(walk.vt);
    if (callbacks == nullptr || callbacks->sb_pushline == nullptr || walk.guard.alternate) {
        while (count-- > 0) {
            (void)guard_pass_row(rows, nullptr); // the caller has counted them
        }
        return;
    }
    line.blank = {};
    (void)vterm_screen_get_cell(screen, {0, 0}, &line.blank); // inside the screen
    line.pen = line.first_pen = guard_sample_pen(walk.vt);
    std::fill(line.cells, line.cells + rows.cols, line.blank);
    while (count-- > 0) {
        (void)guard_pass_row(rows, &line);
        if (line.wide) {
            set_widths(line, rows.cols);
        }
        callbacks->sb_pushline(rows.cols, line.cells, vterm_screen_get_cbdata(screen));
        std::fill(line.cells, line.cells + (line.wide ? rows.cols : line.used), line.blank);
        line.used = 0;
        line.wide = false;
    }
    guard_send_bytes(walk.vt, "\x1b[2K"); // erases what sample_pen printed
}

// Text of more lines than there are rows: all that the screen holds scrolls off, and so do the
// first of the lines, which libvterm needs not be given.
void skip_lines(GuardWalk &walk, GuardRows rows, int count, int height)
{
    (void)guard_pass_row(rows, nullptr);
    send_until(walk, rows.row_end);
    // In two steps: libvterm saves nothing of a screen that scrolls by all of its rows at once.
    send_sequences(walk.vt, height - 1, 'S', 1, 'S');
    save_rows(walk, rows, count - height);
    guard_send_selections(rows);
    send_sequences(walk.vt, height - 1, 'A', rows.column + 1, 'G');
    walk.at = walk.unsent = rows.at;
}

// Whether the text goes on for two lines more, as far as can be seen at once: one line costs the
// same either way. What was looked at is not looked at again: neither where that is not so, nor in
// the first line, within which the cursor stays in its row.
bool is_worth_it(GuardWalk &walk, GuardRows rows)
{
    const bool goes_on = guard_pass_row(rows, nullptr);
    walk.lines_judged = rows.at;
    if (goes_on && guard_pass_row(rows, nullptr)) {
        return rows.last != nullptr; // without text the cursor would not have moved
    }
    walk.lines_judged = rows.at;
    return false;
}

} // namespace

bool guard_gather(GuardWalk &walk, const char *end)
{
    const char *from = std::max(walk.at, walk.lines_judged);
    if (from >= end || !guard_knows_rows(walk.guard)) {
        return false;
    }
    const void *found = memchr(from, '\r', static_cast<size_t>(end - from));
    if (found == nullptr) {
        return false;
    }
    int height = 0;
    vterm_get_size(walk.vt, &height, nullptr);
    const char *begin = static_cast<const char *>(found) + 1;
    GuardRows rows = guard_rows_at(walk.vt, begin, walk.end);
    if (height < 2 || rows.cols < 3 || !is_worth_it(walk, rows)) {
        return false;
    }
    walk.guard.joins = false;
    walk.at = begin;
    guard_send(walk);
    if (guard_cursor(walk.vt).row != height - 1) {
        return false;
    }
    rows.resets = guard_pen_is_reset(walk.vt);
    const GuardRows first = rows;
    int count = 0;
    while (guard_pass_row(rows, nullptr)) {
        count++;
    }
    if (count == 0 || rows.last == nullptr) {
        walk.lines_judged = rows.at;
        return false;
    }
    if (count < height) {
        send_sequences(walk.vt, count, 'S', count, 'A');
    } else {
        skip_lines(walk, first, count, height);
    }
    send_until(walk, rows.at);
    walk.glyph = rows.last;
    walk.guard.at_margin = rows.column == rows.cols;
    walk.guard.marks = 0;
    walk.guard.joins = rows.joins;
    return true;
}
