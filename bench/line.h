// A port at the speed of a serial line: 115200 baud, in the pieces that its driver hands on.
#pragma once

#include <vector>

#include "bench/exchange.h"

constexpr size_t LINE_SPEED = 11520, LINE_PIECE = 32; // bytes a second, bytes

// The payload once, at that speed, until the screen shows its end.
Transfer output_at_line_speed(Session &session, std::string_view payload);

struct Echoes {
    std::vector<double> times{}; // of those never seen the patience
    int seen = 0;
};
// Keys that are echoed by a port that prints the payload over and over at that speed, on a terminal
// that takes so many bytes a second. What is not seen within the patience is never seen.
Echoes echoes_on_slow_terminal(Session &session, std::string_view payload, size_t per_second,
                               int keys, double patience);

struct Typing {
    std::vector<double> times{}; // to the echo
    std::vector<double> shown{}; // bytes to the terminal for each key
};
// Keys on an idle port that echoes them, so many a second.
Typing typing_times(Session &session, int keys, int per_second);
