// The owner of one descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace sim {

class Fd {
public:
    Fd() = default;
    explicit Fd(int value) : value_(value) {}
    Fd(Fd &&other) noexcept : value_(std::exchange(other.value_, -1)) {}
    Fd &operator=(Fd &&other) noexcept
    {
        reset(std::exchange(other.value_, -1));
        return *this;
    }
    ~Fd() { reset(); }

    int get() const { return value_; }
    explicit operator bool() const { return value_ >= 0; }
    int release() { return std::exchange(value_, -1); }
    void reset(int value = -1)
    {
        if (value_ >= 0) {
            close(value_);
        }
        value_ = value;
    }

private:
    int value_ = -1;
};

} // namespace sim
