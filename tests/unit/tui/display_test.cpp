// The terminal under termbox2: its end and its next start.
#include "tui/display.h"

#include <chrono>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include "dep/termbox.h"
#include "dep/ubox.h"
#include "unit/support/back_buffer.h"
#include "unit/support/connected.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::string shown_on(int terminal)
{
    std::string shown;
    char bytes[4096];
    pollfd readable = {terminal, POLLIN, 0};
    while (poll(&readable, 1, 0) > 0 && readable.revents & POLLIN) {
        const ssize_t length = read(terminal, bytes, sizeof bytes);
        if (length <= 0) {
            break;
        }
        shown.append(bytes, static_cast<size_t>(length));
    }
    return shown;
}

struct DisplayTest : testing::Test {
    BackBuffer screen{80, 24};
    std::string path = ptsname(screen.terminal);
    int user_side = open(path.c_str(), O_RDWR | O_NOCTTY);

    ~DisplayTest() override { close(user_side); }

    void fill()
    {
        for (int y = 0; y < 24; y++) {
            for (int x = 0; x < 80; x++) {
                tb_set_cell(x, y, turn % 2 ? 'a' : 'b', static_cast<uintattr_t>(1 + x % 7), 0);
            }
        }
        turn++;
        display_present();
        (void)uloop_run_timeout(0);
    }
    int turn = 0;

    // The pty takes no more, also not after the kernel has moved what it holds.
    void stall()
    {
        fcntl(user_side, F_SETFL, O_NONBLOCK);
        pollfd room = {user_side, POLLOUT, 0};
        const std::string bytes(4096, 'x');
        while (poll(&room, 1, 50) > 0) {
            while (write(user_side, bytes.data(), bytes.size()) > 0) {
            }
        }
    }
};

TEST_F(DisplayTest, TheModesOfTheKeysLastBeyondAStop)
{
    const auto modes = [this] {
        std::string shown, on;
        for (int i = 0; i < 20; i++) { // a picture may take several
            (void)uloop_run_timeout(1);
            shown += shown_on(screen.terminal);
        }
        for (const auto &[set, reset] : {std::pair{"\033[?1h", "\033[?1l"},
                                         {"\033=", "\033>"},
                                         {"\033[?2004h", "\033[?2004l"}}) {
            const auto last = static_cast<ssize_t>(shown.rfind(set)); // npos is before all
            const auto off = static_cast<ssize_t>(shown.rfind(reset));
            on += last > off ? '1' : off > last ? '0' : '-';
        }
        return on;
    };
    EXPECT_EQ(modes(), "00-"); // not as termbox2 has them
    display_set_modes({true, false, true});
    fill();
    EXPECT_EQ(modes(), "1-1");
    display_set_modes({true, true, true});
    display_set_modes({false, true, true});
    fill();
    EXPECT_EQ(modes(), "01-");
    fill();
    EXPECT_EQ(modes(), "---");
    display_stop();
    EXPECT_EQ(modes(), "000");
    ASSERT_EQ(display_start(path.c_str()), 0);
    EXPECT_EQ(modes(), "00-");
    fill();
    EXPECT_EQ(modes(), "-11");
    display_set_modes({});
    fill();
}

TEST_F(DisplayTest, TheCursorIsBackAfterTheTerminalWasGivenAway)
{
    const int next = dup(user_side);
    close(next);
    display_set_cursor(6, 2, true);
    display_stop();
    ASSERT_EQ(display_start(path.c_str()), TB_OK);
    EXPECT_EQ(dup(user_side), next) << "it was left open";
    (void)shown_on(screen.terminal);
    display_present();
    (void)uloop_run_timeout(0);
    EXPECT_TRUE(shown_on(screen.terminal).ends_with("\x1b[?25h\x1b[3;7H"));
}

TEST_F(DisplayTest, APictureTakesFewWrites)
{
    const auto writes = [] {
        std::ifstream counters("/proc/self/io");
        long count = 0;
        for (std::string name; name != "syscw:" && counters >> name >> count;) {
        }
        return count;
    };
    (void)shown_on(screen.terminal);
    const long before = writes();
    fill();
    EXPECT_LT(writes() - before, 20);
    EXPECT_GT(shown_on(screen.terminal).size(), 1000U);
}

// No timer runs by then: that the terminal takes bytes is what sends it.
TEST_F(DisplayTest, APictureThatHadToWaitIsSentOnceTheTerminalTakesBytes)
{
    stall();
    fill();
    fill();
    std::string shown;
    EXPECT_TRUE(run_until([&] {
        shown += shown_on(screen.terminal);
        return shown.find('a') != std::string::npos;
    }));
    EXPECT_LT(shown.find('b'), shown.find('a'));
}

struct Timer {
    uloop_timeout timeout;
    bool fired;
};

TEST_F(DisplayTest, TheEndDoesNotRunTheLoopWhileItWaitsForAStalledTerminal)
{
    stall();
    fill();
    Timer timer = {};
    timer.timeout.cb = [](uloop_timeout *due) { container_of(due, Timer, timeout)->fired = true; };
    uloop_timeout_set(&timer.timeout, 0);
    const auto begin = Clock::now();
    display_stop();
    const auto took = Clock::now() - begin;
    EXPECT_GE(took, milliseconds(900));
    EXPECT_LT(took, milliseconds(1900));
    EXPECT_FALSE(timer.fired);
    uloop_timeout_cancel(&timer.timeout);
    EXPECT_TRUE(shown_on(screen.terminal).ends_with("\x1b[?1000l"));
}

} // namespace
