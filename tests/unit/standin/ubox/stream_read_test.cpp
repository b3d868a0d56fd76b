#include "fixture.h"

namespace {

class StreamRead : public LoopTest {
protected:
    Pair pair = socket_pair();
    RecordedStream stream;

    void send(const std::string &text) { send_text(pair, text); }
    std::string buffered()
    {
        int len;
        const char *data = ustream_get_read_buf(stream, &len);
        return {data ? data : "", static_cast<size_t>(len)};
    }
};

TEST_F(StreamRead, stops_when_full_and_resumes_after_consuming)
{
    stream.on_read = [] {};
    stream->string_data = true;
    stream->r.buffer_len = 10;
    ustream_fd_init(&stream.stream, pair.fd[0]);
    send("0123456789abcdefgh");
    run_until_idle();
    EXPECT_EQ(stream.reads, 1);
    EXPECT_NE(stream->read_blocked, 0);
    EXPECT_FALSE(stream.stream.fd.registered);
    EXPECT_EQ(buffered(), "0123456789");

    ustream_consume(stream, 3);
    EXPECT_EQ(stream->read_blocked, 0);
    run_until([&] { return stream.reads == 2; });
    EXPECT_STREQ(ustream_get_read_buf(stream, nullptr), "3456789abc");
    ustream_consume(stream, 10);
    run_until([&] { return stream.reads == 3; });
    EXPECT_EQ(buffered(), "defgh");

    // What moves to the front of the buffer stays a text, though nothing more is read.
    send("ijklm");
    run_until([&] { return stream.reads == 4; });
    ustream_consume(stream, 8);
    EXPECT_FALSE(ustream_poll(stream));
    EXPECT_STREQ(ustream_get_read_buf(stream, nullptr), "lm");
}

// From outside, and from the callback that has just taken a chunk.
TEST_F(StreamRead, is_blocked_and_resumed_by_request)
{
    stream->r.buffer_len = 4;
    ustream_fd_init(&stream.stream, pair.fd[0]);
    ustream_set_read_blocked(stream, true);
    EXPECT_NE(stream->read_blocked, 0);
    EXPECT_FALSE(stream.stream.fd.registered);
    send("aaaabbbbcccc");
    run_until_idle();
    EXPECT_FALSE(ustream_poll(stream));
    EXPECT_EQ(stream.reads, 0);

    stream.on_read = [&] {
        stream.consume_all();
        ustream_set_read_blocked(stream, true);
    };
    for (const char *sum : {"aaaa", "aaaabbbb", "aaaabbbbcccc"}) {
        ustream_set_read_blocked(stream, false);
        run_until_idle();
        EXPECT_EQ(stream.received, sum);
    }
    stream.on_read = [&] {
        stream.consume_all();
        ustream_set_read_blocked(stream, true);
        ustream_set_read_blocked(stream, false);
    };
    ustream_set_read_blocked(stream, false);
    send("ddddeeee");
    run_until([&] { return stream.received.size() == 20; });
}

TEST_F(StreamRead, poll_within_the_callback_does_not_nest)
{
    stream->r.buffer_len = 4;
    int depth = 0;
    stream.on_read = [&] {
        EXPECT_EQ(++depth, 1);
        stream.consume_all();
        (void)ustream_poll(stream);
        depth--;
    };
    ustream_fd_init(&stream.stream, pair.fd[0]);
    send("aaaabbbbcc");
    run_until([&] { return stream.received == "aaaabbbbcc"; });
}

TEST_F(StreamRead, callback_may_free_another_stream)
{
    Pair other_pair = socket_pair();
    RecordedStream other;
    int told = 0;
    stream.on_read = [&] {
        told++;
        ustream_free(other);
    };
    other.on_read = [&] {
        told++;
        ustream_free(stream);
    };
    ustream_fd_init(&stream.stream, pair.fd[0]);
    ustream_fd_init(&other.stream, other_pair.fd[0]);
    send("x");
    send_text(other_pair, "x");
    run_until_idle();
    EXPECT_EQ(told, 1);
}

} // namespace
