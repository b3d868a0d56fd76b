#include "link/read_gate.h"

#include <fcntl.h>

#include "link/clock.h"

namespace {

void begin_turn(uloop_timeout *timer)
{
    ReadGate *gate = container_of(timer, ReadGate, next_turn);
    gate->spent_us = 0;
    read_gate_release(*gate, HOLD_TURN);
}

} // namespace

void read_gate_init(ReadGate &gate, ustream_fd &source)
{
    gate.source = &source;
    gate.next_turn.cb = begin_turn;
}

void read_gate_hold(ReadGate &gate, ReadHold reason)
{
    if (gate.holds == 0) {
        ustream_set_read_blocked(&gate.source->stream, true);
    }
    gate.holds = static_cast<uint8_t>(gate.holds | reason);
}

void read_gate_release(ReadGate &gate, ReadHold reason)
{
    const bool was_held = gate.holds != 0;
    gate.holds = static_cast<uint8_t>(gate.holds & ~reason);
    if (!was_held || gate.holds != 0) {
        return;
    }
    ustream &stream = gate.source->stream;
    if (stream.r.data_bytes > 0) {
        stream.notify_read(&stream, stream.r.data_bytes);
        if (gate.holds != 0) {
            return; // held again
        }
    }
    ustream_set_read_blocked(&stream, false);
    // A pipe whose writer went away while it was held reports that as an error only.
    if (!gate.source->fd.registered || stream.write_error) {
        read_gate_poll(gate);
    }
}

void read_gate_enter(ReadGate &gate)
{
    gate.since_us = monotonic_us();
}

void read_gate_count(ReadGate &gate, int32_t bytes)
{
    const int64_t now = monotonic_us();
    const int64_t took = now - gate.since_us;
    gate.bytes += bytes;
    gate.spent_us += took;
    gate.since_us = now;
    // Another piece like this one would end further from the end of the turn.
    if (gate.spent_us + took / 2 >= TURN_US && (gate.holds & HOLD_TURN) == 0) {
        read_gate_hold(gate, HOLD_TURN);
        uloop_timeout_set(&gate.next_turn, 0);
    }
}

void read_gate_poll(ReadGate &gate)
{
    // A stream reads until the read would block: without O_NONBLOCK the client would block with it.
    const int flags = fcntl(gate.source->fd.fd, F_GETFL);
    if (gate.holds == 0 && !gate.source->stream.eof && (flags & O_NONBLOCK) != 0) {
        (void)ustream_poll(&gate.source->stream); // what it read went to the read callback
    }
}
