#include "sim/values.h"

#include <algorithm>
#include <climits>

namespace sim {
namespace {

struct Rate {
    unsigned baud;
    speed_t speed;
};

constexpr Rate RATES[] = {
    {50, B50},           {75, B75},           {110, B110},         {134, B134},
    {150, B150},         {200, B200},         {300, B300},         {600, B600},
    {1200, B1200},       {1800, B1800},       {2400, B2400},       {4800, B4800},
    {9600, B9600},       {19200, B19200},     {38400, B38400},     {57600, B57600},
    {115200, B115200},   {230400, B230400},   {460800, B460800},   {500000, B500000},
    {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000},
    {1500000, B1500000}, {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000},
    {3500000, B3500000}, {4000000, B4000000},
};

} // namespace

bool parse_size(std::string_view text, ScreenSize &size)
{
    auto mark = text.find('x');
    ScreenSize parsed;
    if (mark == std::string_view::npos ||
        !parse_number(text.substr(0, mark), 1, USHRT_MAX, parsed.columns) ||
        !parse_number(text.substr(mark + 1), 1, USHRT_MAX, parsed.rows)) {
        return false;
    }
    size = parsed;
    return true;
}

bool parse_escape(std::string_view text, uint8_t &escape)
{
    if (parse_number(text, 0, 255, escape)) {
        return true;
    }
    if (text.size() == 2 && text[0] == '^' && text[1] >= '?' && text[1] <= 'z') {
        // As terminals do: ^? is DEL, and the letter's case makes no difference.
        escape = text[1] == '?' ? 127 : static_cast<uint8_t>(text[1] & 31);
        return true;
    }
    if (text.size() != 1) {
        return false;
    }
    escape = static_cast<uint8_t>(text[0]);
    return true;
}

bool parse_signals(std::string_view text, Signals &signals)
{
    Signals parsed;
    while (!text.empty()) {
        auto end = std::min(text.find_first_of(", "), text.size());
        auto name = text.substr(0, end);
        auto known = std::ranges::find(SIGNAL_NAMES, name, &SignalName::name);
        if (known != std::end(SIGNAL_NAMES)) {
            parsed.*known->line = true;
        } else if (!name.empty() && name != "none") {
            return false;
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    signals = parsed;
    return true;
}

bool parse_format(std::string_view text, LineSettings &settings)
{
    if (text.size() != 3 || text[0] < '5' || text[0] > '8' ||
        std::string_view("NEO").find(text[1]) == std::string_view::npos || text[2] < '1' ||
        text[2] > '2') {
        return false;
    }
    settings.data_bits = text[0] - '0';
    settings.parity = text[1];
    settings.stop_bits = text[2] - '0';
    return true;
}

bool parse_flow(std::string_view text, LineSettings &settings)
{
    if (text == "none") {
        settings.flow = FlowControl::None;
    } else if (text == "rtscts") {
        settings.flow = FlowControl::Hardware;
    } else if (text == "xonxoff") {
        settings.flow = FlowControl::Software;
    } else {
        return false;
    }
    return true;
}

bool parse_baud(std::string_view text, LineSettings &settings)
{
    unsigned baud = 0;
    if (!parse_number(text, 1, UINT_MAX, baud) || termios_speed(baud) == B0) {
        return false;
    }
    settings.baud = baud;
    return true;
}

speed_t termios_speed(unsigned baud)
{
    auto rate = std::ranges::find(RATES, baud, &Rate::baud);
    return rate == std::end(RATES) ? B0 : rate->speed;
}

std::string describe(const LineSettings &settings)
{
    std::string text = std::to_string(settings.baud) + " " + std::to_string(settings.data_bits) +
                       settings.parity + std::to_string(settings.stop_bits);
    if (settings.flow == FlowControl::Hardware) {
        text += " RTS/CTS";
    }
    if (settings.flow == FlowControl::Software) {
        text += " XON/XOFF";
    }
    return text;
}

} // namespace sim
