// The signals that the event loop does not handle by itself: hang-up, stop and continue, and the
// end of a child.
#pragma once

// Installs the SIGCHLD action and leaves that signal to it; before uloop_init.
void signals_prepare();

// Installs the others and lets the loop see them all; after uloop_init. A signal that was ignored
// when the program started stays ignored. Returns 0, or -1 with the reason in the log.
[[nodiscard]] int signals_watch();

// From now on using the terminal does not stop a client in the background: it would never end.
void signals_let_end();
