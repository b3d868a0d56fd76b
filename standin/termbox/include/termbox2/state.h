// The state of the termbox2 stand-in and the two things it is made of: growing byte buffers and
// pairs of cell buffers.
#pragma once

#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

namespace {

// buf holds len bytes; room for cap bytes and a NUL follows from buf on. The allocation starts at
// base, which lies before buf once bytes were taken from the front.
struct tb_bytes {
    char *buf;
    size_t len, cap;
    char *base;
};

// Makes room for extra more bytes and a NUL after the ones held.
[[nodiscard]] bool bytes_reserve(tb_bytes &bytes, size_t extra)
{
    if (bytes.cap - bytes.len >= extra && bytes.buf) {
        return true;
    }
    size_t shifted = bytes.buf ? static_cast<size_t>(bytes.buf - bytes.base) : 0;
    if (bytes.cap + shifted - bytes.len < extra || !bytes.buf) {
        size_t capacity = (bytes.len + extra) * 2;
        char *grown = static_cast<char *>(malloc(capacity + 1));
        if (!grown) {
            return false;
        }
        if (bytes.len) {
            memcpy(grown, bytes.buf, bytes.len);
        }
        free(bytes.base);
        bytes.base = grown;
        bytes.cap = capacity;
    } else {
        memmove(bytes.base, bytes.buf, bytes.len);
        bytes.cap += shifted;
    }
    bytes.buf = bytes.base;
    bytes.buf[bytes.len] = '\0';
    return true;
}

// Drops bytes from the front: a paste is taken key by key, so nothing is moved.
void bytes_drop(tb_bytes &bytes, size_t count)
{
    bytes.buf += count;
    bytes.len -= count;
    bytes.cap -= count;
}

void bytes_free(tb_bytes &bytes)
{
    free(bytes.base);
    bytes = {};
}

// In the front buffer: what the terminal shows there is unknown or the right half of a wide
// character, so whatever the back buffer holds must be sent unless it is covered again.
constexpr uint32_t COVERED = 0xfffffffe;

// back is what the program painted, front what the terminal shows, both height rows of width cells;
// touched has a mark for each row that the last present has not seen. One block, owned by back.
struct tb_screen {
    int width, height;
    tb_cell *back, *front;
    unsigned char *touched;
};

size_t screen_cells(const tb_screen &screen)
{
    return static_cast<size_t>(screen.width) * static_cast<size_t>(screen.height);
}

// All of the front buffer becomes ch in default colours, and every row is looked at again.
void screen_forget(tb_screen &screen, uint32_t ch)
{
    for (size_t i = 0; i < screen_cells(screen); i++) {
        screen.front[i] = {ch, TB_DEFAULT, TB_DEFAULT};
    }
    memset(screen.touched, 1, static_cast<size_t>(screen.height));
}

// A blank screen that keeps what old has in common with it; old stays as it is, also on failure.
[[nodiscard]] bool screen_make(tb_screen &screen, int width, int height, const tb_screen &old)
{
    screen.width = width;
    screen.height = height;
    size_t count = screen_cells(screen);
    void *block = malloc(2 * count * sizeof(tb_cell) + static_cast<size_t>(height) + 1);
    if (!block) {
        return false;
    }
    screen.back = static_cast<tb_cell *>(block);
    screen.front = screen.back + count;
    screen.touched = reinterpret_cast<unsigned char *>(screen.front + count);
    screen_forget(screen, ' ');
    if (count) {
        memcpy(screen.back, screen.front, count * sizeof(tb_cell));
    }
    int columns = width < old.width ? width : old.width;
    for (int y = 0; y < height && y < old.height; y++) {
        const tb_cell *from = old.back + static_cast<size_t>(y) * static_cast<size_t>(old.width);
        memcpy(screen.back + static_cast<size_t>(y) * static_cast<size_t>(width), from,
               static_cast<size_t>(columns) * sizeof(tb_cell));
    }
    return true;
}

struct tb_cap {
    const char *text;
    size_t length;
};

// The terminfo strings in use, in the order of cap_names.
enum tb_cap_index : int {
    CAP_SMCUP,
    CAP_RMCUP,
    CAP_CNORM,
    CAP_CIVIS,
    CAP_CLEAR,
    CAP_SGR0,
    CAP_SMUL,
    CAP_BOLD,
    CAP_BLINK,
    CAP_SITM,
    CAP_REV,
    CAP_SMKX,
    CAP_RMKX,
    CAP_COUNT
};

// A name that the real library has.
constexpr int TB_CAP_HIDE_CURSOR = CAP_CIVIS;

struct tb_caps {
    tb_cap caps[CAP_COUNT];
    size_t attributes_max; // bytes of the longest change of attributes
    char *block;           // owns the texts; null when they are built in

    // As in the real library.
    const char *operator[](int index) const { return caps[index].text; }
};

struct tb_cursor {
    int x, y;
    bool visible;
};

struct tb_global {
    bool initialised;
    int tty;
    int resize_pipe[2];
    termios found; // the terminal's settings before ours
    int (*hook)(tb_event *, size_t *);
    tb_screen screen;
    tb_caps caps;
    tb_bytes in;
    tb_bytes out;     // empty between calls
    tb_cursor cursor; // as the program wants it
    int cursor_shown; // as the terminal has it: 0 or 1, or -1 when that is not certain
    int pen_x, pen_y; // where the terminal's cursor stands; pen_x is -1 when that is not certain
    uintattr_t pen_fg, pen_bg;
};

tb_global global;

} // namespace
