#include "sim/fault.h"

#include "sim/values.h"

#include <climits>

namespace sim {
namespace {

constexpr std::string_view GARBAGE = "\xff}garbage]\"{,";

// WHICH:N, WHICH:N:BYTES or WHICH@MILLISECONDS
bool parse_hang_up(Faults &faults, std::string_view value)
{
    auto mark = value.find_first_of(":@");
    if (mark == std::string_view::npos) {
        return false;
    }
    faults.hang_up = parse_sockets(value.substr(0, mark));
    auto number = value.substr(mark + 1);
    faults.hang_up_command = 0;
    faults.hang_up_bytes = 0;
    if (faults.hang_up == Sockets::None) {
        return false;
    }
    if (value[mark] == '@') {
        return parse_number(number, 0, INT_MAX, faults.hang_up_after);
    }
    auto colon = number.find(':');
    if (colon != std::string_view::npos &&
        !parse_number(number.substr(colon + 1), 0, INT_MAX, faults.hang_up_bytes)) {
        return false;
    }
    return parse_number(number.substr(0, colon), 1, INT_MAX, faults.hang_up_command);
}

} // namespace

Sockets parse_sockets(std::string_view text)
{
    if (text == "cmd") {
        return Sockets::Command;
    }
    if (text == "data") {
        return Sockets::Data;
    }
    return text == "both" ? Sockets::Both : Sockets::None;
}

bool parse_fault(Faults &faults, std::string_view name, std::string_view value, std::string &error)
{
    bool good = true;
    if (name == "none") {
        faults = Faults();
    } else if (name == "delay") {
        good = parse_number(value, 0, INT_MAX, faults.delay);
    } else if (name == "split") {
        good = parse_number(value, 0, INT_MAX, faults.split);
    } else if (name == "garbage") {
        good = parse_number(value, 0, INT_MAX, faults.garbage);
    } else if (name == "coalesce") {
        good = parse_number(value, 1, INT_MAX, faults.coalesce);
    } else if (name == "mute") {
        faults.mute = true;
    } else if (name == "extra") {
        faults.extra = value;
    } else if (name == "only") {
        faults.only = value;
    } else if (name == "hangup") {
        good = parse_hang_up(faults, value);
    } else {
        error = "unknown fault '" + std::string(name) + "'";
        return false;
    }
    if (!good) {
        error = "bad value '" + std::string(value) + "' for fault " + std::string(name);
    }
    return good;
}

void ReplyPlan::add(const Faults &faults, std::string_view command, std::string reply,
                    std::deque<Piece> &pieces)
{
    commands_++;
    bool hang_up = faults.hang_up != Sockets::None && faults.hang_up_command == commands_;
    if (hang_up && reply.size() > faults.hang_up_bytes) {
        reply.resize(faults.hang_up_bytes);
    }
    if (!faults.only.empty() && faults.only != command) {
        pieces.push_back({std::move(reply), 0, hang_up ? faults.hang_up : Sockets::None});
        return;
    }

    held_ += faults.mute ? std::string() : reply + faults.extra;
    if (++held_count_ < faults.coalesce && !hang_up) {
        return;
    }
    int delay = faults.delay;
    if (faults.garbage >= 0 && !faults.mute) {
        pieces.push_back({std::string(GARBAGE), delay});
        delay = faults.garbage;
    }
    if (faults.split >= 0) {
        for (char byte : held_) {
            pieces.push_back({std::string(1, byte), delay});
            delay = faults.split;
        }
    } else if (!held_.empty()) {
        pieces.push_back({std::move(held_), delay});
    }
    if (hang_up) {
        pieces.push_back({"", 0, faults.hang_up});
    }
    held_.clear();
    held_count_ = 0;
}

} // namespace sim
