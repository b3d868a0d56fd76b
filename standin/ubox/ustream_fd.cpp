#include "ustream_private.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <type_traits>

static_assert(std::is_standard_layout_v<ustream_fd> && std::is_trivial_v<ustream_fd>);

namespace {

ustream_fd &stream_fd(ustream *s)
{
    return *container_of(s, ustream_fd, stream);
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

// Reads until the descriptor has no more, or the reading gets blocked.
bool read_available(ustream_fd &sf, bool stop_at_short_read)
{
    ustream &s = sf.stream;
    bool any = false;
    while (!s.eof && !s.read_blocked) {
        const std::span<char> room = stream_read_room(s);
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
            stream_set_eof(s);
            break;
        }
        any = true;
        stream_received(s, static_cast<int>(len));
        if (stop_at_short_read && static_cast<size_t>(len) < room.size()) {
            break;
        }
    }
    return any;
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
        stream_flush(s);
        (void)update_watch(sf, s.w.data_bytes > 0);
    }
    // A pipe whose writer has gone reports the hang-up alone: only a read tells the end of input.
    if ((events & ULOOP_READ) || (hung_up && opened_for_reading(fd->fd))) {
        (void)read_available(sf, sf.stream_socket && !ended);
    }
    if (hung_up && !s.write_error) {
        stream_set_write_error(s);
        (void)update_watch(sf, false);
    }
}

int fd_write(ustream *s, const char *data, int len, bool)
{
    ustream_fd &sf = stream_fd(s);
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

void fd_set_read_blocked(ustream *s)
{
    (void)update_watch(stream_fd(s), s->w.data_bytes > 0);
}

bool fd_poll(ustream *s)
{
    return read_available(stream_fd(s), false);
}

void fd_free(ustream *s)
{
    (void)uloop_fd_delete(&stream_fd(s).fd); // its owner may have closed the descriptor
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
    stream_reset(s);
    s.write = fd_write;
    s.free = fd_free;
    s.set_read_blocked = fd_set_read_blocked;
    s.poll = fd_poll;

    sf->fd = {};
    sf->fd.fd = fd;
    sf->fd.cb = on_event;
    sf->stream_socket = is_stream_socket(fd);
    (void)update_watch(*sf, false); // registered tells
}
