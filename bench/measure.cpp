#include "bench/measure.h"

#include <algorithm>
#include <stdexcept>

namespace {

constexpr std::chrono::milliseconds KEY_INTERVAL{5};

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

} // namespace

void wait_for_text(Session &session, const char *text, std::string seen)
{
    const Deadline deadline(text, session);
    pollfd watched[] = {{session.screen(), POLLIN, 0}};
    while (seen.find(text) == std::string::npos) {
        deadline.wait(watched);
        seen += read_some(session.screen());
    }
}

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
    Pace pace(flood.taken, flood.taken / 1000, false);
    Clock::time_point typed = start;
    bool awaited = false;
    size_t sent = 0;
    std::vector<double> times;
    while (awaited || Clock::now() < end) {
        const size_t allowed = pace.due();
        watch.screen.events = allowed > 0 ? POLLIN : 0;
        watch.port.events = POLLIN | POLLOUT;
        if (!awaited && Clock::now() - typed >= KEY_INTERVAL) {
            typed = Clock::now();
            awaited = write_some(session.keyboard.get(), "~") == 1;
        }
        deadline.wait(watch.fds, Clock::now() + std::chrono::milliseconds(1));
        if (ready(watch.port, POLLIN) && !read_some(session.port.get()).empty() && awaited) {
            times.push_back(seconds_since(typed));
            awaited = false;
        }
        if (ready(watch.port, POLLOUT)) {
            sent += write_some(session.port.get(), cyclic(flood.payload, sent, SIZE_MAX));
        }
        if (ready(watch.screen, POLLIN)) {
            pace.passed(read_some(session.screen(), allowed).size());
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
