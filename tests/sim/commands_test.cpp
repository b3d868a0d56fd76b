// The simulator's requests: cut out of what arrives, answered, and told in the history.
#include "sim/commands.h"

#include <gtest/gtest.h>

#include "sim/command_parser.h"

namespace sim {
namespace {

using namespace std::string_literals;

TEST(CommandParser, CutsRequestsOutOfAnyChunks)
{
    const struct {
        std::vector<std::string> chunks;
        std::string requests; // compact texts, or "!" for bytes that are none
    } rows[] = {
        {{R"({"cmd":"A"}{"cmd":"B"})", "{}"}, R"({"cmd":"A"} {"cmd":"B"} {} )"},
        {{"{\"c", "md\":\"a", "b", "\"", "}"}, R"({"cmd":"ab"} )"},
        {{" \r\n\t", "{} \n", "\n[1,2]"}, "{} [1,2] "},
        {{"}{}", "{}"}, "! {} "},
        {{"\0{}"s, "{}"}, "! {} "},
        {{"{\"cmd\":", "\"A\"", "]", "{}"}, "! {} "},
        {{"{\"cmd\":"}, ""},
        {{std::string(1000, '['), "{}"}, "! {} "},
        {{"\"", std::string(2 << 20, 'a'), "{}"}, "! {} "},
    };
    for (const auto &row : rows) {
        CommandParser parser;
        std::string requests;
        for (const std::string &chunk : row.chunks) {
            parser.push(chunk);
            Json request;
            while (parser.next(request)) {
                requests += (request ? to_text(request.get()) : "!") + " ";
            }
        }
        EXPECT_EQ(requests, row.requests) << row.chunks.front();
    }
}

struct Commands : testing::Test {
    PortState port{100};
    Session &asker = port.sessions.emplace_back();
    int breaks = 0;
    PortActions actions{.send_break = [this] { breaks++; }};

    std::string ask(const std::string &request)
    {
        Json value(json_tokener_parse(request.c_str()));
        return answer(port, asker, value.get(), actions);
    }
};

TEST_F(Commands, AnswersAnythingElseWithAnEmptyObject)
{
    for (const char *request :
         {"null", "1", "\"PORT_INFO\"", "[]", "{}", R"({"cmd":5})", R"({"cmd":"NO_SUCH"})",
          R"({"cmd":"port_info"})", R"({"cmd":"SET_USER"})", R"({"cmd":"SET_USER","args":[1]})"}) {
        EXPECT_EQ(ask(request), "{}") << request;
    }
    EXPECT_EQ(port.history.size(), 0u);
    EXPECT_FALSE(asker.announced);
}

TEST_F(Commands, StandInTheHistoryNewestFirst)
{
    port.history.received("\x1b[1mr\xe4\x07\n"s, 1000);
    port.history.sent("ls\r", 2000);
    EXPECT_EQ(ask(R"({"cmd":"SCROLLBACK"})"),
              R"({"scrollback":[{"line":"ls","timestamp":2000,"scrollback_idx":1,"type":2},)"
              R"({"line":"\u001b[1mr)"
              "\xEF\xBF\xBD"
              R"(\u0007","timestamp":1000,"scrollback_idx":0,"type":3}]})");
    EXPECT_EQ(ask(R"({"cmd":"BREAK"})"), "{}");
    EXPECT_EQ(breaks, 1);
    ask(R"({"cmd":"SET_USER","args":{"username":"ann","protocol":"SSH","remote_addr":"h:1"}})");
    change_signals(port, {.dsr = true, .ri = true});
    change_signals(port, {.dsr = true});
    const char *const lines[] = {"RI off", "RI on", "DSR on", "ann through SSH from h:1",
                                 "BREAK sent by unknown"};
    for (size_t i = 0; i < std::size(lines); i++) {
        EXPECT_EQ(port.history.newest(i).text, lines[i]);
        EXPECT_EQ(port.history.newest(i).type, i == 3 ? LineType::Login : LineType::Signal);
    }
}

} // namespace
} // namespace sim
