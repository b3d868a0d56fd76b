// The basic interface's terminal: the streams on standard input and output, who gets what is typed,
// raw mode, and what goes back to how it was found at the end.
#pragma once

#include <stdint.h>

#include "dep/ubox.h"
#include "link/read_gate.h"

// Everything the basic interface prints goes through it; never read.
extern ustream_fd stdout_stream;
extern ustream_fd stdin_stream;
// Read callback of stdin_stream; basic/escape has it.
void basic_stdin_read_cb(ustream *stream, int available);

// Receives every chunk of standard input in place of the port. A NUL follows the bytes.
using InputHook = void (*)(const char *chunk, int32_t length);
// One slot: the latest setter wins; null when input goes to the port.
extern InputHook input_hook;

// When stdin_stream may read.
extern ReadGate typed_input;
// What holds it beside the port: the power script's input, and standard output as its echo.
constexpr ReadHold HOLD_SCRIPT = HOLD_SECOND_SINK;
constexpr ReadHold HOLD_ECHO = HOLD_THIRD_SINK;

// What may wait for the terminal before its sources are not read any more, and where they start
// again.
constexpr int SHOWN_LIMIT = 256 * 1024;
constexpr int SHOWN_RESUME = 64 * 1024;
// What may wait before keys are no longer answered with texts of the client's own. Beyond what the
// port and a power script may leave waiting.
constexpr int ANSWERS_LIMIT = 1024 * 1024;

// Sets up both streams and takes over the keyboard. First of the basic interface's calls.
void basic_streams_init();

// Output sink of the basic interface: port output goes to standard output byte for byte.
void basic_output_sink(const char *bytes, int32_t length);

// Writes text to standard output, behind what waits there.
void console_print(const char *text);

// True while the answers to keys would only pile up: the terminal takes nothing. The keyboard is
// read all the same, so that there is a way out.
bool console_is_stuck();

// Puts standard input into raw mode and has basic_restore_terminal run at exit. Where standard
// input is no terminal, nothing changes.
void basic_raw_mode();

// The exit handler: terminal settings and the descriptors' O_NONBLOCK flags as they were found. May
// be called in a signal handler, and again.
void basic_restore_terminal();

// The terminal goes to somebody else, and is not read until basic_resume_terminal.
void basic_suspend_terminal();

// Raw mode again, after somebody else had the terminal.
void basic_resume_terminal();

// Tells that the source of gate feeds standard output: it is held while too much waits there.
void console_hold_when_full(ReadGate &gate);

// The read gate of the power script's output while a power menu is open, else null.
void console_set_script_output(ReadGate *gate);

// Sets O_NONBLOCK again, which others who have the same terminal may have taken away: a stream that
// blocks would take the end of what is there for the end of input. Before each reading but the
// first after an event. Async-signal-safe.
void console_take_flags();

// The session is over: takes the keys that were typed, then no more keys and no script output.
void console_stop_sources();
