// What the client does about its signals, with a front end of the test's own.
#include "main/signals.h"

#include <gtest/gtest.h>

#include <csignal>

#include "front/front_end.h"
#include "link/connection.h"
#include "unit/support/connected.h"

namespace {

int looks;
int resumed;

} // namespace

// A shell that saw the client stop takes the terminal, though somebody has continued the client
// meanwhile; it will bring it back.
TEST(Signals, TheTerminalMayChangeHandsWhileItIsTakenBack)
{
    FrontEnd fake = {};
    fake.in_background = [] { return looks++ > 0; };
    fake.resume = [] { resumed++; };
    front_end = &fake;
    Connected daemon;
    signals_prepare();
    ASSERT_EQ(0, signals_watch());
    raise(SIGCONT);
    EXPECT_TRUE(run_until([] { return resumed > 0 || zorvad.quit; }));
    EXPECT_EQ(1, resumed);
    EXPECT_EQ(0, zorvad.quit);
}
