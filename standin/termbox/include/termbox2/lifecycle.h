// Taking the terminal over and giving it back.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

namespace {

void on_window_change(int signal_number)
{
    int saved = errno;
    // A full pipe already says that the size changed.
    (void)!write(global.resize_pipe[1], &signal_number, sizeof(signal_number));
    errno = saved;
}

void set_window_change(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    (void)sigaction(SIGWINCH, &action, nullptr); // cannot fail: the signal and handler are valid
}

int open_resize_pipe()
{
    if (pipe(global.resize_pipe) < 0) {
        return TB_ERR_RESIZE_PIPE;
    }
    for (int fd : global.resize_pipe) {
        // A storm of signals must not block in the handler.
        if (fcntl(fd, F_SETFL, O_NONBLOCK) < 0 || fcntl(fd, F_SETFD, FD_CLOEXEC) < 0) {
            return TB_ERR_RESIZE_PIPE;
        }
    }
    return TB_OK;
}

int enter_raw_mode()
{
    termios raw = global.found;
    cfmakeraw(&raw);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    return tcsetattr(global.tty, TCSAFLUSH, &raw) < 0 ? TB_ERR_TCSETATTR : TB_OK;
}

constexpr char MOUSE_OFF[] = "\033[?1006l\033[?1015l\033[?1002l\033[?1000l";

// Everything that has to be there before the terminal is touched.
int prepare(const char *path)
{
    global.tty = open(path, O_RDWR | O_CLOEXEC);
    if (global.tty < 0) {
        return TB_ERR_INIT_OPEN;
    }
    if (tcgetattr(global.tty, &global.found) < 0) {
        return TB_ERR_TCGETATTR;
    }
    int result = caps_load(global.caps, global.tty);
    if (result != TB_OK) {
        return result;
    }
    int width = 0, height = 0;
    result = terminal_size(width, height);
    if (result != TB_OK) {
        return result;
    }
    size_t sequences = sizeof(MOUSE_OFF);
    for (const tb_cap &cap : global.caps.caps) {
        sequences += cap.length;
    }
    if (!bytes_reserve(global.out, sequences) || !bytes_reserve(global.in, TB_OPT_READ_BUF) ||
        !screen_make(global.screen, width, height, {})) {
        return TB_ERR_MEM;
    }
    return open_resize_pipe();
}

int enter()
{
    int result = enter_raw_mode();
    if (result != TB_OK) {
        return result;
    }
    set_window_change(on_window_change);
    out_cap(CAP_SMCUP);
    out_cap(CAP_SMKX);
    out_cap(CAP_CIVIS);
    out_clear();
    result = out_flush();
    if (result != TB_OK) {
        set_window_change(SIG_DFL);
        (void)tcsetattr(global.tty, TCSAFLUSH, &global.found); // the first error is reported
    }
    return result;
}

void close_if_open(int fd)
{
    if (fd >= 0) {
        (void)close(fd); // nothing is left to be written
    }
}

void release()
{
    close_if_open(global.tty);
    close_if_open(global.resize_pipe[0]);
    close_if_open(global.resize_pipe[1]);
    free(global.screen.back);
    free(global.caps.block);
    bytes_free(global.in);
    bytes_free(global.out);
    global = {};
}

int start(const char *path)
{
    global.tty = global.resize_pipe[0] = global.resize_pipe[1] = -1;
    int result = prepare(path);
    if (result == TB_OK) {
        result = enter();
    }
    if (result != TB_OK) {
        release();
    } else {
        global.initialised = true;
    }
    return result;
}

int stop()
{
    global.out.len = 0;
    out_cap(CAP_CNORM);
    out_cap(CAP_SGR0);
    out_cap(CAP_CLEAR);
    out_cap(CAP_RMCUP);
    out_cap(CAP_RMKX);
    out_bytes(MOUSE_OFF, sizeof(MOUSE_OFF) - 1);
    int result = out_flush();
    if (tcsetattr(global.tty, TCSAFLUSH, &global.found) < 0 && result == TB_OK) {
        result = TB_ERR_TCSETATTR;
    }
    set_window_change(SIG_DFL);
    release();
    return result;
}

} // namespace
