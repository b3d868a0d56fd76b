#include "support/power_script.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace support {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void give_up(const char *what)
{
    perror(what);
    _exit(127);
}

void expect_done(int result, const char *what)
{
    if (result != 0) {
        give_up(what);
    }
}

bool namespaces_allowed()
{
    const pid_t child = fork();
    if (child == 0) {
        _exit(unshare(CLONE_NEWNS) == 0 &&
                      mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
                  ? 0
                  : 1);
    }
    int status = 1;
    waitpid(child, &status, 0);
    return status == 0;
}

// In a namespace of its own, /bin becomes a directory of links to what it really holds, with the
// script among them.
void enter_namespace(const fs::path &scratch)
{
    const fs::path bin = fs::canonical("/bin");
    expect_done(unshare(CLONE_NEWNS), "unshare");
    expect_done(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "private mounts");
    // What is made here is not worth a disk.
    const fs::path links = scratch / "links";
    expect_done(mount("tmpfs", links.c_str(), "tmpfs", 0, nullptr), "tmpfs");
    expect_done(mount(bin.c_str(), (scratch / "real").c_str(), nullptr, MS_BIND, nullptr), "bind");
    for (const auto &entry : fs::directory_iterator(scratch / "real")) {
        fs::create_symlink(entry.path(), links / entry.path().filename());
    }
    fs::copy_file(scratch / "rpc-cmd.js", links / "rpc-cmd.js");
    expect_done(mount(links.c_str(), bin.c_str(), nullptr, MS_BIND, nullptr), "bind");
}

} // namespace

PowerScript::PowerScript(const std::string &text)
    : path(fs::temp_directory_path() / "zorvad-power-XXXXXX")
{
    if (mkdtemp(path.data()) == nullptr) {
        return;
    }
    chmod(path.c_str(), 0755);
    fs::create_directories(path + "/links");
    fs::create_directories(path + "/real");
    std::ofstream(path + "/rpc-cmd.js") << text;
    chmod((path + "/rpc-cmd.js").c_str(), 0755);
    allowed = namespaces_allowed();
}

PowerScript::~PowerScript()
{
    fs::remove_all(path);
}

std::function<void()> PowerScript::enter() const
{
    return [scratch = path] { enter_namespace(scratch); };
}

} // namespace support
