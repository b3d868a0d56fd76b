// Faults on purpose: what the simulator does to its replies and connections so that a client can
// be tested against a daemon that is slow, broken or gone.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>

namespace sim {

enum class Sockets { None, Command, Data, Both };

struct Faults {
    int delay = 0;       // milliseconds before each reply
    int split = -1;      // each byte written by itself, so many milliseconds apart; -1: whole
    int garbage = -1;    // bytes that are no JSON, so long before each reply; -1: none
    size_t coalesce = 1; // replies held back until there are so many, then written together
    bool mute = false;   // no reply at all
    std::string extra;   // follows each reply in the same write
    std::string only;    // the one command whose replies the above are done to; empty: all
    Sockets hang_up = Sockets::None;
    size_t hang_up_command = 0; // on this command, counted from 1 on each connection; 0: by time
    size_t hang_up_bytes = 0;   // after so many bytes of its reply
    int hang_up_after = 0;      // milliseconds after the client connected
};

// Takes one fault as options and the control socket write it, "split" and "2" for instance; "none"
// clears all. False with a sentence in error.
bool parse_fault(Faults &faults, std::string_view name, std::string_view value, std::string &error);
// The sockets named by "cmd", "data" or "both"; None for another text.
Sockets parse_sockets(std::string_view text);

// Bytes to be written in one go, a while after those before; then maybe a hang-up.
struct Piece {
    std::string bytes;
    int delay = 0;
    Sockets hang_up = Sockets::None;
};

// The replies of one command connection on their way through the faults.
class ReplyPlan {
public:
    // Appends what becomes of the reply to pieces.
    void add(const Faults &faults, std::string_view command, std::string reply,
             std::deque<Piece> &pieces);

private:
    size_t commands_ = 0;
    std::string held_;
    size_t held_count_ = 0;
};

} // namespace sim
