#include "tui/output/move.h"

#include <string.h>

#include "text/digits.h"

namespace {

// The bytes of one way to move. None is longer than going to the row and then along it, and
// MOVE_MAX has room for that.
struct Way {
    size_t length;
    char bytes[MOVE_MAX];
};

void add(Way &way, char byte)
{
    way.bytes[way.length++] = byte;
}

void add(Way &way, const Way &more)
{
    memcpy(way.bytes + way.length, more.bytes, more.length);
    way.length += more.length;
}

void add_control(Way &way, int number, char last)
{
    add(way, '\033');
    add(way, '[');
    if (number > 1) {
        way.length += put_number(way.bytes + way.length, number);
    }
    add(way, last);
}

Way absolute(int to_x, int to_y)
{
    Way way = {};
    add(way, '\033');
    add(way, '[');
    if (to_y > 0) {
        way.length += put_number(way.bytes + way.length, to_y + 1);
    }
    if (to_x > 0) {
        add(way, ';');
        way.length += put_number(way.bytes + way.length, to_x + 1);
    }
    add(way, 'H');
    return way;
}

// The way to another row; false where a margin would stop it.
bool vertical(const MoveContext &context, int to_y, Way &way)
{
    const int from = context.y;
    if (to_y > from) {
        if (from <= context.bottom && to_y > context.bottom) {
            return false;
        }
        if (to_y - from > 3) {
            add_control(way, to_y - from, 'B');
            return true;
        }
        for (int y = from; y < to_y; y++) {
            add(way, '\n');
        }
    } else if (to_y < from) {
        if (from >= context.top && to_y < context.top) {
            return false;
        }
        if (from - to_y > 1) {
            add_control(way, from - to_y, 'A');
        } else {
            add(way, '\033');
            add(way, 'M');
        }
    }
    return true;
}

bool is_wide_or_unsure(const tb_cell &cell)
{
    return cell.ch >= 0x80;
}

// Whether printing the cells from one column up to another shows what is there already: in the
// colours that are set, and with certain widths.
bool can_print(const MoveContext &context, int from, int to)
{
    if (context.cells == nullptr || (from > 0 && is_wide_or_unsure(context.cells[from - 1]))) {
        return false;
    }
    for (int x = from; x < to; x++) {
        const tb_cell &cell = context.cells[x];
        if (cell.ch < 0x20 || cell.ch > 0x7e || cell.fg != context.foreground ||
            cell.bg != context.background) {
            return false;
        }
    }
    return true;
}

Way right(const MoveContext &context, int from, int to)
{
    Way way = {};
    if (from == to) {
        return way;
    }
    add_control(way, to - from, 'C');
    if (to - from <= static_cast<int>(way.length) && can_print(context, from, to)) {
        way.length = 0;
        for (int x = from; x < to; x++) {
            add(way, static_cast<char>(context.cells[x].ch));
        }
    }
    return way;
}

Way left(int from, int to)
{
    Way way = {};
    add_control(way, from - to, 'D');
    if (from - to <= static_cast<int>(way.length)) {
        way.length = 0;
        for (int x = to; x < from; x++) {
            add(way, '\b');
        }
    }
    return way;
}

void keep_shorter(Way &best, const Way &other)
{
    if (other.length < best.length) {
        best = other;
    }
}

} // namespace

size_t shortest_move(const MoveContext &context, int to_x, int to_y, char *bytes)
{
    Way best = absolute(to_x, to_y);
    Way down = {};
    if (context.row_known && vertical(context, to_y, down)) {
        if (context.column_known) {
            Way way = down;
            add(way, to_x < context.x ? left(context.x, to_x) : right(context, context.x, to_x));
            keep_shorter(best, way);
        }
        Way way = {};
        add(way, '\r');
        add(way, down);
        add(way, right(context, 0, to_x));
        keep_shorter(best, way);
    }
    memcpy(bytes, best.bytes, best.length);
    return best.length;
}
