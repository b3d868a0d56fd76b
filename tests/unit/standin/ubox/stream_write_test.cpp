#include "fixture.h"

namespace {

std::string pattern(size_t len)
{
    std::string text(len, ' ');
    for (size_t i = 0; i < len; i++) {
        text[i] = static_cast<char>('!' + i % 89);
    }
    return text;
}

int write_text(ustream *s, const std::string &text)
{
    return ustream_write(s, text.data(), static_cast<int>(text.size()), false);
}

class StreamWrite : public LoopTest {
protected:
    Pair pair = socket_pair();
    RecordedStream stream;
    std::string arrived;

    // Takes what the peer can have now.
    void drain()
    {
        char bytes[5000];
        ssize_t len;
        while ((len = recv(pair.fd[1], bytes, sizeof bytes, MSG_DONTWAIT)) > 0) {
            arrived.append(bytes, static_cast<size_t>(len));
        }
    }
    void arrive(const std::string &text)
    {
        run_until([&] {
            drain();
            return arrived.size() >= text.size();
        });
        EXPECT_TRUE(arrived == text);
    }
};

TEST_F(StreamWrite, queues_and_flushes_in_order)
{
    ustream_fd_init(&stream.stream, pair.fd[0]);
    ustream_set_read_blocked(stream, true);
    const std::string text = pattern(2'000'000);
    EXPECT_EQ(write_text(stream, text), 2'000'000);
    const int queued = stream->w.data_bytes;
    EXPECT_GT(queued, 0);
    EXPECT_EQ(stream.stream.fd.flags & ULOOP_EVENT_MASK, ULOOP_WRITE);
    run_until_idle();
    EXPECT_EQ(stream.flushed, 0);
    drain();
    const std::string behind(3000, 'b');
    EXPECT_EQ(ustream_printf(stream, "%s %d", behind.c_str(), 42), 3003);

    arrive(text + behind + " 42");
    EXPECT_EQ(stream.flushed, queued + 3003);
    EXPECT_EQ(stream->w.data_bytes, 0);
    EXPECT_FALSE(stream.stream.fd.registered);
}

TEST_F(StreamWrite, failure_is_told_once_and_drops_the_queue)
{
    for (bool queue_first : {false, true}) {
        Pair pipe = pipe_pair(true);
        RecordedStream writer;
        ustream_fd_init(&writer.stream, pipe.fd[0]);
        if (queue_first) {
            EXPECT_EQ(write_text(writer, pattern(1'000'000)), 1'000'000);
        }
        pipe.close_end(1);
        if (!queue_first) {
            EXPECT_EQ(write_text(writer, "x"), -1);
        }
        EXPECT_EQ(writer.states, 0);
        run_until([&] { return writer.states == 1; });
        EXPECT_TRUE(writer->write_error);
        EXPECT_FALSE(writer->eof);
        EXPECT_EQ(write_text(writer, "x"), 0);
        EXPECT_EQ(ustream_printf(writer, "x"), 0);
        EXPECT_EQ(writer->w.data_bytes, 0);
        run_until_idle();
        EXPECT_EQ(writer.states, 1);
        EXPECT_EQ(writer.flushed, 0);
    }
}

} // namespace
