// Fuzz entry: a port's output through the guard, libvterm and painting, with resizes in between.
//
// The input is the port's output as it is, but for two bytes that UTF-8 never uses:
//   0xfe             the chunk ends here
//   0xff rows cols   the chunk ends here and the widget gets a new size (two signed bytes
//                    modulo 32: small screens are quick and have as many edges)
//
// libvterm itself should be built with the sanitizers too, or only crashes are found.
#include <cstdlib>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "fuzz/front_end.h"
#include "tui/display.h"
#include "tui/term_widget.h"
#include "unit/support/back_buffer.h"

namespace {

constexpr int SIZES = 32;

// The sizes go beyond the terminal as well, as they do until it has told its new one.
struct Terminal {
    Connected daemon;
    BackBuffer screen{24, 20};

    Terminal() { fcntl(screen.terminal, F_SETFL, O_NONBLOCK); }
};

void check(Widget *widget)
{
    auto &context = *static_cast<TermContext *>(widget->priv);
    int rows = 0;
    int cols = 0;
    VTermPos cursor = {};
    vterm_get_size(context.vt, &rows, &cols);
    vterm_state_get_cursorpos(vterm_obtain_state(context.vt), &cursor);
    if (cursor.row < 0 || cursor.row >= rows || cursor.col < 0 || cursor.col >= cols) {
        abort();
    }
}

void show(Widget *widget, int terminal)
{
    widget->feed("", 0, widget);
    display_present();
    uloop_run_timeout(0);
    discard(terminal);
}

void feed(Widget *widget, const uint8_t *begin, const uint8_t *end)
{
    // A copy of exactly these bytes, so that a read beyond them is seen.
    const std::vector<char> bytes(begin, end);
    widget->feed(bytes.data(), static_cast<int>(bytes.size()), widget);
    check(widget);
}

void resize(Widget *widget, uint8_t rows, uint8_t cols)
{
    widget->resize(0, 0, static_cast<signed char>(cols) % SIZES,
                   static_cast<signed char>(rows) % SIZES, widget);
    check(widget);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static Terminal terminal;
    Widget *widget = term_widget_new(&zorvad, 0, 0, 20, 6);
    const uint8_t *end = data + size;
    const uint8_t *chunk = data;
    for (const uint8_t *at = data; at < end; at++) {
        if (*at < 0xfe) {
            continue;
        }
        feed(widget, chunk, at);
        if (*at == 0xff && end - at > 2) {
            resize(widget, at[1], at[2]);
            at += 2;
        }
        show(widget, terminal.screen.terminal);
        chunk = at + 1;
    }
    feed(widget, chunk, end);
    show(widget, terminal.screen.terminal);
    widget->destroy(widget);
    free(widget);
    return 0;
}
