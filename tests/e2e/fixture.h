// The client with either front end between a fake daemon and an emulated terminal or pipes.
#pragma once

#include "support/fake_daemon.h"
#include "support/program.h"
#include "support/text.h"

#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <optional>

namespace support {

enum FrontEnd { BASIC, TUI };

constexpr const char *PORT_INFO =
    R"({"label":"lab","users":"ann","info":"8N1","escape":5,"signals":{"dcd":true,"cts":true}})";
const std::string GREETING = "Connected to port: lab - Escape key is: Ctrl-e\r\n";
constexpr const char *QUIT = "\x05q";
constexpr int WHITE = 7, BLUE = 4, RED = 1, GREEN = 2, OWN = -1;

// Chunks arrive as they are sent, and no terminal turns \n into \r\n.
const Launch PIPES{.input = {Stream::PIPE}, .output = {Stream::PIPE}};
const Launch ADMIN{
    .arguments = {"admin"}, .input = {Stream::PIPE}, .output = {Stream::PIPE}, .columns = 120};

inline std::string log_line(const std::string &text)
{
    return "zorvad-client 24.3 " + text + "\n";
}

// What is done and what has to come of it.
struct Step {
    enum Kind {
        TYPE,  // read by the client in one piece, before the next step
        LEAVE, // typed, and the client ends
        PRINT, // by the port
        REPLY, // by the daemon
        SHOWS, // more output, just this; or this anywhere on the screen of the terminal UI
        GETS,  // the port does, more and just this
        ASKS,  // a bare request of that name
        LOGS,  // one more line, just this
    } kind;
    std::string text;
};
using enum Step::Kind;

struct Session {
    const FrontEnd front_end;
    FakeDaemon daemon;
    std::optional<Program> client;
    // What has come so far: output of the basic interface, bytes at the port. With what the test
    // expects to be logged and on standard error the session's end is checked.
    std::string shown = GREETING, at_port, logged, errors;
    std::string quit_keys = QUIT;
    int status = 0;
    int found_flags = 0; // O_NONBLOCK where a standard stream has it from the start
    bool looks_at_the_end = true;

    explicit Session(FrontEnd kind, DaemonOptions options = {}) : front_end(kind), daemon(options)
    {
        daemon.answer("SET_USER", "{}");
        daemon.answer("BREAK", "{}");
        daemon.answer("PORT_INFO", PORT_INFO);
    }

    // Whatever the test was about: the client ends with that status, now if it has not yet, says
    // nothing unexpected, and leaves the terminal as it was.
    ~Session()
    {
        if (!client || !looks_at_the_end || std::uncaught_exceptions() > 0 ||
            testing::Test::HasFatalFailure()) {
            return;
        }
        try {
            EXPECT_EQ(status, end());
            EXPECT_EQ(logged, client->log());
            EXPECT_EQ(errors, client->error_output());
            if (client->has_terminal()) {
                EXPECT_TRUE(terminal_is_as_found()) << client->description();
                expect_plain_screen();
            }
        } catch (const Failure &failure) {
            ADD_FAILURE() << failure.what();
        }
    }

    // Starts the program with PORT and the front end's option before the arguments given.
    void spawn(Launch setup)
    {
        std::vector<std::string> first{ZORVAD_CLIENT, daemon.key()};
        if (front_end == BASIC) {
            first.push_back("--basic-interface");
        }
        setup.arguments.insert(setup.arguments.begin(), first.begin(), first.end());
        client.emplace(std::move(setup));
    }
    void launch(Launch setup = {})
    {
        spawn(std::move(setup));
        daemon.expect_connected();
    }
    // Up to what PORT_INFO makes visible: the greeting, or the full status bar.
    void start(Launch setup = {}, const std::string &port_info = PORT_INFO)
    {
        daemon.answer("PORT_INFO", port_info);
        launch(std::move(setup));
        wait_until_up();
    }
    void wait_until_up()
    {
        if (front_end == BASIC) {
            client->wait_for_output(shown);
        } else {
            client->wait_until([this] { return bar_is_drawn(); }, "the status bar");
        }
    }

    void play(const std::vector<Step> &steps)
    {
        for (size_t index = 0; index < steps.size(); ++index) {
            SCOPED_TRACE("step " + std::to_string(index));
            play(steps[index]);
        }
    }
    // A whole session, after which nothing is left over.
    void play_all(const Launch &setup, const std::vector<Step> &steps)
    {
        start(setup);
        play(steps);
        expect_nothing_left();
    }
    void expect_nothing_left()
    {
        expect_relay();
        EXPECT_EQ(0, end());
        daemon.expect_received(at_port);
        EXPECT_EQ(0u, daemon.commands_waiting());
        if (front_end == BASIC) {
            play(Step{SHOWS, ""});
        }
    }
    // Both directions work, and what was typed before has been dealt with.
    void expect_relay()
    {
        client->send("~");
        play(Step{GETS, "~"});
    }

    int end()
    {
        if (client->running()) {
            client->send(quit_keys);
        }
        return client->wait_for_exit();
    }

    // As it is before a client runs on it.
    bool terminal_is_as_found()
    {
        static const std::string found = describe(Program({.arguments = {"/bin/true"}}).settings());
        return describe(client->settings()) == found && !(client->reading && screen().alternate) &&
               (client->stream_flags(0) & O_NONBLOCK) == found_flags &&
               (client->stream_flags(1) & O_NONBLOCK) == found_flags;
    }

    Screen &screen() { return client->screen(); }

    bool bar_is_drawn()
    {
        const int row = screen().rows() - 1, last = screen().columns() - 1;
        const std::string start = std::string("Label: lab").substr(0, size_t(std::max(last, 0)));
        return screen().row(row).starts_with(start) && screen().cell(row, last).background == BLUE;
    }

    // The status bar with the seconds replaced by an N.
    std::string bar()
    {
        std::string text = screen().row(screen().rows() - 1);
        if (const size_t start = text.find("Time: "); start != std::string::npos) {
            const size_t digits = start + strlen("Time: ");
            text.replace(digits, text.find_first_not_of("-0123456789", digits) - digits, "N");
        }
        return text;
    }

    // Once both agree: the port's rows show this.
    void expect_port_screen(const Picture &expected, Comparison what = {.colours = false})
    {
        what.rows = expected.rows;
        std::string difference;
        const auto agree = [&] {
            difference = compare(expected, screen().picture(), what);
            return difference.empty();
        };
        if (!loop().run_until(agree)) {
            throw Failure(difference + client->description());
        }
    }
    // What an emulator of that size shows of the bytes.
    void expect_port_screen(const std::string &bytes, bool cursor = true)
    {
        Screen direct(screen().rows() - 1, screen().columns());
        direct.feed(bytes);
        expect_port_screen(direct.picture(), {.colours = false, .cursor = cursor});
    }

    // Once it is so: the rows from (x, y) on read like this, all on blue.
    void expect_box(int x, int y, const std::vector<std::string> &rows)
    {
        std::vector<std::string> found;
        const auto drawn = [&] {
            found.clear();
            for (size_t row = 0; row < rows.size(); ++row) {
                found.push_back(screen().span(y + int(row), x, x + int(rows[row].size())));
            }
            return found == rows;
        };
        if (!loop().run_until(drawn)) {
            EXPECT_EQ(rows, found) << client->description();
        }
        for (size_t row = 0; row < rows.size(); ++row) {
            for (int column = x; column < x + int(rows[row].size()); ++column) {
                ASSERT_EQ(BLUE, screen().cell(y + int(row), column).background) << row << column;
            }
        }
    }

    // A resize that the client has answered: the bar is at its new place. What the client does not
    // draw anew is left as rubbish.
    void resize(int rows, int columns)
    {
        client->resize(rows, columns);
        const int cells = screen().rows() * screen().columns();
        screen().feed("\0337\033[H" + std::string(size_t(cells), '#') + "\0338");
        client->wait_until([this] { return bar_is_drawn(); }, "the status bar at its new place");
    }

    // The next refresh has been drawn and sent.
    void wait_for_refresh()
    {
        const size_t count = daemon.command_count("PORT_INFO");
        client->wait_until([&] { return daemon.command_count("PORT_INFO") >= count + 2; },
                           "two refreshes");
    }

private:
    void play(const Step &step)
    {
        const std::string &text = step.text;
        switch (step.kind) {
        case TYPE:
            client->send(text);
            return client->wait_until_read();
        case LEAVE:
            client->send(text);
            return (void)client->wait_for_exit();
        case PRINT:
            return daemon.send(text);
        case REPLY:
            return daemon.reply(text);
        case SHOWS:
            shown += text;
            return front_end == BASIC ? client->wait_for_output(shown)
                                      : client->wait_for_screen(text);
        case GETS:
            return daemon.expect_received(at_port += text);
        case ASKS:
            EXPECT_EQ("{\"cmd\":\"" + text + "\"}", daemon.next_command());
            return;
        case LOGS:
            logged += log_line(text);
            return client->wait_until([this] { return client->log() == logged; }, text);
        }
    }

    // Visible cursor, no attributes, plain keys; a resize of the emulator loses what it had saved
    // of them.
    void expect_plain_screen()
    {
        if (client->reading && front_end == TUI && !screen().resized) {
            EXPECT_TRUE(screen().cursor_visible);
            screen().feed("\r\nX");
            EXPECT_EQ(Cell{.text = "X"}, screen().cell(screen().cursor_row(), 0));
        }
        const std::string &output = client->output();
        for (const auto &[on, off] : {std::pair{"\x1b[?1h", "\x1b[?1l"},
                                      {"\x1b=", "\x1b>"},
                                      {"\x1b[?2004h", "\x1b[?2004l"}}) {
            const size_t last = front_end == BASIC ? std::string::npos : output.rfind(on);
            EXPECT_TRUE(last == std::string::npos || last < output.rfind(off)) << on + 1;
        }
    }
};

} // namespace support
