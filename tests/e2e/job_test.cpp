// Stops, ends and crashes: whose the terminal is, and how it is left. Both front ends.
#include "e2e/fixture.h"
#include "e2e/shell.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace support;

namespace {

// Bytes on their way through the kernel are not in the terminal for a moment.
void wait_until_all_is_read(Program &client)
{
    using Clock = std::chrono::steady_clock;
    client.wait_until_taken();
    Clock::time_point since = Clock::now();
    client.wait_until(
        [&] {
            since = client.waiting_input() > 0 ? Clock::now() : since;
            return Clock::now() - since > std::chrono::milliseconds(100);
        },
        "its reading");
}

} // namespace

TEST(Job, StoppedAndContinued)
{
    for (const FrontEnd kind : {BASIC, TUI}) {
        SCOPED_TRACE(kind);
        const Shell shell;
        Session session(kind);
        session.start({.before_exec = [&] { shell.run(); }});
        Program &client = *session.client;
        const std::string raw = describe(client.settings());
        session.daemon.send("\x1b[2J\x1b[Hbefore\r\n");
        client.wait_for_screen("before");
        EXPECT_FALSE(session.terminal_is_as_found());
        shell.signal_job(SIGTSTP);
        shell.wait_for_stops(client, 1);
        client.wait_until([&] { return session.terminal_is_as_found(); }, "the terminal as found");
        client.send("typed\r");
        client.wait_until([&] { return client.waiting_input() == 6; }, "the line");
        client.screen().feed("\x1b[2J\x1b[Hthe shell's rubbish\r\n");
        session.daemon.send("meanwhile");
        session.daemon.wait_until_sent();
        client.signal(SIGUSR2); // in the background it has to stop again, and touch nothing
        shell.wait_for_stops(client, 2);
        client.wait_until([&] { return session.terminal_is_as_found(); }, "the terminal as found");
        EXPECT_FALSE(
            loop().run_until([&] { return client.output().find("meanwhile") != std::string::npos; },
                             std::chrono::milliseconds(50)));
        client.signal(SIGUSR1);
        client.wait_for_screen("meanwhile");
        session.at_port = kind == BASIC ? "typed\n" : ""; // the terminal UI drops it
        session.expect_relay();
        EXPECT_EQ(raw, describe(client.settings()));
        if (kind == TUI) {
            session.expect_port_screen("before\r\nmeanwhile");
            session.wait_until_up();
        }
    }
}

// It was stopped where it read the terminal, which now blocks.
TEST(Job, ContinuedInTheMiddleOfARead)
{
    const Shell shell{.reads_lines = true, .blocks = true};
    Session session(BASIC);
    session.start({.before_exec = [&] { shell.run(); }});
    Program &client = *session.client;
    for (const int stops : {2, 4}) {
        shell.signal_job(SIGSTOP);
        shell.wait_for_stops(client, stops - 1);
        client.send("for the shell");
        client.wait_until([&] { return client.waiting_input() == 13; }, "the keys");
        client.signal(SIGUSR2);
        shell.wait_for_stops(client, stops);
        client.signal(SIGUSR1);
        client.wait_until([&] { return shell.shared->turns == stops; }, "its turn");
        session.daemon.send("shown " + std::to_string(stops));
        client.wait_for("shown " + std::to_string(stops));
        session.expect_relay();
    }
}

// As the shell's kill does it: the client may not stop once more on its way out.
TEST(Job, EndsInTheBackground)
{
    for (const FrontEnd kind : {BASIC, TUI}) {
        for (const int stop : {0, SIGTSTP, SIGSTOP}) { // 0: started there
            for (const bool twice : {false, true}) {
                SCOPED_TRACE(std::to_string(kind) + " " + std::to_string(stop));
                const Shell shell{.foreground = stop != 0};
                Session session(kind);
                session.spawn({.before_exec = [&] { shell.run(); }});
                if (stop != 0) {
                    session.wait_until_up();
                    shell.signal_job(stop);
                }
                shell.wait_for_stops(*session.client, 1);
                if (twice) {
                    session.client->signal(SIGUSR2);
                    shell.wait_for_stops(*session.client, 2);
                }
                shell.signal_job(SIGTERM);
                session.client->signal(SIGUSR2);
                EXPECT_EQ(0, session.client->wait_for_exit());
            }
        }
    }
}

// Everything typed after the stop is the shell's, and so are the settings and the screen: those who
// end a stopped client have its port, stuck as it may be, to themselves.
TEST(Job, EndsWithoutTheShellsTerminal)
{
    for (const FrontEnd kind : {BASIC, TUI}) {
        for (const int stop : {SIGTSTP, SIGSTOP}) {
            for (const int end : {SIGTERM, SIGINT, SIGHUP}) {
                SCOPED_TRACE(std::to_string(kind) + " " + std::to_string(stop) + " " +
                             std::to_string(end));
                const Shell shell{.reads_lines = true};
                Session session(kind);
                session.looks_at_the_end = false; // the terminal is the shell's
                session.start({.before_exec = [&] { shell.run(); }});
                Program &client = *session.client;
                const bool stuck = end == SIGTERM;
                session.daemon.reading = !stuck;
                if (stuck) {
                    client.send(std::string(600'000, 'x'));
                    wait_until_all_is_read(client);
                } else {
                    session.expect_relay();
                }
                shell.signal_job(stop);
                shell.wait_for_stops(client, 1);
                const std::string shells = describe(client.settings());
                client.send("for the shell\r");
                client.wait_until([&] { return client.waiting_input() >= 14; }, "the line");
                const int waiting = client.waiting_input();
                const size_t shown = client.output().size();
                session.daemon.send("for nobody");
                shell.signal_job(end);
                client.signal(SIGUSR2);
                std::string seen = shells;
                client.wait_until(
                    [&] {
                        seen = seen == shells ? describe(client.settings()) : seen;
                        return !client.running();
                    },
                    "its end");
                EXPECT_EQ(shells, seen);
                EXPECT_EQ(0, client.wait_for_exit());
                EXPECT_EQ(shells, describe(client.settings()));
                EXPECT_EQ(waiting, client.waiting_input());
                EXPECT_TRUE(stuck || session.daemon.received() == "~");
                if (stop == SIGTSTP) { // without a warning it may show something first
                    EXPECT_EQ(std::string::npos, client.output().find("for nobody", shown));
                }
                EXPECT_FALSE(client.screen().alternate);
            }
        }
    }
}

// Keys typed meanwhile may be dropped, as with every change of the terminal's settings.
TEST(Job, ContinuedBeforeItHasStopped)
{
    for (const auto &[kind, late] :
         {std::pair{BASIC, false}, {BASIC, true}, {TUI, false}, {TUI, true}}) {
        const Shell shell{.takes_terminal = false};
        Session session(kind);
        Launch setup{.before_exec = [&] { shell.run(); }};
        if (late) {
            setup.environment["ZORVAD_LATE_HANDLERS"] = "1";
        }
        session.start(setup);
        Program &client = *session.client;
        char key = 'a';
        const auto runs = [&] {
            key = key == 'z' ? 'a' : char(key + 1); // those of the round before may come late
            const size_t before = session.daemon.received().size();
            return loop().run_until([&] {
                client.send({&key, 1});
                return session.daemon.received().find(key, before) != std::string::npos;
            });
        };
        for (int round = 0; round < 60; ++round) {
            const useconds_t delay = useconds_t(50 * (round % 12));
            shell.signal_job(SIGTSTP);
            usleep(delay);
            shell.signal_job(SIGCONT);
            ASSERT_TRUE(runs()) << kind << late << " in round " << round;
        }
        // In the background, where it is about to stop once more, and at once in the foreground.
        for (int round = 0; round < 12; ++round) {
            const int stops = shell.shared->stops;
            shell.signal_job(SIGTSTP);
            client.wait_until([&] { return shell.shared->stops > stops; }, "the client to stop");
            const int turns = shell.shared->turns;
            client.signal(SIGUSR2);
            for (int patience = 0; shell.shared->turns == turns && patience < 100'000; ++patience) {
                usleep(20);
            }
            usleep(useconds_t(100 * round));
            client.signal(SIGUSR1);
            ASSERT_TRUE(runs()) << kind << late << " in the foreground in round " << round;
        }
        // A terminal that takes nothing keeps it from stopping for a while.
        client.reading = false;
        session.daemon.send(std::string(400'000, 'x'));
        ASSERT_TRUE(runs());
        shell.signal_job(SIGTSTP);
        EXPECT_FALSE(loop().run_until([] { return false; }, std::chrono::milliseconds(100)));
        shell.signal_job(SIGCONT);
        client.reading = true;
        EXPECT_TRUE(runs());
    }
}

// A stopped job whose shell goes away is continued with a SIGHUP.
TEST(Job, EndsAsAnOrphan)
{
    for (const FrontEnd kind : {BASIC, TUI}) {
        for (const int stop : {0, SIGTSTP, SIGSTOP}) {
            const Shell shell;
            Session session(kind);
            session.looks_at_the_end = false; // nobody is left to see to it
            session.start({.before_exec = [&] { shell.run(); }});
            if (stop != 0) {
                shell.signal_job(stop);
                shell.wait_for_stops(*session.client, 1);
            }
            session.client->signal(SIGKILL);
            session.client->wait_for_exit();
            const std::string stat = "/proc/" + std::to_string(shell.shared->job) + "/stat";
            EXPECT_TRUE(loop().run_until([&] {
                std::string line; // empty also where it goes away while it is read
                std::ifstream file(stat);
                std::getline(file, line);
                return line == "" || line.find(") Z ") != std::string::npos;
            })) << kind
                << stop;
        }
    }
}

// What is typed goes to the port, also when a signal has ended the session before it was read; what
// the keys would have done is not done any more.
TEST(Job, CommandsBehindASignalAreNotRun)
{
    for (const FrontEnd kind : {BASIC, TUI}) {
        Session session(kind);
        session.start({.arguments = {"admin"}});
        Program &client = *session.client;
        client.signal(SIGSTOP);
        client.send("ab\5bcd\5\5\5?e\5d");
        client.wait_until([&] { return client.waiting_input() == 13; }, "the keys");
        client.signal(SIGTERM);
        client.signal(SIGCONT);
        EXPECT_EQ(0, client.wait_for_exit());
        session.daemon.expect_received("abcd\5e");
        EXPECT_EQ(0u, session.daemon.command_count("BREAK"));
        EXPECT_EQ(0u, session.daemon.command_count("LIST_SESSIONS"));
    }
}

TEST(Job, ACrashGivesTheTerminalBack)
{
    for (const FrontEnd kind : {BASIC, TUI}) {
        for (const int number : {SIGSEGV, SIGBUS, SIGABRT, SIGILL, SIGFPE}) {
            SCOPED_TRACE(std::to_string(kind) + " " + std::to_string(number));
            Session session(kind);
            session.start({.environment = {{"ASAN_OPTIONS", "handle_segv=0:handle_sigbus=0:"
                                                            "handle_sigill=0:handle_sigfpe=0:"
                                                            "verify_asan_link_order=0"}}});
            Program &client = *session.client;
            EXPECT_FALSE(session.terminal_is_as_found());
            client.signal(number);
            session.status = 128 + number;
            EXPECT_EQ(session.status, client.wait_for_exit());
        }
    }
}

// The line cannot send what it holds, and would keep those waiting who set it only then.
TEST(Job, AStoppedSerialLineDoesNotKeepItFromEnding)
{
    for (const FrontEnd kind : {BASIC, TUI}) {
        Session session(kind);
        session.start({.environment = {{"ZORVAD_STOPPED_LINE", "1"}}});
    }
}

namespace {

// A daemon whose queue of connections is full keeps the client waiting.
struct FullQueue {
    const std::string key = "queue-" + std::to_string(getpid());
    const std::string directory = "/var/run/zorvad/" + key;
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int first = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);

    FullQueue()
    {
        std::filesystem::create_directories(directory);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (directory + "/cmd.sck").copy(address.sun_path, sizeof address.sun_path - 1);
        const auto *name = reinterpret_cast<const sockaddr *>(&address);
        EXPECT_EQ(0, bind(listener, name, sizeof address));
        EXPECT_EQ(0, listen(listener, 0));
        EXPECT_EQ(0, connect(first, name, sizeof address));
    }
    ~FullQueue()
    {
        close(first);
        close(listener);
        std::filesystem::remove_all(directory);
    }
};

} // namespace

TEST(Job, EndedJustBeforeItWaitsToConnect)
{
    const FullQueue daemon;
    Program client({.arguments = {ZORVAD_CLIENT, daemon.key},
                    .environment = {{"ZORVAD_ENDED_CONNECTING", "1"}}});
    EXPECT_EQ(0, client.wait_for_exit());
    EXPECT_EQ("", client.error_output() + client.log());
}

TEST(Job, ConnectingWaitsThroughSignals)
{
    const FullQueue daemon;
    for (const auto &[end, status] : {std::pair{SIGTERM, 0}, {SIGINT, 0}, {SIGHUP, 128 + SIGHUP}}) {
        const Shell shell;
        Program client(
            {.arguments = {ZORVAD_CLIENT, daemon.key}, .before_exec = [&] { shell.run(); }});
        const auto waits = [&] {
            const std::string job = std::to_string(shell.shared->job);
            return read_file("/proc/" + job + "/wchan").starts_with("unix_");
        };
        client.wait_until(waits, "its connecting");
        for (const int number : {SIGCHLD, SIGWINCH, SIGURG, SIGCONT}) {
            shell.signal_job(number);
        }
        shell.signal_job(SIGTSTP);
        shell.wait_for_stops(client, 1);
        client.signal(SIGUSR1);
        client.wait_until(waits, "its connecting again");
        EXPECT_FALSE(
            loop().run_until([&] { return !client.running(); }, std::chrono::milliseconds(100)));
        shell.signal_job(end);
        EXPECT_EQ(status, client.wait_for_exit());
        EXPECT_EQ("", client.error_output() + client.log());
    }
}
