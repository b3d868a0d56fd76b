#include "sim/endpoint.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

namespace sim {
namespace {

bool socket_address(const std::string &path, sockaddr_un &address)
{
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

Fd failed(std::string &error, const std::string &what)
{
    error = what + ": " + strerror(errno);
    return {};
}

} // namespace

Fd connect_to(const std::string &path)
{
    sockaddr_un address;
    if (!socket_address(path, address)) {
        return {};
    }
    Fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (connect(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) < 0) {
        return {};
    }
    return fd;
}

Endpoint::~Endpoint()
{
    for (const Made &made : sockets_) {
        struct stat status;
        if (lstat(made.path.c_str(), &status) == 0 && status.st_dev == made.device &&
            status.st_ino == made.inode) {
            unlink(made.path.c_str());
        }
    }
    for (const std::string &directory : directories_) {
        rmdir(directory.c_str());
    }
}

bool Endpoint::open(const std::string &directory, std::string &error)
{
    directory_ = directory;
    for (size_t end = 1; end != std::string::npos;) {
        end = directory.find('/', end + 1);
        std::string path = directory.substr(0, end);
        if (mkdir(path.c_str(), 0755) == 0) {
            directories_.insert(directories_.begin(), path);
        } else if (errno != EEXIST) {
            error = "cannot make directory " + path + ": " + strerror(errno);
            return false;
        }
    }
    lock_.reset(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!lock_) {
        error = "cannot open directory " + directory + ": " + strerror(errno);
        return false;
    }
    if (flock(lock_.get(), LOCK_EX | LOCK_NB) < 0) {
        error = directory + " is served by another process";
        return false;
    }
    return true;
}

Fd Endpoint::listen(const std::string &name, std::optional<mode_t> mode, std::string &error)
{
    std::string path = directory_ + "/" + name;
    sockaddr_un address;
    if (!socket_address(path, address)) {
        return failed(error, "socket path " + path);
    }
    struct stat status;
    if (lstat(path.c_str(), &status) == 0) {
        if (!S_ISSOCK(status.st_mode)) {
            error = path + " is in the way: it is no socket";
            return {};
        }
        if (connect_to(path) || errno == EAGAIN) {
            error = path + " is served by another process";
            return {};
        }
        // Nobody listens there any more.
        if (errno != ECONNREFUSED || unlink(path.c_str()) < 0) {
            return failed(error, "cannot take over " + path);
        }
    }

    Fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (bind(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) < 0) {
        return failed(error, "cannot make socket " + path);
    }
    if (lstat(path.c_str(), &status) == 0) {
        sockets_.push_back({path, status.st_dev, status.st_ino});
    }
    if (mode && chmod(path.c_str(), *mode) < 0) {
        return failed(error, "cannot set the mode of " + path);
    }
    if (::listen(fd.get(), 128) < 0) {
        return failed(error, "cannot listen on " + path);
    }
    return fd;
}

} // namespace sim
