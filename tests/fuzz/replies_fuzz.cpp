// Fuzz entry: the daemon's replies, through the parser and the reply handlers of both front ends.
//
// The first byte chooses the front end (odd: the terminal UI), the second one is the size of the
// chunks in which the rest is sent. A dozen commands wait for these replies.
#include <algorithm>

#include "basic/port_info.h"
#include "front/sessions.h"
#include "fuzz/front_end.h"
#include "link/command.h"
#include "tui/port_history.h"
#include "tui/widget/widget_list.h"

namespace {

void send_replies(Connected &daemon, std::string_view bytes, size_t chunk, void (*between)())
{
    for (size_t at = 0; at < bytes.size(); at += chunk) {
        daemon.reply(std::string(bytes.substr(at, chunk)));
        run_turns();
        between();
    }
}

void play_basic(std::string_view bytes, size_t chunk)
{
    BasicInterface basic;
    for (int i = 0; i < 4; i++) {
        (void)send_bare_command(zorvad, "PORT_INFO", nullptr, basic_port_info_reply);
        send_list_sessions();
        (void)send_bare_command(zorvad, "BREAK", nullptr, nullptr);
    }
    send_replies(basic.daemon, bytes, chunk, [] {});
}

void play_terminal_ui(std::string_view bytes, size_t chunk)
{
    TerminalUi ui(60, 16);
    for (int i = 0; i < 4; i++) {
        widget_list_add(widget_list, port_history_new(&zorvad, 0, 2, 60, 14));
        widget_list_refresh(&widget_list->refresh); // asks for PORT_INFO and the history
        send_list_sessions();
    }
    send_replies(ui.daemon, bytes, chunk, [] { widget_list_refresh(&widget_list->refresh); });
    for (int i = 0; i < 8; i++) {
        widget_list_input("t", 1, widget_list);
        widget_list_input("[", 1, widget_list);
        widget_list_input("\033", 1, widget_list); // closes what is on top
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 3) {
        return 0;
    }
    const size_t chunk = data[1] + size_t{1};
    const std::string_view bytes(reinterpret_cast<const char *>(data + 2),
                                 std::min(size - 2, size_t{50000}));
    if (data[0] % 2 != 0) {
        play_terminal_ui(bytes, chunk);
    } else {
        play_basic(bytes, chunk);
    }
    return 0;
}
