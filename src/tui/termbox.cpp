// The one unit that holds termbox2's implementation, and what needs its input buffer.

#include "tui/termbox.h"

#include <algorithm>
#include <string.h>
#include <string_view>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "tui/settings.h"
#include "tui/widget/layout.h"

namespace {

// The input bytes that the event being fetched may be made from.
struct Fetched {
    KeyBytes front;   // the first of them: those left over, then those read now
    size_t available; // how many there are in all
};
Fetched fetched;

void add_available(const char *bytes, size_t count)
{
    const size_t copied = std::min(count, sizeof fetched.front.bytes - fetched.front.length);
    memcpy(fetched.front.bytes + fetched.front.length, bytes, copied);
    fetched.front.length += copied;
    fetched.available += count;
}

// Stands for read() in termbox2.
ssize_t observed_read(int descriptor, void *bytes, size_t count);

// Stands for ioctl() in termbox2, which only asks it for the window's size. A terminal may claim
// 65535 x 65535, and termbox2 takes memory for each of the cells, twice.
int bounded_window_size(int descriptor, unsigned long, winsize *size)
{
    const int result = ioctl(descriptor, TIOCGWINSZ, size);
    if (result == 0) {
        size->ws_row = std::min<unsigned short>(size->ws_row, SCREEN_MAX_ROWS);
        size->ws_col = std::min<unsigned short>(size->ws_col, SCREEN_MAX_COLS);
    }
    return result;
}

} // namespace

#define TB_IMPL
#define ioctl bounded_window_size
#define read observed_read
#define write display_write
#define tcsetattr settings_set
#include "dep/termbox.h"
#undef ioctl
#undef read
#undef write
#undef tcsetattr

namespace {

ssize_t observed_read(int descriptor, void *bytes, size_t count)
{
    int terminal = -1;
    int resize_pipe = -1;
    (void)tb_get_fds(&terminal, &resize_pipe);
    const ssize_t length = read(descriptor, bytes, count);
    if (length > 0 && descriptor == terminal) {
        add_available(static_cast<const char *>(bytes), static_cast<size_t>(length));
    }
    return length;
}

tb_cell *first_cell(int y, int back)
{
    tb_cell *cell = nullptr;
    return tb_get_cell(0, y, back, &cell) == TB_OK ? cell : nullptr;
}

} // namespace

UnparsedInput tui_unparsed_input()
{
    return {global.in.buf, global.in.len};
}

bool tui_can_hide_cursor()
{
    const char *hide = global.caps[TB_CAP_HIDE_CURSOR];
    return hide != nullptr && *hide != '\0';
}

bool tui_next_event(tb_event *event, KeyBytes *bytes)
{
    const UnparsedInput left = tui_unparsed_input();
    fetched.front.length = 0;
    fetched.available = 0;
    if (left.length > 0) {
        add_available(left.bytes, left.length);
    }
    if (tb_peek_event(event, 0) != TB_OK) {
        return false;
    }
    *bytes = fetched.front;
    bytes->length = std::min(fetched.front.length, fetched.available - tui_unparsed_input().length);
    return true;
}

tb_cell *tui_front_row(int y)
{
    return first_cell(y, 0);
}

tb_cell *tui_back_row(int y)
{
    return first_cell(y, 1);
}
