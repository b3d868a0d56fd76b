#include "tui/settings.h"

#include "front/terminal.h"

namespace {

struct Settings {
    volatile bool taken;
    int terminal;
    termios found;
    termios own;
};
Settings termbox;

} // namespace

int settings_set(int terminal, int, const termios *settings)
{
    if (termbox.taken) {
        termbox.taken = false;
        give_terminal_back(terminal, *settings, termbox.own);
        return 0;
    }
    termbox.terminal = terminal;
    termbox.own = *settings;
    if (tcgetattr(terminal, &termbox.found) != 0 || set_terminal(terminal, *settings) != 0) {
        return -1;
    }
    termbox.taken = true;
    return 0;
}

void settings_rescue()
{
    if (termbox.taken) {
        termbox.taken = false;
        give_terminal_back(termbox.terminal, termbox.found, termbox.own);
    }
}
