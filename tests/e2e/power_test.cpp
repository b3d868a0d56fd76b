// The power menu, with power scripts of the tests' own.
#include "e2e/fixture.h"
#include "e2e/shell.h"
#include "support/power_script.h"

#include <csignal>
#include <filesystem>
#include <unistd.h>

using namespace support;
using namespace std::string_literals;

namespace {

const std::string ENTERING = "\r\n\r\n=== Entering Power Menu ===\r\n";
const std::string EXITED = "=== Exited Power Menu ===\r\n\r\n";

// Shows each line it gets as the shell quotes it.
const char *const DIALOGUE = R"(#!/bin/bash
echo "$0 $# $1,$2 $OUTPUT_PREFIX $USER"
while read -r line; do
  printf 'got %q\n' "$line"
  [[ $line == leave* ]] && exit 4
done
)";
const std::string DIALOGUE_START = ENTERING + "/bin/rpc-cmd.js 2 A,B 2 POWER> tester\n";

struct PowerMenu : testing::Test {
    void SetUp() override
    {
        if (!PowerScript("").usable()) {
            GTEST_SKIP() << "no private mounts";
        }
    }
};

// Under a client whose user is an admin and whose home is the script's directory.
struct Power : Session {
    PowerScript script;

    explicit Power(const std::string &text, Launch setup = ADMIN) : Session(BASIC), script(text)
    {
        shown += "2 Outlet(s) available for control\n";
        setup.environment = {{"HOME", script.directory()}};
        setup.before_exec = [enter = script.enter(), also = setup.before_exec] {
            enter();
            also ? also() : void();
        };
        start(setup, R"({"label":"lab","escape":5,"outlets":["A","B 2"]})");
    }
    // The number that the script has written to the file "id" in its home.
    int process_id()
    {
        const std::string path = script.directory() + "/id";
        client->wait_until([&] { return read_file(path).ends_with("\n"); }, "a process id");
        return atoi(read_file(path).c_str());
    }
};

} // namespace

TEST_F(PowerMenu, LinesToTheScriptAndBack)
{
    Power session(DIALOGUE);
    const std::vector<Step> leaving{{TYPE, "leave\r"},
                                    {SHOWS, "leave\r\ngot $'leave\\r'\n" + EXITED}};
    session.play({{TYPE, "\5p"},
                  {SHOWS, DIALOGUE_START},
                  {TYPE, "on 1\r"},
                  {SHOWS, "on 1\r\ngot $'on 1\\r'\n"},
                  {TYPE, "a\rb\r"}, // a single line feed, at the end
                  {SHOWS, "a\rb\r\ngot $'a\\rb\\r'\n"},
                  {TYPE, "\5q\r"},
                  {SHOWS, "\5q\r\ngot $'\\005q\\r'\n"},
                  {TYPE, "ab\0cd\r"s}, // the chunk ends at its NUL
                  {SHOWS, "ab"},
                  {TYPE, "\r"},
                  {SHOWS, "\r\ngot $'ab\\r'\n"},
                  {PRINT, "port output"},
                  {SHOWS, "port output"}});
    session.play(leaving);
    session.expect_relay();
    session.play({{TYPE, "\5p"}, {SHOWS, DIALOGUE_START}}); // and once more
    session.play(leaving);
    session.expect_nothing_left();
}

TEST_F(PowerMenu, TheChildsSurroundings)
{
    Power session("#!/bin/sh\ngrep -E '^Sig(Ign|Blk)|^ShdPnd' /proc/self/status\n"
                  "exec ls /proc/self/fd\n"); // the fourth is the directory being listed
    session.play({{TYPE, "\5p"},
                  {SHOWS, ENTERING +
                              "ShdPnd:\t0000000000000000\nSigBlk:\t0000000000000000\n"
                              "SigIgn:\t0000000000000000\n0\n1\n2\n3\n" +
                              EXITED}});
}

TEST_F(PowerMenu, LastOutputIsShownBeforeTheMenuCloses)
{
    Power session("#!/bin/sh\nprintf '%50000s' end; echo oops >&2\n");
    session.play({{TYPE, "\5p"}, {SHOWS, ENTERING + std::string(49'997, ' ') + "end" + EXITED}});
    session.errors = "oops\n"; // the script's are the client's
    session.client->wait_for_error(session.errors);
}

TEST_F(PowerMenu, LastOutputWaitsForASlowReader)
{
    // More than the client takes while nobody reads, but not more than it and the pipes hold.
    Power session("#!/bin/bash\necho $$ >\"$HOME/id\"; printf '%360000s' end\n");
    session.client->reading = false;
    session.play({{TYPE, "\5p"}});
    const std::string process = "/proc/" + std::to_string(session.process_id());
    session.client->wait_until([&] { return !std::filesystem::exists(process); }, "its end");
    session.client->reading = true;
    session.play({{SHOWS, ENTERING + std::string(359'997, ' ') + "end" + EXITED}});
}

TEST_F(PowerMenu, AGrandchildHoldingThePipeDoesNotKeepItOpen)
{
    Power session("#!/bin/bash\n(trap '' HUP; exec sleep 30) & echo $! >\"$HOME/id\"\n");
    session.play({{TYPE, "\5p"}, {SHOWS, ENTERING + EXITED}});
    EXPECT_EQ(0, kill(session.process_id(), SIGKILL));
    session.expect_relay();
}

TEST_F(PowerMenu, AClosedPipeDoesNotEndItButTheScriptsDeathDoes)
{
    for (const char *closed : {"<&-", ">&- 2>&-"}) {
        Power session("#!/bin/bash\nexec "s + closed + "; echo $$ >\"$HOME/id\"; exec sleep 30\n");
        session.play({{TYPE, "\5p"}, {SHOWS, ENTERING}});
        const int script = session.process_id();
        session.play({{TYPE, "into the void\r"}, {SHOWS, "into the void\r\n"}});
        session.play({{TYPE, "again\r"}, {SHOWS, "again\r\n"}});
        EXPECT_EQ(0, kill(script, SIGKILL));
        session.play({{SHOWS, EXITED}});
        session.expect_relay();
    }
}

// Its standard error is the client's, and so is what it does to it: the terminal blocks, also
// between two reads of the client.
TEST_F(PowerMenu, AScriptThatMakesTheTerminalBlock)
{
    Power session("#!/usr/bin/perl\nuse Fcntl; use Time::HiRes 'time'; $| = 1; my $start = time;\n"
                  "print 'blocks'; fcntl(STDERR, F_SETFL, O_RDWR) while time < $start + 0.5;\n"
                  "<STDIN>; fcntl(STDERR, F_SETFL, O_RDWR);\n",
                  {.columns = 120, .before_exec = [] { dup2(0, 2); }});
    session.play({{TYPE, "\5p"}, {SHOWS, ENTERING + "blocks"}});
    for (int key = 0; key < 10; ++key) {
        session.play({{TYPE, "a"}, {SHOWS, "a"}});
    }
    session.play({{TYPE, "\r"}, {SHOWS, "\r\n" + EXITED}});
    session.expect_relay();
}

TEST_F(PowerMenu, AScriptThatCannotBeStarted)
{
    const std::pair<const char *, const char *> rows[] = {
        {"#!/nowhere/to/be/found\n", "No such file or directory"},
        {"#!/etc\n", "Permission denied"}};
    for (const auto &[text, reason] : rows) {
        Power session(text);
        session.play({{TYPE, "\5p"}, {LOGS, "Could not start /bin/rpc-cmd.js: "s + reason}});
        session.expect_relay();
        const std::string told = session.client->output().substr(session.shown.size());
        EXPECT_TRUE(told.starts_with("\r\n\r\nError: ") && told.ends_with("\r\n\r\n")) << told;
        EXPECT_EQ(std::string::npos, told.find("Power Menu ==="));
    }
}

TEST_F(PowerMenu, AnEchoThatNobodyReadsHoldsTheKeyboard)
{
    Power session("#!/bin/sh\ncat >/dev/null\n");
    session.play({{TYPE, "\5p"}, {SHOWS, ENTERING}});
    Program &client = *session.client;
    const std::string typed(4 << 20, 'k');
    client.reading = false;
    client.send(typed);
    EXPECT_FALSE(
        loop().run_until([&] { return client.untaken() == 0; }, std::chrono::milliseconds(1000)));
    client.reading = true;
    session.play({{SHOWS, typed}});
    client.signal(SIGTERM);
}

// One that then reads, closes its input, or ends and leaves it to another process.
TEST_F(PowerMenu, AScriptThatDoesNotReadHoldsTheKeyboard)
{
    const char *const rows[] = {"cat >/dev/null", "exec <&-; while echo; do sleep 1; done",
                                "sleep 1 <&0 &"};
    for (const char *then : rows) {
        Power session("#!/bin/sh\nsleep .3; "s + then);
        // Just more than the pipe and the client take together.
        session.play({{TYPE, "\5p"}, {TYPE, std::string((17 << 16) + 1, 'k')}, {TYPE, "more"}});
        session.client->signal(SIGTERM);
    }
}

TEST_F(PowerMenu, TheSessionEndsUnderTheMenu)
{
    const std::function<void(Session &)> endings[] = {
        [](Session &session) { session.daemon.hang_up_data(); },
        [](Session &session) { session.daemon.hang_up_cmd(); },
        [](Session &session) { session.client->signal(SIGTERM); },
        [](Session &session) { session.client->end_input(); },
    };
    for (const auto &end : endings) {
        Power session(DIALOGUE);
        session.play({{TYPE, "\5p"}, {SHOWS, DIALOGUE_START}});
        end(session);
        EXPECT_EQ(0, session.client->wait_for_exit());
    }
}

TEST_F(PowerMenu, StoppedAndEndedUnderIt)
{
    for (const int stop : {SIGTSTP, SIGSTOP}) {
        for (const int end : {SIGTERM, SIGHUP}) {
            const Shell shell;
            Power session(DIALOGUE, {.columns = 120, .before_exec = [&] { shell.run(); }});
            Program &client = *session.client;
            client.send("\5p");
            session.play({{SHOWS, DIALOGUE_START}});
            shell.signal_job(stop);
            shell.wait_for_stops(client, 1);
            EXPECT_TRUE(stop == SIGSTOP || session.terminal_is_as_found());
            client.signal(SIGUSR1);
            client.wait_until([&] { return !session.terminal_is_as_found(); }, "its terminal");
            client.send("on 1\r");
            session.play({{SHOWS, "on 1\r\ngot $'on 1\\r'\n"}});
            shell.signal_job(stop);
            shell.wait_for_stops(client, 2);
            shell.signal_job(end);
            client.signal(SIGUSR2);
            EXPECT_EQ(0, client.wait_for_exit());
        }
    }
}

TEST_F(PowerMenu, AndTheSessionsAnswerTakeTheKeysFromEachOther)
{
    const std::string list = "\t\t==== Sessions ====\r\nThe following sessions are active on this "
                             "port\r\n\r\n\ta: SSH - Session length 0 second(s)\r\n"
                             "\nPress 'Y' to disconnect these sessions\r\n or any other key to "
                             "exit this menu\r\n";
    const char *const reply = R"({"sessions":[{"username":"a","protocol":"SSH"}]})";
    Power session(DIALOGUE);
    session.play({{TYPE, "\5d\5p"},
                  {ASKS, "LIST_SESSIONS"},
                  {SHOWS, DIALOGUE_START},
                  {TYPE, "Y\r"}, // the list has not come yet: this is the menu's
                  {SHOWS, "Y\r\ngot $'Y\\r'\n"},
                  {REPLY, reply},
                  {SHOWS, list},
                  {TYPE, "Y"},
                  {ASKS, "DISCONNECT_SESSIONS"},
                  {REPLY, "{}"}});
    session.expect_relay();           // the slot is clear, so that keys pass under the menu
    session.play({{TYPE, "\5p\5b"}}); // a menu is open already; the break is sent
    session.expect_nothing_left();
    EXPECT_EQ(1u, session.daemon.command_count("BREAK"));
}
