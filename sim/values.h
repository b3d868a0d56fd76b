// Values as the command line and the control socket write them. Each function returns false for a
// text that is no such value and leaves the result as it was.
#pragma once

#include "sim/commands.h"

#include <charconv>
#include <string>
#include <string_view>
#include <type_traits>

#include <termios.h>

namespace sim {

template <typename Number, typename Low, typename High>
bool parse_number(std::string_view text, Low low, High high, Number &result, int base = 10)
{
    std::conditional_t<std::is_signed_v<Number>, long long, unsigned long long> value = 0;
    auto end = text.data() + text.size();
    auto [stop, error] = std::from_chars(text.data(), end, value, base);
    if (error != std::errc() || stop != end || value < static_cast<decltype(value)>(low) ||
        value > static_cast<decltype(value)>(high)) {
        return false;
    }
    result = static_cast<Number>(value);
    return true;
}

struct ScreenSize {
    unsigned short columns = 80;
    unsigned short rows = 24;
};

enum class FlowControl { None, Hardware, Software };

// The settings of a serial line.
struct LineSettings {
    unsigned baud = 9600;
    int data_bits = 8;
    char parity = 'N'; // N, E or O
    int stop_bits = 1;
    FlowControl flow = FlowControl::None;
};

bool parse_size(std::string_view text, ScreenSize &size);         // 80x24
bool parse_escape(std::string_view text, uint8_t &escape);        // 29, ^] or ~
bool parse_signals(std::string_view text, Signals &signals);      // dcd,cts or "dcd cts"; none
bool parse_format(std::string_view text, LineSettings &settings); // 8N1
bool parse_flow(std::string_view text, LineSettings &settings);   // none, rtscts or xonxoff
bool parse_baud(std::string_view text, LineSettings &settings);   // a rate termios knows
speed_t termios_speed(unsigned baud);                             // B0 where there is none

// "9600 8N1", with the flow control where there is one.
std::string describe(const LineSettings &settings);

} // namespace sim
