// Fuzz entry: bytes typed in the terminal UI, through termbox2's parser, the hook for escape
// sequences and the escape machine, with popups and the history opened on the way.
//
// The first byte is the size of the chunks in which the rest is typed. Input without the escape
// character has to reach the port as it is, but for an unfinished character at its end.
#include <algorithm>
#include <cstdlib>

#include "fuzz/front_end.h"

namespace {

constexpr std::string_view REPLY =
    R"({"label":"port","sessions":[{"username":"u"}],"scrollback":[{"line":"l","type":2}]})";
constexpr size_t LONGEST_CHARACTER = 6;

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2) {
        return 0;
    }
    const size_t chunk = data[0] % 64U + 1;
    const std::string_view typed(reinterpret_cast<const char *>(data + 1),
                                 std::min(size - 1, size_t{20000}));
    TerminalUi ui(40, 12);
    for (size_t at = 0; at < typed.size() && !zorvad.quit; at += chunk) {
        ui.type(typed.substr(at, chunk));
        ui.turn();
        answer_requests(ui.daemon, REPLY);
    }
    if (typed.find(static_cast<char>(DEFAULT_ESCAPE_CHAR)) != std::string_view::npos) {
        return 0;
    }
    ui.turn();
    const size_t least = typed.size() - std::min(typed.size(), LONGEST_CHARACTER);
    const std::string received = receive(ui.daemon.data, least);
    if (received.size() < least || !typed.starts_with(received)) {
        abort();
    }
    return 0;
}
