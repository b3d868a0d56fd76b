#include "bench/exchange.h"

#include <algorithm>
#include <stdexcept>

namespace {

// In each place they differ, so that no cell of one is left out where the other was before.
constexpr std::string_view MARKS[] = {"~`~`~`~~", "`~`~`~``"};

bool is_emulator(Program program)
{
    return program == Program::TMUX || program == Program::SCREEN || program == Program::TUI;
}

} // namespace

double seconds_since(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

Deadline::Deadline(const char *what, const Session &whose, int seconds)
    : doing(what), session(whose), end(Clock::now() + std::chrono::seconds(seconds))
{
}

void Deadline::wait(std::span<pollfd> watched, Clock::time_point until) const
{
    for (Clock::time_point now = Clock::now();; now = Clock::now()) {
        const auto left = std::max(std::min(until, end) - now, Clock::duration::zero());
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        const timespec time = {seconds.count(), (left - seconds).count()};
        if (now >= end) {
            throw std::runtime_error(std::string(program_name(session.program)) +
                                     " hangs: " + doing);
        }
        if (ppoll(watched.data(), watched.size(), &time, nullptr) > 0 || Clock::now() >= until) {
            return;
        }
    }
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

Pace::Pace(size_t bytes, size_t at_once, bool up) : per_second(bytes), grain(at_once), makes_up(up)
{
}

size_t Pace::due()
{
    if (per_second == 0) {
        return PIECE;
    }
    const size_t passable = static_cast<size_t>(seconds_since(start) * double(per_second));
    if (!makes_up) {
        constexpr size_t GRAINS_AT_ONCE = 5; // the benchmark may have been late itself
        taken = std::max(taken, passable - std::min(passable, GRAINS_AT_ONCE * grain));
    }
    return passable > taken ? (passable - taken) / grain * grain : 0;
}

Clock::time_point Pace::next() const
{
    if (per_second == 0) {
        return Clock::time_point::max();
    }
    return start + std::chrono::nanoseconds((taken + grain) * 1000000000 / per_second + 1);
}

bool ready(const pollfd &watched, int events)
{
    return (watched.revents & (events | POLLHUP | POLLERR)) != 0;
}
