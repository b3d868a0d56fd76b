// What goes wrong around the client: a daemon that stops or hangs up, job control,
// no descriptors left, a full disk, a terminal that takes nothing. Both front ends.
#include "e2e/basic.h"
#include "e2e/tui.h"

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace support;

namespace {

#ifdef ZORVAD_SANITIZED
constexpr long MEMORY_LIMIT = 150'000; // resident, in kB
#else
constexpr long MEMORY_LIMIT = 16'000;
#endif

// Whether the terminal is as it is before a client runs on it.
bool as_found(Program &client)
{
    static const std::string found = describe(Program({.arguments = {"/bin/true"}}).settings());
    return describe(client.settings()) == found && !client.screen().alternate &&
           (client.stream_flags(0) & O_NONBLOCK) == 0;
}

struct Session : Tui {
    const bool basic;

    explicit Session(bool basic_interface) : basic(basic_interface)
    {
        daemon.answer("PORT_INFO", TUI_PORT_INFO);
    }

    void begin(Launch setup = {})
    {
        start_only(std::move(setup));
        daemon.expect_connected();
        wait_until_up();
    }
    void start_only(Launch setup)
    {
        const std::string first[] = {ZORVAD_CLIENT, daemon.key(), "admin"};
        setup.arguments.insert(setup.arguments.begin(), std::begin(first), std::end(first));
        if (basic) {
            setup.arguments.push_back("--basic-interface");
        }
        client.emplace(std::move(setup));
    }
    void wait_until_up()
    {
        if (basic) {
            client->wait_for("Escape key is: Ctrl-e\r\n");
        } else {
            client->wait_until([this] { return bar_is_drawn(); }, "the status bar");
        }
    }
};

// Stands for a shell with job control, the client being its only job: it takes the terminal when
// the client stops. SIGUSR1 is its fg, SIGUSR2 its bg.
struct Shell {
    struct Shared {
        std::atomic<pid_t> job;
        std::atomic<int> stops;
    };
    bool foreground = true; // what the job starts in
    Shared *shared = static_cast<Shared *>(
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ~Shell() { munmap(shared, sizeof(Shared)); }

    // For Launch::before_exec: returns in the job alone.
    void run() const
    {
        sigset_t signals, before;
        sigemptyset(&signals);
        for (const int number : {SIGCHLD, SIGUSR1, SIGUSR2}) {
            sigaddset(&signals, number);
        }
        sigprocmask(SIG_BLOCK, &signals, &before);
        const pid_t job = fork();
        setpgid(job, job);
        if (job == 0) {
            while (foreground && tcgetpgrp(0) != getpgrp()) {
                usleep(1000);
            }
            sigprocmask(SIG_SETMASK, &before, nullptr);
            return;
        }
        ::signal(SIGTTOU, SIG_IGN);
        if (foreground) {
            tcsetpgrp(0, job);
        }
        shared->job = job;
        for (int number = 0, status = 0; sigwait(&signals, &number) == 0;) {
            if (number != SIGCHLD) {
                tcsetpgrp(0, number == SIGUSR1 ? job : getpgrp());
                kill(-job, SIGCONT);
            } else if (waitpid(job, &status, WNOHANG | WUNTRACED) == job) {
                if (!WIFSTOPPED(status)) {
                    _exit(WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status));
                }
                tcsetpgrp(0, getpgrp());
                ++shared->stops;
            }
        }
    }
    void signal_job(int number) const { kill(shared->job, number); }
    void wait_for_stops(Program &client, int count) const
    {
        client.wait_until([&] { return shared->stops == count; }, "the client to stop");
    }
};

} // namespace

TEST(Fault, AStoppedDaemonLosesNothingAndKeepsNobodyBusy)
{
    for (const bool basic : {true, false}) {
        SCOPED_TRACE(basic);
        const std::string key = "stopped-" + std::to_string(getpid());
        Program daemon(
            {.arguments = {ZORVAD_SIM, "--port", key, "--loopback"}, .output = {Stream::PIPE}});
        daemon.wait_for("ready");
        Launch setup{.arguments = {ZORVAD_CLIENT, key}};
        if (basic) {
            setup.arguments.push_back("--basic-interface");
        }
        Program client(setup);
        basic ? client.wait_for("Ctrl-e\r\n") : client.wait_for_screen("Label: " + key);
        const std::string greeting = basic ? client.output() : "";
        std::string typed;
        for (int line = 0; typed.size() < 400'000; ++line) {
            typed += std::to_string(line) + "\r\n";
        }
        typed += "the last line";
        daemon.signal(SIGSTOP);
        client.send(typed);
        client.wait_until_read();
        const long ticks = client.cpu_ticks();
        EXPECT_FALSE(loop().run_until([] { return false; }, std::chrono::milliseconds(1200)));
        EXPECT_LE(client.cpu_ticks() - ticks, 5);
        daemon.signal(SIGCONT);
        client.wait_for_screen("the last line");
        EXPECT_TRUE(!basic || client.output() == greeting + typed);
        daemon.signal(SIGSTOP);
        client.send("\5b\5d\5?\5q");
        EXPECT_EQ(0, client.wait_for_exit());
        client.wait_until([&] { return as_found(client); }, "the terminal as found");
        daemon.signal(SIGCONT);
        daemon.signal(SIGTERM);
        EXPECT_EQ(0, daemon.wait_for_exit());
    }
}

TEST(Fault, StoppedAndContinued)
{
    for (const bool basic : {true, false}) {
        SCOPED_TRACE(basic);
        const Shell shell;
        Session session(basic);
        session.begin({.before_exec = [&] { shell.run(); }});
        Program &client = *session.client;
        const std::string raw = describe(client.settings());
        session.daemon.send("\x1b[2J\x1b[Hbefore\r\n");
        client.wait_for_screen("before");
        EXPECT_FALSE(as_found(client));
        shell.signal_job(SIGTSTP);
        shell.wait_for_stops(client, 1);
        client.wait_until([&] { return as_found(client); }, "the terminal as found");
        client.screen().feed("\x1b[2J\x1b[Hthe shell's rubbish\r\n");
        session.daemon.send("meanwhile");
        client.signal(SIGUSR2); // in the background it has to stop again, and touch nothing
        shell.wait_for_stops(client, 2);
        client.wait_until([&] { return as_found(client); }, "the terminal as found");
        client.signal(SIGUSR1);
        client.wait_for_screen("meanwhile");
        session.expect_relay("");
        EXPECT_EQ(raw, describe(client.settings()));
        if (!basic) {
            Screen direct(23, 80);
            direct.feed("before\r\nmeanwhile");
            session.expect_port_screen(direct);
            session.wait_until_up();
        }
        EXPECT_EQ(0, session.quit());
        client.wait_until([&] { return as_found(client); }, "the terminal as found");
    }
}

// As the shell's kill does it: the client may not stop once more on its way out.
TEST(Fault, EndsInTheBackground)
{
    for (const bool basic : {true, false}) {
        for (const int stop : {0, SIGTSTP, SIGSTOP}) { // 0: started there
            for (const bool twice : {false, true}) {
                SCOPED_TRACE(std::to_string(basic) + " " + std::to_string(stop));
                const Shell shell{.foreground = stop != 0};
                Session session(basic);
                session.start_only({.before_exec = [&] { shell.run(); }});
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
                EXPECT_TRUE(as_found(*session.client));
            }
        }
    }
}

TEST(Fault, AHangUpAtEveryStage)
{
    const struct {
        std::string typed, unanswered, half_reply, shown;
    } stages[] = {
        {"", "SET_USER", "", ""},
        {"", "SET_USER", "{", ""},
        {"\5b", "BREAK", R"({"a":"\u00)", ""},
        {"\5d", "LIST_SESSIONS", R"({"sessions":[{"username":)", ""},
        {"\5?", "", "", "Terminal Port Help"},
        {"\5d", "", "", "==== Sessions ===="},
        {"\5s\5?", "SCROLLBACK", R"({"scrollback":[{"line":"half a)", ""},
    };
    for (const bool basic : {true, false}) {
        for (const auto &stage : stages) {
            for (const bool cmd : {true, false}) {
                if (basic && stage.unanswered == "SCROLLBACK") {
                    continue;
                }
                SCOPED_TRACE(visible(stage.typed) + stage.half_reply + std::to_string(basic));
                Session session(basic);
                session.daemon.answer("LIST_SESSIONS", R"({"sessions":[{}]})");
                session.daemon.answer(stage.unanswered, std::nullopt);
                session.start_only({});
                session.daemon.send("up\r\n");
                session.client->wait_for_screen("up");
                session.client->send(stage.typed);
                if (stage.unanswered != "") {
                    session.daemon.expect_command(stage.unanswered);
                    session.daemon.reply(stage.half_reply);
                }
                session.client->wait_for_screen(stage.shown);
                cmd ? session.daemon.hang_up_cmd() : session.daemon.hang_up_data();
                EXPECT_EQ(0, session.client->wait_for_exit());
                EXPECT_TRUE(as_found(*session.client));
                EXPECT_EQ("", session.client->error_output() + session.client->log());
            }
        }
    }
}

TEST(Fault, NoDescriptorsLeft)
{
    for (const bool basic : {true, false}) {
        for (rlim_t limit = 3; limit <= 22; ++limit) {
            SCOPED_TRACE(std::to_string(basic) + " " + std::to_string(limit));
            Session session(basic);
            // The leak checker needs descriptors too.
            session.start_only(
                {.environment = {{"ASAN_OPTIONS", "detect_leaks=0:verify_asan_link_order=0"}},
                 .before_exec = [limit] {
                     closefrom(3); // which ctest may have left open
                     const rlimit descriptors{limit, limit};
                     setrlimit(RLIMIT_NOFILE, &descriptors);
                 }});
            Program &client = *session.client;
            const auto is_up = [&] {
                return client.output().ends_with("Ctrl-e\r\n") || session.bar_is_drawn();
            };
            EXPECT_TRUE(loop().run_until([&] { return !client.running() || is_up(); }));
            if (client.running()) {
                session.expect_relay("");
                EXPECT_EQ(0, session.quit());
            } else {
                const int status = client.wait_for_exit();
                EXPECT_TRUE(status == 255 || (status == 127 && limit == 3)); // 127: no libraries
                EXPECT_NE("", client.error_output());
            }
            EXPECT_TRUE(as_found(client)) << client.description();
        }
    }
}

TEST(Fault, AFullDisk)
{
    Session session(true);
    session.start_only({.output = {Stream::FILE, "/dev/full"}});
    EXPECT_EQ(0, session.client->wait_for_exit());
    EXPECT_TRUE(as_found(*session.client));
}

TEST(Fault, AnswersThatNobodyReads)
{
    for (const bool read_again : {true, false}) {
        Session session(true);
        session.daemon.answer("LIST_SESSIONS", R"({"sessions":[]})");
        session.begin(PIPES);
        Program &client = *session.client;
        client.reading = false;
        std::string typed;
        for (int count = 0; count < 300'000; ++count) {
            typed += "\5?\5d\5pk";
        }
        client.send(typed);
        session.daemon.expect_received(std::string(300'000, 'k'));
        EXPECT_LT(client.status_value("VmHWM"), MEMORY_LIMIT);
        client.reading = read_again;
        if (read_again) {
            session.daemon.send("all of the port's output");
            client.wait_for("all of the port's output");
            const size_t shown = client.output().size();
            client.send("\5?");
            client.wait_until(
                [&] { return client.output().find("Port Help", shown) != std::string::npos; },
                "the help");
        }
        EXPECT_EQ(0, session.quit());
    }
}
