#include "bench/contender.h"
#include "bench/figures.h"
#include "bench/payload.h"
#include "bench/table.h"

namespace {

using Run = Transfer (*)(Session &, std::string_view, size_t);

void take_turns(Run run, std::initializer_list<Contender *> contenders, std::string_view payload,
                size_t total, int rounds = ROUNDS)
{
    for (Contender *contender : contenders) {
        contender->forget();
        (void)run(contender->session, payload, std::min<size_t>(total, 1 << 20)); // warms it up
    }
    for (int round = 0; round < rounds; round++) {
        for (Contender *contender : contenders) {
            contender->note(run(contender->session, payload, total));
        }
    }
}

std::string speeds(const Contender &basic, const Contender &relay, const Contender &socat)
{
    return format("basic %.0f, relay %.0f, socat %.0f MB/s", median(basic.speeds),
                  median(relay.speeds), median(socat.speeds));
}

void output(Output where, size_t total, const char *what, double limit)
{
    const std::string payload = make_payload(Payload::BOOT_LOG, 1 << 20);
    Contender relay(Program::RELAY, where);
    Contender basic(Program::BASIC, where);
    Contender socat(Program::SOCAT, where);
    take_turns(relay_output, {&relay, &basic, &socat}, payload, total);
    print_figure({what, Bound::AT_LEAST, limit, ratio(basic.speeds, relay.speeds), " × relay",
                  speeds(basic, relay, socat)});
    const bool counts = where == Output::TERMINAL;
    print_figure(
        {counts ? "basic, port to terminal, CPU per MB" : "basic, port to pipe, CPU per MB",
         counts ? Bound::AT_MOST : Bound::NONE, 1.2, ratio(basic.processor, relay.processor),
         " × relay",
         format("basic %.2f, relay %.2f, socat %.2f ms/MB", median(basic.processor) * 1e3,
                median(relay.processor) * 1e3, median(socat.processor) * 1e3)});
}

} // namespace

void basic_to_terminal()
{
    output(Output::TERMINAL, 64 << 20, "basic, port to terminal", 0.95);
}

void basic_to_pipe()
{
    output(Output::PIPE, 256 << 20, "basic, port to pipe", 0.75);
}

void basic_paste()
{
    const std::string payload = make_payload(Payload::PASTE, 1 << 20);
    Contender relay(Program::RELAY);
    Contender basic(Program::BASIC);
    Contender socat(Program::SOCAT);
    take_turns(paste, {&relay, &basic, &socat}, payload, 1 << 20, 3 * ROUNDS);
    print_figure({"basic, 1 MB paste, all of it there", Bound::AT_LEAST, 0.85,
                  ratio(basic.speeds, relay.speeds), " × relay", speeds(basic, relay, socat)});
    take_turns(paste, {&relay, &basic, &socat}, payload, 100 << 20, ROUNDS);
    print_figure({"basic, 100 MB paste, all of it there", Bound::AT_LEAST, 0.85,
                  ratio(basic.speeds, relay.speeds), " × relay", speeds(basic, relay, socat)});
}

void peers()
{
    const std::string payload = make_payload(Payload::BOOT_LOG, 1 << 20);
    Contender relay(Program::RELAY);
    for (Program program : {Program::SOCAT, Program::DTACH, Program::PICOCOM}) {
        Contender peer(program);
        take_turns(relay_output, {&relay, &peer}, payload, 8 << 20);
        print_figure({program_name(program), Bound::NONE, 0, ratio(peer.speeds, relay.speeds),
                      " × relay", "port to terminal"});
    }
    Contender tmux(Program::TMUX);
    Contender screen(Program::SCREEN);
    for (int round = 0; round < ROUNDS; round++) {
        for (Contender *contender : {&tmux, &screen}) {
            contender->note(emulate_output(contender->session, payload));
        }
    }
    print_figure(
        {"screen", Bound::NONE, 0, ratio(screen.speeds, tmux.speeds), " × tmux", "boot log"});
}
