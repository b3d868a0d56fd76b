// How a popup draws its text; the end-to-end tests see those of the client.
#include "tui/popup.h"

#include <gtest/gtest.h>

#include "tui/widget/layout.h"
#include "tui/widget/widget_list.h"
#include "unit/support/back_buffer.h"

namespace {

struct Popup : testing::Test {
    BackBuffer screen{80, 24};
    WidgetList *list = widget_list_new(24, 80);

    ~Popup() override { widget_list_free(list); }

    void open(const char *text, Rectangle place)
    {
        Widget *popup = popup_new(text, place.x0, place.y0, place.x1, place.y1, nullptr);
        widget_list_add(list, popup);
        popup->draw(popup);
    }
};

TEST_F(Popup, EndsItsTextAtTheRightAndTheBottomBorder)
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

TEST_F(Popup, DrawsNothingWhereItHasNoRoom)
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

TEST_F(Popup, IsNotHiddenByAWideCharacterBesideIt)
{
    tb_set_cell(9, 3, 0x4e2d, TB_WHITE, TB_DEFAULT);
    tb_set_cell(9, 4, 0xe9, TB_WHITE, TB_DEFAULT);
    open("x", {10, 2, 20, 7});
    EXPECT_EQ(uint32_t{' '}, screen.cell(9, 3).ch);
    EXPECT_EQ(0xe9U, screen.cell(9, 4).ch);
}

} // namespace
