#include "sim/source.h"

#include "sim/fd.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace sim {

Source::~Source()
{
    if (!bytes_.empty()) {
        munmap(const_cast<char *>(bytes_.data()), bytes_.size());
    }
}

bool Source::open(const std::string &path, uint64_t repeat, std::string &error)
{
    Fd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status;
    if (!file || fstat(file.get(), &status) < 0) {
        error = "cannot open " + path + ": " + strerror(errno);
        return false;
    }
    if (!S_ISREG(status.st_mode) || status.st_size == 0) {
        error = path + " is no file with bytes to send";
        return false;
    }
    auto size = static_cast<size_t>(status.st_size);
    void *start = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.get(), 0);
    if (start == MAP_FAILED) {
        error = "cannot map " + path + ": " + strerror(errno);
        return false;
    }
    bytes_ = {static_cast<const char *>(start), size};
    repeat_ = repeat;
    return true;
}

} // namespace sim
