// The power menu, with power scripts of the tests' own.
#include "e2e/basic.h"
#include "support/power_script.h"

#include <csignal>
#include <filesystem>

using namespace support;
using namespace std::string_literals;

namespace {

const char *const OUTLETS = R"({"label":"lab","escape":5,"outlets":["A","B 2"]})";
const std::string OUTLETS_GREETING = GREETING + "2 Outlet(s) available for control\n"s;
const std::string ENTERING = "\r\n\r\n=== Entering Power Menu ===\r\n";
const std::string EXITED = "=== Exited Power Menu ===\r\n\r\n";
const std::string NO_OUTLETS = "\r\n\r\nError: No outlets available\r\n\r\n";

// Shows each line it gets as the shell quotes it.
const char *const DIALOGUE = R"(#!/bin/bash
echo "$0 $# $1,$2 $OUTPUT_PREFIX $USER"
while read -r line; do
  printf 'got %q\n' "$line"
  [[ $line == leave* ]] && exit 4
done
)";
const std::string DIALOGUE_START = "/bin/rpc-cmd.js 2 A,B 2 POWER> tester\n";

struct Power : Basic {
    PowerScript script;
    std::string shown;

    explicit Power(const std::string &text) : script(text) {}

    void start_power(Launch setup = {})
    {
        setup.input = setup.output = {Stream::PIPE};
        setup.before_exec = script.enter();
        start(setup, OUTLETS, OUTLETS_GREETING);
    }
    // More has come, exactly this.
    void expect_more(const std::string &text)
    {
        shown += text;
        expect_output(shown);
    }
    void type(const std::string &chunk)
    {
        client->send(chunk);
        client->wait_until_read();
    }
    void open(const std::string &first_output)
    {
        type("\5p");
        expect_more(ENTERING + first_output);
    }
};

#define START_POWER(session, ...)                                                                  \
    if (!(session).script.usable()) {                                                              \
        GTEST_SKIP() << "no private mounts";                                                       \
    }                                                                                              \
    (session).start_power(__VA_ARGS__)

} // namespace

TEST(PowerMenu, LinesToTheScriptAndBack)
{
    Power session(DIALOGUE);
    START_POWER(session);
    session.open(DIALOGUE_START);
    session.type("on 1\r");
    session.expect_more("on 1\r\ngot $'on 1\\r'\n");
    session.type("a\rb\r"); // a single line feed, at the end
    session.expect_more("a\rb\r\ngot $'a\\rb\\r'\n");
    session.type("\5q\r");
    session.expect_more("\5q\r\ngot $'\\005q\\r'\n");
    session.type("ab\0cd\r"s); // the chunk ends at its NUL
    session.expect_more("ab");
    session.type("\r");
    session.expect_more("\r\ngot $'ab\\r'\n");
    session.daemon.send("port output");
    session.expect_more("port output");
    session.type("leave\r");
    session.expect_more("leave\r\ngot $'leave\\r'\n" + EXITED);
    session.expect_relay("");
    session.open(DIALOGUE_START); // and once more
    session.type("leave\r");
    session.expect_more("leave\r\ngot $'leave\\r'\n" + EXITED);
    EXPECT_EQ(0, session.quit());
    session.daemon.expect_received("~");
    EXPECT_EQ("", session.client->log() + session.client->error_output());
}

TEST(PowerMenu, WithoutOutlets)
{
    Basic session;
    session.launch();
    session.daemon.expect_command("SET_USER");
    session.daemon.send("up");
    session.client->wait_for_output("up"); // raw mode is on: keys typed before it are dropped
    session.client->send("\5p");
    session.client->wait_for_output("up" + NO_OUTLETS);
    session.daemon.reply("{}");
    session.daemon.expect_command("PORT_INFO");
    session.daemon.reply(PORT_INFO);
    session.client->wait_for(GREETING);
    session.client->send("\5p");
    session.client->wait_for_output("up" + NO_OUTLETS + GREETING + NO_OUTLETS);
    session.expect_relay("");
    EXPECT_EQ(0, session.quit());
}

TEST(PowerMenu, TheChildsSurroundings)
{
    Power session("#!/bin/sh\nexec grep -E '^Sig(Ign|Blk)|^ShdPnd' /proc/self/status\n");
    START_POWER(session);
    session.type("\5p");
    session.client->wait_for(EXITED);
    EXPECT_NE(std::string::npos, session.client->output().find("SigIgn:\t0000000000000000"));
    EXPECT_NE(std::string::npos, session.client->output().find("SigBlk:\t0000000000000000"));
    EXPECT_EQ(0, session.quit());

    // The fourth is the directory being listed.
    Power descriptors("#!/bin/bash\nexec /bin/ls /proc/self/fd\n");
    START_POWER(descriptors);
    descriptors.open("0\n1\n2\n3\n" + EXITED);
    EXPECT_EQ(0, descriptors.quit());
}

TEST(PowerMenu, StandardErrorIsTheClients)
{
    Power session("#!/bin/sh\necho oops >&2\n");
    START_POWER(session);
    session.open(EXITED);
    session.client->wait_until([&] { return session.client->error_output() == "oops\n"; }, "oops");
    EXPECT_EQ(0, session.quit());
}

TEST(PowerMenu, LastOutputIsShownBeforeTheMenuCloses)
{
    Power session("#!/bin/sh\nprintf '%50000s' end\n");
    START_POWER(session);
    session.open(std::string(49'997, ' ') + "end" + EXITED);
    EXPECT_EQ(0, session.quit());
}

TEST(PowerMenu, LastOutputWaitsForASlowReader)
{
    // More than the client takes while nobody reads, but not more than it and the pipes hold.
    Power session("#!/bin/bash\necho $$ >\"$HOME/id\"; printf '%360000s' end\n");
    START_POWER(session, {.environment = {{"HOME", session.script.directory()}}});
    const std::string id_file = session.script.directory() + "/id";
    session.client->reading = false;
    session.type("\5p");
    session.client->wait_until(
        [&] {
            const std::string id = read_file(id_file);
            return id.ends_with("\n") &&
                   !std::filesystem::exists("/proc/" + id.substr(0, id.size() - 1));
        },
        "the end of the script");
    session.client->reading = true;
    session.expect_more(ENTERING + std::string(359'997, ' ') + "end" + EXITED);
    EXPECT_EQ(0, session.quit());
}

TEST(PowerMenu, AGrandchildHoldingThePipeDoesNotKeepItOpen)
{
    Power session("#!/bin/bash\n(trap '' HUP; exec sleep 30) & echo $!; exit\n");
    START_POWER(session);
    session.type("\5p");
    session.client->wait_for(EXITED);
    const std::string &output = session.client->output();
    const int grandchild = atoi(output.c_str() + output.find(ENTERING) + ENTERING.size());
    ASSERT_GT(grandchild, 1);
    EXPECT_EQ(0, kill(grandchild, SIGKILL));
    session.expect_relay("");
    EXPECT_EQ(0, session.quit());
}

TEST(PowerMenu, ClosingTheOutputEarlyAndBeingKilled)
{
    Power session("#!/bin/bash\necho $$; exec >&- 2>&-; read -r line; exec sleep 30\n");
    START_POWER(session);
    session.type("\5p");
    session.client->wait_until(
        [&] {
            return session.client->output().ends_with("\n") &&
                   session.client->output().size() > (session.greeting + ENTERING).size();
        },
        "a process id");
    const std::string &output = session.client->output();
    const std::string id = output.substr((session.greeting + ENTERING).size());
    session.shown = ENTERING + id;
    session.type("still open\r");
    session.expect_more("still open\r\n");
    ASSERT_GT(atoi(id.c_str()), 1);
    EXPECT_EQ(0, kill(atoi(id.c_str()), SIGKILL));
    session.expect_more(EXITED);
    session.expect_relay("");
    EXPECT_EQ(0, session.quit());
}

TEST(PowerMenu, ClosingTheInputEarlyIsBorne)
{
    Power session("#!/bin/bash\nexec <&-; echo deaf; trap 'exit' TERM; echo $$ >\"$HOME/id\"; "
                  "while :; do sleep 0.05; done\n");
    START_POWER(session, {.environment = {{"HOME", session.script.directory()}}});
    const std::string id_file = session.script.directory() + "/id";
    session.type("\5p");
    session.client->wait_for("deaf\n");
    session.client->wait_until([&] { return read_file(id_file).ends_with("\n"); }, "a process id");
    session.type("into the void\r");
    session.type("again\r");
    session.client->wait_for("again\r\n");
    EXPECT_EQ(0, kill(atoi(read_file(id_file).c_str()), SIGTERM));
    session.client->wait_for(EXITED);
    session.expect_relay("");
    EXPECT_EQ(0, session.quit());
}

TEST(PowerMenu, AScriptThatCannotBeStarted)
{
    for (const char *text : {"#!/nowhere/to/be/found\n", "#!/etc\n"}) {
        Power session(text);
        START_POWER(session);
        session.type("\5p");
        session.client->wait_for("Error: ");
        session.expect_relay("");
        const std::string told = session.client->output().substr(session.greeting.size());
        EXPECT_TRUE(told.starts_with("\r\n\r\nError: ") && told.ends_with("\r\n\r\n")) << told;
        EXPECT_EQ(std::string::npos, told.find("Power Menu ==="));
        EXPECT_EQ(0, session.quit());
    }
}

TEST(PowerMenu, AnEchoThatNobodyReadsHoldsTheKeyboard)
{
    Power session("#!/bin/sh\ncat >/dev/null\n");
    START_POWER(session);
    session.open("");
    Program &client = *session.client;
    const std::string typed(4 << 20, 'k');
    client.reading = false;
    client.send(typed);
    EXPECT_FALSE(
        loop().run_until([&] { return client.untaken() == 0; }, std::chrono::milliseconds(1000)));
    client.reading = true;
    session.expect_more(typed);
}

TEST(PowerMenu, TheSessionEndsUnderTheMenu)
{
    const std::function<void(Basic &)> endings[] = {
        [](Basic &session) { session.daemon.hang_up_data(); },
        [](Basic &session) { session.daemon.hang_up_cmd(); },
        [](Basic &session) { session.client->signal(SIGTERM); },
        [](Basic &session) { session.client->end_input(); },
    };
    for (const auto &end : endings) {
        Power session(DIALOGUE);
        START_POWER(session);
        session.open(DIALOGUE_START);
        end(session);
        EXPECT_EQ(0, session.client->wait_for_exit());
    }
}

TEST(PowerMenu, TheSessionsAnswerTakesTheKeysFromTheMenu)
{
    Power session(DIALOGUE);
    START_POWER(session, {.arguments = {"admin"}});
    const std::string list = "\t\t==== Sessions ====\r\nThe following sessions are active on this "
                             "port\r\n\r\n\ta: SSH - Session length 0 second(s)\r\n"
                             "\nPress 'Y' to disconnect these sessions\r\n or any other key to "
                             "exit this menu\r\n";
    session.type("\5d\5p");
    session.daemon.expect_command("LIST_SESSIONS");
    session.expect_more(ENTERING + DIALOGUE_START);
    session.daemon.reply(R"({"sessions":[{"username":"a","protocol":"SSH"}]})");
    session.expect_more(list);
    session.type("n");        // answers the question and clears the slot
    session.expect_relay(""); // so this goes to the port, under the open menu
    session.type("\5p\5b");   // a menu is open already; the break is sent
    session.daemon.expect_command("BREAK");
    session.daemon.reply("{}");
    session.expect_relay("~", "!");
    session.expect_more("");
    EXPECT_EQ(0, session.quit());
}

TEST(PowerMenu, TheMenuTakesTheKeysFromTheSessionsAnswer)
{
    Power session("#!/bin/bash\nread -r line; echo \"$line\"; read -r line\n");
    START_POWER(session, {.arguments = {"admin"}});
    session.type("\5d");
    session.daemon.expect_command("LIST_SESSIONS");
    session.daemon.answer("BREAK", "{}");
    session.type("\5p");
    session.expect_more(ENTERING);
    session.type("Y\r"); // the list has not come yet: this is the menu's
    session.expect_more("Y\r\nY\r\n");
    session.daemon.reply(R"({"sessions":[{}]})");
    session.client->wait_for("exit this menu\r\n");
    session.type("Y");
    session.daemon.expect_command("DISCONNECT_SESSIONS");
    EXPECT_EQ(0, session.quit());
}
