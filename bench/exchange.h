// What the measurements are made of: waiting, marks, paces and transfers.
#pragma once

#include <chrono>
#include <poll.h>
#include <span>
#include <string>
#include <string_view>

#include "bench/session.h"

constexpr size_t PIECE = 1 << 16;
// Begins a screen anew.
constexpr const char *CLEAR = "\033[m\033[H\033[2J";

double seconds_since(Clock::time_point start);

// Ends a measurement that hangs, by an exception that tells which.
class Deadline {
public:
    Deadline(const char *doing, const Session &session, int seconds = 120);
    // Polls until something is ready or, where it is given, that time has come.
    void wait(std::span<pollfd> watched, Clock::time_point until = Clock::time_point::max()) const;

private:
    const char *doing;
    const Session &session;
    Clock::time_point end;
};

// Sent to a port, shows on the terminal when all before it is there.
struct Mark {
    // One unlike the last on that terminal.
    explicit Mark(Session &session);
    // Whether what the terminal got now, after what it got before, holds the mark.
    bool shows_in(std::string_view got);

    std::string sequence; // an emulated screen is cleared first

private:
    std::string_view text;
    std::string tail;
};

// A line of so many bytes a second, which passes them in grains.
class Pace {
public:
    // 0: no limit. What the line could have passed while nothing was there is made up for, or not.
    Pace(size_t per_second, size_t grain, bool makes_up);
    // What may pass now.
    size_t due();
    void passed(size_t count) { taken += count; }
    // When the next grain is due.
    Clock::time_point next() const;

private:
    size_t per_second, grain;
    bool makes_up;
    Clock::time_point start = Clock::now();
    size_t taken = 0;
};

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

bool ready(const pollfd &watched, int events);

struct Transfer {
    double seconds;
    double processor_seconds; // of the program
    size_t sent;
    size_t shown; // bytes to the terminal
};

// A transfer under way: what is to be sent goes out as it is taken, round by round.
class Exchange {
public:
    Exchange(const char *doing, Session &whose) : session(whose), deadline(doing, whose) {}

    // Waits, but for nothing past a time that is given, sends of either text what is taken now, and
    // hands on what has come; nothing comes as an empty text.
    template <typename FromPort, typename FromScreen>
    void round(std::string_view to_port, std::string_view to_keyboard, FromPort from_port,
               FromScreen from_screen, Clock::time_point until = Clock::time_point::max())
    {
        watch.port.events = static_cast<short>(POLLIN | (to_port.empty() ? 0 : POLLOUT));
        watch.keyboard.events = to_keyboard.empty() ? 0 : POLLOUT;
        deadline.wait(watch.fds, until);
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

inline void ignore(std::string_view) {}
