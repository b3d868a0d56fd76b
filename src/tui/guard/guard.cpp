#include "tui/guard/guard.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "dep/ubox.h"
#include "tui/guard/obey.h"
#include "tui/guard/overdraw.h"
#include "tui/guard/pictures.h"
#include "tui/guard/scan.h"
#include "tui/guard/sequence.h"
#include "tui/guard/text.h"
#include "tui/guard/walk.h"

namespace {

// Room for a tail and some bytes that follow it, which are looked at together.
constexpr size_t JOINED = sizeof Guard::tail + 256;
constexpr char BELL = 0x07;
constexpr char CANCEL = 0x18;
constexpr char SUBSTITUTE = 0x1a;

bool is_control(char byte)
{
    return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7f;
}

// A control byte inside a sequence is obeyed at once and the sequence goes on, but ESC, CAN and SUB
// end it.
void pass_control_within(GuardWalk &walk)
{
    const char byte = *walk.at;
    if (byte == GUARD_ESCAPE) {
        walk.guard.tail_length = 0;
        return;
    }
    if (byte == CANCEL || byte == SUBSTITUTE) {
        walk.guard.tail_length = 0;
    } else {
        guard_send_bytes(walk.vt, {&byte, 1});
    }
    guard_leave_out(walk, 1);
}

// Whether a plain control sequence does nothing to rows beyond the cursor's.
bool spares_other_rows(std::string_view sequence)
{
    constexpr char SPARING[] = "mHfKABCDEFGdXP@";
    return (sequence[2] < '<' || sequence[2] > '?') &&
           memchr(SPARING, sequence.back(), sizeof SPARING - 1) != nullptr;
}

// Programs that fill the screen erase what is below it with every picture, which takes libvterm as
// long on a tall screen as all the rest. Where that is blank, the cursor's row is enough.
void erase_below(GuardWalk &walk, size_t length)
{
    Guard &guard = walk.guard;
    guard_send(walk);
    const int row = guard_cursor(walk.vt).row;
    const bool known = guard.callbacks != nullptr && guard.callbacks->movecursor != nullptr &&
                       !guard.lines_doubled && guard_pen_is_reset(walk.vt);
    const bool blank = known && guard.blank_from != 0 && guard.blank_from <= row + 1;
    guard_leave_out(walk, length);
    guard_send_bytes(walk.vt, blank ? "\x1b[K" : "\x1b[J");
    guard.blank_from = known ? row + 1 : 0;
}

void pass_plain_csi(GuardWalk &walk, std::string_view sequence)
{
    if (sequence == GUARD_HOME) {
        guard_skip_pictures(walk);
    }
    walk.guard.joins = walk.guard.joins && sequence.back() == 'm';
    if (sequence == "\x1b[J" || sequence == "\x1b[0J") {
        erase_below(walk, sequence.size());
        return;
    }
    if (walk.guard.blank_from != 0 && !spares_other_rows(sequence)) {
        walk.guard.blank_from = 0;
    }
    walk.at += sequence.size();
}

void pass_sequence(GuardWalk &walk)
{
    if (guard_pass_drawing(walk)) {
        return;
    }
    const char *end = guard_plain_csi_end(walk.at, walk.end);
    if (end) {
        pass_plain_csi(walk, {walk.at, static_cast<size_t>(end - walk.at)});
        return;
    }
    walk.guard.blank_from = 0;
    GuardSequence sequence;
    guard_read_sequence({walk.at, static_cast<size_t>(walk.end - walk.at)}, sequence);
    guard_leave_out(walk, sequence.taken);
    guard_keep_glyph(walk);
    guard_obey(walk.guard, walk.vt, sequence);
    if (sequence.kind == GuardSequenceKind::CUT && walk.at < walk.end && is_control(*walk.at)) {
        pass_control_within(walk);
    }
}

bool ends_string(char byte)
{
    return byte == BELL || byte == GUARD_ESCAPE || byte == CANCEL || byte == SUBSTITUTE ||
           byte == '\n';
}

// Of control strings libvterm only obeys OSC, and only when it ends with BEL or ESC.
void end_string(Guard &guard, VTerm *vt, char byte)
{
    if (guard.tail_length > 0 && (byte == BELL || byte == GUARD_ESCAPE)) {
        guard.tail[guard.tail_length] = BELL; // whole: of two pieces libvterm forgets the first
        guard_send_bytes(vt, {guard.tail, guard.tail_length + 1U});
    }
    guard.tail_length = 0;
    guard.string_left = 0;
}

// The bytes of a control string; of OSC as many as there is room for are kept.
void pass_string(GuardWalk &walk)
{
    Guard &guard = walk.guard;
    for (; walk.at < walk.end && guard.string_left > 0; walk.at++) {
        const char byte = *walk.at;
        guard.string_left--;
        if (ends_string(byte)) {
            end_string(guard, walk.vt, byte);
            walk.at += byte == GUARD_ESCAPE || byte == '\n' ? 0 : 1;
            break;
        }
        if (is_control(byte)) {
            guard_send_bytes(walk.vt, {&byte, 1});
        } else if (guard.tail_length == sizeof guard.tail - 1 || guard.string_left == 0) {
            guard.tail_length = 0; // too long, and dropped
        } else if (guard.tail_length > 0) {
            guard.tail[guard.tail_length++] = byte;
        }
    }
    walk.unsent = walk.at;
}

// A character or a sequence.
void pass_item(GuardWalk &walk)
{
    if (*walk.at == GUARD_ESCAPE) {
        pass_sequence(walk);
    } else {
        guard_pass_characters(walk);
    }
}

// The tail of the chunk before, together with some of what follows it.
void pass_tail(GuardWalk &walk)
{
    char joined[JOINED];
    const size_t kept = walk.guard.tail_length;
    const size_t added = std::min(static_cast<size_t>(walk.end - walk.at), sizeof joined - kept);
    memcpy(joined, walk.guard.tail, kept);
    memcpy(joined + kept, walk.at, added);
    walk.guard.tail_length = 0;
    GuardWalk item{walk.guard, walk.vt, joined, joined, joined + kept + added, nullptr};
    pass_item(item);
    guard_send(item);
    guard_keep_glyph(item);
    walk.at += item.at - (joined + kept);
    walk.unsent = walk.at;
}

void pass_chunk(GuardWalk &walk)
{
    while (walk.at < walk.end && walk.guard.tail_length == 0 && walk.guard.string_left == 0) {
        if (walk.at - walk.unsent >= GUARD_SEND_SIZE) {
            guard_send(walk);
        }
        if (static_cast<unsigned char>(*walk.at) >= 0x80) {
            guard_pass_characters(walk);
        } else if (*walk.at == GUARD_ESCAPE) {
            pass_sequence(walk);
        } else {
            guard_pass_plain(walk);
        }
    }
    guard_send(walk);
    guard_keep_glyph(walk);
}

// Margins beyond the new size make the next scroll move memory outside of the screen. Resetting
// them moves the cursor to the corner, from where libvterm would scroll too few lines away.
void reset_margins(Guard &guard, VTerm *vt)
{
    char sequence[64];
    const VTermPos cursor = guard_cursor(vt);
    const int length = snprintf(sequence, sizeof(sequence), "\x1b[r\x1b[s\x1b[%d;%dH",
                                cursor.row + 1, cursor.col + 1);
    vterm_input_write(vt, sequence, static_cast<size_t>(length));
    guard.margins = 0;
}

// libvterm uses what it is given without a look, so there is no way on without memory for it.
void *vterm_allocate(size_t size, void *)
{
    void *memory = calloc(1, size);
    if (memory == nullptr) {
        ulog(LOG_ERR, "Could not allocate memory for the terminal emulator\n");
        abort();
    }
    return memory;
}

void vterm_release(void *memory, void *)
{
    free(memory);
}

VTermAllocatorFunctions allocator = {vterm_allocate, vterm_release};

// Whether there is memory for screens of this size. If not, libvterm is not asked for them.
bool memory_suffices(int rows, int cols)
{
    constexpr size_t CELL = 256; // in both of its screens, the old and the new ones, and more
    void *volatile room = malloc(CELL * static_cast<size_t>(rows) * static_cast<size_t>(cols));
    free(room);
    return room != nullptr;
}

} // namespace

VTerm *guard_new_vterm(int rows, int cols)
{
    rows = std::clamp(rows, GUARD_MIN_ROWS, GUARD_MAX_ROWS);
    cols = std::clamp(cols, GUARD_MIN_COLS, GUARD_MAX_COLS);
    return memory_suffices(rows, cols) ? vterm_new_with_allocator(rows, cols, &allocator, nullptr)
                                       : nullptr;
}

void guard_write(Guard &guard, VTerm *vt, const char *bytes, size_t length)
{
    if (!guard.started) {
        // Restoring a cursor that was never saved would hide it: common when the client comes to a
        // port whose full-screen program was started before.
        vterm_input_write(vt, "\x1b\x37", 2);
        guard.started = true;
    }
    GuardWalk walk{guard, vt, bytes, bytes, bytes + length, nullptr};
    while (walk.at < walk.end) {
        if (guard.string_left > 0) {
            pass_string(walk);
        } else if (guard.tail_length > 0) {
            pass_tail(walk);
        } else {
            pass_chunk(walk);
        }
    }
}

void guard_set_size(Guard &guard, VTerm *vt, int rows, int cols)
{
    guard.blank_from = 0;
    int old_rows = 0;
    int old_cols = 0;
    rows = std::clamp(rows, GUARD_MIN_ROWS, GUARD_MAX_ROWS);
    cols = std::clamp(cols, GUARD_MIN_COLS, GUARD_MAX_COLS);
    vterm_get_size(vt, &old_rows, &old_cols);
    if (!memory_suffices(rows, cols)) {
        ulog(LOG_ERR, "Could not resize the terminal emulator\n");
        return;
    }
    if (guard.margins != 0 && (rows < old_rows || cols < old_cols)) {
        reset_margins(guard, vt);
    }
    vterm_set_size(vt, rows, cols);
    // 0.1.4 scrolls a full screen by more lines than there are above its cursor.
    guard_keep_cursor_inside(vt);
}

void guard_note_cursor(Guard &guard, int row)
{
    if (guard.blank_from != 0) {
        guard.blank_from = std::max(guard.blank_from, row + 1);
    }
}
