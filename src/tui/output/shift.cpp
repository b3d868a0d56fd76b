#include "tui/output/shift.h"

#include <algorithm>
#include <stdlib.h>

namespace {

constexpr int MOVE_COST = 5;
constexpr int ERASE_COST = 3;
constexpr int MARGINS_COST = 6; // less than they take: what scrolls once will scroll again

// The bytes that each row saves (below 0: costs) when rows move by one number of lines.
struct Gains {
    int lines;
    int moved[PICTURE_MAX_ROWS];     // the row takes what is shown that many lines below it
    int bared[PICTURE_MAX_ROWS + 1]; // all rows above are bare first
};
Gains gains;

// By index, which is a number of lines plus the height: some changed row is shown that far away.
bool candidates[2 * PICTURE_MAX_ROWS];

struct Band {
    int top; // of the rows that take what was elsewhere, half-open
    int bottom;
    int gain;
};

const tb_cell *row_of(const Pictures &pictures, const tb_cell *cells, int y)
{
    return cells + static_cast<size_t>(y) * static_cast<size_t>(pictures.width);
}

bool is_unchanged(const Pictures &pictures, int y)
{
    return pictures.wanted_hashes[y] == pictures.shown_hashes[y];
}

int full_cost(const Pictures &pictures, int y)
{
    return pictures.costs[y] > 0 ? pictures.costs[y] + MOVE_COST : 0;
}

bool is_same_cell(const tb_cell &one, const tb_cell &other)
{
    return cell_bits(one) == cell_bits(other);
}

// The cells that differ, as the bytes that they take. shown is null for an empty row.
int row_cost(const tb_cell *wanted, const tb_cell *shown, int width)
{
    int end = width; // what follows are blanks
    while (end > 0 && is_blank(wanted[end - 1])) {
        end--;
    }
    int cost = 0;
    int next = -1; // column behind the last cell sent
    for (int x = 0; x < end; x++) {
        const bool differs =
            shown == nullptr ? !is_blank(wanted[x]) : !is_same_cell(wanted[x], shown[x]);
        if (differs) {
            cost += 1 + (next < 0 ? MOVE_COST : std::min(x - next, MOVE_COST));
            next = x + 1;
        }
    }
    for (int x = end; shown != nullptr && x < width; x++) {
        if (!is_same_cell(wanted[x], shown[x])) {
            return cost + ERASE_COST + (next < 0 ? MOVE_COST : 0);
        }
    }
    return cost;
}

int cost_now(const Pictures &pictures, int y)
{
    return is_unchanged(pictures, y)
               ? 0
               : row_cost(row_of(pictures, pictures.wanted, y), row_of(pictures, pictures.shown, y),
                          pictures.width);
}

// Exact gains compare cells; the others leave rows that fit nowhere as they are.
void weigh(const Pictures &pictures, int lines, bool exact)
{
    gains.lines = lines;
    gains.bared[0] = 0;
    for (int y = 0; y < pictures.height; y++) {
        const int from = y + lines;
        const bool inside = from >= 0 && from < pictures.height;
        const bool fits = inside && pictures.wanted_hashes[y] == pictures.shown_hashes[from];
        const int now = is_unchanged(pictures, y) ? 0
                        : exact && !fits          ? cost_now(pictures, y)
                                                  : full_cost(pictures, y);
        const int bared = now - full_cost(pictures, y);
        gains.bared[y + 1] = gains.bared[y] + bared;
        if (!inside) {
            gains.moved[y] = 0;
        } else if (fits) {
            gains.moved[y] = now;
        } else if (exact) {
            gains.moved[y] = now - row_cost(row_of(pictures, pictures.wanted, y),
                                            row_of(pictures, pictures.shown, from), pictures.width);
        } else {
            gains.moved[y] = bared;
        }
    }
}

// The gain of the rows from one up to another, when a band that moved leaves them bare.
int bared_gain(int from, int to)
{
    return gains.bared[to] - gains.bared[from];
}

// The rows that take what was shown elsewhere lie together; those that they leave behind are bare.
// The best band of them: the best sum of consecutive gains, with what is bare at its end.
Band best_band(int height)
{
    const int lines = gains.lines;
    const int first = std::max(0, -lines);
    const int last = height - std::max(0, lines);
    Band best = {};
    int open_top = first; // of the best band that ends above y
    int open_gain = 0;
    for (int y = first; y < last; y++) {
        const int fresh = lines < 0 ? bared_gain(y + lines, y) : 0;
        if (y == first || fresh > open_gain) {
            open_top = y;
            open_gain = fresh;
        }
        open_gain += gains.moved[y];
        const int gain = open_gain + (lines > 0 ? bared_gain(y + 1, y + 1 + lines) : 0);
        if (gain >= best.gain && gain > 0) {
            best = {open_top, y + 1, gain};
        }
    }
    return best;
}

int band_gain(int top, int bottom)
{
    const int lines = gains.lines;
    int gain = lines > 0 ? bared_gain(bottom, bottom + lines) : bared_gain(top + lines, top);
    for (int y = top; y < bottom; y++) {
        gain += gains.moved[y];
    }
    return gain;
}

void mark_candidates(const Pictures &pictures)
{
    for (int y = 0; y < pictures.height; y++) {
        if (is_unchanged(pictures, y) || pictures.costs[y] == 0) {
            continue;
        }
        for (int from = 0; from < pictures.height; from++) {
            if (pictures.wanted_hashes[y] == pictures.shown_hashes[from]) {
                candidates[pictures.height + from - y] = true;
            }
        }
    }
}

int best_lines(const Pictures &pictures)
{
    std::fill(candidates, candidates + 2 * pictures.height, false);
    mark_candidates(pictures);
    int best_gain = 0;
    int best = 0;
    for (int lines = 1 - pictures.height; lines < pictures.height; lines++) {
        if (lines == 0 || !candidates[pictures.height + lines]) {
            continue;
        }
        weigh(pictures, lines, false);
        const int gain = best_band(pictures.height).gain - abs(lines);
        if (gain > best_gain) {
            best_gain = gain;
            best = lines;
        }
    }
    return best;
}

// Many rows that are to be blank are scrolled out of sight: a byte each, where an erasure takes
// four.
Shift find_blanked(const Pictures &pictures)
{
    constexpr int ENOUGH = 8;
    Shift best = {};
    int top = 0;
    int changed = 0;
    for (int y = 0; y < pictures.height; y++) {
        if (pictures.costs[y] > 0) {
            top = y + 1;
            changed = 0;
            continue;
        }
        changed += is_unchanged(pictures, y) ? 0 : 1;
        if (changed >= ENOUGH && !is_unchanged(pictures, y)) {
            best = {top, y + 1, y + 1 - top};
        }
    }
    return best;
}

} // namespace

Shift find_shift(const Pictures &pictures, int margin_top, int margin_bottom)
{
    const int lines = best_lines(pictures);
    if (lines == 0) {
        return find_blanked(pictures);
    }
    weigh(pictures, lines, true);
    Band best = best_band(pictures.height);
    // The rows that move and those that they leave behind, as they are for the margins set now.
    const int top = margin_top - std::min(0, lines);
    const int bottom = margin_bottom - std::max(0, lines);
    best.gain -= MARGINS_COST;
    if (top < bottom && band_gain(top, bottom) >= best.gain) {
        best = {top, bottom, band_gain(top, bottom)};
    }
    best.gain -= abs(lines) * (lines > 0 ? 1 : 2);
    if (best.gain <= 0) {
        return find_blanked(pictures);
    }
    return {best.top + std::min(0, lines), best.bottom + std::max(0, lines), lines};
}
