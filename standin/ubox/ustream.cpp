#include "ustream_blocks.h"

#include <fcntl.h>
#include <span>
#include <sys/socket.h>
#include <type_traits>

static_assert(std::is_standard_layout_v<ustream_fd> && std::is_trivial_v<ustream_fd>);

namespace {

constexpr int READ_BUFFER_LEN = 4096;
constexpr int WRITE_BUFFER_LEN = 256;
constexpr int READ_RETRY_MS = 100;

ustream_fd &stream_fd(ustream &s)
{
    return *container_of(&s, ustream_fd, stream);
}

// Watches the descriptor for what is wanted of it. Every change is a fresh edge-triggered
// registration, so what was ready before is reported again.
int update_watch(ustream_fd &sf, bool for_writing)
{
    unsigned flags = ULOOP_EDGE_TRIGGER | ULOOP_ERROR_CB;
    if (!sf.stream.read_blocked) {
        flags |= ULOOP_READ;
    }
    if (for_writing) {
        flags |= ULOOP_WRITE;
    }
    if (sf.fd.registered && sf.fd.flags == flags) {
        return 0;
    }
    return uloop_fd_add(&sf.fd, flags);
}

void announce_state(ustream &s)
{
    s.state_changed = true;
    (void)uloop_timeout_set(&s.state_change, 0); // cannot fail
}

void fail_writing(ustream &s)
{
    s.write_error = true;
    free_blocks(s.w);
    announce_state(s);
}

// A notify_read that polls the stream is not called within itself, but once more afterwards.
void announce_read(ustream &s)
{
    s.unannounced_data = true;
    if (s.in_notify_read) {
        return;
    }
    s.in_notify_read = true;
    while (s.unannounced_data && s.r.data_bytes > 0) {
        s.unannounced_data = false;
        if (s.notify_read) {
            s.notify_read(&s, s.r.data_bytes);
        }
    }
    s.in_notify_read = false;
}

void set_blocked(ustream &s, read_blocked_reason reason, bool set)
{
    const int others = s.read_blocked & ~reason;
    const auto blocked = static_cast<read_blocked_reason>(set ? others | reason : others);
    if (blocked == s.read_blocked) {
        return;
    }
    s.read_blocked = blocked;
    (void)update_watch(stream_fd(s), s.w.data_bytes > 0);
}

// Without string_data nobody may count on a NUL, and who does shall be seen.
void end_data(ustream &s)
{
    *s.r.head->tail = s.string_data ? '\0' : '?';
}

// Where the next bytes can be read to. Empty when the buffer is full, which blocks the reading, or
// when there is no memory: then the stream is polled again after a short time, as the descriptor
// will not be reported again for what it holds already.
std::span<char> read_room(ustream &s)
{
    if (!s.r.head && !append_block(s.r)) {
        s.read_retry = true;
        if (!s.state_change.pending) {
            (void)uloop_timeout_set(&s.state_change, READ_RETRY_MS); // cannot fail
        }
        return {};
    }
    ustream_buf &block = *s.r.head;
    if (block.tail == block.end && block.data > block.head) {
        const size_t len = static_cast<size_t>(block.tail - block.data);
        memmove(block.head, block.data, len);
        block.data = block.head;
        block.tail = block.head + len;
        end_data(s);
    }
    if (block.tail == block.end) {
        set_blocked(s, READ_BLOCKED_FULL, true);
    }
    return {block.tail, static_cast<size_t>(block.end - block.tail)};
}

void take_in(ustream &s, int len)
{
    s.r.head->tail += len;
    end_data(s);
    s.r.data_bytes += len;
    announce_read(s);
}

// Reads until the descriptor has no more, or the reading gets blocked.
bool read_available(ustream_fd &sf, bool stop_at_short_read)
{
    ustream &s = sf.stream;
    bool any = false;
    while (!s.eof && !s.read_blocked) {
        const std::span<char> room = read_room(s);
        if (room.empty()) {
            break;
        }
        const ssize_t len = read(sf.fd.fd, room.data(), room.size());
        if (len < 0 && errno == EINTR) {
            continue;
        }
        if (len < 0 && (errno == EAGAIN || errno == ENOTCONN)) {
            break;
        }
        if (len <= 0) {
            s.eof = true;
            announce_state(s);
            break;
        }
        any = true;
        take_in(s, static_cast<int>(len));
        if (stop_at_short_read && static_cast<size_t>(len) < room.size()) {
            break;
        }
    }
    return any;
}

void on_state_timer(uloop_timeout *timer)
{
    ustream *s = container_of(timer, ustream, state_change);
    if (s->read_retry) {
        s->read_retry = false;
        (void)ustream_poll(s); // what it read is announced
    }
    if (!s->state_changed) {
        return;
    }
    s->state_changed = false;
    if (s->notify_state) {
        s->notify_state(s); // may free the stream
    }
}

// Writes what the descriptor takes; -1 when it fails.
int write_now(ustream_fd &sf, const char *data, int len)
{
    int done = 0;
    while (done < len) {
        const ssize_t written = write(sf.fd.fd, data + done, static_cast<size_t>(len - done));
        if (written > 0) {
            done += static_cast<int>(written);
        } else if (written == 0 || errno == EAGAIN) {
            // What cannot be watched would stay queued for ever.
            return update_watch(sf, true) < 0 ? -1 : done;
        } else if (errno != EINTR) {
            return -1;
        }
    }
    return done;
}

void flush(ustream &s)
{
    int flushed = 0;
    while (s.w.data_bytes > 0) {
        const ustream_buf *block = s.w.head;
        const int len = static_cast<int>(block->tail - block->data);
        const int written = write_now(stream_fd(s), block->data, len);
        if (written < 0) {
            fail_writing(s);
            return;
        }
        drop_oldest(s.w, written);
        flushed += written;
        if (written < len) {
            break;
        }
    }
    if (flushed > 0 && s.notify_write) {
        s.notify_write(&s, flushed);
    }
}

bool opened_for_reading(int fd)
{
    return (fcntl(fd, F_GETFL) & O_ACCMODE) != O_WRONLY;
}

void on_event(uloop_fd *fd, unsigned events)
{
    ustream_fd &sf = *container_of(fd, ustream_fd, fd);
    ustream &s = sf.stream;
    const bool hung_up = fd->error; // a new registration clears it
    const bool ended = hung_up || fd->eof;

    if (events & ULOOP_WRITE) {
        flush(s);
        (void)update_watch(sf, s.w.data_bytes > 0);
    }
    // A pipe whose writer has gone reports the hang-up alone: only a read tells the end of input.
    if ((events & ULOOP_READ) || (hung_up && opened_for_reading(fd->fd))) {
        (void)read_available(sf, sf.stream_socket && !ended);
    }
    if (hung_up && !s.write_error) {
        fail_writing(s);
        (void)update_watch(sf, false);
    }
}

bool is_stream_socket(int fd)
{
    int type = 0;
    socklen_t len = sizeof type;
    return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &len) == 0 && type == SOCK_STREAM;
}

} // namespace

void ustream_fd_init(struct ustream_fd *sf, int fd)
{
    ustream &s = sf->stream;
    const int read_len = s.r.buffer_len > 0 ? s.r.buffer_len : READ_BUFFER_LEN;
    const int write_len = s.w.buffer_len > 0 ? s.w.buffer_len : WRITE_BUFFER_LEN;
    s = {.r = {.buffer_len = read_len},
         .w = {.buffer_len = write_len},
         .state_change = {.cb = on_state_timer},
         .notify_read = s.notify_read,
         .notify_write = s.notify_write,
         .notify_state = s.notify_state,
         .string_data = s.string_data};
    sf->fd = {.cb = on_event, .fd = fd};
    sf->stream_socket = is_stream_socket(fd);
    (void)update_watch(*sf, false); // registered tells
}

void ustream_free(struct ustream *s)
{
    (void)uloop_fd_delete(&stream_fd(*s).fd);     // its owner may have closed the descriptor
    (void)uloop_timeout_cancel(&s->state_change); // mostly it is not pending
    free_blocks(s->r);
    free_blocks(s->w);
}

char *ustream_get_read_buf(struct ustream *s, int *len)
{
    const bool any = s->r.data_bytes > 0;
    if (len) {
        *len = any ? static_cast<int>(s->r.head->tail - s->r.head->data) : 0;
    }
    return any ? s->r.head->data : nullptr;
}

void ustream_consume(struct ustream *s, int len)
{
    if (len < 0 || len > s->r.data_bytes) {
        abort();
    }
    if (len == 0) {
        return;
    }
    drop_oldest(s->r, len);
    set_blocked(*s, READ_BLOCKED_FULL, false);
}

int ustream_write(struct ustream *s, const char *data, int len, bool)
{
    if (s->write_error || len <= 0) {
        return 0;
    }
    int written = 0;
    if (s->w.data_bytes == 0) {
        written = write_now(stream_fd(*s), data, len);
        if (written < 0) {
            fail_writing(*s);
            return -1;
        }
    }
    return written + enqueue(s->w, data + written, len - written);
}

int ustream_printf(struct ustream *s, const char *format, ...)
{
    if (s->write_error) {
        return 0;
    }
    char *text = nullptr;
    va_list arguments;
    va_start(arguments, format);
    const int len = vasprintf(&text, format, arguments);
    va_end(arguments);
    const int result = len < 0 ? 0 : ustream_write(s, text, len, false);
    if (len >= 0) {
        free(text);
    }
    return result;
}

void ustream_set_read_blocked(struct ustream *s, bool set)
{
    set_blocked(*s, READ_BLOCKED_USER, set);
}

bool ustream_poll(struct ustream *s)
{
    return read_available(stream_fd(*s), false);
}
