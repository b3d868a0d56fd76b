// termbox2 as the program includes it: 16-bit attribute words, no grapheme clusters, no true
// colour. Exactly one unit defines TB_IMPL before it (src/tui/termbox.cpp).
#pragma once

#define TB_OPT_ATTR_W 16
// One read takes a whole paste as the terminal delivers it (a tty hands out 4095 bytes at most).
#define TB_OPT_READ_BUF 4096

#include <termbox2.h>
