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
    EXPECT_EQ(ann.command_socket.receive_all(), "");
    EXPECT_TRUE(ann.command_socket.ended());
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

} // namespace
} // namespace sim_test
