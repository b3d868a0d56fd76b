// Cuts the bytes of a command connection into requests.
#pragma once

#include "sim/byte_queue.h"
#include "sim/json.h"

#include <string>
#include <string_view>

namespace sim {

class CommandParser {
public:
    CommandParser();

    void push(std::string_view bytes) { waiting_.append(bytes); }
    // Bytes that next() has not looked at yet.
    bool has_waiting() const { return !waiting_.empty(); }

    // True for the next request: any JSON value (null too), or null for bytes that are none, a
    // value nested too deep or one too long. What was pushed together with such bytes is dropped.
    // False when more bytes are needed.
    bool next(Json &request);

private:
    struct TokenerRelease {
        void operator()(json_tokener *tokener) const { json_tokener_free(tokener); }
    };

    void drop();

    std::unique_ptr<json_tokener, TokenerRelease> tokener_;
    ByteQueue waiting_;
    size_t begun_ = 0; // bytes of the value that is not complete yet
};

} // namespace sim
