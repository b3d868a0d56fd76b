#include "tui/guard/text.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "text/printable.h"
#include "tui/guard/character.h"
#include "tui/guard/gather.h"
#include "tui/guard/scan.h"
#include "tui/guard/sequence.h"

namespace {

unsigned char byte_at(const char *bytes)
{
    return static_cast<unsigned char>(*bytes);
}

void keep_mark(Guard &guard, std::string_view mark)
{
    guard.marks++;
    if (guard.glyph_length > 0 && guard.glyph_length + mark.size() <= sizeof guard.glyph) {
        memcpy(guard.glyph + guard.glyph_length, mark.data(), mark.size());
        guard.glyph_length = static_cast<uint8_t>(guard.glyph_length + mark.size());
    }
}

void note_printed(GuardWalk &walk, const char *glyph)
{
    walk.glyph = glyph;
    walk.guard.marks = 0;
    walk.guard.joins = true;
}

// Has one character shown in place of the next bytes.
void print_instead(GuardWalk &walk, size_t length, std::string_view character)
{
    guard_leave_out(walk, length);
    const int column = guard_cursor(walk.vt).col;
    guard_send_bytes(walk.vt, character);
    note_printed(walk, character.data());
    walk.guard.at_margin = guard_cursor(walk.vt).col == column;
    walk.guard.glyph_length = static_cast<uint8_t>(character.size());
    memcpy(walk.guard.glyph, character.data(), character.size());
    walk.glyph = nullptr;
}

// libvterm looks for a mark's character on the left of the cursor, where it is not when it stands
// in the last column: it is printed there once more, with its marks. Behind ASCII libvterm ends its
// text in front of a mark, unless the text begins with another one.
void join_at_margin(const Guard &guard, VTerm *vt)
{
    char text[32 + sizeof guard.glyph];
    const bool ascii = static_cast<unsigned char>(guard.glyph[0]) < 0x80;
    if (ascii && guard.designated != 0) {
        return; // the letter may be shown as a line
    }
    const int length = snprintf(text, sizeof text, "\x1b[%dG%s%.*s", guard_cursor(vt).col + 1,
                                ascii ? "\u0301" : "", guard.glyph_length, guard.glyph);
    guard_send_bytes(vt, {text, static_cast<size_t>(length)});
}

// A mark without a character before it would take the place of one.
void pass_mark(GuardWalk &walk, size_t length)
{
    Guard &guard = walk.guard;
    guard_send(walk);
    guard_keep_glyph(walk);
    if (guard.joins && guard.glyph_length > 0) {
        keep_mark(guard, {walk.at, length});
        if (guard.at_margin) {
            join_at_margin(guard, walk.vt);
        } else {
            guard_send_bytes(walk.vt, {walk.at, length});
        }
    }
    guard_leave_out(walk, length);
}

bool is_printed(const char *at)
{
    return byte_at(at) >= 0x20 && *at != 0x7f;
}

void pass_common_characters(GuardWalk &walk)
{
    const char *at = walk.at;
    const char *end = at + std::min(walk.end - at, GUARD_SEND_SIZE);
    const char *last = nullptr;
    while (end - at >= 3) {
        const int length = guard_common_length(at);
        if (length == 0) {
            break;
        }
        last = at;
        at += length;
    }
    if (last) {
        walk.at = at;
        note_printed(walk, last);
    }
}

// One character of more than one byte, or bytes that are none: one U+FFFD for all that belong
// together.
void pass_character(GuardWalk &walk)
{
    const std::string_view bytes(walk.at, static_cast<size_t>(walk.end - walk.at));
    const Character character = decode_character(bytes);
    if (character.cut) {
        guard_leave_out(walk, bytes.size());
        guard_keep_glyph(walk);
        guard_keep_tail(walk.guard, bytes);
        return;
    }
    if (!character.valid) {
        print_instead(walk, character.span, "\xef\xbf\xbd");
        return;
    }
    char stand_in[4];
    switch (guard_judge_character(character.code_point, walk.guard.marks)) {
    case GuardVerdict::PASS:
        note_printed(walk, walk.at);
        walk.at += character.length;
        break;
    case GuardVerdict::MARK:
        pass_mark(walk, character.length);
        break;
    case GuardVerdict::STAND_IN:
        memcpy(stand_in, walk.at, sizeof stand_in);
        stand_in[1] |= 0x20; // 0x20000 more
        print_instead(walk, sizeof stand_in, {stand_in, sizeof stand_in});
        break;
    case GuardVerdict::UNKNOWN:
        print_instead(walk, character.length, "\U0003fffd");
        break;
    case GuardVerdict::DROP:
        guard_leave_out(walk, character.length);
        break;
    }
}

} // namespace

void guard_pass_plain(GuardWalk &walk)
{
    const char *begin = walk.at;
    if (walk.guard.designated != 0 && begin > walk.unsent && byte_at(begin - 1) >= 0x80) {
        guard_send(walk); // libvterm would take letters behind UTF-8 for UTF-8, too
    }
    // Dense colours: a single character between two sequences.
    if (walk.end - begin >= 2 && begin[1] == GUARD_ESCAPE && is_printed(begin)) {
        walk.at++;
        note_printed(walk, begin);
        return;
    }
    const char *end = guard_skip<guard_mark_not_plain>(
        begin, begin + std::min(walk.end - begin, GUARD_SEND_SIZE));
    if (guard_gather(walk, end)) {
        return;
    }
    walk.at = end;
    for (const char *last = walk.at; last > begin; last--) {
        if (is_printed(last - 1)) {
            note_printed(walk, last - 1);
            break;
        }
    }
    walk.guard.joins = walk.guard.joins && is_printed(walk.at - 1);
}

void guard_pass_characters(GuardWalk &walk)
{
    const char *begin = walk.at;
    pass_common_characters(walk);
    if (walk.at == begin) {
        pass_character(walk);
    }
}
