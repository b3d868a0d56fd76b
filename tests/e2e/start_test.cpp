// The command line, the connection and who the daemon is told is there.
#include "e2e/fixture.h"

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

} // namespace

TEST(CommandLine, HelpAndErrors)
{
    constexpr const char *TOO_MANY = "too many errors to display";
    const auto error = [](const std::string &text, const std::string &more = "") {
        return "zorvad-client: " + text + "\n" +
               (more.empty() ? "" : "zorvad-client: " + more + "\n") +
               "Try 'zorvad-client --help' for more information.\n";
    };
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string error_output;
        bool first_text_ends_switches = false; // asked for by POSIXLY_CORRECT
    } rows[] = {
        {{"--help"}, 0, USAGE},
        {{"--he"}, 0, USAGE},
        {{"a", "b", "c", "d", "--help", "--bogus"}, 0, USAGE},
        {{}, 255, error("missing option PORT")},
        {{"P", "A", "extra"}, 255, error("excess option extra")},
        {{"--", "--help", "A", "--bogus"}, 255, error("excess option --bogus")},
        {{"-", "", "--bogus"}, 255, error("excess option --bogus"), true},
        {{"P", "A", "x", "y"}, 255, error("excess option x", "unexpected argument \"y\"")},
        {{"P", "A", "x", "y", "z"}, 255, error("excess option x", TOO_MANY)},
        {{"P", "--bogus"}, 255, error("invalid option \"--bogus\"")},
        {{"P", "A", "x", "---"}, 255, error("invalid option \"---\"", "excess option x")},
        {{"P", "--=x"}, 255, error("invalid option \"--=x\"")},
        {{"P", "--help=x"}, 255, error("invalid option \"--help=x\"")},
        {{"P", "--basic-interface=1"}, 255, error("invalid option \"--basic-interface=1\"")},
        {{"P", "--b", "--basic"}, 255, error("extraneous option --basic-interface")},
        {{"P", "-xyz"}, 255, error("invalid option \"-x\"", TOO_MANY)},
        {{"P", "-x-"}, 255, error("invalid option \"-x\"", "invalid option \"--\"")},
        {{"P", "-W", "A", "x"}, 255, error("invalid option \"-W\"", "excess option x")},
    };
    for (const auto &row : rows) {
        Launch setup{.arguments = {ZORVAD_CLIENT}};
        setup.arguments.insert(setup.arguments.end(), row.arguments.begin(), row.arguments.end());
        if (row.first_text_ends_switches) {
            setup.environment = {{"POSIXLY_CORRECT", "1"}};
        }
        Program client(setup);
        EXPECT_EQ(row.status, client.wait_for_exit()) << client.description();
        EXPECT_EQ(row.error_output, client.error_output());
        EXPECT_EQ("", client.output() + client.log());
    }
}

TEST(Connection, WithoutADaemon)
{
    const FakeDaemon half({.listen_data = false});
    const std::string key = "e2e-none-" + std::to_string(getpid()), endless(6000, 'k');
    const std::string wanted = "/var/run/zorvad/";
    const struct {
        std::string key, path, channel = "command";
    } rows[] = {
        {key, wanted + key + "/cmd.sck"},
        {key + "/deep/er", wanted + key + "/deep/er/cmd.sck"},
        // Longer than the path of a socket can be: no directory is made.
        {key + "-/" + std::string(90, 'k'),
         wanted + key + "-/" + std::string(90, 'k') + "/cmd.sck"},
        {endless, (wanted + endless).substr(0, 4094)},
        {half.key(), half.directory() + "/data.sck", "data socket"},
    };
    const mode_t mask = umask(0);
    umask(mask);
    for (const auto &row : rows) {
        SCOPED_TRACE(visible(row.key, 40));
        Program client({.arguments = {ZORVAD_CLIENT, row.key}});
        EXPECT_EQ(255, client.wait_for_exit());
        EXPECT_EQ("", client.output());
        EXPECT_EQ("Could not connect to zorvad\n", client.error_output());
        EXPECT_EQ(log_line("Could not create socket connection to " + row.path) +
                      log_line("Could not create " + row.channel + " connection"),
                  client.log());
        struct stat made {};
        if (row.key.size() > 90) {
            EXPECT_FALSE(std::filesystem::exists(wanted + key + "-"));
        } else if (row.key.starts_with(key)) {
            EXPECT_EQ(0, stat((wanted + row.key).c_str(), &made));
            EXPECT_EQ(0777 & ~mask, made.st_mode & 07777);
        }
    }
    EXPECT_EQ(0u, half.commands_waiting());
    std::filesystem::remove_all(wanted + key);
}

TEST(Identity, SetUserForEachWayIn)
{
    const struct {
        const char *right;
        std::map<std::string, std::optional<std::string>> environment;
        std::string told_right, address, protocol;
    } rows[] = {
        {nullptr, {{"SSH_CLIENT", "10.0.0.9 50122 22"}}, "access", "10.0.0.9:50122", "SSH"},
        {"admin", {{"SSH_CLIENT", "fe80::1%eth0 5 22"}}, "admin", "fe80::1%eth0:5", "SSH"},
        {"Admin", {{"SSH_CLIENT", "two words"}}, "Admin", "two words", "SSH"},
        {"a", {{"SSH_CLIENT", "a b c d"}, {"TELNET_CLIENT", "t"}}, "a", "a b c d", "SSH"},
        {"a", {{"SSH_CLIENT", ""}, {"WEB_CLIENT", "w"}}, "a", "", "SSH"},
        {"a", {{"TELNET_CLIENT", "h 2 x"}, {"WEB_CLIENT", "w"}}, "a", "h 2 x", "Telnet"},
        {"a", {{"WEB_CLIENT", "https://a/\"b\""}}, "a", "https://a/\\\"b\\\"", "Web"},
        {"\xff\xe4\xb8", {{"SSH_CLIENT", "\xc3\xa9\xed\xa0\x80 1 2"}}, "???", "é???:1", "SSH"},
    };
    for (const auto &row : rows) {
        Session session(BASIC);
        Launch setup{.environment = row.environment};
        if (row.right != nullptr) {
            setup.arguments = {row.right};
        }
        session.start(setup);
        EXPECT_EQ(R"({"cmd":"SET_USER","args":{"username":"tester","right":")" + row.told_right +
                      R"(","remote_addr":")" + row.address + R"(","protocol":")" + row.protocol +
                      "\"}}",
                  session.daemon.last_command("SET_USER"));
    }
}

TEST(Identity, ConsoleNamesItsTerminal)
{
    for (const Stream::Kind input : {Stream::TERMINAL, Stream::PIPE}) {
        Session session(BASIC);
        session.start({.input = {input}, .output = {input}});
        const std::string address = R"(,"remote_addr":")" + session.client->terminal_name() + "\"";
        EXPECT_EQ(R"({"cmd":"SET_USER","args":{"username":"tester","right":"access",)"
                  R"("protocol":"Console")" +
                      (input == Stream::TERMINAL ? address : "") + "}}",
                  session.daemon.last_command("SET_USER"));
    }
}

TEST(Identity, WithoutAUserNothingIsAnnounced)
{
    Session session(BASIC);
    session.start({.environment = {{"USER", std::nullopt}}});
    session.play({{LOGS, "No username in environment"}});
    EXPECT_EQ(0u, session.daemon.command_count("SET_USER"));
}

TEST(FrontEnd, BasicWithoutAUsableTerminal)
{
    const Launch rows[] = {{.controlling = false},
                           {.environment = {{"TERM", std::nullopt}}},
                           {.environment = {{"TERM", ""}}},
                           {.environment = {{"TERM", "no-such-terminal"}}}};
    for (const Launch &setup : rows) {
        Session session(TUI);
        session.launch(setup);
        session.client->wait_for_output(GREETING);
    }
}
