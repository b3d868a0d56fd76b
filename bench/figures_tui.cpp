#include "bench/contender.h"
#include "bench/figures.h"
#include "bench/payload.h"
#include "bench/table.h"
#include "bench/vterm_alone.h"

namespace {

struct Kind {
    Payload payload;
    const char *name;
    size_t size;
    double small_to_tmux, large_to_tmux; // at least
    double to_vterm;
};

constexpr Kind kinds[] = {
    {Payload::BOOT_LOG, "boot log", 8 << 20, 0.75, 0.65, 1.3},
    {Payload::LISTING, "ls -lR", 8 << 20, 0.75, 0.65, 1.3},
    {Payload::TOP, "top", 16 << 20, 1, 1.3, 0.95},
    {Payload::DENSE, "dense attributes", 64 << 20, 8, 7, 0.95},
    {Payload::CJK, "CJK", 8 << 20, 2.2, 1.5, 0.95},
};

void compare_emulators(const Kind &kind, Size size, Contender &client, Contender &tmux)
{
    const std::string payload = make_payload(kind.payload, kind.size);
    const std::string what = format("emulated, %dx%d, %s", size.columns, size.rows, kind.name);
    std::vector<double> vterm;
    client.forget();
    tmux.forget();
    for (int round = 0; round < ROUNDS; round++) {
        client.note(emulate_output(client.session, payload));
        vterm.push_back(double(payload.size()) / MEGABYTE / vterm_alone_time(payload, size));
        tmux.note(emulate_output(tmux.session, payload));
    }
    print_figure({what, Bound::AT_LEAST,
                  size.rows == SMALL.rows ? kind.small_to_tmux : kind.large_to_tmux,
                  ratio(client.speeds, tmux.speeds), " × tmux",
                  format("client %.1f, tmux %.1f, libvterm %.1f MB/s", median(client.speeds),
                         median(tmux.speeds), median(vterm))});
    print_figure({what, Bound::AT_LEAST, kind.to_vterm, ratio(client.speeds, vterm), " × libvterm",
                  format("client %.0f, tmux %.0f ms CPU per MB", median(client.processor) * 1e3,
                         median(tmux.processor) * 1e3)});
    if (kind.payload == Payload::BOOT_LOG || kind.payload == Payload::LISTING) {
        print_figure({"bytes to the terminal per port byte, scrolling", Bound::AT_MOST, 0.1,
                      median(client.shown_per_byte), "",
                      format("tmux %.3f", median(tmux.shown_per_byte))});
    }
}

constexpr int HISTORY_LINES = 100000;
constexpr const char *HISTORY_COUNT = "100000"; // in the header, and in none of the first lines

std::string history_reply()
{
    std::string reply = "{\"scrollback\":[";
    for (int line = 0; line < HISTORY_LINES; line++) {
        reply += format("%s{\"line\":\"%08d line of the history, sixty bytes long with all of it "
                        ".\",\"timestamp\":%lld,\"scrollback_idx\":%d,\"type\":%d}",
                        line == 0 ? "" : ",", line, 1700000000000LL - line, line, line % 3);
    }
    return reply + "]}";
}

// From the key to the picture that it changes, in every row.
double scroll_time(Session &session)
{
    constexpr size_t MORE_THAN_THE_BAR = 100;
    const Clock::time_point start = Clock::now();
    (void)write_some(session.keyboard.get(), "[");
    const Deadline deadline("scrolling", session);
    pollfd watched[] = {{session.screen(), POLLIN, 0}};
    for (size_t shown = 0; shown < MORE_THAN_THE_BAR;) {
        deadline.wait(watched);
        shown += read_some(session.screen()).size();
    }
    return seconds_since(start);
}

} // namespace

void emulated_output()
{
    for (const Size size : {SMALL, LARGE}) {
        Contender client(Program::TUI, Output::TERMINAL, size);
        Contender tmux(Program::TMUX, Output::TERMINAL, size);
        for (const Kind &kind : kinds) {
            compare_emulators(kind, size, client, tmux);
        }
    }
}

void emulated_paste()
{
    const std::string payload = make_payload(Payload::PASTE, 1 << 20);
    Contender client(Program::TUI);
    Contender tmux(Program::TMUX);
    Contender relay(Program::RELAY);
    for (int round = 0; round < ROUNDS; round++) {
        for (Contender *contender : {&client, &tmux, &relay}) {
            contender->note(paste(contender->session, payload, payload.size()));
        }
    }
    print_figure({"terminal UI, 1 MB paste, all of it there", Bound::AT_LEAST, 1,
                  ratio(client.speeds, tmux.speeds), " × tmux",
                  format("client %.1f, tmux %.1f, relay %.1f MB/s", median(client.speeds),
                         median(tmux.speeds), median(relay.speeds))});
}

void history()
{
    std::vector<double> openings;
    std::vector<double> scrolls;
    const std::string reply = history_reply();
    for (int round = 0; round < ROUNDS; round++) {
        Contender client(Program::TUI);
        Session &session = client.session;
        session.daemon.history = reply;
        (void)write_some(session.keyboard.get(), "\5s");
        wait_for_text(session, HISTORY_COUNT);
        const Clock::duration sent(session.daemon.history_sent.load());
        openings.push_back(seconds_since(Clock::time_point(sent)));
        for (int line = 0; line < 50; line++) {
            scrolls.push_back(scroll_time(session));
        }
    }
    print_figure({"history of 100,000 lines, to open", Bound::AT_MOST, 500, median(openings) * 1e3,
                  " ms", "after the reply's last byte"});
    print_figure({"history of 100,000 lines, a scroll key", Bound::AT_MOST, 5,
                  median(scrolls) * 1e3, " ms",
                  format("p99 %.2f ms", percentile(scrolls, 99) * 1e3)});
}
