#include "tui/widget/widget_list.h"

#include <algorithm>

#include "link/clock.h"
#include "link/owned.h"
#include "tui/display.h"
#include "tui/widget/layout.h"

WidgetList *widget_list;

namespace {

// Between two pictures of port output: more of them would cost, and hardly be noticed.
constexpr int PICTURE_INTERVAL_MS = 20;
// Painting takes a fifth of the time at most, up to this interval.
constexpr int64_t LONGEST_INTERVAL_MS = 200;
// How long after a key port output counts as its answer, and how soon an answer is shown.
constexpr int ANSWER_MS = 100;
constexpr int ANSWER_INTERVAL_MS = 3;
// Bytes. While a port prints no more at a time, the next are read when a picture is due: together
// they cost less, and would not be shown before.
constexpr int32_t LITTLE = 1024;

// From the lowest upwards: what lies above is painted over what lies below.
void draw_from(WidgetList *list, list_head *lowest)
{
    for (list_head *at = lowest; at != &list->widgets; at = at->prev) {
        Widget *widget = list_entry(at, Widget, list);
        if (widget->draw != nullptr) {
            widget->draw(widget);
        }
    }
}

void draw_all(WidgetList *list)
{
    draw_from(list, list->widgets.prev);
}

// A widget that paints every cell of its rectangle and is closed at some time.
bool is_box(LayoutKind kind)
{
    return kind == LAYOUT_POPUP || kind == LAYOUT_TALL_POPUP;
}

void feed_all(const char *bytes, int length, WidgetList *list)
{
    Widget *widget;
    list_for_each_entry (widget, &list->widgets, list) {
        if (widget->feed != nullptr) {
            widget->feed(bytes, length, widget);
        }
    }
}

// Shows port output that was painted from since_us on: the longer it took, the longer the pause
// that follows.
void show_port_output(WidgetList *list, int64_t since_us)
{
    list->unshown = false;
    list->read_before = list->read_at_picture;
    list->read_at_picture = zorvad.port_output.bytes;
    draw_all(list);
    display_present();
    const int64_t now = monotonic_us();
    const bool answers = now / 1000 < list->answers_until;
    const int64_t shortest = answers ? ANSWER_INTERVAL_MS : PICTURE_INTERVAL_MS;
    const int64_t pause = std::clamp(4 * (now - since_us) / 1000, shortest, LONGEST_INTERVAL_MS);
    uloop_timeout_set(&list->pause, static_cast<int>(pause));
}

void end_pause(uloop_timeout *timer)
{
    WidgetList *list = container_of(timer, WidgetList, pause);
    if (list->unshown) {
        const int64_t begin = monotonic_us();
        feed_all("", 0, list);
        show_port_output(list, begin);
    }
    read_gate_release(zorvad.port_output, HOLD_REST);
}

// What comes next may answer a key: it is shown at once.
void expect_answer(WidgetList *list)
{
    list->answers_until = monotonic_ms() + ANSWER_MS;
    if (list->pause.pending) {
        end_pause(&list->pause);
        uloop_timeout_cancel(&list->pause);
    }
}

void widget_free(Widget *widget)
{
    widget->destroy(widget);
    free(widget);
}

} // namespace

bool widget_list_is_paced()
{
    return widget_list != nullptr && widget_list->pause.pending;
}

WidgetList *widget_list_new(int height, int width)
{
    WidgetList *list = zalloc<WidgetList>();
    if (list == nullptr) {
        ulog(LOG_ERR, "Could not allocate widget list structure\n");
        return nullptr;
    }
    INIT_LIST_HEAD(&list->widgets);
    list->height = height;
    list->width = width;
    list->refresh.cb = widget_list_refresh;
    list->pause.cb = end_pause;
    uloop_timeout_set(&list->refresh, WIDGET_REFRESH_MS);
    return list;
}

void widget_list_free(WidgetList *list)
{
    uloop_timeout_cancel(&list->refresh);
    uloop_timeout_cancel(&list->pause);
    Widget *widget;
    Widget *next;
    list_for_each_entry_safe (widget, next, &list->widgets, list) {
        list_del(&widget->list);
        widget_free(widget);
    }
    free(list);
}

void widget_list_add(WidgetList *list, Widget *widget)
{
    list_add(&widget->list, &list->widgets);
}

bool widget_list_open(WidgetList *list, WidgetConstructor construct, LayoutKind kind,
                      DaemonConnection &connection)
{
    if (is_box(kind) && !widget_list_has_room(list)) {
        return false;
    }
    Rectangle place = {};
    (void)layout_rectangle(kind, list->height, list->width, place);
    Widget *widget = construct(&connection, place.x0, place.y0, place.x1, place.y1);
    if (widget != nullptr) {
        widget_list_add(list, widget);
    }
    return widget != nullptr;
}

bool widget_list_has_room(const WidgetList *list)
{
    int boxes = 0;
    const Widget *widget;
    list_for_each_entry (widget, &list->widgets, list) {
        boxes += is_box(widget->kind) ? 1 : 0;
    }
    return boxes < BOXES_MAX;
}

void widget_list_remove(WidgetList *list, Widget *widget)
{
    const Rectangle bare = widget_rectangle(*widget);
    list_del(&widget->list);
    widget_free(widget);
    list_head *lowest = list->widgets.prev;
    Widget *other;
    list_for_each_entry (other, &list->widgets, list) {
        if (other->on_damage != nullptr) {
            other->on_damage(bare.x0, bare.y0, bare.x1, bare.y1, other);
        }
        if (is_box(other->kind) && contains(widget_rectangle(*other), bare)) {
            lowest = &other->list; // what lies below stays hidden
            break;
        }
    }
    draw_from(list, lowest); // the lowest was painted last, over what lies above it
}

void widget_list_resize(WidgetList *list, int height, int width)
{
    if (list_empty(&list->widgets)) {
        return;
    }
    Widget *widget;
    list_for_each_entry (widget, &list->widgets, list) {
        Rectangle place;
        if (widget->resize != nullptr && layout_rectangle(widget->kind, height, width, place)) {
            widget->resize(place.x0, place.y0, place.x1, place.y1, widget);
        }
    }
    list->height = height;
    list->width = width;
    draw_all(list);
    display_present();
}

void widget_list_feed(const char *bytes, int length, WidgetList *list)
{
    if (list_empty(&list->widgets)) {
        return;
    }
    feed_all(bytes, length, list);
    list->unshown = true;
    if (!list->pause.pending) {
        show_port_output(list, monotonic_us());
    }
}

void tui_output_sink(const char *bytes, int32_t length)
{
    widget_list_feed(bytes, length, widget_list);
    const bool is_all = zorvad.data_stream.stream.r.data_bytes == length;
    const int64_t read = zorvad.port_output.bytes + length - widget_list->read_before;
    if (is_all && read <= LITTLE && widget_list_is_paced()) {
        read_gate_hold(zorvad.port_output, HOLD_REST);
    }
}

void widget_list_input(const char *bytes, int length, WidgetList *list)
{
    if (list_empty(&list->widgets)) {
        return;
    }
    expect_answer(list);
    Widget *top = list_first_entry(&list->widgets, Widget, list);
    if (top->on_input != nullptr) {
        top->on_input(bytes, length, list, top);
    }
    display_present();
}

void widget_list_refresh(uloop_timeout *timer)
{
    WidgetList *list = container_of(timer, WidgetList, refresh);
    if (list_empty(&list->widgets)) {
        return;
    }
    Widget *widget;
    list_for_each_entry (widget, &list->widgets, list) {
        if (widget->tick != nullptr) {
            widget->tick(widget);
        }
    }
    draw_all(list);
    uloop_timeout_set(&list->refresh, WIDGET_REFRESH_MS);
    display_present();
}
