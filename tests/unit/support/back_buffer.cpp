#include "unit/support/back_buffer.h"

#include <cstdlib>
#include <stdexcept>

#include <pty.h>
#include <unistd.h>

#include "dep/ubox.h"
#include "tui/display.h"

BackBuffer::BackBuffer(int columns, int rows)
{
    winsize size{};
    size.ws_col = static_cast<unsigned short>(columns);
    size.ws_row = static_cast<unsigned short>(rows);
    int user_side = -1;
    char path[64];
    if (openpty(&terminal, &user_side, path, nullptr, &size) != 0) {
        throw std::runtime_error("no pty");
    }
    setenv("TERM", "xterm", 1);
    uloop_init();
    const int result = display_start(path);
    close(user_side);
    if (result != 0) {
        throw std::runtime_error("termbox2 does not start");
    }
}

BackBuffer::~BackBuffer()
{
    display_stop();
    close(terminal);
}

tb_cell BackBuffer::cell(int x, int y) const
{
    tb_cell *found = nullptr;
    if (tb_get_cell(x, y, 1, &found) != TB_OK) {
        throw std::out_of_range("no such cell");
    }
    return *found;
}

std::string BackBuffer::text(int x0, int x1, int y) const
{
    std::string result;
    for (int x = x0; x < x1; x++) {
        const uint32_t ch = cell(x, y).ch;
        result += ch < 0x80 ? static_cast<char>(ch) : '#';
    }
    return result;
}

std::string BackBuffer::row(int y) const
{
    std::string result = text(0, tb_width(), y);
    result.erase(result.find_last_not_of(' ') + 1);
    return result;
}
