// Output: the bytes for the terminal, and the present that makes its screen equal to the back
// buffer.
#pragma once

#include <poll.h>
#include <string.h>
#include <unistd.h>

namespace {

// The out_ functions need room reserved before.
void out_bytes(const char *bytes, size_t count)
{
    memcpy(global.out.buf + global.out.len, bytes, count);
    global.out.len += count;
}

void out_byte(char byte)
{
    global.out.buf[global.out.len++] = byte;
}

void out_cap(tb_cap_index index)
{
    const tb_cap &cap = global.caps.caps[index];
    out_bytes(cap.text, cap.length);
}

void out_number(int number)
{
    char digits[10];
    size_t count = 0;
    do {
        digits[count++] = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number > 0);
    while (count > 0) {
        out_byte(digits[--count]);
    }
}

constexpr size_t MOVE_MAX = sizeof("\033[2147483647;2147483647H");

void out_move(int x, int y)
{
    if (x == global.pen_x && y == global.pen_y) {
        return;
    }
    out_bytes("\033[", 2);
    out_number(y < INT32_MAX ? y + 1 : y);
    out_byte(';');
    out_number(x < INT32_MAX ? x + 1 : x);
    out_byte('H');
    global.pen_x = x;
    global.pen_y = y;
}

// The SGR number of a colour, base being 30 or 40, or 0 for the terminal's default.
int colour_number(uintattr_t attributes, int base)
{
    int colour = attributes & 0xff;
    return colour == TB_DEFAULT || colour > TB_WHITE ? 0 : base + colour - TB_BLACK;
}

void out_colours(uintattr_t fg, uintattr_t bg)
{
    int fg_number = colour_number(fg, 30), bg_number = colour_number(bg, 40);
    if (!fg_number && !bg_number) {
        return;
    }
    out_bytes("\033[", 2);
    if (fg_number) {
        out_number(fg_number);
    }
    if (fg_number && bg_number) {
        out_byte(';');
    }
    if (bg_number) {
        out_number(bg_number);
    }
    out_byte('m');
}

void out_attributes(uintattr_t fg, uintattr_t bg)
{
    if (fg == global.pen_fg && bg == global.pen_bg) {
        return;
    }
    global.pen_fg = fg;
    global.pen_bg = bg;
    out_cap(CAP_SGR0);
    if (fg & TB_BOLD) {
        out_cap(CAP_BOLD);
    }
    if (fg & TB_BLINK) {
        out_cap(CAP_BLINK);
    }
    if (fg & TB_UNDERLINE) {
        out_cap(CAP_SMUL);
    }
    if (fg & TB_ITALIC) {
        out_cap(CAP_SITM);
    }
    if (fg & TB_REVERSE) {
        out_cap(CAP_REV);
    }
    out_colours(fg, bg);
}

// Default attributes and an empty screen.
void out_clear()
{
    out_cap(CAP_SGR0);
    out_cap(CAP_CLEAR);
    global.pen_fg = global.pen_bg = TB_DEFAULT;
    global.pen_x = -1;
}

// Writes until all is out. After an error nothing is known about the screen.
int out_flush()
{
    size_t sent = 0;
    while (sent < global.out.len) {
        ssize_t count = write(global.tty, global.out.buf + sent, global.out.len - sent);
        if (count > 0) {
            sent += static_cast<size_t>(count);
        } else if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            pollfd room = {global.tty, POLLOUT, 0};
            (void)poll(&room, 1, -1); // an error shows at the next write
        } else if (count == 0 || errno != EINTR) {
            global.out.len = 0;
            screen_forget(global.screen, COVERED);
            global.pen_x = -1;
            global.pen_fg = global.pen_bg = UINT16_MAX;
            global.cursor_shown = -1;
            return TB_ERR;
        }
    }
    global.out.len = 0;
    return TB_OK;
}

bool same_cell(const tb_cell &one, const tb_cell &other)
{
    return one.ch == other.ch && one.fg == other.fg && one.bg == other.bg;
}

// Sends the cell at x; returns the first column after what it owns.
int present_cell(const tb_cell &cell, const tb_glyph &glyph, int x, int y, tb_cell *front)
{
    int width = global.screen.width;
    // What could wrap in the last column, or does not always stay there, is a blank.
    bool cut = x + 1 == width && (glyph.columns == 2 || glyph.unsure || glyph.combining);
    out_move(x, y);
    out_attributes(cell.fg, cell.bg);
    front[x] = cell;
    int next = x + (cut ? 1 : glyph.columns);
    if (glyph.unsure && glyph.columns == 2 && !cut) {
        // A terminal that gives it one column would leave the old right half standing.
        out_bytes("  ", 2);
        global.pen_x = -1;
        out_move(x, y);
    }
    if (cut || glyph.combining) {
        out_byte(' ');
    }
    if (!cut) {
        global.out.len += utf8_encode(global.out.buf + global.out.len, glyph.ch);
    }
    // In the last column terminals differ about where the cursor is.
    global.pen_x = next >= width || glyph.unsure || glyph.combining ? -1 : next;
    // The cell to the right now is half of this one, or may be on terminals that show it wide.
    if (x + 1 < width && (glyph.columns == 2 || glyph.unsure)) {
        front[x + 1].ch = COVERED;
    }
    return next;
}

// The columns of a row are walked from the left: a wide character hides what its right neighbour
// holds, so only this walk tells which cells count. A cell that was covered differs from anything,
// which brings back both halves of an overwritten wide character.
void present_row(int y)
{
    int width = global.screen.width;
    size_t start = static_cast<size_t>(y) * static_cast<size_t>(width);
    const tb_cell *back = global.screen.back + start;
    tb_cell *front = global.screen.front + start;
    if (memcmp(back, front, static_cast<size_t>(width) * sizeof(tb_cell)) == 0) {
        return; // as most rows are, which this tells much faster than their cells
    }
    for (int x = 0; x < width;) {
        const tb_cell &cell = back[x];
        bool same = same_cell(cell, front[x]);
        if (same && cell.ch < FIRST_WIDE) {
            x++;
            continue;
        }
        tb_glyph glyph = glyph_of(cell.ch);
        if (same) {
            x += glyph.columns; // the right half is as covered as it was
        } else {
            x = present_cell(cell, glyph, x, y, front);
        }
    }
}

void present_cursor()
{
    if (global.cursor.visible != global.cursor_shown) {
        out_cap(global.cursor.visible ? CAP_CNORM : CAP_CIVIS);
        global.cursor_shown = global.cursor.visible;
    }
    if (global.cursor.visible) {
        out_move(global.cursor.x, global.cursor.y);
    }
}

// Room is reserved a row at a time; when there is none, what was gathered is sent and the rest
// stays for the next present.
int present()
{
    tb_screen &screen = global.screen;
    constexpr size_t GLYPH_MAX = sizeof("  \xf4\x8f\xbf\xbf");
    size_t cell_max = 2 * MOVE_MAX + global.caps.attributes_max + GLYPH_MAX;
    size_t row_max = static_cast<size_t>(screen.width) * cell_max + cell_max;
    int result = TB_OK;
    for (int y = 0; y < screen.height; y++) {
        if (!screen.touched[y]) {
            continue;
        }
        if (!bytes_reserve(global.out, row_max)) {
            result = TB_ERR_MEM;
            break;
        }
        present_row(y);
        screen.touched[y] = 0;
    }
    if (!bytes_reserve(global.out, cell_max)) {
        result = TB_ERR_MEM;
    } else {
        present_cursor();
    }
    int flushed = out_flush();
    return flushed == TB_OK ? result : flushed;
}

} // namespace
