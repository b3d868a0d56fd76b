#include "fixture.h"

#include <sys/wait.h>

namespace {

// For what changes the process as a whole: expects that all holds in a child.
void expect_in_child(const std::function<void()> &body)
{
    const pid_t pid = fork();
    if (pid == 0) {
        body();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
}

void own_handler(int) {}

void (*action_of(int signo))(int)
{
    struct sigaction action;
    EXPECT_EQ(sigaction(signo, nullptr, &action), 0);
    return action.sa_handler;
}

struct Rule {
    int signo;
    bool handle_sigchld;
    bool taken; // from the default action
};

TEST(Signals, are_taken_from_the_default_action_only)
{
    const Rule rules[] = {
        {SIGINT, true, true},    {SIGTERM, true, true}, {SIGCHLD, true, true},
        {SIGCHLD, false, false}, {SIGPIPE, true, true}, {SIGHUP, true, false},
    };
    for (const Rule &rule : rules) {
        SCOPED_TRACE(rule.signo);
        expect_in_child([&] {
            uloop_handle_sigchld = rule.handle_sigchld;
            signal(rule.signo, SIG_DFL);
            EXPECT_EQ(uloop_init(), 0);
            EXPECT_EQ(action_of(rule.signo) != SIG_DFL, rule.taken);
            if (rule.signo == SIGPIPE) {
                EXPECT_EQ(action_of(SIGPIPE), SIG_IGN);
            }
            uloop_done();
            EXPECT_EQ(action_of(rule.signo), SIG_DFL);

            for (auto action : {SIG_IGN, own_handler}) {
                signal(rule.signo, action);
                EXPECT_EQ(uloop_init(), 0);
                EXPECT_EQ(action_of(rule.signo), action);
                uloop_done();
                EXPECT_EQ(action_of(rule.signo), action);
            }
        });
    }
}

TEST(Signals, ended_children_are_reaped_on_request)
{
    expect_in_child([] {
        EXPECT_EQ(uloop_init(), 0);
        const pid_t pid = fork();
        if (pid == 0) {
            _exit(0);
        }
        siginfo_t info;
        const int64_t deadline = milliseconds_now() + 10'000;
        while (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT | WNOHANG) == 0 &&
               milliseconds_now() < deadline) {
            uloop_run_timeout(10);
        }
        EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), -1);
        EXPECT_EQ(errno, ECHILD);
    });
}

} // namespace
