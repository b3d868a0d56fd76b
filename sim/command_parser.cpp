#include "sim/command_parser.h"

#include <algorithm>

namespace sim {
namespace {

constexpr size_t MAXIMUM_REQUEST = 1 << 20;
constexpr int MAXIMUM_DEPTH = 32;

} // namespace

CommandParser::CommandParser() : tokener_(json_tokener_new_ex(MAXIMUM_DEPTH)) {}

void CommandParser::drop()
{
    json_tokener_reset(tokener_.get());
    waiting_.clear();
    begun_ = 0;
}

bool CommandParser::next(Json &request)
{
    request.reset();
    // White space ends the value before it; it starts none, and counts for none.
    if (begun_ == 0) {
        auto blanks = waiting_.front().find_first_not_of(" \t\r\n");
        waiting_.consume(std::min(blanks, waiting_.size()));
    }
    if (waiting_.empty() || tokener_ == nullptr) {
        return false;
    }
    auto bytes = waiting_.front().substr(0, MAXIMUM_REQUEST);
    request.reset(
        json_tokener_parse_ex(tokener_.get(), bytes.data(), static_cast<int>(bytes.size())));
    auto error = json_tokener_get_error(tokener_.get());
    if (error == json_tokener_success) {
        waiting_.consume(json_tokener_get_parse_end(tokener_.get()));
        begun_ = 0;
        return true;
    }
    if (error == json_tokener_continue && begun_ + bytes.size() < MAXIMUM_REQUEST) {
        begun_ += bytes.size();
        waiting_.consume(bytes.size());
        return false;
    }
    request.reset();
    drop();
    return true;
}

} // namespace sim
