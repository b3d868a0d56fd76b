// A power script of the test's own at /bin/rpc-cmd.js.
#pragma once

#include <functional>
#include <string>

namespace support {

class PowerScript {
public:
    // The text as an executable, which is there for the programs started with enter only.
    explicit PowerScript(const std::string &text);
    ~PowerScript();
    PowerScript(const PowerScript &) = delete;
    PowerScript &operator=(const PowerScript &) = delete;

    // False where mounts in a namespace of one's own are not allowed.
    bool usable() const { return allowed; }
    // For Launch::before_exec.
    std::function<void()> enter() const;
    // A directory that is removed with the script.
    const std::string &directory() const { return path; }

private:
    std::string path;
    bool allowed = false;
};

} // namespace support
