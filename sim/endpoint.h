// A port's directory in the file system and the listening sockets in it.
#pragma once

#include "sim/fd.h"

#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace sim {

class Endpoint {
public:
    Endpoint() = default;
    Endpoint(const Endpoint &) = delete;
    Endpoint &operator=(const Endpoint &) = delete;
    // Removes the sockets, and those directories that it made and that are empty.
    ~Endpoint();

    // Makes the directory with its parents and claims it for this process. False with a sentence in
    // error, also where the port is served by another process.
    bool open(const std::string &directory, std::string &error);

    // A listening socket of the name in the directory; takes the place of a stale one. None with a
    // sentence in error.
    Fd listen(const std::string &name, std::optional<mode_t> mode, std::string &error);

private:
    struct Made {
        std::string path;
        dev_t device;
        ino_t inode;
    };

    std::string directory_;
    Fd lock_;
    std::vector<std::string> directories_; // made here, the deepest first
    std::vector<Made> sockets_;
};

// Connects to the socket at path without waiting; none with errno set.
Fd connect_to(const std::string &path);

} // namespace sim
