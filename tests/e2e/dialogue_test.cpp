// What the daemon's replies make of the greeting and the sessions dialogue, and how replies that
// come late, in pieces, or not at all are borne.
#include "e2e/fixture.h"

using namespace support;

namespace {

const std::string HEADER = "\t\t==== Sessions ====\r\n"
                           "The following sessions are active on this port\r\n\r\n";
const std::string FOOTER = "\nPress 'Y' to disconnect these sessions\r\n"
                           " or any other key to exit this menu\r\n";
const std::string NO_SESSIONS = "There are no other sessions on this port\r\n";
const std::string ONE_SESSION =
    R"({"sessions":[{"username":"ann","protocol":"SSH","remote_addr":"h:1","session_time":41.6}]})";
const std::string ONE_SESSION_TEXT =
    HEADER + "\tann: SSH (h:1) - Session length 42 second(s)\r\n" + FOOTER;

// Types the command for the list and has it answered.
std::vector<Step> listed(const std::string &reply, const std::string &text)
{
    return {{TYPE, "\5d"}, {ASKS, "LIST_SESSIONS"}, {REPLY, reply}, {SHOWS, text}};
}

std::string repeat(int count, const std::string &text)
{
    std::string all;
    for (int index = 0; index < count; ++index) {
        all += text;
    }
    return all;
}

} // namespace

TEST(Greeting, TextsOfTheDaemon)
{
    const struct {
        std::string reply, label, outlets;
    } rows[] = {
        // A text ends at its NUL.
        {R"({"label":"a\u001b[2Jb\r\nc\u0000d\u007fe\u0085f","escape":5})", "a?[2Jb?\?c"},
        {R"({"label":"\u009b31mx\u00e9\u4e2d","escape":5})", "?31mx\xc3\xa9\xe4\xb8\xad"},
        {"{\"label\":\"x\xff\xc3y\xe4\xb8\",\"escape\":5}", "x?\?y?\?"},
        {R"({"escape":5})"},
        {R"({"label":17,"escape":5})"},
        {R"({"label":"%s%n"})", "%s%n"},
        {R"({"label":"first","label":"last"})", "last"},
        {R"([])"},
        {R"(null)"},
        {R"(7 )"},
        {R"({"label":"lab","outlets":["A","B","C"]})", "lab", "3"},
        {R"({"outlets":[]})", "", "0"},
        {R"({"outlets":"none"})", "", "0"},
        {R"({"outlets":["o")" + repeat(9'999, R"(,"outlet")") + "]}", "", "10000"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(visible(row.reply, 80));
        Session session(BASIC);
        session.shown = "Connected to port: " + row.label + " - Escape key is: Ctrl-e\r\n";
        if (!row.outlets.empty()) {
            session.shown += row.outlets + " Outlet(s) available for control\n";
        }
        session.start({}, row.reply);
    }
}

TEST(Sessions, ListTexts)
{
    const std::string huge = std::to_string(1e300);
    const std::pair<std::string, std::string> rows[] = {
        {R"({"sessions":[{"username":"a","protocol":"Web","session_time":7},)"
         R"({"username":"b","protocol":"Console","remote_addr":"","session_time":0.4}]})",
         "\ta: Web - Session length 7 second(s)\r\n"
         "\tb: Console () - Session length 0 second(s)\r\n"},
        {R"({"sessions":[{"username":"a\u001b]0;x\u0007","protocol":"S\tH",)"
         R"("remote_addr":"h\u0090\n","session_time":-3}]})",
         "\ta?]0;x?: S?H (h?\?) - Session length -3 second(s)\r\n"},
        {R"({"sessions":[{"username":1,"protocol":null,"session_time":"9"}]})",
         "\t:  - Session length 0 second(s)\r\n"},
        {R"({"sessions":[1,null,"x",[]]})", repeat(4, "\t:  - Session length 0 second(s)\r\n")},
        {R"({"sessions":[{"session_time":1e300},{"session_time":-1e18},)"
         R"({"session_time":99999999999999999999}]})",
         "\t:  - Session length " + huge.substr(0, huge.find('.')) +
             " second(s)\r\n"
             "\t:  - Session length -1000000000000000000 second(s)\r\n"
             "\t:  - Session length 9223372036854775808 second(s)\r\n"},
        {R"({"sessions":[{"username":")" + std::string(100'000, 'n') + R"("}]})",
         "\t" + std::string(100'000, 'n') + ":  - Session length 0 second(s)\r\n"},
        {R"({"sessions":[{"username":"u"})" +
             repeat(5000, R"(,{"username":"u","session_time":1})") + "]}",
         "\tu:  - Session length 0 second(s)\r\n" +
             repeat(5000, "\tu:  - Session length 1 second(s)\r\n")},
    };
    Session session(BASIC);
    session.start(ADMIN);
    for (const auto &[reply, text] : rows) {
        SCOPED_TRACE(visible(reply, 80));
        session.play(listed(reply, HEADER + text + FOOTER));
        session.play({{TYPE, "n"}});
    }
    session.expect_nothing_left();
}

TEST(Sessions, AnswersToTheQuestion)
{
    Session session(BASIC);
    session.start(ADMIN);
    for (const char *answer : {"Y", "y", "Yx", "xY", "YY", "\5", "\5q", "\r"}) {
        SCOPED_TRACE(visible(answer));
        session.play(listed(ONE_SESSION, ONE_SESSION_TEXT));
        session.play({{TYPE, answer}});
        if (answer == std::string("Y")) {
            session.play({{ASKS, "DISCONNECT_SESSIONS"}, {REPLY, "{}"}});
        }
        session.expect_relay(); // neither the answer nor a pending escape is left over
    }
    session.expect_nothing_left();
}

TEST(Sessions, NobodyElse)
{
    Session session(BASIC);
    session.start(ADMIN);
    for (const char *reply : {"{}", "null"}) {
        session.play({{TYPE, "\5d"}, {ASKS, "LIST_SESSIONS"}, {REPLY, reply}});
        session.play({{LOGS, "Could not retrieve sessions list"}});
    }
    session.play(listed(R"({"sessions":[]})", NO_SESSIONS));
    session.expect_nothing_left(); // no answer is waited for
}

TEST(Sessions, OnlyForTheExactRight)
{
    for (const char *right : {"Admin", "administrator", "access", ""}) {
        Session session(BASIC);
        session.play_all(
            {.arguments = {right}},
            {{TYPE, "\5d"},
             {SHOWS, "Your current access rights on this port\r\n"
                     "do not give you permission to list or disconnect sessions\r\n"}});
    }
}

TEST(Sessions, TheRelayGoesOnWhileTheDaemonThinks)
{
    Session(BASIC).play_all(ADMIN, {{TYPE, "\5d"},
                                    {ASKS, "LIST_SESSIONS"},
                                    {TYPE, "\5dab"},
                                    {GETS, "ab"}, // a second list waits behind the first
                                    {PRINT, "port"},
                                    {SHOWS, "port"},
                                    {REPLY, ONE_SESSION},
                                    {SHOWS, ONE_SESSION_TEXT},
                                    {TYPE, "Y"},
                                    {ASKS, "LIST_SESSIONS"},
                                    {TYPE, "k"},
                                    {GETS, "k"}, // sent although the daemon has not replied yet
                                    {REPLY, "{\"sessions\":[]}"},
                                    {SHOWS, NO_SESSIONS},
                                    {ASKS, "DISCONNECT_SESSIONS"}});
}

TEST(Replies, InPiecesAndTogether)
{
    Session session(BASIC);
    session.daemon.answer("PORT_INFO", std::nullopt);
    session.launch(ADMIN);
    session.play({{ASKS, "PORT_INFO"}});
    for (const char byte : std::string(PORT_INFO)) {
        session.play({{REPLY, std::string(1, byte)}});
    }
    session.daemon.answer("BREAK", std::nullopt);
    session.play({{SHOWS, ""}, {TYPE, "\5b\5d\5b"}, {ASKS, "BREAK"}});
    EXPECT_EQ(0u, session.daemon.commands_waiting()); // one at a time
    session.play({{REPLY, "{} \n" + ONE_SESSION + "[1,{\"a\":[]}]{\"nobody's\":1}"},
                  {SHOWS, ONE_SESSION_TEXT},
                  {TYPE, "n"},
                  {ASKS, "LIST_SESSIONS"},
                  {ASKS, "BREAK"},
                  {LOGS, "unexpected data on command socket - no scheduled command"}});
    session.play(listed("{\"sessions\":[]}", NO_SESSIONS));
    session.expect_nothing_left();
}

TEST(Replies, GarbageIsLoggedAndForgotten)
{
    for (const std::string &garbage :
         {std::string("}{"), std::string("{\"a\":}{\"b\":1}"), std::string("\0\0{\0", 4),
          std::string("\xff\xfe"), std::string(5000, '['), "{\"a\":" + std::string(4000, '[')}) {
        SCOPED_TRACE(visible(garbage, 40));
        Session session(BASIC);
        session.start(ADMIN);
        session.play({{TYPE, "\5d"}, {ASKS, "LIST_SESSIONS"}, {REPLY, garbage}});
        session.client->wait_until([&] { return !session.client->log().empty(); }, "a message");
        session.play({{REPLY, ONE_SESSION}, {SHOWS, ONE_SESSION_TEXT}, {TYPE, "n"}});
        session.logged = session.client->log(); // once or several times
        EXPECT_TRUE(session.logged.ends_with(log_line("Error occurred with command response")));
    }
}

TEST(Replies, UnaskedBytesWaitForTheNextCommand)
{
    Session session(BASIC);
    session.start(ADMIN);
    session.play({{REPLY, R"({"sessions")"},
                  {LOGS, "unexpected data on command socket - no scheduled command"}});
    session.play(listed(":[]}", NO_SESSIONS));
    session.play(listed(ONE_SESSION, ONE_SESSION_TEXT));
    session.play({{TYPE, "n"}});
    session.expect_nothing_left();
}

TEST(Replies, UnaskedFloodDoesNotHideTheHangUp)
{
    for (const size_t size : {100u, 4096u, 100'000u}) {
        Session session(BASIC);
        session.start();
        session.daemon.reply(std::string(size, ' '));
        session.daemon.hang_up_cmd();
        EXPECT_EQ(0, session.client->wait_for_exit());
        session.logged = session.client->log();
    }
}

// The escape character is not known yet, but bytes pass.
TEST(Replies, NoneAtAll)
{
    for (const FrontEnd kind : {BASIC, TUI}) {
        Session session(kind);
        session.daemon.answer("SET_USER", std::nullopt);
        session.launch();
        session.shown = "";
        session.play({{PRINT, "port"}, {SHOWS, "port"}, {TYPE, "\5b\5bk"}, {GETS, "k"}});
        session.daemon.expect_command("SET_USER");
        session.expect_nothing_left();
    }
}
