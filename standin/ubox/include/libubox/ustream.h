// Buffered streams on descriptors that the event loop watches.
//
// Reading: whatever arrives is read into the read buffer and announced by notify_read, which looks
// at it with ustream_get_read_buf and takes it with ustream_consume. What it leaves is kept, and
// more is appended; a full buffer stops the reading until something is consumed.
// Writing: bytes that the descriptor does not take at once are queued without limit and written
// when it is ready again; notify_write tells of these alone.
// End of input, and errors of either side, are announced by notify_state, which a timer of 0 ms
// calls once for each change.
#pragma once

#include <libubox/uloop.h>
#include <stdbool.h>

struct ustream;

struct ustream_buf; // private

// The bytes of one direction, owned by the stream.
struct ustream_buf_list {
    struct ustream_buf *head; // oldest data
    struct ustream_buf *tail; // newest data
    int data_bytes;           // in all blocks
    int buffer_len;           // bytes in a block
};

enum read_blocked_reason {
    READ_BLOCKED_USER = 1,
    READ_BLOCKED_FULL = 2,
};

// A stream. Zero-filled first; then its owner sets the callbacks that it wants, string_data, and
// buffer lengths that differ from the defaults: one read block of 4096 bytes, any number of write
// blocks of 256.
struct ustream {
    struct ustream_buf_list r;
    struct ustream_buf_list w;
    struct uloop_timeout state_change;

    void (*notify_read)(struct ustream *s, int bytes); // bytes: all that are buffered
    void (*notify_write)(struct ustream *s, int bytes);
    void (*notify_state)(struct ustream *s);

    bool string_data; // a NUL byte follows the read data; else here a question mark
    bool write_error; // nothing can be written any more; the queue is dropped
    bool eof;         // nothing will be read any more; buffered data may be left
    enum read_blocked_reason read_blocked; // zero or more of the reasons

    // Private: a change is not announced yet; reading waits for memory; notify_read is running;
    // data came meanwhile.
    bool state_changed;
    bool read_retry;
    bool in_notify_read;
    bool unannounced_data;
};

// A stream on a descriptor, which stays its owner's.
struct ustream_fd {
    struct ustream stream;
    struct uloop_fd fd;
    bool stream_socket; // private: a read that comes up short has emptied it
};

// Puts a stream on `fd` and watches it for input. O_NONBLOCK is set on the descriptor and stays.
// When the descriptor cannot be watched (regular files, /dev/null) fd.registered is false and
// nothing is read but by ustream_poll. A stream that was freed may be initialised again.
void ustream_fd_init(struct ustream_fd *s, int fd);
// Removes the watch, the timer and the buffers with what they hold. Not from the stream's own
// notify_read and notify_write.
void ustream_free(struct ustream *s);

// The oldest buffered data in one piece, its length in *len; NULL and 0 when there is none.
char *ustream_get_read_buf(struct ustream *s, int *len);
// Drops `len` bytes of read data; more than there are aborts the process.
void ustream_consume(struct ustream *s, int len);

// Writes or queues `len` bytes. Returns the number taken, which is less than `len` only when memory
// ran out; 0 in the write_error state; -1 when this write failed, which enters that state.
int ustream_write(struct ustream *s, const char *data, int len, bool more);
int ustream_printf(struct ustream *s, const char *format, ...)
    __attribute__((format(printf, 2, 3)));

// Stops and resumes the reading. A descriptor that is watched for nothing leaves the loop.
void ustream_set_read_blocked(struct ustream *s, bool set);
// Reads now until there is nothing left, the input ends or the reading is blocked; true when bytes
// were read.
bool ustream_poll(struct ustream *s);
