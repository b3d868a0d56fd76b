#include "tui/output/rewriter.h"

#include <algorithm>

#include "text/digits.h"
#include "tui/output/terminal.h"

namespace {

void pass_unknown(Rewriter &rewriter, std::string_view sequence)
{
    terminal_release_blanks(rewriter);
    terminal_sync_pen(rewriter);
    terminal_sync_position(rewriter);
    terminal_put(rewriter, sequence);
    terminal_forget(rewriter);
}

void take_attributes(Rewriter &rewriter, std::string_view sequence, std::string_view parameters)
{
    terminal_release_blanks(rewriter);
    Pen pen = rewriter.wanted_known ? rewriter.wanted : Pen{};
    // Without a reset at its beginning the sequence only changes attributes that are not known.
    const bool absolute = rewriter.wanted_known || parameters.empty() || parameters[0] == '0';
    if (absolute && pen_apply(pen, parameters)) {
        rewriter.wanted = pen;
        rewriter.wanted_known = true;
        return;
    }
    terminal_sync_pen(rewriter);
    terminal_put(rewriter, sequence);
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
    terminal_release_blanks(rewriter);
    // The terminal takes a place beyond its edge for the edge.
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
    // A control character is not its last byte: it begins something else.
    return length < bytes.size() && bytes[length] >= 0x20 ? length + 1 : length;
}

void take_charset(Rewriter &rewriter, std::string_view sequence)
{
    if (rewriter.charset != Charset::RESET) {
        terminal_release_blanks(rewriter);
        terminal_put(rewriter, sequence);
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
        terminal_put(rewriter, sequence);
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
        terminal_print_byte(rewriter, byte);
    } else if (is_between(byte, 0x20, 0x7e)) {
        terminal_print(rewriter, byte);
    } else {
        pass_unknown(rewriter, {&byte, 1});
    }
    return 1;
}

} // namespace

void rewriter_start(Rewriter &rewriter, bool (*send)(const char *bytes, size_t count))
{
    rewriter = {};
    rewriter.send = send;
    terminal_forget(rewriter);
}

bool rewriter_pass(Rewriter &rewriter, const char *bytes, size_t count)
{
    terminal_take_margins_off(rewriter);
    terminal_flush(rewriter);
    terminal_forget(rewriter);
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
        terminal_forget(rewriter);
        rewriter.margins = true; // there may be some
        terminal_take_margins_off(rewriter);
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
        terminal_change_pen(rewriter, {}); // rows laid bare take its background
    }
    terminal_set_margins(rewriter, top, bottom);
    rewriter.moved = !rewriter.row_known || rewriter.y != (lines > 0 ? bottom : top);
    rewriter.to_x = rewriter.column_known ? rewriter.x : 0;
    rewriter.to_y = lines > 0 ? bottom : top;
    terminal_sync_position(rewriter);
    for (int i = 0; i < (lines > 0 ? lines : -lines); i++) {
        terminal_put(rewriter, lines > 0 ? "\n" : "\033M");
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
    terminal_release_blanks(rewriter);
    if (rewriter.cursor_shown) {
        terminal_sync_position(rewriter);
    }
    terminal_flush(rewriter);
    return !rewriter.lost;
}

bool rewriter_end(Rewriter &rewriter, int cursor_x, int cursor_y)
{
    if (rewriter.cursor_shown) {
        terminal_sync_position(rewriter);
        rewriter.left_x = std::clamp(cursor_x, 0, rewriter.width - 1);
        rewriter.left_y = std::clamp(cursor_y, 0, rewriter.height - 1);
        rewriter.left_known = true;
    } else {
        rewriter.left_x = rewriter.x;
        rewriter.left_y = rewriter.y;
        rewriter.left_known = rewriter.column_known && rewriter.row_known;
    }
    terminal_flush(rewriter);
    rewriter.cells = nullptr;
    return !rewriter.lost;
}
