#include "tui/output/rewriter.h"

#include <algorithm>
#include <string.h>

#include "tui/output/digits.h"
#include "tui/output/move.h"

namespace {

constexpr std::string_view ERASE_TO_END = "\033[K";

// What no pen is, so that any change from it sets everything.
constexpr Pen NO_PEN = {0xff, 0xff, 0xff};

void flush(Rewriter &rewriter)
{
    if (rewriter.length > 0 && !rewriter.send(rewriter.bytes, rewriter.length)) {
        rewriter.lost = true;
    }
    rewriter.length = 0;
}

void put(Rewriter &rewriter, std::string_view bytes)
{
    for (const char byte : bytes) {
        if (rewriter.length == sizeof rewriter.bytes) {
            flush(rewriter);
        }
        rewriter.bytes[rewriter.length++] = byte;
    }
}

void forget(Rewriter &rewriter)
{
    rewriter.column_known = rewriter.row_known = false;
    rewriter.moved = rewriter.left_known = false;
    rewriter.pen_known = rewriter.pen_cell_known = false;
    rewriter.charset = Charset::UNKNOWN;
    rewriter.erased_y = -1;
    rewriter.margins_certain = false;
    rewriter.forgotten = true;
}

void set_position(Rewriter &rewriter, int x, int y)
{
    rewriter.x = rewriter.column_limit = x;
    rewriter.y = y;
    rewriter.column_known = rewriter.row_known = true;
}

void reset_margins(Rewriter &rewriter)
{
    if (rewriter.margins) {
        put(rewriter, MARGINS_OFF);
        rewriter.margins = false;
        rewriter.column_known = rewriter.row_known = false;
    }
}

// A character was printed; cells is the most that a terminal may give it.
void advance(Rewriter &rewriter, int cells, bool certain)
{
    rewriter.column_limit += cells;
    rewriter.x += cells;
    // In the last column the cursor waits, and a return is needed before anything relative.
    rewriter.column_known =
        rewriter.column_known && certain && rewriter.column_limit < rewriter.width;
    rewriter.row_known = rewriter.row_known && rewriter.column_limit <= rewriter.width;
}

void change_pen(Rewriter &rewriter, const Pen &pen)
{
    if (rewriter.pen_known && rewriter.pen == pen) {
        return;
    }
    char bytes[PEN_CHANGE_MAX];
    put(rewriter, {bytes, pen_change(rewriter.pen_known ? rewriter.pen : NO_PEN, pen, bytes)});
    rewriter.pen = pen;
    rewriter.pen_known = true;
    rewriter.pen_cell_known = false;
}

void sync_pen(Rewriter &rewriter)
{
    if (rewriter.wanted_known) { // else it has passed as it came
        change_pen(rewriter, rewriter.wanted);
    }
}

// The row of the picture, when a jump in it may be made by printing its cells again.
const tb_cell *printable_row(const Rewriter &rewriter, int y)
{
    return rewriter.pen_cell_known && rewriter.pen_known
               ? rewriter.cells + static_cast<size_t>(y) * static_cast<size_t>(rewriter.width)
               : nullptr;
}

void sync_position(Rewriter &rewriter)
{
    if (!rewriter.moved) {
        return;
    }
    rewriter.moved = false;
    const MoveContext context = {rewriter.x,
                                 rewriter.y,
                                 rewriter.column_known,
                                 rewriter.row_known,
                                 rewriter.margins ? rewriter.top : 0,
                                 rewriter.margins ? rewriter.bottom : rewriter.height - 1,
                                 printable_row(rewriter, rewriter.to_y),
                                 rewriter.pen_foreground,
                                 rewriter.pen_background};
    char bytes[MOVE_MAX];
    put(rewriter, {bytes, shortest_move(context, rewriter.to_x, rewriter.to_y, bytes)});
    set_position(rewriter, rewriter.to_x, rewriter.to_y);
}

// Where the next character goes, as far as termbox2 is concerned; false when that is not known.
bool next_place(const Rewriter &rewriter, int &x, int &y)
{
    x = (rewriter.moved ? rewriter.to_x : rewriter.x) + rewriter.blanks;
    y = rewriter.moved ? rewriter.to_y : rewriter.y;
    return rewriter.cells != nullptr && x < rewriter.width &&
           (rewriter.moved || (rewriter.column_known && rewriter.row_known));
}

const tb_cell &cell_at(const Rewriter &rewriter, int x, int y)
{
    return rewriter.cells[static_cast<size_t>(y) * static_cast<size_t>(rewriter.width) +
                          static_cast<size_t>(x)];
}

bool row_ends_blank(const Rewriter &rewriter, int x, int y)
{
    for (; x < rewriter.width; x++) {
        const tb_cell &cell = cell_at(rewriter, x, y);
        if (cell.ch != ' ' || (cell.fg & 0xff00) != 0 || cell.bg != TB_DEFAULT) {
            return false;
        }
    }
    return true;
}

void erase_to_end(Rewriter &rewriter, int x, int y)
{
    if (!rewriter.pen_known || !pen_is_plain(rewriter.pen)) {
        sync_pen(rewriter); // blanks take its background
    }
    sync_position(rewriter);
    put(rewriter, ERASE_TO_END);
    rewriter.erased_x = x;
    rewriter.erased_y = y;
}

// Sends the blanks held back: the end of a row is erased where that is shorter.
void release_blanks(Rewriter &rewriter)
{
    const int count = rewriter.blanks;
    if (count == 0) {
        return;
    }
    rewriter.blanks = 0;
    int x = 0;
    int y = 0;
    (void)next_place(rewriter, x, y); // known, or they had not been held
    const bool erased = y == rewriter.erased_y && x >= rewriter.erased_x;
    if (erased || (count > 1 && row_ends_blank(rewriter, x, y))) {
        if (!erased) {
            erase_to_end(rewriter, x, y);
        }
        rewriter.moved = x + count < rewriter.width;
        rewriter.to_x = x + count;
        rewriter.to_y = y;
        return;
    }
    sync_pen(rewriter);
    sync_position(rewriter);
    for (int i = 0; i < count; i++) {
        put(rewriter, " ");
    }
    advance(rewriter, count, true);
}

void print_ascii(Rewriter &rewriter, char character)
{
    int x = 0;
    int y = 0;
    bool placed = next_place(rewriter, x, y);
    if (character == ' ' && placed && rewriter.wanted_known && pen_is_plain(rewriter.wanted)) {
        rewriter.blanks++;
        return;
    }
    release_blanks(rewriter);
    sync_pen(rewriter);
    if (rewriter.charset == Charset::RESETTING) {
        rewriter.charset = Charset::RESET;
    }
    placed = placed && next_place(rewriter, x, y);
    if (placed && character != ' ' &&
        cell_at(rewriter, x, y).ch == static_cast<unsigned char>(character)) {
        const tb_cell &cell = cell_at(rewriter, x, y);
        rewriter.pen_cell_known = true;
        rewriter.pen_foreground = cell.fg;
        rewriter.pen_background = cell.bg;
    }
    sync_position(rewriter);
    put(rewriter, {&character, 1});
    advance(rewriter, 1, true);
}

// A byte of a character beyond ASCII.
void print_byte(Rewriter &rewriter, char byte)
{
    release_blanks(rewriter);
    sync_pen(rewriter);
    sync_position(rewriter);
    put(rewriter, {&byte, 1});
    const bool leads = static_cast<unsigned char>(byte) >= 0xc0;
    advance(rewriter, leads ? 2 : 0, false);
}

void pass_unknown(Rewriter &rewriter, std::string_view sequence)
{
    release_blanks(rewriter);
    sync_pen(rewriter);
    sync_position(rewriter);
    put(rewriter, sequence);
    forget(rewriter);
}

void take_attributes(Rewriter &rewriter, std::string_view sequence, std::string_view parameters)
{
    release_blanks(rewriter);
    Pen pen = rewriter.wanted_known ? rewriter.wanted : Pen{};
    // One that does not begin with a reset adds to what is not known.
    const bool absolute = rewriter.wanted_known || parameters.empty() || parameters[0] == '0';
    if (absolute && pen_apply(pen, parameters)) {
        rewriter.wanted = pen;
        rewriter.wanted_known = true;
        return;
    }
    sync_pen(rewriter);
    put(rewriter, sequence);
    rewriter.wanted_known = rewriter.pen_known = rewriter.pen_cell_known = false;
}

bool take_move(Rewriter &rewriter, std::string_view parameters)
{
    int row = 0;
    int column = 0;
    if (!take_number(parameters, row)) {
        return false;
    }
    if (!parameters.empty()) {
        if (parameters[0] != ';') {
            return false;
        }
        parameters.remove_prefix(1);
        if (!take_number(parameters, column) || !parameters.empty()) {
            return false;
        }
    }
    release_blanks(rewriter);
    // Beyond its edge the terminal takes the edge.
    const int x = std::clamp(column - 1, 0, rewriter.width - 1);
    const int y = std::clamp(row - 1, 0, rewriter.height - 1);
    rewriter.moved =
        !rewriter.column_known || !rewriter.row_known || rewriter.x != x || rewriter.y != y;
    rewriter.to_x = x;
    rewriter.to_y = y;
    return true;
}

// Showing and hiding the cursor, in all forms that terminfo has.
bool is_cursor_mode(std::string_view sequence)
{
    constexpr std::string_view modes[] = {"\033[?25h", "\033[?25l", "\033[?12h", "\033[?12l",
                                          "\033[34h",  "\033[34l",  "\033[?0c",  "\033[?1c"};
    return std::find(std::begin(modes), std::end(modes), sequence) != std::end(modes);
}

bool is_between(char byte, int first, int last)
{
    return byte >= first && byte <= last;
}

// The length of the escape sequence that the bytes begin with; all of them when it does not end.
size_t sequence_length(std::string_view bytes)
{
    size_t length = 1;
    if (length < bytes.size() && bytes[length] == '[') {
        length++;
        while (length < bytes.size() && is_between(bytes[length], 0x20, 0x3f)) {
            length++;
        }
    } else {
        while (length < bytes.size() && is_between(bytes[length], 0x20, 0x2f)) {
            length++;
        }
    }
    // A control character begins something else.
    return length < bytes.size() && bytes[length] >= 0x20 ? length + 1 : length;
}

void take_charset(Rewriter &rewriter, std::string_view sequence)
{
    if (rewriter.charset != Charset::RESET) {
        release_blanks(rewriter);
        put(rewriter, sequence);
        rewriter.charset = Charset::RESETTING;
    }
}

void take_sequence(Rewriter &rewriter, std::string_view sequence)
{
    const char last = sequence[sequence.size() - 1];
    const bool is_control =
        sequence.size() > 2 && is_between(last, 0x40, 0x7e) && sequence[1] == '[';
    const std::string_view parameters =
        is_control ? std::string_view(sequence.data() + 2, sequence.size() - 3)
                   : std::string_view();
    if (is_control && last == 'H' && take_move(rewriter, parameters)) {
        return;
    }
    if (is_control && last == 'm') {
        take_attributes(rewriter, sequence, parameters);
    } else if (sequence == "\033(B") {
        take_charset(rewriter, sequence);
    } else if (is_cursor_mode(sequence)) {
        put(rewriter, sequence);
    } else {
        pass_unknown(rewriter, sequence);
    }
}

// Takes what the bytes begin with; returns how many.
size_t take(Rewriter &rewriter, std::string_view bytes)
{
    const char byte = bytes[0];
    if (byte == '\033') {
        const size_t length = sequence_length(bytes);
        take_sequence(rewriter, {bytes.data(), length});
        return length;
    }
    if (byte == '\017') {
        take_charset(rewriter, {&byte, 1});
    } else if (static_cast<unsigned char>(byte) >= 0x80) {
        print_byte(rewriter, byte);
    } else if (is_between(byte, 0x20, 0x7e)) {
        print_ascii(rewriter, byte);
    } else {
        pass_unknown(rewriter, {&byte, 1});
    }
    return 1;
}

void set_margins(Rewriter &rewriter, int top, int bottom)
{
    const bool all = top == 0 && bottom == rewriter.height - 1;
    const bool same = all ? !rewriter.margins
                          : rewriter.margins && rewriter.top == top && rewriter.bottom == bottom;
    if (same && rewriter.margins_certain) {
        return;
    }
    char bytes[sizeof("\033[65535;65535r")] = "\033[";
    size_t length = 2;
    length += put_number(bytes + length, top + 1);
    bytes[length++] = ';';
    length += put_number(bytes + length, bottom + 1);
    bytes[length++] = 'r';
    put(rewriter, all ? MARGINS_OFF : std::string_view(bytes, length));
    rewriter.margins = !all;
    rewriter.margins_certain = true;
    rewriter.top = top;
    rewriter.bottom = bottom;
    set_position(rewriter, 0, 0);
}

} // namespace

void rewriter_start(Rewriter &rewriter, bool (*send)(const char *bytes, size_t count))
{
    rewriter = {};
    rewriter.send = send;
    forget(rewriter);
}

bool rewriter_pass(Rewriter &rewriter, const char *bytes, size_t count)
{
    reset_margins(rewriter);
    flush(rewriter);
    forget(rewriter);
    rewriter.wanted_known = false;
    const bool sent = rewriter.send(bytes, count);
    rewriter.lost = rewriter.lost || !sent;
    return sent;
}

void rewriter_begin(Rewriter &rewriter, const tb_cell *cells, int width, int height,
                    bool cursor_shown)
{
    rewriter.cells = cells;
    rewriter.width = width;
    rewriter.height = height;
    rewriter.cursor_shown = cursor_shown;
    rewriter.erased_y = -1;
    if (rewriter.lost) {
        forget(rewriter);
        rewriter.margins = true; // as far as is known
        reset_margins(rewriter);
    }
    rewriter.lost = rewriter.forgotten = false;
}

bool rewriter_scroll(Rewriter &rewriter, int top, int bottom, int lines)
{
    if (!rewriter.wanted_known || (!rewriter.moved && !rewriter.left_known)) {
        return false;
    }
    const int back_x = rewriter.moved ? rewriter.to_x : rewriter.left_x;
    const int back_y = rewriter.moved ? rewriter.to_y : rewriter.left_y;
    if (!rewriter.pen_known || !pen_is_plain(rewriter.pen)) {
        change_pen(rewriter, {}); // new rows take its background
    }
    set_margins(rewriter, top, bottom);
    rewriter.moved = !rewriter.row_known || rewriter.y != (lines > 0 ? bottom : top);
    rewriter.to_x = rewriter.column_known ? rewriter.x : 0;
    rewriter.to_y = lines > 0 ? bottom : top;
    sync_position(rewriter);
    for (int i = 0; i < (lines > 0 ? lines : -lines); i++) {
        put(rewriter, lines > 0 ? "\n" : "\033M");
    }
    rewriter.moved = true;
    rewriter.to_x = back_x;
    rewriter.to_y = back_y;
    return true;
}

bool rewriter_write(Rewriter &rewriter, const char *bytes, size_t count)
{
    std::string_view left = {bytes, count};
    while (!left.empty()) {
        left.remove_prefix(take(rewriter, left));
    }
    release_blanks(rewriter);
    if (rewriter.cursor_shown) {
        sync_position(rewriter);
    }
    flush(rewriter);
    return !rewriter.lost;
}

bool rewriter_end(Rewriter &rewriter, int cursor_x, int cursor_y)
{
    if (rewriter.cursor_shown) {
        sync_position(rewriter);
        rewriter.left_x = std::clamp(cursor_x, 0, rewriter.width - 1);
        rewriter.left_y = std::clamp(cursor_y, 0, rewriter.height - 1);
        rewriter.left_known = true;
    } else {
        rewriter.left_x = rewriter.x;
        rewriter.left_y = rewriter.y;
        rewriter.left_known = rewriter.column_known && rewriter.row_known;
    }
    flush(rewriter);
    rewriter.cells = nullptr;
    return !rewriter.lost;
}
