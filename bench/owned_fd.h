// A descriptor that is closed with its owner.
#pragma once

#include <unistd.h>
#include <utility>

class Fd {
public:
    Fd() = default;
    explicit Fd(int descriptor) : fd(descriptor) {}
    Fd(Fd &&other) noexcept : fd(std::exchange(other.fd, -1)) {}
    Fd &operator=(Fd &&other) noexcept
    {
        std::swap(fd, other.fd);
        return *this;
    }
    ~Fd() { close(); }

    int get() const { return fd; }
    void close()
    {
        if (fd >= 0) {
            ::close(std::exchange(fd, -1));
        }
    }

private:
    int fd = -1;
};
