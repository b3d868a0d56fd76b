// Pictures through the saver: what a terminal shows of them in the end, and in how many bytes.
#include "tui/output/picture.h"

#include <algorithm>
#include <csignal>
#include <random>
#include <string>

#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include "support/screen.h"
#include "text/width.h"
#include "tui/output/rewriter.h"
#include "unit/support/back_buffer.h"

namespace {

using support::Cell;
using support::Screen;

std::string sent;
bool losing; // what is sent

bool collect(const char *bytes, size_t count)
{
    if (!losing) {
        sent.append(bytes, count);
    }
    return !losing;
}

std::string utf8(uint32_t ch)
{
    if (ch < 0x80) {
        return {static_cast<char>(ch)};
    }
    if (ch < 0x800) {
        return {static_cast<char>(0xc0 | ch >> 6), static_cast<char>(0x80 | (ch & 0x3f))};
    }
    return {static_cast<char>(0xe0 | ch >> 12), static_cast<char>(0x80 | (ch >> 6 & 0x3f)),
            static_cast<char>(0x80 | (ch & 0x3f))};
}

Cell looks(const tb_cell &cell)
{
    Cell result{.text = cell.ch == 0x301 ? " " + utf8(cell.ch) : utf8(cell.ch)};
    result.bold = cell.fg & TB_BOLD;
    result.underline = cell.fg & TB_UNDERLINE;
    result.italic = cell.fg & TB_ITALIC;
    result.blink = cell.fg & TB_BLINK;
    result.reverse = cell.fg & TB_REVERSE;
    result.foreground = (cell.fg & 0xff) == TB_WHITE ? 7 : -1;
    result.background = cell.bg == TB_BLUE ? 4 : -1;
    return result;
}

// A painter of what ports print, and the terminal that it is presented to.
struct Scene {
    BackBuffer buffer{40, 12};
    Screen terminal{12, 40};
    std::mt19937 random;
    Cursor cursor = {};
    size_t bytes = 0;

    Scene(const char *type, unsigned int seed) : random(seed)
    {
        sent.clear();
        losing = false;
        picture_start(type, collect);
        terminal.feed("\033[?25l"); // as it is since termbox2's start
        clear(0, tb_height());
    }

    int below(int limit) { return static_cast<int>(random() % static_cast<unsigned int>(limit)); }

    void print(int x, int y)
    {
        constexpr uint32_t rare[] = {0xe9, 0x2500, 0x4e2d, 0x301};
        constexpr int attributes[] = {0, TB_BOLD, TB_UNDERLINE, TB_REVERSE, TB_BLINK | TB_ITALIC};
        const int fg = TB_WHITE | (below(4) == 0 ? attributes[below(5)] : 0);
        const bool plain = below(3) > 0;
        for (int end = std::min(tb_width(), x + below(tb_width() + 8)); x < end; x++) {
            const uint32_t ch = !plain && below(5) == 0 ? rare[below(4)]
                                : below(6) == 0         ? ' '
                                                        : static_cast<uint32_t>('a' + below(26));
            tb_set_cell(x, y, ch, static_cast<uintattr_t>(fg), 0);
        }
    }

    void clear(int top, int bottom, int x = 0)
    {
        for (; top < bottom; top++) {
            for (int column = x; column < tb_width(); column++) {
                tb_set_cell(column, top, ' ', TB_WHITE, 0);
            }
        }
    }

    void scroll()
    {
        const int top = below(tb_height());
        const int bottom = top + 1 + below(tb_height() - top);
        const int lines = 1 + below(3);
        const bool up = below(3) > 0;
        for (int i = 0; i < bottom - top; i++) {
            const int to = up ? top + i : bottom - 1 - i;
            const int from = up ? to + lines : to - lines;
            if (from < top || from >= bottom) {
                clear(to, to + 1);
                print(0, to);
                continue;
            }
            for (int x = 0; x < tb_width(); x++) {
                const tb_cell cell = buffer.cell(x, from);
                tb_set_cell(x, to, cell.ch, cell.fg, cell.bg);
            }
        }
        if (below(2) == 0) {
            print(below(tb_width()), bottom - 1);
        }
    }

    void popup()
    {
        const int left = below(tb_width());
        const int top = below(tb_height());
        for (int y = top; y < std::min(tb_height(), top + 5); y++) {
            for (int x = left; x < std::min(tb_width(), left + 9); x++) {
                tb_set_cell(x, y, x == left ? '*' : ' ', TB_WHITE, TB_BLUE);
            }
        }
    }

    void resize()
    {
        winsize size{};
        size.ws_col = static_cast<unsigned short>(2 + below(50));
        size.ws_row = static_cast<unsigned short>(1 + below(14));
        ioctl(buffer.terminal, TIOCSWINSZ, &size);
        terminal.resize(size.ws_row, size.ws_col);
        raise(SIGWINCH);
        tb_event event;
        ASSERT_EQ(tb_peek_event(&event, 0), TB_OK);
        clear(0, tb_height());
    }

    void change()
    {
        const int kind = below(40);
        if (kind == 0) {
            resize();
        } else if (kind < 4) {
            popup();
        } else if (kind < 20) {
            scroll();
        } else if (kind < 25) {
            const int top = below(tb_height());
            clear(top, top + 1 + below(tb_height() - top), below(tb_width()));
        } else {
            print(below(tb_width()), below(tb_height()));
        }
    }

    void present_anywhere() { present({below(4) > 0, below(tb_width()), below(tb_height())}); }

    void present(Cursor where)
    {
        cursor = where;
        if (cursor.shown) {
            tb_set_cursor(cursor.x, cursor.y);
        } else {
            tb_hide_cursor();
        }
        picture_present(cursor);
        bytes += sent.size();
        terminal.feed(sent);
        sent.clear();
    }

    // Empty when the terminal shows the back buffer.
    std::string difference()
    {
        for (int y = 0; y < tb_height(); y++) {
            for (int x = 0; x < tb_width(); x++) {
                const tb_cell cell = buffer.cell(x, y);
                Cell expected = looks(cell);
                Cell shown = terminal.cell(y, x);
                const bool wide = character_width(cell.ch) == 2;
                if ((wide || cell.ch == 0x301) && x + 1 == tb_width()) {
                    expected.text = " ";
                }
                if (expected.text == " " && !expected.reverse && !expected.underline) {
                    expected.foreground = shown.foreground;
                }
                if (expected != shown) {
                    return "at " + std::to_string(x) + ", " + std::to_string(y) + " \"" +
                           expected.text + "\" is \"" + shown.text + "\"\n" + terminal.text();
                }
                x += wide ? 1 : 0;
            }
        }
        if (terminal.cursor_visible != cursor.shown ||
            (cursor.shown &&
             (terminal.cursor_column() != cursor.x || terminal.cursor_row() != cursor.y))) {
            return "cursor " + std::to_string(terminal.cursor_visible) + " at " +
                   std::to_string(terminal.cursor_column()) + ", " +
                   std::to_string(terminal.cursor_row()) + " for " + std::to_string(cursor.shown) +
                   " at " + std::to_string(cursor.x) + ", " + std::to_string(cursor.y);
        }
        return "";
    }
};

unsigned int seeds()
{
    const char *given = getenv("SEEDS");
    return given != nullptr ? static_cast<unsigned int>(atoi(given)) : 8;
}

TEST(Picture, EndsLikeTheBackBufferOnAnyTerminal)
{
    size_t bytes[2] = {};
    for (unsigned int seed = 0; seed < seeds(); seed++) {
        for (const char *type : {"xterm-256color", "ansi"}) {
            SCOPED_TRACE(type + std::string(" seed ") + std::to_string(seed));
            Scene scene(type, seed);
            for (int picture = 0; picture < 60; picture++) {
                for (int changes = scene.below(4); changes > 0; changes--) {
                    scene.change();
                }
                losing = picture % 20 == 13;
                scene.present_anywhere();
                if (!losing) {
                    ASSERT_EQ(scene.difference(), "") << "picture " << picture;
                }
                losing = false;
            }
            bytes[type[0] == 'a'] += scene.bytes;
        }
    }
    EXPECT_LT(bytes[0] * 3, bytes[1] * 2);
}

// Text that scrolls up in a band costs little more than its new lines.
TEST(Picture, SendsAScrollAsAScroll)
{
    Scene scene("xterm", 1);
    const auto write_line = [&](int y, int number) {
        scene.clear(y, y + 1);
        tb_printf(0, y, TB_WHITE, 0, "line %d of what is printed", number);
    };
    tb_printf(0, 11, TB_WHITE, TB_BLUE, "status");
    for (int number = 0; number < 100; number++) {
        for (int y = 0; y < 11; y++) {
            write_line(y, number + y);
        }
        scene.bytes = 0;
        scene.present({true, 28, 10});
        ASSERT_EQ(scene.difference(), "");
        if (number > 1) {
            EXPECT_LT(scene.bytes, sizeof("line 100 of what is printed") + 12);
        }
    }
    picture_write("\033[2J", 4); // at the end, for instance
    EXPECT_EQ(sent, "\033[r\033[2J");
}

// Whatever termbox2 sends, or something else does: the terminal shows the same.
TEST(Rewriter, ChangesNothingThatIsSeen)
{
    const std::string tokens[] = {
        "\033[m",    "\033[1m",   "\033[4;44m", "\033[0;7m", "\033[38;5;1m",
        "\033[;37m", "\033[?25h", "\033[?25l",  "\033[2P",   "\033[X",
        "\033[K",    "\033[s",    "a",          "bc",        " ",
        "   ",       "     ",     "\r",         "\b",        "\033[9999;9999H",
        "\u00e9",    "\u4e2d"}; // behind these two libvterm shows no graphics
    const std::string charsets[][2] = {
        {"\033(0", "\033(B"}, {"\033)0\016", "\017"}, {"\033(B", "\017"}};
    static Rewriter rewriter;
    constexpr int WIDTH = 90, HEIGHT = 4;
    const std::vector<tb_cell> cells(WIDTH * HEIGHT, tb_cell{'x', 0, 0});
    for (unsigned int seed = 0; seed < 10 * seeds(); seed++) {
        std::mt19937 random(seed);
        Screen direct(HEIGHT, WIDTH), rewritten(HEIGHT, WIDTH);
        sent.clear();
        rewriter_start(rewriter, collect);
        std::string all;
        for (int write = 0; write < 6; write++) {
            std::string bytes;
            for (int i = 0; i < 12; i++) {
                bytes += random() % 4 == 0 ? "\033[" + std::to_string(random() % 7) + ";" +
                                                 std::to_string(random() % 20) + "H"
                         : random() % 12 == 0 ? charsets[seed % 3][random() % 2]
                                              : tokens[random() % (seed % 3 < 2 ? 20 : 22)];
            }
            rewriter_begin(rewriter, cells.data(), WIDTH, HEIGHT, random() % 2 != 0);
            rewriter_write(rewriter, bytes.data(), bytes.size());
            rewriter_end(rewriter, 0, 0);
            all += bytes;
        }
        direct.feed(all + "\033[1;1H");
        rewritten.feed(sent + "\033[1;1H");
        ASSERT_EQ(support::compare(direct.picture(), rewritten.picture()), "") << "seed " << seed;
    }
    rewriter_write(rewriter, "\033[12", 3); // and nothing beyond its end
    EXPECT_TRUE(sent.ends_with("\033[1"));
}

} // namespace
