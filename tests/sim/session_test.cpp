// Users on a port: names, sessions, disconnection, signals.
#include "tests/sim/harness.h"

#include <sys/wait.h>

namespace sim_test {
namespace {

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

TEST(SimSession, UsersSeeAndDisconnectEachOther)
{
    Simulator simulator({"--port", "p", "--loopback"});
    Client ann(simulator, "p");
    EXPECT_EQ(ann.login("ann"), "{}");
    EXPECT_EQ(ann.command("LIST_SESSIONS"), R"({"sessions":[]})");
    Client bob(simulator, "p");
    EXPECT_EQ(bob.login("bob"), "{}");
    EXPECT_TRUE(contains(bob.command("PORT_INFO"), R"("users":"ann, bob")"));
    EXPECT_TRUE(contains(bob.command("LIST_SESSIONS"), R"([{"username":"ann","session_time":)"));

    EXPECT_TRUE(ann.data.send("before"));
    EXPECT_EQ(bob.data.receive(6), "before");
    EXPECT_EQ(bob.command("DISCONNECT_SESSIONS"), "{}");
    EXPECT_EQ(ann.data.receive_all(), "before");
    EXPECT_TRUE(ann.data.ended());
    EXPECT_TRUE(ann.command_socket.ends());
    EXPECT_TRUE(bob.data.send("after"));
    EXPECT_EQ(bob.data.receive(5), "after");
    EXPECT_EQ(bob.command("LIST_SESSIONS"), R"({"sessions":[]})");
    EXPECT_TRUE(contains(bob.command("SCROLLBACK"), R"("line":"ann disconnected by bob")"));
}

TEST(SimSession, ConnectionsArePairedByProcess)
{
    Simulator simulator({"--port", "p", "--loopback"});
    // Another process has connected its command socket only; ours must not be taken for its data.
    int gate[2];
    ASSERT_EQ(pipe(gate), 0);
    pid_t other = fork();
    if (other == 0) {
        close(gate[1]);
        Connection command(simulator.path("p/cmd.sck"));
        command.send(R"({"cmd":"SET_USER","args":{"username":"other"}})");
        char byte;
        (void)!read(gate[0], &byte, 1);
        _exit(0);
    }
    close(gate[0]);
    simulator.wait_for_stats("p", "commands 1");
    Connection data(simulator.path("p/data.sck"));
    Connection command(simulator.path("p/cmd.sck"));
    EXPECT_TRUE(command.send(R"({"cmd":"SET_USER","args":{"username":"ours"}})"));
    EXPECT_EQ(command.receive(2), "{}");
    simulator.wait_for_stats("p", "clients 2");
    close(gate[1]);
    waitpid(other, nullptr, 0);
    simulator.wait_for_stats("p", "clients 1");
    EXPECT_TRUE(command.send(R"({"cmd":"PORT_INFO"})"));
    EXPECT_TRUE(contains(command.receive_until("}}"), R"("users":"ours")"));
}

TEST(SimSession, APortAsItsOptionsAndControlLinesSay)
{
    Simulator simulator({"--port", "p", "--loopback", "--label", "a\"\x1b/\xff", "--escape=^]",
                         "--outlet", "1", "--outlet=2"});
    Client client(simulator, "p");
    EXPECT_EQ(client.command("PORT_INFO"),
              R"({"label":"a\"\u001b/)"
              "\xEF\xBF\xBD"
              R"(","users":"unknown","info":"loop-back","escape":29,)"
              R"("signals":{"dcd":false,"dsr":false,"ri":false,"cts":false},)"
              R"("outlets":["1","2"]})");
    EXPECT_EQ(simulator.control("p", "say unasked"), "");
    EXPECT_EQ(client.command_socket.receive(7), "unasked");
    for (const char *line : {"signals dcd ri", "label Lab 2", "escape 1"}) {
        EXPECT_EQ(simulator.control("p", line), "");
    }
    EXPECT_TRUE(contains(client.command("PORT_INFO"),
                         R"({"label":"Lab 2","users":"unknown","info":"loop-back","escape":1,)"
                         R"("signals":{"dcd":true,"dsr":false,"ri":true,"cts":false})"));
    EXPECT_EQ(simulator.control("p", "hangup"), "");
    EXPECT_TRUE(client.command_socket.ends());
    EXPECT_TRUE(client.data.ends());

    EXPECT_EQ(simulator.control("p", "smoke"), "zorvad-sim: error: unknown command 'smoke'\n");
    EXPECT_EQ(simulator.control("p", "size 80"), "zorvad-sim: error: bad value '80' for size\n");
    EXPECT_NE(simulator.control("q", "stats").find("cannot connect to"), std::string::npos);
}

} // namespace
} // namespace sim_test
