#include "tui/term_widget.h"

#include <algorithm>
#include <stdlib.h>
#include <string.h>

#include "dep/termbox.h"
#include "link/owned.h"
#include "text/width.h"
#include "tui/display.h"
#include "tui/guard/character.h"
#include "tui/guard/piece.h"
#include "tui/scrollback.h"
#include "tui/termbox.h"
#include "tui/widget/layout.h"
#include "tui/widget/widget_list.h"

namespace {

TermContext *context_of(const Widget *widget)
{
    return static_cast<TermContext *>(widget->priv);
}

uint16_t foreground(const TermContext &context, const VTermScreenCellAttrs &attributes)
{
    unsigned int fg = context.fg;
    fg |= attributes.bold ? TB_BOLD : 0U;
    fg |= attributes.blink ? TB_BLINK : 0U;
    fg |= attributes.italic ? TB_ITALIC : 0U;
    fg |= attributes.underline ? TB_UNDERLINE : 0U;
    fg |= attributes.reverse ? TB_REVERSE : 0U;
    return static_cast<uint16_t>(fg);
}

// A blank cell holds no character, and the cell behind a wide character holds none of its own.
// libvterm leaves a wide character whose second half was overwritten, with a width of 1: shown, it
// would hide what took that place.
uint32_t shown_character(const VTermScreenCell &cell)
{
    const uint32_t character = guard_real_character(cell.chars[0]);
    if (character == 0 || character == UINT32_MAX ||
        (cell.width == 1 && character_width(character) == 2)) {
        return ' ';
    }
    return character;
}

void paint(const Widget *widget, const Rectangle &place)
{
    const TermContext *context = context_of(widget);
    const VTermScreen *screen = vterm_obtain_screen(context->vt);
    for (int row = place.y0; row < place.y1; row++) {
        for (int column = place.x0; column < place.x1; column++) {
            VTermScreenCell cell = {};
            (void)vterm_screen_get_cell(screen, {row, column}, &cell); // outside it: a blank
            cell.chars[0] = shown_character(cell);
            tb_set_cell_ex(widget->x0 + column, widget->y0 + row, cell.chars,
                           static_cast<size_t>(cell.width), foreground(*context, cell.attrs),
                           context->bg);
        }
    }
}

// libvterm reports every cell, and the whole screen for each line that scrolls: the damage is noted
// and painted when the picture is due. Once every row is damaged there is nothing more to say. When
// rows that are damaged were reported as often as there are cells, painting all of them takes less
// than listening.
int on_damage_noted(VTermRect rectangle, void *user)
{
    const Widget *widget = static_cast<Widget *>(user);
    TermContext &context = *context_of(widget);
    const int16_t *rows = context.damage.painted_in;
    const int row = rectangle.start_row;
    const int count = std::clamp(widget->y1 - widget->y0, 0, GUARD_MAX_ROWS);
    if (rectangle.end_row == row + 1 && row >= 0 && row < GUARD_MAX_ROWS &&
        rows[row] == ROW_DAMAGED && context.damage.dest_end == 0) {
        if (++context.damaged_again < count * (widget->x1 - widget->x0)) {
            return 1;
        }
        row_damage_note(context.damage, 0, count);
    }
    row_damage_note(context.damage, row, rectangle.end_row);
    if (std::all_of(rows, rows + count, [](int16_t from) { return from == ROW_DAMAGED; })) {
        context.callbacks.damage = nullptr;
    }
    return 1;
}

void forget_damage(TermContext &context)
{
    row_damage_clear(context.damage);
    context.damaged_again = 0;
    context.callbacks.damage = on_damage_noted;
}

void show_cursor(Widget *widget)
{
    const TermContext &context = *context_of(widget);
    display_set_cursor(widget->x0 + context.cursor.col, widget->y0 + context.cursor.row,
                       context.cursor_shown);
}

bool is_top(const Widget *widget)
{
    return widget_list != nullptr && widget_list->widgets.next == &widget->list;
}

void copy_painted_row(const Widget *widget, int from, int to)
{
    const tb_cell *source = tui_back_row(widget->y0 + from);
    tb_cell *row = tui_back_row(widget->y0 + to);
    if (source != nullptr && row != nullptr) {
        const int columns = std::min(widget->x1 - widget->x0, tb_width());
        memcpy(row, source, static_cast<size_t>(columns) * sizeof *row);
    }
}

// Rows that moved are taken from where they were painted, in an order that none is painted over
// before it is taken. Under a popup they are not as they were painted.
void copy_moved_rows(const Widget *widget, int rows)
{
    RowDamage &damage = context_of(widget)->damage;
    if (!is_top(widget)) {
        row_damage_forget_moves(damage);
    }
    const int direction = row_damage_direction(damage);
    for (int i = 0; direction != 0 && i < rows; i++) {
        const int row = direction > 0 ? i : rows - 1 - i;
        const int from = damage.painted_in[row];
        if (from != ROW_DAMAGED && from != row) {
            copy_painted_row(widget, from, row);
        }
    }
}

void paint_damage(Widget *widget)
{
    RowDamage &damage = context_of(widget)->damage;
    const int rows = std::min(widget->y1 - widget->y0, GUARD_MAX_ROWS);
    copy_moved_rows(widget, rows);
    for (int row = 0; row < rows; row++) {
        if (damage.painted_in[row] == ROW_DAMAGED) {
            paint(widget, {0, row, widget->x1 - widget->x0, row + 1});
        }
    }
    forget_damage(*context_of(widget));
    show_cursor(widget);
}

// Only whole rows that move are noted. libvterm reports their destination as damaged afterwards.
int on_moverect(VTermRect destination, VTermRect source, void *user)
{
    const Widget *widget = static_cast<Widget *>(user);
    if (destination.start_col == 0 && source.start_col == 0 &&
        destination.end_col == widget->x1 - widget->x0 && source.end_col == destination.end_col) {
        row_damage_expect_move(context_of(widget)->damage, destination.start_row,
                               destination.end_row, source.start_row - destination.start_row);
    }
    return 0;
}

int on_movecursor(VTermPos position, VTermPos, int visible, void *user)
{
    TermContext *context = context_of(static_cast<Widget *>(user));
    context->cursor = position;
    context->cursor_shown = visible != 0;
    context->cursor_moved = true;
    guard_note_cursor(context->guard, position.row);
    return 1;
}

int on_settermprop(VTermProp property, VTermValue *value, void *user)
{
    if (property != VTERM_PROP_CURSORVISIBLE) {
        ulog(LOG_INFO, "not setting prop");
        return 1;
    }
    TermContext &context = *context_of(static_cast<Widget *>(user));
    if (value->boolean) {
        context.cursor_shown |= context.cursor_moved;
    } else if (context.cursor_shown) {
        context.cursor_shown = false;
        context.cursor_moved = false;
    }
    return 1;
}

int on_bell(void *)
{
    return 1;
}

int on_resize(int, int, void *)
{
    return 1;
}

int on_pushline(int cols, const VTermScreenCell *cells, void *user)
{
    TermContext *context = context_of(static_cast<Widget *>(user));
    return scrollback_push(context->scrollback, context->scrollback_count, cols, cells);
}

int on_popline(int cols, VTermScreenCell *cells, void *user)
{
    TermContext *context = context_of(static_cast<Widget *>(user));
    return scrollback_pop(context->scrollback, context->scrollback_count, cols, cells);
}

const TermContext *fed; // the port's terminal

int32_t limit_piece(const char *bytes, int32_t length)
{
    return guard_piece_length(fed->guard, fed->vt, bytes, length);
}

void term_feed(const char *bytes, int length, Widget *widget)
{
    TermContext *context = context_of(widget);
    guard_write(context->guard, context->vt, bytes, static_cast<size_t>(length));
    display_set_modes(context->guard.modes);
    if (length == 0 || !widget_list_is_paced()) {
        paint_damage(widget);
    }
}

void term_on_input(const char *bytes, int length, WidgetList *, Widget *widget)
{
    port_send(*context_of(widget)->conn, bytes, static_cast<size_t>(length), false);
}

void term_resize(int x0, int y0, int x1, int y1, Widget *widget)
{
    TermContext *context = context_of(widget);
    set_widget_rectangle(*widget, {x0, y0, x1, y1});
    guard_set_size(context->guard, context->vt, y1 - y0, x1 - x0);
    vterm_screen_flush_damage(vterm_obtain_screen(context->vt));
    paint(widget, widget_rectangle(*widget)); // whole: the back buffer may hold anything there
    forget_damage(*context);
    show_cursor(widget);
}

void term_on_damage(int x0, int y0, int x1, int y1, Widget *widget)
{
    // One column more on the left: a wide character there was cut by what is gone now.
    const Rectangle bare = {x0 - 1, y0, x1, y1};
    const Rectangle place = widget_rectangle(*widget);
    row_damage_forget_moves(context_of(widget)->damage); // what is painted now did not move
    if (overlaps(place, bare)) {
        paint(widget, intersection(place, bare));
    }
}

void term_destroy(Widget *widget)
{
    TermContext *context = context_of(widget);
    context->conn->piece_length = nullptr;
    if (context->vt != nullptr) {
        vterm_free(context->vt);
    }
    scrollback_free(context->scrollback, context->scrollback_count);
    free(context);
}

void set_operations(Widget &widget)
{
    widget.on_damage = term_on_damage;
    widget.feed = term_feed;
    widget.on_input = term_on_input;
    widget.resize = term_resize;
    widget.destroy = term_destroy;
}

void fill_context(TermContext &context, DaemonConnection *conn)
{
    context.conn = conn;
    context.callbacks = {};
    context.callbacks.moverect = on_moverect;
    context.callbacks.movecursor = on_movecursor;
    context.callbacks.settermprop = on_settermprop;
    context.callbacks.bell = on_bell;
    context.callbacks.resize = on_resize;
    context.callbacks.sb_pushline = on_pushline;
    context.callbacks.sb_popline = on_popline;
    context.guard.callbacks = &context.callbacks;
    INIT_LIST_HEAD(&context.scrollback);
    forget_damage(context);
    context.fg = TB_WHITE;
    context.bg = TB_DEFAULT;
}

void start_emulator(Widget *widget, TermContext &context)
{
    VTermScreen *screen = vterm_obtain_screen(context.vt);
    vterm_screen_enable_altscreen(screen, 1);
    vterm_screen_reset(screen, 1);
    vterm_screen_set_damage_merge(screen, VTERM_DAMAGE_CELL);
    vterm_screen_set_callbacks(screen, &context.callbacks, widget);
    vterm_set_utf8(context.vt, 1);
}

} // namespace

Widget *term_widget_new(DaemonConnection *conn, int x0, int y0, int x1, int y1)
{
    Widget *widget = widget_new<TermContext>(LAYOUT_TERMINAL, "vterm", x0, y0, x1, y1);
    if (widget == nullptr) {
        return nullptr;
    }
    TermContext *context = context_of(widget);
    set_operations(*widget);
    fill_context(*context, conn);
    context->vt = guard_new_vterm(y1 - y0, x1 - x0);
    if (context->vt == nullptr) {
        ulog(LOG_ERR, "Could not create terminal emulator\n");
        term_destroy(widget);
        free(widget);
        return nullptr;
    }
    start_emulator(widget, *context);
    fed = context;
    conn->piece_length = limit_piece;
    return widget;
}
