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

TEST(Signals, are_taken_from_the_default_action_only)
{
    const std::pair<int, bool> rows[] = {
        {SIGINT, true}, {SIGTERM, true}, {SIGPIPE, true}, {SIGCHLD, false}, {SIGHUP, false}};
    for (const auto &[signo, taken] : rows) {
        SCOPED_TRACE(signo);
        expect_in_child([signo = signo, taken = taken] {
            uloop_handle_sigchld = false;
            for (auto action : {SIG_IGN, own_handler, SIG_DFL}) {
                signal(signo, action);
                EXPECT_EQ(uloop_init(), 0);
                EXPECT_EQ(action_of(signo) != action, taken && action == SIG_DFL);
            }
            if (signo == SIGPIPE) {
                EXPECT_EQ(action_of(SIGPIPE), SIG_IGN);
            }
        });
    }
}

} // namespace
