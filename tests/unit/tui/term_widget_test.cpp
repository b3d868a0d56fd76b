#include "tui/term_widget.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "tui/popup.h"
#include "tui/scrollback.h"
#include "tui/widget/widget_list.h"
#include "unit/support/back_buffer.h"
#include "unit/support/connected.h"

namespace {

struct TermWidget : testing::Test {
    Connected daemon;
    BackBuffer screen{80, 24};
    WidgetList *list = widget_list_new(24, 80);
    Widget *terminal = term_widget_new(&zorvad, 0, 0, 80, 23);
    TermContext *context = static_cast<TermContext *>(terminal->priv);

    TermWidget() { widget_list_add(list, terminal); }
    ~TermWidget() override { widget_list_free(list); }

    // Shown at once.
    void feed(const std::string &bytes)
    {
        uloop_timeout_cancel(&list->pause);
        widget_list_feed(bytes.data(), static_cast<int>(bytes.size()), list);
    }
};

// Each of these sequences goes over every cell, so a large screen gets few of them at a time.
TEST_F(TermWidget, TakesSmallerPiecesOnALargerScreen)
{
    static int32_t longest, total;
    zorvad.output_sink = [](const char *, int32_t length) {
        longest = std::max(longest, length);
        total += length;
    };
    std::string flood;
    while (flood.size() < 12000) {
        flood += "\033#8";
    }
    int32_t limit = 16384;
    for (const int size : {23, 100, 400}) {
        longest = total = 0;
        terminal->resize(0, 0, 2 * size, size, terminal);
        send_all(daemon.data, flood);
        EXPECT_TRUE(run_until([] { return total == 12000; }));
        EXPECT_LE(longest, limit);
        limit = longest / 4;
    }
    EXPECT_LE(longest, 18);
}

TEST_F(TermWidget, ShowsACursorThatMovedWhileItWasHidden)
{
    const struct {
        const char *bytes;
        bool shown;
    } rows[] = {{"\033[?25l", false}, {"\033[?25h", false}, // until it moves
                {"x", true},          {"\033[?25l\033[3;4H", false}, {"\033[?25l", false},
                {"\033[?25h", true},  {"\033[?25h", true},           {"\033[?25l\033[?25h", false},
                {"\033[H", true}};
    for (const auto &row : rows) {
        feed(row.bytes);
        EXPECT_EQ(row.shown, context->cursor_shown) << row.bytes + 1;
    }
}

TEST_F(TermWidget, ShowsNewerEmojiAsTheyAre)
{
    feed("\U0001f7e2|\U00030000|\U0003f7e2|");
    const uint32_t shown[] = {0x1f7e2, ' ', '|', 0x30000, ' ', '|', 0x3fffd, ' ', '|'};
    for (int x = 0; x < 9; x++) {
        EXPECT_EQ(shown[x], screen.cell(x, 0).ch) << x;
    }
}

// Rows that moved are copied, and come out as if they had been painted.
TEST_F(TermWidget, PaintsWhatMovedAsAWholePaintDoes)
{
    widget_list = list;
    std::string often = "\033[3H";
    while (often.size() < std::size_t{2} * 80 * 24) {
        often += "\rz";
    }
    const std::string pieces[] = {"\r\n\r\nab",
                                  "\033[2S",
                                  "\033[T",
                                  "\033[3L",
                                  "\033[M",
                                  "\0338\033M",
                                  "\033[5;9r",
                                  "\033[r",
                                  "\033[9;3Hx\u4e2d",
                                  "\033[2J",
                                  "\033[3@",
                                  "\033[2P",
                                  "\033[1;4mfg\033[m",
                                  "\033[1;4r\033[4H\n\033[9;15r\033[9H\033M\033[r",
                                  often + "\033[7H"};
    const auto shown = [this] {
        std::string cells;
        for (int i = 0; i < 80 * 24; i++) {
            const tb_cell cell = screen.cell(i % 80, i / 80);
            cells += std::to_string(cell.ch) + "/" + std::to_string(cell.fg) + " ";
        }
        return cells;
    };
    for (unsigned int seed = 0; seed < 100; seed++) {
        std::mt19937 random(seed);
        std::string bytes = "\033[" + std::to_string(1 + random() % 23) + ";2H";
        for (int i = 0; i < 9; i++) {
            bytes += pieces[random() % std::size(pieces)] + std::to_string(random() % 100);
            if (random() % 3 == 0) {
                widget_list_feed(bytes.data(), static_cast<int>(bytes.size()), list);
                bytes.clear();
            }
            if (random() % 20 == 0) {
                widget_list_add(list, popup_new("text", 20, 6, 60, 18, nullptr));
            } else if (list->widgets.next != &terminal->list) {
                widget_list_input("k", 1, list);
            }
        }
        while (list->widgets.next != &terminal->list) {
            widget_list_input("k", 1, list);
        }
        feed(bytes + "x");
        const std::string painted = shown();
        terminal->on_damage(0, 0, 80, 23, terminal);
        ASSERT_EQ(painted == shown(), true) << seed;
    }
    widget_list = nullptr;
}

TEST_F(TermWidget, KeepsAThousandLines)
{
    for (int line = 0; line < TERM_SCROLLBACK_MAX + 100; line++) {
        feed(std::to_string(line) + "\r\n");
    }
    EXPECT_EQ(TERM_SCROLLBACK_MAX, context->scrollback_count);
    const ScrollbackLine *newest = list_first_entry(&context->scrollback, ScrollbackLine, list);
    EXPECT_EQ(80, newest->cols);
    EXPECT_EQ(uint32_t{'1'}, newest->cells[0].chars[0]);
    terminal->resize(0, 0, 70, 23, terminal); // lines of another width take the place of old ones
    feed("\r\n\r\n");
    EXPECT_EQ(TERM_SCROLLBACK_MAX, context->scrollback_count);
    terminal->resize(0, 0, 80, 40, terminal);
    EXPECT_EQ(TERM_SCROLLBACK_MAX - 17, context->scrollback_count);
    feed("\033[?1049h" + std::string(100, '\n'));
    EXPECT_EQ(TERM_SCROLLBACK_MAX - 17, context->scrollback_count);
}

} // namespace
