// What is typed in the terminal UI: port bytes, commands, pastes and slow links.
#include "e2e/fixture.h"

using namespace support;
using namespace std::string_literals;

namespace {

std::string text_of(size_t size)
{
    const std::string words[] = {
        "plain text ",    "\xc3\xa4\xd0\x96 ", "\xe4\xb8\xad\xe2\x82\xac", "\xf0\x9f\x98\x80", "\r",
        "\t\x01\x02\x7f", "\x1b[A\x1bOP",      "\x1b[200~x\x1b[201~"};
    std::string text;
    for (size_t index = 0; text.size() < size; ++index) {
        text += words[index * 5 % 8] + std::to_string(index);
    }
    return text;
}

} // namespace

TEST(TuiInput, KeysToPortBytes)
{
    std::string controls;
    for (int byte = 0; byte < 0x20; ++byte) {
        if (byte != 5 && byte != 0x1b) {
            controls += char(byte);
        }
    }
    const struct {
        std::vector<std::string> chunks;
        std::string port;
    } rows[] = {
        {{"a", "B", " ", "~"}, "aB ~"},
        {{controls + "\x7f"}, controls + "\x7f"},
        {{"\5\5"}, "\5"},
        {{"\5", "\5", "x"}, "\5x"},
        {{"\5Q\5B\5S"}, "QBS"},
        {{"\5p"}, "p"},
        {{"\x1b"}, "\x1b"},
        {{"\x1b[A\x1b[B\x1bOP\x1b[15~"}, "\x1b[A\x1b[B\x1bOP\x1b[15~"},
        {{"\x1b[Aabc\5q"}, "\x1b[Aabc\5q"}, // one burst, led by an escape: handed on as it is
        {{"\x1bx"}, "\x1bx"},
        {{"\x1b\xe9"}, "\x1b\xe9"}, // Alt and a letter of Latin-1
        {{"\x80\x85\xbf\xfe\xff"}, "\x80\x85\xbf\xfe\xff"},
        {{"\xe9x\xe4\xb8y", "\xe9", "z"}, "\xe9x\xe4\xb8y\xe9z"},
        {{"\xc0\x80\xed\xa0\x80\xf8\x88\x80\x80\x80z"},
         "\xc0\x80\xed\xa0\x80\xf8\x88\x80\x80\x80z"},
        {{"\x1b", "[", "A", "q"}, "\x1b[Aq"},
        {{"\x1b[1;", "5C"}, "\x1b[1;5C"},
        {{"\xc3\xa4\xe4\xb8\xad\xf0\x9f\x98\x80"}, "\xc3\xa4\xe4\xb8\xad\xf0\x9f\x98\x80"},
        {{"\xc3", "\xa4", "\xe4", "\xb8", "\xad", "x"}, "\xc3\xa4\xe4\xb8\xadx"},
        {{"\xc4\x85\xd0\x85q"}, "\xc4\x85\xd0\x85q"}, // U+0105, U+0405: not the escape character
        {{"\5\xc3\xa4q"}, "\xc3\xa4q"},
        {{"\x1b[200~pasted \xe4\xb8\xad\x1b[201~"}, "\x1b[200~pasted \xe4\xb8\xad\x1b[201~"},
    };
    Session tui(TUI);
    tui.start();
    for (const auto &row : rows) {
        SCOPED_TRACE(visible(row.chunks[0]));
        for (const std::string &chunk : row.chunks) {
            tui.play({{TYPE, chunk}});
        }
        tui.play({{GETS, row.port}});
    }
    EXPECT_EQ(0u, tui.daemon.command_count("BREAK"));
    tui.expect_nothing_left();
}

TEST(TuiInput, CommandsAndAnEscapeThatStaysPending)
{
    Session tui(TUI);
    tui.start();
    tui.play({{TYPE, "a\5b"}, {TYPE, "c"}, {GETS, "ac"}});
    tui.client->wait_until([&] { return tui.daemon.command_count("BREAK") == 1; }, "a break");
    tui.play({{TYPE, "\5"}, {TYPE, "\x1b[A"}, {GETS, "\x1b[A"}, {LEAVE, "q"}, {GETS, ""}});
}

TEST(TuiInput, EscapeCharacterOfThePort)
{
    const struct {
        int escape;
        std::string name;
        std::string typed, port, quit;
    } rows[] = {
        {29, "Ctrl-]", "\5q\x1d\x1dx", "\5q\x1dx", "\x1dq"},
        {0, "",
         "\1\5\x7f"
         "ab\x80q\0\0c"s, // the stray byte's lower bits are none
         "\1\5\x7f"
         "ab\x80q\0c"s,
         "\0q"s},
        {65, "A", "\1aAA\xc5\x81", "\1aA\xc5\x81", "Aq"}, // U+0141 ends in 0x41
        {32, "SPACE", "a  b", "a b", " q"},
        {233, "\xc3\xa9", "\xe9x\xc3\xa9\xc3\xa9", "\xe9x\xe9", "\xc3\xa9q"},
        {155, "?", "\xc2\x9b\xc2\x9b", "\x9b", "\xc2\x9bq"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.escape);
        Session tui(TUI);
        tui.start({}, R"({"label":"lab","escape":)" + std::to_string(row.escape) + "}");
        EXPECT_TRUE(tui.bar().ends_with("| " + row.name + " ? for help")) << tui.bar();
        tui.play({{TYPE, row.typed}, {GETS, row.port}, {LEAVE, row.quit}});
    }
}

TEST(TuiInput, ALargePasteArrivesWhole)
{
    const std::string text = text_of(1 << 20);
    for (const char *head : {"", "\x1b[200~"}) {
        Session tui(TUI);
        tui.start();
        tui.client->send(head + text);
        tui.daemon.expect_received(head + text);
    }
}

// Between the terminal's marks no key is a command, wherever they are cut.
TEST(TuiInput, NothingInAPasteIsACommand)
{
    std::string big;
    while (big.size() < 100'000) {
        big += "line\5q\5\r\5?" + std::to_string(big.size());
    }
    const std::vector<std::vector<std::string>> rows{
        {"\x1b[200~a", "\5qb\5", "\x1b[201~"},  {"\x1b[200~", "\5", "q", "\x1b[20", "1~"},
        {"k\x1b[20", "0~\5q", "\x1b", "[201~"}, {"\x1b[200~\5q\x1b[200~\x1b[2\x1b\x1b[201~"},
        {"\x1b[200~" + big + "\x1b[201~"},
    };
    Session tui(TUI);
    tui.start();
    for (const std::vector<std::string> &chunks : rows) {
        SCOPED_TRACE(visible(chunks[0].substr(0, 40)));
        for (const std::string &chunk : chunks) {
            tui.play({{TYPE, chunk}, {GETS, chunk}});
        }
        tui.play({{TYPE, "\5\5"}, {GETS, "\5"}});
    }
}

TEST(TuiInput, APasteClosesAPopupAndIsGone)
{
    const std::vector<std::string> rows[] = {
        {"\x1b[200~pasted\x1b[201~"},
        {"\x1b[200~pasted", " \5q and \x1b[A", "\5d more\x1b[201~"},
        {"\x1b[200~" + std::string(5000, 'x') + "\x1b[201~"},
        {"\x1b[20", "0~pasted\x1b", "[201~"},
    };
    Session tui(TUI);
    tui.start();
    // One byte is no beginning of a paste yet.
    tui.play({{TYPE, "\5?"}, {SHOWS, "****"}, {TYPE, "\x1b\x1b"}, {TYPE, "["}, {GETS, "["}});
    for (const std::vector<std::string> &chunks : rows) {
        SCOPED_TRACE(visible(chunks[0].substr(0, 40)));
        tui.play({{TYPE, "\5?"}, {SHOWS, "****"}});
        for (const std::string &chunk : chunks) {
            tui.play({{TYPE, chunk}});
        }
        tui.expect_port_screen("", false);
        tui.play({{TYPE, "x\5\5"}, {TYPE, "\x1b[A"}, {GETS, "x\5\x1b[A"}});
    }
}
