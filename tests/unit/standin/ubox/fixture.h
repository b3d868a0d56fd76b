// What the tests of the event loop and its streams share.
#pragma once

#include "dep/ubox.h"

#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <time.h>

inline int64_t milliseconds_now()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

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
};

inline Pair socket_pair()
{
    Pair pair;
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.fd), 0);
    return pair;
}

// With its read end as ours; or its write end, when turned round.
inline Pair pipe_pair(bool turned_round = false)
{
    Pair pair;
    EXPECT_EQ(pipe2(pair.fd, O_CLOEXEC), 0);
    if (turned_round) {
        std::swap(pair.fd[0], pair.fd[1]);
    }
    return pair;
}

// From the peer.
inline void send_text(const Pair &pair, const std::string &text)
{
    ASSERT_EQ(write(pair.fd[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

// A stream that writes down what it is told. By default it consumes all that it reads.
struct RecordedStream {
    struct Record {
        ustream_fd stream;
        RecordedStream *owner;
    } record{.stream = {}, .owner = this};
    ustream_fd &stream = record.stream;
    std::string received;
    int reads = 0;
    int last_read_count = 0;
    int flushed = 0;
    int states = 0;
    std::function<void()> on_read = [this] { consume_all(); };

    RecordedStream()
    {
        stream.stream.notify_read = [](ustream *s, int count) {
            RecordedStream &self = owner_of(s);
            self.reads++;
            self.last_read_count = count;
            self.on_read();
        };
        stream.stream.notify_write = [](ustream *s, int count) { owner_of(s).flushed += count; };
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

    // Takes all that is buffered.
    void consume_all()
    {
        int len;
        while (char *chunk = ustream_get_read_buf(*this, &len)) {
            received.append(chunk, static_cast<size_t>(len));
            ustream_consume(*this, len);
        }
    }
};

class LoopTest : public testing::Test {
public:
    // Runs the loop until `condition` holds; fails after ten seconds.
    static void run_until(const std::function<bool()> &condition)
    {
        const int64_t deadline = milliseconds_now() + 10'000;
        while (!condition()) {
            ASSERT_LT(milliseconds_now(), deadline) << "waited in vain";
            (void)uloop_run_timeout(20);
        }
    }
    // Runs the loop until nothing is left to do; fails when it finds no rest. A round in which
    // nothing happens lasts as long as it may. A busy machine can stretch others, so it takes
    // several such rounds in a row.
    static void run_until_idle()
    {
        int quiet = 0;
        for (int rounds = 0; quiet < 4 && rounds < 1000; rounds++) {
            const int64_t start = milliseconds_now();
            (void)uloop_run_timeout(10);
            quiet = milliseconds_now() - start >= 10 ? quiet + 1 : 0;
        }
        ASSERT_EQ(quiet, 4) << "the loop finds no rest";
    }

protected:
    void SetUp() override { ASSERT_EQ(uloop_init(), 0); }
};
