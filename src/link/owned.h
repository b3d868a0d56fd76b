// Zero-filled allocation and the scoped owners of what C code hands out.
#pragma once

#include <cstdlib>
#include <memory>
#include <type_traits>

#include <unistd.h>

#include "dep/trell.h"

// Allocates a zero-filled record with extra bytes behind it. Null when memory is short; free with
// free().
template <typename T>
[[nodiscard]] T *zalloc(size_t extra = 0)
{
    static_assert(std::is_trivial_v<T> && std::is_standard_layout_v<T>,
                  "all zero bytes must be a valid value");
    return static_cast<T *>(calloc(1, sizeof(T) + extra));
}

struct FreeDeleter {
    void operator()(void *memory) const { free(memory); }
};

struct NodeDeleter {
    void operator()(node *value) const { node_free(value); }
};

struct StringListDeleter {
    void operator()(string_list *list) const { sl_free(list); }
};

// A NUL-terminated text from malloc.
using Text = std::unique_ptr<char, FreeDeleter>;
using Node = std::unique_ptr<node, NodeDeleter>;
using StringList = std::unique_ptr<string_list, StringListDeleter>;
