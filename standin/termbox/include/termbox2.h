// Stand-in for termbox2, used where the real header is not installed: its public names for the
// calls that the program makes, with the same values, results and screen.
//
// Exactly one C++ unit defines TB_IMPL before the inclusion and so gets the implementation (the
// parts below termbox2/, in an unnamed namespace); every other unit gets the declarations. That
// unit may read the input that is not parsed yet: global.in.buf holds global.in.len bytes and a
// NUL. The implementation reaches descriptors by plain calls of write(fd, bytes, count), read(),
// poll() and ioctl(), so that unit may also lay a macro over one of them.
//
// Without a terminal taken by tb_init_file the other calls fail or do nothing.
#ifndef ZORVAD_STANDIN_TERMBOX2_H
#define ZORVAD_STANDIN_TERMBOX2_H

#include <stddef.h>
#include <stdint.h>

#ifndef TB_OPT_ATTR_W
#define TB_OPT_ATTR_W 16
#endif
#if TB_OPT_ATTR_W != 16 || defined(TB_OPT_EGC)
#error "this termbox2 has 16-bit attributes and one code point a cell"
#endif
#ifndef TB_OPT_READ_BUF
#define TB_OPT_READ_BUF 64 // bytes asked for by one read
#endif
#ifndef TB_OPT_PRINTF_BUF
#define TB_OPT_PRINTF_BUF 4096 // bytes of formatted text, with its NUL
#endif

extern "C" {

typedef uint16_t uintattr_t;

// Colours and attributes. A foreground is one colour and any attributes, a background a colour.
constexpr int TB_DEFAULT = 0, TB_BLACK = 1, TB_RED = 2, TB_GREEN = 3, TB_YELLOW = 4, TB_BLUE = 5,
              TB_MAGENTA = 6, TB_CYAN = 7, TB_WHITE = 8;
constexpr int TB_BOLD = 0x0100, TB_UNDERLINE = 0x0200, TB_REVERSE = 0x0400, TB_ITALIC = 0x0800,
              TB_BLINK = 0x1000;

constexpr int TB_EVENT_KEY = 1, TB_EVENT_RESIZE = 2;
constexpr int TB_MOD_CTRL = 2;
constexpr int TB_OUTPUT_NORMAL = 1;
constexpr int TB_FUNC_EXTRACT_PRE = 0;

constexpr int TB_OK = 0, TB_ERR = -1, TB_ERR_NEED_MORE = -2, TB_ERR_INIT_ALREADY = -3,
              TB_ERR_INIT_OPEN = -4, TB_ERR_MEM = -5, TB_ERR_NO_EVENT = -6, TB_ERR_NO_TERM = -7,
              TB_ERR_NOT_INIT = -8, TB_ERR_OUT_OF_BOUNDS = -9, TB_ERR_READ = -10,
              TB_ERR_RESIZE_IOCTL = -11, TB_ERR_RESIZE_PIPE = -12, TB_ERR_POLL = -14,
              TB_ERR_TCGETATTR = -15, TB_ERR_TCSETATTR = -16, TB_ERR_UNSUPPORTED_TERM = -17,
              TB_ERR_RESIZE_READ = -20;

struct tb_cell {
    uint32_t ch;
    uintattr_t fg, bg;
};

// key: a control byte itself (Ctrl-A is 1, DEL 0x7f), ch 0; or ch: a code point, key 0. w and h:
// the new size of a resize.
struct tb_event {
    uint8_t type, mod;
    uint16_t key;
    uint32_t ch;
    int32_t w, h, x, y;
};

// Takes over the terminal at path: raw mode, alternate screen, cleared, cursor hidden. On failure
// everything is as before; TB_ERR_NO_TERM without TERM, TB_ERR_UNSUPPORTED_TERM with one that is
// neither in terminfo nor of a known family.
int tb_init_file(const char *path);
// Gives the terminal back as it was found and frees everything; tb_init_file may follow.
int tb_shutdown(void);

// The size of the cell buffer in cells; it changes only when a resize event is fetched.
int tb_width(void);
int tb_height(void);

// Sends what the terminal does not show yet, in one write; nothing when there is nothing. A write
// error other than a full or interrupted descriptor gives TB_ERR, drops the output and makes the
// next present send the whole screen.
int tb_present(void);

// Both take effect at the next present. Negative positions become 0; no upper limit.
int tb_set_cursor(int x, int y);
int tb_hide_cursor(void);

// Stores into the back buffer. A code point without a glyph (0, controls, unassigned ones) is shown
// as U+FFFD, and a wide one covers its right neighbour whatever that holds; in the last column it
// shows as a blank. tb_set_cell_ex keeps the first code point only, 0 for a null pointer.
int tb_set_cell(int x, int y, uint32_t ch, uintattr_t fg, uintattr_t bg);
int tb_set_cell_ex(int x, int y, uint32_t *ch, size_t count, uintattr_t fg, uintattr_t bg);
// *cell points into the back buffer, or into what the terminal shows when back is 0. A change made
// through it must come before the next present; the pointer dies with the next resize event.
int tb_get_cell(int x, int y, int back, struct tb_cell **cell);

// UTF-8 text into the back buffer; "\n" goes to the next row at column x, bad bytes and other
// controls become U+FFFD, a combining character ends it with TB_ERR, and what lies off the screen
// is dropped. Nothing is drawn of text that does not fit the buffer.
int tb_printf(int x, int y, uintattr_t fg, uintattr_t bg, const char *format, ...)
    __attribute__((format(printf, 5, 6)));

// Only TB_OUTPUT_NORMAL; the input mode is always that in which a lone ESC is a key.
int tb_set_output_mode(int mode);

// One event, from bytes that are left or else from the descriptors; TB_ERR_NO_EVENT when there is
// none. The end of the terminal is TB_ERR_READ. The program never waits: milliseconds is not used.
int tb_peek_event(struct tb_event *event, int milliseconds);
// What to watch for readability: the terminal and the read end of the resize pipe.
int tb_get_fds(int *tty, int *resize);

// Only TB_FUNC_EXTRACT_PRE. The hook sees input that begins with ESC, unless it is one lone ESC.
// TB_OK: the event is its own and *consumed bytes go. TB_ERR_NEED_MORE: asked again once there are
// more bytes. Anything else: the ESC becomes a key.
int tb_set_func(int which, int (*hook)(struct tb_event *event, size_t *consumed));

} // extern "C"

#endif

#if defined(TB_IMPL) && !defined(ZORVAD_STANDIN_TERMBOX2_IMPL)
#define ZORVAD_STANDIN_TERMBOX2_IMPL
#include "termbox2/state.h"
#include "termbox2/caps.h"
#include "termbox2/glyph.h"
#include "termbox2/output.h"
#include "termbox2/input.h"
#include "termbox2/lifecycle.h"
#include "termbox2/calls.h"
#endif
