#include "tui/input.h"

#include <string.h>

#include <string_view>

#include "dep/termbox.h"
#include "front/escape.h"
#include "front/help.h"
#include "front/sessions.h"
#include "link/clock.h"
#include "link/connection.h"
#include "link/owned.h"
#include "text/printable.h"
#include "tui/popup.h"
#include "tui/port_history.h"
#include "tui/termbox.h"
#include "tui/widget/widget_list.h"

namespace {

// How long keys that were typed before the end are handled.
constexpr int64_t LAST_TURN_US = 100000;

struct Keyboard {
    uloop_fd terminal_watch;
    uloop_fd resize_watch;
    bool watching;
    bool paused; // the port takes no more
    uloop_timeout next_turn;
};
Keyboard keyboard;

// Keys for the terminal widget, gathered so that a paste is not written byte by byte.
struct Gathered {
    char bytes[4096];
    size_t length;
};
Gathered gathered;

// A paste between the marks of the terminal, in which no key is a command.
struct Paste {
    bool open;         // its beginning has come and its end has not
    bool discarded;    // a popup took its beginning
    uint8_t matched;   // bytes of a mark that the input ended with
    bool popup_closed; // those bytes closed a popup
    int64_t heard;     // when input was read last
};
Paste paste;
constexpr std::string_view PASTE_BEGIN = "\x1b[200~";
constexpr std::string_view PASTE_END = "\x1b[201~";
// After such a silence a paste without an end is over: the commands must work again.
constexpr int64_t PASTE_PATIENCE_MS = 5000;

// Looks at the next byte of input: true when it completes a mark.
bool take_mark(char byte)
{
    const std::string_view mark = paste.open ? PASTE_END : PASTE_BEGIN;
    if (byte != mark[paste.matched]) {
        paste.matched = byte == mark[0] ? 1 : 0;
        return false;
    }
    paste.matched++;
    if (paste.matched < mark.size()) {
        return false;
    }
    paste.matched = 0;
    paste.open = !paste.open;
    return true;
}

void deliver_gathered()
{
    if (gathered.length == 0) {
        return;
    }
    const size_t length = gathered.length;
    gathered.length = 0;
    gathered.bytes[length] = '\0';
    widget_list_input(gathered.bytes, static_cast<int>(length), widget_list);
}

bool terminal_widget_is_top()
{
    return !list_empty(&widget_list->widgets) &&
           list_first_entry(&widget_list->widgets, Widget, list)->kind == LAYOUT_TERMINAL;
}

// While the session ends typed bytes still go to the port, but to no popup.
bool may_forward()
{
    return !connection_is_ending(zorvad) || terminal_widget_is_top();
}

// Forwards one key; anything but the terminal widget gets its keys one by one.
void forward(const char *bytes, size_t length)
{
    if (!may_forward()) {
        return;
    }
    if (gathered.length + length >= sizeof gathered.bytes) {
        deliver_gathered();
    }
    memcpy(gathered.bytes + gathered.length, bytes, length);
    gathered.length += length;
    if (!terminal_widget_is_top()) {
        deliver_gathered();
    }
}

// Whether the bytes are not UTF-8, or a letter of ASCII in an overlong form: termbox2 makes some
// key of them, which nobody has pressed.
bool is_stray(const tb_event &event, const KeyBytes &key)
{
    return static_cast<unsigned char>(key.bytes[0]) >= 0x80 && (key.length == 1 || event.ch < 0x80);
}

// termbox2 tells characters by code point, and control keys by key with a code point of 0.
bool is_escape(const tb_event &event)
{
    return (event.ch != 0 ? event.ch : event.key) == zorvad.escape_char;
}

// Takes a key that is part of a paste; false for another one.
bool take_pasted(const KeyBytes &key)
{
    const bool was_open = paste.open;
    const bool discarded = paste.discarded;
    const bool popup_closed = paste.popup_closed && paste.matched > 1;
    for (size_t i = 0; i < key.length; i++) {
        (void)take_mark(key.bytes[i]);
    }
    const bool goes_on = popup_closed && (paste.matched > 1 || paste.open);
    paste.popup_closed = goes_on;
    if (paste.open && !was_open) {
        paste.discarded = goes_on || !terminal_widget_is_top();
    }
    paste.discarded = paste.discarded && paste.open;
    if (was_open && !discarded) {
        forward(key.bytes, key.length);
    }
    return was_open || goes_on;
}

// The part of raw input that does not belong to a discarded paste.
std::string_view without_discarded(std::string_view bytes)
{
    const bool popup = !terminal_widget_is_top();
    bool discarded = paste.discarded;
    size_t taken = discarded ? bytes.size() : 0;
    for (size_t i = 0; i < bytes.size(); i++) {
        if (!take_mark(bytes[i])) {
            continue;
        }
        if (!paste.open && discarded) {
            discarded = false;
            taken = i + 1;
        }
        paste.discarded = paste.open && popup;
    }
    paste.popup_closed = popup;
    bytes.remove_prefix(taken);
    return bytes;
}

void open_help()
{
    const Text text(help_text());
    if (text) {
        popup_open(text.get(), PopupPlace::HELP, nullptr);
    }
}

void quit_session()
{
    connection_quit(zorvad);
}

void open_history()
{
    (void)widget_list_open(widget_list, port_history_new, LAYOUT_TALL_POPUP, zorvad);
}

struct Command {
    uint32_t key;
    void (*run)();
};
constexpr Command COMMANDS[] = {
    {'q', quit_session}, {'b', send_break}, {'d', sessions_request},
    {'s', open_history}, {'?', open_help},
};

// Returns false for a key that is no command. While the session ends, commands do nothing.
bool run_command(uint32_t key)
{
    for (const Command &command : COMMANDS) {
        if (command.key == key) {
            if (!connection_is_ending(zorvad)) {
                command.run();
            }
            return true;
        }
    }
    return false;
}

void handle_key(const tb_event &event, const KeyBytes &key)
{
    const bool stray = is_stray(event, key);
    const bool escape = !stray && is_escape(event);
    if (escape && !escape_pending) {
        escape_pending = 1;
        return;
    }
    if (escape_pending && !escape && !stray) {
        deliver_gathered(); // what was typed before the command goes out before it
        escape_pending = 0;
        if (run_command(event.ch)) {
            return;
        }
    }
    escape_pending = 0;
    if (escape) {
        const char byte = static_cast<char>(zorvad.escape_char); // whatever bytes it came as
        forward(&byte, 1);
        return;
    }
    forward(key.bytes, key.length);
}

void handle_event(const tb_event &event, const KeyBytes &key)
{
    switch (event.type) {
    case TB_EVENT_RESIZE:
        deliver_gathered();
        widget_list_resize(widget_list, tb_height(), tb_width());
        break;
    case TB_EVENT_KEY:
        if (!take_pasted(key)) {
            handle_key(event, key);
        }
        break;
    default:
        break;
    }
}

// While the terminal is not read it is watched by edges: once for new input, and for a hang-up.
void pause_reading(bool pause)
{
    keyboard.paused = pause;
    const unsigned int flags = ULOOP_READ | ULOOP_BLOCKING;
    (void)uloop_fd_add(&keyboard.terminal_watch, pause ? flags | ULOOP_EDGE_TRIGGER : flags);
}

void forget_cut_paste()
{
    const int64_t now = monotonic_ms();
    if (paste.open && now - paste.heard > PASTE_PATIENCE_MS) {
        paste = {};
    }
    paste.heard = now;
}

// Handles every complete event that termbox2 holds or can read, up to a turn's share. A new size is
// taken even while the port is stuck, with the few keys that termbox2 gives out before it.
void handle_events(bool resized, int64_t turn_us)
{
    forget_cut_paste();
    const int64_t turn_end = monotonic_us() + turn_us;
    bool turn_over = false;
    tb_event event;
    KeyBytes key;
    while (!zorvad.quit && (resized || !port_is_stuck(zorvad)) && !turn_over &&
           tui_next_event(&event, &key)) {
        handle_event(event, key);
        resized = resized && event.type != TB_EVENT_RESIZE;
        turn_over = monotonic_us() >= turn_end;
    }
    deliver_gathered();
    if (zorvad.quit) {
        tui_input_stop(); // keys that nobody reads would keep the loop busy until the end
        return;
    }
    if (port_is_stuck(zorvad)) {
        if (!keyboard.paused) {
            pause_reading(true); // a second registration would report the same input at once
        }
    } else if (turn_over) {
        // No descriptor tells of bytes that termbox2 holds.
        uloop_timeout_set(&keyboard.next_turn, 0);
    }
}

void on_next_turn(uloop_timeout *)
{
    handle_events(false, TURN_US);
}

void on_port_drained()
{
    if (keyboard.paused && keyboard.watching) {
        pause_reading(false);
        paste.heard = monotonic_ms(); // the client did not read meanwhile
        uloop_timeout_set(&keyboard.next_turn, 0);
    }
}

void deliver_raw(const char *bytes, size_t length)
{
    deliver_gathered();
    const std::string_view rest = without_discarded({bytes, length});
    if (!rest.empty() && may_forward()) {
        widget_list_input(rest.data(), static_cast<int>(rest.size()), widget_list);
    }
}

} // namespace

int tui_input_start()
{
    keyboard.terminal_watch.cb = tui_input_cb;
    keyboard.resize_watch.cb = tui_input_cb;
    keyboard.next_turn.cb = on_next_turn;
    zorvad.on_port_drained = on_port_drained;
    if (tb_get_fds(&keyboard.terminal_watch.fd, &keyboard.resize_watch.fd) != TB_OK) {
        return -1;
    }
    keyboard.watching = true;
    keyboard.paused = false;
    paste = {};
    if (uloop_fd_add(&keyboard.terminal_watch, ULOOP_READ | ULOOP_BLOCKING) != 0 ||
        uloop_fd_add(&keyboard.resize_watch, ULOOP_READ | ULOOP_BLOCKING) != 0) {
        tui_input_stop();
        return -1;
    }
    return 0;
}

void tui_input_stop()
{
    keyboard.watching = false;
    uloop_timeout_cancel(&keyboard.next_turn);
    uloop_fd_delete(&keyboard.terminal_watch);
    uloop_fd_delete(&keyboard.resize_watch);
}

void tui_input_finish()
{
    if (keyboard.watching) {
        handle_events(false, LAST_TURN_US);
        tui_input_stop();
    }
}

int tui_terminal_descriptor()
{
    return keyboard.watching ? keyboard.terminal_watch.fd : -1;
}

void tui_input_cb(uloop_fd *fd, unsigned int)
{
    if (tb_width() < 0) {
        return;
    }
    const bool gone = fd->eof || fd->error; // pausing registers the watch anew, which clears both
    handle_events(fd == &keyboard.resize_watch, TURN_US);
    if (gone) {
        connection_quit(zorvad);
    }
}

int tui_extract_hook(tb_event *event, size_t *consumed)
{
    const UnparsedInput input = tui_unparsed_input();
    const size_t complete = input.length - incomplete_tail({input.bytes, input.length});
    // ESC with one byte behind it is Alt and a letter of Latin-1, not an unfinished character.
    const size_t length = complete > 1 ? complete : input.length;
    const char behind = input.bytes[length];
    event->type = TUI_EVENT_RAW_INPUT;
    input.bytes[length] = '\0';
    deliver_raw(input.bytes, length);
    input.bytes[length] = behind;
    *consumed = length;
    return TB_OK;
}
