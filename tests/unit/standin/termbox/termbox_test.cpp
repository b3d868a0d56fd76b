// What the program relies on in the termbox2 stand-in: the bytes that show its cells. Its output is
// caught at write(); a pty is there for settings and size.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "support/screen.h"
#include "support/text.h"

namespace {

std::string output;
int writes = 0;              // calls that wrote some
std::vector<ssize_t> script; // results of the next writes: a count, or a negated errno

// Also called by the signal handler, for the resize pipe.
ssize_t interposed_write(int fd, const void *bytes, size_t count)
{
    if (!isatty(fd)) {
        return write(fd, bytes, count);
    }
    if (!script.empty()) {
        const ssize_t result = script.front();
        script.erase(script.begin());
        if (result < 0) {
            errno = static_cast<int>(-result);
            return -1;
        }
        count = std::min(count, static_cast<size_t>(result));
    }
    output.append(static_cast<const char *>(bytes), count);
    writes++;
    return static_cast<ssize_t>(count);
}

} // namespace

#define write interposed_write
#define TB_IMPL
#include <termbox2.h>
#undef write

namespace {

using support::Screen;

// A pty of 24 x 80, TERM xterm; the stand-in starts on it by start().
struct Termbox : testing::Test {
    int master = -1, slave = -1;
    char path[256];

    Termbox()
    {
        script.clear();
        setenv("TERM", "xterm", 1);
        const winsize size = {24, 80, 0, 0};
        EXPECT_EQ(openpty(&master, &slave, path, nullptr, &size), 0);
    }
    ~Termbox() override
    {
        tb_shutdown();
        close(slave);
        close(master);
    }
    int start()
    {
        const int result = tb_init_file(path);
        output.clear();
        return result;
    }
    void resize(int columns, int rows) // announced by the signal
    {
        const winsize size = {static_cast<unsigned short>(rows),
                              static_cast<unsigned short>(columns), 0, 0};
        ASSERT_EQ(ioctl(master, TIOCSWINSZ, &size), 0);
        ASSERT_EQ(raise(SIGWINCH), 0);
    }
    std::string present()
    {
        output.clear();
        writes = 0;
        EXPECT_EQ(tb_present(), TB_OK);
        return std::exchange(output, {});
    }
};

TEST_F(Termbox, SendsOnlyWhatDiffersInOneWrite)
{
    ASSERT_EQ(start(), TB_OK);
    EXPECT_EQ(present(), "");
    EXPECT_EQ(writes, 0);

    tb_printf(3, 1, TB_DEFAULT, TB_DEFAULT, "ab");
    tb_set_cell(9, 1, 'c', TB_WHITE | TB_BOLD, TB_BLUE);
    tb_set_cell(10, 1, 'd', TB_WHITE | TB_BOLD, TB_BLUE);
    tb_set_cell(0, 2, 'e', TB_RED | TB_UNDERLINE, TB_DEFAULT);
    EXPECT_EQ(present(), "\033[2;4Hab\033[2;10H\033(B\033[m\033[1m\033[37;44mcd"
                         "\033[3;1H\033(B\033[m\033[4m\033[31me");
    EXPECT_EQ(writes, 1);

    tb_set_cell(3, 1, 'x', TB_DEFAULT, TB_DEFAULT);
    tb_set_cell(3, 1, 'a', TB_DEFAULT, TB_DEFAULT);
    EXPECT_EQ(present(), "");
    EXPECT_EQ(writes, 0);
    constexpr uintattr_t ALL = TB_BOLD | TB_BLINK | TB_UNDERLINE | TB_ITALIC | TB_REVERSE;
    tb_set_cell(0, 0, 'z', ALL, TB_GREEN);
    EXPECT_EQ(present(), "\033[1;1H\033(B\033[m\033[1m\033[5m\033[4m\033[3m\033[7m\033[42mz");

    tb_set_cursor(5, 2);
    EXPECT_EQ(present(), "\033[?12l\033[?25h\033[3;6H");
    tb_set_cell(5, 2, 'k', 0, 0);
    tb_set_cursor(6, 2);
    EXPECT_EQ(present(), "\033(B\033[mk") << "an echoed key needs no move at all";
    tb_set_cell(0, 1, 'm', 0, 0);
    EXPECT_EQ(present(), "\033[2;1Hm\033[3;7H") << "the cursor goes back to its place";
}

TEST_F(Termbox, OutputSurvivesAFullOrInterruptedTerminal)
{
    ASSERT_EQ(start(), TB_OK);
    tb_printf(0, 0, 0, 0, "hello");
    script = {-EAGAIN, 3, -EINTR, -EAGAIN, 1};
    EXPECT_EQ(present(), "\033[1;1Hhello");

    tb_printf(0, 0, 0, 0, "world");
    tb_set_cursor(0, 0);
    script = {2, -EIO};
    EXPECT_EQ(tb_present(), TB_ERR);
    output.clear();
    Screen screen(24, 80);
    screen.feed(present());
    EXPECT_EQ(screen.row(0), "world") << "after an error the whole screen is sent";
}

TEST_F(Termbox, CellsNeverSendControlBytes)
{
    ASSERT_EQ(start(), TB_OK);
    for (uint32_t ch : {0U, 1U, 0x1bU, 0x7fU, 0x85U, 0x9bU, 0x378U, 0xd800U, 0xffffU, 0x110000U,
                        0xfffffffeU, 0xffffffffU}) {
        SCOPED_TRACE(ch);
        tb_set_cell(0, 0, 'a', 0, 0);
        present();
        tb_set_cell(0, 0, ch, 0, 0);
        EXPECT_EQ(present(), "\033[1;1H\xef\xbf\xbd");
    }
    tb_set_cell_ex(0, 0, nullptr, 0, 0, 0);
    tb_cell *cell = nullptr;
    ASSERT_EQ(tb_get_cell(0, 0, 1, &cell), TB_OK);
    EXPECT_EQ(cell->ch, 0U);
    cell->ch = 'x';
    EXPECT_EQ(present(), "\033[1;1Hx");
    EXPECT_EQ(tb_get_cell(80, 0, 1, &cell), TB_ERR_OUT_OF_BOUNDS);
}

// Where terminals disagree about the width, both halves are blanked first and the cursor is set
// again after.
TEST_F(Termbox, WidthsInDoubtCannotShiftALine)
{
    ASSERT_EQ(start(), TB_OK);
    tb_printf(0, 0, 0, 0, "\u4dc0b\U0001f9d1d");
    EXPECT_EQ(present(), "\033[1;1H  \033[1;1H\u4dc0\033[1;3Hb  \033[1;4H\U0001f9d1\033[1;6Hd");
    tb_set_cell(79, 5, 0x4e2d, 0, 0);
    tb_set_cell(79, 6, 0x1f9d1, 0, 0);
    tb_set_cell(0, 7, 0x301, 0, 0); // a mark alone stands on a blank
    EXPECT_EQ(present(), "\033[6;80H \033[7;80H \033[8;1H \u0301");
}

// Whatever was painted before, the screen is the one that a fresh full paint gives.
TEST_F(Termbox, EveryPaintShowsWhatAFullPaintShows)
{
    constexpr uint32_t alphabet[] = {
        'a',   'b',    ' ',     ' ',     0,    0xffffffff, 0x4e2d, 0x6587,  0xac00,    0x1b,
        0x301, 0x4dc0, 0x1f9d1, 0x20000, 0xe9, 0x378,      0x2500, 0x1f600, 0xfffffffe};
    constexpr uintattr_t colours[] = {0, 0, 0, TB_WHITE, TB_WHITE | TB_BOLD, TB_RED | TB_REVERSE};
    constexpr int COLUMNS = 9, ROWS = 2;
    ASSERT_EQ(start(), TB_OK);
    resize(COLUMNS, ROWS);
    tb_event event = {};
    ASSERT_EQ(tb_peek_event(&event, 0), TB_OK);
    for (unsigned seed = 0; seed < 1000; seed++) {
        std::mt19937 random(seed);
        auto below = [&](size_t limit) { return random() % limit; };
        SCOPED_TRACE(seed);
        Screen painted(ROWS, COLUMNS), fresh(ROWS, COLUMNS);
        resize(COLUMNS, ROWS);
        ASSERT_EQ(tb_peek_event(&event, 0), TB_OK);
        for (size_t presents = 1 + below(6); presents > 0; presents--) {
            for (size_t changes = below(12); changes > 0; changes--) {
                tb_set_cell(static_cast<int>(below(COLUMNS)), static_cast<int>(below(ROWS)),
                            alphabet[below(std::size(alphabet))],
                            colours[below(std::size(colours))], colours[below(4)]);
            }
            tb_set_cursor(static_cast<int>(below(COLUMNS)), static_cast<int>(below(ROWS)));
            painted.feed(present());
        }
        resize(COLUMNS, ROWS);
        ASSERT_EQ(tb_peek_event(&event, 0), TB_OK);
        fresh.feed(present());
        for (int i = 0; i < ROWS * COLUMNS; i++) {
            support::Cell expected = fresh.cell(i / COLUMNS, i % COLUMNS);
            support::Cell shown = painted.cell(i / COLUMNS, i % COLUMNS);
            if (expected.text.empty()) { // a right half, where libvterm keeps old attributes
                ASSERT_EQ(shown.text, "");
            } else {
                ASSERT_EQ(shown, expected);
            }
        }
        ASSERT_EQ(painted.cursor_column(), fresh.cursor_column());
    }
}

// The emulator behind the program and the screen in front of it must count columns alike, or a line
// would shift. Left out is what is sent as U+FFFD or on a blank, one column by construction. The
// program takes care of the characters that have become wide since the emulator was made.
TEST(TermboxWidths, AgreeWithTheEmulator)
{
    Screen screen(2, 10);
    int agreed = 0, combining = 0, newer = 0;
    for (uint32_t ch = 0xa0; ch < 0x110000; ch++) {
        const tb_glyph glyph = glyph_of(ch);
        if (glyph.ch != ch || glyph.combining || glyph.columns == 0) {
            continue;
        }
        screen.feed("\033[1;1Ha" + support::utf8(ch));
        int emulated = screen.cursor_column() - 1;
        if (emulated == glyph.columns) {
            agreed++;
        } else if (emulated == 0) { // marks to libvterm alone: it gives them no cell of their own
            combining++;
        } else if (emulated == 1 && glyph.columns == 2) {
            newer++;
        } else {
            ADD_FAILURE() << std::hex << ch << " takes " << emulated;
        }
    }
    EXPECT_GT(agreed, 280000);
    EXPECT_EQ(combining, 2);
    EXPECT_EQ(newer, 1516);
}

} // namespace
