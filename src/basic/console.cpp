#include "basic/console.h"

#include <fcntl.h>
#include <initializer_list>
#include <poll.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include "front/terminal.h"
#include "link/connection.h"

ustream_fd stdout_stream;
ustream_fd stdin_stream;
InputHook input_hook;
ReadGate typed_input;

namespace {

struct Console {
    bool is_terminal; // standard input is one
    volatile bool is_raw;
    volatile bool has_flags; // the descriptors do not block
    termios saved_termios;
    termios raw_termios;
    int saved_flags[2];       // of descriptors 0 and 1; -1 for a closed one
    ReadGate *script_output;  // while a power menu is open
    uloop_timeout first_read; // of an input that the loop cannot watch
};
Console console;

void ignore_data(ustream *, int) {}

void set_raw_mode(int (*set)(int terminal, const termios &settings))
{
    if (!console.is_terminal) {
        return;
    }
    termios &raw = console.raw_termios;
    raw = console.saved_termios;
    raw.c_iflag &= ~static_cast<tcflag_t>(ICRNL | IXON);
    raw.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    raw.c_lflag &= ~static_cast<tcflag_t>(ISIG | ICANON | ECHO | IEXTEN);
    raw.c_cc[VMIN] = 0;
    raw.c_cc[VTIME] = 1;
    console.is_raw = true;
    (void)set(STDIN_FILENO, raw); // where it fails, the session goes on without
}

void on_stdout_written(ustream *stream, int)
{
    if (stream->w.data_bytes > SHOWN_RESUME) {
        return;
    }
    read_gate_release(zorvad.port_output, HOLD_SINK);
    read_gate_release(typed_input, HOLD_ECHO);
    if (console.script_output != nullptr) {
        read_gate_release(*console.script_output, HOLD_SINK);
    }
}

// An error means that nobody reads what the client prints any more.
void on_stdout_state(ustream *stream)
{
    if (stream->write_error) {
        connection_quit(zorvad);
    }
}

// Whether the terminal is still there at what looks like the end of input: where somebody has taken
// its O_NONBLOCK away, a read returns 0 when nothing was typed for a while (VTIME).
bool terminal_goes_on()
{
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    char nothing;
    return console.is_terminal && poll(&input, 1, 0) >= 0 &&
           (input.revents & (POLLHUP | POLLERR | POLLNVAL)) == 0 &&
           read(STDIN_FILENO, &nothing, 0) == 0;
}

void basic_stdin_state_cb(ustream *stream)
{
    // A pipe whose writer has gone may show as an error; reading tells the end of input.
    if (!stream->eof && stream->write_error) {
        read_gate_poll(typed_input);
    }
    if (stream->eof && terminal_goes_on()) {
        stream->eof = false;
        console_take_flags();
        read_gate_hold(typed_input, HOLD_TURN); // the release has the loop watch the terminal anew
        read_gate_release(typed_input, HOLD_TURN);
    } else if (stream->eof) {
        connection_quit(zorvad);
    }
}

void on_port_drained()
{
    read_gate_release(typed_input, HOLD_SINK);
}

// A file, which the loop cannot watch, is read as soon as the loop runs.
void read_unwatched_input(uloop_timeout *)
{
    if (!stdin_stream.fd.registered) {
        read_gate_poll(typed_input);
    }
}

// Nothing more is written to the terminal, what waits is dropped. A pipe is written to all the
// same.
void leave_to_other_job()
{
    if (isatty(STDOUT_FILENO)) {
        stdout_stream.stream.write_error = true;
    } else {
        fcntl(STDOUT_FILENO, F_SETFL, console.saved_flags[STDOUT_FILENO] | O_NONBLOCK);
        console.has_flags = true;
    }
    read_gate_release(zorvad.port_output, HOLD_AWAY);
}

void set_buffers(ustream &stream)
{
    stream.string_data = true;
    stream.r.buffer_len = STREAM_BUFFER;
    stream.w.buffer_len = STREAM_BUFFER;
}

} // namespace

void basic_streams_init()
{
    console.saved_flags[0] = fcntl(STDIN_FILENO, F_GETFL);
    console.saved_flags[1] = fcntl(STDOUT_FILENO, F_GETFL);
    console.has_flags = true; // the streams set them

    ustream &out = stdout_stream.stream;
    out.notify_read = ignore_data;
    out.notify_write = on_stdout_written;
    out.notify_state = on_stdout_state;
    set_buffers(out);
    ustream_fd_init(&stdout_stream, STDOUT_FILENO);
    ustream_set_read_blocked(&out, true);

    ustream &in = stdin_stream.stream;
    set_buffers(in);
    in.notify_read = basic_stdin_read_cb;
    in.notify_write = ignore_data;
    in.notify_state = basic_stdin_state_cb;
    ustream_fd_init(&stdin_stream, STDIN_FILENO);

    read_gate_init(typed_input, stdin_stream);
    zorvad.on_port_drained = on_port_drained;
    console.first_read.cb = read_unwatched_input;
    uloop_timeout_set(&console.first_read, 0);
}

void basic_output_sink(const char *bytes, int32_t length)
{
    (void)ustream_write(&stdout_stream.stream, bytes, length, false); // on_stdout_state sees errors
    console_hold_when_full(zorvad.port_output);
}

void console_print(const char *text)
{
    (void)ustream_write(&stdout_stream.stream, text, static_cast<int>(strlen(text)), false);
}

bool console_is_stuck()
{
    return stdout_stream.stream.w.data_bytes > ANSWERS_LIMIT;
}

void basic_raw_mode()
{
    console.is_terminal = tcgetattr(STDIN_FILENO, &console.saved_termios) == 0;
    atexit(basic_restore_terminal);
    set_raw_mode(set_terminal);
}

void basic_suspend_terminal()
{
    // What was due already would come before the signals that are waiting: a read would block, on
    // the settings of somebody else, and port output would go to their screen.
    for (ReadGate *gate : {&typed_input, &zorvad.port_output, console.script_output}) {
        if (gate != nullptr) {
            read_gate_hold(*gate, HOLD_AWAY);
        }
    }
    basic_restore_terminal();
}

void basic_resume_terminal()
{
    console_take_flags();
    set_raw_mode([](int terminal, const termios &raw) {
        return tcsetattr(terminal, TCSANOW, &raw); // keys typed meanwhile are meant for the port
    });
    for (ReadGate *gate : {&typed_input, &zorvad.port_output, console.script_output}) {
        if (gate != nullptr) {
            read_gate_release(*gate, HOLD_AWAY);
        }
    }
}

void basic_restore_terminal()
{
    for (int descriptor : {STDIN_FILENO, STDOUT_FILENO}) {
        if (console.has_flags && console.saved_flags[descriptor] >= 0) {
            fcntl(descriptor, F_SETFL, console.saved_flags[descriptor]);
        }
    }
    console.has_flags = false;
    if (console.is_raw) {
        console.is_raw = false;
        give_terminal_back(STDIN_FILENO, console.saved_termios, console.raw_termios);
    }
}

void console_take_flags()
{
    console.has_flags = true;
    for (int descriptor : {STDIN_FILENO, STDOUT_FILENO}) {
        const int flags = fcntl(descriptor, F_GETFL);
        if (flags >= 0 && (flags & O_NONBLOCK) == 0) {
            fcntl(descriptor, F_SETFL, flags | O_NONBLOCK);
        }
    }
}

void console_hold_when_full(ReadGate &gate)
{
    if (stdout_stream.stream.w.data_bytes > SHOWN_LIMIT) {
        read_gate_hold(gate, HOLD_SINK);
    }
}

void console_set_script_output(ReadGate *gate)
{
    console.script_output = gate;
}

void console_stop_sources()
{
    if (!console.has_flags || is_another_jobs(STDIN_FILENO)) {
        leave_to_other_job();
    } else if (!zorvad.hung_up) {
        read_gate_poll(typed_input); // keys typed before a signal may not have been read yet
    }
    read_gate_hold(typed_input, HOLD_END);
    if (console.script_output != nullptr) {
        read_gate_hold(*console.script_output, HOLD_END);
    }
}
