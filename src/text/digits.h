// Numbers in control sequences.
#pragma once

#include <stddef.h>

#include <string_view>

// Takes the digits that the text begins with; none stand for 0. False for a number beyond any
// screen.
[[nodiscard]] inline bool take_number(std::string_view &text, int &number)
{
    number = 0;
    while (!text.empty() && text[0] >= '0' && text[0] <= '9') {
        number = 10 * number + (text[0] - '0');
        if (number > 0xffff) {
            return false;
        }
        text.remove_prefix(1);
    }
    return true;
}

// Stores a number of up to five digits, and returns how many it has.
inline size_t put_number(char *bytes, int number)
{
    char digits[5];
    size_t count = 0;
    do {
        digits[count++] = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number > 0 && count < sizeof digits);
    for (size_t i = 0; i < count; i++) {
        bytes[i] = digits[count - 1 - i];
    }
    return count;
}
