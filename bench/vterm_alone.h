// libvterm with nothing around it, the lower bound of what emulating costs: fed 64 KiB at a time,
// all eight callbacks set, the lines that scroll away saved, the damage noted, nothing painted.
#pragma once

#include <string_view>

#include "bench/terminal.h"

// The seconds that the payload takes on the port's part of a terminal, all but a row.
double vterm_alone_time(std::string_view payload, Size terminal);
