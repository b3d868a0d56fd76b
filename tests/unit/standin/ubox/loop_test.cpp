#include "fixture.h"

namespace {

std::string log;

// Watches and timers that write down their names, and do something more on request.
struct Named {
    std::string name;
    std::function<void()> then;
    struct Record {
        uloop_fd watch;
        uloop_timeout timer;
        Named *owner;
    } record{};
    uloop_fd &watch = record.watch;
    uloop_timeout &timer = record.timer;
    unsigned last_events = 0;

    Named(
        std::string its_name, std::function<void()> action = [] {})
        : name(std::move(its_name)), then(std::move(action))
    {
        record.owner = this;
        watch.cb = [](uloop_fd *fd, unsigned events) {
            Named *self = container_of(fd, Record, watch)->owner;
            self->last_events = events;
            self->told();
        };
        timer.cb = [](uloop_timeout *t) {
            EXPECT_FALSE(t->pending);
            container_of(t, Record, timer)->owner->told();
        };
    }
    Named(const Named &) = delete;
    ~Named()
    {
        uloop_timeout_cancel(&timer);
        uloop_fd_delete(&watch);
    }
    // `then` may destroy the record, and itself with it.
    void told()
    {
        log += name;
        const std::function<void()> action = then;
        action();
    }
    void watch_end(const Pair &pair, unsigned flags = ULOOP_READ)
    {
        watch.fd = pair.fd[0];
        EXPECT_EQ(uloop_fd_add(&watch, flags), 0);
    }
};

bool nonblocking(int fd)
{
    return fcntl(fd, F_GETFL) & O_NONBLOCK;
}

struct Loop : LoopTest {
    Loop() { log.clear(); }
};

TEST_F(Loop, timers_run_by_time_then_by_age)
{
    Named a("a"), b("b"), c("c"), d("d"), e("e"), far("f");
    uloop_timeout_set(&far.timer, INT_MAX);
    uloop_timeout_set(&d.timer, 30);
    uloop_timeout_set(&c.timer, 10);
    uloop_timeout_set(&a.timer, -5);
    uloop_timeout_set(&b.timer, 10);
    uloop_timeout_set(&e.timer, 5);
    EXPECT_EQ(uloop_timeout_cancel(&e.timer), 0);
    EXPECT_EQ(uloop_timeout_cancel(&e.timer), -1);
    uloop_timeout_set(&e.timer, 5);
    uloop_timeout_set(&e.timer, 100'000);
    const int64_t start = milliseconds_now();
    run_until([&] { return log.size() == 4; });
    EXPECT_EQ(log, "acbd");
    EXPECT_GE(milliseconds_now() - start, 28);
}

TEST_F(Loop, round_delivers_one_event_after_due_timers)
{
    Pair pairs[2] = {socket_pair(), socket_pair()};
    Named timer("t");
    const auto arm = [&] { uloop_timeout_set(&timer.timer, 0); };
    Named watches[2] = {Named("w", arm), Named("w", arm)};
    // Edge-triggered, so what the first run has fetched must be kept for the second.
    for (int i = 0; i < 2; i++) {
        watches[i].watch_end(pairs[i], ULOOP_READ | ULOOP_EDGE_TRIGGER);
        send_text(pairs[i], "x");
    }
    EXPECT_EQ(uloop_run_timeout(1000), 0);
    EXPECT_EQ(log, "w");
    EXPECT_EQ(uloop_run_timeout(1000), 0);
    EXPECT_EQ(log, "wtw");
    run_until_idle();
    EXPECT_EQ(log, "wtwt");
}

TEST_F(Loop, cancellation_before_a_run_is_forgotten)
{
    Named timer("t", [] { uloop_cancelled = true; });
    uloop_cancelled = true;
    uloop_timeout_set(&timer.timer, 1);
    EXPECT_EQ(uloop_run_timeout(-1), 0);
    EXPECT_EQ(log, "t");
    EXPECT_TRUE(uloop_cancelled);
    EXPECT_EQ(uloop_run_timeout(0), 0);
    EXPECT_FALSE(uloop_cancelled);
}

TEST_F(Loop, callback_may_remove_and_free_watches)
{
    Pair pairs[3] = {socket_pair(), socket_pair(), socket_pair()};
    Named *watches[3];
    for (Named *&watch : watches) {
        watch = new Named("w", [&] {
            for (Named *each : watches) {
                EXPECT_EQ(uloop_fd_delete(&each->watch), 0);
                EXPECT_FALSE(each->watch.registered);
                EXPECT_EQ(uloop_fd_delete(&each->watch), 0);
                delete each;
            }
        });
    }
    for (int i = 0; i < 3; i++) {
        watches[i]->watch_end(pairs[i]);
        send_text(pairs[i], "x");
    }
    run_until_idle();
    EXPECT_EQ(log, "w");
}

TEST_F(Loop, hang_up_removes_the_watch_unless_errors_are_asked_for)
{
    constexpr unsigned STAYING = ULOOP_ERROR_CB | ULOOP_EDGE_TRIGGER;
    for (const unsigned more : {0U, STAYING}) {
        log.clear();
        Pair pair = pipe_pair();
        Named watch("w");
        watch.watch_end(pair, ULOOP_READ | more);
        pair.close_end(1);
        run_until_idle();
        EXPECT_EQ(log, "w");
        EXPECT_EQ(watch.last_events, 0u);
        EXPECT_TRUE(watch.watch.error);
        EXPECT_EQ(watch.watch.registered, more != 0);
        uloop_fd_delete(&watch.watch);
    }
}

TEST_F(Loop, o_nonblock_is_set_by_a_new_watch)
{
    Pair pairs[2] = {socket_pair(), socket_pair()};
    Named plain("p"), blocking("b");
    plain.watch_end(pairs[0]);
    blocking.watch_end(pairs[1], ULOOP_READ | ULOOP_BLOCKING);
    EXPECT_TRUE(nonblocking(pairs[0].fd[0]));
    EXPECT_FALSE(nonblocking(pairs[1].fd[0]));
    // A changed watch leaves the descriptor alone, a removed one does not clear the flag.
    blocking.watch_end(pairs[1], ULOOP_READ);
    EXPECT_FALSE(nonblocking(pairs[1].fd[0]));
    uloop_fd_delete(&plain.watch);
    EXPECT_TRUE(nonblocking(pairs[0].fd[0]));
}

} // namespace
