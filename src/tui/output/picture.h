// Presents termbox2's back buffer in few bytes: scrolls what moved, and has termbox2 send the rest
// through a rewriter.
#pragma once

#include <stddef.h>

// The terminal's cursor in a picture.
struct Cursor {
    bool shown;
    int x;
    int y;
};

// Saves bytes from now on when the terminal is of a type that is known to have margins, and sends
// all that termbox2 writes as it is else. send takes bytes for the terminal, false when they are
// lost. Nothing is known about what the terminal shows.
void picture_start(const char *terminal_type, bool (*send)(const char *bytes, size_t count));

// termbox2's present, with the cursor where it belongs.
void picture_present(const Cursor &cursor);

// What termbox2 writes to the terminal. False when bytes are lost.
bool picture_write(const char *bytes, size_t count);
