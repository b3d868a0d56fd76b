// What is behind a port: programs on a pty, and serial devices, of which a pty stands for one.
#include "tests/sim/harness.h"

#include <fcntl.h>
#include <pty.h>
#include <signal.h>
#include <unistd.h>

namespace sim_test {
namespace {

TEST(SimProgram, HasATerminal)
{
    Simulator simulator({"--port", "p", "--exec",
                         "trap 'stty size' WINCH; stty size; echo $TERM; tty; while :; do read x; "
                         "done",
                         "--size", "101x33", "--term", "vt220"});
    Client client(simulator, "p");
    EXPECT_EQ(client.data.receive_until("\n"), "33 101\r\n");
    EXPECT_EQ(client.data.receive_until("\n"), "vt220\r\n");
    EXPECT_TRUE(client.data.receive_until("\n").starts_with("/dev/pts/"));
    EXPECT_EQ(simulator.control("p", "size 77x22"), "");
    EXPECT_TRUE(client.data.receive_until("22 77\r\n").ends_with("22 77\r\n"));
    EXPECT_NE(client.command("PORT_INFO").find("77x22"), std::string::npos);
}

// Though a child of it keeps the terminal.
TEST(SimProgram, EndsAndStartsAnewForTheNextClient)
{
    Simulator simulator({"--port", "p", "--exec", "trap '' HUP; sleep 5 & echo $$"});
    Client first(simulator, "p");
    std::string text = first.data.receive_all();
    EXPECT_TRUE(first.data.ended());
    EXPECT_TRUE(text.ends_with("\r\n")) << text;
    EXPECT_TRUE(first.command_socket.ends());
    Client second(simulator, "p");
    EXPECT_NE(text, second.data.receive_all());
}

TEST(SimProgram, RunsIntoTheHistoryWithoutClients)
{
    Simulator simulator({"--port", "p", "--exec",
                         "yes 0123456789 | head -n 200000; echo the end; read x", "--history",
                         "50"});
    {
        Client starts_it(simulator, "p");
        simulator.wait_for_stats("p", "running yes");
    }
    simulator.wait_for_stats("p", "output 2400009");
    Connection asks(simulator.path("p/cmd.sck"));
    EXPECT_TRUE(asks.send(R"({"cmd":"SCROLLBACK"})"));
    EXPECT_TRUE(asks.receive_until("}").starts_with(R"({"scrollback":[{"line":"the end")"));
    EXPECT_NE(asks.receive_until("]}").find(R"("scrollback_idx":199951,)"), std::string::npos);
}

class SimSerial : public testing::Test {
protected:
    SimSerial()
    {
        int controller = -1;
        int terminal = -1;
        EXPECT_EQ(openpty(&controller, &terminal, nullptr, nullptr, nullptr), 0);
        EXPECT_EQ(symlink(ptsname(controller), path_.c_str()), 0);
        for (int fd : {controller, terminal}) {
            fcntl(fd, F_SETFD, FD_CLOEXEC);
        }
        controller_.reset(controller);
        terminal_.reset(terminal);
        tcgetattr(terminal, &before_);
    }

    sim::Fd controller_;
    sim::Fd terminal_;
    Directory directory_;
    // A name of its own: that of the pty goes to whoever asks for the next one once it is closed.
    std::string path_ = directory_.path("device");
    termios before_;
};

TEST_F(SimSerial, CarriesBytesWithItsSettings)
{
    Simulator simulator({"--port", "p", "--device", path_, "--baud", "115200", "--format", "7E2",
                         "--flow", "rtscts"});
    termios settings;
    ASSERT_EQ(tcgetattr(terminal_.get(), &settings), 0);
    EXPECT_EQ(cfgetospeed(&settings), static_cast<speed_t>(B115200));
    EXPECT_EQ(settings.c_lflag & (ICANON | ECHO), 0u);
    EXPECT_NE(settings.c_cflag & CSTOPB, 0u);

    Client client(simulator, "p");
    EXPECT_NE(client.command("PORT_INFO").find(path_ + " 115200 7E2 RTS/CTS"), std::string::npos);
    EXPECT_TRUE(client.data.send("to the device\n"));
    char line[64];
    ASSERT_EQ(read(controller_.get(), line, sizeof line), 14);
    EXPECT_EQ(std::string(line, 14), "to the device\n");
    EXPECT_EQ(write(controller_.get(), "from it\r\n", 9), 9);
    EXPECT_EQ(client.data.receive(9), "from it\r\n");
    EXPECT_EQ(client.command("BREAK"), "{}");

    simulator.program.signal(SIGTERM);
    EXPECT_EQ(simulator.program.wait_for_exit(), 0);
    EXPECT_EQ(tcgetattr(terminal_.get(), &settings), 0);
    EXPECT_EQ(settings.c_lflag, before_.c_lflag);
    EXPECT_EQ(cfgetospeed(&settings), cfgetospeed(&before_));
}

TEST_F(SimSerial, HangsUpWhenTheDeviceIsGone)
{
    Simulator simulator({"--port", "p", "--device", path_});
    Client client(simulator, "p");
    EXPECT_EQ(write(controller_.get(), "last", 4), 4);
    EXPECT_EQ(client.data.receive(4), "last");
    terminal_.reset();
    controller_.reset();
    EXPECT_EQ(unlink(path_.c_str()), 0);
    EXPECT_TRUE(client.data.ends());
    simulator.program.wait_for_error(path_ + " is gone");
    Client next(simulator, "p");
    EXPECT_TRUE(next.data.ends());
    simulator.program.wait_for_error("cannot open " + path_);
}

} // namespace
} // namespace sim_test
