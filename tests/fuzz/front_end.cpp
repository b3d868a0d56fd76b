#include "fuzz/front_end.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "basic/console.h"
#include "basic/start.h"
#include "front/escape.h"
#include "front/sessions.h"
#include "tui/input.h"
#include "tui/start.h"
#include "tui/widget/widget_list.h"

namespace {

winsize size_of(int columns, int rows)
{
    winsize size{};
    size.ws_col = static_cast<unsigned short>(columns);
    size.ws_row = static_cast<unsigned short>(rows);
    return size;
}

// The tests' own words: the standard output belongs to the client.
const bool messages_apart = [] {
    FILE *messages = fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0), "w");
    stdout = messages != nullptr ? messages : stdout;
    return true;
}();

void write_all(int descriptor, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t length = write(descriptor, bytes.data(), bytes.size());
        if (length > 0) {
            bytes.remove_prefix(static_cast<size_t>(length));
        } else {
            uloop_run_timeout(1);
        }
    }
}

// Puts nothing on one of the standard descriptors, which must never become anything else.
void open_nothing_at(int descriptor)
{
    const int nothing = open("/dev/null", O_RDWR);
    dup2(nothing, descriptor);
    close(nothing);
}

// Ends whatever value has begun and answers every command, as an unanswered one leaks.
void answer_all(Connected &daemon)
{
    json_stream_free(zorvad.reply_parser);
    zorvad.reply_parser = nullptr;
    while (!list_empty(&zorvad.commands)) {
        daemon.reply("{}");
        run_turns();
    }
}

} // namespace

TerminalUi::TerminalUi(int columns, int rows)
{
    const winsize size = size_of(columns, rows);
    int user_side = -1;
    char path[64];
    if (openpty(&terminal, &user_side, path, nullptr, &size) != 0) {
        throw std::runtime_error("no pty");
    }
    setenv("TERM", "xterm", 1);
    front_end = &tui_front_end;
    access_right = "admin";
    escape_pending = 0;
    fcntl(terminal, F_SETFL, O_NONBLOCK);
    const int result = tui_start_on(path, zorvad);
    close(user_side);
    if (result != 0) {
        close(terminal);
        throw std::runtime_error("the terminal UI does not start");
    }
}

TerminalUi::~TerminalUi()
{
    answer_all(daemon);
    tui_input_stop();
    tui_stop();
    widget_list_free(widget_list);
    widget_list = nullptr;
    close(terminal);
}

void TerminalUi::type(std::string_view bytes)
{
    write_all(terminal, bytes);
    // The system hands typed bytes over a moment later.
    pollfd arrival = {tui_terminal_descriptor(), POLLIN, 0};
    poll(&arrival, 1, 1000);
}

void TerminalUi::resize(int columns, int rows)
{
    const winsize size = size_of(columns, rows);
    ioctl(terminal, TIOCSWINSZ, &size);
    raise(SIGWINCH);
}

void TerminalUi::turn()
{
    run_turns();
    discard(terminal);
}

BasicInterface::BasicInterface(bool on_terminal)
{
    int ends[2];
    if ((on_terminal ? openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr)
                     : socketpair(AF_UNIX, SOCK_STREAM, 0, ends)) != 0) {
        throw std::runtime_error("no keyboard");
    }
    keyboard = ends[0];
    dup2(ends[1], STDIN_FILENO);
    close(ends[1]);
    open_nothing_at(STDOUT_FILENO);
    fcntl(keyboard, F_SETFL, O_NONBLOCK);
    front_end = &basic_front_end;
    access_right = "admin";
    escape_pending = 0;
    input_hook = nullptr;
    stdin_stream = {};
    stdout_stream = {};
    typed_input = {};
    (void)front_end->start(zorvad); // it always can
}

BasicInterface::~BasicInterface()
{
    uloop_timeout_cancel(&typed_input.next_turn);
    run_turns(); // the stream's first reading, which would come to nothing later
    ustream_free(&stdin_stream.stream);
    ustream_free(&stdout_stream.stream);
    open_nothing_at(STDIN_FILENO);
    close(keyboard);
    for (size_t i = 0; i < zorvad.outlet_count; i++) {
        free(zorvad.outlets[i]);
    }
    free(zorvad.outlets);
}

void BasicInterface::type(std::string_view bytes)
{
    write_all(keyboard, bytes);
}

void BasicInterface::turn()
{
    run_turns();
}

void run_turns()
{
    for (int i = 0; i < 10; i++) {
        uloop_run_timeout(0);
    }
}

void discard(int descriptor)
{
    char bytes[65536];
    while (read(descriptor, bytes, sizeof bytes) > 0) {
    }
}

void answer_requests(Connected &daemon, std::string_view reply)
{
    char bytes[4096];
    ssize_t length;
    while ((length = recv(daemon.cmd, bytes, sizeof bytes, MSG_DONTWAIT)) > 0) {
        const std::string_view requests(bytes, static_cast<size_t>(length));
        for (size_t at = requests.find("\"cmd\""); at != std::string_view::npos;
             at = requests.find("\"cmd\"", at + 1)) {
            daemon.reply(std::string(reply));
            run_turns();
        }
    }
}
