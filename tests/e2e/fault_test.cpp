// What goes wrong around the client: a daemon that stops or hangs up, no descriptors left, a full
// disk, a terminal that takes nothing. Both front ends.
#include "e2e/fixture.h"

#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace support;

namespace {

#ifdef ZORVAD_SANITIZED
constexpr long MEMORY_LIMIT = 150'000; // resident, in kB
#else
constexpr long MEMORY_LIMIT = 16'000;
#endif

} // namespace

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
    for (const FrontEnd kind : {BASIC, TUI}) {
        for (const auto &stage : stages) {
            for (const bool cmd : {true, false}) {
                if (kind == BASIC && stage.unanswered == "SCROLLBACK") {
                    continue;
                }
                SCOPED_TRACE(visible(stage.typed) + stage.half_reply + std::to_string(kind));
                Session session(kind);
                session.daemon.answer("LIST_SESSIONS", R"({"sessions":[{}]})");
                session.daemon.answer(stage.unanswered, std::nullopt);
                session.launch({.arguments = {"admin"}});
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
            }
        }
    }
}

TEST(Fault, NoDescriptorsLeft)
{
    for (const FrontEnd kind : {BASIC, TUI}) {
        for (rlim_t limit = 3; limit <= 22; ++limit) {
            SCOPED_TRACE(std::to_string(kind) + " " + std::to_string(limit));
            Session session(kind);
            // The leak checker needs descriptors too.
            session.spawn(
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
                session.expect_relay();
            } else {
                session.status = limit == 3 ? client.wait_for_exit() : 255; // 127: no libraries
                EXPECT_EQ(session.status, client.wait_for_exit());
                EXPECT_NE("", session.errors = client.error_output());
            }
            EXPECT_EQ(session.status, session.end());
            session.logged = client.log();
        }
    }
}

TEST(Fault, AFullDisk)
{
    Session session(BASIC);
    session.spawn({.output = {Stream::FILE, "/dev/full"}});
    EXPECT_EQ(0, session.client->wait_for_exit());

    // A file that may not grow: SIGXFSZ is an error of the write as well.
    const std::string path = testing::TempDir() + "small-" + std::to_string(getpid());
    Session limited(BASIC);
    limited.spawn({.output = {Stream::FILE, path}, .before_exec = [] {
                       const rlimit size{10, 10};
                       setrlimit(RLIMIT_FSIZE, &size);
                   }});
    EXPECT_EQ(0, limited.client->wait_for_exit());
    unlink(path.c_str());
}

TEST(Fault, AnswersThatNobodyReads)
{
    for (const bool read_again : {true, false}) {
        Session session(BASIC);
        session.daemon.answer("LIST_SESSIONS", R"({"sessions":[]})");
        session.start(ADMIN);
        Program &client = *session.client;
        client.reading = false;
        std::string typed;
        for (int count = 0; count < 300'000; ++count) {
            typed += "\5?\5d\5pk";
        }
        client.send(typed);
        session.daemon.expect_received(std::string(300'000, 'k'));
        EXPECT_LT(client.status_value("VmHWM"), MEMORY_LIMIT);
        session.logged = client.log(); // of requests beyond the limit
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
    }
}
