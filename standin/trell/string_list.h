// What a string list is made of, for those who need its texts as an array.
#pragma once

#include <stddef.h>

struct string_list {
    char **texts; // count of them, each owned, and a null
    size_t count;
    size_t capacity;
};
