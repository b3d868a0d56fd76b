// What the program relies on in the event loop and its streams, whichever library provides them.
#include "dep/ubox.h"

#include <chrono>
#include <climits>
#include <functional>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <termios.h>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Two connected descriptors, closed at the end: ours is [0], the peer's [1].
struct Pair {
    int fd[2] = {-1, -1};
    ~Pair()
    {
        close_end(0);
        close_end(1);
    }
    void close_end(int end)
    {
        if (fd[end] >= 0) {
            close(fd[end]);
        }
        fd[end] = -1;
    }
    void send(const std::string &text) const // from the peer
    {
        ASSERT_EQ(write(fd[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
};

Pair socket_pair()
{
    Pair pair;
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.fd), 0);
    return pair;
}

Pair pipe_to_read()
{
    Pair pair;
    EXPECT_EQ(pipe2(pair.fd, O_CLOEXEC), 0);
    return pair;
}

Pair pipe_to_write()
{
    Pair pair = pipe_to_read();
    std::swap(pair.fd[0], pair.fd[1]);
    return pair;
}

// As the program sets its terminal: a read of nothing would be an end without O_NONBLOCK.
Pair raw_terminal()
{
    Pair pair;
    pair.fd[1] = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(grantpt(pair.fd[1]) | unlockpt(pair.fd[1]), 0);
    pair.fd[0] = open(ptsname(pair.fd[1]), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios attributes;
    EXPECT_EQ(tcgetattr(pair.fd[0], &attributes), 0);
    cfmakeraw(&attributes);
    attributes.c_cc[VMIN] = 0;
    attributes.c_cc[VTIME] = 1;
    EXPECT_EQ(tcsetattr(pair.fd[0], TCSANOW, &attributes), 0);
    return pair;
}

struct Ubox : testing::Test {
    void SetUp() override { ASSERT_EQ(uloop_init(), 0); }

    static void run_until(const std::function<bool()> &condition)
    {
        for (const auto end = Clock::now() + milliseconds(10'000); !condition();) {
            ASSERT_LT(Clock::now(), end) << "waited in vain";
            (void)uloop_run_timeout(20);
        }
    }
    // Until nothing happens in several rounds: a busy machine can stretch one in which something
    // does.
    static void run_until_idle()
    {
        int quiet = 0;
        for (int rounds = 0; quiet < 4 && rounds < 1000; rounds++) {
            const auto start = Clock::now();
            (void)uloop_run_timeout(10);
            quiet = Clock::now() - start >= milliseconds(10) ? quiet + 1 : 0;
        }
        ASSERT_EQ(quiet, 4) << "the loop finds no rest";
    }
};

std::string log;
uloop_timeout timers[6];

void note_timer(uloop_timeout *due)
{
    EXPECT_FALSE(due->pending);
    log += static_cast<char>('a' + (due - timers));
    uloop_cancelled = true;
}

void set_timers(std::initializer_list<int> delays)
{
    log.clear();
    uloop_timeout *timer = timers;
    for (const int delay : delays) {
        timer->cb = note_timer;
        EXPECT_EQ(uloop_timeout_set(timer++, delay), 0);
    }
}

TEST_F(Ubox, timers_run_by_time_then_by_age)
{
    set_timers({30, 10, 10, -5, 5, INT_MAX});
    EXPECT_EQ(uloop_timeout_cancel(&timers[4]), 0);
    EXPECT_EQ(uloop_timeout_cancel(&timers[4]), -1);
    EXPECT_EQ(uloop_timeout_set(&timers[4], 5), 0);
    EXPECT_EQ(uloop_timeout_set(&timers[4], 100'000), 0);
    const auto start = Clock::now();
    run_until([&] { return log.size() == 4; });
    EXPECT_EQ(log, "dbca");
    EXPECT_GE(Clock::now() - start, milliseconds(28));
    uloop_timeout_cancel(&timers[4]);
    uloop_timeout_cancel(&timers[5]);
}

TEST_F(Ubox, cancellation_before_a_run_is_forgotten)
{
    uloop_cancelled = true;
    set_timers({1});
    EXPECT_EQ(uloop_run_timeout(-1), 0);
    EXPECT_EQ(log, "a");
    EXPECT_TRUE(uloop_cancelled);
    EXPECT_EQ(uloop_run_timeout(0), 0);
    EXPECT_FALSE(uloop_cancelled);
}

// A stream that writes down what it is told. By default it consumes all that it reads.
struct RecordedStream {
    struct Record {
        ustream_fd stream;
        RecordedStream *owner;
    } record{.stream = {}, .owner = this};
    ustream_fd &stream = record.stream;
    std::string received;
    int reads = 0, last_read_count = 0, states = 0;
    std::function<void()> on_read = [this] { consume_all(); };

    RecordedStream()
    {
        stream.stream.notify_read = [](ustream *s, int count) {
            RecordedStream &self = owner_of(s);
            self.reads++;
            self.last_read_count = count;
            self.on_read();
        };
        stream.stream.notify_state = [](ustream *s) { owner_of(s).states++; };
    }
    RecordedStream(const RecordedStream &) = delete;
    ~RecordedStream() { ustream_free(*this); }
    static RecordedStream &owner_of(ustream *s)
    {
        return *container_of(s, Record, stream.stream)->owner;
    }
    ustream *operator->() { return &stream.stream; }
    operator ustream *() { return &stream.stream; }

    void consume_all()
    {
        int length;
        while (char *chunk = ustream_get_read_buf(*this, &length)) {
            received.append(chunk, static_cast<size_t>(length));
            ustream_consume(*this, length);
        }
    }
};

// What brings a stream to its end, and what its state callback then sees.
struct EndCase {
    const char *name;
    Pair (*make)();
    size_t sent;                           // by the peer, before its end
    enum { AT_ONCE, LATER, SHUTDOWN } end; // the last: it goes on reading
    bool eof, write_error;
    bool consume = true;
};

void check_end(const EndCase &row)
{
    SCOPED_TRACE(row.name);
    Pair pair = row.make();
    RecordedStream stream;
    if (!row.consume) {
        stream.on_read = [] {};
    }
    ustream_fd_init(&stream.stream, pair.fd[0]);
    if (row.sent > 0) {
        pair.send(std::string(row.sent, 'd'));
    }
    if (row.end == EndCase::LATER) {
        Ubox::run_until([&] { return stream.reads == 1; });
    }
    if (row.end == EndCase::SHUTDOWN) {
        shutdown(pair.fd[1], SHUT_WR);
    } else {
        pair.close_end(1);
    }
    Ubox::run_until_idle();
    EXPECT_EQ(stream.states, 1);
    EXPECT_EQ(stream->eof, row.eof);
    EXPECT_EQ(stream->write_error, row.write_error);
    EXPECT_EQ(stream.last_read_count, static_cast<int>(row.sent));

    // What was left is still there, and an end that was hidden behind it comes out.
    stream.consume_all();
    EXPECT_EQ(stream.received.size(), row.sent);
    Ubox::run_until_idle();
    EXPECT_EQ(stream->eof, row.eof || !row.consume);
    EXPECT_EQ(stream.states, stream->eof && !row.eof ? 2 : 1) << "each end is told once";

    // The stream can still write unless it was told otherwise.
    EXPECT_EQ(ustream_write(stream, "x", 1, false), row.write_error ? 0 : 1);
    EXPECT_EQ(ustream_printf(stream, "%d", 12), row.write_error ? 0 : 2);
}

TEST_F(Ubox, the_end_of_a_stream_is_announced_once)
{
    const EndCase rows[] = {
        {"socket_data_and_close", socket_pair, 5, EndCase::AT_ONCE, true, true},
        {"socket_close_later", socket_pair, 5, EndCase::LATER, true, true},
        {"socket_peer_stops_writing", socket_pair, 5, EndCase::SHUTDOWN, true, false},
        {"socket_unconsumed", socket_pair, 4095, EndCase::AT_ONCE, true, true, false},
        {"socket_full", socket_pair, 4096, EndCase::AT_ONCE, false, true, false},
        {"pipe_data_and_close", pipe_to_read, 5, EndCase::AT_ONCE, true, true},
        {"pipe_close_later", pipe_to_read, 5, EndCase::LATER, true, true},
        {"raw_terminal_hangs_up", raw_terminal, 5, EndCase::LATER, true, true},
        {"pipe_reader_goes", pipe_to_write, 0, EndCase::AT_ONCE, false, true},
    };
    for (const EndCase &row : rows) {
        check_end(row);
    }
}

TEST_F(Ubox, a_stream_stops_reading_when_full_and_goes_on_after_consuming)
{
    Pair pair = socket_pair();
    RecordedStream stream;
    stream.on_read = [] {};
    stream->string_data = true;
    stream->r.buffer_len = 10;
    ustream_fd_init(&stream.stream, pair.fd[0]);
    pair.send("0123456789abcdefgh");
    run_until_idle();
    EXPECT_EQ(stream.reads, 1);
    EXPECT_FALSE(stream.stream.fd.registered);
    EXPECT_STREQ(ustream_get_read_buf(stream, nullptr), "0123456789");
    ustream_consume(stream, 3);
    run_until([&] { return stream.reads == 2; });
    EXPECT_STREQ(ustream_get_read_buf(stream, nullptr), "3456789abc");
    ustream_consume(stream, 10);
    run_until([&] { return stream.reads == 3; });
    // What moves to the front of the buffer stays a text, though nothing more is read.
    pair.send("ijklm");
    run_until([&] { return stream.reads == 4; });
    ustream_consume(stream, 8);
    EXPECT_FALSE(ustream_poll(stream));
    EXPECT_STREQ(ustream_get_read_buf(stream, nullptr), "lm");
}

} // namespace
