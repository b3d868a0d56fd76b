#include "terminal.h"

#include <cerrno>
#include <csignal>

#include <unistd.h>

namespace {

constexpr char MOUSE_OFF[] = "\033[?1006l\033[?1015l\033[?1002l\033[?1000l";

TEST_F(TermboxTest, TakesTheTerminalOverAndGivesItBackAsItWas)
{
    struct Row {
        const char *term;
        std::string init, shutdown;
    } const rows[] = {
        {"xterm-256color", "\033[?1049h\033[22;0;0t\033[?1h\033=\033[?25l\033(B\033[m\033[H\033[2J",
         "\033[?12l\033[?25h\033(B\033[m\033[H\033[2J\033[?1049l\033[23;0;0t\033[?1l\033>"},
        {"linux", "\033[?25l\033[?1c\033[m\017\033[H\033[J",
         "\033[?25h\033[?0c\033[m\017\033[H\033[J"},
        {"dumb", "", ""},
        {"screen.no-xterm", "\033[?1049h\033[?1h\033=\033[?25l\033[m\017\033[H\033[J",
         "\033[34h\033[?25h\033[m\017\033[H\033[J\033[?1049l\033[?1l\033>"},
    };
    // One after the other in one process: nothing of the last terminal stays.
    for (const Row &row : rows) {
        SCOPED_TRACE(row.term);
        setenv("TERM", row.term, 1);
        ASSERT_EQ(start(), TB_OK);
        EXPECT_EQ(start(), TB_ERR_INIT_ALREADY);
        EXPECT_EQ(take_output(), row.init);
        EXPECT_FALSE(settings_are_as_found());
        EXPECT_EQ(tb_shutdown(), TB_OK);
        EXPECT_EQ(take_output(), row.shutdown + MOUSE_OFF);
        EXPECT_TRUE(settings_are_as_found());
        struct sigaction action = {};
        sigaction(SIGWINCH, nullptr, &action);
        EXPECT_EQ(action.sa_handler, SIG_DFL);
    }
}

TEST_F(TermboxTest, GivesTheTerminalBackWhenItTakesNoOutput)
{
    interposed.script = {-EIO};
    EXPECT_EQ(start(), TB_ERR);
    EXPECT_TRUE(settings_are_as_found());
}

} // namespace
