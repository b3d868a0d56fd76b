// What the port prints, seen in the terminal UI: the same bytes are run through an emulator
// directly and through the client, and both screens have to agree.
#include "e2e/fixture.h"

#include <filesystem>

using namespace support;

namespace {

std::string numbered_lines(int count)
{
    std::string text;
    for (int line = 1; line <= count; ++line) {
        text += "line " + std::to_string(line) + "\r\n";
    }
    return text;
}

// A screen as a full-screen program draws it, at any size.
std::string form(int rows, int columns)
{
    std::string text = "\x1b[m\x1b[r\x1b[H\x1b[2J";
    for (int row = 1; row <= rows; ++row) {
        text += "\x1b[" + std::to_string(row) + ";1H\x1b[" + (row % 2 != 0 ? "7" : "0;1") + "m" +
                std::to_string(row) + "\x1b[m";
        text += "\x1b[" + std::to_string(row) + ";" + std::to_string(columns - 2) + "H<" +
                std::to_string(row % 10);
    }
    return text + "\x1b[" + std::to_string((rows + 1) / 2) + ";2H";
}

const std::vector<std::pair<const char *, std::string>> SCRIPTS{
    {"attributes", "\x1b[1mbold\x1b[4munder\x1b[m\x1b[3mitalic\x1b[5mblink\x1b[m\x1b[7mreverse   "
                   "\x1b[m\x1b[21mdouble\x1b[m\x1b[1;4;7;5;3mall\x1b[22;24mless\x1b[m plain"},
    {"colours", "\x1b[31mred\x1b[44mon blue\x1b[38;5;200mindexed\x1b[48;2;1;2;3mrgb\x1b[0m done"},
    {"erasing", numbered_lines(30) +
                    "\x1b[5;3H\x1b[K\x1b[7;3H\x1b[1K\x1b[9H\x1b[2K\x1b[12;4H\x1b[J\x1b[2;"
                    "3H\x1b[3X"},
    {"inserting and deleting", numbered_lines(15) +
                                   "\x1b[4;2H\x1b[3@abc\x1b[6H\x1b[2L\x1b[10H\x1b[3M\x1b["
                                   "12;3H\x1b[2P\x1b[4h\x1b[13Hins\x1b[4l"},
    {"scroll region", numbered_lines(20) +
                          "\x1b[5;10r\x1b[10H\r\na\r\nb\r\nc\x1b[5H\x1bM\x1bMup\x1b[r\x1b["
                          "20H\n\n\nlast"},
    {"scrolling", numbered_lines(300) + "end"},
    {"alternate screen", "before\r\n\x1b[?1049h\x1b[2J\x1b[5Hinside\x1b[?1049lafter"},
    {"hidden cursor", "text\x1b[?25l"},
    {"cursor shown again", "text\x1b[?25l\r\nmore\x1b[?25h\x1b[5;5H"},
    {"wide characters",
     "\xe4\xb8\xad\xe6\x96\x87\xef\xbc\xa1 x\r\n\xe4\xb8\xad\xe6\x96\x87\x1b[2;2Hx\x1b[3;3H\xe4\xb8"
     "\xad\x1b[3;3Hy\x1b[4;79H\xe4\xb8\xad\x1b[5;80H\xe4\xb8\xad!\x1b[7;1Habcd\x1b[7;2H"
     "\xe6\x96\x87"},
    {"other scripts", "\xc3\xa4\xc3\xb6\xc3\xbc\xc3\x9f \xd0\x96 \xce\xa9 \xe2\x82\xac "
                      "\xe2\x94\x80\xe2\x94\x82\xe2\x96\x88 \xf0\x9f\x98\x80 end"},
    {"the last corner", "\x1b[23;80HX\x1b[23;79HY"},
};

// Printed on an empty screen it looks as in an emulator.
void expect_same_picture(Session &tui, const std::string &bytes, bool cursor = true)
{
    tui.daemon.send("\033c\033[1;1H" + bytes); // the move shows the cursor
    tui.expect_port_screen(bytes, cursor);
}

std::string recording(const std::string &name)
{
    return read_file(std::string(ZORVAD_RECORDINGS) + "/" + name);
}

} // namespace

TEST(TuiScreen, ScriptsLookAsInAnEmulator)
{
    Session tui(TUI);
    tui.start();
    for (const auto &[name, script] : SCRIPTS) {
        SCOPED_TRACE(name);
        expect_same_picture(tui, script, script.find("?25h") == std::string::npos);
    }
}

TEST(TuiScreen, EveryTerminalTypeShowsTheSame)
{
    for (const char *term : {"xterm", "screen-256color", "tmux-256color", "linux", "rxvt", "vt220",
                             "vt100", "xterm-unheard-of"}) {
        SCOPED_TRACE(term);
        Session tui(TUI);
        tui.start({.environment = {{"TERM", term}}});
        for (const size_t index : {4u, 5u, 9u}) {
            expect_same_picture(tui, SCRIPTS[index].second);
        }
        EXPECT_EQ(0, tui.end());
        EXPECT_EQ(std::string::npos, tui.client->output().find("$<")); // padding
    }
}

TEST(TuiScreen, OneColourPair)
{
    Session tui(TUI);
    tui.start();
    tui.daemon.send("\x1b[31;42mred\x1b[m\x1b[1;4;33mB\x1b[m\x1b[7mR\xcc\x81");
    tui.expect_port_screen("red\x1b[1;4mB\x1b[m\x1b[7mR");
    EXPECT_EQ((Cell{.text = "r", .foreground = WHITE, .background = OWN}), tui.screen().cell(0, 0));
    EXPECT_EQ((Cell{.text = "B", .bold = true, .underline = true, .foreground = WHITE}),
              tui.screen().cell(0, 3));
    EXPECT_EQ((Cell{.text = "R", .reverse = true, .foreground = WHITE}), tui.screen().cell(0, 4));
}

TEST(TuiScreen, AfterAResizeAsIfDrawnAfresh)
{
    Session tui(TUI);
    tui.start();
    for (const auto &[rows, columns] : std::vector<std::pair<int, int>>{
             {10, 40}, {50, 132}, {24, 80}, {24, 40}, {12, 80}, {60, 200}, {5, 20}, {24, 80}}) {
        SCOPED_TRACE(std::to_string(rows) + "x" + std::to_string(columns));
        tui.daemon.send(form(tui.screen().rows() - 1, tui.screen().columns()));
        tui.resize(rows, columns);
        tui.daemon.send(form(rows - 1, columns));
        tui.expect_port_screen(form(rows - 1, columns));
    }
}

TEST(TuiScreen, RecordedProgramsWithAResizeInTheMiddle)
{
    for (const char *program : {"editor", "pager", "top", "menu", "boot"}) {
        SCOPED_TRACE(program);
        const std::string before = recording(std::string(program) + "-80x23");
        const std::string after = recording(std::string(program) + "-100x29");
        ASSERT_FALSE(before.empty());
        ASSERT_FALSE(after.empty());
        Session tui(TUI);
        tui.start();
        Screen direct(23, 80);
        direct.feed(before);
        tui.daemon.send(before);
        tui.expect_port_screen(direct.picture(), {.colours = false, .cursor = false});
        tui.resize(30, 100);
        direct.resize(29, 100);
        // The client shows a cursor that was hidden with its next move.
        const std::string move = "\x1b[2;3H\x1b[6;7H";
        direct.feed(after + move);
        tui.daemon.send(after + move);
        tui.expect_port_screen(direct.picture());
    }
}

TEST(TuiScreen, EverySizeIsBorne)
{
    const std::pair<int, int> sizes[] = {{0, 0}, {1, 1}, {1, 200}, {200, 1},
                                         {3, 3}, {5, 5}, {8, 12}};
    for (const auto &[rows, columns] : sizes) {
        SCOPED_TRACE(std::to_string(rows) + "x" + std::to_string(columns));
        Session tui(TUI);
        tui.daemon.answer("SCROLLBACK", "{}");
        tui.launch({.rows = rows, .columns = columns});
        tui.wait_for_refresh();
        tui.play({{PRINT, SCRIPTS[9].second + form(20, 70)}, {TYPE, "\5?\5d\5s"}});
        tui.wait_for_refresh();
        tui.play({{TYPE, "\x1b"}});
        tui.resize(24, 80);
        tui.play({{TYPE, "xy"}}); // closes the other two
        expect_same_picture(tui, "back");
    }
}

TEST(TuiScreen, ATerminalThatClaimsTheLargestSize)
{
    Session tui(TUI);
    tui.start();
    tui.client->resize(65535, 65535);
    tui.client->wait_until([&] { return !tui.client->screen().row(511).empty(); }, "the bar");
    // All saved lines in the full width, and both of the emulator's screens.
    tui.daemon.send("\x1b[500S\x1b[500S\x1b[500S");
    tui.daemon.send("\x1b[?1049h\x1b[2J");
    tui.daemon.wait_until_sent();
    tui.expect_relay();
#ifndef ZORVAD_SANITIZED
    EXPECT_LT(tui.client->status_value("VmHWM"), 100'000);
#endif
    tui.resize(24, 80);
}

TEST(TuiScreen, AStormOfResizesUnderAFlood)
{
    Session tui(TUI);
    tui.start();
    std::string flood;
    while (flood.size() < 3'000'000) {
        for (const auto &[name, script] : SCRIPTS) {
            flood += script;
        }
    }
    tui.daemon.send(flood);
    for (int step = 0; step < 3000; ++step) {
        tui.client->resize(1 + step * 7 % 60, 1 + step * 13 % 150);
        const size_t before = tui.daemon.unsent();
        if (step % 10 == 0 && before > 0) {
            tui.client->wait_until([&] { return tui.daemon.unsent() < before; }, "progress");
        }
    }
    tui.daemon.wait_until_sent();
    tui.expect_relay();
#ifndef ZORVAD_SANITIZED
    EXPECT_LT(tui.client->status_value("VmHWM"), 24'000);
#endif
    tui.resize(24, 80);
    expect_same_picture(tui, form(23, 80));
}
