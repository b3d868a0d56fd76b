#include "tui/widget/widget_list.h"

#include <gtest/gtest.h>

#include <string>

#include "link/owned.h"
#include "tui/popup.h"
#include "tui/widget/layout.h"
#include "unit/support/back_buffer.h"
#include "unit/support/connected.h"

namespace {

// What the widgets were asked to do, in order: the widget's letter and the operation's.
std::string calls;

char letter(const Widget *widget)
{
    return *static_cast<const char *>(widget->priv);
}

void note(const Widget *widget, char operation)
{
    calls += letter(widget);
    calls += operation;
    calls += ' ';
}

Widget *make(const char *name, int32_t kind, Rectangle place)
{
    Widget *widget = zalloc<Widget>();
    widget->priv = const_cast<char *>(name);
    widget->kind = LayoutKind{kind};
    widget->on_damage = [](int, int, int, int, Widget *self) { note(self, 'D'); };
    widget->draw = [](Widget *self) { note(self, 'd'); };
    widget->tick = [](Widget *self) { note(self, 't'); };
    widget->feed = [](const char *, int, Widget *self) { note(self, 'f'); };
    widget->on_input = [](const char *, int, WidgetList *, Widget *self) { note(self, 'i'); };
    widget->resize = [](int x0, int y0, int x1, int y1, Widget *self) {
        note(self, 'r');
        set_widget_rectangle(*self, {x0, y0, x1, y1});
    };
    widget->destroy = [](Widget *self) { note(self, 'x'); };
    set_widget_rectangle(*widget, place);
    return widget;
}

struct Stack : testing::Test {
    BackBuffer screen{80, 24};
    WidgetList *list = widget_list_new(24, 80);
    Widget *a = make("a", LAYOUT_STATUS, {0, 23, 80, 24});
    Widget *b = make("b", LAYOUT_TERMINAL, {0, 0, 80, 23});
    Widget *c = make("c", 4, {1, 1, 5, 5});

    Stack()
    {
        for (Widget *widget : {a, b, c}) {
            widget_list_add(list, widget);
        }
        calls.clear();
    }
    ~Stack() override { widget_list_free(list); }
};

TEST_F(Stack, PaintsFromTheBottomAndGivesInputToTheTop)
{
    widget_list_feed("x", 1, list);
    EXPECT_EQ("cf bf af ad bd cd ", calls);
    calls.clear();
    widget_list_input("x", 1, list);
    EXPECT_EQ("ci ", calls);
    calls.clear();
    widget_list_refresh(&list->refresh);
    EXPECT_EQ("ct bt at ad bd cd ", calls);
    EXPECT_TRUE(list->refresh.pending);
}

TEST_F(Stack, PacesPicturesButNotTheAnswerToAKey)
{
    const auto feed = [this] {
        calls.clear();
        widget_list_feed("x", 1, list);
        return calls;
    };
    const std::string shown = "cf bf af ad bd cd ", unshown = "cf bf af ";
    EXPECT_EQ(shown, feed());
    EXPECT_EQ(unshown, feed());
    EXPECT_TRUE(run_until([this] { return !list->unshown; }));
    EXPECT_EQ(unshown + shown, calls) << "an empty feed paints what was left";
    EXPECT_TRUE(run_until([this] { return !list->pause.pending; }));
    EXPECT_EQ(shown, feed());
    EXPECT_EQ(unshown, feed());
    widget_list_input("x", 1, list);
    EXPECT_EQ(unshown + shown + "ci ", calls);
    EXPECT_EQ(shown, feed());
}

TEST_F(Stack, ReadsLittleOutputWhenItIsShown)
{
    Connected daemon;
    widget_list = list;
    zorvad.output_sink = tui_output_sink;
    const auto print = [&daemon](const std::string &bytes) {
        const int64_t read = zorvad.port_output.bytes + static_cast<int64_t>(bytes.size());
        send_all(daemon.data, bytes);
        return run_until([read] { return zorvad.port_output.bytes == read; });
    };
    EXPECT_TRUE(print("little"));
    EXPECT_EQ(HOLD_REST, zorvad.port_output.holds);
    EXPECT_TRUE(print("more")) << "a moment later";
    widget_list_input("x", 1, list);
    EXPECT_EQ(0, zorvad.port_output.holds) << "its answer is not to wait";
    zorvad.piece_length = [](const char *, int32_t length) { return std::min(length, 2000); };
    EXPECT_TRUE(print(std::string(2001, 'x'))) << "whose last piece is little";
    EXPECT_TRUE(list->pause.pending);
    EXPECT_EQ(0, zorvad.port_output.holds) << "what is printed fast is read at once";
    widget_list = nullptr;
}

TEST_F(Stack, EndsARemovalAndAResizeWithThePaintingInOrder)
{
    widget_list_resize(list, 30, 100);
    EXPECT_EQ("br ar ad bd cd ", calls); // a kind that has no place stays where it is
    EXPECT_EQ((Rectangle{0, 0, 100, 29}), widget_rectangle(*b));
    EXPECT_EQ((Rectangle{0, 29, 100, 30}), widget_rectangle(*a));
    EXPECT_EQ((Rectangle{1, 1, 5, 5}), widget_rectangle(*c));
    EXPECT_EQ(30, list->height);
    EXPECT_EQ(100, list->width);
    calls.clear();
    widget_list_remove(list, c);
    EXPECT_EQ("cx bD aD ad bd ", calls);
    calls.clear();
    widget_list_input("x", 1, list);
    EXPECT_EQ("bi ", calls);
}

TEST_F(Stack, ARemovalPaintsNothingThatStaysHidden)
{
    Widget *boxes[] = {make("1", LAYOUT_TALL_POPUP, {0, 3, 80, 21}),
                       make("2", LAYOUT_POPUP, {20, 6, 60, 12}),
                       make("3", LAYOUT_POPUP, {20, 6, 60, 18})};
    for (Widget *box : boxes) {
        widget_list_add(list, box);
    }
    const char *const expected[] = {"3x 2D 1D 1d 2d ", "2x 1D 1d ", "1x cD bD aD ad bd cd "};
    for (int i = 2; i >= 0; i--) {
        calls.clear();
        widget_list_remove(list, boxes[i]);
        EXPECT_EQ(expected[2 - i], calls);
    }
}

TEST_F(Stack, HoldsSoManyBoxesAndNoMore)
{
    const auto construct = [](DaemonConnection *, int, int, int, int) {
        return make("n", LAYOUT_TALL_POPUP, {});
    };
    widget_list = list;
    for (int i = 0; i < BOXES_MAX; i++) {
        EXPECT_TRUE(widget_list_open(list, construct, LAYOUT_TALL_POPUP, zorvad));
    }
    EXPECT_FALSE(widget_list_open(list, construct, LAYOUT_TALL_POPUP, zorvad));
    const list_head *top = list->widgets.next;
    popup_open("text", PopupPlace::HELP, nullptr);
    EXPECT_EQ(top, list->widgets.next);
    widget_list_remove(list, list_first_entry(&list->widgets, Widget, list));
    popup_open("text", PopupPlace::HELP, nullptr);
    EXPECT_FALSE(widget_list_has_room(list));
    widget_list = nullptr;
}

TEST(Rectangles, OverlapStrictly)
{
    const Rectangle place = {2, 2, 5, 4};
    EXPECT_TRUE(overlaps(place, {4, 3, 9, 9}));
    for (const Rectangle &other : {Rectangle{5, 2, 9, 4}, {0, 0, 2, 9}, {2, 4, 5, 5}}) {
        EXPECT_FALSE(overlaps(place, other));
    }
    EXPECT_EQ((Rectangle{4, 3, 5, 4}), intersection(place, {4, 3, 9, 9}));
}

} // namespace
