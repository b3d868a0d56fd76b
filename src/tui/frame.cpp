#include "tui/frame.h"

#include "dep/termbox.h"
#include "text/printable.h"
#include "text/width.h"

namespace {

// A wide character left of the rectangle reaches into it, and hides the cell that is drawn there.
void cut_wide_neighbour(int x, int y)
{
    tb_cell *cell = nullptr;
    if (x >= 0 && tb_get_cell(x, y, 1, &cell) == TB_OK && character_width(cell->ch) == 2) {
        tb_set_cell(x, y, ' ', cell->fg, cell->bg);
    }
}

} // namespace

void draw_frame(const Rectangle &place, Colours colours)
{
    for (int x = place.x0; x < place.x1; x++) {
        for (int y = place.y0; y < place.y1; y++) {
            const bool border =
                x == place.x0 || y == place.y0 || x == place.x1 - 1 || y == place.y1 - 1;
            tb_set_cell(x, y, border ? '*' : ' ', colours.fg, colours.bg);
        }
    }
    for (int y = place.y0; y < place.y1 && place.x0 < place.x1; y++) {
        cut_wide_neighbour(place.x0 - 1, y);
    }
}

int draw_bytes(int x, int y, int end_x, std::string_view bytes, Colours colours)
{
    for (size_t i = 0; i < bytes.size() && x < end_x; i++, x++) {
        const unsigned char byte = static_cast<unsigned char>(bytes[i]);
        tb_set_cell(x, y, is_control(byte) ? '?' : byte, colours.fg, colours.bg);
    }
    return x;
}
