// Bytes: made, read, and made readable for the messages of failing tests.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace support {

// Control and non-ASCII bytes as \n, \r, \t or \xNN; of a long text the end only.
std::string visible(std::string_view bytes, size_t limit = 2000);

// Where two byte strings part, with what surrounds the place in both.
std::string describe_difference(std::string_view expected, std::string_view actual);

std::string utf8(uint32_t code_point);

// A file's whole content; empty when it cannot be read.
std::string read_file(const std::string &path);

} // namespace support
