// Port bytes and typed bytes: all of them, in order, in bounded memory.
#include "e2e/fixture.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>

using namespace support;

namespace {

// Resident memory in kB that the client may ever take. The sanitizers need a multiple of it; what
// the tests push through is far above either.
#ifdef ZORVAD_SANITIZED
constexpr long MEMORY_LIMIT = 150'000;
#else
constexpr long MEMORY_LIMIT = 16'000;
#endif
constexpr size_t MEGABYTE = 1 << 20;

std::string every_byte()
{
    std::string bytes;
    for (int value = 0; value < 256; ++value) {
        bytes += char(value);
    }
    return bytes;
}

std::string noise(size_t size)
{
    std::string bytes(size, '\0');
    uint32_t state = 12345;
    for (char &byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = char(state >> 24);
    }
    return bytes;
}

std::string file_of(const std::string &content)
{
    std::string path = std::filesystem::temp_directory_path() / "zorvad-input-XXXXXX";
    const int fd = mkstemp(path.data());
    EXPECT_EQ(ssize_t(content.size()), write(fd, content.data(), content.size()));
    close(fd);
    return path;
}

// Runs the loop until value has not moved for a while.
void wait_until_stuck(const std::function<size_t()> &value)
{
    size_t last = value();
    while (loop().run_until([&] { return value() != last; }, std::chrono::milliseconds(400))) {
        last = value();
    }
}

// A reader that takes one read's worth four times a second, for longer than the client waits for
// one that takes nothing, and then the rest.
void read_slowly(bool &reading, const std::function<size_t()> &taken)
{
    for (int i = 0; i < 12; ++i) {
        const size_t before = taken();
        reading = true;
        EXPECT_TRUE(loop().run_until([&] { return taken() > before; }));
        reading = false;
        EXPECT_FALSE(loop().run_until([] { return false; }, std::chrono::milliseconds(250)));
    }
    reading = true;
}

} // namespace

TEST(Relay, EveryByteBothWays)
{
    std::string typed = every_byte();
    typed.insert(5, "\x05");
    for (const Stream::Kind kind : {Stream::TERMINAL, Stream::PIPE}) {
        Session session(BASIC);
        session.start({.input = {kind}, .output = {kind}});
        session.play({{PRINT, every_byte()}, {SHOWS, every_byte()}});
        session.play({{TYPE, typed}, {GETS, every_byte()}});
    }
}

TEST(Relay, ALargeBinaryArrivesIdenticalInBoundedMemory)
{
    const std::string bytes = noise(50 * MEGABYTE);
    Session session(BASIC);
    session.start(PIPES);
    session.client->read_size = 16'384; // a round, while the port may send what it likes
    session.daemon.send(bytes);
    session.play({{SHOWS, bytes}});
    EXPECT_LT(session.client->status_value("VmHWM"), MEMORY_LIMIT);
}

TEST(Relay, EndOfInputOnAPipeAFileAndTheNullDevice)
{
    std::string content = noise(300'000);
    std::erase(content, '\x05');
    const std::string path = file_of(content);
    const std::pair<Stream, std::string> rows[] = {{{Stream::PIPE}, content},
                                                   {{Stream::FILE, path}, content},
                                                   {{Stream::FILE, "/dev/null"}, ""}};
    for (const auto &[input, typed] : rows) {
        Session session(BASIC);
        session.launch({.input = input, .output = {Stream::PIPE}});
        if (input.kind == Stream::PIPE) {
            session.client->send(content);
            session.client->end_input();
        }
        EXPECT_EQ(0, session.client->wait_for_exit());
        session.daemon.expect_received(typed);
    }
    std::filesystem::remove(path);
}

TEST(Relay, OutputToAFile)
{
    const std::string path = file_of("");
    const std::string bytes = noise(MEGABYTE);
    Session session(BASIC);
    session.daemon.answer("SET_USER", std::nullopt); // no greeting
    session.launch({.output = {Stream::FILE, path}});
    session.daemon.send(bytes);
    session.daemon.hang_up_data();
    EXPECT_EQ(0, session.client->wait_for_exit());
    EXPECT_TRUE(read_file(path) == bytes);
    std::filesystem::remove(path);
}

TEST(Relay, AReaderThatGoesAwayEndsTheSession)
{
    Session session(BASIC);
    session.start(PIPES);
    session.client->close_output();
    session.daemon.send("to nobody\n");
    EXPECT_EQ(0, session.client->wait_for_exit());
}

TEST(Relay, NothingIsLostWhenEitherSocketHangsUp)
{
    const std::string bytes = noise(400'000);
    for (const bool cmd_first : {true, false}) {
        Session session(BASIC);
        session.start(PIPES);
        session.client->reading = false; // so that much is still under way
        session.daemon.send(bytes);
        session.daemon.wait_until_sent();
        cmd_first ? session.daemon.hang_up_cmd() : session.daemon.hang_up_data();
        session.client->reading = true;
        EXPECT_EQ(0, session.client->wait_for_exit());
        session.play({{SHOWS, bytes}});
    }
}

TEST(Relay, WhatTheTerminalHoldsAtTheEndIsShown)
{
    const std::string bytes(10'000, 'x'); // more than it hands on before anybody reads
    Session session(BASIC);
    session.start();
    session.client->reading = false;
    session.daemon.send(bytes);
    session.daemon.hang_up_data();
    EXPECT_EQ(0, session.client->wait_for_exit());
    session.client->reading = true;
    session.play({{SHOWS, bytes}});
}

TEST(Relay, WhatWasTypedBeforeTheEndReachesThePort)
{
    const std::string typed = std::string(600'000, 'k') + "end";
    const struct {
        const char *name;
        std::function<void(Program &)> end;
        FrontEnd front_end = BASIC;
    } rows[] = {
        {"escape q", [](Program &client) { client.send(QUIT); }},
        {"escape q in the terminal UI", [](Program &client) { client.send(QUIT); }, TUI},
        {"end of input", [](Program &client) { client.end_input(); }},
        {"SIGTERM", [](Program &client) { client.signal(SIGTERM); }},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        Session session(row.front_end, {.data_buffer = 4096});
        session.start(row.front_end == BASIC ? PIPES : Launch{});
        session.daemon.reading = false;
        session.client->send(typed);
        session.client->wait_until_taken();
        session.client->wait_until_read();
        row.end(*session.client);
        session.client->wait_until_taken();
        session.daemon.reading = true;
        EXPECT_EQ(0, session.client->wait_for_exit());
        session.play({{GETS, typed}});
    }
}

TEST(Relay, AReaderMayBeSlowWhenTheSessionEnds)
{
    std::string bytes = noise(200'000);
    std::erase(bytes, '\5');
    Session typing(BASIC);
    typing.start(PIPES);
    FakeDaemon &port = typing.daemon;
    port.reading = false;
    port.read_size = 1024;
    typing.client->send(bytes);
    typing.client->end_input();
    read_slowly(port.reading, [&] { return port.received().size(); });
    EXPECT_EQ(0, typing.client->wait_for_exit());
    port.expect_received(bytes);

    Session showing(BASIC);
    showing.start(PIPES);
    Program &client = *showing.client;
    client.reading = false;
    client.read_size = 500;
    showing.daemon.send(bytes);
    showing.daemon.wait_until_sent();
    showing.daemon.hang_up_cmd();
    read_slowly(client.reading, [&] { return client.output().size(); });
    EXPECT_EQ(0, client.wait_for_exit());
    showing.play({{SHOWS, bytes}});
}

TEST(Relay, GoesOnThoughItsStreamsWereMadeToBlock)
{
    Session session(BASIC);
    session.start(PIPES);
    session.client->signal(SIGSTOP);
    session.client->make_blocking(0);
    session.client->make_blocking(1);
    session.client->signal(SIGCONT);
    session.play({{TYPE, "typed"}, {GETS, "typed"}, {PRINT, "port"}, {SHOWS, "port"}});
}

TEST(Relay, KeysThatWaitWhenASignalEndsTheSessionReachThePort)
{
    Session session(BASIC);
    session.start(PIPES);
    session.client->signal(SIGSTOP);
    session.client->send("typed before");
    session.client->wait_until_taken();
    session.client->signal(SIGTERM);
    session.client->signal(SIGCONT);
    EXPECT_EQ(0, session.client->wait_for_exit());
    session.play({{GETS, "typed before"}});
}

TEST(Relay, AStuckPortLeavesTheEscapeCommandsWorking)
{
    for (const FrontEnd kind : {BASIC, TUI}) {
        Session session(kind, {.data_buffer = 4096});
        session.start();
        session.daemon.reading = false;
        const std::string typed(600'000, 'k');
        session.client->send(typed);
        session.client->wait_until_taken();
        session.client->wait_until_read();
        const long ticks = session.client->cpu_ticks();
        EXPECT_FALSE(loop().run_until([] { return false; }, std::chrono::milliseconds(1000)));
        EXPECT_LE(session.client->cpu_ticks() - ticks, 5);
        session.client->send("\x05?"); // behind the keys, and dealt with
        session.client->wait_for_screen("====Terminal Port Help====");
        session.client->send("x"); // closes the popup
        session.daemon.reading = true;
        session.play({{GETS, typed + (kind == BASIC ? "x" : "")}});
    }
}

TEST(Relay, APasteBeyondTheBoundWaitsInTheTerminal)
{
    const std::string paste(40 * MEGABYTE, 'k');
    Session session(BASIC, {.data_buffer = 4096});
    session.start(PIPES);
    Program &client = *session.client;
    session.daemon.reading = false;
    client.send(paste + QUIT);
    wait_until_stuck([&] { return client.untaken(); });
    EXPECT_GT(client.untaken(), 38 * MEGABYTE);
    EXPECT_LT(client.status_value("VmHWM"), MEMORY_LIMIT);
    session.play({{PRINT, "still here"}, {SHOWS, "still here"}});
    session.daemon.reading = true;
    session.play({{GETS, paste}});
    EXPECT_EQ(0, client.wait_for_exit());
}

TEST(Relay, AStuckPortDoesNotKeepTheClientFromEnding)
{
    for (const bool by_signal : {true, false}) {
        Session session(BASIC, {.data_buffer = 4096});
        session.start(PIPES);
        session.daemon.reading = false;
        session.client->send(std::string(8 * MEGABYTE, 'k'));
        wait_until_stuck([&] { return session.client->untaken(); });
        by_signal ? session.client->signal(SIGTERM) : session.daemon.hang_up_cmd();
        EXPECT_EQ(0, session.client->wait_for_exit());
    }
}

// Output that never ends is no progress of what is still on its way.
TEST(Relay, APortThatNeverFallsSilentDoesNotKeepTheClientFromEnding)
{
    enum End { KEY, KEY_BEHIND_STUCK_ONES, HANG_UP };
    for (const End end : {KEY, KEY_BEHIND_STUCK_ONES, HANG_UP}) {
        Session session(BASIC, {.data_buffer = 4096});
        session.start(PIPES);
        Program &client = *session.client;
        const bool stuck = end == KEY_BEHIND_STUCK_ONES;
        client.counting_only = true;
        client.read_size = stuck ? 65'536 : 256; // what the port sends is more, or just less
        session.daemon.reading = !stuck;
        session.daemon.send(std::string(200 * MEGABYTE, 'x'));
        client.wait_until([&] { return client.output_size > MEGABYTE / 4; }, "a part of it");
        if (end == HANG_UP) {
            session.daemon.hang_up_cmd();
        } else {
            client.send(std::string(stuck ? 600'000 : 0, 'k') + QUIT);
        }
        EXPECT_EQ(0, client.wait_for_exit());
        EXPECT_LT(client.output_size, 10 * MEGABYTE) << end;
    }
}

TEST(Relay, AnIdleSessionSleeps)
{
    Session session(BASIC);
    session.start();
    session.expect_relay();
    const auto wakes = [&] { return session.client->status_value("voluntary_ctxt_switches"); };
    wait_until_stuck([&] { return size_t(wakes()); });
    const long switches = wakes();
    const long ticks = session.client->cpu_ticks();
    EXPECT_FALSE(loop().run_until([] { return false; }, std::chrono::milliseconds(1500)));
    EXPECT_EQ(switches, wakes());
    EXPECT_EQ(ticks, session.client->cpu_ticks());
}
