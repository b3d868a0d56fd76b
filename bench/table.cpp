#include "bench/table.h"

#include <algorithm>
#include <array>
#include <stdarg.h>
#include <stdio.h>

namespace {

std::string number(double value)
{
    if (value == 0) {
        return "0";
    }
    const double size = value < 0 ? -value : value;
    return format("%.*f", size >= 100 ? 0 : size >= 10 ? 1 : size >= 0.1 ? 2 : 3, value);
}

const char *verdict(const Figure &figure)
{
    if (figure.bound == Bound::NONE) {
        return "";
    }
    const bool reached = figure.bound == Bound::AT_LEAST ? figure.measured >= figure.limit
                                                         : figure.measured <= figure.limit;
    return reached ? "yes" : "**no**";
}

// Every byte that continues a character takes no column.
int columns_beside(const std::string &text, int width)
{
    return width + static_cast<int>(std::count_if(text.begin(), text.end(), [](char byte) {
               return (static_cast<unsigned char>(byte) & 0xc0) == 0x80;
           }));
}

void print_row(const std::array<std::string, 5> &cells)
{
    constexpr int widths[] = {50, 16, 16, 7, 0};
    for (size_t i = 0; i < cells.size(); i++) {
        printf("| %-*s ", columns_beside(cells[i], widths[i]), cells[i].c_str());
    }
    printf("|\n");
    fflush(stdout);
}

} // namespace

std::string format(const char *text, ...)
{
    char bytes[1024];
    va_list arguments;
    va_start(arguments, text);
    vsnprintf(bytes, sizeof bytes, text, arguments);
    va_end(arguments);
    return bytes;
}

void print_table_head()
{
    print_row({"what", "to reach", "measured", "reached", "in the same run"});
    print_row({"---", "---", "---", "---", "---"});
}

void print_figure(const Figure &figure)
{
    std::string target;
    if (figure.bound != Bound::NONE) {
        target = (figure.bound == Bound::AT_LEAST ? "≥ " : "≤ ") + format("%g", figure.limit) +
                 figure.unit;
    }
    print_row({figure.what, target, number(figure.measured) + figure.unit, verdict(figure),
               figure.reference});
}
