#include "bench/contender.h"
#include "bench/figures.h"
#include "bench/line.h"
#include "bench/payload.h"
#include "bench/recording.h"
#include "bench/table.h"

namespace {

constexpr int LINE_ROUNDS = 3;
constexpr size_t LENGTH = 20000; // bytes, about two seconds

struct Printed {
    const char *what;
    double limit;
    std::string bytes;
};

// On a port whose terminal is one row short of the user's.
std::vector<Printed> outputs_for(Size user)
{
    const Size port = {user.rows - 1, user.columns};
    return {{"compiler output", 1.2, make_payload(Payload::COMPILER, LENGTH)},
            {"pager, line by line", 1.4, record(Recorded::PAGER, port, LENGTH)},
            {"editor, line by line", 1.05, record(Recorded::EDITOR_LINES, port, LENGTH)},
            {"editor, page by page", 1, record(Recorded::EDITOR_PAGES, port, LENGTH)},
            {"top", 0.5, record(Recorded::TOP, port, LENGTH)}};
}

void line_figures(Size size)
{
    const std::string place = format(", %dx%d", size.columns, size.rows);
    Contender client(Program::TUI, Output::TERMINAL, size);
    Contender tmux(Program::TMUX, Output::TERMINAL, size);
    const std::vector<Printed> outputs = outputs_for(size);
    for (const Printed &printed : outputs) {
        std::vector<double> loads[2]; // seconds a second
        client.forget();
        tmux.forget();
        for (int round = 0; round < LINE_ROUNDS; round++) {
            for (Contender *contender : {&client, &tmux}) {
                const Transfer transfer = output_at_line_speed(contender->session, printed.bytes);
                contender->note(transfer);
                loads[contender == &tmux].push_back(transfer.processor_seconds / transfer.seconds);
            }
        }
        print_figure({printed.what + place, Bound::AT_MOST, printed.limit,
                      median(client.shown_per_byte), "",
                      format("tmux %.2f", median(tmux.shown_per_byte))});
        const bool counts = &printed == &outputs.front();
        print_figure({"  CPU", counts ? Bound::AT_MOST : Bound::NONE, 0.5,
                      ratio(loads[0], loads[1]), " × tmux",
                      format("client %.0f, tmux %.0f ms a second", median(loads[0]) * 1e3,
                             median(loads[1]) * 1e3)});
    }
}

} // namespace

void line_speed()
{
    line_figures(SMALL);
    line_figures(LARGE);
}

void slow_terminal()
{
    constexpr int KEYS = 20;
    constexpr double PATIENCE = 3;
    const std::string payload = make_payload(Payload::COMPILER, 1 << 20);
    constexpr struct {
        size_t per_second;
        const char *name;
        double limit; // milliseconds
    } terminals[] = {{50000, "50 kB/s", 5}, {200000, "200 kB/s", 5}, {14400, "14.4 kB/s", 200}};
    for (const auto &terminal : terminals) {
        const auto measure = [&](Program program) {
            Contender contender(program);
            return echoes_on_slow_terminal(contender.session, payload, terminal.per_second, KEYS,
                                           PATIENCE);
        };
        const Echoes client = measure(Program::TUI);
        const Echoes tmux = measure(Program::TMUX);
        print_figure({format("echo p50, port printing, %s terminal", terminal.name), Bound::AT_MOST,
                      terminal.limit, median(client.times) * 1e3, " ms",
                      format("tmux %.1f ms", median(tmux.times) * 1e3)});
        print_figure({"the same, seen within 3 s", Bound::AT_LEAST, KEYS, double(client.seen),
                      format(" of %d", KEYS).c_str(), format("tmux %d", tmux.seen)});
    }
}

void typing()
{
    constexpr int KEYS = 60, PER_SECOND = 30;
    std::vector<double> times[2], shown[2];
    for (int round = 0; round < LINE_ROUNDS; round++) {
        for (Program program : {Program::TUI, Program::TMUX}) {
            Contender contender(program);
            const Typing typed = typing_times(contender.session, KEYS, PER_SECOND);
            times[program == Program::TMUX].push_back(median(typed.times));
            shown[program == Program::TMUX].push_back(median(typed.shown));
        }
    }
    print_figure(
        {"echo p50, idle port, 30 keys a second", Bound::AT_MOST, 1, ratio(times[0], times[1]),
         " × tmux",
         format("client %.0f, tmux %.0f µs", median(times[0]) * 1e6, median(times[1]) * 1e6)});
    print_figure({"the same, bytes to the terminal for a key", Bound::AT_MOST, 1, median(shown[0]),
                  "", format("tmux %.0f", median(shown[1]))});
}
