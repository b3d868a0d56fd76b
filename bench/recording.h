// What real programs print on a terminal of a given size, recorded on the spot.
#pragma once

#include <string>

#include "bench/terminal.h"

enum class Recorded { PAGER, EDITOR_LINES, EDITOR_PAGES, TOP };

// From the program's start to its end, with the keys a user would press, each when what the one
// before has printed is there; about size bytes.
std::string record(Recorded what, Size terminal, size_t size);
