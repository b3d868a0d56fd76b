#include "tui/guard/overdraw.h"

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <bit>
#include <span>

#include "text/digits.h"
#include "tui/guard/rows.h"
#include "tui/guard/scan.h"
#include "tui/guard/sequence.h"

namespace {

enum class Stroke : uint8_t { NONE, PEN, MOVE, TEXT };

// A walk over strokes.
struct Drawing {
    const char *at;
    const char *end;
    VTermPos size;     // of the screen
    VTermPos cursor;   // behind the last stroke; in row -1 before the first move
    const char *begin; // of the last stroke
};

// What a first walk over all strokes finds.
struct Survey {
    const char *begin; // of the first move; null without one
    const char *glyph; // the last character; null without one
    bool joins;        // nothing came behind it that moves the cursor
    uint16_t first;    // number of a text behind the first move
    int texts;         // that there are
    int covered;       // of them, as far as numbers tell
};

// A change of the pen, of one or more sequences: from what it was, or from what a reset makes it.
struct PenChange {
    bool resets;
    uint16_t attributes; // that are switched on, 1 to 9, a bit each
    uint8_t foreground;  // as a sequence has it; 0 for no change
    uint8_t background;
};

// What libvterm is given.
struct Output {
    VTerm *vt;
    VTermPos cursor; // in row -1 when it is not known
    PenChange pen;   // is still to be made
    size_t length;
    char bytes[GUARD_SEND_SIZE];
};

// The number of the text that was the last to cover each cell. Numbers go on from one drawing to
// the next and begin again at 0. One that is mistaken for another has text drawn needlessly, or
// counted as covered, and never left out.
uint16_t coverers[GUARD_MAX_ROWS * GUARD_MAX_COLS];
uint16_t next_number;

bool is_ascii_text(char byte)
{
    return static_cast<unsigned char>(byte - ' ') < 0x7f - ' ';
}

// Returns false when there are other numbers than a row and a column, which count from 1 and are
// kept on the screen by libvterm.
bool read_move(Drawing &drawing, std::string_view numbers)
{
    int row = 0;
    int column = 0;
    if (!take_number(numbers, row)) {
        return false;
    }
    if (!numbers.empty() && numbers[0] == ';') {
        numbers.remove_prefix(1);
        if (!take_number(numbers, column)) {
            return false;
        }
    }
    if (!numbers.empty()) {
        return false;
    }
    drawing.cursor = {std::clamp(row, 1, drawing.size.row) - 1,
                      std::clamp(column, 1, drawing.size.col) - 1};
    return true;
}

// Passes text up to the end of the row. Returns false when there is no room in it, and for more
// than a character in front of the first move, which would be looked at twice.
inline bool pass_text(Drawing &drawing)
{
    const char *begin = drawing.at;
    const bool placed = drawing.cursor.row >= 0;
    const int room = drawing.size.col - drawing.cursor.col;
    if (begin[1] == GUARD_ESCAPE && room > 0) {
        drawing.at++;
    } else if (placed) {
        const char *end = begin + std::min<ptrdiff_t>(drawing.end - begin, room);
        drawing.at = guard_skip<guard_mark_not_printed>(begin, end);
    }
    drawing.cursor.col += placed ? static_cast<int>(drawing.at - begin) : 0;
    return drawing.at > begin;
}

// Passes a stroke. What would wrap is none, nor is a move without numbers: it may begin a picture.
inline Stroke pass_stroke(Drawing &drawing)
{
    const char *begin = drawing.begin = drawing.at;
    if (drawing.end - begin <= GUARD_SHORT_CSI) {
        return Stroke::NONE;
    }
    if (is_ascii_text(*begin)) {
        return pass_text(drawing) ? Stroke::TEXT : Stroke::NONE;
    }
    const char *final = guard_short_csi_final(begin, drawing.end);
    if (final == nullptr) {
        return Stroke::NONE;
    }
    if (*final == 'm') {
        drawing.at = final + 1;
        return Stroke::PEN;
    }
    const std::string_view numbers(begin + 2, static_cast<size_t>(final - begin - 2));
    if (*final != 'H' || numbers.empty() || !read_move(drawing, numbers)) {
        return Stroke::NONE;
    }
    drawing.at = final + 1;
    return Stroke::MOVE;
}

// The cells of the text passed last.
std::span<uint16_t> text_cells(const Drawing &drawing)
{
    const auto length = static_cast<size_t>(drawing.at - drawing.begin);
    const VTermPos &cursor = drawing.cursor;
    return {coverers + cursor.row * drawing.size.col + cursor.col - length, length};
}

Survey survey(Drawing &drawing, bool joins)
{
    Survey found = {nullptr, nullptr, joins, next_number, 0, 0};
    Stroke stroke;
    while ((stroke = pass_stroke(drawing)) != Stroke::NONE) {
        if (stroke == Stroke::MOVE) {
            found.joins = false;
            found.begin = found.begin == nullptr ? drawing.begin : found.begin;
        }
        if (stroke == Stroke::TEXT) {
            found.joins = true;
            found.glyph = drawing.at - 1;
            if (found.begin != nullptr) {
                const std::span<uint16_t> cells = text_cells(drawing);
                found.covered += static_cast<uint16_t>(cells[0] - found.first) < found.texts;
                std::fill(cells.begin(), cells.end(), next_number++);
                found.texts++;
            }
        }
    }
    return found;
}

// One of eight colours, the default one or one of eight bright ones.
bool is_colour(int number, int first)
{
    return (number >= first && number < first + 8) || number == first + 9 ||
           (number >= first + 60 && number < first + 68);
}

// Has a sequence's numbers make a change. Returns false for those that are sent as they are.
bool add_numbers(PenChange &change, std::string_view numbers)
{
    PenChange result = change;
    for (;; numbers.remove_prefix(1)) {
        int number = 0;
        if (!take_number(numbers, number)) {
            return false;
        }
        if (is_colour(number, 30)) {
            result.foreground = static_cast<uint8_t>(number);
        } else if (is_colour(number, 40)) {
            result.background = static_cast<uint8_t>(number);
        } else if (number == 0) {
            result = {.resets = true, .attributes = 0, .foreground = 0, .background = 0};
        } else if (number < 10) {
            result.attributes |= static_cast<uint16_t>(1U << number);
        } else {
            return false;
        }
        if (numbers.empty()) {
            change = result;
            return true;
        }
        if (numbers[0] != ';') {
            return false;
        }
    }
}

void flush(Output &output)
{
    guard_send_bytes(output.vt, {output.bytes, output.length});
    output.length = 0;
}

void put(Output &output, std::string_view bytes)
{
    if (output.length + bytes.size() > sizeof output.bytes) {
        flush(output);
    }
    memcpy(output.bytes + output.length, bytes.data(), bytes.size());
    output.length += bytes.size();
}

void put_pen(Output &output)
{
    char sequence[64] = "\x1b[";
    size_t length = 2;
    const auto add = [&sequence, &length](int number) {
        length += put_number(sequence + length, number);
        sequence[length++] = ';';
    };
    const PenChange &pen = output.pen;
    if (pen.resets) {
        add(0);
    }
    for (unsigned int left = pen.attributes; left != 0; left &= left - 1) {
        add(std::countr_zero(left));
    }
    for (const int colour : {pen.foreground, pen.background}) {
        if (colour != 0) {
            add(colour);
        }
    }
    if (length > 2) {
        sequence[length - 1] = 'm';
        put(output, {sequence, length});
    }
    output.pen = {};
}

void put_move(Output &output, VTermPos place)
{
    char sequence[32] = "\x1b[";
    size_t length = 2;
    const VTermPos &cursor = output.cursor;
    if (cursor.row == place.row && cursor.col == place.col) {
        return;
    }
    if (cursor.row == place.row && cursor.col < place.col) {
        length += put_number(sequence + length, place.col - cursor.col);
        sequence[length++] = 'C';
    } else {
        length += put_number(sequence + length, place.row + 1);
        sequence[length++] = ';';
        length += put_number(sequence + length, place.col + 1);
        sequence[length++] = 'H';
    }
    put(output, {sequence, length});
}

// Sends the strokes up to `end` without the text that is covered, and what only concerns that.
void send_visible(VTerm *vt, Drawing drawing, const char *end, uint16_t number)
{
    Output output = {.vt = vt, .cursor = {-1, 0}, .pen = {}, .length = 0, .bytes = {}};
    while (drawing.at < end) {
        const Stroke stroke = pass_stroke(drawing);
        const std::string_view bytes(drawing.begin,
                                     static_cast<size_t>(drawing.at - drawing.begin));
        if (stroke == Stroke::PEN) {
            if (!add_numbers(output.pen, {bytes.data() + 2, bytes.size() - 3})) {
                put_pen(output);
                put(output, bytes);
            }
        } else if (stroke == Stroke::TEXT) {
            const std::span<uint16_t> cells = text_cells(drawing);
            if (std::find(cells.begin(), cells.end(), number++) != cells.end()) {
                const VTermPos behind = drawing.cursor;
                put_move(output, {behind.row, behind.col - static_cast<int>(bytes.size())});
                put_pen(output);
                put(output, bytes);
                output.cursor = behind;
            }
        }
    }
    put_move(output, drawing.cursor);
    put_pen(output);
    flush(output);
}

} // namespace

bool guard_pass_drawing(GuardWalk &walk)
{
    constexpr int ENOUGH = 32; // texts for a second walk over them
    Drawing drawing = {walk.at, walk.end, {}, {-1, 0}, nullptr};
    vterm_get_size(walk.vt, &drawing.size.row, &drawing.size.col);
    const Survey found = survey(drawing, walk.guard.joins);
    if (drawing.at == walk.at) {
        return false;
    }
    if (found.texts >= ENOUGH && found.covered > found.texts / 4 && guard_knows_rows(walk.guard)) {
        walk.at = found.begin;
        guard_send(walk);
        send_visible(walk.vt, {found.begin, walk.end, drawing.size, {-1, 0}, nullptr}, drawing.at,
                     found.first);
        walk.unsent = drawing.at;
        walk.guard.at_margin = drawing.cursor.col == drawing.size.col;
    }
    walk.at = drawing.at;
    walk.guard.joins = found.joins;
    if (found.glyph != nullptr) {
        walk.glyph = found.glyph;
        walk.guard.marks = 0;
    }
    return true;
}
