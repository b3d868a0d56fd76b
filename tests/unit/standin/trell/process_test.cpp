#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "dep/trell.h"

namespace {

struct Call {
    std::vector<const char *> arguments;
    std::vector<const char *> environment = {nullptr};
};

// A program that was started, or why not, with our ends of its streams.
struct Child {
    int in = -1, out = -1;
    pid_t id;
    int reason;

    explicit Child(const Call &call)
    {
        struct string_list *list = _sl_new(nullptr);
        EXPECT_TRUE(sl_appendn(list, call.arguments.data(), call.arguments.size()));
        id = process_spawn_pipe(list, call.environment.data(), nullptr, &in, &out, nullptr);
        reason = errno;
        sl_free(list);
    }
    Child(const Child &) = delete;
    ~Child()
    {
        for (const int end : {in, out}) {
            close(end);
        }
    }
};

std::string read_all(int descriptor)
{
    std::string text;
    char buffer[4096];
    ssize_t got = 0;
    while ((got = read(descriptor, buffer, sizeof(buffer))) > 0) {
        text.append(buffer, static_cast<size_t>(got));
    }
    return text;
}

int exit_status(pid_t child)
{
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// What the program prints, once it has ended well.
std::string output_of(const Call &call)
{
    const Child child(call);
    EXPECT_GT(child.id, 0) << strerror(child.reason);
    const std::string text = read_all(child.out);
    EXPECT_EQ(exit_status(child.id), 0);
    return text;
}

size_t open_descriptors()
{
    const std::filesystem::directory_iterator list("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(list), end(list)));
}

TEST(Process, PassesArgumentsAndEnvironment)
{
    setenv("TRELL_KEPT", "kept", 1);
    setenv("TRELL_REPLACED", "old", 1);
    const Call call{
        {"/bin/sh", "-c",
         "for a in \"$@\"; do echo \"<$a>\"; done; tr '\\0' '\\n' </proc/$$/environ | grep TRELL_",
         "sh", "A b", "", "*"},
        {"TRELL_REPLACED", "new", "TRELL_NEW", "POWER>", "TRELL_EMPTY", "", nullptr},
    };
    EXPECT_EQ(output_of(call), "<A b>\n<>\n<*>\nTRELL_KEPT=kept\n"
                               "TRELL_REPLACED=new\nTRELL_NEW=POWER>\nTRELL_EMPTY=\n");
    unsetenv("TRELL_KEPT");
    unsetenv("TRELL_REPLACED");
}

TEST(Process, ConnectsInputAndOutput)
{
    const Child child({{"/bin/sh", "-c", "read a; echo out $a; exit 7"}});
    ASSERT_GT(child.id, 0);
    for (const int end : {child.in, child.out}) {
        EXPECT_EQ(fcntl(end, F_GETFD), FD_CLOEXEC);
        EXPECT_EQ(fcntl(end, F_GETFL) & O_NONBLOCK, 0);
    }
    EXPECT_EQ(write(child.in, "one\n", 4), 4);
    EXPECT_EQ(read_all(child.out), "out one\n");
    EXPECT_EQ(exit_status(child.id), 7);
}

TEST(Process, TellsWhyItCannotStart)
{
    const std::pair<Call, int> rows[] = {
        {{{"/nonexistent/program", "A"}}, ENOENT},
        {{{"/etc/passwd"}}, EACCES},
        {{{}}, EINVAL},
    };
    const size_t descriptors = open_descriptors();
    for (const auto &[call, reason] : rows) {
        const Child child(call);
        EXPECT_EQ(child.id, -1);
        EXPECT_EQ(child.reason, reason);
        EXPECT_EQ(child.in + child.out, -2) << "left alone";
        EXPECT_EQ(waitpid(-1, nullptr, 0), -1);
        EXPECT_EQ(errno, ECHILD);
    }
    EXPECT_EQ(open_descriptors(), descriptors);
}

volatile sig_atomic_t children_reaped = 0;

void reap(int)
{
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
        children_reaped = children_reaped + 1;
    }
}

TEST(Process, FailsAlikeWhateverBecomesOfChildren)
{
    struct sigaction action = {};
    struct sigaction before = {};
    sigaction(SIGCHLD, nullptr, &before);
    for (auto handler : {reap, SIG_IGN}) {
        action.sa_handler = handler;
        sigaction(SIGCHLD, &action, nullptr);
        const Child missing({{"/nonexistent/program"}});
        EXPECT_EQ(missing.id, -1);
        EXPECT_EQ(missing.reason, ENOENT);
    }
    EXPECT_EQ(children_reaped, 0);
    sigaction(SIGCHLD, &before, nullptr);
}

TEST(Process, LeavesNoOtherDescriptorsToTheChild)
{
    const int stray = open("/dev/null", O_RDONLY);
    const int high = fcntl(stray, F_DUPFD, 900);
    EXPECT_EQ(output_of({{"/bin/ls", "/proc/self/fd"}}), "0\n1\n2\n3\n"); // 3 is the directory
    close(stray);
    close(high);
}

// With its standard streams closed: 0 when a spawned cat gives back what it is sent.
int spawn_without_streams()
{
    for (int stream = 0; stream <= 2; ++stream) {
        close(stream);
    }
    if (Child({{"/nonexistent/program"}}).id != -1) {
        return 4;
    }
    Child child({{"/bin/cat"}});
    if (child.id < 0 || child.in < 3 || child.out < 3) {
        return 1;
    }
    if (write(child.in, "text", 4) != 4 || close(std::exchange(child.in, -1)) != 0) {
        return 2;
    }
    return read_all(child.out) != "text" ? 3 : 0;
}

TEST(Process, WorksWithoutStreamsOfItsOwn)
{
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        _exit(spawn_without_streams());
    }
    EXPECT_EQ(exit_status(child), 0);
}

} // namespace
