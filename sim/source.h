// A file that a port sends to each client from its beginning, as fast as the client reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace sim {

class Source {
public:
    Source() = default;
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;
    ~Source();

    // repeat 0: for ever. False with a sentence in error.
    bool open(const std::string &path, uint64_t repeat, std::string &error);
    std::string_view bytes() const { return bytes_; }
    bool ended(uint64_t rounds) const { return repeat_ != 0 && rounds >= repeat_; }

private:
    std::string_view bytes_; // mapped
    uint64_t repeat_ = 1;
};

} // namespace sim
