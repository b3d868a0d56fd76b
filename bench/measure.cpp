#include "bench/measure.h"

#include <algorithm>
#include <stdexcept>

namespace {

constexpr size_t PIECE = 1 << 16;
constexpr std::chrono::milliseconds KEY_INTERVAL{5};

// In each place they differ, so that no cell of one is left out where the other was before.
constexpr std::string_view MARKS[] = {"~`~`~`~~", "`~`~`~``"};
constexpr const char *CLEAR = "\033[m\033[H\033[2J";

bool is_emulator(Program program)
{
    return program == Program::TMUX || program == Program::SCREEN || program == Program::TUI;
}

// A payload over and over, as the bytes from any position on.
std::string_view cyclic(std::string_view payload, size_t position, size_t total)
{
    const size_t begin = position % payload.size();
    return payload.substr(begin, std::min({PIECE, total - position, payload.size() - begin}));
}

void compare(std::string_view payload, size_t position, std::string_view got, const char *what)
{
    while (!got.empty()) {
        const std::string_view expected = cyclic(payload, position, position + got.size());
        if (got.substr(0, expected.size()) != expected) {
            throw std::runtime_error(std::string(what) + ": bytes were lost or changed at " +
                                     std::to_string(position));
        }
        position += expected.size();
        got.remove_prefix(expected.size());
    }
}

struct Watch {
    explicit Watch(const Session &session)
        : fds{{session.port.get(), POLLIN, 0},
              {session.screen(), POLLIN, 0},
              {session.keyboard.get(), 0, 0}}
    {
    }

    pollfd fds[3];
    pollfd &port = fds[0];
    pollfd &screen = fds[1];
    pollfd &keyboard = fds[2]; // only for writing: the terminal's screen is the same descriptor
};

bool ready(const pollfd &watched, int events)
{
    return (watched.revents & (events | POLLHUP | POLLERR)) != 0;
}

// What the terminal takes in time, at a rate.
struct Rate {
    size_t per_second; // 0: no limit
    Clock::time_point start = Clock::now();
    size_t taken = 0;

    size_t allowed() const
    {
        if (per_second == 0) {
            return PIECE;
        }
        const auto due = static_cast<size_t>(seconds_since(start) * double(per_second));
        return due > taken ? due - taken : 0;
    }
};

} // namespace

Deadline::Deadline(const char *what, const Session &whose, int seconds)
    : doing(what), session(whose), end(Clock::now() + std::chrono::seconds(seconds))
{
}

void Deadline::wait(std::span<pollfd> watched, int milliseconds) const
{
    const int limit = milliseconds < 0 ? 1000 : milliseconds;
    while (poll(watched.data(), watched.size(), limit) == 0 && milliseconds < 0) {
        if (Clock::now() > end) {
            throw std::runtime_error(std::string(program_name(session.program)) +
                                     " hangs: " + doing);
        }
    }
}

double seconds_since(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

Mark::Mark(Session &session)
{
    text = MARKS[session.marks++ % std::size(MARKS)];
    sequence = is_emulator(session.program) ? CLEAR + ("\033[12;10H" + std::string(text)) : text;
}

bool Mark::shows_in(std::string_view got)
{
    tail += got;
    const bool found = tail.find(text) != std::string::npos;
    tail.erase(0, tail.size() - std::min(tail.size(), text.size() - 1));
    return found;
}

void wait_for_text(Session &session, const char *text, std::string seen)
{
    const Deadline deadline(text, session);
    pollfd watched[] = {{session.screen(), POLLIN, 0}};
    while (seen.find(text) == std::string::npos) {
        deadline.wait(watched);
        seen += read_some(session.screen());
    }
}

namespace {

// A transfer under way: what is to be sent goes out as it is taken, round by round.
class Exchange {
public:
    Exchange(const char *doing, Session &whose) : session(whose), deadline(doing, whose) {}

    // Waits, sends of either text what is taken now, and hands on what has come; nothing comes as
    // an empty text.
    template <typename FromPort, typename FromScreen>
    void round(std::string_view to_port, std::string_view to_keyboard, FromPort from_port,
               FromScreen from_screen)
    {
        watch.port.events = static_cast<short>(POLLIN | (to_port.empty() ? 0 : POLLOUT));
        watch.keyboard.events = to_keyboard.empty() ? 0 : POLLOUT;
        deadline.wait(watch.fds);
        if (!to_port.empty() && ready(watch.port, POLLOUT)) {
            sent += write_some(session.port.get(), to_port);
        }
        if (!to_keyboard.empty() && ready(watch.keyboard, POLLOUT)) {
            sent += write_some(session.keyboard.get(), to_keyboard);
        }
        if (ready(watch.port, POLLIN)) {
            from_port(read_some(session.port.get()));
        }
        if (ready(watch.screen, POLLIN)) {
            const std::string_view got = read_some(session.screen());
            shown += got.size();
            from_screen(got);
        }
    }
    Transfer transfer() const
    {
        return {seconds_since(start), processor_time(session) - processor, sent, shown};
    }

    size_t sent = 0;
    size_t shown = 0;

private:
    Session &session;
    Deadline deadline;
    Watch watch{session};
    double processor = processor_time(session);
    Clock::time_point start = Clock::now();
};

void ignore(std::string_view) {}

} // namespace

void Session::settle()
{
    Mark mark(*this);
    Exchange exchange("settling", *this);
    for (bool found = false; !found;) {
        exchange.round(std::string_view(mark.sequence).substr(exchange.sent), {}, ignore,
                       [&](std::string_view got) { found = mark.shows_in(got); });
    }
}

Transfer relay_output(Session &session, std::string_view payload, size_t total)
{
    Exchange exchange("relaying output", session);
    for (size_t shown = 0; shown < total;) {
        exchange.round(cyclic(payload, exchange.sent, total), {}, ignore,
                       [&](std::string_view got) {
                           compare(payload, shown, got, program_name(session.program));
                           shown += got.size();
                       });
    }
    return exchange.transfer();
}

Transfer emulate_output(Session &session, std::string_view payload)
{
    Mark mark(session);
    const std::string bytes = CLEAR + std::string(payload) + mark.sequence;
    Exchange exchange("emulating output", session);
    for (bool found = false; !found;) {
        exchange.round(std::string_view(bytes).substr(exchange.sent, PIECE), {}, ignore,
                       [&](std::string_view got) { found = mark.shows_in(got); });
    }
    return exchange.transfer();
}

Transfer paste(Session &session, std::string_view payload, size_t total)
{
    Exchange exchange("pasting", session);
    for (size_t arrived = 0; arrived < total;) {
        const auto from_port = [&](std::string_view got) {
            compare(payload, arrived, got, program_name(session.program));
            arrived += got.size();
        };
        exchange.round({}, cyclic(payload, exchange.sent, total), from_port, ignore);
    }
    return exchange.transfer();
}

std::vector<double> echo_times(Session &session, int count)
{
    session.settle(); // an emulated screen now has room below its cursor
    const Deadline deadline("echoing", session);
    Watch watch(session);
    std::vector<double> times;
    for (int i = 0; i < count; i++) {
        const char key = MARK_BYTES[i % 2];
        const Clock::time_point start = Clock::now();
        (void)write_some(session.keyboard.get(), {&key, 1});
        for (bool found = false; !found;) {
            deadline.wait(watch.fds);
            if (ready(watch.port, POLLIN)) {
                (void)write_some(session.port.get(), read_some(session.port.get()));
            }
            if (ready(watch.screen, POLLIN)) {
                found = read_some(session.screen()).find(key) != std::string_view::npos;
            }
        }
        times.push_back(seconds_since(start));
    }
    return times;
}

std::vector<double> key_times_under_flood(Session &session, const Flood &flood)
{
    const Deadline deadline("flooding", session);
    const Clock::time_point start = Clock::now();
    const Clock::time_point end = start + std::chrono::duration_cast<Clock::duration>(
                                              std::chrono::duration<double>(flood.seconds));
    Watch watch(session);
    Rate rate{flood.taken};
    Clock::time_point typed = start;
    bool awaited = false;
    size_t sent = 0;
    std::vector<double> times;
    while (awaited || Clock::now() < end) {
        const size_t allowed = rate.allowed();
        watch.screen.events = allowed > 0 ? POLLIN : 0;
        watch.port.events = POLLIN | POLLOUT;
        if (!awaited && Clock::now() - typed >= KEY_INTERVAL) {
            typed = Clock::now();
            awaited = write_some(session.keyboard.get(), "~") == 1;
        }
        deadline.wait(watch.fds, 1);
        if (ready(watch.port, POLLIN) && !read_some(session.port.get()).empty() && awaited) {
            times.push_back(seconds_since(typed));
            awaited = false;
        }
        if (ready(watch.port, POLLOUT)) {
            sent += write_some(session.port.get(), cyclic(flood.payload, sent, SIZE_MAX));
        }
        if (ready(watch.screen, POLLIN)) {
            rate.taken += read_some(session.screen(), allowed).size();
        }
    }
    session.settle();
    return times;
}

double start_time(Program program)
{
    const Clock::time_point before = Clock::now();
    Session session(program);
    std::string seen;
    session.connect(seen);
    (void)write_some(session.port.get(), "~");
    wait_for_text(session, "~", seen);
    return seconds_since(before);
}
