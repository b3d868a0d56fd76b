// The status bar, the popups and the port history as they look on the terminal.
#include "e2e/fixture.h"

using namespace support;

namespace {

// The box of a popup: each text padded to the inner width between borders, and empty rows below.
std::vector<std::string> box(int width, int height, const std::vector<std::string> &texts)
{
    std::vector<std::string> rows{std::string(size_t(width), '*')};
    for (int row = 1; row < height - 1; ++row) {
        std::string text = size_t(row) <= texts.size() ? texts[size_t(row) - 1] : "";
        text.resize(size_t(width) - 2, ' ');
        rows.push_back("*" + text + "*");
    }
    rows.push_back(rows[0]);
    return rows;
}

const std::vector<std::string> HELP_AT_80{
    "        ====Terminal Port Help====",
    "    Escape-Char: Ctrl-e",
    "    Escape-Char q to quit",
    "    Escape-Char b to send serial break",
};
const std::vector<std::string> HELP_AT_120{
    "        ====Terminal Port Help====",
    "    Escape-Char: Ctrl-e",
    "    Escape-Char q to quit",
    "    Escape-Char b to send serial break",
    "    Escape-Char d to list or disconnect other sessions",
    "    Escape-Char s for port history (graphical terminal onl",
};
const std::vector<std::string> NO_PERMISSION_AT_120{
    "Your current access rights on this port",
    "do not give you permission to list or disconnect sessions",
};

// The port's screen under the popups: attributes and wide characters everywhere.
std::string busy_screen(int rows, int columns)
{
    std::string text = "\x1b[H";
    for (int row = 1; row <= rows; ++row) {
        text += "\x1b[" + std::to_string(row) + ";1H\x1b[" + std::to_string(row % 8) + "m";
        text += row % 2 != 0 ? "." : "";
        for (int column = row % 2; column + 2 <= columns; column += 2) {
            text += (column + row) % 3 != 0 ? "\xe4\xb8\xad" : "ab";
        }
    }
    return text + "\x1b[m\x1b[3;5H";
}

void expect_blank_port_screen(Session &tui)
{
    tui.expect_port_screen("", false);
}

} // namespace

TEST(StatusBar, ColoursAndWidths)
{
    Session tui(TUI);
    tui.start({.columns = 150});
    const std::string text = tui.bar();
    EXPECT_EQ("Label: lab | Time: Ns | Users: ann | Info: 8N1 |Signals: DCD CTS| Ctrl-e ? for help",
              text);
    for (const int columns : {60, 30, 3, 2, 140}) {
        tui.resize(24, columns);
        EXPECT_LE(tui.bar().size(), size_t(columns - 1));
        EXPECT_EQ(text.substr(0, 10).substr(0, size_t(columns - 1)), tui.bar().substr(0, 10));
        for (int column = 0; column < columns; ++column) {
            Cell cell = tui.screen().cell(23, column);
            cell.foreground = cell.text == " " ? WHITE : cell.foreground;
            EXPECT_EQ((Cell{.text = cell.text, .foreground = WHITE, .background = BLUE}), cell);
        }
    }
    tui.resize(24, 80);
}

TEST(StatusBar, LoadingThenCountingThenFollowingTheDaemon)
{
    Session tui(TUI);
    tui.daemon.answer("PORT_INFO", std::nullopt);
    tui.launch({.columns = 120});
    tui.daemon.expect_command("PORT_INFO");
    tui.client->wait_until([&] { return tui.bar() == "Port Data Loading..."; }, "the loading text");
    EXPECT_EQ(BLUE, tui.screen().cell(23, 119).background);
    EXPECT_EQ(WHITE, tui.screen().cell(23, 0).foreground);
    EXPECT_EQ(1u, tui.daemon.command_count("PORT_INFO")); // one at a time
    tui.daemon.answer("PORT_INFO", PORT_INFO);
    tui.daemon.reply(PORT_INFO);
    tui.client->wait_for_screen("Users: ann | Info: 8N1 |Signals: DCD CTS| Ctrl-e ? for help");
    tui.client->wait_for_screen("Time: 2s"); // since the connection
    tui.client->wait_for_screen("Time: 3s");
    tui.daemon.answer("PORT_INFO", R"({"label":"other","users":"","info":"i","escape":1})");
    tui.client->wait_for_screen("Label: other | Time: ");
    tui.client->wait_for_screen("s | Users:  | Info: i |Signals: | Ctrl-a ? for help");
    tui.play({{LEAVE, "\5\1q"}, {GETS, "\5"}});
}

TEST(StatusBar, RepliesAsTheyCome)
{
    const struct {
        std::string reply;
        const char *shown;
    } rows[] = {
        {"null", "Label:  | Time: "},
        {"7 ", "Label:  | Time: "},
        {"\"text\"", "Label:  | Time: "},
        {"[]", "| Users:  | Info:  |Signals: | Ctrl-e"},
        {R"({"label":1,"users":{},"info":[],"signals":7})",
         "| Users:  | Info:  |Signals: | Ctrl-e"},
        {R"({"signals":{"dcd":true,"dsr":true,"ri":true,"cts":true}})",
         "|Signals: DCD DSR RI CTS| C"},
        {R"({"signals":{"ri":true,"cts":1}})", "|Signals: RI | C"},
        {R"({"signals":{"dcd":false,"dsr":false,"ri":false,"cts":false}})", "|Signals: | C"},
        {R"({"label":"a\u001b[2Jb\r\nc\u0085d\u007fe%s%n"})", "Label: a?[2Jb??c?d?e%s%n | Time: "},
        {"{\"label\":\"x\xff\xc3y\"}", "Label: x??y | Time: "},
        {R"({"label":"e\u0301x \u4e2d"})", "x \xe4\xb8\xad | Time: "},
    };
    Session tui(TUI);
    tui.launch({.columns = 120});
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reply);
        tui.daemon.answer("PORT_INFO", R"({"label":"between"})");
        tui.client->wait_for_screen("Label: between");
        tui.daemon.answer("PORT_INFO", row.reply);
        tui.client->wait_for_screen(row.shown);
        tui.client->wait_for_screen("| Ctrl-e ? for help"); // no "escape", so it stays
    }
}

TEST(Popup, HelpAtSeveralSizes)
{
    Session tui(TUI);
    tui.start();
    tui.client->send("\5?");
    tui.expect_box(20, 6, box(40, 12, HELP_AT_80));
    tui.resize(40, 120);
    tui.expect_box(30, 10, box(60, 20, HELP_AT_120));
    tui.resize(10, 40);
    tui.expect_box(10, 2, box(20, 4, {"        ====Termin"}));
    tui.resize(24, 80);
    tui.expect_box(20, 6, box(40, 12, HELP_AT_80));
    tui.client->send("\x1b[A"); // closes it, and does not reach the port
    expect_blank_port_screen(tui);
    tui.expect_relay();
}

TEST(Popup, NoPermissionIsHalfAsHighUntilTheNextResize)
{
    Session tui(TUI);
    tui.start({.rows = 40, .columns = 120});
    tui.client->send("\5d");
    tui.expect_box(30, 10, box(60, 10, NO_PERMISSION_AT_120));
    tui.resize(40, 124);
    tui.expect_box(31, 10, box(62, 20, NO_PERMISSION_AT_120));
    tui.client->send("x");
    expect_blank_port_screen(tui);
    EXPECT_EQ(0u, tui.daemon.command_count("LIST_SESSIONS"));
}

TEST(Popup, SessionsAndTheAnswer)
{
    for (const bool yes : {true, false}) {
        Session tui(TUI);
        tui.start({.arguments = {"admin"}, .rows = 43, .columns = 127});
        tui.daemon.answer("LIST_SESSIONS", R"({"sessions":[]})");
        tui.client->send("\5d");
        tui.expect_box(31, 10, box(62, 10, {"There are no other sessions on this port"}));
        tui.client->send("x");
        expect_blank_port_screen(tui);
        tui.daemon.answer("LIST_SESSIONS",
                          R"({"sessions":[{"username":"a\u001bnn","protocol":"SSH",)"
                          R"("remote_addr":"10.0.0.9:50122","session_time":41.6},)"
                          R"({"username":"bob","protocol":"Web","session_time":3}]})");
        tui.client->send("\5d");
        tui.expect_box(
            31, 10,
            box(74, 20,
                {"        ==== Sessions ====", "The following sessions are active on this port", "",
                 "    a?nn: SSH (10.0.0.9:50122) - Session length 42 second(s)",
                 "    bob: Web - Session length 3 second(s)", "",
                 "Press 'Y' to disconnect these sessions", " or any other key to exit this menu"}));
        tui.client->send(yes ? "Y" : "y");
        expect_blank_port_screen(tui);
        if (yes) {
            tui.play({{ASKS, "DISCONNECT_SESSIONS"}, {REPLY, "{}"}});
        }
        tui.expect_relay();
        EXPECT_EQ(yes, tui.daemon.command_count("DISCONNECT_SESSIONS"));
    }
}

TEST(Popup, ClosingBringsBackWhatWasThere)
{
    const struct {
        int rows, columns, left, top;
        std::vector<std::string> help;
    } sizes[] = {{24, 80, 20, 6, box(40, 12, HELP_AT_80)},
                 {27, 83, 20, 6, box(40, 12, HELP_AT_80)},
                 {40, 121, 30, 10, box(60, 20, HELP_AT_120)}};
    for (const auto &[rows, columns, left, top, help] : sizes) {
        SCOPED_TRACE(columns);
        Session tui(TUI);
        tui.daemon.answer("SCROLLBACK", "{}");
        tui.start({.rows = rows, .columns = columns});
        Screen direct(rows - 1, columns);
        direct.feed(busy_screen(rows - 1, columns));
        tui.daemon.send(busy_screen(rows - 1, columns));
        tui.expect_port_screen(direct.picture());
        Picture before = tui.screen().picture();
        --before.rows; // without the bar
        tui.client->send("\5?");
        tui.expect_box(left, top, help);
        tui.client->send("x");
        tui.expect_port_screen(before, {});
        // A stack of them, the port printing on, and a refresh or two in between.
        tui.client->send("\5d\5?\5s");
        tui.client->wait_for_screen("Port History");
        const std::string more = "\x1b[99;1H\r\n\n\n\x1b[10;10H\x1b[1;4mnew\x1b[m\x1b[12;1H\x1b[2K";
        direct.feed(more);
        tui.daemon.send(more);
        tui.wait_for_refresh();
        tui.client->send("\x1b");
        tui.expect_box(left, top, help);
        tui.client->send("x");
        tui.client->send("y");
        tui.expect_port_screen(direct.picture());
        tui.expect_relay();
    }
}

namespace {

const std::string HISTORY = R"({"scrollback":[
    {"line":"newest","timestamp":1709645229042,"scrollback_idx":5,"type":3},
    {"line":"sent","timestamp":1709645229007,"scrollback_idx":4,"type":2},
    {"line":"","timestamp":0,"scrollback_idx":3,"type":4},
    {"line":"ann out","timestamp":1709645220000,"scrollback_idx":2,"type":1},
    {"line":"ann","timestamp":1709645219999,"scrollback_idx":1,"type":0}]})";

std::string header(int position, int count)
{
    return "Port History - Line " + std::to_string(position) + " of " + std::to_string(count) +
           " - Scroll Up/Down [ ] Timestamp Mode: t Exit: Esc";
}

// The history's box at 80x24 or 120x40, lines from the bottom row upwards.
void expect_history(Session &tui, const std::string &head, const std::vector<std::string> &lines)
{
    const int width = tui.screen().columns();
    const int height = 7 * (tui.screen().rows() / 8) - tui.screen().rows() / 8;
    std::vector<std::string> texts(size_t(height) - 2);
    texts[0] = head;
    for (size_t line = 0; line < lines.size(); ++line) {
        texts[texts.size() - 1 - line] = lines[line];
    }
    tui.expect_box(0, tui.screen().rows() / 8, box(width, height, texts));
}

} // namespace

TEST(History, LinesColoursAndKeys)
{
    Session tui(TUI);
    tui.start({.environment = {{"TZ", "UTC-1"}}, .columns = 120});
    tui.client->send("\5s");
    tui.daemon.expect_command("SCROLLBACK");
    tui.expect_box(0, 3, box(120, 18, {header(0, 0), "Port History is loading..."}));
    tui.daemon.reply(HISTORY);
    const std::vector<std::string> lines{"RX|newest", "TX|sent", "SIGNAL|", "KICK|ann out",
                                         "LOGIN|ann"};
    expect_history(tui, header(0, 5), lines);
    EXPECT_TRUE(tui.screen().cell(4, 1).bold);
    EXPECT_EQ(RED, tui.screen().cell(19, 1).foreground);
    EXPECT_EQ(WHITE, tui.screen().cell(19, 3).foreground); // the bar
    EXPECT_EQ(WHITE, tui.screen().cell(19, 4).foreground);
    EXPECT_FALSE(tui.screen().cell(19, 4).bold);

    tui.client->send("[");
    expect_history(tui, header(1, 5), {lines.begin() + 1, lines.end()});
    tui.client->send("[[[");
    expect_history(tui, header(4, 5), {lines[4]});
    tui.client->send("[[");
    expect_history(tui, header(5, 5), {lines[4]});
    tui.client->send("]]]]]]]");
    expect_history(tui, header(0, 5), lines);

    tui.client->send("t");
    expect_history(
        tui, header(0, 5),
        {"[2024-03-05T14:27:09.042+0100]RX|newest", "[2024-03-05T14:27:09.007+0100]TX|sent",
         "[1970-01-01T01:00:00.000+0100]SIGNAL|", "[2024-03-05T14:27:00.000+0100]KICK|ann out",
         "[2024-03-05T14:26:59.999+0100]LOGIN|ann"});
    EXPECT_EQ(GREEN, tui.screen().cell(19, 1).foreground);
    EXPECT_EQ(GREEN, tui.screen().cell(19, 30).foreground);
    EXPECT_EQ(RED, tui.screen().cell(19, 31).foreground);
    tui.client->send("t");
    expect_history(tui, header(0, 5), lines);

    tui.play({{TYPE, "\x1b[A"}, {TYPE, "x"}}); // an escape along with other bytes leads a sequence
    for (const auto &[rows, columns] :
         std::vector<std::pair<int, int>>{{40, 120}, {10, 40}, {3, 3}, {31, 127}}) {
        tui.client->resize(rows, columns);
        tui.wait_for_refresh();
    }
    expect_history(tui, header(0, 5), lines);
    tui.client->send("\x1b");
    expect_blank_port_screen(tui);
    tui.expect_relay();
    EXPECT_EQ(1u, tui.daemon.command_count("SCROLLBACK"));
}

TEST(History, NothingThereAndOddReplies)
{
    Session tui(TUI);
    tui.start();
    for (const char *reply :
         {R"({"scrollback":[]})", "{}", "null", "7 ", R"({"scrollback":"x"})"}) {
        SCOPED_TRACE(reply);
        tui.daemon.answer("SCROLLBACK", reply);
        tui.client->send("\5s");
        tui.expect_box(0, 3, box(80, 18, {header(0, 0), "No Port History available"}));
        tui.play({{TYPE, "\x1b"}});
        expect_blank_port_screen(tui);
    }
}

TEST(History, OddLinesAreBorne)
{
    Session tui(TUI);
    tui.start({.columns = 120});
    tui.daemon.answer("SCROLLBACK", R"({"scrollback":[
        {"line":"a\u001b[2Jb\tc\r\u007f","type":3,"timestamp":-1},
        {"line":"\u00e9\u0085","type":3,"timestamp":253402300800000},
        {"line":"far off","type":5,"timestamp":9223372036854775807},
        {"line":"below","type":-1,"timestamp":-9223372036854775808},
        {"type":2}, {"line":17,"type":"3","timestamp":"x"}, 5, null, {},
        {"line":")" + std::string(5000, 'L') +
                                        R"(","type":3}]})");
    const std::string latin1 = "RX|\xc3\x83\xc2\xa9\xc3\x82?"; // one cell a byte
    tui.client->send("\5s");
    for (const std::string &line :
         {std::string("RX|a?[2Jb?c?? "), latin1 + " ", std::string("|far off "),
          std::string("|below "), std::string("TX| "), std::string("LOGIN| "),
          "RX|" + std::string(115, 'L') + "*"}) {
        tui.play({{SHOWS, "*" + line}});
    }
    tui.play({{TYPE, "t"}, {SHOWS, "]RX|LLL"}, {TYPE, "\x1b"}});
    expect_blank_port_screen(tui);
}

TEST(History, LargeOnesStayQuick)
{
    std::string reply = R"({"scrollback":[{"line":"0","type":3})";
    for (int line = 1; line < 100'000; ++line) {
        reply += R"(,{"line":"number )" + std::to_string(line) +
                 R"( and some more text to make sixty bytes of it","type":2,"timestamp":1})";
    }
    Session tui(TUI);
    tui.start({.columns = 120});
    tui.daemon.answer("SCROLLBACK", reply + "]}");
    tui.client->send("\5s");
    tui.client->wait_for_screen(header(0, 100'000));
    tui.client->send(std::string(20'000, '['));
    tui.client->wait_for_screen(header(20'000, 100'000));
    tui.client->wait_for_screen("TX|number 20014 ");
    tui.client->send(std::string(20'000, ']'));
    tui.client->wait_for_screen(header(0, 100'000));
}

TEST(History, RepliesAfterTheClose)
{
    Session tui(TUI);
    tui.start();
    tui.play({{TYPE, "\5s\5s\5s"},
              {ASKS, "SCROLLBACK"},
              {TYPE, "\x1b"}, // the top one, whose request is the one under way
              {REPLY, HISTORY},
              {ASKS, "SCROLLBACK"},
              {TYPE, "\x1b"},
              {REPLY, HISTORY},
              {ASKS, "SCROLLBACK"},
              {REPLY, HISTORY},
              {SHOWS, header(0, 5)}, // of the one left
              {TYPE, "\x1b"}});
    expect_blank_port_screen(tui);
    tui.wait_for_refresh();
}
