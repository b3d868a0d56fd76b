// Raw mode, and the terminal as it was found after every way a session ends.
#include "e2e/basic.h"

#include <csignal>
#include <fcntl.h>

using namespace support;

namespace {

const struct {
    const char *name;
    std::function<void(Basic &)> end;
} ENDINGS[] = {
    {"escape q", [](Basic &session) { session.client->send(QUIT); }},
    {"data hang-up", [](Basic &session) { session.daemon.hang_up_data(); }},
    {"cmd hang-up", [](Basic &session) { session.daemon.hang_up_cmd(); }},
    {"SIGTERM", [](Basic &session) { session.client->signal(SIGTERM); }},
    {"SIGINT", [](Basic &session) { session.client->signal(SIGINT); }},
    {"SIGHUP", [](Basic &session) { session.client->signal(SIGHUP); }},
};

} // namespace

TEST(Ending, RawModeChangesTheGivenSettingsOnly)
{
    Basic session;
    session.launch();
    Program &client = *session.client;
    session.daemon.expect_command("SET_USER");
    session.daemon.reply("{}");
    session.daemon.expect_command("PORT_INFO");
    const Program cooked({.arguments = {"/bin/cat"}}); // the settings a terminal starts with
    termios expected = cooked.settings();
    expected.c_iflag &= ~tcflag_t(ICRNL | IXON);
    expected.c_oflag &= ~tcflag_t(OPOST);
    expected.c_lflag &= ~tcflag_t(ISIG | ICANON | ECHO | IEXTEN);
    expected.c_cc[VMIN] = 0;
    expected.c_cc[VTIME] = 1;
    EXPECT_EQ(describe(expected), describe(client.settings()));
    client.send("\x03\x1a\x1c\x11\x13\r\x04");
    session.daemon.expect_received("\x03\x1a\x1c\x11\x13\r\x04");
}

TEST(Ending, SettingsAndFlagsAreAsFound)
{
    for (const auto &[name, end] : ENDINGS) {
        for (const int found : {0, O_NONBLOCK}) {
            Basic session;
            session.start({.before_exec = [found] { fcntl(0, F_SETFL, O_RDWR | found); }});
            const Program cooked({.arguments = {"/bin/cat"}});
            end(session);
            EXPECT_EQ(0, session.client->wait_for_exit()) << name;
            EXPECT_EQ(describe(cooked.settings()), describe(session.client->settings())) << name;
            EXPECT_EQ(found, session.client->stream_flags(0) & O_NONBLOCK) << name;
            EXPECT_EQ(found, session.client->stream_flags(1) & O_NONBLOCK) << name;
            EXPECT_EQ("", session.client->error_output() + session.client->log()) << name;
        }
    }
}

TEST(Ending, FlagsOfPipesAreAsFound)
{
    for (const auto &[name, end] : ENDINGS) {
        Basic session;
        session.start(PIPES);
        end(session);
        EXPECT_EQ(0, session.client->wait_for_exit()) << name;
        EXPECT_EQ(0, session.client->stream_flags(0) & O_NONBLOCK) << name;
        EXPECT_EQ(0, session.client->stream_flags(1) & O_NONBLOCK) << name;
    }
}

TEST(Ending, TheTerminalGoesAway)
{
    for (const bool ignored : {false, true}) {
        Basic session;
        session.start({.ignored_signals = ignored ? std::vector{SIGHUP} : std::vector<int>{}});
        session.client->take_terminal_away();
        EXPECT_EQ(0, session.client->wait_for_exit()) << ignored;
    }
}

TEST(Ending, SignalsIgnoredFromTheStartStayIgnored)
{
    Basic session;
    session.start({.ignored_signals = {SIGINT, SIGTERM, SIGHUP}});
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        session.client->signal(number);
    }
    session.expect_relay("");
    EXPECT_EQ(0, session.quit());
}

TEST(Ending, BeforeTheFirstReply)
{
    for (const auto &[name, end] : ENDINGS) {
        Basic session;
        session.launch();
        session.daemon.expect_command("SET_USER");
        session.daemon.send("up"); // once this is shown, raw mode is on and the loop runs
        session.client->wait_for_output("up");
        end(session);
        EXPECT_EQ(0, session.client->wait_for_exit()) << name;
    }
}
