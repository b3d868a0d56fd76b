// Decides when a stream may read. A source is held while its sink has too much waiting, and for one
// turn of the loop once its bytes have taken about TURN_US to handle: the streams read until
// nothing is left, so a source that never runs dry would keep everything else waiting.
#pragma once

#include <stdint.h>

#include "dep/ubox.h"

// How long one source is handled before everything else gets a turn.
constexpr int64_t TURN_US = 500;

// Why a source is held; several may hold it at once.
enum ReadHold : uint8_t {
    HOLD_SINK = 1, // the stream it feeds has too much waiting
    HOLD_TURN = 2, // its turn is over
    HOLD_END = 4,  // the session is over: it is never released
    // Further streams that it feeds as well, named by its owner.
    HOLD_SECOND_SINK = 8,
    HOLD_THIRD_SINK = 16,
    HOLD_REST = 32, // little comes, and what comes next can wait a moment
    HOLD_AWAY = 64, // it is a terminal that somebody else has
};

struct ReadGate {
    ustream_fd *source;
    uint8_t holds;    // ReadHold bits
    int64_t bytes;    // read in all
    int64_t spent_us; // on handling what was read since the last turn began
    int64_t since_us; // what is being handled now
    uloop_timeout next_turn;
};

// Before source's read callback runs for the first time.
void read_gate_init(ReadGate &gate, ustream_fd &source);

// Keeps the source from reading until every reason that held it is released.
void read_gate_hold(ReadGate &gate, ReadHold reason);

// The last release hands on what the source has buffered and lets it read again, also one that the
// loop cannot watch (a file) or whose end it has reported already.
void read_gate_release(ReadGate &gate, ReadHold reason);

// To be called by the source's read callback at its beginning, and for every piece it has handled,
// after which the source may be held.
void read_gate_enter(ReadGate &gate);
void read_gate_count(ReadGate &gate, int32_t bytes);

// Reads what there is: from a source that the loop does not watch, or ahead of its next event.
void read_gate_poll(ReadGate &gate);
