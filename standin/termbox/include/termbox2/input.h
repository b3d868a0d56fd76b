// Input: bytes of the terminal into events, and the resize that a signal announces.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr char ESCAPE = '\033';

// The whole buffer to the hook.
int ask_hook(tb_event &event)
{
    size_t consumed = 0;
    int result = global.hook(&event, &consumed);
    if (result == TB_OK) {
        bytes_drop(global.in, consumed < global.in.len ? consumed : global.in.len);
    } else {
        event = {};
    }
    return result;
}

// One key from count bytes, 1 or more; returns the bytes used, 0 when more are needed.
size_t decode_key(tb_event &event, const char *bytes, size_t count)
{
    unsigned char first = static_cast<unsigned char>(bytes[0]);
    event.type = TB_EVENT_KEY;
    if (first < 0x20 || first == 0x7f) {
        event.key = first;
        event.mod = first == ESCAPE ? 0 : TB_MOD_CTRL;
        return 1;
    }
    if (utf8_length(first) == 1) {
        event.ch = first & 0x7f;
        return 1;
    }
    return utf8_decode(bytes, count, event.ch);
}

// An event from the bytes held; TB_ERR_NEED_MORE when they are not enough for one.
int extract_event(tb_event &event)
{
    event = {};
    tb_bytes &in = global.in;
    if (in.len == 0) {
        return TB_ERR_NEED_MORE;
    }
    if (in.buf[0] == ESCAPE && in.len > 1 && global.hook) {
        int result = ask_hook(event);
        if (result == TB_OK || result == TB_ERR_NEED_MORE) {
            return result;
        }
    }
    size_t used = decode_key(event, in.buf, in.len);
    bytes_drop(in, used);
    return used == 0 ? TB_ERR_NEED_MORE : TB_OK;
}

int read_input()
{
    if (!bytes_reserve(global.in, TB_OPT_READ_BUF)) {
        return TB_ERR_MEM;
    }
    errno = 0;
    ssize_t count = read(global.tty, global.in.buf + global.in.len, TB_OPT_READ_BUF);
    if (count > 0) {
        global.in.len += static_cast<size_t>(count);
        global.in.buf[global.in.len] = '\0';
        return TB_OK;
    }
    bool nothing_yet = count < 0 && (errno == EINTR || errno == EAGAIN);
    return nothing_yet ? TB_OK : TB_ERR_READ;
}

int terminal_size(int &width, int &height)
{
    winsize size = {};
    if (ioctl(global.tty, TIOCGWINSZ, &size) < 0) {
        return TB_ERR_RESIZE_IOCTL;
    }
    width = size.ws_col;
    height = size.ws_row;
    return TB_OK;
}

// Takes every announcement that has come and resizes once. The old size stays when memory lacks.
int take_resize(tb_event &event)
{
    int announced[64];
    ssize_t count = read(global.resize_pipe[0], announced, sizeof(announced));
    if (count <= 0) {
        return TB_ERR_RESIZE_READ;
    }
    int width = 0, height = 0;
    int result = terminal_size(width, height);
    if (result != TB_OK) {
        return result;
    }
    tb_screen resized = {};
    if (!bytes_reserve(global.out,
                       global.caps.attributes_max + global.caps.caps[CAP_CLEAR].length)) {
        return TB_ERR_MEM;
    }
    if (!screen_make(resized, width, height, global.screen)) {
        return TB_ERR_MEM;
    }
    free(global.screen.back);
    global.screen = resized;
    out_clear();
    result = out_flush();
    if (result != TB_OK) {
        return result;
    }
    event = {};
    event.type = TB_EVENT_RESIZE;
    event.w = width;
    event.h = height;
    return TB_OK;
}

int next_event(tb_event &event)
{
    for (;;) {
        int result = extract_event(event);
        if (result != TB_ERR_NEED_MORE) {
            return result;
        }
        pollfd fds[2] = {{global.tty, POLLIN, 0}, {global.resize_pipe[0], POLLIN, 0}};
        int ready = poll(fds, 2, 0);
        if (ready <= 0) {
            return ready < 0 ? TB_ERR_POLL : TB_ERR_NO_EVENT;
        }
        if (!fds[0].revents) {
            return take_resize(event);
        }
        result = read_input();
        if (result != TB_OK) {
            return result;
        }
    }
}

} // namespace
