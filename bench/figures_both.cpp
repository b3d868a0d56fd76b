#include "bench/contender.h"
#include "bench/figures.h"
#include "bench/payload.h"
#include "bench/table.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <stdlib.h>
#include <thread>

namespace {

constexpr double MILLISECONDS = 1e3, MICROSECONDS = 1e6, KILOBYTE = 1024;

// In a session of its own: on which processors it runs makes more of a difference than anything.
Measurement echo_of(Program program)
{
    return [program] {
        Contender contender(program);
        return median(echo_times(contender.session, 400));
    };
}

// A session with its scrollback full, if it has one.
void fill_scrollback(Session &session, std::string_view payload)
{
    if (session.program == Program::BASIC || session.program == Program::SOCAT) {
        (void)relay_output(session, payload, payload.size());
    } else {
        (void)emulate_output(session, payload);
    }
}

struct FloodResult {
    std::vector<double> p50{}, p99{}, growth{};
};

// The peers are there for orientation.
FloodResult flood_rounds(Program program, const Flood &flood)
{
    FloodResult result;
    Contender contender(program);
    fill_scrollback(contender.session, flood.payload);
    for (int round = 0; round < 5; round++) {
        const size_t before = resident(contender.session);
        reset_peak(contender.session);
        const std::vector<double> times = key_times_under_flood(contender.session, flood);
        result.p50.push_back(percentile(times, 50) * MILLISECONDS);
        result.p99.push_back(percentile(times, 99) * MILLISECONDS);
        const size_t peak = peak_resident(contender.session);
        result.growth.push_back(double(peak - std::min(before, peak)) / KILOBYTE);
    }
    return result;
}

void flood_figures(size_t taken, double p50, Bound p99_bound, const char *const (&what)[6])
{
    const std::string payload = make_payload(Payload::BOOT_LOG, 1 << 20);
    const Flood flood{payload, 2, taken};
    const FloodResult tmux = flood_rounds(Program::TMUX, flood);
    const std::string seen =
        format("tmux p50 %.2f, p99 %.2f ms", median(tmux.p50), median(tmux.p99));
    int row = 0;
    for (Program program : {Program::TUI, Program::BASIC}) {
        const FloodResult result = flood_rounds(program, flood);
        print_figure({what[row++], Bound::AT_MOST, p50, median(result.p50), " ms", seen});
        print_figure({what[row++], p99_bound, 4, median(result.p99), " ms", ""});
        print_figure({what[row++], Bound::AT_MOST, 512,
                      *std::max_element(result.growth.begin(), result.growth.end()), " kB", ""});
    }
}

struct Idle {
    double wake_ups, processor_ms, shown; // a second
};

Idle idle_of(Program program)
{
    constexpr double SECONDS = 10;
    Contender contender(program);
    std::this_thread::sleep_for(std::chrono::milliseconds(200)); // what was begun is done
    Session &session = contender.session;
    const long switches = context_switches(session);
    const double processor = processor_time(session);
    const Clock::time_point start = Clock::now();
    size_t shown = 0;
    while (seconds_since(start) < SECONDS) {
        pollfd watched = {session.screen(), POLLIN, 0};
        if (poll(&watched, 1, 100) > 0) {
            shown += read_some(session.screen()).size();
        }
    }
    return {double(context_switches(session) - switches) / SECONDS,
            (processor_time(session) - processor) * MILLISECONDS / SECONDS,
            double(shown) / SECONDS};
}

} // namespace

void key_echo()
{
    const auto times = in_turns(3 * ROUNDS, {echo_of(Program::SOCAT), echo_of(Program::BASIC),
                                             echo_of(Program::TUI), echo_of(Program::TMUX)});
    const std::string seen =
        format("socat %.0f, basic %.0f, terminal UI %.0f, tmux %.0f µs",
               median(times[0]) * MICROSECONDS, median(times[1]) * MICROSECONDS,
               median(times[2]) * MICROSECONDS, median(times[3]) * MICROSECONDS);
    print_figure(
        {"echo p50, basic", Bound::AT_MOST, 1.1, ratio(times[1], times[0]), " × socat", seen});
    print_figure(
        {"echo p50, terminal UI", Bound::AT_MOST, 1.3, ratio(times[2], times[0]), " × socat", ""});
}

void key_under_flood()
{
    flood_figures(0, 1, Bound::AT_MOST,
                  {"key to port under flood, terminal UI, p50",
                   "key to port under flood, terminal UI, p99",
                   "memory growth under flood, terminal UI", "key to port under flood, basic, p50",
                   "key to port under flood, basic, p99", "memory growth under flood, basic"});
}

void key_under_flood_slow()
{
    flood_figures(1000000, 10, Bound::NONE,
                  {"the same, 1 MB/s terminal, terminal UI, p50",
                   "the same, 1 MB/s terminal, terminal UI, p99",
                   "memory growth, 1 MB/s terminal, terminal UI",
                   "the same, 1 MB/s terminal, basic, p50", "the same, 1 MB/s terminal, basic, p99",
                   "memory growth, 1 MB/s terminal, basic"});
}

void start_up()
{
    const auto times = in_turns(
        21, {[] { return start_time(Program::SOCAT); }, [] { return start_time(Program::BASIC); },
             [] { return start_time(Program::TMUX); }, [] { return start_time(Program::TUI); },
             [] { return start_time(Program::RELAY); }});
    print_figure({"start-up to first byte, basic", Bound::AT_MOST, 0.5, ratio(times[1], times[0]),
                  " × socat",
                  format("socat %.1f, basic %.1f, relay %.1f ms", median(times[0]) * MILLISECONDS,
                         median(times[1]) * MILLISECONDS, median(times[4]) * MILLISECONDS)});
    print_figure({"start-up to first byte, terminal UI", Bound::AT_MOST, 0.2,
                  ratio(times[3], times[2]), " × tmux",
                  format("tmux %.1f, terminal UI %.1f ms", median(times[2]) * MILLISECONDS,
                         median(times[3]) * MILLISECONDS)});
}

void memory()
{
    const std::string payload = make_payload(Payload::BOOT_LOG, 2 << 20);
    const auto measure = [&payload](Program program) {
        return [&payload, program] {
            Contender contender(program);
            fill_scrollback(contender.session, payload);
            return double(resident(contender.session)) / MEGABYTE;
        };
    };
    const auto bytes = in_turns(5, {measure(Program::SOCAT), measure(Program::BASIC),
                                    measure(Program::TMUX), measure(Program::TUI)});
    print_figure({"resident memory, basic", Bound::AT_MOST, 0.75, ratio(bytes[1], bytes[0]),
                  " × socat",
                  format("socat %.1f, basic %.1f MB", median(bytes[0]), median(bytes[1]))});
    print_figure({"resident memory, terminal UI, scrollback full", Bound::AT_MOST, 0.7,
                  ratio(bytes[3], bytes[2]), " × tmux",
                  format("tmux, client and server, %.1f, terminal UI %.1f MB", median(bytes[2]),
                         median(bytes[3]))});
}

void idle()
{
    const Idle basic = idle_of(Program::BASIC);
    const Idle client = idle_of(Program::TUI);
    print_figure({"idle, basic, wake-ups a second", Bound::AT_MOST, 0, basic.wake_ups, "", ""});
    print_figure(
        {"idle, terminal UI, wake-ups a second", Bound::AT_MOST, 8, client.wake_ups, "", ""});
    print_figure(
        {"idle, terminal UI, CPU a second", Bound::AT_MOST, 0.5, client.processor_ms, " ms", ""});
    print_figure({"idle, terminal UI, bytes shown a second", Bound::AT_MOST, 40, client.shown, "",
                  "a write a second: the seconds, their colour, the cursor"});
}

void size()
{
    const std::string stripped =
        std::filesystem::temp_directory_path() / ("zorvad-bench-" + std::to_string(getpid()));
    const std::string command = "strip -o " + stripped + " " + BENCH_CLIENT;
    if (system(command.c_str()) != 0) {
        throw std::runtime_error(command + " failed");
    }
    const double bytes = double(std::filesystem::file_size(stripped));
    std::filesystem::remove(stripped);
    print_figure({"stripped program", Bound::AT_MOST, 300, bytes / 1000, " kB", ""});
}
