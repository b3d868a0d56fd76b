#include "tui/display.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include "dep/termbox.h"
#include "dep/ubox.h"
#include "link/clock.h"
#include "link/connection.h"
#include "tui/output/picture.h"
#include "tui/settings.h"
#include "tui/termbox.h"

namespace {

// How long the end of a session waits for a terminal that takes nothing, all in all.
constexpr int STOP_PATIENCE_MS = 1000;
// What the restoring sequences may take after that.
constexpr int RESTORE_PATIENCE_MS = 200;

// Bytes that a serial line may have waiting when the next picture is made, so that a key's echo
// does not wait behind old ones; and how often it is looked at.
constexpr int LINE_WAITING_MAX = 128;
constexpr int LINE_LOOK_MS = 5;

struct Display {
    const char *path; // of the terminal; not owned
    ustream_fd output;
    bool output_open; // output has a descriptor
    bool stopping;    // the stream is freed: bytes are written to its descriptor directly
    bool present_due;
    uloop_timeout present_timer;
    Cursor cursor;
    KeyModes wanted_modes;
    KeyModes terminal_modes;
};
Display display;

// Takes bytes for the terminal; false when memory is too short for them.
bool send(const char *bytes, size_t count);

void write_text(const char *text)
{
    (void)send(text, strlen(text)); // where this is lost, so is the picture behind it
}

void send_modes(const KeyModes &modes)
{
    if (modes.cursor_keys != display.terminal_modes.cursor_keys) {
        write_text(modes.cursor_keys ? "\033[?1h" : "\033[?1l");
    }
    if (modes.keypad != display.terminal_modes.keypad) {
        write_text(modes.keypad ? "\033=" : "\033>");
    }
    if (modes.paste != display.terminal_modes.paste) {
        write_text(modes.paste ? "\033[?2004h" : "\033[?2004l");
    }
    display.terminal_modes = modes;
}

bool output_is_idle()
{
    return display.output.stream.w.data_bytes == 0;
}

// A serial line tells what it has not sent yet; a pseudo-terminal says that there is nothing.
bool line_is_behind()
{
    int waiting = 0;
    return ioctl(display.output.fd.fd, TIOCOUTQ, &waiting) == 0 && waiting > LINE_WAITING_MAX;
}

void present_now()
{
    if (!display.present_due || !output_is_idle()) {
        return;
    }
    if (line_is_behind()) {
        uloop_timeout_set(&display.present_timer, LINE_LOOK_MS);
        return;
    }
    display.present_due = false;
    send_modes(display.wanted_modes);
    Cursor drawn = display.cursor;
    drawn.shown = display.cursor.shown || !tui_can_hide_cursor();
    if (drawn.shown) {
        tb_set_cursor(display.cursor.x, display.cursor.y);
    } else {
        tb_hide_cursor();
    }
    picture_present(drawn);
}

void on_present_timer(uloop_timeout *)
{
    present_now();
}

void on_output_written(ustream *, int)
{
    present_now();
}

void on_output_state(ustream *stream)
{
    if (stream->write_error) {
        connection_quit(zorvad); // the terminal is gone
    }
}

void ignore_data(ustream *, int) {}

int open_output(const char *path)
{
    const int descriptor = open(path, O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        return -1;
    }
    ustream &stream = display.output.stream;
    stream.notify_read = ignore_data;
    stream.notify_write = on_output_written;
    stream.notify_state = on_output_state;
    stream.string_data = true;
    stream.w.buffer_len = STREAM_BUFFER;
    ustream_fd_init(&display.output, descriptor);
    ustream_set_read_blocked(&stream, true);
    display.output_open = true;
    display.stopping = false;
    return 0;
}

void close_output()
{
    if (!display.stopping) {
        ustream_free(&display.output.stream);
    }
    close(display.output.fd.fd);
    display.output_open = false;
}

// Waits until the terminal takes something (or is gone) or the time has come; false in that case.
bool wait_for_room(int64_t give_up)
{
    pollfd room = {display.output.fd.fd, POLLOUT, 0};
    int64_t left = give_up - monotonic_ms();
    while (left > 0) {
        if (poll(&room, 1, static_cast<int>(left)) > 0) {
            return true;
        }
        left = give_up - monotonic_ms();
    }
    return false;
}

// Drops what is pending (a picture that would be cleared at once), so that what follows is written
// directly. The loop is not run for it: this may be called from the loop, and a loop within the
// loop would lose a signal.
void leave_stream()
{
    if (!output_is_idle() && !wait_for_room(monotonic_ms() + STOP_PATIENCE_MS)) {
        tcflush(display.output.fd.fd, TCOFLUSH);
    }
    ustream_free(&display.output.stream);
    display.stopping = true;
}

// Restoring the settings waits until all is sent, and a stopped line never sends anything.
void wait_until_sent(int64_t give_up)
{
    int left = 0;
    while (ioctl(display.output.fd.fd, TIOCOUTQ, &left) == 0 && left > 0) {
        if (monotonic_ms() >= give_up) {
            tcflush(display.output.fd.fd, TCOFLUSH);
            return;
        }
        (void)poll(nullptr, 0, 5);
    }
}

// As much as the terminal takes in a short time; the rest is lost.
void write_last_words(const char *bytes, size_t count)
{
    const int64_t give_up = monotonic_ms() + RESTORE_PATIENCE_MS;
    while (count > 0) {
        const ssize_t written = write(display.output.fd.fd, bytes, count);
        if (written > 0) {
            bytes += written;
            count -= static_cast<size_t>(written);
        } else if ((errno != EAGAIN && errno != EINTR) || !wait_for_room(give_up)) {
            return;
        }
    }
    wait_until_sent(give_up);
}

// termbox2 also writes to its resize pipe, from a signal handler.
bool is_terminal(int descriptor)
{
    struct stat status;
    return fstat(descriptor, &status) == 0 && S_ISCHR(status.st_mode);
}

bool send(const char *bytes, size_t count)
{
    if (display.stopping) {
        write_last_words(bytes, count);
        return true;
    }
    const int queued = ustream_write(&display.output.stream, bytes, static_cast<int>(count), false);
    return display.output.stream.write_error || queued == static_cast<int>(count);
}

} // namespace

int display_start(const char *path)
{
    display.path = path;
    if (open_output(path) != 0) {
        return -1;
    }
    display.present_timer.cb = on_present_timer;
    picture_start(getenv("TERM"), send);
    const int result = tb_init_file(path);
    if (result != TB_OK) {
        close_output();
        return result;
    }
    // termbox2 sets the modes of cursor keys and keypad.
    display.terminal_modes = {true, true, false};
    send_modes({});
    return result;
}

int display_restart()
{
    return display_start(display.path);
}

void display_stop()
{
    if (!display.output_open) {
        return;
    }
    uloop_timeout_cancel(&display.present_timer);
    display.present_due = false;
    leave_stream();
    send_modes({});
    tb_shutdown();
    close_output();
}

void display_rescue()
{
    if (display.output_open) {
        write_last_words(DISPLAY_UNDO, sizeof DISPLAY_UNDO - 1);
    }
    settings_rescue();
}

void display_present()
{
    display.present_due = true;
    if (!display.present_timer.pending) {
        uloop_timeout_set(&display.present_timer, 0);
    }
}

void display_set_cursor(int x, int y, bool shown)
{
    display.cursor = {shown, x, y};
}

void display_set_modes(const KeyModes &modes)
{
    display.wanted_modes = modes;
}

ssize_t display_write(int descriptor, const void *bytes, size_t count)
{
    if (!display.output_open || !is_terminal(descriptor)) {
        return write(descriptor, bytes, count);
    }
    // When memory is short termbox2 is told of a failure and paints anew.
    return picture_write(static_cast<const char *>(bytes), count) ? static_cast<ssize_t>(count) : 0;
}
