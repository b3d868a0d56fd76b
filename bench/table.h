// The table of figures, printed row by row as Markdown.
#pragma once

#include <string>

enum class Bound { AT_LEAST, AT_MOST, NONE };

struct Figure {
    std::string what;
    Bound bound;
    double limit;
    double measured;
    const char *unit;      // "× relay", " ms"
    std::string reference; // what else was seen in the same run
};

void print_table_head();
void print_figure(const Figure &figure);

// printf into a string.
[[gnu::format(printf, 1, 2)]] std::string format(const char *text, ...);
