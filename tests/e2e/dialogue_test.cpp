// What the daemon's replies make of the greeting and the sessions dialogue, and how replies that
// come late, in pieces, or not at all are borne.
#include "e2e/basic.h"

using namespace support;

namespace {

const std::string HEADER = "\t\t==== Sessions ====\r\n"
                           "The following sessions are active on this port\r\n\r\n";
const std::string FOOTER = "\nPress 'Y' to disconnect these sessions\r\n"
                           " or any other key to exit this menu\r\n";
const std::string NO_SESSIONS = "There are no other sessions on this port\r\n";
const char *const ONE_SESSION =
    R"({"sessions":[{"username":"ann","protocol":"SSH","remote_addr":"h:1","session_time":41.6}]})";
const std::string ONE_SESSION_TEXT =
    HEADER + "\tann: SSH (h:1) - Session length 42 second(s)\r\n" + FOOTER;

std::string error_line(const std::string &text)
{
    return "zorvad-client 24.3 " + text + "\n";
}

struct Admin : Basic {
    void start_admin(const char *port_info = PORT_INFO, const std::string &greeted = GREETING)
    {
        start({.arguments = {"admin"}, .input = {Stream::PIPE}, .output = {Stream::PIPE}},
              port_info, greeted);
    }
    void list(const std::string &reply)
    {
        client->send("\5d");
        EXPECT_EQ(R"({"cmd":"LIST_SESSIONS"})", daemon.next_command());
        daemon.reply(reply);
    }
};

} // namespace

TEST(Greeting, TextsOfTheDaemon)
{
    const struct {
        const char *reply;
        std::string greeting;
    } rows[] = {
        {R"({"label":"a\u001b[2Jb\r\nc\u0000d\u007fe\u0085f","escape":5})",
         "a?[2Jb?\?c"}, // a text ends at its NUL
        {R"({"label":"\u009b31mx\u00e9\u4e2d","escape":5})", "?31mx\xc3\xa9\xe4\xb8\xad"},
        {"{\"label\":\"x\xff\xc3y\xe4\xb8\",\"escape\":5}", "x?\?y?"},
        {R"({"escape":5})", ""},
        {R"({"label":17,"escape":5})", ""},
        {R"({"label":"%s%n"})", "%s%n"},
        {R"({"label":"first","label":"last"})", "last"},
        {R"([])", ""},
        {R"(null)", ""},
        {R"(7 )", ""},
        {R"("text")", ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reply);
        Basic session;
        session.launch();
        session.daemon.expect_command("SET_USER");
        session.daemon.reply("{}");
        session.daemon.expect_command("PORT_INFO");
        session.daemon.reply(row.reply);
        session.client->wait_for("- Escape key is: Ctrl-e\r\n");
        const std::string head = "Connected to port: ";
        const std::string found = session.client->output().substr(head.size());
        // A run of bad bytes may be one "?" or several.
        EXPECT_EQ(head, session.client->output().substr(0, head.size()));
        EXPECT_EQ(row.greeting,
                  found.substr(0, found.find(" - Escape")).substr(0, row.greeting.size()));
        EXPECT_EQ(0, session.quit());
    }
}

TEST(Greeting, CountsOutlets)
{
    std::string many = R"({"label":"lab","outlets":["o")";
    for (int index = 1; index < 10'000; ++index) {
        many += R"(,"outlet )" + std::to_string(index) + "\"";
    }
    const std::pair<std::string, std::string> rows[] = {
        {R"({"label":"lab","outlets":["A","B","C"]})", "3 Outlet(s) available for control\n"},
        {R"({"label":"lab","outlets":[]})", "0 Outlet(s) available for control\n"},
        {R"({"label":"lab","outlets":"none"})", "0 Outlet(s) available for control\n"},
        {many + "]}", "10000 Outlet(s) available for control\n"},
    };
    for (const auto &[reply, text] : rows) {
        Basic session;
        session.start({}, reply.c_str(), GREETING + text);
        EXPECT_EQ(0, session.quit());
    }
}

TEST(Sessions, ListTexts)
{
    const struct {
        const char *reply;
        std::string text;
    } rows[] = {
        {ONE_SESSION, ONE_SESSION_TEXT},
        {R"({"sessions":[{"username":"a","protocol":"Web","session_time":7},)"
         R"({"username":"b","protocol":"Console","remote_addr":"","session_time":0.4}]})",
         HEADER +
             "\ta: Web - Session length 7 second(s)\r\n"
             "\tb: Console () - Session length 0 second(s)\r\n" +
             FOOTER},
        {R"({"sessions":[{"username":"a\u001b]0;x\u0007","protocol":"S\tH",)"
         R"("remote_addr":"h\u0090\n","session_time":-3}]})",
         HEADER + "\ta?]0;x?: S?H (h?\?) - Session length -3 second(s)\r\n" + FOOTER},
        {R"({"sessions":[{}]})", HEADER + "\t:  - Session length 0 second(s)\r\n" + FOOTER},
        {R"({"sessions":[{"username":1,"protocol":null,"session_time":"9"}]})",
         HEADER + "\t:  - Session length 0 second(s)\r\n" + FOOTER},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reply);
        Admin session;
        session.start_admin();
        session.list(row.reply);
        session.expect_output(row.text);
        session.client->send("n");
        session.client->wait_until_read();
        session.expect_relay("");
        EXPECT_EQ(0, session.quit());
    }
}

TEST(Sessions, OddTimesAndSizesAreBorne)
{
    std::string crowd = R"({"sessions":[{"username":"u"})";
    for (int index = 0; index < 5000; ++index) {
        crowd += R"(,{"username":"u","session_time":1})";
    }
    for (const std::string &reply :
         {std::string(R"({"sessions":[{"session_time":1e300}]})"),
          std::string(R"({"sessions":[{"session_time":-1e18}]})"),
          std::string(R"({"sessions":[{"session_time":99999999999999999999}]})"),
          R"({"sessions":[{"username":")" + std::string(100'000, 'n') + R"("}]})",
          std::string(R"({"sessions":[1,null,"x",[],{}]})"), crowd + "]}"}) {
        Admin session;
        session.start_admin();
        session.list(reply);
        session.client->wait_for(FOOTER);
        session.client->send("n");
        session.client->wait_until_read();
        session.expect_relay("");
        EXPECT_EQ(0, session.quit());
    }
}

TEST(Sessions, AnswersToTheQuestion)
{
    const struct {
        const char *answer;
        bool disconnects;
    } rows[] = {{"Y", true},   {"y", false},  {"Yx", false},  {"xY", false},
                {"YY", false}, {"\5", false}, {"\5q", false}, {"\r", false}};
    for (const auto &row : rows) {
        SCOPED_TRACE(visible(row.answer));
        Admin session;
        session.start_admin();
        session.list(ONE_SESSION);
        session.expect_output(ONE_SESSION_TEXT);
        session.client->send(row.answer);
        session.client->wait_until_read();
        if (row.disconnects) {
            EXPECT_EQ(R"({"cmd":"DISCONNECT_SESSIONS"})", session.daemon.next_command());
            session.daemon.reply("{}");
        }
        session.expect_relay(""); // neither the answer nor a pending escape is left over
        session.expect_output(ONE_SESSION_TEXT);
        EXPECT_EQ(0, session.quit());
        EXPECT_EQ(row.disconnects, session.daemon.command_count("DISCONNECT_SESSIONS"));
    }
}

TEST(Sessions, NobodyElse)
{
    Admin session;
    session.start_admin();
    session.list(R"({"sessions":[]})");
    session.expect_output(NO_SESSIONS);
    session.expect_relay(""); // no answer is waited for
    session.list(R"({})");
    session.list(R"(null)");
    session.list(R"({"sessions":[]})"); // the last reply was handled after the two before
    session.expect_output(NO_SESSIONS + NO_SESSIONS);
    EXPECT_EQ(error_line("Could not retrieve sessions list") +
                  error_line("Could not retrieve sessions list"),
              session.client->log());
    EXPECT_EQ(0, session.quit());
}

TEST(Sessions, OnlyForTheExactRight)
{
    for (const char *right : {"Admin", "administrator", "access", ""}) {
        Basic session;
        session.start({.arguments = {right}});
        session.client->send("\5d");
        session.client->wait_for("permission to list");
        session.expect_relay("");
        EXPECT_EQ(0u, session.daemon.command_count("LIST_SESSIONS"));
    }
}

TEST(Sessions, TheRelayGoesOnWhileTheDaemonThinks)
{
    Admin session;
    session.start_admin();
    session.client->send("\5d");
    session.daemon.expect_command("LIST_SESSIONS");
    session.client->send("\5dab"); // a second list waits behind the first
    session.daemon.send("port");
    session.daemon.expect_received("ab");
    session.expect_output("port");
    EXPECT_EQ(1u, session.daemon.command_count("LIST_SESSIONS"));
    session.daemon.reply(ONE_SESSION);
    session.daemon.expect_command("LIST_SESSIONS");
    session.daemon.reply(R"({"sessions":[]})");
    session.expect_output("port" + ONE_SESSION_TEXT + NO_SESSIONS);
    session.client->send("Y"); // still the answer to the first
    session.daemon.expect_command("DISCONNECT_SESSIONS");
    session.expect_relay("ab"); // sent although the daemon has not replied yet
    EXPECT_EQ(0, session.quit());
}

TEST(Replies, InPiecesAndTogether)
{
    Admin session;
    session.launch({.arguments = {"admin"}, .input = {Stream::PIPE}, .output = {Stream::PIPE}});
    session.daemon.expect_command("SET_USER");
    session.daemon.reply("{}");
    session.daemon.expect_command("PORT_INFO");
    for (const char byte : std::string(PORT_INFO)) {
        session.daemon.reply(std::string(1, byte));
    }
    session.greeting = GREETING;
    session.expect_output("");
    session.client->send("\5b\5d\5b");
    session.daemon.expect_command("BREAK");
    EXPECT_EQ(0u, session.daemon.commands_waiting()); // one at a time
    session.daemon.reply("{} \n" + std::string(ONE_SESSION) + "[1,{\"a\":[]}]");
    session.expect_output(ONE_SESSION_TEXT);
    session.daemon.expect_command("LIST_SESSIONS");
    session.daemon.expect_command("BREAK");
    session.client->send("n");
    session.client->wait_until_read();
    EXPECT_EQ(0, session.quit());
    EXPECT_EQ("", session.client->log());
}

TEST(Replies, GarbageIsLoggedAndForgotten)
{
    const std::string nul("\0\0{\0", 4);
    for (const std::string &garbage :
         {std::string("}{"), std::string("{\"a\":}{\"b\":1}"), nul, std::string("\xff\xfe"),
          std::string(5000, '['), "{\"a\":" + std::string(4000, '[')}) {
        SCOPED_TRACE(visible(garbage, 40));
        Admin session;
        session.start_admin();
        session.client->send("\5d");
        session.daemon.expect_command("LIST_SESSIONS");
        session.daemon.reply(garbage);
        session.client->wait_until([&] { return !session.client->log().empty(); }, "a message");
        session.daemon.reply(ONE_SESSION);
        session.client->wait_for(FOOTER);
        EXPECT_NE(std::string::npos,
                  session.client->log().find(error_line("Error occurred with command response")));
        session.client->send("n");
        session.client->wait_until_read();
        EXPECT_EQ(0, session.quit());
    }
}

TEST(Replies, UnaskedBytesWaitForTheNextCommand)
{
    Admin session;
    session.start_admin();
    session.daemon.reply(R"({"sessions":[]})");
    session.client->wait_until([&] { return !session.client->log().empty(); }, "a message");
    EXPECT_EQ(error_line("unexpected data on command socket - no scheduled command"),
              session.client->log());
    session.list(ONE_SESSION); // answered by what was there before
    session.expect_output(NO_SESSIONS);
    session.expect_relay("");
    session.list(ONE_SESSION);
    session.expect_output(NO_SESSIONS + ONE_SESSION_TEXT);
}

TEST(Replies, UnaskedFloodDoesNotHideTheHangUp)
{
    for (const size_t size : {100u, 4096u, 100'000u}) {
        Basic session;
        session.start();
        session.daemon.reply(std::string(size, ' '));
        session.daemon.hang_up_cmd();
        EXPECT_EQ(0, session.client->wait_for_exit());
    }
}

TEST(Replies, NoneAtAll)
{
    Basic session;
    session.launch();
    session.daemon.expect_command("SET_USER");
    session.daemon.send("port");
    session.client->wait_for_output("port");
    session.client->send("\5b\5b");
    session.expect_relay("");
    EXPECT_EQ(0, session.quit());
    EXPECT_EQ(0u, session.daemon.commands_waiting());
    EXPECT_EQ("", session.client->log());
}
