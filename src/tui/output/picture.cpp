#include "tui/output/picture.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string_view>

#include "tui/output/rewriter.h"
#include "tui/output/shift.h"
#include "tui/termbox.h"

namespace {

// How many bands of rows may move in one picture: a popup over scrolling text parts it in several.
constexpr int MAX_SHIFTS = 3;
// A cell that differs from every one that is painted.
constexpr tb_cell UNKNOWN = {0xfffffffe, TB_DEFAULT, TB_DEFAULT};

struct Saver {
    bool (*send)(const char *bytes, size_t count);
    bool active; // the terminal has margins
    bool presenting;
    Rewriter rewriter;
    // What is shown, by rows; valid when nothing else than presents came between.
    bool valid;
    int width;
    int height;
    uint64_t shown[PICTURE_MAX_ROWS];
    int shown_costs[PICTURE_MAX_ROWS];
    uint64_t wanted[PICTURE_MAX_ROWS];
    int costs[PICTURE_MAX_ROWS];
};
Saver saver;

// The terminal's type is one with VT100's margins, as terminfo's csr has them, and its cursor.
bool has_margins(std::string_view type)
{
    constexpr std::string_view families[] = {
        "xterm", "screen", "tmux", "linux", "vt100",     "vt102", "vt220", "vt320",   "vt420",
        "rxvt",  "putty",  "foot", "st-",   "alacritty", "kitty", "gnome", "konsole", "mintty"};
    for (const std::string_view family : families) {
        if (type.size() >= family.size() &&
            memcmp(type.data(), family.data(), family.size()) == 0) {
            return true;
        }
    }
    return false;
}

uint64_t mix(uint64_t hash, const tb_cell &cell)
{
    return (hash ^ cell_bits(cell)) * 0x9e3779b97f4a7c15;
}

// Four hashes at a time: in a single one each multiplication would wait for the one before.
uint64_t row_hash(const tb_cell *row, int width)
{
    uint64_t chains[4] = {1, 2, 3, 4};
    int x = 0;
    for (; x + 4 <= width; x += 4) {
        for (int i = 0; i < 4; i++) {
            chains[i] = mix(chains[i], row[x + i]);
        }
    }
    for (; x < width; x++) {
        chains[0] = mix(chains[0], row[x]);
    }
    uint64_t hash = 0;
    for (const uint64_t chain : chains) {
        hash = (hash ^ chain ^ chain >> 29) * 0xbf58476d1ce4e5b9;
    }
    return hash;
}

// The bytes of a row where nothing is shown: its cells up to the blanks at its end, and the changes
// of attributes.
int full_cost(const tb_cell *row, int width)
{
    constexpr int PEN_COST = 6;
    while (width > 0 && is_blank(row[width - 1])) {
        width--;
    }
    int cost = width;
    const tb_cell *before = &BLANK_CELL;
    for (int x = 0; x < width; x++) {
        cost += row[x].fg == before->fg && row[x].bg == before->bg ? 0 : PEN_COST;
        before = &row[x];
    }
    return cost;
}

tb_cell *row_of(tb_cell *cells, int y)
{
    return cells + static_cast<size_t>(y) * static_cast<size_t>(saver.width);
}

// Rows of the front buffer and their hashes move as the terminal's do, and count as drawn.
void shift_shown(tb_cell *front, const Shift &shift)
{
    const int kept = shift.bottom - shift.top - abs(shift.lines);
    const int from = shift.top + std::max(0, shift.lines);
    const int to = shift.top + std::max(0, -shift.lines);
    const size_t width = static_cast<size_t>(saver.width);
    memmove(row_of(front, to), row_of(front, from),
            static_cast<size_t>(kept) * width * sizeof(tb_cell));
    memmove(saver.shown + to, saver.shown + from, static_cast<size_t>(kept) * sizeof(uint64_t));
    const int bare = shift.lines > 0 ? shift.bottom - shift.lines : shift.top;
    for (int y = bare; y < bare + abs(shift.lines); y++) {
        std::fill(row_of(front, y), row_of(front, y) + width, BLANK_CELL);
        saver.shown[y] = row_hash(row_of(front, y), saver.width);
    }
    for (int y = shift.top; y < shift.bottom; y++) {
        (void)tui_front_row(y);
    }
}

void send_shifts(tb_cell *front)
{
    const Rewriter &rewriter = saver.rewriter;
    for (int i = 0; i < MAX_SHIFTS; i++) {
        const Pictures pictures = {saver.width,  saver.height, rewriter.cells, front,
                                   saver.wanted, saver.shown,  saver.costs};
        const Shift shift = find_shift(pictures, rewriter.margins ? rewriter.top : 0,
                                       rewriter.margins ? rewriter.bottom + 1 : saver.height);
        if (shift.lines == 0 ||
            !rewriter_scroll(saver.rewriter, shift.top, shift.bottom - 1, shift.lines)) {
            return;
        }
        shift_shown(front, shift);
    }
}

// How many rows lower a row that is wanted is shown; 0 when it is not.
int distance_to_shown(int y)
{
    const uint64_t *shown = saver.shown;
    const uint64_t *found = std::find(shown, shown + saver.height, saver.wanted[y]);
    return found == shown + saver.height ? 0 : static_cast<int>(found - shown) - y;
}

// Returns how many rows changed since they were shown. When text scrolls most of them are shown
// already, as far away as the row above them: those are compared and not hashed again.
int look_at_rows(const tb_cell *back, tb_cell *front)
{
    const size_t size = static_cast<size_t>(saver.width) * sizeof *back;
    int changed = 0;
    int distance = 0;
    for (int y = 0; y < saver.height; y++) {
        const tb_cell *row = back + static_cast<size_t>(y) * static_cast<size_t>(saver.width);
        const int from = y + distance;
        if (saver.valid && from >= 0 && from < saver.height &&
            memcmp(row, row_of(front, from), size) == 0) {
            saver.wanted[y] = saver.shown[from];
            saver.costs[y] = saver.shown_costs[from];
        } else {
            saver.wanted[y] = row_hash(row, saver.width);
            saver.costs[y] = full_cost(row, saver.width);
            distance = saver.costs[y] > 0 ? distance_to_shown(y) : distance;
        }
        changed += saver.wanted[y] != saver.shown[y] ? 1 : 0;
    }
    return changed;
}

void forget_shown(tb_cell *front)
{
    for (int y = 0; y < saver.height; y++) {
        std::fill(row_of(front, y), row_of(front, y) + saver.width, UNKNOWN);
        (void)tui_front_row(y);
    }
}

// Returns false where the screen is too tall or there is none.
bool begin_present(const Cursor &cursor)
{
    const int width = tb_width();
    const int height = tb_height();
    const bool lost = saver.rewriter.lost;
    tb_cell *front = tui_front_row(0);
    const tb_cell *back = tui_back_row(0);
    if (front == nullptr || back == nullptr || height > PICTURE_MAX_ROWS) {
        return false;
    }
    saver.valid = saver.valid && !lost && !saver.rewriter.forgotten && width == saver.width &&
                  height == saver.height;
    saver.width = width;
    saver.height = height;
    rewriter_begin(saver.rewriter, back, width, height, cursor.shown);
    if (lost) {
        forget_shown(front);
    }
    if (look_at_rows(back, front) > 1 && saver.valid) {
        send_shifts(front);
    }
    return true;
}

} // namespace

void picture_start(const char *terminal_type, bool (*send)(const char *bytes, size_t count))
{
    saver.send = send;
    saver.active = terminal_type != nullptr && has_margins(terminal_type);
    saver.presenting = false;
    saver.valid = false;
    rewriter_start(saver.rewriter, send);
}

void picture_present(const Cursor &cursor)
{
    saver.presenting = saver.active && begin_present(cursor);
    const bool presented = tb_present() == TB_OK;
    if (saver.presenting) {
        saver.presenting = false;
        saver.valid = rewriter_end(saver.rewriter, cursor.x, cursor.y) && presented;
        memcpy(saver.shown, saver.wanted, sizeof saver.shown);
        memcpy(saver.shown_costs, saver.costs, sizeof saver.costs);
    }
}

bool picture_write(const char *bytes, size_t count)
{
    if (!saver.active) {
        return saver.send(bytes, count);
    }
    return saver.presenting ? rewriter_write(saver.rewriter, bytes, count)
                            : rewriter_pass(saver.rewriter, bytes, count);
}
