// The keyboard while the port takes nothing, and its turns.
#include "tui/input.h"

#include <chrono>
#include <csignal>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "dep/termbox.h"
#include "link/owned.h"
#include "tui/term_widget.h"
#include "tui/widget/widget_list.h"
#include "unit/support/back_buffer.h"
#include "unit/support/connected.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

struct StuckPort : testing::Test {
    Connected link;
    BackBuffer screen{80, 24};
    size_t typed = 0;

    StuckPort()
    {
        widget_list = widget_list_new(24, 80);
        widget_list_add(widget_list, term_widget_new(&zorvad, 0, 0, 80, 23));
        EXPECT_EQ(tui_input_start(), 0);
        fcntl(screen.terminal, F_SETFL, O_NONBLOCK);
        uloop_timeout_cancel(&widget_list->refresh);
    }

    ~StuckPort() override
    {
        tui_input_stop();
        zorvad.on_port_drained = nullptr;
        widget_list_free(widget_list);
        widget_list = nullptr;
    }

    // Until the client does not take any more.
    void type_as_much_as_possible()
    {
        const std::string text(4096, 'x');
        for (int idle = 0; idle < 5;) {
            const ssize_t length = write(screen.terminal, text.data(), text.size());
            typed += length > 0 ? static_cast<size_t>(length) : 0;
            idle = length > 0 || !port_is_stuck(zorvad) ? 0 : idle + 1;
            uloop_run_timeout(10);
        }
    }

    // How often the loop wakes up in a while.
    static int turns_in(milliseconds time)
    {
        int turns = 0;
        for (const auto end = Clock::now() + time; Clock::now() < end; turns++) {
            uloop_run_timeout(50);
        }
        return turns;
    }
};

TEST_F(StuckPort, KeysThatWaitCostNothingHinderNoResizeAndAllArriveInTheEnd)
{
    type_as_much_as_possible();
    EXPECT_GT(typed, static_cast<size_t>(TYPED_LIMIT));
    EXPECT_LT(turns_in(milliseconds(300)), 20);
    const winsize size = {30, 100, 0, 0};
    ioctl(screen.terminal, TIOCSWINSZ, &size);
    raise(SIGWINCH);
    EXPECT_LT(turns_in(milliseconds(300)), 20);
    EXPECT_EQ(widget_list->height, 30);
    EXPECT_EQ(widget_list->width, 100);
    EXPECT_EQ(receive(link.data, typed), std::string(typed, 'x'));
}

TEST_F(StuckPort, KeysAfterTheEndOfTheSessionDoNotKeepTheClientBusy)
{
    connection_quit(zorvad);
    ASSERT_EQ(write(screen.terminal, "late", 4), 4);
    EXPECT_LT(turns_in(milliseconds(300)), 20);
    EXPECT_EQ(zorvad.data_stream.stream.w.data_bytes, 0);
}

TEST_F(StuckPort, KeysThatAreALotOfWorkGiveWay)
{
    static int keys;
    Widget *slow = zalloc<Widget>();
    ASSERT_NE(slow, nullptr);
    slow->kind = LAYOUT_POPUP;
    slow->on_input = [](const char *, int, WidgetList *, Widget *) {
        keys++;
        usleep(2 * TURN_US);
    };
    slow->destroy = [](Widget *) {};
    widget_list_add(widget_list, slow);
    ASSERT_EQ(write(screen.terminal, "12345x", 6), 6);
    while (keys < 5) {
        const int before = keys;
        uloop_run_timeout(50);
        EXPECT_LE(keys, before + 1);
    }
    tui_input_stop();
    (void)turns_in(milliseconds(100));
    EXPECT_EQ(keys, 5) << "nor is one taken after the stop";
}

TEST_F(StuckPort, ATerminalThatGoesAwayEndsTheSession)
{
    type_as_much_as_possible();
    close(screen.terminal);
    EXPECT_TRUE(run_until([] { return zorvad.quit != 0; }));
    screen.terminal = -1;
}

} // namespace
