// What a front end is to the rest of the program: one of two records of operations, filled by the
// basic interface and by the terminal UI. main picks one for the whole run.
#pragma once

#include "dep/ubox.h"
#include "link/connection.h"

struct FrontEnd {
    // Takes the terminal and the port's output. Returns 0, or another value where it has no
    // terminal; nothing has changed then.
    int (*start)(DaemonConnection &connection);
    // Gives the terminal back. Null where the exit handler does that.
    void (*stop)(void);

    // Give the terminal to somebody else for a while, and take it back.
    void (*suspend)(void);
    void (*resume)(void);
    // In a signal handler that has interrupted a read: keeps it from waiting when it is tried
    // again. Null where none can wait.
    void (*take_flags)(void);
    // In a signal handler, when the program crashes: gives the terminal back.
    void (*rescue)(void);
    // Whether the shell or another job has the terminal. False also where the front end uses no
    // terminal.
    bool (*in_background)(void);

    // The session is over: hands on what was typed and not read yet, then reads no more. Where
    // another job has the terminal, nothing is read from it or written to it any more.
    void (*stop_sources)(void);
    // The stream that must be written to its end before the client ends, with all the port output
    // that has come. Null where a part of the output may be missing.
    ustream_fd *printed;

    // A copy of a text of the daemon that can safely be part of a text that is shown; freed with
    // free. Null when memory is short.
    char *(*field_copy)(const char *text);
    // Shows a text that asks nothing.
    void (*show_notice)(const char *text);
    // Shows the list of sessions and hands the answer to sessions_answer.
    void (*show_sessions)(const char *text);
};

// The one that runs; set by main before its start.
inline const FrontEnd *front_end;
