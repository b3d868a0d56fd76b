#include "bench/recording.h"

#include <chrono>
#include <poll.h>
#include <signal.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>

#include "bench/session.h"

namespace {

// A text of 674 lines that every Debian has.
constexpr const char *TEXT = "/usr/share/common-licenses/GPL-3";
constexpr const char *TYPE = "vt220"; // what a serial port's login says

struct Script {
    std::vector<std::string> command;
    std::string first, forth, back, quit; // keys; what is empty is not typed
    int in_a_row;                         // so often forth, then as often back
    std::chrono::milliseconds interval{}; // after each, at least
};

Script script_of(Recorded what, int rows)
{
    const std::vector<std::string> editor = {
        "vim.tiny", "-u", "NONE", "-i", "NONE", "-n", "-N", "-c", "set ruler laststatus=2", TEXT};
    switch (what) {
    case Recorded::PAGER:
        return {{"less", TEXT}, "", "j", "k", "q", 500};
    case Recorded::EDITOR_LINES:
        return {editor, "L", "j", "", "\033:q!\r", 500};
    case Recorded::EDITOR_PAGES:
        return {editor, "", "\6", "\2", "\033:q!\r", 600 / rows};
    case Recorded::TOP:
        return {{"top", "-d", "60"}, "", " ", "", "q", 1, std::chrono::milliseconds(200)};
    }
    return {};
}

class Recorder {
public:
    Recorder(const Script &script, Size size)
        : terminal(open_terminal(name, size)),
          process(spawn_on_terminal(script.command, name, TYPE))
    {
        wait_until_quiet();
    }
    ~Recorder()
    {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
    Recorder(const Recorder &) = delete;
    Recorder &operator=(const Recorder &) = delete;

    void type(std::string_view keys)
    {
        if (write_some(terminal.get(), keys) != keys.size()) {
            throw std::runtime_error("a program that is recorded takes no keys");
        }
        wait_until_quiet();
    }

    std::string bytes;

private:
    // Something has come, and then nothing more.
    void wait_until_quiet()
    {
        constexpr int QUIET = 25, ANSWERED = 2000; // milliseconds
        pollfd watched = {terminal.get(), POLLIN, 0};
        for (int limit = ANSWERED; poll(&watched, 1, limit) > 0; limit = QUIET) {
            if ((watched.revents & POLLIN) == 0) {
                return; // it has ended
            }
            bytes += read_some(terminal.get());
        }
    }

    std::string name;
    Fd terminal;
    pid_t process;
};

} // namespace

std::string record(Recorded what, Size size, size_t length)
{
    constexpr int LEAST = 4;
    const Script script = script_of(what, size.rows);
    Recorder recorder(script, size);
    if (!script.first.empty()) {
        recorder.type(script.first);
    }
    for (int count = 0; count < LEAST || recorder.bytes.size() < length; count++) {
        const bool forth = script.back.empty() || count / script.in_a_row % 2 == 0;
        recorder.type(forth ? script.forth : script.back);
        std::this_thread::sleep_for(script.interval);
    }
    recorder.type(script.quit);
    return recorder.bytes;
}
