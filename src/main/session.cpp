#include "main/session.h"

#include <signal.h>
#include <stdint.h>
#include <termios.h>
#include <unistd.h>

#include "basic/console.h"
#include "dep/ubox.h"
#include "link/clock.h"
#include "link/connection.h"
#include "main/options.h"
#include "tui/input.h"

namespace {

constexpr int64_t PATIENCE_MS = 2000;
constexpr int FLUSH_STEP_MS = 50;

bool is_end_signal(int status)
{
    return status == SIGINT || status == SIGTERM;
}

bool is_written(const ustream &stream)
{
    return stream.write_error || stream.w.data_bytes == 0;
}

// After a hang-up of cmd.sck alone there may be port output left in data.sck.
bool port_output_is_read()
{
    if ((zorvad.port_output.holds & HOLD_END) != 0 || stdout_stream.stream.write_error) {
        return true;
    }
    read_gate_poll(zorvad.port_output); // until nothing is left, unless it has to wait
    return zorvad.port_output.holds == 0;
}

bool is_flushed()
{
    return port_output_is_read() && is_written(zorvad.data_stream.stream) &&
           (!use_basic_interface || is_written(stdout_stream.stream));
}

struct Progress {
    int shown;
    int typed;
    int32_t read;

    bool operator==(const Progress &) const = default;
};

Progress progress_now()
{
    return {stdout_stream.stream.w.data_bytes, zorvad.data_stream.stream.w.data_bytes,
            zorvad.port_output.turn_bytes};
}

// A source that never runs dry must not keep the client from ending: only what there is goes on.
void stop_sources()
{
    // Keys typed before a signal may not have been read yet.
    if (!use_basic_interface) {
        tui_input_finish();
    } else {
        if (!zorvad.hung_up) {
            read_gate_poll(typed_input);
        }
        console_stop_sources();
    }
    if (!use_basic_interface || !zorvad.hung_up) {
        read_gate_hold(zorvad.port_output, HOLD_END);
    }
}

bool flush_with_patience()
{
    Progress last = progress_now();
    int64_t give_up = monotonic_ms() + PATIENCE_MS;
    while (!is_flushed()) {
        if (is_end_signal(uloop_run_timeout(FLUSH_STEP_MS))) {
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
    // The loop forgets a signal that came before it runs.
    bool interrupted = uloop_cancelled;
    while (!zorvad.quit && !interrupted) {
        interrupted = is_end_signal(uloop_run_timeout(-1));
    }
}

void session_flush()
{
    stop_sources();
    if (!flush_with_patience() && use_basic_interface) {
        // What the terminal does not take must not keep its settings from being restored.
        tcflush(STDOUT_FILENO, TCOFLUSH);
    }
}
