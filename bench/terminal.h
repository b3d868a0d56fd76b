// Pseudo-terminals, and programs on them.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

#include "bench/owned_fd.h"

struct Size {
    int rows, columns;
};

constexpr Size SMALL = {24, 80}, LARGE = {60, 200};

// The end to hold, non-blocking; name is the other's.
Fd open_terminal(std::string &name, Size size);
// Nothing is echoed, nothing translated.
void make_raw(int terminal);

// The id of a session leader with that controlling terminal; output is its standard output, -1 the
// terminal. Throws where there is no such program.
pid_t spawn_on_terminal(std::vector<std::string> command, const std::string &terminal,
                        const char *type, int output = -1);
