// Bytes waiting for a descriptor that takes no more just now.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace sim {

class ByteQueue {
public:
    bool empty() const { return start_ == bytes_.size(); }
    size_t size() const { return bytes_.size() - start_; }
    // Valid until the next change.
    std::string_view front() const { return std::string_view(bytes_).substr(start_); }

    void append(std::string_view bytes)
    {
        if (start_ > bytes_.size() / 2) {
            bytes_.erase(0, start_);
            start_ = 0;
        }
        bytes_.append(bytes);
    }

    void consume(size_t count)
    {
        start_ += count;
        if (empty()) {
            clear();
        }
    }

    void clear()
    {
        constexpr size_t kept_capacity = 1 << 20;
        if (bytes_.capacity() > kept_capacity) {
            std::string().swap(bytes_);
        }
        bytes_.clear();
        start_ = 0;
    }

private:
    std::string bytes_;
    size_t start_ = 0;
};

} // namespace sim
