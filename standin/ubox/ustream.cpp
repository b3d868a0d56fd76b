#include "ustream_private.h"

#include <type_traits>

static_assert(std::is_standard_layout_v<ustream> && std::is_trivial_v<ustream>);

namespace {

constexpr int READ_BUFFER_LEN = 4096;
constexpr int WRITE_BUFFER_LEN = 256;
constexpr int READ_RETRY_MS = 100;

bool at_limit(const ustream_buf_list &list)
{
    return list.max_buffers > 0 && list.buffers >= list.max_buffers;
}

int allocate_block(ustream *, ustream_buf_list *list)
{
    if (at_limit(*list)) {
        return -1;
    }
    const size_t len = static_cast<size_t>(list->buffer_len);
    auto *block = static_cast<ustream_buf *>(malloc(sizeof(ustream_buf) + len + 1));
    if (!block) {
        return -1;
    }
    block->next = nullptr;
    block->data = block->tail = block->head;
    block->end = block->head + len;
    if (list->tail) {
        list->tail->next = block;
    } else {
        list->head = list->data_tail = block;
    }
    list->tail = block;
    list->buffers++;
    return 0;
}

void free_blocks(ustream_buf_list &list)
{
    while (list.head) {
        ustream_buf *block = list.head;
        list.head = block->next;
        free(block);
    }
    list.data_tail = list.tail = nullptr;
    list.data_bytes = list.buffers = 0;
}

void reset_list(ustream_buf_list &list, int max_buffers, int buffer_len)
{
    list.head = list.data_tail = list.tail = nullptr;
    list.data_bytes = list.buffers = 0;
    if (!list.alloc) {
        list.alloc = allocate_block;
    }
    if (list.min_buffers == 0) {
        list.min_buffers = 1;
    }
    if (list.max_buffers == 0) {
        list.max_buffers = max_buffers;
    }
    if (list.buffer_len <= 0) {
        list.buffer_len = buffer_len;
    }
}

// The block that takes the next byte; null when at the limit or out of memory.
ustream_buf *block_with_room(ustream &s, ustream_buf_list &list)
{
    ustream_buf *block = list.data_tail;
    if (block && block->tail < block->end) {
        return block;
    }
    if (block == list.tail && list.alloc(&s, &list) < 0) {
        return nullptr;
    }
    list.data_tail = block ? block->next : list.head;
    return list.data_tail;
}

// The oldest block is empty now. The one that takes new data stays in its place; others are kept
// for later as far as min_buffers says.
void recycle_head(ustream_buf_list &list)
{
    ustream_buf *block = list.head;
    block->data = block->tail = block->head;
    if (block == list.data_tail) {
        return;
    }
    list.head = block->next;
    if (list.buffers > list.min_buffers) {
        free(block);
        list.buffers--;
        return;
    }
    block->next = nullptr;
    list.tail->next = block;
    list.tail = block;
}

void drop_oldest(ustream_buf_list &list, int len)
{
    list.data_bytes -= len;
    while (len > 0) {
        ustream_buf *block = list.head;
        const ptrdiff_t there = block->tail - block->data;
        const int taken = there < len ? static_cast<int>(there) : len;
        block->data += taken;
        len -= taken;
        if (block->data == block->tail) {
            recycle_head(list);
        }
    }
}

int enqueue(ustream &s, const char *data, int len)
{
    if (len > INT_MAX - s.w.data_bytes) {
        len = INT_MAX - s.w.data_bytes;
    }
    int queued = 0;
    while (queued < len) {
        ustream_buf *block = block_with_room(s, s.w);
        if (!block) {
            break;
        }
        const ptrdiff_t room = block->end - block->tail;
        const int part = room < len - queued ? static_cast<int>(room) : len - queued;
        memcpy(block->tail, data + queued, static_cast<size_t>(part));
        block->tail += part;
        queued += part;
    }
    s.w.data_bytes += queued;
    return queued;
}

void announce_state(ustream &s)
{
    s.state_changed = true;
    (void)uloop_timeout_set(&s.state_change, 0); // cannot fail
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
    s.set_read_blocked(&s);
}

} // namespace

void stream_reset(ustream &s)
{
    reset_list(s.r, 1, READ_BUFFER_LEN);
    reset_list(s.w, -1, WRITE_BUFFER_LEN);
    s.state_change = {};
    s.state_change.cb = on_state_timer;
    s.write_error = s.eof = false;
    s.read_blocked = read_blocked_reason{};
    s.state_changed = s.read_retry = s.in_notify_read = s.unannounced_data = false;
}

std::span<char> stream_read_room(ustream &s)
{
    ustream_buf *block = s.r.data_tail;
    if (block && block == s.r.head && block->tail == block->end && block->data > block->head) {
        const ptrdiff_t len = block->tail - block->data;
        memmove(block->head, block->data, static_cast<size_t>(len));
        block->data = block->head;
        block->tail = block->head + len;
        if (s.string_data) {
            *block->tail = '\0';
        }
    }
    block = block_with_room(s, s.r);
    if (block) {
        return {block->tail, static_cast<size_t>(block->end - block->tail)};
    }

    if (at_limit(s.r)) {
        set_blocked(s, READ_BLOCKED_FULL, true);
    } else {
        // The descriptor will not be reported again for what it holds already.
        s.read_retry = true;
        if (!s.state_change.pending) {
            (void)uloop_timeout_set(&s.state_change, READ_RETRY_MS); // cannot fail
        }
    }
    return {};
}

void stream_received(ustream &s, int len)
{
    ustream_buf *block = s.r.data_tail;
    block->tail += len;
    s.r.data_bytes += len;
    if (s.string_data) {
        *block->tail = '\0';
    }
    announce_read(s);
}

void stream_flush(ustream &s)
{
    int flushed = 0;
    while (s.w.data_bytes > 0) {
        const ustream_buf *block = s.w.head;
        const int len = static_cast<int>(block->tail - block->data);
        const int written = s.write(&s, block->data, len, block != s.w.data_tail);
        if (written < 0) {
            stream_set_write_error(s);
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

void stream_set_eof(ustream &s)
{
    s.eof = true;
    announce_state(s);
}

void stream_set_write_error(ustream &s)
{
    s.write_error = true;
    free_blocks(s.w);
    announce_state(s);
}

void ustream_free(struct ustream *s)
{
    if (s->free) {
        s->free(s);
    }
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

int ustream_write(struct ustream *s, const char *data, int len, bool more)
{
    if (s->write_error || len <= 0) {
        return 0;
    }
    int written = 0;
    if (s->w.data_bytes == 0) {
        written = s->write(s, data, len, more);
        if (written < 0) {
            stream_set_write_error(*s);
            return -1;
        }
    }
    return written + enqueue(*s, data + written, len - written);
}

int ustream_printf(struct ustream *s, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = ustream_vprintf(s, format, arguments);
    va_end(arguments);
    return result;
}

int ustream_vprintf(struct ustream *s, const char *format, va_list arguments)
{
    if (s->write_error) {
        return 0;
    }
    char small[1024];
    va_list again;
    va_copy(again, arguments);
    int len = vsnprintf(small, sizeof small, format, arguments);
    char *large = nullptr;
    if (len >= static_cast<int>(sizeof small)) {
        const size_t size = static_cast<size_t>(len) + 1;
        large = static_cast<char *>(malloc(size));
        if (large) {
            (void)vsnprintf(large, size, format, again); // as long as before
        } else {
            len = sizeof small - 1;
        }
    }
    va_end(again);
    const int result = ustream_write(s, large ? large : small, len, false);
    free(large);
    return result;
}

void ustream_set_read_blocked(struct ustream *s, bool set)
{
    set_blocked(*s, READ_BLOCKED_USER, set);
}

bool ustream_poll(struct ustream *s)
{
    return s->poll && s->poll(s);
}
