// The command line, the connection and who the daemon is told is there.
#include "e2e/basic.h"

#include <csignal>
#include <filesystem>
#include <sys/stat.h>

using namespace support;

namespace {

const std::string USAGE = "Connect to a console port.\n\n"
                          "Usage: zorvad-client PORT [ACCESS-RIGHT] [--help] [--basic-interface]\n"
                          "\n"
                          "  PORT                      the serial key of the port to connect to\n"
                          "  ACCESS-RIGHT              the access rights of the port user\n"
                          "  --help                    display this help and exit\n"
                          "  --basic-interface         force the basic interface, rather than the "
                          "TUI\n";

struct Refusal {
    std::string error_output;
    std::string log;
};

Refusal run_refused(const std::string &key)
{
    Program client({.arguments = {ZORVAD_CLIENT, key}});
    EXPECT_EQ(255, client.wait_for_exit());
    EXPECT_EQ("", client.output());
    return {client.error_output(), client.log()};
}

std::string error_line(const std::string &text)
{
    return "zorvad-client 24.3 " + text + "\n";
}

} // namespace

TEST(CommandLine, HelpAndErrors)
{
    const std::string hint = "Try 'zorvad-client --help' for more information.\n";
    const auto error = [&](const char *text) {
        return "zorvad-client: " + std::string(text) + "\n" + hint;
    };
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string error_output;
    } rows[] = {
        {{"--help"}, 0, USAGE},
        {{"--he"}, 0, USAGE},
        {{"a", "b", "c", "d", "--help", "--bogus"}, 0, USAGE},
        {{}, 255, error("missing option PORT")},
        {{"P", "A", "extra"}, 255, error("excess option extra")},
        {{"P", "--bogus"}, 255, error("invalid option \"--bogus\"")},
        {{"P", "--help=x"}, 255, error("invalid option \"--help=x\"")},
        {{"P", "--basic-interface=1"}, 255, error("invalid option \"--basic-interface=1\"")},
        {{"P", "--basic-interface", "--basic-interface"},
         255,
         error("extraneous option --basic-interface")},
        {{"P", "-xyz"},
         255,
         "zorvad-client: invalid option \"-x\"\n"
         "zorvad-client: too many errors to display\n" +
             hint},
    };
    for (const auto &row : rows) {
        Launch setup{.arguments = {ZORVAD_CLIENT}};
        setup.arguments.insert(setup.arguments.end(), row.arguments.begin(), row.arguments.end());
        Program client(setup);
        EXPECT_EQ(row.status, client.wait_for_exit()) << client.description();
        EXPECT_EQ(row.error_output, client.error_output());
        EXPECT_EQ("", client.output() + client.log());
    }
}

TEST(Connection, NoDaemon)
{
    const std::string key = "e2e-none-" + std::to_string(getpid());
    const std::string root = "/var/run/zorvad/" + key;
    for (const std::string &full : {key, key + "/deep/er", key + "/" + std::string(200, 'k')}) {
        const std::string path = "/var/run/zorvad/" + full;
        const Refusal refusal = run_refused(full);
        EXPECT_EQ("Could not connect to zorvad\n", refusal.error_output);
        EXPECT_EQ(error_line("Could not create socket connection to " + path + "/cmd.sck") +
                      error_line("Could not create command connection"),
                  refusal.log);
        struct stat made {};
        EXPECT_EQ(0, stat(path.c_str(), &made));
        const mode_t mask = umask(0);
        umask(mask);
        EXPECT_EQ(0777 & ~mask, made.st_mode & 07777);
    }
    std::filesystem::remove_all(root);
}

TEST(Connection, ImpossibleKeys)
{
    const std::string endless(6000, 'k');
    EXPECT_EQ(error_line("Could not create socket connection to " +
                         ("/var/run/zorvad/" + endless).substr(0, 4094)) +
                  error_line("Could not create command connection"),
              run_refused(endless).log);
    EXPECT_EQ("Could not connect to zorvad\n", run_refused(endless).error_output);
}

TEST(Connection, OneSocketOnlyIsNotEnough)
{
    FakeDaemon daemon({.listen_data = false});
    const Refusal refusal = run_refused(daemon.key());
    EXPECT_EQ("Could not connect to zorvad\n", refusal.error_output);
    EXPECT_EQ(
        error_line("Could not create socket connection to " + daemon.directory() + "/data.sck") +
            error_line("Could not create data socket connection"),
        refusal.log);
    EXPECT_EQ(0u, daemon.commands_waiting());
}

TEST(Connection, KeyWithDirectories)
{
    Basic session({.key = "e2e-" + std::to_string(getpid()) + "-deep/er/port"});
    session.start();
    EXPECT_EQ(0, session.quit());
}

TEST(Identity, SetUserForEachWayIn)
{
    const std::string head = R"({"cmd":"SET_USER","args":{"username":"tester","right":)";
    const struct {
        std::vector<std::string> arguments;
        std::map<std::string, std::optional<std::string>> environment;
        std::string rest;
    } rows[] = {
        {{},
         {{"SSH_CLIENT", "10.0.0.9 50122 22"}},
         R"("access","remote_addr":"10.0.0.9:50122","protocol":"SSH"}})"},
        {{"admin"},
         {{"SSH_CLIENT", "fe80::1%eth0 50122 22"}},
         R"("admin","remote_addr":"fe80::1%eth0:50122","protocol":"SSH"}})"},
        {{"Admin"},
         {{"SSH_CLIENT", "two words"}},
         R"("Admin","remote_addr":"two words","protocol":"SSH"}})"},
        {{},
         {{"SSH_CLIENT", "a b c d"}, {"TELNET_CLIENT", "t"}},
         R"("access","remote_addr":"a b c d","protocol":"SSH"}})"},
        {{},
         {{"SSH_CLIENT", ""}, {"WEB_CLIENT", "w"}},
         R"("access","remote_addr":"","protocol":"SSH"}})"},
        {{},
         {{"TELNET_CLIENT", "host 23 x"}, {"WEB_CLIENT", "w"}},
         R"("access","remote_addr":"host 23 x","protocol":"Telnet"}})"},
        {{},
         {{"WEB_CLIENT", "https://a/\"b\""}},
         R"("access","remote_addr":"https://a/\"b\"","protocol":"Web"}})"},
        {{"\xff\xe4\xb8"},
         {{"SSH_CLIENT", "\xc3\xa9\xed\xa0\x80 1 2"}},
         R"("???","remote_addr":"é???:1","protocol":"SSH"}})"},
    };
    for (const auto &row : rows) {
        Basic session;
        session.launch({.arguments = row.arguments, .environment = row.environment});
        EXPECT_EQ(head + row.rest, session.daemon.next_command());
    }
}

TEST(Identity, ConsoleNamesItsTerminal)
{
    const std::string head =
        R"({"cmd":"SET_USER","args":{"username":"tester","right":"access","protocol":"Console")";
    Basic terminal;
    terminal.launch();
    EXPECT_EQ(head + R"(,"remote_addr":")" + terminal.client->terminal_name() + "\"}}",
              terminal.daemon.next_command());
    Basic pipe;
    pipe.launch(PIPES);
    EXPECT_EQ(head + "}}", pipe.daemon.next_command());
}

TEST(Identity, WithoutAUserNothingIsAnnounced)
{
    Basic session;
    session.launch({.environment = {{"USER", std::nullopt}}});
    EXPECT_EQ(R"({"cmd":"PORT_INFO"})", session.daemon.next_command());
    EXPECT_EQ(error_line("No username in environment"), session.client->log());
    session.daemon.reply(PORT_INFO);
    session.client->wait_for_output(GREETING);
    EXPECT_EQ(0, session.quit());
}

TEST(Identity, PortInfoWaitsForTheReplyToSetUser)
{
    Basic session;
    session.launch();
    session.daemon.expect_command("SET_USER");
    session.daemon.send("port");
    session.client->wait_for_output("port");
    session.expect_relay(""); // the escape character is not known yet, but bytes pass
    EXPECT_EQ(0u, session.daemon.command_count("PORT_INFO"));
    session.daemon.reply("{}");
    EXPECT_EQ(R"({"cmd":"PORT_INFO"})", session.daemon.next_command());
    EXPECT_EQ(0, session.quit());
    EXPECT_EQ("", session.client->log());
}

TEST(FrontEnd, BasicWithoutATerminalToOpen)
{
    FakeDaemon daemon;
    Program client({.arguments = {ZORVAD_CLIENT, daemon.key()}, .controlling = false});
    daemon.expect_command("SET_USER");
    daemon.reply("{}");
    daemon.expect_command("PORT_INFO");
    daemon.reply(PORT_INFO);
    client.wait_for_output(GREETING);
    client.send(QUIT);
    EXPECT_EQ(0, client.wait_for_exit());
    EXPECT_EQ("", client.error_output() + client.log());
}
