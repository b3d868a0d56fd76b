// The signals that the event loop does not handle by itself: hang-up, stop and continue, and the
// end of a child.
#pragma once

// Before uloop_init: installs the SIGCHLD action and leaves that signal to it, but has it wait, so
// that it does not interrupt the connecting.
void signals_prepare();

// Once connected: installs the others and lets the loop see them all. (Until then a stop stops the
// client by itself, and a hang-up ends it.) A signal that was ignored when the program started
// stays ignored. Returns 0, or -1 with the reason in the log.
[[nodiscard]] int signals_watch();

// From now on using the terminal does not stop a client in the background: it would never end.
void signals_let_end();
