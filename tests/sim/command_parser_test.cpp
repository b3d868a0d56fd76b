#include "sim/command_parser.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

// The requests in the chunks: compact text, or "!" for bytes that are none.
std::string requests(const std::vector<std::string> &chunks)
{
    CommandParser parser;
    std::string all;
    for (const std::string &chunk : chunks) {
        parser.push(chunk);
        Json request;
        while (parser.next(request)) {
            all += (request ? to_text(request.get()) : "!") + " ";
        }
        EXPECT_FALSE(parser.has_waiting());
    }
    return all;
}

TEST(CommandParser, CutsRequestsOutOfAnyChunks)
{
    struct Row {
        std::vector<std::string> chunks;
        std::string requests;
    };
    using namespace std::string_literals;
    const Row rows[] = {
        {{R"({"cmd":"BREAK"})"}, R"({"cmd":"BREAK"} )"},
        {{R"({"cmd":"A"}{"cmd":"B"})", "{}"}, R"({"cmd":"A"} {"cmd":"B"} {} )"},
        {{"{\"c", "md\":\"a", "b", "\"", "}"}, R"({"cmd":"ab"} )"},
        {{" \r\n\t", "{} \n", "\n[1,2]"}, "{} [1,2] "},
        {{"{\"cmd\"]", "{}"}, "! {} "},
        {{"}{}", "{}"}, "! {} "},
        {{"\0{}"s, "{}"}, "! {} "},
        {{"{\"cmd\":", "\"A\"", "]", "{}"}, "! {} "},
        {{R"({"a":"\u0000/"})"}, R"({"a":"\u0000/"} )"},
        {{"{\"cmd\":"}, ""},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(requests(row.chunks), row.requests) << row.chunks.front();
    }
}

TEST(CommandParser, LimitsDepthAndLength)
{
    EXPECT_EQ(requests({std::string(1000, '['), "{}"}), "! {} ");

    // Too long a text is refused before its end, and what follows it in its own chunk is heard.
    CommandParser parser;
    Json request;
    parser.push("\"");
    EXPECT_FALSE(parser.next(request));
    size_t pushed = 0;
    bool refused = false;
    for (; !refused && pushed < (4 << 20); pushed += 4096) {
        parser.push(std::string(4096, 'a'));
        refused = parser.next(request);
    }
    EXPECT_TRUE(refused);
    EXPECT_EQ(request, nullptr);
    EXPECT_LT(pushed, 2u << 20);
    parser.push("[3]");
    EXPECT_TRUE(parser.next(request));
    EXPECT_EQ(to_text(request.get()), "[3]");
}

} // namespace
} // namespace sim
