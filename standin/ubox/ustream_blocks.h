// What waits in one direction of a stream: blocks of buffer_len bytes, one behind the other.
#pragma once

#include "dep/ubox.h"

// Its data lies between data and tail. One byte more than up to end is there, for a NUL.
struct ustream_buf {
    ustream_buf *next;
    char *data;
    char *tail;
    char *end;
    char head[];
};

// False when there is no memory.
inline bool append_block(ustream_buf_list &list)
{
    const size_t len = static_cast<size_t>(list.buffer_len);
    auto *block = static_cast<ustream_buf *>(malloc(sizeof(ustream_buf) + len + 1));
    if (!block) {
        return false;
    }
    block->next = nullptr;
    block->data = block->tail = block->head;
    block->end = block->head + len;
    (list.tail ? list.tail->next : list.head) = block;
    list.tail = block;
    return true;
}

inline void free_blocks(ustream_buf_list &list)
{
    while (list.head) {
        ustream_buf *block = list.head;
        list.head = block->next;
        free(block);
    }
    list.tail = nullptr;
    list.data_bytes = 0;
}

// Drops bytes from the front. The last block stays for what comes.
inline void drop_oldest(ustream_buf_list &list, int len)
{
    list.data_bytes -= len;
    while (len > 0) {
        ustream_buf *block = list.head;
        const ptrdiff_t there = block->tail - block->data;
        const int taken = there < len ? static_cast<int>(there) : len;
        block->data += taken;
        len -= taken;
        if (block->data < block->tail) {
            return;
        }
        block->data = block->tail = block->head;
        if (block != list.tail) {
            list.head = block->next;
            free(block);
        }
    }
}

// Returns the number taken, which is less than len when there is no memory.
inline int enqueue(ustream_buf_list &list, const char *data, int len)
{
    if (len > INT_MAX - list.data_bytes) {
        len = INT_MAX - list.data_bytes;
    }
    int queued = 0;
    while (queued < len) {
        if ((!list.tail || list.tail->tail == list.tail->end) && !append_block(list)) {
            break;
        }
        ustream_buf *block = list.tail;
        const ptrdiff_t room = block->end - block->tail;
        const int part = room < len - queued ? static_cast<int>(room) : len - queued;
        memcpy(block->tail, data + queued, static_cast<size_t>(part));
        block->tail += part;
        queued += part;
    }
    list.data_bytes += queued;
    return queued;
}
