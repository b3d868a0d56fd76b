// All signals that the program handles but those of a crash: none is lost, whenever it comes. Until
// the program has begun to handle it, a signal does what it does to any program.
#pragma once

// Before uloop_init: installs the SIGCHLD action and leaves that signal to it. SIGCHLD, SIGINT and
// SIGTERM have to wait.
void signals_prepare();

// After uloop_init: SIGINT and SIGTERM, unless ignored, end the program with status 0 at once while
// it connects. Later they do what the loop has them do, and set zorvad.told_to_end.
void signals_take_ends();

// Once connected: handles the others too and lets the loop see them all. (Until then a stop stops
// the client by itself, and a hang-up ends it.) A signal that was ignored when the program started
// stays ignored. Returns 0, or -1 with the reason in the log.
[[nodiscard]] int signals_watch();

// From now on nothing stops the client, nor does using the terminal in the background: it would
// never end. Async-signal-safe.
void signals_let_end();

// How many of SIGINT and SIGTERM have come.
int signals_end_count();
