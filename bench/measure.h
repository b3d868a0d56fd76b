// The measurements, each of one session; times in seconds.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "bench/exchange.h"
#include "bench/payload.h"

// Until the terminal gets the text; seen is what it got before.
void wait_for_text(Session &session, const char *text, std::string seen = {});

// From the port to the terminal, payload over and over; every byte is compared.
Transfer relay_output(Session &session, std::string_view payload, size_t total);
// The same through an emulator, payload once: until the screen shows its end.
Transfer emulate_output(Session &session, std::string_view payload);
// From the keyboard to the port; every byte is compared.
Transfer paste(Session &session, std::string_view payload, size_t total);

// From a key to its echo, for each of count keys that the port echoes.
std::vector<double> echo_times(Session &session, int count);

struct Flood {
    std::string_view payload; // sent by the port over and over
    double seconds;
    size_t taken; // bytes a second that the terminal takes; 0: all there are
};
// From a key to its arrival at the port, for a key every few milliseconds.
std::vector<double> key_times_under_flood(Session &session, const Flood &flood);

// From the program's start to the port's first byte on the terminal.
double start_time(Program program);
