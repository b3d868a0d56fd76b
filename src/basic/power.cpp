#include "basic/power.h"

#include <fcntl.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "basic/console.h"
#include "dep/trell.h"
#include "link/connection.h"
#include "link/owned.h"
#include "link/signal_pipe.h"

namespace {

constexpr char POWER_SCRIPT[] = "/bin/rpc-cmd.js";
// Script output read after its end: what a pipe holds at most, as a grandchild may go on writing.
constexpr int SCRIPT_REST = 1024 * 1024;

pid_t power_pid = -1;
ustream_fd power_in;
ustream_fd power_out;
ReadGate script_output;

void ignore_data(ustream *, int) {}
void ignore_state(ustream *) {}

// The next chunk that the script does not take has the keyboard held again.
void on_script_input_written(ustream *stream, int)
{
    if (stream->w.data_bytes <= TYPED_RESUME) {
        read_gate_release(typed_input, HOLD_SCRIPT);
    }
}

// The script has closed its input: what was typed for it went nowhere.
void on_script_input_state(ustream *stream)
{
    if (stream->write_error) {
        read_gate_release(typed_input, HOLD_SCRIPT);
    }
}

pid_t start_script(int &in, int &out)
{
    const StringList arguments(_sl_new(POWER_SCRIPT));
    if (!arguments || !sl_appendn(arguments.get(), zorvad.outlets, zorvad.outlet_count)) {
        errno = ENOMEM;
        return -1;
    }
    const char *const environment[] = {"OUTPUT_PREFIX", "POWER>", nullptr};
    return process_spawn_pipe(arguments.get(), environment, nullptr, &in, &out, nullptr);
}

void open_streams(int in, int out)
{
    ustream &input = power_in.stream;
    input.notify_read = ignore_data;
    input.notify_write = on_script_input_written;
    input.notify_state = on_script_input_state;
    input.string_data = true;
    ustream_fd_init(&power_in, in);
    ustream_set_read_blocked(&input, true);

    ustream &output = power_out.stream;
    output.notify_read = power_output_cb;
    output.notify_write = ignore_data;
    output.notify_state = ignore_state;
    output.string_data = true;
    script_output = ReadGate{};
    read_gate_init(script_output, power_out);
    ustream_fd_init(&power_out, out);
    console_set_script_output(&script_output);
}

// What the script wrote before it ended, until its pipe would block: a grandchild may keep the
// other end open.
void show_rest_of_output()
{
    ustream &output = power_out.stream;
    for (int shown = 0; shown < SCRIPT_REST && !output.eof;) {
        char chunk[4096];
        const ssize_t length = read(power_out.fd.fd, chunk, sizeof chunk);
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length <= 0) {
            return;
        }
        (void)ustream_write(&stdout_stream.stream, chunk, static_cast<int>(length), false);
        shown += static_cast<int>(length);
    }
}

void close_menu()
{
    show_rest_of_output();
    input_hook = nullptr;
    console_set_script_output(nullptr);
    uloop_timeout_cancel(&script_output.next_turn);
    ustream_free(&power_in.stream);
    ustream_free(&power_out.stream);
    close(power_in.fd.fd);
    close(power_out.fd.fd);
    power_pid = -1;
    read_gate_release(typed_input, HOLD_SCRIPT);
    read_gate_release(typed_input, HOLD_ECHO);
    console_take_flags(); // the script may have changed those of its standard error, the same ones
    console_print("=== Exited Power Menu ===\r\n\r\n");
}

} // namespace

void power_menu_open()
{
    if (power_pid != -1) {
        return;
    }
    if (zorvad.outlets == nullptr) {
        console_print("\r\n\r\nError: No outlets available\r\n\r\n");
        return;
    }
    int in = 0;
    int out = 0;
    const pid_t pid = start_script(in, out);
    if (pid < 0) {
        ulog(LOG_ERR, "Could not start %s: %s\n", POWER_SCRIPT, strerror(errno));
        console_print("\r\n\r\nError: Could not start the power menu\r\n\r\n");
        return;
    }
    open_streams(in, out);
    console_print("\r\n\r\n=== Entering Power Menu ===\r\n");
    power_pid = pid;
    input_hook = power_input_hook;
}

void power_input_hook(const char *chunk, int32_t)
{
    const int length = static_cast<int>(strlen(chunk));
    ustream &script = power_in.stream;
    ustream &out = stdout_stream.stream;
    (void)ustream_write(&script, chunk, length, false); // a script that reads no more ignores it
    (void)ustream_write(&out, chunk, length, false);
    if (strchr(chunk, '\r') != nullptr) {
        (void)ustream_write(&script, "\n", 1, false);
        (void)ustream_write(&out, "\n", 1, false);
    }
    if (script.w.data_bytes > TYPED_LIMIT && !script.write_error) {
        read_gate_hold(typed_input, HOLD_SCRIPT);
    }
    if (out.w.data_bytes > ANSWERS_LIMIT) {
        read_gate_hold(typed_input, HOLD_ECHO);
    }
}

void power_output_cb(ustream *stream, int)
{
    read_gate_enter(script_output);
    int length = 0;
    console_take_flags();
    while (const char *chunk = ustream_get_read_buf(stream, &length)) {
        (void)ustream_write(&stdout_stream.stream, chunk, length, false);
        ustream_consume(stream, length);
        read_gate_count(script_output, length);
        console_hold_when_full(script_output);
    }
}

void power_sigchld_handler(int signal_number)
{
    signal_pipe_notify(signal_number);
}

void power_reap_children()
{
    int status;
    pid_t pid;
    while ((pid = waitpid(-1, &status, WNOHANG)) > 0) {
        if (pid == power_pid) {
            close_menu();
        }
    }
}
