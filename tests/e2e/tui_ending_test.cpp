// The terminal UI comes up, gives the terminal back, and survives what terminals do.
#include "e2e/tui.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>

using namespace support;

namespace {

void expect_terminal_given_back(Program &client)
{
    const Program fresh({.arguments = {"/bin/cat"}});
    EXPECT_EQ(describe(fresh.settings()), describe(client.settings()));
    EXPECT_EQ(0, client.stream_flags(0) & O_NONBLOCK);
    for (const auto &[on, off] :
         {std::pair{"\x1b[?1h", "\x1b[?1l"}, {"\x1b=", "\x1b>"}, {"\x1b[?2004h", "\x1b[?2004l"}}) {
        const size_t last = client.output().rfind(on);
        EXPECT_TRUE(last == std::string::npos || last < client.output().rfind(off)) << on + 1;
    }
    EXPECT_FALSE(client.screen().alternate);
    EXPECT_TRUE(client.screen().cursor_visible);
    client.screen().feed("\r\nX"); // in plain attributes
    const Cell last = client.screen().cell(client.screen().cursor_row(), 0);
    EXPECT_EQ(Cell{.text = "X"}, last);
    EXPECT_EQ("", client.error_output() + client.log());
}

} // namespace

TEST(TuiEnding, TheTerminalIsGivenBack)
{
    const struct {
        const char *name;
        std::function<void(Tui &)> end;
    } endings[] = {
        {"escape q", [](Tui &tui) { tui.client->send("\5q"); }},
        {"escape q over popups", [](Tui &tui) { tui.client->send("\5?\5s\5q"); }},
        {"data hang-up", [](Tui &tui) { tui.daemon.hang_up_data(); }},
        {"cmd hang-up", [](Tui &tui) { tui.daemon.hang_up_cmd(); }},
        {"SIGTERM", [](Tui &tui) { tui.client->signal(SIGTERM); }},
        {"SIGINT", [](Tui &tui) { tui.client->signal(SIGINT); }},
        {"SIGHUP", [](Tui &tui) { tui.client->signal(SIGHUP); }},
    };
    for (const auto &[name, end] : endings) {
        SCOPED_TRACE(name);
        Tui tui;
        tui.start();
        EXPECT_TRUE(tui.screen().alternate);
        tui.daemon.send("\x1b[1;4;7m\x1b[?25l\x1b[?1;1002;2004h\x1b=port output");
        tui.client->wait_for_screen("port output");
        EXPECT_NE(tui.client->output().find("\x1b[?1h\x1b=\x1b[?2004h"), std::string::npos);
        EXPECT_EQ(tui.client->output().find("\x1b[?1002h"), std::string::npos); // no mouse
        end(tui);
        EXPECT_EQ(0, tui.client->wait_for_exit());
        expect_terminal_given_back(*tui.client);
    }
}

TEST(TuiEnding, TheTerminalGoesAway)
{
    for (const bool ignored : {false, true}) {
        Tui tui;
        tui.start({.ignored_signals = ignored ? std::vector{SIGHUP} : std::vector<int>{}});
        long ticks = 0;
        tui.client->take_terminal_away();
        tui.client->wait_until(
            [&] {
                ticks = std::max(ticks, tui.client->cpu_ticks());
                return !tui.client->running();
            },
            "its end");
        EXPECT_EQ(0, tui.client->wait_for_exit());
        EXPECT_LT(ticks, 50) << "it has been spinning";
    }
}

TEST(TuiEnding, AStalledTerminalDoesNotKeepItFromEnding)
{
    const struct {
        const char *name;
        std::function<void(Tui &)> end;
    } endings[] = {
        {"SIGTERM", [](Tui &tui) { tui.client->signal(SIGTERM); }},
        {"escape q", [](Tui &tui) { tui.client->send("\5q"); }},
        {"data hang-up", [](Tui &tui) { tui.daemon.hang_up_data(); }},
    };
    for (const auto &[name, end] : endings) {
        SCOPED_TRACE(name);
        Tui tui;
        tui.start({.rows = 50, .columns = 200});
        tui.client->reading = false;
        std::string output;
        for (int round = 0; round < 100; ++round) {
            output += "\x1b[H" + std::string(49 * 200, char('a' + round % 26));
        }
        tui.daemon.send(output);
        tui.daemon.wait_until_sent();
        tui.expect_relay(""); // keys are alive, whatever the terminal takes
        const auto from = std::chrono::steady_clock::now();
        end(tui);
        EXPECT_EQ(0, tui.client->wait_for_exit());
        // Two seconds, and room for a machine that is busy with other tests.
        EXPECT_LT(std::chrono::steady_clock::now() - from, std::chrono::seconds(6));
        EXPECT_EQ(0, tui.client->stream_flags(0) & O_NONBLOCK);
    }
}

TEST(TuiEnding, AStalledTerminalThatGoesOnShowsTheLastScreen)
{
    Tui tui;
    tui.start();
    tui.client->reading = false;
    for (int round = 0; round < 300; ++round) {
        tui.daemon.send("\x1b[H" + std::string(23 * 80 - 1, char('a' + round % 26)));
    }
    tui.daemon.send("\x1b[2J\x1b[Hafter the flood");
    tui.daemon.wait_until_sent();
    tui.expect_relay("");
    tui.client->reading = true;
    Screen direct(23, 80);
    direct.feed("after the flood");
    tui.expect_port_screen(direct);
    EXPECT_EQ(0, tui.quit());
    expect_terminal_given_back(*tui.client);
}

TEST(TuiEnding, UnusableTerminalsGetTheBasicInterface)
{
    for (const std::optional<std::string> &term :
         {std::optional<std::string>{}, std::optional<std::string>{""},
          std::optional<std::string>{"no-such-terminal"}}) {
        Tui tui;
        tui.daemon.answer("PORT_INFO", TUI_PORT_INFO);
        tui.launch({.environment = {{"TERM", term}}});
        tui.client->wait_for_output("Connected to port: lab - Escape key is: Ctrl-e\r\n");
        EXPECT_EQ(0, tui.quit());
        expect_terminal_given_back(*tui.client);
    }
}

TEST(TuiEnding, StandardStreamsMayLeadElsewhere)
{
    Tui tui;
    tui.start({.input = {Stream::FILE, "/dev/null"}, .output = {Stream::PIPE}});
    tui.daemon.send("port");
    tui.client->wait_for_screen("port");
    EXPECT_EQ("", tui.client->output());
    tui.client->signal(SIGTERM);
    EXPECT_EQ(0, tui.client->wait_for_exit());
    EXPECT_FALSE(tui.screen().alternate);
}

TEST(TuiEnding, LittleWorkWhenIdle)
{
    Tui tui;
    tui.start();
    const long ticks = tui.client->cpu_ticks();
    tui.wait_for_refresh();
    tui.wait_for_refresh();
    EXPECT_LE(tui.client->cpu_ticks() - ticks, 5);
    EXPECT_EQ(0, tui.quit());
}
