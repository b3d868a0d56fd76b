#include "terminal.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <utility>

#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

Interposed interposed;

namespace {

// Also called by the signal handler, for the resize pipe.
ssize_t interposed_write(int fd, const void *bytes, size_t count)
{
    if (!isatty(fd)) {
        return write(fd, bytes, count);
    }
    if (!interposed.script.empty()) {
        ssize_t result = interposed.script.front();
        interposed.script.erase(interposed.script.begin());
        if (result < 0) {
            errno = static_cast<int>(-result);
            return -1;
        }
        count = std::min(count, static_cast<size_t>(result));
    }
    interposed.output.append(static_cast<const char *>(bytes), count);
    interposed.writes++;
    return static_cast<ssize_t>(count);
}

} // namespace

#define write interposed_write
#define TB_IMPL
#include <termbox2.h>
#undef write

int columns_of(uint32_t ch)
{
    tb_glyph glyph = glyph_of(ch);
    return glyph.ch != ch || glyph.combining ? 0 : glyph.columns;
}

TermboxTest::TermboxTest()
{
    interposed = {};
    setenv("TERM", "xterm", 1);
    winsize size = {24, 80, 0, 0};
    char name[256];
    EXPECT_EQ(openpty(&master, &slave, name, nullptr, &size), 0);
    path = name;
}

TermboxTest::~TermboxTest()
{
    tb_shutdown();
    close(slave);
    close(master);
}

void TermboxTest::resize(int columns, int rows)
{
    winsize size = {static_cast<unsigned short>(rows), static_cast<unsigned short>(columns), 0, 0};
    ASSERT_EQ(ioctl(master, TIOCSWINSZ, &size), 0);
    ASSERT_EQ(raise(SIGWINCH), 0);
}

std::string TermboxTest::take_output()
{
    return std::exchange(interposed.output, {});
}

std::string TermboxTest::present()
{
    interposed.output.clear();
    interposed.writes = 0;
    EXPECT_EQ(tb_present(), TB_OK);
    return take_output();
}
