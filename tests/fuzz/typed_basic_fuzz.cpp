// Fuzz entry: chunks of standard input in the basic interface, through the escape machine and the
// sessions dialogue.
//
// The first byte is the size of the chunks in which the rest is typed. Input without the escape
// character has to reach the port as it is.
#include <algorithm>
#include <cstdlib>

#include "fuzz/front_end.h"

namespace {

constexpr std::string_view REPLY = R"({"sessions":[{"username":"u","session_time":1.5}]})";

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2) {
        return 0;
    }
    const size_t chunk = data[0] % 64U + 1;
    const std::string_view typed(reinterpret_cast<const char *>(data + 1),
                                 std::min(size - 1, size_t{20000}));
    BasicInterface basic;
    for (size_t at = 0; at < typed.size() && !zorvad.quit; at += chunk) {
        basic.type(typed.substr(at, chunk));
        basic.turn();
        answer_requests(basic.daemon, REPLY);
    }
    if (typed.find(static_cast<char>(DEFAULT_ESCAPE_CHAR)) == std::string_view::npos &&
        receive(basic.daemon.data, typed.size()) != typed) {
        abort();
    }
    return 0;
}
