// What the end-to-end tests do not see of the status bar.
#include "tui/statusbar.h"

#include <gtest/gtest.h>

#include <string>

#include "tui/widget/widget_list.h"
#include "unit/support/back_buffer.h"
#include "unit/support/connected.h"

namespace {

struct Statusbar : testing::Test {
    Connected daemon;
    BackBuffer screen{100, 10};
    WidgetList *list = widget_list_new(10, 100);
    Widget *bar = statusbar_new(&zorvad, 0, 9, 100, 10);

    Statusbar() { widget_list_add(list, bar); }
    ~Statusbar() override { widget_list_free(list); }

    // To the one request of two ticks.
    void answer(const std::string &reply)
    {
        bar->tick(bar);
        bar->tick(bar);
        EXPECT_TRUE(daemon.expect_request(R"({"cmd":"PORT_INFO"})"));
        EXPECT_EQ(zorvad.commands.next, zorvad.commands.prev);
        daemon.reply(reply + " ");
        EXPECT_TRUE(run_until([] { return list_empty(&zorvad.commands) != 0; }));
    }
};

// 32 bits of seconds, whatever the session's length and the clock.
TEST_F(Statusbar, CountsOnAfterTheClockWasSetAndForMoreThanALifetime)
{
    const struct {
        int64_t ago;
        const char *time;
    } rows[] = {{INT32_MAX, "Time: 2147483647s |"},
                {int64_t{INT32_MAX} + 1, "Time: -2147483648s |"},
                {(int64_t{1} << 32) + 7, "Time: 7s |"},
                {-86400, "Time: -86400s |"},
                {INT64_MAX / 2, "Time: -1s |"}};
    answer("{}");
    for (const auto &row : rows) {
        gettimeofday(&zorvad.connected_at, nullptr);
        zorvad.connected_at.tv_sec -= row.ago;
        bar->draw(bar);
        EXPECT_NE(std::string::npos, screen.row(9).find(row.time)) << screen.row(9);
    }
}

std::string repeat(int times, std::string_view text)
{
    std::string result;
    for (int i = 0; i < times; i++) {
        result += text;
    }
    return result;
}

TEST_F(Statusbar, IsCutByColumnsAndLeavesTheLastOneBlank)
{
    const struct {
        int times;
        const char *character, *cells;
        int shown;
    } rows[] = {{93, "x", "x", 92}, {93, "ж", "#", 92}, {47, "中", "# ", 46}, {93, "ё̣̂", "#", 92}};
    for (const auto &row : rows) {
        answer(R"({"label":")" + repeat(row.times, row.character) + R"("})");
        bar->draw(bar);
        EXPECT_EQ("Label: " + repeat(row.shown, row.cells), screen.text(0, 99, 9));
        EXPECT_EQ(" ", screen.text(99, 100, 9));
    }
}

} // namespace
