// Raw mode, and the terminal as it was found after every way a session ends. Both front ends.
#include "e2e/fixture.h"

#include <array>
#include <chrono>
#include <csignal>
#include <thread>

using namespace support;

namespace {

#ifdef ZORVAD_SANITIZED
constexpr bool SANITIZED = true;
#else
constexpr bool SANITIZED = false;
#endif

const struct {
    const char *name;
    std::function<void(Session &)> end;
} ENDINGS[] = {
    {"escape q", [](Session &session) { session.client->send(QUIT); }},
    {"escape q over popups", [](Session &session) { session.client->send("\5?\5s\5q"); }},
    {"data hang-up", [](Session &session) { session.daemon.hang_up_data(); }},
    {"cmd hang-up", [](Session &session) { session.daemon.hang_up_cmd(); }},
    {"SIGTERM", [](Session &session) { session.client->signal(SIGTERM); }},
    {"SIGINT", [](Session &session) { session.client->signal(SIGINT); }},
    {"SIGHUP", [](Session &session) { session.client->signal(SIGHUP); }},
};

} // namespace

TEST(Ending, RawModeChangesTheGivenSettingsOnly)
{
    const Program cooked({.arguments = {"/bin/cat"}}); // the settings a terminal starts with
    termios expected = cooked.settings();
    expected.c_iflag &= ~tcflag_t(ICRNL | IXON);
    expected.c_oflag &= ~tcflag_t(OPOST);
    expected.c_lflag &= ~tcflag_t(ISIG | ICANON | ECHO | IEXTEN);
    expected.c_cc[VMIN] = 0;
    expected.c_cc[VTIME] = 1;
    Session session(BASIC);
    session.start();
    EXPECT_EQ(describe(expected), describe(session.client->settings()));
    const std::string keys = "\x03\x1a\x1c\x11\x13\r\x04";
    session.play({{TYPE, keys}, {GETS, keys}});
}

// What the fixture looks at: settings, flags, screen and log.
TEST(Ending, EverythingIsAsFound)
{
    Launch nonblocking;
    nonblocking.before_exec = [] { fcntl(0, F_SETFL, O_RDWR | O_NONBLOCK); };
    const struct {
        FrontEnd front_end;
        Launch setup;
        int flags = 0;
        bool replies = true;
    } rows[] = {
        {BASIC, {}}, {BASIC, nonblocking, O_NONBLOCK}, {BASIC, PIPES},     {BASIC, {}, 0, false},
        {TUI, {}},   {TUI, nonblocking, O_NONBLOCK},   {TUI, {}, 0, false}};
    for (const auto &row : rows) {
        for (const auto &[name, end] : ENDINGS) {
            SCOPED_TRACE(std::to_string(&row - rows) + " " + name);
            Session session(row.front_end);
            session.found_flags = row.flags;
            if (row.replies) {
                session.start(row.setup);
            } else {
                session.daemon.answer("SET_USER", std::nullopt);
                session.launch(row.setup);
            }
            session.daemon.send("\x1b[1;4;7m\x1b[?25l\x1b[?1;1002;2004h\x1b=port output");
            session.client->wait_for("port output"); // now raw mode is on and the loop runs
            const std::string &output = session.client->output();
            EXPECT_NE(output.find("\x1b[?1h\x1b=\x1b[?2004h") == std::string::npos,
                      row.front_end == TUI);
            EXPECT_EQ(output.find("\x1b[?1002h"), std::string::npos); // no mouse
            end(session);
            EXPECT_EQ(0, session.client->wait_for_exit());
        }
    }
}

// Until it handles a signal, that does to it what it does to any program.
TEST(Ending, ToldToEndAtAnyMoment)
{
    for (const FrontEnd kind : {BASIC, TUI}) {
        const auto from = std::chrono::steady_clock::now();
        Session(kind).start();
        const auto start_up = std::chrono::steady_clock::now() - from;
        constexpr int SESSIONS = SANITIZED ? 20 : 100;
        for (int moment = 0; moment < SESSIONS; ++moment) {
            const int number = std::array{SIGTERM, SIGINT, SIGHUP}[size_t(moment) % 3];
            Session session(kind);
            session.spawn({});
            std::this_thread::sleep_for(start_up * moment / SESSIONS);
            session.client->signal(number);
            if (session.client->wait_for_exit() != 0) {
                session.status = 128 + number;
            }
        }
    }
}

TEST(Ending, TheTerminalGoesAway)
{
    for (const FrontEnd kind : {BASIC, TUI}) {
        for (const bool ignored : {false, true}) {
            Session session(kind);
            session.start({.ignored_signals = ignored ? std::vector{SIGHUP} : std::vector<int>{}});
            Program &client = *session.client;
            long ticks = 0;
            client.take_terminal_away();
            client.wait_until(
                [&] {
                    ticks = std::max(ticks, client.cpu_ticks());
                    return !client.running();
                },
                "its end");
            EXPECT_EQ(0, client.wait_for_exit());
            EXPECT_LT(ticks, 50) << "it has been spinning";
        }
    }
}

TEST(Ending, SignalsIgnoredFromTheStartStayIgnored)
{
    for (const FrontEnd kind : {BASIC, TUI}) {
        Session session(kind);
        session.start({.ignored_signals = {SIGINT, SIGTERM, SIGHUP}});
        for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
            session.client->signal(number);
        }
        session.expect_relay();
    }
}

TEST(Ending, AStalledTerminalDoesNotKeepTheTerminalUi)
{
    for (const size_t index : {0u, 2u, 4u}) {
        const auto &[name, end] = ENDINGS[index];
        SCOPED_TRACE(name);
        Session tui(TUI);
        tui.start({.rows = 50, .columns = 200});
        tui.client->reading = false;
        for (int round = 0; round < 100; ++round) {
            tui.daemon.send("\x1b[H" + std::string(49 * 200, char('a' + round % 26)));
        }
        tui.daemon.wait_until_sent();
        tui.expect_relay(); // keys are alive, whatever the terminal takes
        const auto from = std::chrono::steady_clock::now();
        end(tui);
        EXPECT_EQ(0, tui.client->wait_for_exit());
        // Two seconds, and room for a machine that is busy with other tests.
        EXPECT_LT(std::chrono::steady_clock::now() - from, std::chrono::seconds(6));
    }
}

TEST(Ending, AStalledTerminalThatGoesOnShowsTheLastScreen)
{
    Session tui(TUI);
    tui.start();
    tui.client->reading = false;
    for (int round = 0; round < 300; ++round) {
        tui.daemon.send("\x1b[H" + std::string(23 * 80 - 1, char('a' + round % 26)));
    }
    tui.daemon.send("\x1b[2J\x1b[Hafter the flood");
    tui.daemon.wait_until_sent();
    tui.expect_relay();
    tui.client->reading = true;
    tui.expect_port_screen("after the flood");
}

TEST(Ending, TheTerminalUisStandardStreamsMayLeadElsewhere)
{
    Session tui(TUI);
    tui.start({.input = {Stream::FILE, "/dev/null"}, .output = {Stream::PIPE}});
    tui.play({{PRINT, "port"}, {SHOWS, "port"}});
    EXPECT_EQ("", tui.client->output());
    tui.client->signal(SIGTERM);
    EXPECT_EQ(0, tui.client->wait_for_exit());
}

TEST(Ending, LittleWorkWhenTheTerminalUiIsIdle)
{
    Session tui(TUI);
    tui.start();
    const long ticks = tui.client->cpu_ticks();
    tui.wait_for_refresh();
    tui.wait_for_refresh();
    EXPECT_LE(tui.client->cpu_ticks() - ticks, 5);
}
