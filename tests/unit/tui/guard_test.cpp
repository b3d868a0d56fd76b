#include "tui/guard/guard.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "support/screen.h"
#include "support/text.h"
#include "text/printable.h"
#include "tui/guard/character.h"
#include "tui/guard/piece.h"
#include "tui/scrollback.h"

namespace {

using std::string;
using std::string_view;
using support::Picture;
using support::Screen;
using support::utf8;
using namespace std::string_literals;

struct Emulator {
    Guard guard = {};
    VTerm *vt;
    Screen screen;
    list_head saved = {&saved, &saved};
    int32_t saved_count = 0;
    int titles = 0;

    explicit Emulator(int rows = 6, int cols = 20);
    ~Emulator()
    {
        scrollback_free(saved, saved_count);
        EXPECT_EQ(saved_count, 0);
    }
    Emulator(const Emulator &) = delete;
    Emulator &operator=(const Emulator &) = delete;

    Emulator &write(string_view bytes)
    {
        // Of exactly this size, so that the sanitizer sees a read beyond it.
        const std::vector<char> exact(bytes.begin(), bytes.end());
        guard_write(guard, vt, exact.data(), exact.size());
        return *this;
    }

    Emulator &write_bytewise(string_view bytes)
    {
        for (const char &byte : bytes) {
            write({&byte, 1});
        }
        return *this;
    }

    Emulator &write_unguarded(string_view bytes)
    {
        vterm_input_write(vt, bytes.data(), bytes.size());
        return *this;
    }

    Emulator &resize(int rows, int cols)
    {
        guard_set_size(guard, vt, rows, cols);
        return *this;
    }

    string cursor() const
    {
        return std::to_string(screen.cursor_row()) + "," + std::to_string(screen.cursor_column());
    }

    string size() const
    {
        return std::to_string(screen.rows()) + "x" + std::to_string(screen.columns());
    }

    // As libvterm has it.
    VTermScreenCell raw_cell(int row, int col) const
    {
        VTermScreenCell cell = {};
        (void)vterm_screen_get_cell(vterm_obtain_screen(vt), {row, col}, &cell);
        return cell;
    }

    // The rows without the blanks at their ends, separated by "|"; empty rows at the end left out.
    string text() const
    {
        string all = screen.text();
        std::replace(all.begin(), all.end(), '\n', '|');
        all.erase(all.find_last_not_of('|') + 1);
        return all;
    }
};

void expect_same(const Emulator &expected, const Emulator &actual)
{
    const Picture wanted = expected.screen.picture();
    const Picture shown = actual.screen.picture();
    ASSERT_TRUE(wanted == shown) << support::compare(wanted, shown);
    ASSERT_EQ(expected.titles, actual.titles);
}

int on_push_line(int cols, const VTermScreenCell *cells, void *user)
{
    auto &emulator = *static_cast<Emulator *>(user);
    return scrollback_push(emulator.saved, emulator.saved_count, cols, cells);
}

int on_pop_line(int cols, VTermScreenCell *cells, void *user)
{
    auto &emulator = *static_cast<Emulator *>(user);
    return scrollback_pop(emulator.saved, emulator.saved_count, cols, cells);
}

int on_property(VTermProp property, VTermValue *value, void *user)
{
    auto &emulator = *static_cast<Emulator *>(user);
    emulator.titles += property == VTERM_PROP_TITLE;
    if (property == VTERM_PROP_CURSORVISIBLE) {
        emulator.screen.cursor_visible = value->boolean;
    }
    return 1;
}

int on_cursor(VTermPos position, VTermPos, int, void *user)
{
    guard_note_cursor(static_cast<Emulator *>(user)->guard, position.row);
    return 1;
}

constexpr VTermScreenCallbacks CALLBACKS = {.movecursor = on_cursor,
                                            .settermprop = on_property,
                                            .sb_pushline = on_push_line,
                                            .sb_popline = on_pop_line};

Emulator::Emulator(int rows, int cols) : vt(guard_new_vterm(rows, cols)), screen(vt)
{
    guard.callbacks = &CALLBACKS;
    vterm_screen_set_callbacks(vterm_obtain_screen(vt), &CALLBACKS, this);
}

string many(int count, string_view text)
{
    string all;
    for (int i = 0; i < count; i++) {
        all += text;
    }
    return all;
}

// libvterm takes four bytes of stack for each byte that comes after the one it looks at.
TEST(Guard, CutsLongChunks)
{
    EXPECT_EQ(Emulator().write("x" + string(4 << 20, '\0')).text(), "x");
    const string wide = "漢\033[H";
    EXPECT_EQ(Emulator(1, 2).write(many(1 << 19, wide)).text(), "漢");
    EXPECT_EQ(Emulator(1, 2).write(many(1 << 20, "x\033[31m") + "\r\nyz").text(), "yz");
    // Minutes, if what comes behind each return were looked at up to the end.
    EXPECT_EQ(Emulator().write(many(1 << 18, "x\r\033[m")).text(), "x");
    EXPECT_EQ(
        Emulator(1, 2).write(many(1 << 10, "\033]0;" + string(4000, 't') + "\a") + "x").text(),
        "x");
}

// On the largest screen sixteen control bytes may each have libvterm go over all of it.
TEST(Guard, KeepsPiecesShort)
{
    const string line = "\n" + string(100, 'x');
    const struct {
        string bytes;
        int length;
    } rows[] = {{string(20000, 'x'), 16384}, // which may fill each row 32 times
                {many(17, line), 1616},
                {many(12, line) + many(20, "\033[2J"), 1212 + 4 * 4},
                {many(17, "\r" + line), 1632 + 1},
                {many(17, "a\033[0;31;44mb\033[24;80H"), 17 * 20}, // these take no time
                {many(17, "\033[512;1024H") + "xxxxxxxxxx", 16 * 11},
                {"\033[3;7r" + many(17, "\033[7H"), 6 + 15 * 4},
                {"\033[3\n;7r" + many(17, "\033[7H"), 7 + 14 * 4},
                {many(17, "\033[31m \033[3M") + "          ", 16 * 10 + 6},
                {many(4, "\n\033#8"), 3 * 4}, // as long as five others
                {many(17, "\033[31"), 16 * 4},
                {"\033", 1}};
    Emulator emulator(GUARD_MAX_ROWS, GUARD_MAX_COLS);
    for (const auto &row : rows) {
        const std::vector<char> exact(row.bytes.begin(), row.bytes.end());
        const auto length = static_cast<int32_t>(exact.size());
        EXPECT_EQ(row.length, guard_piece_length(emulator.guard, emulator.vt, exact.data(), length))
            << testing::PrintToString(row.bytes);
    }
}

// Whatever the bytes and wherever they are cut: the screen is the one that the emulator alone makes
// of them when they come in one piece.
TEST(Guard, LeavesLegitimateOutputAlone)
{
    const string rows[] = {
        "plain text\r\nand\ta tab\b\b\a!\013\014",
        "\033[1;4mX\033[m\033[31;7mY\033[38;5;208mZ\033[38:2::1:2:3mQ\033[0m",
        "\033[38;2;255;128;0;48;2;10;20;30;1;3;4;7;9mlong\033[m",
        "\033[3;5Hx\033[A\033[2Cy\033[Gz\033[5dw\033[1;1fh\033[E1\033[2F2",
        "one\r\ntwo\r\nthree\033[H\033[L\033[2;2H\033[P\033[@\033[X\033[3;1H\033[M\033[K",
        "\033[2;4r\033[4;1Ha\nb\nc\033M\033[2;1H\033M\033[S\033[T\033[r",
        "\033[?6h\033[2;5r\033[1;1Ho\033[?6l\033[1;1Hp",
        "\033[?69h\033[3;9s\033[2;3Hmargin\033[2'}\033['~\033[?69l",
        "\033[5;5Hsave\0337\033[7m\033[H\0338there\033[?1048h\033[H\033[?1048l.",
        "main\033[?1049h\033[H\033[2Jalternate\033[?1049l back",
        "\033(0lqqk\033(B box \033)0\016qx\017qx\033*A\033N#\033+0\033Oq",
        "\033[?25lhidden\033[?25h\033[?5h\033[?5l\033[2 q\033[1\"qp\033[0\"qu\033[?2J",
        "\033]0;a title\a\033]2;another; é\033\\\033]52;c;aGk=\atext",
        "ab\033Pq#0;2;0;0;0#0~~@@vv\033\\cd\033P$qm\033\\ef",
        "\033[12\r\n;3\bHin\033[1\030X\033[1\032Y\033[3\033[4mZ\033\033[mW",
        "\033[1;\1770mnul\033[\0001md"s,
        "\033=\033>\033#8\033#6wide\033#5\033D\033E\033H\033[g\033[3g\033[c\033[6n",
        "\033[4hins\r12\033[4l\033[20h\nlf\033[20l\033[?7l" + many(30, "w") + "\033[?7h",
        "\033[?2004h\033[?1000h\033[?1006h\033[>c\033[?25$p\033[!p\033[5i\033[22;0;0t",
        "reset\033[1mme\033cdone",
        "éß Ж ─€ 😀�",
        "漢字か가 Ａ" + many(12, "漢"),
        "e\u0301 o\033(B\u0308\u0323 ก\u0e34\u0e48x",
        many(45, "scroll\r\n"),
        many(3, "a line that is longer than the screen is wide\r\n"),
    };
    for (const string &bytes : rows) {
        SCOPED_TRACE(testing::PrintToString(bytes));
        Emulator expected;
        expected.write_unguarded(bytes);
        for (size_t cut = 0; cut < bytes.size(); cut++) {
            const string_view all = bytes;
            Emulator cut_once;
            cut_once.write(all.substr(0, cut)).write(all.substr(cut));
            SCOPED_TRACE("cut at " + std::to_string(cut));
            expect_same(expected, cut_once);
        }
        expect_same(expected, Emulator().write_bytewise(bytes));
    }
}

struct Case {
    string bytes;
    string text;
    string cursor;
};

// Each row whole and byte by byte.
void expect_screens(const std::vector<Case> &rows)
{
    for (const Case &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.bytes));
        Emulator whole;
        whole.write(row.bytes);
        EXPECT_EQ(whole.text(), row.text);
        EXPECT_EQ(whole.cursor(), row.cursor);
        expect_same(whole, Emulator().write_bytewise(row.bytes));
    }
}

TEST(Guard, DropsControlSequencesWithTooManyArguments)
{
    expect_screens({
        {"\033[" + many(15, ";") + "mok", "ok", "0,2"},
        {"\033[" + many(16, ";") + "mok", "ok", "0,2"},
        {"\033[" + many(16, ":") + "3Jok", "ok", "0,2"},
        {"a\033[" + many(400, "1;") + "1Hb", "ab", "0,2"},
        {"a\033[" + many(200, ";") + "\r\n" + many(200, "7;") + "1Hb", "a|b", "1,1"},
        // The 8-bit introducer is no UTF-8, and as U+009B it prints nothing.
        {"\x9b;;m", "�;;m", "0,4"},
        {"\xc2\x9b;;m", ";;m", "0,3"},
    });
}

TEST(Guard, KeepsTheFirstNumbersOfManyAttributes)
{
    const string fifteen = many(14, "0;") + "4";
    const std::pair<string, string> rows[] = {
        {fifteen + ";1;7", "bold underline "},
        {fifteen + ";1:7;7", "bold underline "},
        {fifteen + ";1" + many(300, ";0;7"), "bold underline "},
        {fifteen + ";38;5;7", "underline "},
        {fifteen + ";38", "underline "},
        {"7;1;" + many(13, "4;") + "7;0", "bold underline reverse "},
    };
    for (const auto &[numbers, attributes] : rows) {
        SCOPED_TRACE(numbers);
        const string bytes = "\033[" + numbers + "mx";
        Emulator whole;
        whole.write(bytes);
        const support::Cell cell = whole.screen.cell(0, 0);
        EXPECT_EQ(attributes, string(cell.bold ? "bold " : "") +
                                  (cell.underline ? "underline " : "") +
                                  (cell.reverse ? "reverse " : ""));
        EXPECT_EQ(cell.text, "x");
        expect_same(whole, Emulator().write_bytewise(bytes));
    }
}

// Sequences that libvterm does not know, or takes for others.
TEST(Guard, TranslatesSequences)
{
    expect_screens({
        {"ab\033[s\033[3;3Hx\033[uy", "aby||  x", "0,3"},
        {"\033[?69h\033[3;9s\033[s\033[?69lab\033[1;2s\033[mx", "xb", "0,1"},
        {"main\033[?47hother\033[?47lx", "main     x", "0,10"},
        {"main\033[?5;47hother", "    other", "0,9"},
        {"main\033[?1049h\033c\033[?1049lx", "    x", "0,5"},
    });
    EXPECT_TRUE(Emulator().write("\033[?25l\033[?12;25h").screen.cursor_visible);
    EXPECT_FALSE(Emulator().write("\033[?12:3;;25;l").screen.cursor_visible);
}

TEST(Guard, KnowsTheModesOfTheKeys)
{
    const struct {
        const char *bytes;
        const char *modes;
    } rows[] = {
        {"", ""},
        {"\033[?1h", "cursor "},
        {"\033=", "keypad "},
        {"\033[?66h", "keypad "},
        {"\033[?2004h", "paste "},
        {"\033[?1;66;2004h", "cursor keypad paste "},
        {"\033[?1;2004h\033[?25;1l", "paste "},
        {"\033[?1h\033=\033[?1l\033>", ""},
        {"\033[?66h\033>", ""},
        {"\033[1h\033[?1$h\033[?10h\033[?h", ""},
        {"\033[?1h\033=\033[?2004h\033c", ""},
        {"\033[?1h\033=\033[?2004h\033[!p", ""},
        {"\033[?1000;1002;1003h", ""},
    };
    for (const auto &row : rows) {
        Emulator whole, bytewise;
        whole.write(row.bytes);
        bytewise.write_bytewise(row.bytes);
        for (const KeyModes &modes : {whole.guard.modes, bytewise.guard.modes}) {
            EXPECT_EQ(string(modes.cursor_keys ? "cursor " : "") + (modes.keypad ? "keypad " : "") +
                          (modes.paste ? "paste " : ""),
                      row.modes)
                << row.bytes + 1;
        }
    }
}

TEST(Guard, TakesMalformedSequencesWhole)
{
    expect_screens({
        {"a\033[1<2mb", "ab", "0,2"},
        {"a\033[1 2mb", "ab", "0,2"},
        {"a\033[??25hb", "ab", "0,2"},
        {"a\033[1;éb", "aéb", "0,3"},
        {"a\033éb", "aéb", "0,3"},
        {"a\033[" + many(600, " ") + "qb", "ab", "0,2"},
        {"a\033" + many(600, "(") + "Bb", "ab", "0,2"},
        // The parser would take these for introducers.
        {"a-\033-[5bb", "a-5bb", "0,5"},
        {"a\033([" + many(40, ";") + "b", "a" + many(19, ";") + "|" + many(20, ";") + "|;b", "2,2"},
        {"a\033]]0;x\033 )]b\033 (Pc", "abc", "0,3"},
        // Too large for the parser's and the cursor's arithmetic, but numbers all the same.
        {"\033[99999999999999999999;99999999999999999999Hx", "|||||" + many(19, " ") + "x", "5,19"},
        {"\033[2147483647Bx\033[2147483647A\033[2147483648D\033[4294967295Xy", "y|||||x", "0,1"},
        {"\033[000000000000000003;00000000000007Hx", "||      x", "2,7"},
    });
}

TEST(Guard, SwallowsStringsThatDrawNothing)
{
    expect_screens({
        {"a\033_ an application's\033\\b", "ab", "0,2"},
        {"a\033^private\033\\b\033Xstart of\033\\c", "abc", "0,3"},
        {"a\033P" + many(3000, "1") + "\033\\b", "ab", "0,2"},
        {"a\033]0;" + many(800, "title") + "\ab", "ab", "0,2"},
        {"a\033]0;never ended\030b", "ab", "0,2"},
        {"a\033]0;never ended\033[1;5Hb", "a   b", "0,5"},
        {"a\033]0;lines\r\ngo on\ab", "a|go onb", "1,6"},
        {"a\033]0;x\033\a\033\\b", "ab", "0,2"},
    });
    for (const string introducer : {"_", "^", "X", "P", "]"}) { // as noise prints them
        expect_screens({
            {"a\033" + introducer + "noise\nb", "a| b", "1,2"},
            {"a\033" + introducer + many(4096, "x") + "b", "ab", "0,2"},
            {"a\033" + introducer + many(100, "\xfc\t") + "\032b", "a" + many(18, " ") + "b",
             "0,19"},
        });
    }
    EXPECT_EQ(Emulator().write("\033]0;ti").resize(5, 5).write("tle\a").titles, 1);
    EXPECT_EQ(Emulator().write("\033]0;" + many(3000, "t") + "\a").titles, 0);
    EXPECT_EQ(Emulator().write("\033]0;title\nx\a").titles, 0);
}

TEST(Guard, RepeatsTheLastCharacter)
{
    expect_screens({
        {"\033[5bx", "x", "0,1"},
        {"\r\n\033[5b\033[mx", "|x", "1,1"},
        {"-\033[4bx", "-----x", "0,6"},
        {"-\033[bx", "--x", "0,3"},
        {"-\033[0bx", "--x", "0,3"},
        {"-\033[H1x\033[2;9b", "1xxx", "0,4"},
        {"ab\r\n\033[1m\033[2bx", "ab|bbx", "1,3"},
        {"-\033[?3b\033[3 bx", "-x", "0,2"},
        {"\033(0q\033[2b\033(B", "───", "0,3"},
        {"─\033[2b", "───", "0,3"},
        {"漢\033[2b", "漢漢漢", "0,6"},
        {"e\u0301\033[2b", "e\u0301e\u0301e\u0301", "0,3"},
        {"\xff\033[2b", "���", "0,3"},
        // A mark alone has no width to move on by.
        {"\u0301\033[5b\rx", "x", "0,1"},
        // To the next line as if typed, and never more than a line's worth.
        {"\033[1;19H-\033[3b", many(18, " ") + "--|--", "1,2"},
        {"-\033[999999999b", many(20, "-") + "|-", "1,1"},
    });
}

TEST(Guard, ShowsUtf8WhereverItIsCut)
{
    const string bad = "�";
    expect_screens({
        {"\xe2\x94x", bad + "x", "0,2"},
        {"\xf0\x9f\x98\033[1mx", bad + "x", "0,2"},
        {"\xc3\r\né", bad + "|é", "1,1"},
        {"\xc3é", bad + "é", "0,2"},
        {"\x80\xbf\xfe\xff", bad + bad + bad + bad, "0,4"},
        // Overlong, surrogates, beyond Unicode and longer than Unicode needs: one each.
        {"\xc0\x80.\xe0\x82\x80.\xf0\x8c\x80\x80.", bad + "." + bad + "." + bad + ".", "0,6"},
        {"\xed\xa0\x80.\xf4\x90\x80\x80.\xf8\x88\x80\x80\x80.\xfc\x84\x80\x80\x80\x80.",
         bad + "." + bad + "." + bad + "." + bad + ".", "0,8"},
        // Controls of the second set, which would go off the screen on the left.
        {"\xc2\x80\xc2\x85\xc2\x9f\033[K\033[J\033H\tx", "        x", "0,9"},
    });
    // Whatever comes in one piece with what.
    const string last = "e\u0301";
    expect_screens({
        {many(19, "x") + last + "y", many(19, "x") + last + "|y", "1,1"},
        {many(19, "x") + last + "\u0323\033[m\u0308y", many(19, "x") + last + "\u0323\u0308|y",
         "1,1"},
        {many(19, "x") + "é\u0323y", many(19, "x") + "é\u0323|y", "1,1"},
        {many(18, "x") + "漢\u0323y", many(18, "x") + "漢\u0323|y", "1,1"},
        {many(18, "x") + last + "y", many(18, "x") + last + "y", "0,19"},
        {"\033[6;1H" + many(19, "x") + last + "y", "||||" + many(19, "x") + last + "|y", "5,1"},
        {"\033[6;1Ha\r\nb\r\nc\r\u0301\n" + many(19, "x") + last + "y",
         "|a|b|c|" + many(19, "x") + last + "|y", "5,1"},
        {"\033[?7l" + many(30, "x") + last, many(19, "x") + last, "0,19"},
        {"abc\r\u0301\033[2C\u0301", "abc", "0,2"},
        {"\033(0éqqé\033[mq─q\033(Bq", "é──é───q", "0,8"},
        {"\033)0é\016éq\017q", "éé─q", "0,4"},
        {"a\u061c\u200e\u200f\u202a\u202e\u2066\u2069b", "ab", "0,2"},
    });
    // What is missing is neither shown nor lost when the terminal is resized in between.
    EXPECT_EQ(Emulator().write("a\xe2\x94").text(), "a");
    EXPECT_EQ(Emulator().write("a\xe2\x94").resize(4, 10).write("\x80").text(), "a─");
}

TEST(Guard, BoundsTheMarksOfACharacter)
{
    const string voiced = "か" + many(12, "\u3099");
    EXPECT_EQ(Emulator().resize(1, 2).write(voiced).text(), "か");
    EXPECT_EQ(Emulator().write(voiced + "x").cursor(), "0,3");
    const string mark = "\u0301";
    EXPECT_EQ(Emulator().write("e" + many(1000, mark + "\a")).text(), "e" + mark);
    for (const int chunk : {1, 2, 7, 4096}) {
        Emulator emulator;
        const string marks = "e" + many(5000, mark);
        for (size_t at = 0; at < marks.size(); at += static_cast<size_t>(chunk)) {
            emulator.write(marks.substr(at, static_cast<size_t>(chunk)));
        }
        EXPECT_EQ(emulator.text(), "e" + many(GUARD_MAX_MARKS, mark));
        emulator.write("\033[2bo" + mark);
        EXPECT_EQ(emulator.text(), many(3, "e" + many(GUARD_MAX_MARKS, mark)) + "o" + mark);
    }
}

// Every character that the emulator merges with the one before it must be known for one, and be
// dropped when it would make that one wider.
TEST(Guard, KnowsTheEmulatorsMarks)
{
    Emulator emulator;
    for (uint32_t code_point = 0xa0; code_point < 0xe0200; code_point++) {
        if (code_point == 0xd800) {
            code_point = 0xe000; // past the surrogates
        } else if (code_point == 0x30000) {
            code_point = 0xe0000; // past the planes that hold nothing
        }
        const string character = utf8(code_point);
        emulator.write_unguarded("\ré" + character);
        const bool merged = emulator.raw_cell(0, 0).chars[1] == code_point;
        const bool widens = merged && emulator.cursor() != "0,1";
        ASSERT_EQ(guard_judge_character(code_point, 0),
                  widens || is_direction_control(code_point) ? GuardVerdict::DROP
                  : merged                                   ? GuardVerdict::MARK
                  : is_newer_wide(code_point)                ? GuardVerdict::STAND_IN
                                                             : GuardVerdict::PASS)
            << std::hex << code_point;
    }
}

// Emoji that the emulator would take for narrow, by characters that it takes for wide.
TEST(Guard, GivesNewerWideCharactersTwoColumns)
{
    int count = 0;
    for (uint32_t code_point = 0x10000; code_point < 0x20000; code_point++) {
        if (!is_newer_wide(code_point)) {
            continue;
        }
        count++;
        const string character = utf8(code_point);
        Emulator emulator(2, 4);
        emulator.write(character + "x\r\033[3C" + character); // the second goes to the next line
        ASSERT_EQ(emulator.cursor(), "1,2") << std::hex << code_point;
        ASSERT_EQ(guard_real_character(emulator.raw_cell(0, 0).chars[0]), code_point);
        ASSERT_EQ(guard_real_character(code_point), code_point);
    }
    EXPECT_EQ(count, 1516);
    const string green = "\U0003f7e2";
    expect_screens({
        {"🟢x", green + "x", "0,3"},
        {"🟢\033[2b", green + green + green, "0,6"},
        {"🟢\u0301", green + "\u0301", "0,2"},
        {many(18, "x") + "🟢\u0301y", many(18, "x") + green + "\u0301|y", "1,1"},
        {many(19, "x") + "🟢", many(19, "x") + "|" + green, "1,2"},
        {"\U00020000\U00030000\U0003134a", "\U00020000\U00030000\U0003134a", "0,6"},
        {green, "\U0003fffd", "0,2"}, // nothing is assigned there
    });
}

TEST(Guard, KeepsSizesWithinLimits)
{
    const struct {
        int rows, cols;
        const char *size;
    } rows[] = {{24, 80, "24x80"},
                {1, 1, "1x2"},
                {0, 0, "1x2"},
                {-1, -7, "1x2"},
                {1, 200, "1x200"},
                {200, 1, "200x2"},
                {65535, 65535, "512x1024"},
                {INT32_MIN, INT32_MAX, "1x1024"}};
    const string wide = many(5, "漢");
    for (const auto &row : rows) {
        SCOPED_TRACE(row.size);
        EXPECT_EQ(Emulator(row.rows, row.cols).write(wide).size(), row.size);
        EXPECT_EQ(Emulator().resize(row.rows, row.cols).write(wide).size(), row.size);
    }
}

TEST(Guard, ShrinksSafely)
{
    const string full = many(23, "line\r\n") + "last";
    const struct {
        const char *name;
        string before;
        string after;
        string text;
        string cursor;
    } rows[] = {
        {"region below the new size", "\033[15;23r\033[23;1H", "\n\n\033M\033[Lx", "||||||||x",
         "8,1"},
        {"region and cursor kept", "\033[15;23r\033[3;4H", "x", "||   x", "2,4"},
        {"side margins beyond the new size", "\033[?69h\033[50;60s\033[2;3H", "x\n\033[@y",
         "|  x|   y", "2,4"},
        {"origin mode", "\033[?6h\033[15;23r\033[23;5H", "x\033[1;1Hy", "y|||||||||    x", "0,1"},
        {"full screen, cursor at its top", full + "\033[H", "x\033[K",
         "x" + many(8, "|line") + "|last", "0,1"},
        {"full screen, cursor at its end", full, "x", many(9, "line|") + "lastx", "9,5"},
        {"saved cursor beyond the new size", "\033[23;70H\0337\033[H", "\0338xy\n",
         many(7, "|") + many(19, " ") + "x|y", "9,1"},
        {"saved with the alternate screen", "\033[23;70H\033[?1049h\033[2J\033[H", "\033[?1049lx",
         many(9, "|") + many(19, " ") + "x", "9,19"},
        {"within a sequence", "ab\033[1", ";1Hx", "xb", "0,1"},
        {"unended string", "a\033]0;ti", "tle\ab", "ab", "0,2"},
        {"blank cursor line kept", "\033[2;20r" + many(30, "\n") + "\033[24;1H", "$ ",
         many(9, "|") + "$", "9,2"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        Emulator emulator(24, 80);
        emulator.write(row.before).resize(10, 20).write(row.after);
        EXPECT_EQ(emulator.text(), row.text);
        EXPECT_EQ(emulator.cursor(), row.cursor);
    }
}

TEST(Guard, ShrinkingKeepsAttributesAndPendingWrap)
{
    Emulator emulator(24, 20);
    emulator.write("\033[1;24r\033[1;7m" + many(20, "x")).resize(10, 20).write("y");
    EXPECT_EQ(emulator.text(), many(20, "x") + "|y");
    EXPECT_TRUE(emulator.screen.cell(1, 0).bold);
    EXPECT_TRUE(emulator.screen.cell(1, 0).reverse);
}

// Whatever changes what text does.
const string RARE[] = {
    "\033[1m",     "\033[m",      "\033[7m",      "\t",         "\b",
    "\r",          "\033[0m",     "\033[31;4m",   "\033[44m",   "\033[?5h",
    "\033[?5l",    "\033[>4m",    "\033[2;4r",    "\033[r",     "\033[1;5r",
    "\033[?6h",    "\033[?6l",    "\033[?7l",     "\033[?7h",   "\033[20h",
    "\033[20l",    "\033[4h",     "\033[4l",      "\033#6",     "\033#5",
    "\033[?1049h", "\033[?1049l", "\033[3;3H",    "\033[99;1H", "\033[99;99H",
    "\033[2J",     "\033[A",      "\0337",        "\0338",      "\033(0",
    "\033(B",      "\016",        "\017",         "\033c",      "\033[?69h",
    "\033[3;6s",   "\033[?69l",   "e\u0301",      "\u0301",     "漢\u0323",
    "🟢",        "\033[3b",     "\u202e",       "\xff",       "\x7f",
    "\033M",       "\n\n\n\n\n",  "\r\n\r\n\r\n", "\033[2S",    "\033[2T",
    "\033]0;t\a",  "\033[4 l",    "\033[5X",      "\033[2;3f",  "\033[1;2;3H",
    "\033[2:3H",   "\n[7m",       "\r[2H",        "\xff[3;4H",  "long text and more of it",
    "\033[H"};

// What a port may print: mostly lines or pictures of the whole screen.
string random_output(std::mt19937 &random, bool pictures)
{
    static const string text[] = {"x", "words\rx",      "漢字",   "é",
                                  "😀", "한글 and more", "\033[K", "\033[4mline\033[K\033[m"};
    static const string ends[] = {
        "\033[K\r\n",           "\033[K\r\n",      "\r\n", "\033[K\n", "\033[H", "\033[J\033[H",
        "\033[H\033[2J\033[3J", "\033[m\017\033[H"};
    string output;
    while (random() % 60 != 0) {
        if (random() % 12 == 0) {
            output += RARE[random() % std::size(RARE)];
        }
        for (unsigned int count = random() % 8; count > 0; count--) {
            output += text[random() % std::size(text)];
        }
        output += pictures ? ends[random() % std::size(ends)] : random() % 16 == 0 ? "\n" : "\r\n";
    }
    return output;
}

bool same_cells(const VTermScreenCell &one, const VTermScreenCell &other)
{
    return one.chars[0] == other.chars[0] && one.width == other.width &&
           one.attrs.bold == other.attrs.bold && one.attrs.reverse == other.attrs.reverse &&
           one.attrs.underline == other.attrs.underline &&
           vterm_color_is_equal(&one.fg, &other.fg) && vterm_color_is_equal(&one.bg, &other.bg);
}

void expect_same_saved(const Emulator &expected, const Emulator &actual)
{
    ASSERT_EQ(expected.saved_count, actual.saved_count);
    const list_head *other = actual.saved.next;
    const ScrollbackLine *line = nullptr;
    list_for_each_entry (line, &expected.saved, list) {
        const auto *found = list_entry(other, ScrollbackLine, list);
        ASSERT_TRUE(line->cols == found->cols &&
                    std::equal(line->cells, line->cells + line->cols, found->cells, same_cells));
        other = other->next;
    }
}

// What programs that draw all over the screen print: moves, colours and text, and a bit of all
// else.
string random_drawing(std::mt19937 &random)
{
    static const string pens[] = {
        "m",   "0m",    "1m",    "4;7m",     "31m",  "0;33;44m", ";35m",   "36;m",    "90;107m",
        "39m", "49;5m", "97m",   "38;5;9m",  "100m", "48;5;1m",  "22m",    "4:3;31m", "3;;32m",
        "27m", "1;98m", "10;2m", "30;40;1m", "99m",  "8;3m",     "37;47m", "9;21m",   "29;5m"};
    const size_t rarely = 10 << random() % 9;
    string output;
    for (size_t count = random() % 500; count > 0; count--) {
        if (random() % rarely == 0) {
            output += RARE[random() % std::size(RARE)];
        }
        if (random() % 3 == 0) {
            const string row = random() % 16 == 0 ? "" : std::to_string(random() % 12);
            output += "\033[" + row + ";" + std::to_string(random() % 20) + "H";
        }
        for (size_t more = random() % 3; more > 0; more--) {
            output += "\033[" + pens[random() % std::size(pens)];
        }
        output += random() % 8 == 0 ? "word" : string(1, static_cast<char>(' ' + random() % 0x5f));
    }
    return output;
}

TEST(Guard, GoesOnBehindWhatIsDrawnOver)
{
    string twice; // more than is sent at once
    for (int cell = 0; cell < 2 * 24 * 80; cell++) {
        twice += "\033[" + std::to_string(1 + cell / 80 % 24) + ";" +
                 std::to_string(80 - cell % 80) + "H" + static_cast<char>('a' + cell % 26);
    }
    const string covered = many(40, "\033[1;79Hxy");
    for (const string &output :
         {twice, covered + "\u0301", covered + "\033[m\u0301", covered + "\033[2;3H\u0301",
          covered + "\033[2;3Hz\u0301", "e" + many(5, "\u0301") + covered + "\u0301",
          covered + "wraps", covered + "\033[1;80H!", covered + "\033[3b",
          "\033[7m" + covered + "\033[J"}) {
        SCOPED_TRACE(testing::PrintToString(output));
        Emulator whole(24, 80);
        Emulator bytewise(24, 80);
        whole.write(output + "\033[9Hand so on");
        bytewise.write_bytewise(output + "\033[9Hand so on");
        ASSERT_NO_FATAL_FAILURE(expect_same(bytewise, whole));
    }
}

// Byte by byte each line scrolls for itself, and each picture and each character is drawn.
TEST(Guard, ShowsWhatItLeavesOutAsLibvtermDoes)
{
    for (unsigned int seed = 0; seed < 1500; seed++) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const int rows = 1 + static_cast<int>(random() % 12);
        const int cols = 2 + static_cast<int>(random() % 30);
        Emulator whole(rows, cols);
        Emulator bytewise(rows, cols);
        for (int chunk = 0; chunk < 3; chunk++) {
            const string output =
                seed % 3 == 2 ? random_drawing(random) : random_output(random, seed % 3 == 1);
            whole.write(output);
            bytewise.write_bytewise(output);
            ASSERT_NO_FATAL_FAILURE(expect_same(bytewise, whole)) << testing::PrintToString(output);
            ASSERT_NO_FATAL_FAILURE(expect_same_saved(bytewise, whole));
        }
    }
}

// Sequences that the guard passes as they are, and much that is erased below the cursor.
TEST(Guard, ErasesAsLibvtermDoes)
{
    std::istringstream sequences(
        "[J [0J [H [3H [5;4H [2;9f [m [44m [7m [K [1J [2J [?J [2L [M [S [T [2B [A [E [4d [9X [3P "
        "[3@ D M E [?1047l\033c [2;4r [r [4h [4l [?1049h [?1049l 7 8 [?6h [?6l [5Hlow [4Hbelow "
        "[2Habove [Htext,that,wraps [3Hmiddle [H\033M [4H漢字 [5Hlow\033D [3Hx\033E [6H\033D");
    const std::vector<string> all{std::istream_iterator<string>(sequences), {}};
    for (unsigned int seed = 0; seed < 2000; seed++) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        Emulator guarded;
        Emulator plain;
        plain.write_unguarded("\0337");
        string output;
        for (int count = 0; count < 20; count++) {
            const string home = "\033[" + std::to_string(1 + random() % 6) + "H";
            for (size_t more = random() % 7; more > 0; more--) {
                output += "\033" + all[random() % all.size()];
            }
            output += home + (random() % 8 == 0 ? "" : "\033[m") + "\033[J";
        }
        guarded.write(output);
        plain.write_unguarded(output);
        ASSERT_NO_FATAL_FAILURE(expect_same(plain, guarded)) << testing::PrintToString(output);
    }
}

// The client often comes to a port on which a full-screen program already runs.
TEST(Guard, RestoresACursorThatWasNeverSaved)
{
    for (const char *restore : {"\0338", "\033[?1049l", "\033[?1048l"}) {
        Emulator emulator;
        emulator.write("text"s + restore + "x");
        EXPECT_TRUE(emulator.screen.cursor_visible) << restore + 1;
        EXPECT_EQ(emulator.cursor(), "0,1") << restore + 1;
    }
}

TEST(Guard, GivesSavedLinesBack)
{
    const string wide = many(10, "漢");
    Emulator emulator(3, 20);
    emulator.write("narrow\r\n" + wide + "\r\n1\r\n2\r\n3");
    emulator.resize(3, 7).resize(5, 7);
    EXPECT_EQ(emulator.text(), "narrow|漢漢漢|1|2|3");
    EXPECT_EQ(emulator.raw_cell(1, 6).width, 1);
    EXPECT_EQ(emulator.raw_cell(1, 6).chars[0], 0U);
    emulator.write("\r\n4\r\n5").resize(5, 20).resize(7, 20);
    EXPECT_EQ(emulator.text(), "narrow|漢漢漢|1|2|3|4|5");
    EXPECT_EQ(emulator.raw_cell(1, 19).width, 1);
}

} // namespace
