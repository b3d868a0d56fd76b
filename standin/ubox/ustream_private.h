// What the kinds of stream need of the buffers behind them.
#pragma once

#include "dep/ubox.h"

#include <span>

// Sets the limits that are zero to their defaults, and all state to that of a fresh stream.
void stream_reset(ustream &s);
// Where the next bytes can be read to. Empty when the buffer is full, which blocks the reading, or
// when there is no memory: then the stream is polled again after a short time.
std::span<char> stream_read_room(ustream &s);
// Takes in `len` bytes that were read to that place, and announces them.
void stream_received(ustream &s, int len);
// Writes as much of the queue as possible and announces it.
void stream_flush(ustream &s);
void stream_set_eof(ustream &s);
// Enters the write_error state, in which the queue is dropped.
void stream_set_write_error(ustream &s);
