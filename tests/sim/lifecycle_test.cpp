// Start, end, what is left in the file system, and clear words where it cannot serve.
#include "tests/sim/harness.h"

#include "support/text.h"

#include <signal.h>
#include <sys/stat.h>

#include <filesystem>

namespace sim_test {
namespace {

TEST(SimLifecycle, SignalsEndItAndItRemovesWhatItMade)
{
    for (int number : {SIGINT, SIGTERM, SIGHUP}) {
        Simulator simulator(
            {"--port", "a/b", "--loopback", "--port", "a/c", "--loopback", "--mode", "600"});
        struct stat status;
        ASSERT_EQ(stat(simulator.path("a/b/data.sck").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777u, 0600u);
        Client client(simulator, "a/b");
        EXPECT_EQ(client.login("ann"), "{}");
        simulator.program.signal(number);
        EXPECT_TRUE(client.data.ends());
        EXPECT_EQ(simulator.program.wait_for_exit(), 0);
        EXPECT_FALSE(std::filesystem::exists(simulator.path(""))) << number;
        EXPECT_EQ(simulator.program.error_output(),
                  "zorvad-sim: zorvad-client looks in /var/run/zorvad alone, not in " +
                      simulator.directory.path("run") + "\n");
    }
}

TEST(SimLifecycle, TakesOverStaleSocketsButNoServedOnes)
{
    Directory directory;
    std::string run = directory.path("run");
    const std::vector<std::string> arguments{"--run-dir", run, "--port", "p", "--loopback"};
    Simulator first(arguments);
    Simulator second(arguments, false);
    EXPECT_EQ(second.program.wait_for_exit(), 1);
    EXPECT_NE(second.program.error_output().find("is served by another process"),
              std::string::npos);
    first.program.signal(SIGKILL);
    EXPECT_EQ(first.program.wait_for_exit(), 128 + SIGKILL);
    EXPECT_TRUE(std::filesystem::exists(run + "/p/cmd.sck"));
    Simulator third(arguments);
    EXPECT_TRUE(Connection(run + "/p/data.sck").connected());
    third.program.signal(SIGTERM);
    EXPECT_EQ(third.program.wait_for_exit(), 0);
}

TEST(SimLifecycle, SaysWhatIsWrong)
{
    Directory directory;
    std::string file = directory.write("file", "x");
    mkdir(directory.path("p").c_str(), 0755);
    directory.write("p/cmd.sck", "");
    const std::string hint = "\nTry 'zorvad-sim --help'.\n";
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string error;
    } rows[] = {
        {{"--smoke"}, 2, "unknown option --smoke" + hint},
        {{"--help=1"}, 2, "--help takes no value" + hint},
        {{"--port"}, 2, "--port needs a value" + hint},
        {{"--port", "a"}, 2, "one of --exec, --device, --loopback is needed" + hint},
        {{"--port", "a", "--baud", "9600", "--loopback"}, 2, "goes with --device only" + hint},
        {{"--port", "../a"}, 2, "bad value '../a' for --port" + hint},
        {{"--port", "a", "--size", "0x9"}, 2, "bad value '0x9' for --size" + hint},
        {{"--control", "a"}, 2, "--control needs a line behind the key" + hint},
        {{"--port", "p", "--device", "/dev/null"}, 1, "port p: /dev/null is not a serial device\n"},
        {{"--port", "p", "--device", "/no/such"},
         1,
         "cannot open /no/such: No such file or directory\n"},
        {{"--run-dir", file, "--port", "p", "--loopback"}, 1, file + "/p: Not a directory\n"},
        {{"--run-dir", directory.path(""), "--port", "p", "--loopback"},
         1,
         "port p: " + directory.path("/p/cmd.sck") + " is in the way: it is no socket\n"},
    };
    for (const auto &row : rows) {
        Simulator simulator(row.arguments, false);
        EXPECT_EQ(simulator.program.wait_for_exit(), row.status) << row.error;
        EXPECT_TRUE(simulator.program.error_output().ends_with(row.error))
            << simulator.program.error_output();
        EXPECT_FALSE(std::filesystem::exists(simulator.path(""))) << row.error;
    }
}

TEST(SimLifecycle, Background)
{
    Directory directory;
    std::string run = directory.path("run");
    std::string command = std::string(SIM_PROGRAM) + " --run-dir " + run +
                          " --background --port p --loopback 2>/dev/null >" + directory.path("pid");
    ASSERT_EQ(system(command.c_str()), 0);
    Connection data(run + "/p/data.sck");
    kill(static_cast<pid_t>(std::stol(support::read_file(directory.path("pid")))), SIGTERM);
    EXPECT_TRUE(data.ends());
    EXPECT_NE(system((command + " --port q --device /no/such").c_str()), 0);
}

} // namespace
} // namespace sim_test
