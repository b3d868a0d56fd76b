#include "support/text.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>

namespace support {

std::string visible(std::string_view bytes, size_t limit)
{
    std::string text;
    if (bytes.size() > limit) {
        text = "[" + std::to_string(bytes.size() - limit) + " bytes] ...";
        bytes.remove_prefix(bytes.size() - limit);
    }
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        char escaped[8];
        if (c == '\n' || c == '\r' || c == '\t' || c == '\\') {
            text += {'\\', c == '\n' ? 'n' : c == '\r' ? 'r' : c == '\t' ? 't' : '\\'};
        } else if (byte < 0x20 || byte >= 0x7f) {
            snprintf(escaped, sizeof escaped, "\\x%02x", byte);
            text += escaped;
        } else {
            text += c;
        }
    }
    return text;
}

std::string describe_difference(std::string_view expected, std::string_view actual)
{
    const size_t shorter = std::min(expected.size(), actual.size());
    size_t place = 0;
    while (place < shorter && expected[place] == actual[place]) {
        ++place;
    }
    const size_t from = place < 40 ? 0 : place - 40;
    return std::to_string(actual.size()) + " bytes, expected " + std::to_string(expected.size()) +
           "; they part at byte " + std::to_string(place) +
           "\n  expected: " + visible(expected.substr(from, 200)) +
           "\n  actual:   " + visible(actual.substr(from, 200));
}

std::string utf8(uint32_t code_point)
{
    if (code_point < 0x80) {
        return {char(code_point)};
    }
    const int more = code_point < 0x800 ? 1 : code_point < 0x10000 ? 2 : 3;
    std::string bytes{char((0xf00 >> (more + 1) & 0xff) | code_point >> 6 * more)};
    for (int at = more - 1; at >= 0; --at) {
        bytes += char(0x80 | (code_point >> 6 * at & 0x3f));
    }
    return bytes;
}

std::string read_file(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace support
