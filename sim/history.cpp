#include "sim/history.h"

#include <algorithm>
#include <functional>
#include <iterator>

namespace sim {
namespace {

// A longer line goes on as another one, so that binary output does not grow a line for ever.
constexpr size_t MAXIMUM_LINE = 4096;

bool is_left_out(char byte)
{
    return byte == '\r' || byte == '\0';
}

} // namespace

HistoryLine &History::add(LineType type, int64_t now)
{
    auto place = static_cast<size_t>(next_index_) % limit_;
    if (place >= lines_.size()) {
        lines_.emplace_back();
    }
    HistoryLine &line = lines_[place];
    line.text.clear();
    line.timestamp = now;
    line.type = type;
    line.index = next_index_++;
    return line;
}

void History::extend(int64_t &open, LineType type, std::string_view bytes, int64_t now)
{
    do {
        // The ring may have gone round since the line was begun.
        bool kept = open != NO_LINE && next_index_ - open <= static_cast<int64_t>(limit_);
        HistoryLine *line = kept ? &lines_[static_cast<size_t>(open) % limit_] : nullptr;
        if (line == nullptr || (line->text.size() == MAXIMUM_LINE && !bytes.empty())) {
            line = &add(type, now);
        }
        open = line->index;
        auto part = bytes.substr(0, MAXIMUM_LINE - line->text.size());
        if (std::ranges::none_of(part, is_left_out)) {
            line->text.append(part);
        } else {
            std::ranges::copy_if(part, std::back_inserter(line->text), std::not_fn(is_left_out));
        }
        bytes.remove_prefix(part.size());
    } while (!bytes.empty());
}

void History::received(std::string_view bytes, int64_t now)
{
    if (limit_ == 0) {
        return;
    }
    while (!bytes.empty()) {
        auto end = bytes.find('\n');
        extend(open_received_, LineType::Received, bytes.substr(0, end), now);
        if (end == std::string_view::npos) {
            return;
        }
        open_received_ = NO_LINE;
        bytes.remove_prefix(end + 1);
    }
}

void History::sent(std::string_view bytes, int64_t now)
{
    if (limit_ == 0) {
        return;
    }
    while (!bytes.empty()) {
        if (after_return_ && bytes.front() == '\n') {
            bytes.remove_prefix(1);
        }
        after_return_ = false;
        if (bytes.empty()) {
            return;
        }
        auto end = bytes.find_first_of("\r\n");
        extend(open_sent_, LineType::Sent, bytes.substr(0, end), now);
        if (end == std::string_view::npos) {
            return;
        }
        open_sent_ = NO_LINE;
        after_return_ = bytes[end] == '\r';
        bytes.remove_prefix(end + 1);
    }
}

void History::event(LineType type, std::string_view text, int64_t now)
{
    if (limit_ != 0) {
        add(type, now).text = text;
    }
}

const HistoryLine &History::newest(size_t number) const
{
    return lines_[static_cast<size_t>(next_index_ - 1 - static_cast<int64_t>(number)) % limit_];
}

} // namespace sim
