// A port's past: the last lines sent and received and what happened besides, each with the time of
// its first byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

// The numbers stand in the SCROLLBACK reply.
enum class LineType : int { Login = 0, Kick = 1, Sent = 2, Received = 3, Signal = 4 };

struct HistoryLine {
    std::string text;
    int64_t timestamp = 0; // milliseconds since the epoch
    int64_t index = 0;     // counts all lines from 0, the forgotten ones too
    LineType type = LineType::Received;
};

class History {
public:
    // Keeps the newest limit lines; with 0 none at all.
    explicit History(size_t limit) : limit_(limit) {}

    // Port output: a line ends at a line feed; carriage returns and NUL bytes are left out. What
    // follows the last line feed is a line too, which grows with the next call.
    void received(std::string_view bytes, int64_t now);
    // Port input: a line ends where Enter was sent, as CR, LF or both.
    void sent(std::string_view bytes, int64_t now);
    void event(LineType type, std::string_view text, int64_t now);

    size_t size() const { return lines_.size(); }
    // The newest line is 0, the oldest size() - 1.
    const HistoryLine &newest(size_t number) const;

private:
    static constexpr int64_t NO_LINE = -1;

    HistoryLine &add(LineType type, int64_t now);
    void extend(int64_t &open, LineType type, std::string_view bytes, int64_t now);

    size_t limit_;
    std::vector<HistoryLine> lines_; // a ring: line n is at n % limit_
    int64_t next_index_ = 0;
    int64_t open_received_ = NO_LINE; // the lines that still grow
    int64_t open_sent_ = NO_LINE;
    bool after_return_ = false; // the last byte sent was a CR, an LF now belongs to it
};

} // namespace sim
