#include "fixture.h"

#include <termios.h>

namespace {

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

// What brings a stream to its end, and what its state callback then sees.
struct EndCase {
    const char *name;
    Pair (*make)();
    size_t sent;                           // by the peer, before its end
    enum { AT_ONCE, LATER, SHUTDOWN } end; // the last: it goes on reading
    bool eof, write_error;
    bool consume = true;
};

const EndCase end_cases[] = {
    {"socket_data_and_close", socket_pair, 5, EndCase::AT_ONCE, true, true},
    {"socket_close_later", socket_pair, 5, EndCase::LATER, true, true},
    {"socket_peer_stops_writing", socket_pair, 5, EndCase::SHUTDOWN, true, false},
    {"socket_unconsumed", socket_pair, 4095, EndCase::AT_ONCE, true, true, false},
    {"socket_full", socket_pair, 4096, EndCase::AT_ONCE, false, true, false},
    {"pipe_data_and_close", [] { return pipe_pair(); }, 5, EndCase::AT_ONCE, true, true},
    {"pipe_close_later", [] { return pipe_pair(); }, 5, EndCase::LATER, true, true},
    {"raw_terminal_hangs_up", raw_terminal, 5, EndCase::LATER, true, true},
    {"pipe_reader_goes", [] { return pipe_pair(true); }, 0, EndCase::AT_ONCE, false, true},
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
        send_text(pair, std::string(row.sent, 'd'));
    }
    if (row.end == EndCase::LATER) {
        LoopTest::run_until([&] { return stream.reads == 1; });
    }
    if (row.end == EndCase::SHUTDOWN) {
        shutdown(pair.fd[1], SHUT_WR);
    } else {
        pair.close_end(1);
    }
    LoopTest::run_until_idle();
    EXPECT_EQ(stream.states, 1);
    EXPECT_EQ(stream->eof, row.eof);
    EXPECT_EQ(stream->write_error, row.write_error);
    EXPECT_EQ(stream.last_read_count, static_cast<int>(row.sent));

    // What was left is still there, and an end that was hidden behind it comes out.
    stream.consume_all();
    EXPECT_EQ(stream.received.size(), row.sent);
    LoopTest::run_until_idle();
    EXPECT_EQ(stream->eof, row.eof || !row.consume);
    EXPECT_EQ(stream.states, stream->eof && !row.eof ? 2 : 1) << "each end is told once";

    // The stream can still write unless it was told otherwise.
    EXPECT_EQ(ustream_write(stream, "x", 1, false), row.write_error ? 0 : 1);
    EXPECT_EQ(ustream_printf(stream, "%d", 12), row.write_error ? 0 : 2);
}

using StreamEnd = LoopTest;

TEST_F(StreamEnd, is_announced_once)
{
    for (const EndCase &row : end_cases) {
        check_end(row);
    }
}

TEST_F(StreamEnd, changes_are_announced_one_by_one)
{
    Pair pair = socket_pair();
    RecordedStream stream;
    ustream_fd_init(&stream.stream, pair.fd[0]);
    shutdown(pair.fd[1], SHUT_WR);
    run_until([&] { return stream.states == 1; });
    EXPECT_FALSE(stream->write_error);
    pair.close_end(1);
    run_until([&] { return stream.states == 2; });
    EXPECT_TRUE(stream->write_error);
}

TEST_F(StreamEnd, callback_may_free_the_stream)
{
    Pair pair = socket_pair();
    auto *stream = new ustream_fd{};
    static bool told;
    told = false;
    stream->stream.notify_state = [](ustream *s) {
        told = true;
        ustream_free(s);
        delete container_of(s, ustream_fd, stream);
    };
    ustream_fd_init(stream, pair.fd[0]);
    pair.close_end(1);
    run_until([] { return told; });
}

} // namespace
