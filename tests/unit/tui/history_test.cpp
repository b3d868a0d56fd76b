// What the end-to-end tests do not see of the port history.
#include "tui/port_history.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tui/widget/widget_list.h"
#include "unit/support/back_buffer.h"
#include "unit/support/connected.h"

namespace {

struct History : testing::Test {
    Connected daemon;
    BackBuffer screen{80, 24};
    WidgetList *list = widget_list_new(24, 80);
    Widget *widget = port_history_new(&zorvad, 0, 3, 80, 21);

    History() { widget_list_add(list, widget); }
    ~History() override { widget_list_free(list); }

    void load(const std::string &reply)
    {
        widget->tick(widget);
        widget->tick(widget);
        EXPECT_TRUE(daemon.expect_request(R"({"cmd":"SCROLLBACK"})"));
        daemon.reply(reply + " ");
        EXPECT_TRUE(run_until([] { return list_empty(&zorvad.commands) != 0; }));
        widget->draw(widget);
    }
};

TEST_F(History, DrawsNothingAboveOrBelowItsRectangle)
{
    load(R"({"scrollback":[{},{},{},{},{},{},{},{},{}]})");
    for (int height = 0; height < 6; height++) {
        for (int cell = 0; cell < 24 * 80; cell++) {
            tb_set_cell(cell % 80, cell / 80, ' ', TB_WHITE, TB_DEFAULT);
        }
        widget->resize(0, 10, 40, 10 + height, widget);
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

} // namespace
