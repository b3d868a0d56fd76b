#include "dep/ubox.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <time.h>

bool uloop_cancelled = false;
bool uloop_handle_sigchld = true;

namespace {

constexpr int MAX_FETCHED = 10;
constexpr int64_t MICROSECONDS = 1'000'000;

int epoll_fd = -1;
int waker_write = -1;
volatile sig_atomic_t stop_signal;           // that ended the run, 0 while there was none
list_head timeouts = {&timeouts, &timeouts}; // by due time

// Events that epoll has reported and that are still to be delivered, one a round. Those of a
// removed watch have a null pointer.
epoll_event fetched[MAX_FETCHED];
int fetched_next;
int fetched_count;

timeval monotonic_now()
{
    timespec now;
    (void)clock_gettime(CLOCK_MONOTONIC, &now); // cannot fail with this clock
    return {now.tv_sec, now.tv_nsec / 1000};
}

int64_t microseconds_between(const timeval &from, const timeval &to)
{
    return (int64_t{to.tv_sec} - from.tv_sec) * MICROSECONDS + (to.tv_usec - from.tv_usec);
}

void insert(uloop_timeout &timeout)
{
    // Walked from the end: what is set last mostly is due last.
    list_head *position = timeouts.prev;
    while (position != &timeouts) {
        const uloop_timeout *earlier = list_entry(position, uloop_timeout, list);
        if (microseconds_between(earlier->time, timeout.time) >= 0) {
            break;
        }
        position = position->prev;
    }
    list_add(&timeout.list, position);
    timeout.pending = true;
}

// The times are compared with the clock at the start, so a timer that its callback keeps arming
// for "now" does not keep the descriptors waiting.
void run_due_timers()
{
    if (list_empty(&timeouts)) {
        return;
    }
    const timeval now = monotonic_now();
    while (!list_empty(&timeouts)) {
        uloop_timeout *timeout = list_first_entry(&timeouts, uloop_timeout, list);
        if (microseconds_between(now, timeout->time) > 0) {
            return;
        }
        (void)uloop_timeout_cancel(timeout); // it is pending
        if (timeout->cb) {
            timeout->cb(timeout);
        }
    }
}

// Milliseconds that the loop may sleep: until the next timer, at most `limit` unless negative.
int sleep_time(int limit)
{
    if (list_empty(&timeouts)) {
        return limit < 0 ? -1 : limit;
    }
    const uloop_timeout *next = list_first_entry(&timeouts, uloop_timeout, list);
    const int64_t microseconds = microseconds_between(monotonic_now(), next->time);
    if (microseconds <= 0) {
        return 0;
    }
    const int64_t milliseconds = (microseconds + 999) / 1000;
    const int64_t longest = limit < 0 ? INT_MAX : limit;
    return static_cast<int>(milliseconds < longest ? milliseconds : longest);
}

// The next event to deliver, its pointer null when there is none.
epoll_event next_event(int limit)
{
    for (;;) {
        while (fetched_next < fetched_count) {
            const epoll_event event = fetched[fetched_next++];
            if (event.data.ptr) {
                return event;
            }
        }
        const int timeout = sleep_time(limit);
        const int count = epoll_wait(epoll_fd, fetched, MAX_FETCHED, timeout);
        fetched_next = 0;
        fetched_count = count > 0 ? count : 0;
        if (count > 0) {
            continue;
        }
        // Without an epoll descriptor there still are timers and signals, and no reason to spin.
        if (count < 0 && errno != EINTR) {
            (void)poll(nullptr, 0, timeout);
        }
        return {};
    }
}

void deliver(const epoll_event &event)
{
    auto *fd = static_cast<uloop_fd *>(event.data.ptr);
    unsigned events = 0;
    if (event.events & EPOLLIN) {
        events |= fd->flags & ULOOP_READ;
    }
    if (event.events & EPOLLOUT) {
        events |= fd->flags & ULOOP_WRITE;
    }
    if (event.events & EPOLLRDHUP) {
        fd->eof = true;
    }
    if (event.events & (EPOLLERR | EPOLLHUP)) {
        fd->error = true;
        if (!(fd->flags & ULOOP_ERROR_CB)) {
            (void)uloop_fd_delete(fd); // the callback is told either way
        }
    }
    if (fd->cb) {
        fd->cb(fd, events);
    }
}

void set_nonblocking(int fd)
{
    const int flags = fcntl(fd, F_GETFL);
    if (flags >= 0 && !(flags & O_NONBLOCK)) {
        (void)fcntl(fd, F_SETFL, flags | O_NONBLOCK); // cannot fail on an open descriptor
    }
}

// A handler of ours wakes the loop, as a signal may come between its look at uloop_cancelled and
// its wait.
void on_stop_signal(int signo)
{
    const int saved_errno = errno;
    stop_signal = signo;
    uloop_cancelled = true;
    (void)!write(waker_write, "", 1); // a full pipe wakes the loop just as well
    errno = saved_errno;
}

void drain_waker(uloop_fd *fd, unsigned)
{
    char bytes[64];
    while (read(fd->fd, bytes, sizeof bytes) > 0) {
        continue;
    }
}

void take_signal(int signo, void (*handler)(int))
{
    struct sigaction action;
    if (sigaction(signo, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) {
        action.sa_handler = handler;
        action.sa_flags = 0;
        (void)sigaction(signo, &action, nullptr); // cannot fail: it was valid when it was read
    }
}

// -1 when the system refuses.
int open_waker()
{
    static uloop_fd waker;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) < 0) {
        return -1;
    }
    waker = {.cb = drain_waker, .fd = ends[0]};
    waker_write = ends[1];
    return uloop_fd_add(&waker, ULOOP_READ);
}

} // namespace

int uloop_init(void)
{
    if (epoll_fd < 0) {
        epoll_fd = epoll_create1(EPOLL_CLOEXEC);
    }
    if (epoll_fd < 0 || (waker_write < 0 && open_waker() < 0)) {
        return -1;
    }
    take_signal(SIGINT, on_stop_signal);
    take_signal(SIGTERM, on_stop_signal);
    take_signal(SIGPIPE, SIG_IGN);
    return 0;
}

int uloop_run_timeout(int timeout)
{
    stop_signal = 0;
    uloop_cancelled = false;
    do {
        run_due_timers();
        if (uloop_cancelled) {
            break;
        }
        const epoll_event event = next_event(timeout);
        if (event.data.ptr) {
            deliver(event);
        }
    } while (timeout < 0 && !uloop_cancelled);
    return stop_signal;
}

int uloop_fd_add(struct uloop_fd *fd, unsigned int flags)
{
    if (!(flags & ULOOP_EVENT_MASK)) {
        return uloop_fd_delete(fd);
    }
    if (!fd->registered && !(flags & ULOOP_BLOCKING)) {
        set_nonblocking(fd->fd);
    }

    epoll_event event{};
    event.data.ptr = fd;
    if (flags & ULOOP_READ) {
        event.events |= EPOLLIN | EPOLLRDHUP;
    }
    if (flags & ULOOP_WRITE) {
        event.events |= EPOLLOUT;
    }
    if (flags & ULOOP_EDGE_TRIGGER) {
        event.events |= EPOLLET;
    }
    const int operation = fd->registered ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
    if (epoll_ctl(epoll_fd, operation, fd->fd, &event) < 0) {
        return -1;
    }

    fd->registered = true;
    fd->eof = false;
    fd->error = false;
    fd->flags = static_cast<uint8_t>(flags);
    return 0;
}

int uloop_fd_delete(struct uloop_fd *fd)
{
    for (int i = fetched_next; i < fetched_count; i++) {
        if (fetched[i].data.ptr == fd) {
            fetched[i].data.ptr = nullptr;
        }
    }
    if (!fd->registered) {
        return 0;
    }
    fd->registered = false;
    return epoll_ctl(epoll_fd, EPOLL_CTL_DEL, fd->fd, nullptr);
}

int uloop_timeout_set(struct uloop_timeout *timeout, int msecs)
{
    (void)uloop_timeout_cancel(timeout); // it may well not be pending
    timeval due = monotonic_now();
    due.tv_sec += msecs / 1000;
    due.tv_usec += msecs % 1000 * 1000L;
    if (due.tv_usec >= MICROSECONDS) {
        due.tv_sec++;
        due.tv_usec -= MICROSECONDS;
    } else if (due.tv_usec < 0) {
        due.tv_sec--;
        due.tv_usec += MICROSECONDS;
    }
    timeout->time = due;
    insert(*timeout);
    return 0;
}

int uloop_timeout_cancel(struct uloop_timeout *timeout)
{
    if (!timeout->pending) {
        return -1;
    }
    list_del(&timeout->list);
    timeout->pending = false;
    return 0;
}
