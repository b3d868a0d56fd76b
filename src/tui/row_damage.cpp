#include "tui/row_damage.h"

#include <algorithm>
#include <string.h>

void row_damage_clear(RowDamage &damage)
{
    for (int row = 0; row < GUARD_MAX_ROWS; row++) {
        damage.painted_in[row] = static_cast<int16_t>(row);
    }
    damage.dest_end = 0;
}

void row_damage_note(RowDamage &damage, int start, int end)
{
    start = std::max(start, 0);
    end = std::min(end, GUARD_MAX_ROWS);
    if (start == damage.dest_start && end == damage.dest_end) {
        memmove(damage.painted_in + start, damage.painted_in + start + damage.distance,
                static_cast<size_t>(end - start) * sizeof damage.painted_in[0]);
    } else {
        std::fill(damage.painted_in + start, damage.painted_in + std::max(start, end), ROW_DAMAGED);
    }
    damage.dest_end = 0;
}

void row_damage_expect_move(RowDamage &damage, int start, int end, int distance)
{
    if (start >= 0 && start + distance >= 0 && start < end && end <= GUARD_MAX_ROWS &&
        end + distance <= GUARD_MAX_ROWS) {
        damage.dest_start = start;
        damage.dest_end = end;
        damage.distance = distance;
    }
}

void row_damage_forget_moves(RowDamage &damage)
{
    for (int row = 0; row < GUARD_MAX_ROWS; row++) {
        if (damage.painted_in[row] != row) {
            damage.painted_in[row] = ROW_DAMAGED;
        }
    }
}

int row_damage_direction(RowDamage &damage)
{
    bool up = false;
    bool down = false;
    for (int row = 0; row < GUARD_MAX_ROWS; row++) {
        const int from = damage.painted_in[row];
        up = up || from > row;
        down = down || (from != ROW_DAMAGED && from < row);
    }
    if (up && down) {
        row_damage_forget_moves(damage);
        return 0;
    }
    return up ? 1 : down ? -1 : 0;
}
