// The escape character: whether it was typed, what it is called, and the break that is behind it in
// both front ends.
#pragma once

#include <stddef.h>
#include <stdint.h>

// The escape character was typed and the next key is a command.
extern uint8_t escape_pending;

// Writes the display name of an escape character, such as "Ctrl-e", into name; a character without
// a name of its own is its own name, one byte (printable_latin1 shows it). As with strncpy, a name
// of size characters or more is not terminated.
void escape_name(unsigned char character, char *name, size_t size);

// Asks the daemon for a serial break.
void send_break();
