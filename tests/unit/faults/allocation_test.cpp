// Every allocation of a start-up and of a session that uses every command fails in turn, libvterm's
// included, in both front ends: the session goes on or ends, and what failed is in the log.
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>

#include <sys/wait.h>
#include <unistd.h>

#include "fuzz/front_end.h"
#include "main/identity.h"
#include "main/options.h"
#include "tui/popup.h"
#include "tui/port_history.h"
#include "tui/widget/widget_list.h"
#include "unit/faults/failing_allocator.h"

namespace {

constexpr std::string_view REPLY =
    R"({"label":"port","users":"u","info":"i","outlets":["A","B"],"signals":{"dcd":true},)"
    R"("sessions":[{"username":"u","protocol":"SSH","remote_addr":"a","session_time":1.5}],)"
    R"("scrollback":[{"line":"l","type":2},{"line":"m","type":3}]})";

// What is written to standard error, the log's lines among it.
struct CapturedErrors {
    FILE *file = std::tmpfile();
    int saved = dup(STDERR_FILENO);

    CapturedErrors() { dup2(fileno(file), STDERR_FILENO); }
    ~CapturedErrors()
    {
        dup2(saved, STDERR_FILENO);
        close(saved);
        std::fclose(file);
    }
    CapturedErrors(const CapturedErrors &) = delete;
    CapturedErrors &operator=(const CapturedErrors &) = delete;

    std::string text() const
    {
        std::string bytes(static_cast<size_t>(std::ftell(file)), '\0');
        std::rewind(file);
        bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file));
        return bytes;
    }
};

int occurrences(std::string_view text, std::string_view part)
{
    int count = 0;
    for (size_t at = 0; (at = text.find(part, at)) != text.npos; at++) {
        count++;
    }
    return count;
}

// Exit statuses of a child that ran a session.
enum : int { ALL_WELL, NOTHING_FAILED, EXPECTATION_FAILED };

// Runs the session in a child, as one without memory for libvterm ends.
pid_t start_child(void (*session)(int fail_at), int fail_at)
{
    const pid_t child = fork();
    if (child == 0) {
        session(fail_at);
        _exit(testing::Test::HasFailure() ? EXPECTATION_FAILED
              : allocation_has_failed()   ? ALL_WELL
                                          : NOTHING_FAILED);
    }
    return child;
}

// What a child that was ended leaves behind is removed: a later one may have its number.
int wait_for_child(pid_t child)
{
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    std::filesystem::remove_all(Connected::directory_of(child, 0));
    return status;
}

// Runs the session with the first allocation failing, then the second, until none is left to fail.
// Returns how many there were, and everything that was logged. Sessions mostly wait, so several run
// at a time.
int fail_each(void (*session)(int fail_at), std::string &log)
{
    const CapturedErrors errors;
    int failed = 0;
    int aborted = 0;
    for (bool done = false; !done && !testing::Test::HasFailure();) {
        std::array<pid_t, 8> children;
        for (size_t i = 0; i < children.size(); i++) {
            children[i] = start_child(session, failed + 1 + static_cast<int>(i));
        }
        for (const pid_t child : children) {
            const int status = wait_for_child(child);
            const bool ended = WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
            done = done || (WIFEXITED(status) && WEXITSTATUS(status) == NOTHING_FAILED);
            failed += done ? 0 : 1;
            aborted += ended ? 1 : 0;
            EXPECT_TRUE(done || ended || status == ALL_WELL) << "allocation " << failed;
        }
    }
    std::fseek(errors.file, 0, SEEK_END);
    log = errors.text();
    EXPECT_EQ(aborted, occurrences(log, "memory for the terminal emulator\n"));
    return failed;
}

void expect_logged(const std::string &log, std::initializer_list<const char *> lines)
{
    for (const char *line : lines) {
        EXPECT_NE(std::string::npos, log.find(line)) << line;
    }
}

void type_and_answer(TerminalUi &ui, std::string_view keys)
{
    ui.type(keys);
    ui.turn();
    widget_list_refresh(&widget_list->refresh);
    answer_requests(ui.daemon, REPLY);
    ui.turn();
}

void terminal_ui_session(int fail_at)
{
    Connected::log_errors = true;
    allocation_fail_at(fail_at);
    try {
        TerminalUi ui(80, 24);
        announce_user();
        send_all(ui.daemon.data, "\033[1mhello\r\n\xe4\xb8\xad\r\n" + std::string(40, '\n'));
        for (const char *keys : {"x", "\005?", "y", "\005s", "[t]", "\033", "\005d", "Y", "\005b",
                                 "\005\005", "\033[A"}) {
            type_and_answer(ui, keys);
        }
        ui.resize(100, 30);
        ui.turn();
        ui.resize(30, 10);
        type_and_answer(ui, "\005q");
        EXPECT_TRUE(zorvad.quit);
    } catch (const std::exception &error) {
        EXPECT_TRUE(allocation_has_failed())
            << error.what(); // no session without memory for its start
    }
}

void basic_session(int fail_at)
{
    Connected::log_errors = true;
    allocation_fail_at(fail_at);
    try {
        BasicInterface basic;
        announce_user();
        send_all(basic.daemon.data, "hello");
        for (const char *keys : {"x", "\005?", "\005d", "Y", "\005b", "\005\005", "\005p"}) {
            answer_requests(basic.daemon, REPLY);
            basic.type(keys);
            basic.turn();
        }
        answer_requests(basic.daemon, REPLY);
        basic.type("\005q");
        // A key that could not be read for want of memory is read later.
        EXPECT_TRUE(run_until([] { return zorvad.quit != 0; }));
    } catch (const std::exception &error) {
        EXPECT_TRUE(allocation_has_failed()) << error.what();
    }
}

TEST(FailingAllocations, OfTheTerminalUi)
{
    setenv("USER", "tester", 1);
    setenv("SSH_CLIENT", "10.0.0.1 1234 22", 1);
    std::string log;
    EXPECT_GT(fail_each(terminal_ui_session, log), 50);
    expect_logged(log,
                  {"Could not allocate command\n", "Could not send username command\n",
                   "Could not allocate widget list structure\n",
                   "Could not allocate statusbar widget structure\n",
                   "Could not allocate vterm widget structure\n",
                   "Could not allocate vterm context structure\n", "Could not initialise widgets",
                   "Could not create terminal emulator\n",
                   "Could not allocate memory for the terminal emulator\n",
                   "Could not resize the terminal emulator\n",
                   "Could not allocate popup context structure\n",
                   "Could not allocate scrollback context structure\n",
                   "Could not allocate scrollback line\n", "Couldn't allocate scrollback line",
                   "Could not schedule command\n", "Could not send list sessions command\n",
                   "Could not send serial break command\n", "Could not send disconnect command\n"});
}

TEST(FailingAllocations, OfTheBasicInterface)
{
    setenv("USER", "tester", 1);
    std::string log;
    EXPECT_GT(fail_each(basic_session, log), 20);
    expect_logged(log,
                  {"Could not allocate command\n", "Could not send username command\n",
                   "Could not send port info command\n", "Could not send list sessions command\n",
                   "Could not send serial break command\n"});
}

TEST(FailingAllocations, OfAPopupLeaveNothingBehind)
{
    for (const int number : {1, 2, 3, 0}) {
        const int before = allocations_in_use();
        allocation_fail_at(number);
        Widget *popup = popup_new("text", 0, 0, 9, 9, nullptr);
        EXPECT_EQ(number == 0, popup != nullptr);
        if (popup != nullptr) {
            popup->destroy(popup);
            free(popup);
        }
        EXPECT_EQ(before, allocations_in_use());
    }
}

TEST(FailingAllocations, OfTheCommandLine)
{
    for (int number = 1; number < 100; number++) {
        allocation_fail_at(number);
        EXPECT_NE(allocation_has_failed(), options_init());
        options_free();
        if (!allocation_has_failed()) {
            allocation_fail_at(0);
            EXPECT_GT(number, 3);
            return;
        }
    }
    FAIL() << "there is no end to it";
}

} // namespace
