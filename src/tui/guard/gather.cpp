#include "tui/guard/gather.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "text/printable.h"
#include "tui/guard/character.h"
#include "tui/guard/scan.h"

namespace {

// Text of which the place of every character is known.
struct Lines {
    const char *end;
    int count;        // of line feeds, also those by wrapping
    int column;       // of the cursor behind it; the width of the screen when the next one wraps
    const char *last; // the last character with columns of its own; null without one
};

struct Size {
    int rows;
    int cols;
};

// Has characters of so many columns in all follow. False when that takes too many lines.
bool place(Lines &lines, int columns, int wraps, int most)
{
    if (lines.count + wraps > most) {
        return false;
    }
    lines.count += wraps;
    lines.column = columns;
    return true;
}

bool place_ascii(Lines &lines, int length, const Size &size)
{
    const int columns = lines.column + length;
    const int wraps = (columns - 1) / size.cols;
    return place(lines, columns - wraps * size.cols, wraps, size.rows - 1);
}

bool place_character(Lines &lines, int width, const Size &size)
{
    const bool wraps = lines.column + width > size.cols;
    return place(lines, (wraps ? 0 : lines.column) + width, wraps ? 1 : 0, size.rows - 1);
}

// The columns of a character that libvterm is given as it is, and its length in bytes; else 0.
int character_columns(const char *at, const char *end, ptrdiff_t &length)
{
    length = end - at >= 3 ? guard_common_length(at) : 0;
    if (length > 0) {
        return guard_common_width(at);
    }
    const Character character = decode_character({at, static_cast<size_t>(end - at)});
    length = character.length;
    const bool passes =
        character.valid && guard_judge_character(character.code_point, 0) == GuardVerdict::PASS;
    return passes ? character_width(character.code_point) : 0;
}

// The number of bytes of the next character, or of several of ASCII, once it has its place; else 0.
ptrdiff_t take_text(Lines &lines, const char *end, const Size &size)
{
    const char *at = lines.end;
    ptrdiff_t length = 0;
    if (static_cast<unsigned char>(*at) < 0x80) {
        length = guard_skip<guard_mark_not_printed>(at, end) - at;
        if (length == 0 || !place_ascii(lines, static_cast<int>(length), size)) {
            return 0;
        }
        lines.last = at + length - 1;
    } else {
        const int columns = character_columns(at, end, length);
        if (columns == 0 || !place_character(lines, columns, size)) {
            return 0;
        }
        lines.last = at;
    }
    return length;
}

// As many lines from `at` as can be scrolled for at once.
Lines measure(const char *at, const char *end, int column, const Size &size)
{
    Lines lines = {at, 0, column, nullptr};
    while (lines.end < end) {
        if (*lines.end == '\r') {
            lines.column = 0;
            lines.end++;
        } else if (*lines.end == '\n') {
            // In the bottom row a line feed does not keep the next character from wrapping.
            if (lines.column == size.cols || lines.count == size.rows - 1) {
                break;
            }
            lines.count++;
            lines.end++;
        } else {
            const ptrdiff_t length = take_text(lines, end, size);
            if (length == 0) {
                break;
            }
            lines.end += length;
        }
    }
    return lines;
}

// One line costs the same either way. Without text the cursor would not have moved.
bool is_worth_it(const Lines &lines)
{
    return lines.count > 1 && lines.last != nullptr;
}

bool can_gather(const Guard &guard)
{
    return guard.margins == 0 && guard.designated == 0 && !guard.wraps_not && !guard.feeds_return &&
           !guard.lines_doubled;
}

void send_lines(GuardWalk &walk, const Lines &lines)
{
    char scroll[32];
    const int length =
        snprintf(scroll, sizeof scroll, "\x1b[%dS\x1b[%dA", lines.count, lines.count);
    guard_send_bytes(walk.vt, {scroll, static_cast<size_t>(length)});
    while (walk.at < lines.end) {
        walk.at += std::min(lines.end - walk.at, GUARD_PIECE);
        while (walk.at < lines.end && continues_character(*walk.at)) {
            walk.at--;
        }
        guard_send(walk);
    }
}

} // namespace

bool guard_gather(GuardWalk &walk, const char *end)
{
    Size size;
    if (!can_gather(walk.guard)) {
        return false;
    }
    const void *found = memchr(walk.at, '\r', static_cast<size_t>(end - walk.at));
    if (found == nullptr) {
        return false;
    }
    const char *begin = static_cast<const char *>(found) + 1;
    vterm_get_size(walk.vt, &size.rows, &size.cols);
    Lines lines = measure(begin, walk.end, 0, size);
    if (!is_worth_it(lines) || size.cols < 3) {
        return false;
    }
    walk.guard.joins = false;
    walk.at = begin;
    guard_send(walk);
    if (guard_cursor(walk.vt).row != size.rows - 1) {
        return false;
    }
    do {
        send_lines(walk, lines);
        walk.glyph = lines.last;
        walk.guard.at_margin = lines.column == size.cols;
        if (walk.guard.at_margin) {
            break; // moving the cursor would keep the next character from wrapping
        }
        lines = measure(walk.at, walk.end, lines.column, size);
    } while (is_worth_it(lines));
    walk.guard.marks = 0;
    const auto rest = static_cast<size_t>(walk.end - walk.glyph);
    walk.guard.joins = walk.glyph + decode_character({walk.glyph, rest}).length == walk.at;
    return true;
}
