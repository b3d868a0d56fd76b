#include "bench/line.h"

#include <algorithm>
#include <ctype.h>

#include "bench/payload.h"

namespace {

// What the port answers to a key: a Greek letter, which nothing else prints, another for each.
std::string echo_of(int key)
{
    return {'\xce', static_cast<char>(0xb1 + key % 14)};
}

// Looks for a text in pieces of output.
struct Search {
    std::string text, tail{};

    bool found_in(std::string_view got)
    {
        tail += got;
        const bool found = tail.find(text) != std::string::npos;
        tail.erase(0, tail.size() - std::min(tail.size(), text.size() - 1));
        return found;
    }
};

// A port that prints the payload over and over at its speed.
class PrintingPort {
public:
    PrintingPort(const Session &session, std::string_view text)
        : fd(session.port.get()), payload(text)
    {
    }

    // The next thing printed, where it is in no sequence.
    void echo(std::string bytes) { waiting = std::move(bytes); }
    void print_what_is_due()
    {
        for (; pace.due() >= LINE_PIECE; pace.passed(LINE_PIECE)) {
            for (size_t count = 0; count < LINE_PIECE; count++) {
                print(payload[position++ % payload.size()]);
            }
        }
        untaken.erase(0, write_some(fd, untaken));
    }
    Clock::time_point next() const { return pace.next(); }

private:
    void print(char byte)
    {
        if (!in_sequence) {
            untaken += std::exchange(waiting, {});
        }
        untaken += byte;
        in_sequence = byte == '\033' || (in_sequence && !isalpha(byte));
    }

    int fd;
    std::string_view payload;
    Pace pace{LINE_SPEED, LINE_PIECE, true};
    size_t position = 0;
    bool in_sequence = false;
    std::string waiting, untaken;
};

// That port and a terminal that takes so many bytes a second.
class SlowTerminal {
public:
    SlowTerminal(Session &whose, std::string_view payload, size_t per_second)
        : session(whose), port(whose, payload), pace(per_second, per_second / 1000, false)
    {
    }

    void type() { (void)write_some(session.keyboard.get(), "k"); }
    // Whether the text, which the port answers to a key, was seen in that time.
    bool see(std::string text, std::chrono::duration<double> time)
    {
        const Clock::time_point end =
            Clock::now() + std::chrono::duration_cast<Clock::duration>(time);
        for (Search search{text}; Clock::now() < end;) {
            const size_t allowed = pace.due();
            watch.screen.events = allowed > 0 ? POLLIN : 0;
            deadline.wait(watch.fds, std::min({port.next(), pace.next(), end}));
            if (ready(watch.port, POLLIN) && !read_some(session.port.get()).empty()) {
                port.echo(text);
            }
            port.print_what_is_due();
            if (ready(watch.screen, POLLIN)) {
                const std::string_view got = read_some(session.screen(), allowed);
                pace.passed(got.size());
                if (search.found_in(got)) {
                    return true;
                }
            }
        }
        return false;
    }

private:
    Session &session;
    PrintingPort port;
    Pace pace;
    Watch watch{session};
    Deadline deadline{"echoing on a slow terminal", session, 600};
};

} // namespace

Transfer output_at_line_speed(Session &session, std::string_view payload)
{
    Mark mark(session);
    const std::string bytes = CLEAR + std::string(payload);
    Exchange exchange("showing output at the line's speed", session);
    Pace pace(LINE_SPEED, LINE_PIECE, true);
    while (exchange.sent < bytes.size()) {
        const size_t before = exchange.sent;
        const size_t due = std::min(pace.due(), LINE_PIECE);
        exchange.round(std::string_view(bytes).substr(before, due), {}, ignore, ignore,
                       pace.next());
        pace.passed(exchange.sent - before);
    }
    // In one piece, so that it is shown as one.
    const size_t all = bytes.size();
    for (bool found = false; !found;) {
        exchange.round(std::string_view(mark.sequence).substr(exchange.sent - all), {}, ignore,
                       [&](std::string_view got) { found = mark.shows_in(got); });
    }
    return exchange.transfer();
}

Echoes echoes_on_slow_terminal(Session &session, std::string_view payload, size_t per_second,
                               int keys, double patience)
{
    constexpr std::chrono::milliseconds WARM_UP{1000}, INTERVAL{150};
    SlowTerminal terminal(session, payload, per_second);
    (void)terminal.see("none", WARM_UP);
    Echoes echoes;
    for (int key = 0; key < keys; key++) {
        const Clock::time_point start = Clock::now();
        terminal.type();
        const bool seen = terminal.see(echo_of(key), std::chrono::duration<double>(patience));
        echoes.seen += seen ? 1 : 0;
        echoes.times.push_back(seen ? seconds_since(start) : patience);
        (void)terminal.see("none", INTERVAL);
    }
    return echoes;
}

Typing typing_times(Session &session, int keys, int per_second)
{
    session.settle(); // an emulated screen now has room below its cursor
    Watch watch(session);
    const Deadline deadline("typing", session);
    Typing typing;
    for (int key = 0; key < keys; key++) {
        const Clock::time_point start = Clock::now();
        const Clock::time_point end = start + std::chrono::nanoseconds(1000000000 / per_second);
        (void)write_some(session.keyboard.get(), {&MARK_BYTES[key % 2], 1});
        size_t shown = 0;
        while (Clock::now() < end) {
            deadline.wait(watch.fds, end);
            if (ready(watch.port, POLLIN)) {
                (void)write_some(session.port.get(), read_some(session.port.get()));
            }
            if (ready(watch.screen, POLLIN)) {
                const std::string_view got = read_some(session.screen());
                if (got.find(MARK_BYTES[key % 2]) != std::string_view::npos) {
                    typing.times.push_back(seconds_since(start));
                }
                shown += got.size();
            }
        }
        typing.shown.push_back(double(shown));
    }
    return typing;
}
