#include "sim/commands.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

using namespace std::string_literals;

class Commands : public testing::Test {
protected:
    Commands() : port_(100), asker_(port_.sessions.emplace_back())
    {
        asker_.attached = true;
        actions_.send_break = [this] { breaks_++; };
    }

    std::string ask(const std::string &request) { return ask(asker_, request); }
    std::string ask(Session &asker, const std::string &request)
    {
        Json value(json_tokener_parse(request.c_str()));
        return answer(port_, asker, value.get(), actions_);
    }
    std::string command(const std::string &name) { return ask("{\"cmd\":\"" + name + "\"}"); }
    Session &add(const std::string &user, const std::string &more)
    {
        Session &session = port_.sessions.emplace_back();
        ask(session, R"({"cmd":"SET_USER","args":{"username":")" + user + "\"" + more + "}}");
        return session;
    }

    PortState port_;
    Session &asker_;
    PortActions actions_;
    int breaks_ = 0;
};

TEST_F(Commands, AnswersAnythingElseWithAnEmptyObject)
{
    for (const char *request :
         {"null", "1", "\"PORT_INFO\"", "[]", "{}", R"({"cmd":5})", R"({"cmd":"NO_SUCH"})",
          R"({"cmd":"port_info"})", R"({"cmd":"SET_USER"})", R"({"cmd":"SET_USER","args":[1]})"}) {
        EXPECT_EQ(ask(request), "{}") << request;
    }
    EXPECT_EQ(port_.history.size(), 0u);
    EXPECT_FALSE(asker_.announced);
}

TEST_F(Commands, SessionsAreThoseOfTheOthers)
{
    EXPECT_EQ(command("LIST_SESSIONS"), R"({"sessions":[]})");
    Session &ann = add("ann", R"(,"protocol":"SSH","remote_addr":"10.0.0.7:4000")");
    add("bob", "");
    port_.sessions.emplace_back(); // only asks
    std::string text = command("LIST_SESSIONS");
    Json reply(json_tokener_parse(text.c_str()));
    json_object *sessions = json_object_object_get(reply.get(), "sessions");
    ASSERT_EQ(json_object_array_length(sessions), 2u) << text;
    json_object *first = json_object_array_get_idx(sessions, 0);
    EXPECT_EQ(member_text(first, "username"), "ann");
    EXPECT_EQ(member_text(first, "protocol"), "SSH");
    EXPECT_EQ(member_text(first, "remote_addr"), "10.0.0.7:4000");
    json_object *time = json_object_object_get(first, "session_time");
    EXPECT_TRUE(json_object_is_type(time, json_type_double));
    EXPECT_LT(json_object_get_double(time), 100.0);
    json_object *second = json_object_array_get_idx(sessions, 1);
    EXPECT_FALSE(json_object_object_get_ex(second, "remote_addr", nullptr));

    ann.since -= std::chrono::seconds(41) + milliseconds(600);
    EXPECT_NE(command("LIST_SESSIONS").find("\"session_time\":41.6"), std::string::npos);
}

TEST_F(Commands, ScrollbackIsNewestFirst)
{
    EXPECT_EQ(command("SCROLLBACK"), R"({"scrollback":[]})");
    port_.history.received("\x1b[1mr\xe4\x07\n"s, 1000);
    port_.history.sent("ls\r", 2000);
    EXPECT_EQ(command("SCROLLBACK"),
              R"({"scrollback":[{"line":"ls","timestamp":2000,"scrollback_idx":1,"type":2},)"
              R"({"line":"\u001b[1mr)"
              "\xEF\xBF\xBD"
              R"(\u0007","timestamp":1000,"scrollback_idx":0,"type":3}]})");
}

TEST_F(Commands, EventsStandInTheHistory)
{
    add("ann", R"(,"protocol":"Console","remote_addr":"/dev/tty1")");
    EXPECT_EQ(port_.history.newest(0).text, "ann through Console from /dev/tty1");
    EXPECT_EQ(port_.history.newest(0).type, LineType::Login);
    EXPECT_EQ(command("BREAK"), "{}");
    EXPECT_EQ(breaks_, 1);
    EXPECT_EQ(port_.history.newest(0).text, "BREAK sent by unknown");
    change_signals(port_, {.dsr = true, .ri = true});
    change_signals(port_, {.dsr = true});
    EXPECT_EQ(port_.history.newest(2).text, "DSR on");
    EXPECT_EQ(port_.history.newest(1).text, "RI on");
    EXPECT_EQ(port_.history.newest(0).text, "RI off");
    EXPECT_EQ(port_.history.newest(0).type, LineType::Signal);
    EXPECT_EQ(port_.history.size(), 5u);
}

} // namespace
} // namespace sim
