// The public calls.
#pragma once

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

namespace {

int print(int x, int y, uintattr_t fg, uintattr_t bg, const char *text)
{
    if (x < 0 || y < 0 || x >= global.screen.width || y >= global.screen.height) {
        return TB_ERR_OUT_OF_BOUNDS;
    }
    size_t left = strlen(text);
    for (int column = x; left > 0;) {
        uint32_t ch = REPLACEMENT;
        size_t used = utf8_decode(text, left, ch);
        if (used == 0) {
            used = 1; // cut short by the end of the text
        }
        text += used;
        left -= used;
        if (ch == '\n') {
            column = x;
            y++;
            continue;
        }
        tb_glyph glyph = glyph_of(ch);
        if (glyph.combining) {
            return TB_ERR;
        }
        (void)tb_set_cell(column, y, glyph.ch, fg, bg); // what lies off the screen is dropped
        if (column < global.screen.width) {
            column += glyph.columns;
        }
    }
    return TB_OK;
}

} // namespace

extern "C" {

int tb_init_file(const char *path)
{
    return global.initialised ? TB_ERR_INIT_ALREADY : start(path);
}

int tb_shutdown(void)
{
    return global.initialised ? stop() : TB_ERR_NOT_INIT;
}

int tb_width(void)
{
    return global.initialised ? global.screen.width : TB_ERR_NOT_INIT;
}

int tb_height(void)
{
    return global.initialised ? global.screen.height : TB_ERR_NOT_INIT;
}

int tb_present(void)
{
    return global.initialised ? present() : TB_ERR_NOT_INIT;
}

int tb_set_cursor(int x, int y)
{
    global.cursor = {x > 0 ? x : 0, y > 0 ? y : 0, true};
    return TB_OK;
}

int tb_hide_cursor(void)
{
    global.cursor.visible = false;
    return TB_OK;
}

int tb_set_cell(int x, int y, uint32_t ch, uintattr_t fg, uintattr_t bg)
{
    tb_screen &screen = global.screen;
    if (x < 0 || y < 0 || x >= screen.width || y >= screen.height) {
        return TB_ERR_OUT_OF_BOUNDS;
    }
    size_t row = static_cast<size_t>(y) * static_cast<size_t>(screen.width);
    tb_cell &cell = screen.back[row + static_cast<size_t>(x)];
    tb_cell wanted = {ch == COVERED ? REPLACEMENT : ch, fg, bg}; // nothing is covered in there
    if (!same_cell(cell, wanted)) {
        cell = wanted;
        screen.touched[y] = 1;
    }
    return TB_OK;
}

int tb_set_cell_ex(int x, int y, uint32_t *ch, size_t, uintattr_t fg, uintattr_t bg)
{
    return tb_set_cell(x, y, ch ? *ch : 0, fg, bg);
}

int tb_get_cell(int x, int y, int back, struct tb_cell **cell)
{
    tb_screen &screen = global.screen;
    if (x < 0 || y < 0 || x >= screen.width || y >= screen.height) {
        return TB_ERR_OUT_OF_BOUNDS;
    }
    size_t row = static_cast<size_t>(y) * static_cast<size_t>(screen.width);
    *cell = (back ? screen.back : screen.front) + row + static_cast<size_t>(x);
    screen.touched[y] = 1;
    return TB_OK;
}

int tb_printf(int x, int y, uintattr_t fg, uintattr_t bg, const char *format, ...)
{
    char text[TB_OPT_PRINTF_BUF];
    va_list arguments;
    va_start(arguments, format);
    int length = vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    if (length < 0 || static_cast<size_t>(length) >= sizeof(text)) {
        return TB_ERR;
    }
    return print(x, y, fg, bg, text);
}

int tb_set_output_mode(int mode)
{
    return mode == TB_OUTPUT_NORMAL ? TB_OK : TB_ERR;
}

int tb_peek_event(struct tb_event *event, int)
{
    return global.initialised ? next_event(*event) : TB_ERR_NOT_INIT;
}

int tb_get_fds(int *tty, int *resize)
{
    if (!global.initialised) {
        return TB_ERR_NOT_INIT;
    }
    *tty = global.tty;
    *resize = global.resize_pipe[0];
    return TB_OK;
}

int tb_set_func(int which, int (*hook)(struct tb_event *event, size_t *consumed))
{
    if (!global.initialised) {
        return TB_ERR_NOT_INIT;
    }
    if (which != TB_FUNC_EXTRACT_PRE) {
        return TB_ERR;
    }
    global.hook = hook;
    return TB_OK;
}

} // extern "C"
