// Bytes waiting to be written to a descriptor that takes them piece by piece.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace support {

struct Outbox {
    std::string bytes;
    size_t gone = 0;

    size_t size() const { return bytes.size() - gone; }
    void add(std::string_view more) { bytes += more; }

    // The next piece of at most the size, and how much of it was taken.
    std::string_view next(size_t most) const { return std::string_view(bytes).substr(gone, most); }
    void took(size_t count)
    {
        gone += count;
        if (gone == bytes.size()) {
            clear();
        }
    }
    void clear()
    {
        bytes.clear();
        gone = 0;
    }
};

} // namespace support
