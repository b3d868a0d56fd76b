// What the end-to-end tests do not see of what widgets draw.
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "tui/popup.h"
#include "tui/port_history.h"
#include "tui/statusbar.h"
#include "tui/widget/layout.h"
#include "tui/widget/widget_list.h"
#include "unit/support/back_buffer.h"
#include "unit/support/connected.h"

namespace {

struct Drawing : testing::Test {
    Connected daemon;
    BackBuffer screen{100, 24};
    WidgetList *list = widget_list_new(24, 100);

    ~Drawing() override { widget_list_free(list); }

    Widget *add(Widget *widget)
    {
        widget_list_add(list, widget);
        return widget;
    }
    void open(const char *text, Rectangle place)
    {
        Widget *popup = add(popup_new(text, place.x0, place.y0, place.x1, place.y1, nullptr));
        popup->draw(popup);
    }
    // To the one request of two ticks.
    void answer(Widget *widget, const std::string &request, const std::string &reply)
    {
        widget->tick(widget);
        widget->tick(widget);
        EXPECT_TRUE(daemon.expect_request("{\"cmd\":\"" + request + "\"}"));
        EXPECT_EQ(zorvad.commands.next, zorvad.commands.prev);
        daemon.reply(reply + " ");
        EXPECT_TRUE(run_until([] { return list_empty(&zorvad.commands) != 0; }));
        widget->draw(widget);
    }
};

std::string repeat(int times, std::string_view text)
{
    std::string result;
    for (int i = 0; i < times; i++) {
        result += text;
    }
    return result;
}

// 32 bits of seconds, whatever the session's length and the clock.
TEST_F(Drawing, TheStatusBarCountsOnAfterTheClockWasSetAndForMoreThanALifetime)
{
    const struct {
        int64_t ago;
        const char *time;
    } rows[] = {{INT32_MAX, "Time: 2147483647s |"},
                {int64_t{INT32_MAX} + 1, "Time: -2147483648s |"},
                {(int64_t{1} << 32) + 7, "Time: 7s |"},
                {-86400, "Time: -86400s |"},
                {INT64_MAX / 2, "Time: -1s |"}};
    Widget *bar = add(statusbar_new(&zorvad, 0, 23, 100, 24));
    answer(bar, "PORT_INFO", "{}");
    for (const auto &row : rows) {
        gettimeofday(&zorvad.connected_at, nullptr);
        zorvad.connected_at.tv_sec -= row.ago;
        bar->draw(bar);
        EXPECT_NE(std::string::npos, screen.row(23).find(row.time)) << screen.row(23);
    }
}

TEST_F(Drawing, TheStatusBarIsCutByColumnsAndLeavesTheLastOneBlank)
{
    const struct {
        int times;
        const char *character, *cells;
        int shown;
    } rows[] = {{93, "x", "x", 92}, {93, "ж", "#", 92}, {47, "中", "# ", 46}, {93, "ё̣̂", "#", 92}};
    Widget *bar = add(statusbar_new(&zorvad, 0, 23, 100, 24));
    for (const auto &row : rows) {
        answer(bar, "PORT_INFO", R"({"label":")" + repeat(row.times, row.character) + R"("})");
        EXPECT_EQ("Label: " + repeat(row.shown, row.cells), screen.text(0, 99, 23));
        EXPECT_EQ(" ", screen.text(99, 100, 23));
    }
}

TEST_F(Drawing, TheHistoryLeavesAloneWhatIsAboveAndBelow)
{
    Widget *history = add(port_history_new(&zorvad, 0, 3, 80, 21));
    answer(history, "SCROLLBACK", R"({"scrollback":[{},{},{},{},{},{},{},{},{}]})");
    for (int height = 0; height < 6; height++) {
        for (int cell = 0; cell < 24 * 100; cell++) {
            tb_set_cell(cell % 100, cell / 100, ' ', TB_WHITE, TB_DEFAULT);
        }
        history->resize(0, 10, 40, 10 + height, history);
        EXPECT_EQ("", screen.row(9)) << height;
        EXPECT_EQ("", screen.row(10 + height)) << height;
    }
}

TEST(Timestamp, KeepsItsFormOrIsANumber)
{
    const struct {
        int64_t timestamp;
        const char *text;
        const char *zone = "UTC";
    } rows[] = {
        {0, "[1970-01-01T00:00:00.000+0000]"},
        {1709645229042, "[2024-03-05T07:57:09.042-0530]", "XYZ5:30"},
        {1709644029999, "[2024-03-05T13:07:09.999+0000]"},
        {253402300799999, "[9999-12-31T23:59:59.999+0000]"},
        {253402300800000, "[253402300800000]"},
        {-1, "[-1]"},
        {INT64_MAX, "[9223372036854775807]"},
        {INT64_MIN, "[-9223372036854775808]"},
    };
    for (const auto &row : rows) {
        setenv("TZ", row.zone, 1);
        tzset();
        PortHistoryLine line{};
        line.timestamp = row.timestamp;
        char buffer[TIMESTAMP_LENGTH + 1];
        EXPECT_STREQ(row.text, format_timestamp(&line, buffer, sizeof buffer));
    }
}

TEST_F(Drawing, APopupEndsItsTextAtTheRightAndTheBottomBorder)
{
    open("12345678\nnever\n", {0, 0, 10, 6}); // fills the inner width exactly
    EXPECT_EQ("*12345678*", screen.row(1));
    EXPECT_EQ("*        *", screen.row(2));
    open("a\nb\nc\nd", {20, 0, 30, 5});
    EXPECT_EQ("*c       *", screen.text(20, 30, 3));
    EXPECT_EQ("**********", screen.text(20, 30, 4));
    open("1234567\tnever", {40, 0, 50, 4}); // a tab that goes past the border
    EXPECT_EQ("*1234567 *", screen.text(40, 50, 1));
}

TEST_F(Drawing, APopupDrawsNothingWhereItHasNoRoom)
{
    for (const Rectangle &place :
         {Rectangle{5, 5, 5, 5}, Rectangle{5, 5, 3, 9}, Rectangle{0, 0, 0, -1}}) {
        open("text", place);
    }
    for (int y = 0; y < 24; y++) {
        EXPECT_EQ("", screen.row(y));
    }
    open("text", {0, 0, 2, 2});
    EXPECT_EQ("**", screen.row(0));
    EXPECT_EQ("", screen.row(2));
}

TEST_F(Drawing, APopupIsNotHiddenByAWideCharacterBesideIt)
{
    tb_set_cell(9, 3, 0x4e2d, TB_WHITE, TB_DEFAULT);
    tb_set_cell(9, 4, 0xe9, TB_WHITE, TB_DEFAULT);
    open("x", {10, 2, 20, 7});
    EXPECT_EQ(uint32_t{' '}, screen.cell(9, 3).ch);
    EXPECT_EQ(0xe9U, screen.cell(9, 4).ch);
}

} // namespace
