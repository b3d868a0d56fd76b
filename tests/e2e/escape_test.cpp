// The escape character and its commands: chunks of typed bytes in, port bytes and requests out.
#include "e2e/fixture.h"

using namespace support;
using namespace std::string_literals;

namespace {

const std::string NO_PERMISSION = "Your current access rights on this port\r\n"
                                  "do not give you permission to list or disconnect sessions\r\n";
const std::string NO_OUTLETS = "\r\n\r\nError: No outlets available\r\n\r\n";

std::string help_with(const std::string &name)
{
    return "\t\t====Terminal Port Help====\r\n"
           "\tEscape-Char: " +
           name +
           "\r\n"
           "\tEscape-Char q to quit\r\n"
           "\tEscape-Char b to send serial break\r\n"
           "\tEscape-Char d to list or disconnect other sessions\r\n"
           "\tEscape-Char s for port history (graphical terminal only)\r\n"
           "\tEscape-Char ? for this help\r\n";
}

} // namespace

TEST(Escape, ChunksToPortBytesAndRequests)
{
    const std::string half(3000, 'h');
    const std::string help = help_with("Ctrl-e");
    const struct {
        std::vector<std::string> chunks;
        std::string port;
        size_t breaks = 0;
        std::string output = "";
    } rows[] = {
        {{"\5\5\5\5"}, "\5\5"},
        {{"a", "\5", "\5", "b"}, "a\5b"},
        {{"\5bbb\5b"}, "bb", 2},
        {{"a\5", "bc"}, "ac", 1},
        {{"\5Qz"}, "z"},
        {{"\5B\5D\5P"}, ""},
        {{"a\0b\5\5\0"s}, "a\0b\5\0"s},
        {{"\5\0z"s}, "z"},
        {{"\xff\5\xfe\xfd"}, "\xff\xfd"},
        {{half + "\5b" + half}, half + half, 1},
        {{half + half + "\5\5", "tail"}, half + half + "\5tail"},
        {{"\5?\5?"}, "", 0, help + help},
        {{"\5", "dx"}, "x", 0, NO_PERMISSION},
        {{"\5py"}, "y", 0, NO_OUTLETS},
    };
    Session session(BASIC);
    session.start(PIPES);
    size_t breaks = 0;
    for (const auto &row : rows) {
        SCOPED_TRACE(visible(row.chunks[0], 40));
        for (const std::string &chunk : row.chunks) {
            session.play({{TYPE, chunk}});
        }
        session.play({{GETS, row.port}, {SHOWS, row.output}});
        session.expect_relay();
        breaks += row.breaks;
        EXPECT_EQ(breaks, session.daemon.command_count("BREAK"));
    }
    session.expect_nothing_left();
}

TEST(Escape, QuitDropsWhatFollowsAndSendsWhatCameBefore)
{
    const struct {
        std::vector<Step> typed;
        std::string port;
    } rows[] = {{{{LEAVE, "\5q"}}, ""},
                {{{TYPE, "\5"}, {LEAVE, "q"}}, ""},
                {{{LEAVE, "abc\5qrest\5b"}}, "abc"},
                {{{TYPE, "ab\5\5\5"}, {LEAVE, "q"}}, "ab\5"}};
    for (const auto &[typed, port] : rows) {
        Session session(BASIC);
        session.start(PIPES);
        session.play(typed);
        session.play({{GETS, port}, {SHOWS, ""}});
        EXPECT_EQ(0u, session.daemon.command_count("BREAK"));
    }
}

TEST(Escape, CharacterOfThePort)
{
    const struct {
        std::string escape, name, typed, port;
        char character; // as typed
    } rows[] = {
        {"29", "Ctrl-]", "\5q\x1d\x1d", "\5q\x1d", '\x1d'},
        {"285", "Ctrl-]", "", "", '\x1d'},
        {"32", "SPACE", "a", "a", ' '},
        {"127", "Ctrl-?", "\x7f\x7f", "\x7f", '\x7f'},
        {"65", "A", "aAAb", "aAb", 'A'},
        {"113", "q", "x", "x", 'q'},
        {"0", "", "\0\0"s, "\0"s, '\0'},
        {"1", "Ctrl-a", "", "", '\1'},
        {"28", "Ctrl-\\", "", "", '\x1c'},
        {"155", "?", "", "", '\x9b'},
        {"226", "\xc3\xa2", "\xe2\xe2", "\xe2", '\xe2'},
        {"null", "Ctrl-e", "x", "x", '\5'},
        {"\"29\"", "Ctrl-e", "", "", '\5'},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.escape);
        Session session(BASIC);
        session.shown = "Connected to port: lab - Escape key is: " + row.name + "\r\n";
        session.quit_keys = std::string(1, row.character) + "q";
        session.start({}, R"({"label":"lab","escape":)" + row.escape + "}");
        session.play({{TYPE, row.typed + row.character + "?"}, {SHOWS, help_with(row.name)}});
        session.play({{GETS, row.port}});
        session.expect_nothing_left();
    }
}
