// Carries signals into the event loop: the handler writes the signal's number to a pipe that the
// loop watches. (A handler that runs just before the loop waits would go unnoticed otherwise.)
#pragma once

// Opens the pipe; from then on the loop hands each signal's number to on_signal, in order. Returns
// 0, or -1 with a line in the log.
[[nodiscard]] int signal_pipe_open(void (*on_signal)(int signal_number));

// Async-signal-safe; keeps errno. Does nothing before the pipe is open.
void signal_pipe_notify(int signal_number);
