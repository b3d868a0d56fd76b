// The event loop: descriptor watches and timers, their callbacks called one at a time.
#pragma once

#include <libubox/list.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/time.h>

struct uloop_fd;
struct uloop_timeout;

typedef void (*uloop_fd_handler)(struct uloop_fd *fd, unsigned int events);
typedef void (*uloop_timeout_handler)(struct uloop_timeout *timeout);

#define ULOOP_READ 1u
#define ULOOP_WRITE 2u
#define ULOOP_EDGE_TRIGGER 4u // the default is level-triggered
#define ULOOP_BLOCKING 8u     // uloop_fd_add leaves O_NONBLOCK as it is
#define ULOOP_ERROR_CB 64u    // the watch stays after an error or a hang-up
#define ULOOP_EVENT_MASK (ULOOP_READ | ULOOP_WRITE)

// A descriptor watch. Zero-filled first, then `fd` and `cb` set by its owner.
struct uloop_fd {
    uloop_fd_handler cb; // `events` holds ULOOP_READ, ULOOP_WRITE, or nothing on a mere hang-up
    int fd;
    bool eof;        // the peer has ended its side
    bool error;      // error or hang-up; without ULOOP_ERROR_CB the watch is already removed
    bool registered; // the watch is in place
    uint8_t flags;   // of the last uloop_fd_add that succeeded
};

// A timer. Zero-filled first, then `cb` set by its owner.
struct uloop_timeout {
    struct list_head list;
    bool pending;
    uloop_timeout_handler cb;
    struct timeval time; // due time on the monotonic clock
};

// Ends the running loop when set; cleared when a run begins.
extern bool uloop_cancelled;
// The program sets it to false before uloop_init: nothing here takes SIGCHLD or reaps a child.
extern bool uloop_handle_sigchld;

// Makes the loop ready; 0, or -1 when the system refuses. May be called again. Of the signals whose
// action is the default one it ignores SIGPIPE and catches SIGINT and SIGTERM, which both end the
// run. Other actions are left alone.
int uloop_init(void);
// Runs until cancelled (timeout < 0), or for exactly one round that waits at most `timeout`
// milliseconds. A cancellation from before the call is forgotten. Returns the number of the signal
// that ended the run, else 0.
//
// A round calls all due timers, waits unless events are left over, and calls one descriptor
// callback. A callback may remove any watch and any timer, its own included, and free the record.
int uloop_run_timeout(int timeout);
// Watches `fd`, or changes its watch, for the given flags; without ULOOP_READ and ULOOP_WRITE it
// removes the watch. A new watch sets O_NONBLOCK on the descriptor unless ULOOP_BLOCKING is given.
// -1 when the descriptor cannot be watched: so it is with regular files and /dev/null.
int uloop_fd_add(struct uloop_fd *fd, unsigned int flags);
// Removes the watch with any event of it that has not been delivered; 0, also when there was none.
int uloop_fd_delete(struct uloop_fd *fd);

// Queues a timer, pending or not, to be due in `msecs` milliseconds. Equal times are served first
// come first.
int uloop_timeout_set(struct uloop_timeout *timeout, int msecs);
// Takes a timer out; -1 when it is not pending.
int uloop_timeout_cancel(struct uloop_timeout *timeout);
