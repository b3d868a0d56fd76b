// The escape character and its commands: chunks of typed bytes in, port bytes and requests out.
#include "e2e/basic.h"

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

// Each chunk is read by the client before the next is sent.
void send_chunks(Program &client, const std::vector<std::string> &chunks)
{
    for (const std::string &chunk : chunks) {
        client.send(chunk);
        client.wait_until_read();
    }
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
        {{"abc"}, "abc"},
        {{"\5", "\5"}, "\5"},
        {{"\5\5"}, "\5"},
        {{"\5\5\5\5"}, "\5\5"},
        {{"a", "\5", "\5", "b"}, "a\5b"},
        {{"\5", "b"}, "", 1},
        {{"\5bx"}, "x", 1},
        {{"\5bbb\5b"}, "bb", 2},
        {{"\5b", "\5b", "\5b"}, "", 3},
        {{"a\5", "bc"}, "ac", 1},
        {{"\5Qz"}, "z"},
        {{"\5B\5D\5P"}, ""},
        {{"\5sz"}, "z"},
        {{"\5xb"}, "b"},
        {{"a\0b\5\5\0"s}, "a\0b\5\0"s},
        {{"\5\0z"s}, "z"},
        {{"\xff\5\xfe\xfd"}, "\xff\xfd"},
        {{half + "\5b" + half}, half + half, 1},
        {{half + half + "\5\5", "tail"}, half + half + "\5tail"},
        {{"a\5?b"}, "ab", 0, help},
        {{"\5?\5?"}, "", 0, help + help},
        {{"\5", "dx"}, "x", 0, NO_PERMISSION},
        {{"\5py"}, "y", 0, NO_OUTLETS},
        {{"\5d\5p\5?"}, "", 0, NO_PERMISSION + NO_OUTLETS + help},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(visible(row.chunks[0], 40));
        Basic session;
        session.daemon.answer("BREAK", "{}");
        session.start(PIPES);
        send_chunks(*session.client, row.chunks);
        session.expect_relay(row.port);
        session.expect_output(row.output);
        session.client->wait_until(
            [&] { return session.daemon.command_count("BREAK") >= row.breaks; }, "breaks");
        EXPECT_EQ(0, session.quit());
        session.daemon.expect_received(row.port + "~");
        EXPECT_EQ(row.breaks, session.daemon.command_count("BREAK"));
        EXPECT_EQ(0u, session.daemon.commands_waiting());
        EXPECT_EQ("", session.client->log());
    }
}

TEST(Escape, QuitDropsWhatFollowsAndSendsWhatCameBefore)
{
    for (const auto &[chunks, port] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"\5q"}, ""},
             {{"\5", "q"}, ""},
             {{"abc\5qrest\5b"}, "abc"},
             {{"ab\5\5\5", "q"}, "ab\5"}}) {
        Basic session;
        session.start(PIPES);
        for (const std::string &chunk : chunks) {
            session.client->send(chunk);
            if (&chunk != &chunks.back()) {
                session.client->wait_until_read();
            }
        }
        EXPECT_EQ(0, session.client->wait_for_exit());
        session.daemon.expect_received(port);
        EXPECT_EQ(session.greeting, session.client->output());
        EXPECT_EQ(0u, session.daemon.commands_waiting());
    }
}

TEST(Escape, CharacterOfThePort)
{
    const struct {
        const char *reply;
        std::string name;
        std::string typed; // the last command is to quit
        std::string port;
    } rows[] = {
        {R"({"label":"lab","escape":29})", "Ctrl-]", "\5q\x1d\x1d\x1dq", "\5q\x1d"},
        {R"({"label":"lab","escape":285})", "Ctrl-]", "\x1dq", ""},
        {R"({"label":"lab","escape":28})", "Ctrl-\\", "\x1cq", ""},
        {R"({"label":"lab","escape":32})", "SPACE", "a q", "a"},
        {R"({"label":"lab","escape":127})", "Ctrl-?", "\x7f\x7f\x7fq", "\x7f"},
        {R"({"label":"lab","escape":65})", "A", "aAAbAq", "aAb"},
        {R"({"label":"lab","escape":113})", "q", "xqq", "x"},
        {R"({"label":"lab","escape":1})", "Ctrl-a", "\x01q", ""},
        {R"({"label":"lab","escape":226})", "\xc3\xa2", "\xe2\xe2\xe2q", "\xe2"},
        {R"({"label":"lab"})", "Ctrl-e", "x\5q", "x"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reply);
        Basic session;
        session.start({}, row.reply,
                      "Connected to port: lab - Escape key is: " + row.name + "\r\n");
        session.client->send(row.typed);
        EXPECT_EQ(0, session.client->wait_for_exit());
        session.daemon.expect_received(row.port);
    }
}

TEST(Escape, HelpNamesTheCharacter)
{
    for (const auto &[escape, name] : std::vector<std::pair<int, std::string>>{
             {29, "Ctrl-]"}, {64, "@"}, {0, ""}, {0xe9, "\xc3\xa9"}, {0x9b, "?"}}) {
        Basic session;
        session.start({}, (R"({"label":"lab","escape":)" + std::to_string(escape) + "}").c_str(),
                      "Connected to port: lab - Escape key is: " + name + "\r\n");
        session.client->send(std::string(1, char(escape)) + "?");
        session.expect_output(help_with(name));
    }
}

TEST(Escape, ControlEBeforeTheReply)
{
    Basic session;
    session.launch();
    session.daemon.expect_command("SET_USER");
    session.daemon.send("up");
    session.client->wait_for_output("up");
    EXPECT_EQ(0, session.quit());
}
