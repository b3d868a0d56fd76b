#include "tui/scrollback.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "link/owned.h"

namespace {

ScrollbackLine *take_oldest(list_head &lines, int32_t &count)
{
    ScrollbackLine *oldest = list_last_entry(&lines, ScrollbackLine, list);
    list_del(&oldest->list);
    count--;
    return oldest;
}

size_t cells_size(int cols)
{
    return static_cast<size_t>(cols) * sizeof(VTermScreenCell);
}

// The record that the oldest line leaves when the list is full, if it fits, else a new one.
ScrollbackLine *make_room(list_head &lines, int32_t &count, int cols)
{
    if (count >= TERM_SCROLLBACK_MAX) {
        ScrollbackLine *oldest = take_oldest(lines, count);
        if (oldest->cols == cols) {
            return oldest;
        }
        free(oldest);
    }
    return zalloc<ScrollbackLine>(cells_size(cols));
}

// The emulator walks the cells by their widths: a wide character that the new width cuts becomes a
// blank, and so do the cells past the saved line.
void fill(VTermScreenCell *cells, int cols, const ScrollbackLine &line)
{
    VTermScreenCell blank = {};
    blank.width = 1;
    const int kept = std::min(cols, line.cols);
    for (int col = 0; col < cols; col++) {
        const bool cut = col == cols - 1 && col < kept && line.cells[col].width == 2;
        cells[col] = col < kept && !cut ? line.cells[col] : blank;
    }
}

} // namespace

int scrollback_push(list_head &lines, int32_t &count, int cols, const VTermScreenCell *cells)
{
    ScrollbackLine *line = make_room(lines, count, cols);
    if (line == nullptr) {
        ulog(LOG_ERR, "Couldn't allocate scrollback line");
        return 0;
    }
    line->cols = cols;
    memcpy(line->cells, cells, cells_size(cols));
    list_add(&line->list, &lines);
    count++;
    return 1;
}

int scrollback_pop(list_head &lines, int32_t &count, int cols, VTermScreenCell *cells)
{
    if (count == 0) {
        return 0;
    }
    ScrollbackLine *newest = list_first_entry(&lines, ScrollbackLine, list);
    fill(cells, cols, *newest);
    list_del(&newest->list);
    free(newest);
    count--;
    return 1;
}

void scrollback_free(list_head &lines, int32_t &count)
{
    while (count > 0) {
        free(take_oldest(lines, count));
    }
}
