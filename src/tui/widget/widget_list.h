// The stack of widgets on the screen: who is painted over whom, who gets the input, and the
// periodic refresh.
#pragma once

#include <stdint.h>

#include "dep/ubox.h"
#include "link/connection.h"
#include "tui/widget/widget.h"

constexpr int WIDGET_REFRESH_MS = 500;

struct WidgetList {
    list_head widgets;     // Widget records, the top of the stack first; owned
    int32_t height;        // screen rows
    int32_t width;         // screen columns
    uloop_timeout refresh; // every WIDGET_REFRESH_MS, until it finds the list empty

    uloop_timeout pause;     // while it is pending port output is not shown
    bool unshown;            // port output came since it was last shown
    int64_t read_at_picture; // bytes of port output when the last picture was made
    int64_t read_before;     // and when the one before was
    int64_t answers_until;   // by monotonic_ms: port output before that may answer a key
};

// The one list of the process; null until the terminal UI starts.
extern WidgetList *widget_list;

// Whether a widget that is fed may leave the painting to an empty feed, which comes when the next
// picture is due.
bool widget_list_is_paced();

// An empty list with its refresh armed. Null, with a line in the log, when memory is short.
[[nodiscard]] WidgetList *widget_list_new(int height, int width);

// Frees a list with its widgets and stops its refresh.
void widget_list_free(WidgetList *list);

// Puts the widget on top; the list owns it from then on. It shows with the next refresh or port
// output.
void widget_list_add(WidgetList *list, Widget *widget);

// Constructs a widget at the place of its kind and puts it on top. False where it is not made, or
// is a box too many.
using WidgetConstructor = Widget *(*)(DaemonConnection *connection, int x0, int y0, int x1, int y1);
[[nodiscard]] bool widget_list_open(WidgetList *list, WidgetConstructor construct, LayoutKind kind,
                                    DaemonConnection &connection);

// Popups and histories that may be open at a time.
constexpr int BOXES_MAX = 32;

// False when BOXES_MAX are open; another is not opened then.
bool widget_list_has_room(const WidgetList *list);

// Frees the widget and repaints what it lays bare.
void widget_list_remove(WidgetList *list, Widget *widget);

// Places every widget anew and repaints the screen.
void widget_list_resize(WidgetList *list, int height, int width);

// Hands port output to every widget and repaints the screen: at once after a pause, fifty times
// a second while more keeps coming, and more often after a key.
void widget_list_feed(const char *bytes, int length, WidgetList *list);

// Output sink of the terminal UI: feeds the one list. Of a port that prints little at a time the
// rest is read when the next picture is due.
void tui_output_sink(const char *bytes, int32_t length);

// Hands input to the top widget.
void widget_list_input(const char *bytes, int length, WidgetList *list);

// Callback of the refresh timer: every widget's tick, then the whole picture.
void widget_list_refresh(uloop_timeout *timer);
