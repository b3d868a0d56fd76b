// Typed input: the escape-character state machine of the basic interface and the commands behind
// it.
#pragma once

#include <stdint.h>

#include "dep/ubox.h"

// Receives every chunk of standard input in place of the port. A NUL follows the bytes.
using InputHook = void (*)(const char *chunk, int32_t length);

// One slot: the latest setter wins; null when input goes to the port.
extern InputHook input_hook;

// Read callback of the standard-input stream.
void basic_stdin_read_cb(ustream *stream, int available);
