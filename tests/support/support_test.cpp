// What the end-to-end tests rely on and cannot show by passing: that what is wrong is noticed, and
// that nothing is left behind.
#include "support/fake_daemon.h"
#include "support/program.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace support;

namespace {

int connect_to(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    EXPECT_EQ(0, connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address)) << path;
    return fd;
}

std::string failure_of(const std::function<void()> &action)
{
    try {
        action();
    } catch (const Failure &failure) {
        return failure.what();
    }
    return "";
}

} // namespace

TEST(ScreenTest, ComparisonSeesEveryKindOfDifference)
{
    const struct {
        const char *bytes;
        const char *difference;
    } rows[] = {
        {"ab\x1b[1mc\x1b[m", ""},
        {"ax\x1b[1mc\x1b[m", "row 0 column 1: 'x'"},
        {"abc", "row 0 column 2"},
        {"ab\x1b[1;3mc\x1b[m", "'c' bold italic"},
        {"ab\x1b[1;5mc\x1b[m", "'c' bold blink"},
        {"ab\x1b[1;32mc\x1b[m", "2 on -1"},
        {"ab\x1b[1mc\x1b[m\x1b[A\x1b[D", "cursor row 0 column 2"},
        {"ab\x1b[1mc\x1b[m\x1b[?25l", "cursor hidden"},
    };
    Screen expected(2, 10);
    expected.feed(rows[0].bytes);
    for (const auto &row : rows) {
        Screen actual(2, 10);
        actual.feed(row.bytes);
        const std::string difference = compare(expected.picture(), actual.picture());
        EXPECT_EQ(*row.difference == 0, difference.empty()) << difference;
        EXPECT_NE(std::string::npos, difference.find(row.difference)) << difference;
    }
    EXPECT_NE("", compare(expected.picture(), Screen(2, 11).picture()));
}

TEST(ProgramTest, AWaitInVainShowsTheScreenAndTheBytes)
{
    Program program({.arguments = {"/usr/bin/printf", "on\\033[1mscreen"}});
    const std::string message = failure_of([&] { program.wait_for("nothing like it"); });
    EXPECT_NE(std::string::npos, message.find("nothing like it")) << message;
    EXPECT_NE(std::string::npos, message.find("\nonscreen\n")) << message;
    EXPECT_NE(std::string::npos, message.find("on\\x1b[1mscreen")) << message;
}

TEST(FakeDaemonTest, NoticesWhatWasNotExpectedAndRemovesWhatItMade)
{
    std::string directory;
    {
        FakeDaemon daemon;
        directory = daemon.directory();
        const int cmd = connect_to(directory + "/cmd.sck");
        const int data = connect_to(directory + "/data.sck");
        const std::string_view request = R"({"cmd":"FIRST","args":{"text":"}\"{"}})";
        for (int sent = 0; sent < 2; ++sent) {
            EXPECT_EQ(ssize_t(request.size()), write(cmd, request.data(), request.size()));
        }
        EXPECT_EQ(request, daemon.expect_command("FIRST"));
        EXPECT_NE("", failure_of([&] { daemon.expect_command("SECOND"); }));
        EXPECT_EQ(4, write(data, "a\0b\n", 4));
        daemon.expect_received({"a\0b\n", 4});
        EXPECT_NE("", failure_of([&] { daemon.expect_received("a"); }));
        close(cmd);
        close(data);
    }
    EXPECT_FALSE(std::filesystem::exists(directory));
}
