// Port bytes and typed bytes: all of them, in order, in bounded memory.
#include "e2e/basic.h"

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
// Freed blocks that AddressSanitizer holds back do not say anything about the client.
const std::map<std::string, std::optional<std::string>> LITTLE_QUARANTINE{
    {"ASAN_OPTIONS", "verify_asan_link_order=0:quarantine_size_mb=8"}};
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
        Basic session;
        session.start({.input = {kind}, .output = {kind}});
        session.daemon.send(every_byte());
        session.expect_output(every_byte());
        session.client->send(typed);
        session.daemon.expect_received(every_byte());
        EXPECT_EQ(0, session.quit());
    }
}

TEST(Relay, ALargeBinaryArrivesIdentical)
{
    const std::string bytes = noise(50 * MEGABYTE);
    Basic session;
    session.start({.output = {Stream::PIPE}});
    session.daemon.send(bytes);
    session.client->wait_until(
        [&] { return session.client->output().size() >= bytes.size() + session.greeting.size(); },
        "50 MB");
    EXPECT_TRUE(session.client->output() == session.greeting + bytes);
    EXPECT_EQ(0, session.quit());
}

TEST(Relay, EndOfInputOnAPipeAFileAndTheNullDevice)
{
    std::string content = noise(300'000);
    std::erase(content, '\x05');
    {
        Basic session;
        session.start(PIPES);
        session.client->send(content);
        session.client->end_input();
        session.daemon.expect_received(content);
        EXPECT_EQ(0, session.client->wait_for_exit());
    }
    const std::string path = file_of(content);
    for (const std::string &input : {path, std::string("/dev/null")}) {
        Basic session;
        session.launch({.input = {Stream::FILE, input}, .output = {Stream::PIPE}});
        session.daemon.expect_command("SET_USER");
        EXPECT_EQ(0, session.client->wait_for_exit());
        session.daemon.expect_received(input == path ? content : "");
    }
    std::filesystem::remove(path);
}

TEST(Relay, OutputToAFile)
{
    const std::string path = file_of("");
    const std::string bytes = noise(MEGABYTE);
    Basic session;
    session.launch({.output = {Stream::FILE, path}});
    session.daemon.send(bytes);
    session.daemon.hang_up_data();
    EXPECT_EQ(0, session.client->wait_for_exit());
    EXPECT_TRUE(read_file(path) == bytes);
    std::filesystem::remove(path);
}

TEST(Relay, AReaderThatGoesAwayEndsTheSession)
{
    Basic session;
    session.start({.output = {Stream::PIPE}});
    session.client->close_output();
    session.daemon.send("to nobody\n");
    EXPECT_EQ(0, session.client->wait_for_exit());
}

TEST(Relay, NothingIsLostWhenEitherSocketHangsUp)
{
    const std::string bytes = noise(400'000);
    for (const bool cmd_first : {true, false}) {
        Basic session;
        session.start({.output = {Stream::PIPE}});
        session.client->reading = false; // so that much is still under way
        session.daemon.send(bytes);
        session.daemon.wait_until_sent();
        cmd_first ? session.daemon.hang_up_cmd() : session.daemon.hang_up_data();
        session.client->reading = true;
        EXPECT_EQ(0, session.client->wait_for_exit());
        EXPECT_TRUE(session.client->output() == session.greeting + bytes)
            << describe_difference(session.greeting + bytes, session.client->output());
    }
}

TEST(Relay, WhatWasTypedBeforeTheEndReachesThePort)
{
    std::string typed(600'000, 'k');
    typed += "end";
    const struct {
        const char *name;
        std::function<void(Program &)> end;
    } rows[] = {
        {"escape q", [](Program &client) { client.send(QUIT); }},
        {"end of input", [](Program &client) { client.end_input(); }},
        {"SIGTERM", [](Program &client) { client.signal(SIGTERM); }},
    };
    for (const auto &row : rows) {
        Basic session({.data_buffer = 4096});
        session.start(PIPES);
        session.daemon.reading = false;
        session.client->send(typed);
        session.client->wait_until_read();
        row.end(*session.client);
        session.daemon.reading = true;
        EXPECT_EQ(0, session.client->wait_for_exit()) << row.name;
        session.daemon.expect_received(typed);
    }
}

TEST(Relay, AReaderMayBeSlowWhenTheSessionEnds)
{
    std::string bytes = noise(200'000);
    std::erase(bytes, '\5');
    Basic typing;
    typing.start(PIPES);
    FakeDaemon &port = typing.daemon;
    port.reading = false;
    port.read_size = 1024;
    typing.client->send(bytes);
    typing.client->end_input();
    read_slowly(port.reading, [&] { return port.received().size(); });
    EXPECT_EQ(0, typing.client->wait_for_exit());
    port.expect_received(bytes);

    Basic showing;
    showing.start({.output = {Stream::PIPE}});
    Program &client = *showing.client;
    client.reading = false;
    client.read_size = 500;
    showing.daemon.send(bytes);
    showing.daemon.wait_until_sent();
    showing.daemon.hang_up_cmd();
    read_slowly(client.reading, [&] { return client.output().size(); });
    EXPECT_EQ(0, client.wait_for_exit());
    EXPECT_TRUE(client.output() == showing.greeting + bytes)
        << describe_difference(showing.greeting + bytes, client.output());
}

TEST(Relay, KeysThatWaitWhenASignalEndsTheSessionReachThePort)
{
    Basic session;
    session.start(PIPES);
    session.client->signal(SIGSTOP);
    session.client->send("typed before");
    session.client->wait_until_taken();
    session.client->signal(SIGTERM);
    session.client->signal(SIGCONT);
    EXPECT_EQ(0, session.client->wait_for_exit());
    session.daemon.expect_received("typed before");
}

TEST(Relay, ASlowReaderKeepsMemoryBounded)
{
    Basic session;
    session.start({.environment = LITTLE_QUARANTINE, .output = {Stream::PIPE}});
    Program &client = *session.client;
    client.counting_only = true;
    client.read_size = 16'384; // a round, while the port may send what it likes
    constexpr size_t TOTAL = 200 * MEGABYTE;
    session.daemon.send(std::string(TOTAL, 'x'));
    const auto all_shown = [&] { return client.output_size == TOTAL + session.greeting.size(); };
    client.wait_until(all_shown, "200 MB");
    EXPECT_LT(client.status_value("VmHWM"), MEMORY_LIMIT);
    EXPECT_EQ(0, session.quit());
}

TEST(Relay, AStuckPortLeavesTheEscapeCommandsWorking)
{
    Basic session({.data_buffer = 4096});
    session.start();
    session.daemon.reading = false;
    session.client->send(std::string(900'000, 'k'));
    session.client->wait_until_taken();
    session.client->send("\x05?");
    session.client->wait_for("====Terminal Port Help====");
    EXPECT_EQ(0, session.quit());
}

TEST(Relay, APasteBeyondTheBoundWaitsInTheTerminal)
{
    Basic session({.data_buffer = 4096});
    session.start(PIPES);
    Program &client = *session.client;
    session.daemon.reading = false;
    client.send(std::string(40 * MEGABYTE, 'k') + QUIT);
    wait_until_stuck([&] { return client.untaken(); });
    EXPECT_GT(client.untaken(), 38 * MEGABYTE);
    EXPECT_LT(client.status_value("VmHWM"), MEMORY_LIMIT);
    session.daemon.send("still here");
    session.expect_output("still here");
    session.daemon.reading = true;
    EXPECT_EQ(0, client.wait_for_exit());
    session.daemon.expect_received(std::string(40 * MEGABYTE, 'k'));
}

TEST(Relay, AStuckPortDoesNotKeepTheClientFromEnding)
{
    for (const bool by_signal : {true, false}) {
        Basic session({.data_buffer = 4096});
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
        Basic session({.data_buffer = 4096});
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
        EXPECT_LT(client.output_size, 100 * MEGABYTE) << end;
    }
}

TEST(Relay, AnIdleSessionSleeps)
{
    Basic session;
    session.start();
    session.expect_relay("");
    wait_until_stuck(
        [&] { return size_t(session.client->status_value("voluntary_ctxt_switches")); });
    const long switches = session.client->status_value("voluntary_ctxt_switches");
    const long ticks = session.client->cpu_ticks();
    EXPECT_FALSE(loop().run_until([] { return false; }, std::chrono::milliseconds(1500)));
    EXPECT_EQ(switches, session.client->status_value("voluntary_ctxt_switches"));
    EXPECT_EQ(ticks, session.client->cpu_ticks());
    EXPECT_EQ(0, session.quit());
}
