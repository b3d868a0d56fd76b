#include "tui/guard/piece.h"

#include <string.h>

#include <algorithm>

#include "text/digits.h"
#include "tui/guard/sequence.h"

namespace {

// Cells that libvterm goes over in a piece, each of which takes it some 3 ns. A control byte (a
// line feed, the beginning of a sequence) may have it go over the whole screen, or print a row of
// characters with all that belongs to it (REP), which takes about as long as so many rows; text may
// have it go over the screen for each row that it fills.
constexpr int32_t PIECE_CELLS = 8 * 1024 * 1024;
constexpr int ROWS_AT_LEAST = 32;

// How many bytes are looked at together: so few that their count fits into a byte.
constexpr int32_t BLOCK = 48;

// The control bytes among the first bytes, behind which there is one more. A return counts as none,
// as it takes no time; one that fills the screen (ESC # 8) counts as five. Without a branch the
// compiler looks at many at once.
template <int32_t length>
int32_t count_controls(const char *bytes)
{
    uint8_t count = 0;
    for (int32_t i = 0; i < length; i++) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        const bool fills = (byte == '\033') & (bytes[i + 1] == '#');
        count = static_cast<uint8_t>(count + (byte < ' ') - (byte == '\r') + 4 * fills);
    }
    return count;
}

// Where text scrolls that begins in front of the last column.
struct Bottom {
    int row;  // counted from 1
    bool any; // any row may be the last between margins
};

// Whether a sequence only changes the pen or moves the cursor, away from where two characters are
// enough to scroll. Screens full of colours consist of such. Notes one that may set margins.
bool is_cheap(const char *at, const char *end, Bottom &bottom)
{
    const char *final = guard_short_csi_final(at, end);
    if (final != nullptr && *final == 'H' && !bottom.any) {
        std::string_view numbers(at + 2, static_cast<size_t>(final - at - 2));
        int row = 0;
        return take_number(numbers, row) && row < bottom.row;
    }
    const bool whole = final != nullptr && *final >= '?' && *final <= '~';
    bottom.any = bottom.any || !whole || *final == 'r' || *final == 's';
    return whole && *final == 'm';
}

// The cheap sequences that begin in front of `until`.
int32_t count_cheap(const char *at, const char *until, const char *end, Bottom &bottom)
{
    int32_t count = 0;
    while (const void *found = memchr(at, GUARD_ESCAPE, static_cast<size_t>(until - at))) {
        at = static_cast<const char *>(found);
        count += is_cheap(at, end, bottom);
        at++;
    }
    return count;
}

template <int32_t length>
int32_t count_dear(const char *bytes, const char *end, Bottom &bottom)
{
    const int32_t count = count_controls<length>(bytes);
    return count == 0 ? 0 : count - count_cheap(bytes, bytes + length, end, bottom);
}

} // namespace

int32_t guard_piece_length(const Guard &guard, VTerm *vt, const char *bytes, int32_t length)
{
    int rows = 0;
    int cols = 0;
    vterm_get_size(vt, &rows, &cols);
    const char *end = bytes + length;
    Bottom bottom = {rows, guard.margins != 0};
    int32_t controls = PIECE_CELLS / (std::max(rows, ROWS_AT_LEAST) * cols);
    length = std::min(length, PIECE_CELLS / rows);
    int32_t at = 0;
    for (; at + BLOCK < length; at += BLOCK) {
        const int32_t count = count_dear<BLOCK>(bytes + at, end, bottom);
        if (count > controls) {
            break;
        }
        controls -= count;
    }
    for (; at + 1 < length; at++) {
        const int32_t count = count_dear<1>(bytes + at, end, bottom);
        if (count > 0 && controls <= 0) {
            return at;
        }
        controls -= count;
    }
    return length;
}
