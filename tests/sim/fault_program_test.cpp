// Faults on purpose, as a client meets them.
#include "tests/sim/harness.h"

namespace sim_test {
namespace {

const char TWO_BREAKS[] = R"({"cmd":"BREAK"}{"cmd":"BREAK"})";

TEST(SimFault, HangsUp)
{
    struct Row {
        const char *fault;
        std::string reply; // to two BREAKs
        bool command_ends;
        bool data_ends;
    };
    for (const Row &row : {Row{"cmd:1", "", true, false}, Row{"cmd:2:1", "{}{", true, false},
                           Row{"data:1:2", "{}{}", false, true}, Row{"both:2", "{}", true, true},
                           Row{"data@1", "{}{}", false, true}}) {
        SCOPED_TRACE(row.fault);
        Simulator simulator({"--port", "p", "--loopback", "--fault-hangup", row.fault});
        Client client(simulator, "p");
        EXPECT_TRUE(client.command_socket.send(TWO_BREAKS));
        EXPECT_EQ(row.command_ends ? client.command_socket.receive_all()
                                   : client.command_socket.receive(row.reply.size()),
                  row.reply);
        EXPECT_EQ(client.command_socket.ended(), row.command_ends);
        if (row.data_ends) {
            EXPECT_TRUE(client.ends());
        } else {
            EXPECT_TRUE(client.data.send("x") && client.data.receive(1) == "x");
        }
    }
}

TEST(SimFault, AtTheCommandLineAndAtRunTime)
{
    Directory files;
    std::string reply = files.write("reply", "{\"own\":\xff}");
    Simulator simulator({"--port", "late", "--loopback", "--label", "a\"\x1b/\xff", "--escape=^]",
                         "--outlet", "1", "--outlet=2", "--fault-delay", "300", "--port", "p",
                         "--loopback", "--fault-mute", "--fault-only", "BREAK", "--reply",
                         "LIST_SESSIONS=" + reply});
    auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Client(simulator, "late").command("PORT_INFO"),
              R"({"label":"a\"\u001b/)"
              "\xEF\xBF\xBD"
              R"(","users":"unknown","info":"loop-back","escape":29,)"
              R"("signals":{"dcd":false,"dsr":false,"ri":false,"cts":false},)"
              R"("outlets":["1","2"]})");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));

    Client client(simulator, "p");
    EXPECT_TRUE(client.command_socket.send(R"({"cmd":"BREAK"}{"cmd":"LIST_SESSIONS"})"));
    EXPECT_EQ(client.command_socket.receive(9), "{\"own\":\xff}");
    EXPECT_EQ(simulator.control("p", "fault none"), "");
    EXPECT_EQ(simulator.control("p", "say unasked"), "");
    EXPECT_EQ(client.command_socket.receive(7), "unasked");
    EXPECT_EQ(simulator.control("p", "fault extra []"), "");
    EXPECT_EQ(client.command("BREAK"), "{}");
    EXPECT_EQ(client.command_socket.receive(2), "[]");
    for (const char *line : {"fault none", "signals dcd ri", "label Lab 2", "escape 1"}) {
        EXPECT_EQ(simulator.control("p", line), "");
    }
    EXPECT_EQ(client.command("PORT_INFO"),
              R"({"label":"Lab 2","users":"unknown","info":"loop-back","escape":1,)"
              R"("signals":{"dcd":true,"dsr":false,"ri":true,"cts":false}})");
    EXPECT_EQ(simulator.control("p", "hangup"), "");
    EXPECT_EQ(client.command_socket.receive_all(), "");
    EXPECT_TRUE(client.command_socket.ended());
    EXPECT_TRUE(client.ends());

    EXPECT_EQ(simulator.control("p", "smoke"), "zorvad-sim: error: unknown command 'smoke'\n");
    EXPECT_EQ(simulator.control("p", "fault delay x"),
              "zorvad-sim: error: bad value 'x' for fault delay\n");
    EXPECT_NE(simulator.control("q", "stats").find("cannot connect to"), std::string::npos);
}

} // namespace
} // namespace sim_test
