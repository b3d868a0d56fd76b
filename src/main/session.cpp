#include "main/session.h"

#include <signal.h>
#include <stdint.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "dep/ubox.h"
#include "front/front_end.h"
#include "link/clock.h"
#include "link/connection.h"
#include "main/signals.h"

namespace {

constexpr int64_t PATIENCE_MS = 2000;
constexpr int FLUSH_STEP_MS = 50;

bool is_end_signal(int status)
{
    return status == SIGINT || status == SIGTERM;
}

// What has come from the port and was not read yet.
int64_t output_waiting()
{
    int in_socket = 0;
    (void)ioctl(zorvad.data_stream.fd.fd, FIONREAD, &in_socket);
    return zorvad.data_stream.stream.r.data_bytes + in_socket;
}

// Has the sources end: only what has come by now is handed on, as a source that always has more
// would keep the client from ending. Returns where the port's output ends, counted as its gate
// counts: after a hang-up of cmd.sck alone the port may go on for ever.
int64_t stop_sources()
{
    front_end->stop_sources();
    if (front_end->printed == nullptr || !zorvad.hung_up) {
        read_gate_hold(zorvad.port_output, HOLD_END);
    }
    return zorvad.port_output.bytes + output_waiting();
}

bool port_output_is_read(int64_t output_end)
{
    ReadGate &output = zorvad.port_output;
    if ((output.holds & HOLD_END) != 0 || front_end->printed->stream.write_error) {
        return true;
    }
    read_gate_poll(output); // until nothing is left or the gate holds it
    if (output.bytes >= output_end) {
        read_gate_hold(output, HOLD_END);
        return true;
    }
    return output.holds == 0;
}

bool is_written(const ustream_fd &stream)
{
    return stream.stream.write_error || stream.stream.w.data_bytes == 0;
}

bool is_flushed(int64_t output_end)
{
    return port_output_is_read(output_end) && is_written(zorvad.data_stream) &&
           (front_end->printed == nullptr || is_written(*front_end->printed));
}

// Bytes that the other side of a descriptor has not taken, where the system tells: of a socket (in
// whole pieces), a serial terminal or a pipe.
int untaken_bytes(int descriptor)
{
    int bytes = 0;
    if (ioctl(descriptor, TIOCOUTQ, &bytes) != 0 && ioctl(descriptor, FIONREAD, &bytes) != 0) {
        return 0;
    }
    return bytes;
}

// Numbers that change while bytes are on their way. With a slow reader the system's numbers change
// long before the client's streams can write again.
struct Progress {
    int typed;
    int untaken_by_port;
    int printed;
    int untaken_by_terminal;
    int64_t read;

    bool operator==(const Progress &) const = default;
};

Progress progress_now()
{
    Progress now = {};
    now.typed = zorvad.data_stream.stream.w.data_bytes;
    now.untaken_by_port = untaken_bytes(zorvad.data_stream.fd.fd);
    if (const ustream_fd *printed = front_end->printed) {
        now.printed = printed->stream.w.data_bytes;
        now.untaken_by_terminal = untaken_bytes(printed->fd.fd);
        now.read = zorvad.port_output.bytes;
    }
    return now;
}

bool flush_with_patience(int64_t output_end)
{
    const int end_count = signals_end_count();
    Progress last = progress_now();
    int64_t give_up = monotonic_ms() + PATIENCE_MS;
    while (!is_flushed(output_end)) {
        (void)uloop_run_timeout(FLUSH_STEP_MS); // forgets a signal between two of its turns
        if (signals_end_count() != end_count) {
            return false;
        }
        const Progress progress = progress_now();
        if (progress != last) {
            last = progress;
            give_up = monotonic_ms() + PATIENCE_MS;
        } else if (monotonic_ms() >= give_up) {
            return false;
        }
    }
    return true;
}

} // namespace

void session_run()
{
    bool interrupted = false;
    while (!zorvad.quit && !zorvad.told_to_end && !interrupted) {
        interrupted = is_end_signal(uloop_run_timeout(-1));
    }
}

void session_flush()
{
    zorvad.ending = 1;
    const int64_t output_end = stop_sources();
    if (!flush_with_patience(output_end) && front_end->printed != nullptr &&
        !front_end->in_background()) {
        // What the terminal does not take must not keep its settings from being restored.
        tcflush(front_end->printed->fd.fd, TCOFLUSH);
    }
}
